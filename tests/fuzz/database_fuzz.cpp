// Database files: the input is a list of patches {storage, offset (3 bytes), length, bytes} on the storages
// of a small database with a commit waiting to be completed or not; then everything is read and changed.
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine.h"
#include "platform/platform.h"

using namespace tovik::test;

namespace {

const std::string database = "NAME=t;DRV_NO=101;BLOCK_SIZE=1024;CACHE_RTS=0;LOCK_RETRY=1;BEGIN_RETRY=1";

// A closed database, and one whose last commit is not copied yet.
const DiskImage &prepared(bool waiting) {
  static DiskImage closed, recorded;
  if (!closed.empty()) return waiting ? recorded : closed;
  fault_driver::install();
  static const Silence silence;
  static const Engine engine("");
  closed = made_database(database, schema() + person_rows(0, 20));
  fault_driver::load(closed);
  {
    Session session(database);
    (void)session.run("UPDATE person SET name = 'other', note = 'changed' WHERE id > 3");
  }
  const DiskLog log = fault_driver::log();
  StoppedDisk disk(log.base);
  Random random;
  for (const DiskOperation &operation : log.operations) {
    disk.apply(operation);
    disk.each_image(random, 0, 0, [](const std::string &, const DiskImage &image) {
      const auto trn = image.find("t.trn");
      if (trn != image.end() && trn->second.size() > 1024 && trn->second[0xE8] == 3) recorded = image;
    });
  }
  return waiting ? recorded : closed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 6) return 0;
  DiskImage image = prepared((data[0] & 1) != 0);
  for (size_t at = 1; at + 5 <= size;) {
    auto storage = image.begin();
    std::advance(storage, data[at] % image.size());
    const size_t offset = data[at + 1] | data[at + 2] << 8 | data[at + 3] << 16;
    const size_t length = std::min(static_cast<size_t>(data[at + 4]), size - at - 5);
    for (size_t i = 0; i < length && offset + i < storage->second.size(); ++i)
      storage->second[offset + i] = data[at + 5 + i];
    at += 5 + length;
  }
  fault_driver::load(image);
  Session session(database);
  if (!session.open()) return 0;
  (void)database_text(session);
  (void)database_fault(session);
  for (const char *sql :
       {"INSERT INTO person VALUES 1000, 'new', 'a text that needs chunks of its own in the overflow rows'",
        "UPDATE person SET name = 'third' WHERE id > 5", "DELETE FROM person WHERE name = 'third'",
        "INFO CHECK person", "CREATE TABLE later (a int)", "DROP TABLE person"})
    (void)session.run(sql);
  return 0;
}
