// The I/O layer: the only road from the storage engine to stored bytes. It hides where a storage lives behind
// an I/O driver and hands out IO objects on which blocks are read and written by number. Process-wide: one
// set of drivers, one list of open IO objects, one lock around each driver call on a storage's bytes.
//
// Driver numbers: 0 and up the built-in drivers (0 the file driver), 100 to 109 the added-driver slots (100
// the memory store). An operation on a number without a driver, or with a required pointer missing, fails
// with 11101. A driver that lacks an operation fails it with the operation's own status, except that locks
// are then always granted and a flush or a close has nothing to do.
//
// io_create, io_open, io_remove, io_exists, io_is_named, the block transfers, io_size, io_sync, io_truncate
// and io_reserve hold the I/O lock around their driver call. io_close does not: its caller holds it.
#pragma once

#include "frame/error.h"
#include "platform/bytes.h"
#include "platform/platform.h"

namespace tovik {

using BlockNo = int32_t;  // block of a part; 0 is the part's header block, never handed out

enum class StorageType : int32_t { file = 0, memory = 1, device = 2, sqlite = 3, network = 4 };

// What the I/O layer needs to open a storage and place its blocks.
struct IoParams {
  StorageType storage_type;
  int32_t file_mode;    // permission bits of created files
  int32_t open_option;  // OPT
  int32_t unit_number;  // HDD_NO
  int32_t sector_size;  // bytes
  int64_t start_sector;
  int32_t block_size;  // bytes
};

inline constexpr int added_driver_base = 100;
inline constexpr int added_driver_count = 10;
inline constexpr int memory_driver_no = 100;

// Slots for drivers added to a process; slot 0 holds the memory store. A test places its driver here before
// io_init.
extern const IoDriver *added_drivers[added_driver_count];

struct IoObject {
  int32_t driver_no;
  int32_t file_kind;  // 0 DAT, 1 TRN
  DriverHandle handle;
  const IoParams *params;  // the database's; outlives the object
  uint32_t write_count;    // blocks
  uint32_t read_count;
  IoObject *next;
};

// Starts the platform and every driver and creates the I/O lock. Idempotent. Statuses 14, 11103, 110, 10.
[[nodiscard]] bool io_init();

// Closes the IO objects still open, ends the drivers and the platform. Must not run beside other users.
void io_term();

// In a process that fork made: closes its copies of the parent's open files, which leaves the parent's locks
// alone, and forgets everything else as it is. Takes no lock: its holder may be a thread that this process
// lacks.
void io_forget();

bool io_initialised();  // also the library's "initialised" for parameter blocks and storage managers
bool io_driver_kind_is(int driver_no, int32_t kind);
bool io_can_rename(int driver_no);  // storages can be kept under another name
Lock *io_lock_object();             // the process-wide I/O lock; recursive

IoObject *io_create(int driver_no, const IoParams &params, const char *name, int file_kind);  // 11101, 101
IoObject *io_open(int driver_no, const IoParams &params, const char *name, int file_kind);    // 11101, 102

// Opens a storage that others may remove at any moment; *absent, with null and no status: the name is gone.
IoObject *io_open_present(int driver_no, const IoParams &params, const char *name, int file_kind,
                          bool *absent);
[[nodiscard]] bool io_close(IoObject *object);  // 11104, 103; the object is gone either way

[[nodiscard]] bool io_remove(int driver_no, const char *name);  // 11101, 108
bool io_exists(int driver_no, const char *name);                // records nothing
// Whether name stands for the open storage and not for another, or none, that took its place. Records
// nothing; with a driver that cannot tell it does.
bool io_is_named(IoObject *object, const char *name);
[[nodiscard]] bool io_read_block(IoObject *object, BlockNo block, void *buffer);         // 11101, 104
[[nodiscard]] bool io_write_block(IoObject *object, BlockNo block, const void *buffer);  // 11101, 105
int64_t io_size(IoObject *object);                                 // bytes, or -1 with 109
[[nodiscard]] bool io_sync(IoObject *object);                      // 107
[[nodiscard]] bool io_truncate(IoObject *object, int64_t length);  // 114

// Gives the blocks first to last real room: a block there that was never written is zero and can be written
// however full the disk is. On failure the storage is as long as before. A driver that cannot reserve gets
// zeros written behind the storage's end; a device has all its room from the start. zeros: a block of
// scratch. Records nothing of its own.
[[nodiscard]] bool io_reserve(IoObject *object, BlockNo first, BlockNo last, void *zeros);

enum class LockResult { granted, busy, failed };

LockResult io_lock(IoObject *object, int mode, int64_t offset, int64_t length);  // failed with 111
[[nodiscard]] bool io_unlock(IoObject *object, int64_t offset, int64_t length, Mishap mishap);  // 112
LockResult io_lock_check(IoObject *object, int64_t offset);  // busy: held elsewhere; failed with 113

[[nodiscard]] bool io_rename(int driver_no, const char *old_name, const char *new_name);  // 11101, 116
Directory *io_find_first(int driver_no, const char *directory);                           // 11101, 118
[[nodiscard]] bool io_find_close(int driver_no, Directory *listing);                      // 11101, 119
int io_find_next(int driver_no, Directory *listing, char name[256]);                      // 1, 0, -1 with 120
bool io_stat(int driver_no, const char *name, FileInfo *info);  // true for a regular file; records nothing

// Records code with the block number, and what it was compared with, as its details.
[[nodiscard]] inline bool fail_at_block(StatusCode code, BlockNo block, BlockNo limit = 0) {
  return fail(code, {.detail1 = block, .detail2 = limit});
}

}  // namespace tovik
