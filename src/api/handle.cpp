// A handle, as a number:
//
//   low bits    index of the entry: 20 on 64-bit builds, 16 on 32-bit builds
//   high bits   serial number, from 1
//
// The entries lie in chunks that are allocated as they are needed and stay where they are. Looking one up
// takes no lock: an entry's number is written after its kind and object, and cleared before they change.
#include "api/handle.h"

#include <atomic>

#include "frame/error.h"

namespace tovik {

namespace {

using Number = uintptr_t;

constexpr int index_bits = sizeof(Number) == 8 ? 20 : 16;
constexpr int entry_limit = 1 << index_bits;
constexpr int chunk_size = 512;
constexpr int chunk_limit = entry_limit / chunk_size;

struct Entry {
  std::atomic<Number> number;  // 0 while free
  HandleKind kind;
  void *object;
  int next_free;  // index, -1 after the last
};

struct Handles {
  std::atomic<int> process;  // that started the library; 0 when none has
  Lock *lock;                // guards all but the reading of live entries
  std::atomic<Entry *> chunks[chunk_limit];
  int chunk_count;
  int first_free;
};

Handles handles;
Number last_serial;

bool started_here() {
  return handles.process.load(std::memory_order_relaxed) == system_driver.process_id();
}

Number number_of(const void *handle) {
  return reinterpret_cast<Number>(handle);
}

Entry *entry_at(int index) {
  Entry *chunk = handles.chunks[index / chunk_size].load(std::memory_order_acquire);
  return chunk == nullptr ? nullptr : chunk + index % chunk_size;
}

// The live entry of a valid handle, or null.
Entry *entry_of(const void *handle, HandleKind kind) {
  const Number number = number_of(handle);
  if (number == 0 || !started_here()) return nullptr;
  Entry *entry = entry_at(static_cast<int>(number % entry_limit));
  if (entry == nullptr || entry->number.load(std::memory_order_acquire) != number) return nullptr;
  return entry->kind == kind ? entry : nullptr;
}

bool add_chunk() {
  if (handles.chunk_count == chunk_limit) return false;
  Entry *chunk = static_cast<Entry *>(mem_alloc(sizeof(Entry) * chunk_size));
  if (chunk == nullptr) return false;
  const int first = handles.chunk_count * chunk_size;
  for (int i = 0; i < chunk_size; ++i)
    ::new (chunk + i) Entry{{0}, {}, nullptr, i + 1 < chunk_size ? first + i + 1 : -1};
  handles.chunks[handles.chunk_count++].store(chunk, std::memory_order_release);
  handles.first_free = first;
  return true;
}

Number next_number(int index) {
  if (++last_serial > UINTPTR_MAX >> index_bits) last_serial = 1;
  return last_serial << index_bits | static_cast<Number>(index);
}

}  // namespace

bool handles_start() {
  handles.lock = system_driver.lock_create();
  if (handles.lock == nullptr) return fail(status::lock_create);
  handles.first_free = -1;
  handles.process = system_driver.process_id();
  return true;
}

void handles_end() {
  for (int i = 0; i < handles.chunk_count; ++i) mem_free(handles.chunks[i].load());
  system_driver.lock_destroy(handles.lock);
  handles_forget();
}

void handles_forget() {
  handles.process = 0;
  handles.lock = nullptr;
  for (int i = 0; i < handles.chunk_count; ++i) handles.chunks[i] = nullptr;
  handles.chunk_count = 0;
}

Lock *handles_lock() {
  return started_here() ? handles.lock : nullptr;
}

void *handle_new(HandleKind kind, void *object) {
  const LockGuard guard(handles.lock);
  if (handles.first_free < 0 && !add_chunk()) return nullptr;
  const int index = handles.first_free;
  Entry &entry = *entry_at(index);
  handles.first_free = entry.next_free;
  entry.kind = kind;
  entry.object = object;
  const Number number = next_number(index);
  entry.number.store(number, std::memory_order_release);
  return reinterpret_cast<void *>(number);
}

void *handle_find(const void *handle, HandleKind kind) {
  const Entry *entry = entry_of(handle, kind);
  return entry == nullptr ? nullptr : entry->object;
}

void *handle_take(const void *handle, HandleKind kind) {
  const HandlesGuard guard;
  Entry *entry = entry_of(handle, kind);
  if (entry == nullptr) return nullptr;
  entry->number.store(0, std::memory_order_release);
  entry->next_free = handles.first_free;
  handles.first_free = static_cast<int>(number_of(handle) % entry_limit);
  return entry->object;
}

const void *handle_any(HandleKind kind) {
  const HandlesGuard guard;
  for (int index = 0; index < handles.chunk_count * chunk_size; ++index) {
    const Entry &entry = *entry_at(index);
    const Number number = entry.number.load(std::memory_order_relaxed);
    if (number != 0 && entry.kind == kind) return reinterpret_cast<const void *>(number);
  }
  return nullptr;
}

}  // namespace tovik
