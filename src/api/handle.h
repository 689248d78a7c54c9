// Handles: what exported functions give out. A handle is not an address. It names an entry of the table of
// live handles and carries the serial number of the handle that the entry then held, so that one that was
// closed never reaches the object of a later one, of whatever kind: on 64-bit builds serial numbers do not
// come again in the life of a process, on 32-bit builds they start over after 65,535 handles. Serial numbers
// go on over the library's end and its next start.
//
// A handle is valid from handle_new to handle_take in the process that made it. A process that fork made
// takes none from its parent.
#pragma once

#include "platform/platform.h"

namespace tovik {

enum class HandleKind : uint32_t {
  record_database = 0x8765,
  record_cursor = 0x1234,
  statement_database = 0x222,
  statement = 0x444
};

// The table, from the library's start to its end. 10.
[[nodiscard]] bool handles_start();
void handles_end();
// In a process that fork made: nothing of the parent's table is touched, not even its lock.
void handles_forget();

// Held while handles are made and while what belongs to a database is closed, so that a database and its
// statements and cursors may be closed in any order and by several threads at a time. Recursive. Null while
// the library has not been started in this process.
Lock *handles_lock();

void *handle_new(HandleKind kind, void *object);         // null without memory; records nothing
void *handle_find(const void *handle, HandleKind kind);  // the object, or null when the handle is not valid
void *handle_take(const void *handle, HandleKind kind);  // the same, and the handle ends
const void *handle_any(HandleKind kind);                 // some live handle of the kind, or null

// Takes the lock of the handles, unless the library has not been started in this process: then no handle is
// valid, and there is nothing to close.
class HandlesGuard {
 public:
  HandlesGuard() : lock_(handles_lock()) {
    if (lock_ != nullptr) system_driver.lock_enter(lock_);
  }
  ~HandlesGuard() {
    if (lock_ != nullptr) system_driver.lock_leave(lock_);
  }
  HandlesGuard(const HandlesGuard &) = delete;
  HandlesGuard &operator=(const HandlesGuard &) = delete;

 private:
  Lock *lock_;
};

}  // namespace tovik
