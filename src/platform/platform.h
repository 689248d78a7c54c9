// The three tables through which the engine reaches the operating system: the system driver, the file
// driver and the memory table. A port fills the tables and changes nothing else; a running process may
// replace single slots (tests do). Slots report failure by their results only (-1, null, 1 for a busy
// lock); the caller records the status.
//
// Inside the engine names keep their backslashes; the slots of a port translate them at the boundary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <new>

#include "tovik_types.h"

namespace tovik {

using ThreadId = int32_t;  // as system.thread_id gives it
inline constexpr ThreadId no_thread = -1;

struct Lock;       // an opaque recursive mutual-exclusion lock
struct Directory;  // an opaque listing of one directory

// Seconds since 1970-01-01 00:00:00 UTC and the microseconds within that second.
struct Clock {
  int32_t seconds;
  int32_t microseconds;
};

// Block cipher of encrypted databases; no built-in platform has one.
struct CipherDriver {
  const char *name;
  const char *option_names[10];  // keys looked up in the parameter string; an entry may be empty
  void *(*open)(const char *key, const char *const option_values[10]);  // null on failure
  void (*close)(void *handle);
  int (*encrypt)(void *handle, const void *input, void *output, int length);  // negative on failure
  int (*decrypt)(void *handle, const void *input, void *output, int length);  // negative on failure
};

struct SystemDriver {
  const char *name;
  int (*sys_start)();  // negative on failure
  void (*sys_end)();
  Lock *(*lock_create)();  // null on failure
  int (*lock_destroy)(Lock *lock);
  int (*lock_enter)(Lock *lock);
  int (*lock_leave)(Lock *lock);
  int (*process_id)();
  ThreadId (*thread_id)();
  int (*thread_equal)(ThreadId a, ThreadId b);
  void (*sleep_ms)(int milliseconds);
  void (*local_now)(DateTimeRec *now);
  void (*utc_now)(Clock *now);
  int (*print)(const char *format, ...) __attribute__((format(printf, 1, 2)));  // to standard output
  int (*debug_print)(const char *format, ...) __attribute__((format(printf, 1, 2)));
  FILE *(*stream_open)(const char *path, const char *mode);
  int (*stream_close)(FILE *stream);
  size_t (*stream_read)(void *buffer, size_t size, size_t count, FILE *stream);
  size_t (*stream_write)(const void *buffer, size_t size, size_t count, FILE *stream);
  char *(*stream_gets)(char *buffer, int size, FILE *stream);
  int32_t (*stream_seek)(FILE *stream, int32_t offset, int origin);  // new position or -1
  CipherDriver *cipher_driver;                                       // null: no encryption
  void (*report_driver_error)(int32_t code, const char *text, int32_t detail1, int32_t detail2);
  const char *(*env_get)(const char *name);  // null slot: the environment is not read
  // Time zone: both slots or neither; years 1 to 9999; 0 on success.
  int (*local_to_utc)(DateTimeRec *utc, const DateTimeRec *local);
  int (*utc_to_local)(DateTimeRec *local, const DateTimeRec *utc);
  int (*local_to_seconds)(int64_t *seconds, const DateTimeRec *local);
  int (*seconds_to_local)(DateTimeRec *local, int64_t seconds);
  // UTF-8 (set 2) <-> UTF-16LE (set 3), zero-terminated; returns the length written with its terminator
  // (bytes), or -1. source_length and flag are ignored; target_size is in bytes.
  int (*text_convert)(int target_set, int source_set, const void *source, int source_length, void *target,
                      int target_size, int flag);
};

// What file_info tells of a path.
struct FileInfo {
  uint32_t mode;
  int32_t owner;
  int32_t group;
  int64_t size;
  int64_t accessed;  // seconds since 1970
  int64_t modified;
  int64_t changed;
};

using DriverHandle = intptr_t;  // -1: no handle
inline constexpr DriverHandle no_handle = -1;

inline constexpr int open_read_only = 1;  // flags of file_open
inline constexpr int open_create = 8;
inline constexpr int open_new = 16;         // with open_create: nothing may have that name yet
inline constexpr int file_lock_shared = 1;  // modes of file_lock
inline constexpr int file_lock_exclusive = 2;

// A storage driver: the file driver, the memory store, or a driver added by a test. Slots from drv_start
// on may be null; the I/O layer says what a missing slot means.
struct IoDriver {
  const char *name;
  int32_t kind;        // storage type served: 0 file, 1 memory
  int (*drv_start)();  // negative on failure
  void (*drv_end)();
  int (*file_remove)(const char *name);  // whoever has it open keeps what it had
  DriverHandle (*file_open)(const char *name, int flags, int mode, int unit_number, int unit_size);
  int (*file_close)(DriverHandle handle);
  // Transfers of exactly length bytes: the byte count, negative on failure (a short read is a failure).
  int64_t (*file_read)(DriverHandle handle, void *buffer, int64_t length, int64_t offset);
  int64_t (*file_write)(DriverHandle handle, const void *buffer, int64_t length, int64_t offset);
  int (*file_exists)(const char *name);  // 1 or 0
  int64_t (*file_size)(DriverHandle handle);
  int (*file_sync)(DriverHandle handle);  // the first flush of a created file flushes its directory too
  int (*file_truncate)(DriverHandle handle, int64_t length);
  // Byte-range locks never wait: 0 taken, 1 another holder has it, negative on failure.
  int (*file_lock)(DriverHandle handle, int mode, int64_t offset, int64_t length);
  int (*file_unlock)(DriverHandle handle, int64_t offset, int64_t length);
  int (*file_lock_test)(DriverHandle handle, int mode, int64_t offset, int64_t length);
  int (*dir_create)(const char *name);
  int (*file_rename)(const char *old_name, const char *new_name);
  Directory *(*dir_open)(const char *directory);  // null when nothing matches
  int (*dir_close)(Directory *listing);
  int (*dir_next)(Directory *listing, char *name, int capacity);  // 1 name, 0 end, -1 null listing
  int (*file_info)(const char *name, FileInfo *info);             // 1 for a regular file, else 0
  int (*file_is_named)(DriverHandle handle, const char *name);    // 1: name stands for the open file
  // Gives length bytes from offset on real room: afterwards the storage reaches that far, bytes never written
  // are zero, others as they were, and no write there fails for lack of room. 0; 1 when this storage knows no
  // such thing; negative on failure, with the length as it was.
  int (*file_reserve)(DriverHandle handle, int64_t offset, int64_t length);
};

struct MemoryStats {
  int32_t pool_active;
  int32_t alloc_calls;
  int32_t free_calls;
  int32_t realloc_calls;
  int32_t largest_request;
  int32_t total_requested;
  int32_t bytes_in_use;
  int32_t bytes_free_listed;
  int32_t bytes_carved;
  int32_t arena_size;
};

// The allocator. mem_start with a limit above 0 switches the four middle slots to the pool (pool.h).
struct MemoryTable {
  int (*mem_start)(int32_t limit_megabytes);  // 0, or -1 when the pool's arena cannot be obtained
  void (*mem_end)();
  void *(*mem_alloc)(size_t size);  // null on failure
  void (*mem_free)(void *block);    // null is ignored
  void *(*mem_realloc)(void *block, size_t size);
  void (*mem_stats)(MemoryStats *stats);
};

extern SystemDriver system_driver;
extern IoDriver file_driver;
extern MemoryTable memory_table;

inline void *mem_alloc(size_t size) {
  return memory_table.mem_alloc(size);
}
inline void mem_free(void *block) {
  memory_table.mem_free(block);
}
inline void *mem_realloc(void *block, size_t size) {
  return memory_table.mem_realloc(block, size);
}

// A zero-filled T, or null. T is a plain structure or has a default constructor; release with mem_delete.
template <class T>
T *mem_new() {
  void *block = mem_alloc(sizeof(T));
  return block == nullptr ? nullptr : ::new (block) T();
}

template <class T>
void mem_delete(T *object) {
  if (object == nullptr) return;
  object->~T();
  mem_free(object);
}

// The separator after which the last part of a storage name starts, or null. Backslash everywhere; a port
// whose system uses "/" accepts that too.
const char *path_last_separator(const char *name);

inline ThreadId current_thread() {
  return system_driver.thread_id();
}

// Holds an entered lock until the end of the scope.
class LockGuard {
 public:
  explicit LockGuard(Lock *lock) : lock_(lock) { system_driver.lock_enter(lock_); }
  ~LockGuard() { system_driver.lock_leave(lock_); }
  LockGuard(const LockGuard &) = delete;
  LockGuard &operator=(const LockGuard &) = delete;

 private:
  Lock *lock_;
};

}  // namespace tovik
