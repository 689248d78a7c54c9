// The engine's allocations counted and, when told so, failing.
#pragma once

#include "fault_driver.h"
#include "platform/platform.h"

namespace tovik::test {

// Stands in the memory table for a scope; one at a time.
class CountedMemory {
 public:
  CountedMemory() : original_(memory_table) {
    current_ = this;
    memory_table.mem_alloc = [](size_t size) {
      return current_->fails() ? nullptr : current_->counted(current_->original_.mem_alloc(size));
    };
    memory_table.mem_realloc = [](void *block, size_t size) {
      if (current_->fails()) return static_cast<void *>(nullptr);
      void *resized = current_->original_.mem_realloc(block, size);
      return block == nullptr ? current_->counted(resized) : resized;
    };
    memory_table.mem_free = [](void *block) {
      if (block != nullptr) --current_->blocks_;
      current_->original_.mem_free(block);
    };
  }
  ~CountedMemory() { memory_table = original_; }
  CountedMemory(const CountedMemory &) = delete;
  CountedMemory &operator=(const CountedMemory &) = delete;

  int blocks() const { return blocks_; }  // allocated and not yet freed
  void fail(int call, Failure how) {
    calls_ = 0;
    first_failure_ = call;
    how_ = how;
    failed_ = false;
  }
  void heal() { first_failure_ = 0; }
  bool failed() const { return failed_; }  // since the last fail()

 private:
  bool fails() {
    if (first_failure_ == 0) return false;
    ++calls_;
    const bool now = calls_ == first_failure_ || (calls_ > first_failure_ && how_ == Failure::from_then_on);
    failed_ |= now;
    return now;
  }
  void *counted(void *block) {
    ++blocks_;
    return block;
  }

  inline static CountedMemory *current_ = nullptr;
  MemoryTable original_;
  int blocks_ = 0;
  int calls_ = 0;
  int first_failure_ = 0;
  bool failed_ = false;
  Failure how_ = Failure::once;
};

}  // namespace tovik::test
