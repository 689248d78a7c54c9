// A created file is durable only when the directory that holds it is. The descriptor of such a file stands in
// the table of unflushed creations, with a descriptor of its directory, until its first flush or its close;
// the first flush flushes the directory too. Descriptors of all other files never enter the table, and
// flushes take its lock only while it holds anything.
//
// Byte-range locks belong to the open file description: two opens exclude each other even inside one process,
// and closing one leaves the other's locks alone. A second lock by the same descriptor replaces its first.
#define _FILE_OFFSET_BITS 64

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/platform.h"
#include "platform/posix/path.h"

namespace tovik {

struct Directory {
  DIR *stream;
};

namespace {

constexpr int default_file_mode = 0644;

int descriptor_of(DriverHandle handle) {
  return static_cast<int>(handle);
}

int done(int result) {
  return result == 0 ? 0 : -1;
}

struct UnflushedCreation {
  int file;
  int directory;
};

constexpr int creation_limit = 64;
UnflushedCreation creations[creation_limit];
std::atomic<int> creation_count{0};
std::mutex creations_lock;

int directory_open(const char *name) {
  SystemPath path(name);
  if (path.text() == nullptr) return -1;
  path.to_directory();
  return open(path.text(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// A file system that cannot flush directories (EINVAL) keeps their entries safe by its own means.
bool flush_directory(int directory) {
  int result;
  do {
    result = fsync(directory);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == EINVAL;
}

bool creation_put(int file, int directory) {
  std::lock_guard<std::mutex> guard(creations_lock);
  const int count = creation_count.load(std::memory_order_relaxed);
  if (count == creation_limit) return false;
  creations[count] = {file, directory};
  creation_count.store(count + 1, std::memory_order_release);
  return true;
}

// Notes that file's first flush owes a flush of its directory. When the table is full the debt is paid at
// once.
bool creation_note(int file, const char *name) {
  const int directory = directory_open(name);
  if (directory < 0) return false;
  if (creation_put(file, directory)) return true;
  const bool flushed = flush_directory(directory);
  close(directory);
  return flushed;
}

// Takes file out of the table; the descriptor of its directory, or -1 when it is not there.
int creation_take(int file) {
  if (creation_count.load(std::memory_order_acquire) == 0) return -1;
  std::lock_guard<std::mutex> guard(creations_lock);
  const int count = creation_count.load(std::memory_order_relaxed);
  for (int i = 0; i < count; ++i) {
    if (creations[i].file != file) continue;
    const int directory = creations[i].directory;
    creations[i] = creations[count - 1];
    creation_count.store(count - 1, std::memory_order_release);
    return directory;
  }
  return -1;
}

// A process that fork makes gets the table whole and its lock free.
pthread_once_t creations_watch = PTHREAD_ONCE_INIT;

void watch_creations() {
  pthread_atfork([] { creations_lock.lock(); }, [] { creations_lock.unlock(); },
                 [] { creations_lock.unlock(); });
}

int start() {
  return done(pthread_once(&creations_watch, watch_creations));
}
void end() {}

int remove_file(const char *name) {
  const SystemPath path(name);
  return path.text() == nullptr ? -1 : done(unlink(path.text()));
}

int open_existing(const char *path, int access) {
  int file;
  do {
    file = open(path, access | O_CLOEXEC);
  } while (file < 0 && errno == EINTR);
  return file;
}

// Opens path for reading and writing, creating it when missing; *created tells whether this call did. One
// that is to be new is not opened when it is there.
int open_or_create(const char *path, int flags, int mode, bool *created) {
  constexpr int race_limit = 8;  // another process creates and removes the file between our two tries
  const mode_t permissions = static_cast<mode_t>(mode == 0 ? default_file_mode : mode);
  *created = false;
  for (int i = 0; i < race_limit; ++i) {
    int file = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
    if (file >= 0) {
      *created = true;
      return file;
    }
    if (errno != EEXIST && errno != EINTR) return -1;
    if (errno == EEXIST && (flags & open_new) != 0) return -1;
    file = open_existing(path, O_RDWR);
    if (file >= 0 || errno != ENOENT) {
      if (file >= 0) errno = 0;
      return file;
    }
  }
  return -1;
}

DriverHandle open_file(const char *name, int flags, int mode, int, int) {
  const SystemPath path(name);
  if (path.text() == nullptr) return no_handle;
  if ((flags & open_create) == 0) {
    return open_existing(path.text(), (flags & open_read_only) != 0 ? O_RDONLY : O_RDWR);
  }
  bool created;
  const int file = open_or_create(path.text(), flags, mode, &created);
  if (file < 0 || !created || creation_note(file, name)) return file;
  const int cause = errno;  // a file that could never be made durable is not created
  close(file);
  unlink(path.text());
  errno = cause;
  return no_handle;
}

int close_file(DriverHandle handle) {
  const int file = descriptor_of(handle);
  const int directory = creation_take(file);  // before the number can be given to another file
  if (directory >= 0) close(directory);
  return close(file) == 0 || errno == EINTR ? 0 : -1;  // interrupted, but the descriptor is gone
}

// Calls transfer, which takes what is done and what is left and gives what it moved, until all is through.
template <class Transfer>
int64_t transfer_all(int64_t length, Transfer transfer) {
  int64_t count = 0;
  while (count < length) {
    const ssize_t part = transfer(count, static_cast<size_t>(length - count));
    if (part == 0 || (part < 0 && errno != EINTR)) return -1;
    if (part > 0) count += part;
  }
  return length < 0 ? -1 : count;
}

int64_t read_file(DriverHandle handle, void *buffer, int64_t length, int64_t offset) {
  return transfer_all(length, [&](int64_t done, size_t left) {
    return pread(descriptor_of(handle), static_cast<char *>(buffer) + done, left, offset + done);
  });
}

int64_t write_file(DriverHandle handle, const void *buffer, int64_t length, int64_t offset) {
  return transfer_all(length, [&](int64_t done, size_t left) {
    return pwrite(descriptor_of(handle), static_cast<const char *>(buffer) + done, left, offset + done);
  });
}

int file_is_there(const char *name) {
  const SystemPath path(name);
  const bool there = path.text() != nullptr && access(path.text(), F_OK) == 0;
  errno = 0;
  return there ? 1 : 0;
}

int64_t size_of_file(DriverHandle handle) {
  struct stat status;
  return fstat(descriptor_of(handle), &status) == 0 ? static_cast<int64_t>(status.st_size) : -1;
}

int sync_file(DriverHandle handle) {
  const int file = descriptor_of(handle);
  int result;
  do {
    result = fdatasync(file);
  } while (result != 0 && errno == EINTR);
  if (result != 0) return -1;
  const int directory = creation_take(file);
  if (directory < 0) return 0;
  const bool flushed = flush_directory(directory);
  if (!flushed && creation_put(file, directory)) return -1;  // still owed
  close(directory);
  return flushed ? 0 : -1;
}

int truncate_file(DriverHandle handle, int64_t length) {
  int result;
  do {
    result = ftruncate(descriptor_of(handle), length);
  } while (result != 0 && errno == EINTR);
  return done(result);
}

// A device's room is its own (ENODEV). Where the C library knows no way to reserve, the caller writes zeros.
int reserve_file(DriverHandle handle, int64_t offset, int64_t length) {
  const int64_t length_before = size_of_file(handle);
  if (length_before < 0) return -1;
  int cause;
  do {
    cause = posix_fallocate(descriptor_of(handle), offset, length);
  } while (cause == EINTR);
  if (cause == 0 || cause == ENODEV) return 0;
  if (cause == EOPNOTSUPP || cause == EINVAL) return 1;
  if (size_of_file(handle) > length_before) truncate_file(handle, length_before);
  errno = cause;
  return -1;
}

struct flock lock_request(short type, int64_t offset, int64_t length) {
  struct flock request = {};  // l_pid must be 0
  request.l_type = type;
  request.l_whence = SEEK_SET;
  request.l_start = offset;
  request.l_len = length;
  return request;
}

// The lock type of a mode, or -1 with errno set.
int lock_type(int mode) {
  if (mode == file_lock_shared) return F_RDLCK;
  if (mode == file_lock_exclusive) return F_WRLCK;
  errno = EINVAL;
  return -1;
}

// What a refused lock request means: a refusal is an answer, so errno is cleared for it.
int refusal() {
  if (errno == EBADF) return -1;
  errno = 0;
  return 1;
}

int lock_file(DriverHandle handle, int mode, int64_t offset, int64_t length) {
  const int type = lock_type(mode);
  if (type < 0) return -1;
  struct flock request = lock_request(static_cast<short>(type), offset, length);
  return fcntl(descriptor_of(handle), F_OFD_SETLK, &request) == 0 ? 0 : refusal();
}

int unlock_file(DriverHandle handle, int64_t offset, int64_t length) {
  struct flock request = lock_request(F_UNLCK, offset, length);
  return done(fcntl(descriptor_of(handle), F_OFD_SETLK, &request));
}

// Asks instead of trying: a lock taken for a moment would make others see a busy range.
int test_lock(DriverHandle handle, int mode, int64_t offset, int64_t length) {
  const int type = lock_type(mode);
  if (type < 0) return -1;
  struct flock request = lock_request(static_cast<short>(type), offset, length);
  if (fcntl(descriptor_of(handle), F_OFD_GETLK, &request) != 0) return refusal();
  return request.l_type == F_UNLCK ? 0 : 1;
}

int create_directory(const char *name) {
  const SystemPath path(name);
  return path.text() == nullptr ? -1 : done(mkdir(path.text(), 0777));
}

int rename_file(const char *old_name, const char *new_name) {
  const SystemPath old_path(old_name);
  const SystemPath new_path(new_name);
  if (old_path.text() == nullptr || new_path.text() == nullptr) return -1;
  return done(rename(old_path.text(), new_path.text()));
}

Directory *open_directory(const char *name) {
  if (name == nullptr || name[0] == '\0') return nullptr;
  const SystemPath path(name);
  if (path.text() == nullptr) return nullptr;
  DIR *stream = opendir(path.text());
  if (stream == nullptr) return nullptr;
  Directory *listing = mem_new<Directory>();
  if (listing == nullptr) {
    closedir(stream);
    return nullptr;
  }
  listing->stream = stream;
  return listing;
}

int close_directory(Directory *listing) {
  if (listing == nullptr) return -1;
  const int result = closedir(listing->stream);
  mem_delete(listing);
  return done(result);
}

int next_of_directory(Directory *listing, char *name, int capacity) {
  if (listing == nullptr || capacity <= 0) return -1;
  errno = 0;
  const dirent *entry = readdir(listing->stream);
  if (entry == nullptr) return errno == 0 ? 0 : -1;
  size_t length = strlen(entry->d_name);
  if (length >= static_cast<size_t>(capacity)) length = static_cast<size_t>(capacity) - 1;
  memcpy(name, entry->d_name, length);
  name[length] = '\0';
  return 1;
}

int info_of_file(const char *name, FileInfo *info) {
  const SystemPath path(name);
  struct stat status;
  if (path.text() == nullptr || stat(path.text(), &status) != 0) {
    errno = 0;
    return 0;
  }
  if (info != nullptr) {
    info->mode = status.st_mode;
    info->owner = static_cast<int32_t>(status.st_uid);
    info->group = static_cast<int32_t>(status.st_gid);
    info->size = status.st_size;
    info->accessed = status.st_atime;
    info->modified = status.st_mtime;
    info->changed = status.st_ctime;
  }
  return S_ISREG(status.st_mode) ? 1 : 0;
}

int is_named(DriverHandle handle, const char *name) {
  const SystemPath path(name);
  struct stat opened, named;
  if (path.text() == nullptr || fstat(descriptor_of(handle), &opened) != 0) return -1;
  if (stat(path.text(), &named) != 0) {
    errno = 0;
    return 0;
  }
  return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino ? 1 : 0;
}

}  // namespace

IoDriver file_driver = {
    "posix file io driver",
    0,
    start,
    end,
    remove_file,
    open_file,
    close_file,
    read_file,
    write_file,
    file_is_there,
    size_of_file,
    sync_file,
    truncate_file,
    lock_file,
    unlock_file,
    test_lock,
    create_directory,
    rename_file,
    open_directory,
    close_directory,
    next_of_directory,
    info_of_file,
    is_named,
    reserve_file,
};

}  // namespace tovik
