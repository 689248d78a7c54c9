// The engine's allocations counted and, when told so, failing.
#pragma once

#include "platform/platform.h"
#include "support.h"

namespace tovik::test {

// Stands in the memory table for a scope; one at a time.
class CountedMemory {
 public:
  CountedMemory() : original_(memory_table) {
    current_ = this;
    memory_table.mem_alloc = [](size_t size) {
      return current_->failing_.next() ? nullptr : current_->counted(current_->original_.mem_alloc(size));
    };
    memory_table.mem_realloc = [](void *block, size_t size) {
      if (current_->failing_.next()) return static_cast<void *>(nullptr);
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

  int blocks() const { return blocks_; }        // allocated and not yet freed
  int calls() const { return failing_.calls; }  // for more memory, since the last fail()
  void fail(int call, Failure how) { failing_ = {call, how}; }
  void heal() { failing_.first = 0; }
  bool failed() const { return failing_.met; }  // since the last fail()

 private:
  void *counted(void *block) {
    ++blocks_;
    return block;
  }

  inline static CountedMemory *current_ = nullptr;
  MemoryTable original_;
  int blocks_ = 0;
  FailingCalls failing_;
};

}  // namespace tovik::test
