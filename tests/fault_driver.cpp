#include "fault_driver.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "storage/io.h"

namespace tovik {

struct Directory {
  std::vector<std::string> names;
  size_t next = 0;
};

}  // namespace tovik

namespace tovik::test {

namespace {

constexpr size_t sector_size = 512;
constexpr int64_t file_limit = 64 << 20;  // the disk is full beyond

struct Handle {
  int file;  // -1: closed
  bool owes_directory_flush;
  std::string name;
};

struct Disk {
  std::map<std::string, int> names;
  std::map<int, Bytes> files;
  std::vector<Handle> handles;
  DiskLog log;
  int calls = 0;
  int first_failure = 0;  // 0: none
  Failure failure = Failure::once;
  std::string failed_call;
};

Disk disk;

// Counts a call; true when it must fail.
bool fails(const char *call, const std::string &name) {
  ++disk.calls;
  if (disk.first_failure == 0 || disk.calls < disk.first_failure) return false;
  if (disk.calls > disk.first_failure && disk.failure == Failure::once) return false;
  if (disk.failed_call.empty()) disk.failed_call = std::string(call) + " " + name;
  return true;
}

void record(DiskOperation operation) {
  disk.log.operations.push_back(std::move(operation));
}

Handle *open_handle(DriverHandle handle) {
  if (handle < 0 || handle >= static_cast<DriverHandle>(disk.handles.size())) return nullptr;
  Handle &found = disk.handles[static_cast<size_t>(handle)];
  return found.file < 0 ? nullptr : &found;
}

// The open handle of a call that does not fail, or null.
Handle *enter(const char *call, DriverHandle handle) {
  Handle *found = open_handle(handle);
  EXPECT_NE(found, nullptr) << call << " of a handle that is not open";
  if (found == nullptr || fails(call, found->name)) return nullptr;
  return found;
}

void overwrite(Bytes &bytes, int64_t position, const uint8_t *data, size_t length) {
  const size_t end = static_cast<size_t>(position) + length;
  if (bytes.size() < end) bytes.resize(end);
  if (length > 0) memcpy(&bytes[static_cast<size_t>(position)], data, length);
}

void change_name(const DiskOperation &operation, std::map<std::string, int> &names) {
  if (operation.kind == DiskOperation::create) {
    names[operation.name] = operation.file;
    return;
  }
  const auto found = names.find(operation.name);
  if (found == names.end()) return;
  if (operation.kind == DiskOperation::rename) names[operation.new_name] = found->second;
  names.erase(operation.name);
}

void change_file(const DiskOperation &operation, Bytes &bytes) {
  if (operation.kind == DiskOperation::truncate)
    bytes.resize(static_cast<size_t>(operation.position));
  else
    overwrite(bytes, operation.position, operation.data.data(), operation.data.size());
}

void change_sectors(const DiskOperation &operation, const std::vector<bool> &kept, Bytes &bytes) {
  for (size_t sector = 0; sector < kept.size(); ++sector) {
    const size_t from = sector * sector_size;
    if (kept[sector])
      overwrite(bytes, operation.position + static_cast<int64_t>(from), operation.data.data() + from,
                std::min(sector_size, operation.data.size() - from));
  }
}

int remove_file(const char *name) {
  if (fails("file_remove", name) || disk.names.erase(name) == 0) return -1;
  record({.kind = DiskOperation::remove, .name = name});
  return 0;
}

DriverHandle open_file(const char *name, int flags, int, int, int) {
  if (fails("file_open", name)) return no_handle;
  auto found = disk.names.find(name);
  const bool create = found == disk.names.end();
  if (create) {
    if ((flags & open_create) == 0) return no_handle;
    const int file = disk.files.empty() ? 0 : disk.files.rbegin()->first + 1;
    disk.files[file] = {};
    found = disk.names.emplace(name, file).first;
    record({.kind = DiskOperation::create, .file = file, .name = name});
  }
  disk.handles.push_back({found->second, create, name});
  return static_cast<DriverHandle>(disk.handles.size()) - 1;
}

// A close that fails has closed all the same.
int close_file(DriverHandle handle) {
  Handle *found = open_handle(handle);
  const bool failed = enter("file_close", handle) == nullptr;
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
  const Handle *target = open_handle(handle);
  const bool failed = enter("file_write", handle) == nullptr;
  if (target == nullptr || offset < 0 || offset + length > file_limit) return -1;
  const int64_t written = failed ? length / 2 : length;
  const uint8_t *data = static_cast<const uint8_t *>(buffer);
  overwrite(disk.files[target->file], offset, data, static_cast<size_t>(written));
  record({.kind = DiskOperation::write,
          .file = target->file,
          .position = offset,
          .data = Bytes(data, data + written)});
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
  Handle *target = open_handle(handle);
  const bool failed = enter("file_sync", handle) == nullptr;
  if (target == nullptr) return -1;
  record({.kind = failed ? DiskOperation::failed_flush : DiskOperation::flush, .file = target->file});
  if (failed) return -1;
  if (target->owes_directory_flush) record({.kind = DiskOperation::flush_directory});
  target->owes_directory_flush = false;
  return 0;
}

int truncate_file(DriverHandle handle, int64_t length) {
  const Handle *found = enter("file_truncate", handle);
  if (found == nullptr || length < 0 || length > file_limit) return -1;
  disk.files[found->file].resize(static_cast<size_t>(length));
  record({.kind = DiskOperation::truncate, .file = found->file, .position = length});
  return 0;
}

int lock_file(DriverHandle handle, int, int64_t, int64_t) {
  return enter("file_lock", handle) == nullptr ? -1 : 0;
}

int unlock_file(DriverHandle handle, int64_t, int64_t) {
  return enter("file_unlock", handle) == nullptr ? -1 : 0;
}

int test_lock(DriverHandle handle, int, int64_t, int64_t) {
  return enter("file_lock_test", handle) == nullptr ? -1 : 0;
}

int rename_file(const char *old_name, const char *new_name) {
  if (fails("file_rename", old_name)) return -1;
  const auto found = disk.names.find(old_name);
  if (found == disk.names.end()) return -1;
  const int file = found->second;
  disk.names.erase(found);
  disk.names[new_name] = file;
  record({.kind = DiskOperation::rename, .name = old_name, .new_name = new_name});
  return 0;
}

Directory *open_directory(const char *name) {
  if (fails("dir_open", name)) return nullptr;
  Directory *listing = new Directory;
  for (const auto &[entry, file] : disk.names) listing->names.push_back(entry);
  return listing;
}

int close_directory(Directory *listing) {
  const bool failed = fails("dir_close", "");
  delete listing;
  return failed ? -1 : 0;
}

int next_of_directory(Directory *listing, char *name, int capacity) {
  if (fails("dir_next", "")) return -1;
  if (listing->next == listing->names.size()) return 0;
  const std::string &entry = listing->names[listing->next++];
  strncpy(name, entry.c_str(), static_cast<size_t>(capacity) - 1);
  name[capacity - 1] = '\0';
  return 1;
}

int info_of_file(const char *name, FileInfo *info) {
  if (fails("file_info", name)) return 0;
  const auto found = disk.names.find(name);
  if (found == disk.names.end()) return 0;
  if (info != nullptr) {
    *info = {};
    info->size = static_cast<int64_t>(disk.files[found->second].size());
  }
  return 1;
}

const IoDriver driver = {"fault driver",    0,           nullptr,       nullptr,        remove_file,
                         open_file,         close_file,  read_file,     write_file,     file_is_there,
                         size_of_file,      sync_file,   truncate_file, lock_file,      unlock_file,
                         test_lock,         nullptr,     rename_file,   open_directory, close_directory,
                         next_of_directory, info_of_file};

}  // namespace

const char *failure_text(Failure how) {
  return how == Failure::once ? "once" : "from then on";
}

namespace fault_driver {

void install() {
  added_drivers[number - added_driver_base] = &driver;
}

void load(const DiskImage &image) {
  for (const Handle &handle : disk.handles) EXPECT_EQ(handle.file, -1) << handle.name << " was left open";
  disk = {};
  disk.log.base = image;
  for (const auto &[name, bytes] : image) {
    const int file = static_cast<int>(disk.files.size());
    disk.names[name] = file;
    disk.files[file] = bytes;
  }
}

DiskImage content() {
  DiskImage image;
  for (const auto &[name, file] : disk.names) image[name] = disk.files[file];
  return image;
}

const DiskLog &log() {
  return disk.log;
}

int calls() {
  return disk.calls;
}

void fail_call(int call, Failure how) {
  disk.calls = 0;
  disk.first_failure = call;
  disk.failure = how;
  disk.failed_call.clear();
}

void heal() {
  disk.calls = 0;
  disk.first_failure = 0;
}

std::string failed_call() {
  return disk.failed_call;
}

}  // namespace fault_driver

StoppedDisk::StoppedDisk(const DiskImage &base) {
  for (const auto &[name, bytes] : base) {
    const int file = static_cast<int>(files_.size());
    names_[name] = file;
    files_[file] = bytes;
  }
}

void StoppedDisk::apply(const DiskOperation &operation) {
  switch (operation.kind) {
    case DiskOperation::write:
    case DiskOperation::truncate:
      changes_.push_back({&operation, Change::waiting});
      break;
    case DiskOperation::flush:
      flush_file(operation.file);
      break;
    case DiskOperation::failed_flush:
      fail_flush(operation.file);
      break;
    case DiskOperation::create:
    case DiskOperation::remove:
    case DiskOperation::rename:
      name_changes_.push_back(&operation);
      break;
    case DiskOperation::flush_directory:
      flush_names();
      break;
  }
}

void StoppedDisk::flush_file(int file) {
  std::vector<Change> remaining;
  bool doubt = false;
  for (Change change : changes_) {
    const bool ours = change.operation->file == file;
    doubt |= ours && change.state == Change::in_doubt;
    if (ours && !doubt) {
      change_file(*change.operation, files_[file]);
      continue;
    }
    if (ours && change.state == Change::waiting) change.state = Change::settled;
    remaining.push_back(change);
  }
  changes_ = std::move(remaining);
}

void StoppedDisk::fail_flush(int file) {
  for (Change &change : changes_)
    if (change.operation->file == file && change.state == Change::waiting) change.state = Change::in_doubt;
}

void StoppedDisk::flush_names() {
  for (const DiskOperation *operation : name_changes_) change_name(*operation, names_);
  name_changes_.clear();
}

DiskImage StoppedDisk::image(const Choice &choice, Random &random) const {
  std::map<std::string, int> names = names_;
  for (size_t i = 0; i < choice.names_kept; ++i) change_name(*name_changes_[i], names);
  std::map<int, Bytes> files;
  for (const auto &[name, file] : names) {
    const auto durable = files_.find(file);
    files[file] = durable == files_.end() ? Bytes() : durable->second;
  }
  for (size_t i = 0; i < changes_.size(); ++i) {
    const DiskOperation &operation = *changes_[i].operation;
    const auto target = files.find(operation.file);
    if (target == files.end()) continue;
    const Fate fate = changes_[i].state == Change::settled ? Fate::kept : choice.fates[i];
    if (fate == Fate::kept)
      change_file(operation, target->second);
    else if (fate != Fate::lost && operation.kind == DiskOperation::write)
      change_sectors(operation, sectors_kept(operation, fate, random), target->second);
  }
  DiskImage result;
  for (const auto &[name, file] : names) result[name] = std::move(files[file]);
  return result;
}

std::vector<bool> StoppedDisk::sectors_kept(const DiskOperation &operation, Fate fate, Random &random) {
  const size_t count = (operation.data.size() + sector_size - 1) / sector_size;
  const size_t tear = count < 2 ? 0 : 1 + static_cast<size_t>(random.below(static_cast<int>(count) - 1));
  std::vector<bool> kept(count);
  for (size_t i = 0; i < count; ++i)
    kept[i] = fate == Fate::head_kept ? i < tear : fate == Fate::tail_kept ? i >= tear : random.one_in(2);
  return kept;
}

void StoppedDisk::each_image(Random &random, int single_limit, int random_count, const Visit &visit) const {
  const size_t count = changes_.size();
  const size_t names = name_changes_.size();
  const std::vector<Fate> all_kept(count, Fate::kept);
  const std::vector<Fate> all_lost(count, Fate::lost);
  for (size_t kept = 0; kept <= names; ++kept) {
    const std::string suffix = ", " + std::to_string(kept) + " of " + std::to_string(names) + " name changes";
    visit("all lost" + suffix, image({all_lost, kept}, random));
    visit("all kept" + suffix, image({all_kept, kept}, random));
  }

  std::set<size_t> singles;
  if (count > 0) singles.insert(count - 1);
  while (singles.size() < std::min(count, static_cast<size_t>(single_limit)))
    singles.insert(static_cast<size_t>(random.below(static_cast<int>(count))));
  const auto with_single = [&](const std::vector<Fate> &others, size_t single, Fate fate) {
    Choice choice = {others, names};
    choice.fates[single] = fate;
    return image(choice, random);
  };
  for (const size_t single : singles) {
    const std::string which = "change " + std::to_string(single);
    visit(which + " lost", with_single(all_kept, single, Fate::lost));
    visit(which + " without its tail", with_single(all_kept, single, Fate::head_kept));
    visit(which + " without its head", with_single(all_kept, single, Fate::tail_kept));
    visit("only " + which, with_single(all_lost, single, Fate::kept));
  }

  for (int i = 0; count > 0 && i < random_count; ++i) {
    constexpr Fate fates[] = {Fate::kept, Fate::kept, Fate::lost, Fate::lost, Fate::sectors_kept};
    Choice choice = {{}, static_cast<size_t>(random.below(static_cast<int>(names) + 1))};
    for (size_t change = 0; change < count; ++change) choice.fates.push_back(fates[random.below(5)]);
    visit("random choice " + std::to_string(i), image(choice, random));
  }
}

uint64_t disk_hash(const DiskImage &image) {
  uint64_t hash = 14695981039346656037U;
  const auto mix = [&hash](uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15U;
    hash ^= hash >> 29;
  };
  for (const auto &[name, bytes] : image) {
    for (const char c : name) mix(static_cast<uint8_t>(c));
    mix(bytes.size());
    size_t i = 0;
    for (; i + 8 <= bytes.size(); i += 8) {
      uint64_t word;
      memcpy(&word, &bytes[i], 8);
      mix(word);
    }
    for (; i < bytes.size(); ++i) mix(bytes[i]);
  }
  return hash;
}

}  // namespace tovik::test
