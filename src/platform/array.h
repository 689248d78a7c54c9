// A growable array over the memory table, for plain (trivially copyable) elements.
//
// Growth doubles the capacity; a failed growth leaves the array as it was and records nothing: the caller
// records status 1.
#pragma once

#include <cassert>
#include <cstring>
#include <type_traits>
#include <utility>

#include "platform/platform.h"

namespace tovik {

template <class T>
class Array {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  Array() = default;
  ~Array() { mem_free(items_); }
  Array(Array &&other) noexcept { swap(other); }
  Array &operator=(Array &&other) noexcept {
    swap(other);
    return *this;
  }
  Array(const Array &) = delete;
  Array &operator=(const Array &) = delete;

  int size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T *data() { return items_; }
  const T *data() const { return items_; }
  T &operator[](int index) {
    assert(index >= 0 && index < size_);
    return items_[index];
  }
  const T &operator[](int index) const {
    assert(index >= 0 && index < size_);
    return items_[index];
  }
  T *begin() { return items_; }
  T *end() { return items_ + size_; }
  const T *begin() const { return items_; }
  const T *end() const { return items_ + size_; }
  T &back() { return (*this)[size_ - 1]; }

  [[nodiscard]] bool reserve(int capacity) {
    if (capacity <= capacity_) return true;
    int grown = capacity_ == 0 ? 8 : capacity_ * 2;
    if (grown < capacity) grown = capacity;
    void *block = mem_realloc(items_, sizeof(T) * static_cast<size_t>(grown));
    if (block == nullptr) return false;
    items_ = static_cast<T *>(block);
    capacity_ = grown;
    return true;
  }
  [[nodiscard]] bool push(const T &item) {
    const T copy = item;  // item may live in the array that grows
    if (!reserve(size_ + 1)) return false;
    items_[size_++] = copy;
    return true;
  }
  [[nodiscard]] bool append(const T *items, int count) {  // from outside of this array
    if (!reserve(size_ + count)) return false;
    if (count > 0) memcpy(static_cast<void *>(items_ + size_), items, sizeof(T) * static_cast<size_t>(count));
    size_ += count;
    return true;
  }
  // New elements are zero-filled.
  [[nodiscard]] bool resize(int size) {
    if (!reserve(size)) return false;
    if (size > size_)
      memset(static_cast<void *>(items_ + size_), 0, sizeof(T) * static_cast<size_t>(size - size_));
    size_ = size;
    return true;
  }
  void pop() {
    assert(size_ > 0);
    --size_;
  }
  void remove(int index) {
    assert(index >= 0 && index < size_);
    memmove(static_cast<void *>(items_ + index), items_ + index + 1,
            sizeof(T) * static_cast<size_t>(size_ - index - 1));
    --size_;
  }
  void clear() { size_ = 0; }  // keeps the memory
  void swap(Array &other) noexcept {
    std::swap(items_, other.items_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

 private:
  T *items_ = nullptr;
  int size_ = 0;
  int capacity_ = 0;
};

}  // namespace tovik
