#include "api/handle.h"

#include "frame/error.h"

namespace tovik {

namespace {

struct FreeHandles {
  Lock *lock;
  Handle *first, *last;  // given out from the front, put back at the end
};
FreeHandles free_handles;

}  // namespace

bool handles_start() {
  free_handles = {system_driver.lock_create(), nullptr, nullptr};
  return free_handles.lock != nullptr || fail(status::lock_create);
}

void handles_end() {
  while (free_handles.first != nullptr) {
    Handle *next = free_handles.first->next;
    mem_free(free_handles.first);
    free_handles.first = next;
  }
  system_driver.lock_destroy(free_handles.lock);
}

static Handle *take_free() {
  const LockGuard guard(free_handles.lock);
  Handle *handle = free_handles.first;
  if (handle != nullptr) free_handles.first = handle->next;
  return handle;
}

Handle *handle_new(HandleKind kind, void *object) {
  Handle *handle = take_free();
  if (handle == nullptr) handle = mem_new<Handle>();
  if (handle == nullptr) return nullptr;
  handle->kind = kind;
  handle->object = object;
  return handle;
}

void handle_free(Handle *handle) {
  const LockGuard guard(free_handles.lock);
  *handle = {};
  if (free_handles.first == nullptr) {
    free_handles.first = handle;
  } else {
    free_handles.last->next = handle;
  }
  free_handles.last = handle;
}

}  // namespace tovik
