#include "fault_driver.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include "storage/io/io.h"

namespace tovik {

struct Directory {
  std::vector<std::string> names;
  size_t next = 0;
};

}  // namespace tovik

namespace tovik::test {

DiskFiles::DiskFiles(const DiskImage &image) {
  for (const auto &[name, bytes] : image) {
    const int file = static_cast<int>(files.size());
    names[name] = file;
    files[file] = bytes;
  }
}

void DiskFiles::write(int file, int64_t position, const uint8_t *data, size_t length) {
  Bytes &bytes = files[file];
  const size_t begin = static_cast<size_t>(position);
  bytes.resize(std::max(bytes.size(), begin + length));
  if (length > 0) memcpy(&bytes[begin], data, length);
}

void DiskFiles::change(const DiskOperation &operation) {
  const DiskOperation::Kind kind = operation.kind;
  if (kind == DiskOperation::write)
    write(operation.file, operation.position, operation.data.data(), operation.data.size());
  if (kind == DiskOperation::truncate) files[operation.file].resize(static_cast<size_t>(operation.position));
  if (kind == DiskOperation::create) names[operation.name] = operation.file;
  if (kind == DiskOperation::rename && names.count(operation.name) != 0)
    names[operation.new_name] = names[operation.name];
  if (kind == DiskOperation::rename || kind == DiskOperation::remove) names.erase(operation.name);
}

DiskImage DiskFiles::image() const {
  DiskImage image;
  for (const auto &[name, file] : names) image[name] = files.count(file) == 0 ? Bytes() : files.at(file);
  return image;
}

const char *failure_text(Failure how) {
  return how == Failure::once ? "once" : "from then on";
}

// ---- the driver ----

namespace {

constexpr size_t sector_size = 512;
constexpr int64_t file_limit = 64 << 20;  // the disk is full beyond

struct Handle {
  int file;  // -1: closed
  bool owes_directory_flush;
  std::string name;
};

struct Disk : DiskFiles {
  using DiskFiles::DiskFiles;
  int file_count = static_cast<int>(files.size());
  std::vector<Handle> handles;
  DiskLog log;
  FailingCalls failing;
  std::string failed_call;
  int growths_left = -1;  // until the disk is full; -1: it never is
};

Disk disk;

// Counts a call; true when it must fail.
bool fails(const char *call, const std::string &name) {
  if (!disk.failing.next()) return false;
  if (disk.failed_call.empty()) disk.failed_call = std::string(call) + " " + name;
  return true;
}

// Whether file may reach to length; counts a growth, and fails those on a full disk.
bool has_room(const Handle &handle, int64_t length) {
  if (length <= static_cast<int64_t>(disk.files[handle.file].size()) || disk.growths_left < 0) return true;
  if (disk.growths_left > 0) return --disk.growths_left, true;
  if (disk.failed_call.empty()) disk.failed_call = "growth of " + handle.name;
  errno = ENOSPC;
  return false;
}

void perform(DiskOperation operation) {
  disk.change(operation);
  disk.log.operations.push_back(std::move(operation));
}

// The open handle of a call; null when the call fails, unless failed is there to tell that. The test fails
// when the handle is not open.
Handle *enter(const char *call, DriverHandle handle, bool *failed = nullptr) {
  const size_t index = static_cast<size_t>(handle);
  Handle *found =
      index < disk.handles.size() && disk.handles[index].file >= 0 ? &disk.handles[index] : nullptr;
  EXPECT_NE(found, nullptr) << call << " of a handle that is not open";
  const bool fail = found == nullptr || fails(call, found->name);
  if (failed != nullptr) *failed = fail;
  return fail && failed == nullptr ? nullptr : found;
}

int remove_file(const char *name) {
  if (fails("file_remove", name) || disk.names.count(name) == 0) return -1;
  perform({.kind = DiskOperation::remove, .name = name});
  return 0;
}

DriverHandle open_file(const char *name, int flags, int, int, int) {
  if (fails("file_open", name)) return no_handle;
  const bool create = disk.names.count(name) == 0;
  if (create ? (flags & open_create) == 0 : (flags & open_new) != 0) return no_handle;
  if (create) perform({.kind = DiskOperation::create, .file = disk.file_count++, .name = name});
  disk.handles.push_back({disk.names[name], create, name});
  return static_cast<DriverHandle>(disk.handles.size()) - 1;
}

// A close that fails has closed all the same.
int close_file(DriverHandle handle) {
  bool failed;
  Handle *found = enter("file_close", handle, &failed);
  if (found != nullptr) found->file = -1;
  return failed ? -1 : 0;
}

int64_t read_file(DriverHandle handle, void *buffer, int64_t length, int64_t offset) {
  const Handle *found = enter("file_read", handle);
  if (found == nullptr) return -1;
  const Bytes &bytes = disk.files[found->file];
  if (offset < 0 || offset + length > static_cast<int64_t>(bytes.size())) return -1;
  memcpy(buffer, bytes.data() + offset, static_cast<size_t>(length));
  return length;
}

int64_t write_file(DriverHandle handle, const void *buffer, int64_t length, int64_t offset) {
  bool failed;
  const Handle *target = enter("file_write", handle, &failed);
  if (target == nullptr || offset < 0 || offset + length > file_limit) return -1;
  failed |= !has_room(*target, offset + length);
  const int cause = errno;
  const uint8_t *data = static_cast<const uint8_t *>(buffer);
  perform({.kind = DiskOperation::write,
           .file = target->file,
           .position = offset,
           .data = Bytes(data, data + (failed ? length / 2 : length))});
  errno = cause;
  return failed ? -1 : length;
}

int file_is_there(const char *name) {
  return disk.names.count(name) == 0 ? 0 : 1;
}

int64_t size_of_file(DriverHandle handle) {
  const Handle *found = enter("file_size", handle);
  return found == nullptr ? -1 : static_cast<int64_t>(disk.files[found->file].size());
}

int sync_file(DriverHandle handle) {
  bool failed;
  Handle *target = enter("file_sync", handle, &failed);
  if (target == nullptr) return -1;
  perform({.kind = failed ? DiskOperation::failed_flush : DiskOperation::flush, .file = target->file});
  if (failed) return -1;
  if (target->owes_directory_flush) perform({.kind = DiskOperation::flush_directory});
  target->owes_directory_flush = false;
  return 0;
}

int truncate_file(DriverHandle handle, int64_t length) {
  const Handle *found = enter("file_truncate", handle);
  if (found == nullptr || length < 0 || length > file_limit) return -1;
  perform({.kind = DiskOperation::truncate, .file = found->file, .position = length});
  return 0;
}

int reserve_file(DriverHandle handle, int64_t offset, int64_t length) {
  const Handle *found = enter("file_reserve", handle);
  if (found == nullptr || offset + length > file_limit || !has_room(*found, offset + length)) return -1;
  if (offset + length > static_cast<int64_t>(disk.files[found->file].size()))
    perform({.kind = DiskOperation::truncate, .file = found->file, .position = offset + length});
  return 0;
}

template <class... Arguments>
int lock_file(DriverHandle handle, Arguments...) {
  return enter("a lock", handle) == nullptr ? -1 : 0;
}

int rename_file(const char *old_name, const char *new_name) {
  if (fails("file_rename", old_name) || disk.names.count(old_name) == 0) return -1;
  perform({.kind = DiskOperation::rename, .name = old_name, .new_name = new_name});
  return 0;
}

Directory *open_directory(const char *name) {
  if (fails("dir_open", name)) return nullptr;
  Directory *listing = new Directory;
  for (const auto &[entry, file] : disk.names) listing->names.push_back(entry);
  return listing;
}

int close_directory(Directory *listing) {
  delete listing;
  return fails("dir_close", "") ? -1 : 0;
}

int next_of_directory(Directory *listing, char *name, int capacity) {
  if (fails("dir_next", "")) return -1;
  if (listing->next == listing->names.size()) return 0;
  snprintf(name, static_cast<size_t>(capacity), "%s", listing->names[listing->next++].c_str());
  return 1;
}

int info_of_file(const char *name, FileInfo *info) {
  if (fails("file_info", name) || disk.names.count(name) == 0) return 0;
  if (info == nullptr) return 1;
  *info = {};
  info->size = static_cast<int64_t>(disk.files[disk.names[name]].size());
  return 1;
}

int is_named(DriverHandle handle, const char *name) {
  const Handle &opened = disk.handles[static_cast<size_t>(handle)];
  const auto named = disk.names.find(name);
  return named != disk.names.end() && named->second == opened.file ? 1 : 0;
}

// clang-format off
const IoDriver driver = {"fault driver",    0,           nullptr,       nullptr,        remove_file,
                         open_file,         close_file,  read_file,     write_file,     file_is_there,
                         size_of_file,      sync_file,   truncate_file, lock_file,      lock_file,
                         lock_file,         nullptr,     rename_file,   open_directory, close_directory,
                         next_of_directory, info_of_file, is_named, reserve_file};
// clang-format on

}  // namespace

namespace fault_driver {

void install() {
  added_drivers[number - added_driver_base] = &driver;
}

void load(const DiskImage &image) {
  for (const Handle &handle : disk.handles) EXPECT_EQ(handle.file, -1) << handle.name << " was left open";
  disk = Disk(image);
  disk.log.base = image;
}

DiskImage content() {
  return disk.image();
}

const DiskLog &log() {
  return disk.log;
}

void fail_call(int call, Failure how) {
  disk.failing = {call, how};
  disk.failed_call.clear();
}

void fill_disk(int growths) {
  disk.growths_left = growths;
  disk.failed_call.clear();
}

void heal() {
  disk.failing.first = 0;
  disk.growths_left = -1;
}

std::string failed_call() {
  return disk.failed_call;
}

}  // namespace fault_driver

// ---- the machine that stops ----

StoppedDisk::StoppedDisk(const DiskLog &log) : durable_(log.base) {
  for (const DiskOperation &operation : log.operations) apply(operation);
}

void StoppedDisk::apply(const DiskOperation &operation) {
  const DiskOperation::Kind kind = operation.kind;
  if (kind == DiskOperation::write || kind == DiskOperation::truncate)
    changes_.push_back({&operation, Change::waiting});
  if (kind == DiskOperation::flush) flush_file(operation.file);
  if (kind == DiskOperation::failed_flush)
    for (Change &change : changes_)
      if (change.operation->file == operation.file && change.state == Change::waiting)
        change.state = Change::in_doubt;
  if (kind == DiskOperation::create || kind == DiskOperation::remove || kind == DiskOperation::rename)
    name_changes_.push_back(&operation);
  if (kind == DiskOperation::flush_directory)
    for (const DiskOperation *change : std::exchange(name_changes_, {})) durable_.change(*change);
}

void StoppedDisk::flush_file(int file) {
  std::vector<Change> remaining;
  bool doubt = false;
  for (Change change : changes_) {
    const bool ours = change.operation->file == file;
    doubt |= ours && change.state == Change::in_doubt;
    if (ours && !doubt) {
      durable_.change(*change.operation);
      continue;
    }
    if (ours && change.state == Change::waiting) change.state = Change::settled;
    remaining.push_back(change);
  }
  changes_ = std::move(remaining);
}

DiskImage StoppedDisk::image(const std::vector<Fate> &fates, size_t names_kept, Random &random) const {
  DiskFiles left = durable_;
  for (size_t i = 0; i < names_kept; ++i) left.change(*name_changes_[i]);
  for (size_t i = 0; i < changes_.size(); ++i) {
    const DiskOperation &operation = *changes_[i].operation;
    const Fate fate = changes_[i].state == Change::settled ? Fate::kept : fates[i];
    if (fate == Fate::kept) left.change(operation);
    if (fate == Fate::kept || fate == Fate::lost || operation.kind != DiskOperation::write) continue;
    const size_t size = operation.data.size(), count = (size + sector_size - 1) / sector_size;
    const size_t tear = count < 2 ? 0 : 1 + static_cast<size_t>(random.below(static_cast<int>(count) - 1));
    for (size_t sector = 0; sector < count; ++sector) {
      const bool kept = fate == Fate::head_kept   ? sector < tear
                        : fate == Fate::tail_kept ? sector >= tear
                                                  : random.one_in(2);
      const size_t from = sector * sector_size;
      if (kept)
        left.write(operation.file, operation.position + static_cast<int64_t>(from), &operation.data[from],
                   std::min(sector_size, size - from));
    }
  }
  return left.image();
}

void StoppedDisk::each_image(Random &random, int single_limit, int random_count, const Visit &visit) const {
  const size_t count = changes_.size();
  const size_t names = name_changes_.size();
  const std::vector<Fate> all_kept(count, Fate::kept);
  const std::vector<Fate> all_lost(count, Fate::lost);
  for (size_t kept = 0; kept <= names; ++kept) {
    const std::string suffix = ", with name changes: " + std::to_string(kept);
    visit("all lost" + suffix, image(all_lost, kept, random));
    visit("all kept" + suffix, image(all_kept, kept, random));
  }

  std::set<size_t> singles;
  if (count > 0) singles.insert(count - 1);
  while (singles.size() < std::min(count, static_cast<size_t>(single_limit)))
    singles.insert(static_cast<size_t>(random.below(static_cast<int>(count))));
  for (const size_t single : singles) {
    const auto with_single = [&](std::vector<Fate> fates, Fate fate) {
      fates[single] = fate;
      return image(fates, names, random);
    };
    const std::string which = "change " + std::to_string(single);
    visit(which + " lost", with_single(all_kept, Fate::lost));
    visit(which + " without its tail", with_single(all_kept, Fate::head_kept));
    visit(which + " without its head", with_single(all_kept, Fate::tail_kept));
    visit("only " + which, with_single(all_lost, Fate::kept));
  }

  for (int i = 0; count > 0 && i < random_count; ++i) {
    constexpr Fate choices[] = {Fate::kept, Fate::kept, Fate::lost, Fate::lost, Fate::sectors_kept};
    const size_t kept = static_cast<size_t>(random.below(static_cast<int>(names) + 1));
    std::vector<Fate> fates;
    for (size_t change = 0; change < count; ++change) fates.push_back(choices[random.below(5)]);
    visit("random choice " + std::to_string(i), image(fates, kept, random));
  }
}

void each_stop(const DiskLog &log, Random &random, int single_limit, int random_count,
               const StoppedDisk::Visit &visit, size_t step) {
  StoppedDisk disk(log.base);
  for (size_t position = 0; position < log.operations.size(); ++position) {
    disk.apply(log.operations[position]);
    if (position % step != 0) continue;
    disk.each_image(random, single_limit, random_count, [&](const std::string &how, const DiskImage &image) {
      visit("stopped after operation " + std::to_string(position) + ", " + how, image);
    });
  }
}

}  // namespace tovik::test
