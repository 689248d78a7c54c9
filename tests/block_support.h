// Databases on the block manager's level: made, opened and looked at from outside.
#pragma once

#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>

#include "storage/block_manager.h"
#include "storage/trn_storage.h"
#include "storage_support.h"

namespace tovik::test {

struct Destroy {
  void operator()(Params *params) const { param_destroy(params); }
  void operator()(BlockManager *bm) const { bm_close(bm); }
};
using ParamBlock = std::unique_ptr<Params, Destroy>;

// A database's parameter block and block manager.
struct Database {
  ParamBlock params;
  std::unique_ptr<BlockManager, Destroy> bm;

  explicit operator bool() const { return bm != nullptr; }
  BlockManager &operator*() { return *bm; }
  BlockManager *operator->() { return bm.get(); }
};

using Names = std::set<std::string>;

// The database "orders" in a directory of its own.
class Blocks : public ::testing::Test {
 protected:
  ~Blocks() override { err_clear(); }

  std::string text(const std::string &more) const { return "NAME=orders;PATH=" + dir_.path() + ";" + more; }
  std::string file(const std::string &name) const { return dir_ / name; }

  Database create(const std::string &more = "", DatabaseType type = DatabaseType::ordinary) const {
    Database database = {ParamBlock(param_create(text(more).c_str())), nullptr};
    if (database.params != nullptr) database.bm.reset(bm_create(*database.params, type));
    return database;
  }
  Database open(const std::string &more = "", bool clean_history = false) const {
    Database database = {ParamBlock(param_create(text(more).c_str())), nullptr};
    if (database.params != nullptr) database.bm.reset(bm_open(*database.params, clean_history));
    return database;
  }
  bool remove(const std::string &more = "") const {
    ParamBlock params(param_create(text(more).c_str()));
    return params != nullptr && bm_remove(*params);
  }

  Names files() const {
    Names names;
    for (const auto &entry : std::filesystem::directory_iterator(dir_.path()))
      names.insert(entry.path().filename().string());
    return names;
  }
  size_t size(const std::string &name) const { return std::filesystem::file_size(file(name)); }
  std::string content(const std::string &name) const {
    std::string bytes(size(name), '\0');
    std::ifstream(file(name), std::ios::binary)
        .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
  }
  void put(const std::string &name, const std::string &bytes) const {
    std::ofstream(file(name), std::ios::binary) << bytes;
  }
  void touch(std::initializer_list<const char *> names) const {
    for (const char *name : names) put(name, name);
  }
  void patch(const std::string &name, int64_t offset, const std::string &bytes) const {
    std::fstream out(file(name), std::ios::binary | std::ios::in | std::ios::out);
    out.seekp(offset);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good()) << name;
  }

  TempDir dir_;
};

inline std::string block_of(char fill, int size = 4096) {
  return std::string(static_cast<size_t>(size), fill);
}

// Commits as a transaction of one changed block does, up to the durable record.
inline void write_record(BlockManager &bm) {
  ASSERT_TRUE(bm_trn_reset(bm));
  ASSERT_TRUE(bm_write_block(bm, part_trn, 1, block_of('s', bm_block_size(bm)).data()));
  ASSERT_TRUE(bm_write_block(bm, part_trn, 2, block_of('m', bm_block_size(bm)).data()));
  bm_counters(bm, part_trn).bcnt = 2;
  CommitRecord &commit = bm.header.commit;
  commit.tstat = tran_committed;
  commit.map_bno = 2;
  commit.map_icnt = 1;
  commit.after = {5, 0, 0, 0};
  commit.before = bm_counters(bm, part_dat);
  commit.iid = bm.header.creation_time;
  commit.lcto = bm.header.last_applied;
  commit.lctn = bm.header.last_applied + 1000;
  ASSERT_TRUE(bm_write_header(bm, part_trn));
}

// What the copy does to the DAT header.
inline void apply_record(BlockManager &bm) {
  bm_counters(bm, part_dat) = bm.header.commit.after;
  bm_counters(bm, part_dat).ucnt = bm.header.commit.before.ucnt + 1;
  bm.header.last_applied = bm.header.commit.lctn;
  ASSERT_TRUE(bm_write_header(bm, part_dat));
}

}  // namespace tovik::test
