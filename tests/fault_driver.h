// A file driver for tests, in an added-driver slot. Its files live in memory; it counts the calls made on it,
// fails those it is told to fail, and logs whatever changes a file or the directory. From the log follows
// what a machine that stops at any moment can leave on its disk.
//
// What is durable:
//   - writes and truncations of a file with the next flush of that file;
//   - creations, renames and removals with the next flush of the directory, which is part of the first flush
//     through the handle that created a file.
// Until then every write may be kept, lost or torn at 512-byte sectors, whatever became of the others; of the
// changes to the directory any first few may be kept. A flush that fails has flushed nothing, and a later one
// does not bring back what it should have.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support.h"

namespace tovik::test {

using DiskImage = std::map<std::string, Bytes>;  // storages by name

struct DiskOperation {
  enum Kind { write, truncate, flush, failed_flush, create, remove, rename, flush_directory };
  Kind kind;
  int file = -1;         // write, truncate, both flushes, create
  int64_t position = 0;  // write: offset; truncate: new length
  Bytes data = {};
  std::string name = {};  // create, remove, rename
  std::string new_name = {};
};

// Files of the base image are numbered in name order from 0, created ones go on from there.
struct DiskLog {
  DiskImage base;
  std::vector<DiskOperation> operations;
};

// Files by number and the directory that names them.
struct DiskFiles {
  std::map<std::string, int> names;
  std::map<int, Bytes> files;

  explicit DiskFiles(const DiskImage &image = {});
  void write(int file, int64_t position, const uint8_t *data, size_t length);
  void change(const DiskOperation &operation);  // flushes change nothing
  DiskImage image() const;
};

const char *failure_text(Failure how);

namespace fault_driver {

inline constexpr int number = 101;  // DRV_NO

void install();  // before the library is started

// The disk holds image and nothing else. The log and the failures start anew. Nothing may be open.
void load(const DiskImage &image);
DiskImage content();
const DiskLog &log();

// Calls that can fail: every one but file_exists, counted from 1.
void fail_call(int call, Failure how);  // a failing write leaves the first half of its bytes
void fill_disk(int growths);            // the disk is full after so many more calls that make a file longer
void heal();                            // no call fails from here on, and there is room
std::string failed_call();              // the first that failed, for messages: "file_sync t.trn"

}  // namespace fault_driver

// The disk after the first operations of a log; knows what of it is durable.
class StoppedDisk {
 public:
  explicit StoppedDisk(const DiskImage &base) : durable_(base) {}
  explicit StoppedDisk(const DiskLog &log);    // after all of them
  void apply(const DiskOperation &operation);  // which must outlive this object

  using Visit = std::function<void(const std::string &how, const DiskImage &image)>;

  // What the machine may leave when it stops here: everything unflushed lost; everything kept; for up to
  // single_limit unflushed changes (always with the newest), that one lost, torn either way, or kept alone;
  // and random_count random choices.
  void each_image(Random &random, int single_limit, int random_count, const Visit &visit) const;

 private:
  enum class Fate { kept, lost, head_kept, tail_kept, sectors_kept };
  // A write or truncation that waits for a flush; in_doubt: a flush of it has failed; settled: flushed, but a
  // change in doubt comes before it.
  struct Change {
    enum State { waiting, in_doubt, settled };
    const DiskOperation *operation;
    State state;
  };

  void flush_file(int file);
  DiskImage image(const std::vector<Fate> &fates, size_t names_kept, Random &random) const;

  DiskFiles durable_;
  std::vector<Change> changes_;
  std::vector<const DiskOperation *> name_changes_;
};

// What a machine may leave that stops after every step-th operation of a log.
void each_stop(const DiskLog &log, Random &random, int single_limit, int random_count,
               const StoppedDisk::Visit &visit, size_t step = 1);

}  // namespace tovik::test
