// What the tests of the storage layer share: the started engine, databases over it, and a data layer that
// does nothing but write down what it is told.
#pragma once

#include <algorithm>
#include <cstring>
#include <fstream>

#include "storage/storage_manager.h"
#include "storage_support.h"

namespace tovik::test {

using Bytes = std::vector<uint8_t>;

inline std::string hook_calls;      // "open1 counters merge1 ..."
inline bool counters_fail = false;  // write_counters fails

inline const DataLayerOps recording_data_layer = {
    [](StorageManager &) { return true; },
    [](StorageManager &) { return true; },
    [](StorageManager &) { return true; },
    [](StorageManager &) { return true; },
    [](StorageManager &) {},
    [](StorageManager &) {
      hook_calls += "counters ";
      return !counters_fail || fail(status::row_counter_write);
    },
    [](StorageManager &, int level) { hook_calls += "open" + std::to_string(level) + " "; },
    [](StorageManager &, int level) { hook_calls += "merge" + std::to_string(level) + " "; },
    [](StorageManager &, int level) { hook_calls += "drop" + std::to_string(level) + " "; },
};

// The engine with that data layer.
class StorageEngine : public Engine {
 public:
  explicit StorageEngine(const char *settings = nullptr) : Engine(settings) {
    sm_register_data_layer(recording_data_layer);
    hook_calls.clear();
    counters_fail = false;
  }
};

// A database over the storage layer alone; closed at the end of the scope.
class Database {
 public:
  enum class Start { create, open, work };

  Database(const std::string &text, Start start) : params_(param_create(text.c_str())) {
    if (params_ == nullptr) return;
    sm_ = start == Start::create ? sm_create(*params_)
          : start == Start::open ? sm_open(*params_)
                                 : sm_create_work(*params_);
    if (sm_ == nullptr || start != Start::create) return;
    EXPECT_TRUE(sm_direct_end(*sm_));
  }
  ~Database() {
    sm_close(sm_);
    param_destroy(params_);
  }
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;

  bool opened() const { return sm_ != nullptr; }
  StorageManager &operator*() { return *sm_; }
  StorageManager *operator->() { return sm_; }
  Counters &counters() { return bm_counters(*sm_->bm, part_dat); }

  bool begin() { return tm_start(*sm_->tm, current_thread()); }
  bool record() { return tm_commit(*sm_->tm, current_thread()); }
  bool apply() { return tm_apply(*sm_->tm, current_thread()); }
  bool commit() { return record() && apply(); }
  bool rollback() { return tm_rollback(*sm_->tm, current_thread()); }

  // Whole blocks through the page interface; every byte is fill, the last four are number.
  BlockNo add(uint8_t fill, uint32_t number = 0) {
    Page page;
    if (!sm_page_new(*sm_, 1, page)) return 0;
    paint(page.data(), fill, number);
    const BlockNo block = page.block();
    return sm_page_release_write(page) ? block : 0;
  }
  bool put(BlockNo block, uint8_t fill, uint32_t number = 0) {
    Page page;
    if (!sm_page_get(*sm_, block, 1, page)) return false;
    paint(page.data(), fill, number);
    return sm_page_release_write(page);
  }
  bool remove(BlockNo block) {
    Page page;
    return sm_page_get(*sm_, block, 1, page) && sm_page_delete(page);
  }
  Bytes get(BlockNo block) {  // empty on failure
    Page page;
    if (!sm_page_get(*sm_, block, 1, page)) return {};
    return Bytes(page.data(), page.data() + bm_block_size(*sm_->bm));
  }
  int fill_of(BlockNo block) {
    const Bytes bytes = get(block);
    return bytes.empty() ? -1 : bytes[0];
  }
  void paint(uint8_t *data, uint8_t fill, uint32_t number) const {
    const int size = bm_block_size(*sm_->bm);
    memset(data, fill, static_cast<size_t>(size));
    store_u32(data + size - 4, number);
  }

 private:
  Params *params_;
  StorageManager *sm_ = nullptr;
};

inline Codes take_recorded() {
  const Codes codes = recorded();
  err_clear();
  return codes;
}

inline Bytes read_file(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

inline void write_file(const std::string &path, const Bytes &bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::string> file_names(const std::string &directory) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(directory))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// Puts a slot of a platform table back at the end of the scope.
template <class Slot>
class SlotGuard {
 public:
  SlotGuard(Slot &slot, Slot replacement) : slot_(slot), saved_(slot) { slot = replacement; }
  ~SlotGuard() { slot_ = saved_; }
  Slot saved() const { return saved_; }

 private:
  Slot &slot_;
  Slot saved_;
};

}  // namespace tovik::test
