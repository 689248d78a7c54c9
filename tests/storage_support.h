// Databases over the storage layer alone: by their block managers, looked at from outside, and with a data
// layer that does nothing.
#pragma once

#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <set>

#include "data_support.h"
#include "platform/held.h"
#include "storage/storage_manager.h"
#include "storage/transaction/trn_storage.h"

namespace tovik::test {

using ParamBlock = Held<Params, param_destroy>;

// A database's parameter block and block manager.
struct BlockDatabase {
  ParamBlock params;
  Held<BlockManager, bm_close> bm;

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

  BlockDatabase create(const std::string &more = "", DatabaseType type = DatabaseType::ordinary) const {
    BlockDatabase database = {ParamBlock(param_create(text(more).c_str())), nullptr};
    database.bm.reset(bm_create(*database.params, type));
    EXPECT_TRUE(database.bm == nullptr || bm_end_creation(*database.bm));
    return database;
  }
  BlockDatabase open(const std::string &more = "", History history = History::kept) const {
    BlockDatabase database = {ParamBlock(param_create(text(more).c_str())), nullptr};
    database.bm.reset(bm_open(*database.params, history));
    return database;
  }
  bool remove(const std::string &more = "") const {
    return bm_remove(*ParamBlock(param_create(text(more).c_str())));
  }

  Names files() const {
    const std::vector<std::string> names = file_names(dir_.path());
    return Names(names.begin(), names.end());
  }
  size_t size(const std::string &name) const { return std::filesystem::file_size(file(name)); }
  std::string content(const std::string &name) const {
    const Bytes bytes = read_file(file(name));
    return std::string(bytes.begin(), bytes.end());
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
  ASSERT_TRUE(trn_reset(bm));
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

// The engine with a data layer that does nothing.
struct StorageEngine : Engine {
  StorageEngine() : Engine("") {
    constexpr auto done = [](StorageManager &) { return true; };
    constexpr auto of_level = [](StorageManager &, int) {};
    static const DataLayerOps nothing = {done, done,     done,     done,    [](StorageManager &) {},
                                         done, of_level, of_level, of_level};
    sm_register_data_layer(nothing);
  }
};

}  // namespace tovik::test
