// Handles: the small blocks that exported functions give out. A handle is valid when it is not null, its kind
// is the expected one and its object is not null. A closed handle is of no kind, and its block waits behind
// all others to be given out again: who still uses it meets an invalid handle.
#pragma once

#include "platform/platform.h"

namespace tovik {

enum class HandleKind : uint32_t {
  record_database = 0x8765,
  record_cursor = 0x1234,
  statement_database = 0x222,
  statement = 0x444
};

struct Handle {
  HandleKind kind;  // 0 when closed
  union {
    void *object;
    Handle *next;  // closed: in the list of free blocks
  };
};

// The list of free blocks, from the library's start to its end. 10.
[[nodiscard]] bool handles_start();
void handles_end();

Handle *handle_new(HandleKind kind, void *object);  // null without memory; records nothing
void handle_free(Handle *handle);

// The object behind a caller's handle, or null when the handle is not valid.
template <class Object>
Object *handle_object(const void *caller, HandleKind kind) {
  const Handle *handle = static_cast<const Handle *>(caller);
  return handle == nullptr || handle->kind != kind ? nullptr : static_cast<Object *>(handle->object);
}

}  // namespace tovik
