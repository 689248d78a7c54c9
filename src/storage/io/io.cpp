#include "storage/io/io.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>

#include "storage/io/memory_store.h"

namespace tovik {

const IoDriver *added_drivers[added_driver_count] = {&memory_store_driver};

namespace {

// In driver-number order, ended by null.
const IoDriver *built_in_drivers[] = {&file_driver, nullptr};

struct IoLayer {
  bool initialised;
  int built_in_count;
  IoObject *open;  // newest first; changed inside the I/O lock
  Lock *lock;
};

IoLayer layer;

const IoDriver *find_driver(int driver_no) {
  if (!layer.initialised || driver_no < 0) return nullptr;
  if (driver_no < layer.built_in_count) return built_in_drivers[driver_no];
  const int slot = driver_no - added_driver_base;
  return slot >= 0 && slot < added_driver_count ? added_drivers[slot] : nullptr;
}

const IoDriver &driver_of(const IoObject &object) {
  const IoDriver *driver = find_driver(object.driver_no);
  assert(driver != nullptr);  // an IO object outlives neither its driver nor the layer
  return *driver;
}

int count_built_in() {
  int count = 0;
  while (built_in_drivers[count] != nullptr) ++count;
  return count;
}

// Drivers in starting order: the built-in ones, then the added slots.
const IoDriver *driver_in_order(int index) {
  return index < layer.built_in_count ? built_in_drivers[index] : added_drivers[index - layer.built_in_count];
}

int driver_order_length() {
  return layer.built_in_count + added_driver_count;
}

void end_driver(const IoDriver *driver) {
  if (driver != nullptr && driver->drv_end != nullptr) driver->drv_end();
}

// Ends the first count drivers in starting order: added ones first.
void end_drivers(int count) {
  for (int i = layer.built_in_count; i < count; ++i) end_driver(driver_in_order(i));
  for (int i = 0; i < layer.built_in_count && i < count; ++i) end_driver(driver_in_order(i));
}

bool start_drivers() {
  for (int i = 0; i < driver_order_length(); ++i) {
    const IoDriver *driver = driver_in_order(i);
    if (driver == nullptr || driver->drv_start == nullptr || driver->drv_start() >= 0) continue;
    end_drivers(i);
    return fail(status::io_driver_start);
  }
  return true;
}

bool start_layer() {
  layer.built_in_count = count_built_in();
  if (layer.built_in_count == 0) return fail(status::io_no_driver);
  if (!start_drivers()) return false;
  layer.lock = system_driver.lock_create();
  if (layer.lock != nullptr) return true;
  end_drivers(driver_order_length());
  return fail(status::lock_create);
}

// What the driver's file_open is told about the unit.
struct OpenUnit {
  int number;
  int size;  // bytes
};

OpenUnit open_unit(const IoParams &params) {
  switch (params.storage_type) {
    case StorageType::device:
      return {params.unit_number, params.sector_size};
    case StorageType::memory:
    case StorageType::sqlite:
      return {0, params.block_size};
    default:
      return {0, 0};
  }
}

enum class Opening { fresh, existing };

IoObject *open_storage(int driver_no, const IoParams &params, const char *name, int file_kind, Opening how) {
  const bool create = how == Opening::fresh;
  const IoDriver *driver = find_driver(driver_no);
  if (driver == nullptr) return fail_null(status::io_argument);
  IoObject *object = mem_new<IoObject>();
  if (object == nullptr) return fail_null(status::out_of_memory);
  object->driver_no = driver_no;
  object->file_kind = file_kind;
  object->params = &params;
  object->handle = no_handle;

  const OpenUnit unit = open_unit(params);
  const int flags = create ? open_create : params.open_option;
  const int mode = create ? params.file_mode : 0;
  LockGuard guard(layer.lock);
  if (driver->file_open != nullptr)
    object->handle = driver->file_open(name, flags, mode, unit.number, unit.size);
  if (object->handle == no_handle) {
    mem_delete(object);
    return fail_null(create ? status::io_create : status::io_open);
  }
  object->next = layer.open;
  layer.open = object;
  return object;
}

bool unlink_object(const IoObject *object) {
  for (IoObject **link = &layer.open; *link != nullptr; link = &(*link)->next) {
    if (*link != object) continue;
    *link = object->next;
    return true;
  }
  return false;
}

// Where a block lies: bytes, or sectors on a device.
int64_t block_position(const IoParams &params, BlockNo block) {
  if (params.storage_type == StorageType::device)
    return static_cast<int64_t>(block) * (params.block_size / params.sector_size) + params.start_sector;
  return static_cast<int64_t>(block) * params.block_size;
}

// From offset, or where the storage ends now if that is further, to end.
bool write_zeros(IoObject &object, int64_t offset, int64_t end, void *zeros) {
  const IoDriver &driver = driver_of(object);
  const int64_t size = driver.file_size == nullptr ? -1 : driver.file_size(object.handle);
  if (size < 0 || driver.file_write == nullptr) return false;
  const int64_t length = object.params->block_size;
  memset(zeros, 0, static_cast<size_t>(length));
  for (int64_t at = std::max(offset, size - size % length); at < end; at += length) {
    if (driver.file_write(object.handle, zeros, length, at) == length) continue;
    const int cause = errno;
    if (driver.file_truncate != nullptr) (void)driver.file_truncate(object.handle, size);
    errno = cause;
    return false;
  }
  return true;
}

LockResult lock_result(int outcome, StatusCode failure) {
  if (outcome == 0) return LockResult::granted;
  if (outcome > 0) return LockResult::busy;
  err_set(failure);
  return LockResult::failed;
}

// One block through a slot of the driver.
template <class Byte>
bool transfer_block(IoObject *object, BlockNo block, Byte *buffer,
                    int64_t (*IoDriver::*slot)(DriverHandle, Byte *, int64_t, int64_t),
                    uint32_t IoObject::*count, StatusCode failure) {
  if (object == nullptr || buffer == nullptr) return fail(status::io_argument);
  const auto transfer = driver_of(*object).*slot;
  const IoParams &params = *object->params;
  LockGuard guard(layer.lock);
  ++(object->*count);
  if (transfer != nullptr &&
      transfer(object->handle, buffer, params.block_size, block_position(params, block)) == params.block_size)
    return true;
  return fail_at_block(failure, block);
}

}  // namespace

bool io_init() {
  if (layer.initialised) return true;
  layer.open = nullptr;
  system_driver.report_driver_error = err_set_driver;
  if (system_driver.sys_start() < 0) return fail(status::system_start);
  if (!start_layer()) {
    system_driver.sys_end();
    return false;
  }
  layer.initialised = true;
  return true;
}

void io_term() {
  if (!layer.initialised) return;
  while (layer.open != nullptr)
    if (!io_close(layer.open)) err_clear();
  end_drivers(driver_order_length());
  system_driver.sys_end();
  system_driver.lock_destroy(layer.lock);
  layer = {};
}

void io_forget() {
  for (const IoObject *object = layer.open; object != nullptr; object = object->next) {
    const IoDriver &driver = driver_of(*object);
    if (driver.kind == 0 && driver.file_close != nullptr) driver.file_close(object->handle);
  }
  layer = {};
}

bool io_initialised() {
  return layer.initialised;
}

bool io_driver_kind_is(int driver_no, int32_t kind) {
  const IoDriver *driver = find_driver(driver_no);
  return driver != nullptr && driver->kind == kind;
}

bool io_can_rename(int driver_no) {
  const IoDriver *driver = find_driver(driver_no);
  return driver != nullptr && driver->file_rename != nullptr;
}

Lock *io_lock_object() {
  return layer.lock;
}

IoObject *io_create(int driver_no, const IoParams &params, const char *name, int file_kind) {
  return open_storage(driver_no, params, name, file_kind, Opening::fresh);
}

IoObject *io_open(int driver_no, const IoParams &params, const char *name, int file_kind) {
  return open_storage(driver_no, params, name, file_kind, Opening::existing);
}

IoObject *io_open_present(int driver_no, const IoParams &params, const char *name, int file_kind,
                          bool *absent) {
  constexpr int race_limit = 4;
  *absent = false;
  for (int tries = 1; io_exists(driver_no, name); ++tries) {
    if (tries == race_limit) return io_open(driver_no, params, name, file_kind);
    ErrorScope may_be_gone;
    IoObject *object = io_open(driver_no, params, name, file_kind);
    if (object != nullptr) return object;
  }
  *absent = true;
  return nullptr;
}

bool io_close(IoObject *object) {
  if (object == nullptr || !unlink_object(object)) return fail(status::io_already_closed);
  const IoDriver &driver = driver_of(*object);
  const int result = driver.file_close == nullptr ? 0 : driver.file_close(object->handle);
  mem_delete(object);
  return result >= 0 || fail(status::io_close);
}

bool io_remove(int driver_no, const char *name) {
  const IoDriver *driver = find_driver(driver_no);
  if (driver == nullptr || name == nullptr) return fail(status::io_argument);
  LockGuard guard(layer.lock);
  return (driver->file_remove != nullptr && driver->file_remove(name) >= 0) || fail(status::io_remove);
}

bool io_exists(int driver_no, const char *name) {
  const IoDriver *driver = find_driver(driver_no);
  if (driver == nullptr || name == nullptr || driver->file_exists == nullptr) return false;
  LockGuard guard(layer.lock);
  return driver->file_exists(name) == 1;
}

bool io_is_named(IoObject *object, const char *name) {
  if (object == nullptr || name == nullptr) return false;
  const IoDriver &driver = driver_of(*object);
  LockGuard guard(layer.lock);
  return driver.file_is_named == nullptr || driver.file_is_named(object->handle, name) == 1;
}

bool io_read_block(IoObject *object, BlockNo block, void *buffer) {
  return transfer_block(object, block, buffer, &IoDriver::file_read, &IoObject::read_count, status::io_read);
}

bool io_write_block(IoObject *object, BlockNo block, const void *buffer) {
  return transfer_block(object, block, buffer, &IoDriver::file_write, &IoObject::write_count,
                        status::io_write);
}

int64_t io_size(IoObject *object) {
  if (object == nullptr) {
    err_set(status::io_argument);
    return -1;
  }
  const IoDriver &driver = driver_of(*object);
  LockGuard guard(layer.lock);
  const int64_t size = driver.file_size == nullptr ? -1 : driver.file_size(object->handle);
  if (size >= 0) return size;
  err_set(status::io_size);
  return -1;
}

bool io_sync(IoObject *object) {
  if (object == nullptr) return fail(status::io_argument);
  const IoDriver &driver = driver_of(*object);
  LockGuard guard(layer.lock);
  return driver.file_sync == nullptr || driver.file_sync(object->handle) >= 0 || fail(status::io_sync);
}

bool io_truncate(IoObject *object, int64_t length) {
  if (object == nullptr) return fail(status::io_argument);
  const IoDriver &driver = driver_of(*object);
  LockGuard guard(layer.lock);
  return (driver.file_truncate != nullptr && driver.file_truncate(object->handle, length) >= 0) ||
         fail(status::io_truncate);
}

bool io_reserve(IoObject *object, BlockNo first, BlockNo last, void *zeros) {
  if (object == nullptr || zeros == nullptr) return fail(status::io_argument);
  const IoDriver &driver = driver_of(*object);
  const IoParams &params = *object->params;
  if (params.storage_type == StorageType::device) return true;
  LockGuard guard(layer.lock);
  const int64_t offset = block_position(params, first),
                end = block_position(params, last) + params.block_size;
  const int result =
      driver.file_reserve == nullptr ? 1 : driver.file_reserve(object->handle, offset, end - offset);
  return result == 1 ? write_zeros(*object, offset, end, zeros) : result == 0;
}

LockResult io_lock(IoObject *object, int mode, int64_t offset, int64_t length) {
  if (object == nullptr) return lock_result(-1, status::io_argument);
  const IoDriver &driver = driver_of(*object);
  if (driver.file_lock == nullptr) return LockResult::granted;
  return lock_result(driver.file_lock(object->handle, mode, offset, length), status::io_lock);
}

bool io_unlock(IoObject *object, int64_t offset, int64_t length, Mishap mishap) {
  if (object == nullptr) return fail(status::io_argument);
  const IoDriver &driver = driver_of(*object);
  if (driver.file_lock == nullptr) return true;
  if (driver.file_unlock != nullptr && driver.file_unlock(object->handle, offset, length) >= 0) return true;
  return mishap == Mishap::recorded ? fail(status::io_unlock) : false;
}

LockResult io_lock_check(IoObject *object, int64_t offset) {
  if (object == nullptr) return lock_result(-1, status::io_argument);
  const IoDriver &driver = driver_of(*object);
  if (driver.file_lock == nullptr) return LockResult::granted;
  const int outcome = driver.file_lock_test == nullptr
                          ? -1
                          : driver.file_lock_test(object->handle, file_lock_exclusive, offset, 1);
  return lock_result(outcome, status::io_lock_check);
}

bool io_rename(int driver_no, const char *old_name, const char *new_name) {
  const IoDriver *driver = find_driver(driver_no);
  if (driver == nullptr || old_name == nullptr || new_name == nullptr) return fail(status::io_argument);
  return (driver->file_rename != nullptr && driver->file_rename(old_name, new_name) >= 0) ||
         fail(status::io_rename);
}

Directory *io_find_first(int driver_no, const char *directory) {
  const IoDriver *driver = find_driver(driver_no);
  if (driver == nullptr || directory == nullptr) return fail_null(status::io_argument);
  Directory *listing = driver->dir_open == nullptr ? nullptr : driver->dir_open(directory);
  if (listing == nullptr) err_set(status::io_find_first);
  return listing;
}

bool io_find_close(int driver_no, Directory *listing) {
  const IoDriver *driver = find_driver(driver_no);
  if (driver == nullptr || listing == nullptr) return fail(status::io_argument);
  return (driver->dir_close != nullptr && driver->dir_close(listing) >= 0) || fail(status::io_find_close);
}

int io_find_next(int driver_no, Directory *listing, char name[256]) {
  const IoDriver *driver = find_driver(driver_no);
  if (driver == nullptr || listing == nullptr || name == nullptr) {
    err_set(status::io_argument);
    return -1;
  }
  const int result = driver->dir_next == nullptr ? -1 : driver->dir_next(listing, name, 256);
  if (result < 0) err_set(status::io_find_next);
  return result < 0 ? -1 : result;
}

bool io_stat(int driver_no, const char *name, FileInfo *info) {
  const IoDriver *driver = find_driver(driver_no);
  return driver != nullptr && name != nullptr && driver->file_info != nullptr &&
         driver->file_info(name, info) == 1;
}

}  // namespace tovik
