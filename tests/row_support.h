// A storage manager with the data layer's systems, for the tests of that layer.
#pragma once

#include <string>
#include <thread>

#include "data/data_layer.h"
#include "frame/env.h"
#include "frame/error.h"
#include "support.h"

namespace tovik::test {

class StorageFixture {
 public:
  explicit StorageFixture(const std::string &options = "BLOCK_SIZE=1024") {
    err_clear();
    env_start(nullptr);
    EXPECT_TRUE(io_init());
    data_layer_register();
    params_ = param_create(("NAME=store;PATH=" + dir_.path() + ";" + options).c_str());
    EXPECT_TRUE(params_ != nullptr && param_check(*params_, true)) << errors();
    sm = sm_create(*params_);
    EXPECT_TRUE(sm != nullptr && sm_direct_end(*sm)) << errors();
    err_clear();
  }
  ~StorageFixture() {
    sm_close(sm);
    param_destroy(params_);
    io_term();
    env_release();
  }
  StorageFixture(const StorageFixture &) = delete;
  StorageFixture &operator=(const StorageFixture &) = delete;

  void save() { EXPECT_TRUE(sm_direct_end(*sm)) << errors(); }
  void reopen() {
    save();
    sm_close(sm);
    sm = sm_open(*params_);
    ASSERT_NE(sm, nullptr) << errors();
  }

  void begin() { EXPECT_TRUE(tm_start(*sm->tm, current_thread())) << errors(); }
  void commit() {
    EXPECT_TRUE(tm_commit(*sm->tm, current_thread()) && tm_apply(*sm->tm, current_thread())) << errors();
  }
  void rollback() { EXPECT_TRUE(tm_rollback(*sm->tm, current_thread())) << errors(); }

  // Blocks in use, as the calling thread sees them.
  int used_blocks() const {
    const Counters &counters = sm_level(*sm) > 0 ? tm_counters(*sm->tm) : bm_counters(*sm->bm, part_dat);
    return counters.bcnt - counters.fcnt;
  }

  // The bytes of a block, as the calling thread sees them.
  std::string bytes(BlockNo block, size_t from, size_t count) {
    Page page;
    EXPECT_TRUE(sm_page_get(*sm, block, 0, page)) << errors();
    return std::string(reinterpret_cast<const char *>(page.data()) + from, count);
  }
  void overwrite(BlockNo block, uint32_t from, const std::string &content) {
    Page page;
    ASSERT_TRUE(sm_page_get(*sm, block, 0, page)) << errors();
    memcpy(page.data() + from, content.data(), content.size());
    ASSERT_TRUE(sm_page_release_write(page)) << errors();
  }

  template <class Work>
  static void on_other_thread(Work work) {
    std::thread([&] {
      work();
      err_clear();
    }).join();
  }

  // The status recorded first since the last call, 0 when there is none.
  static StatusCode first_status() {
    const ErrorRecord &record = error_record();
    const StatusCode code = record.count > 0 ? record.entries[0].code : 0;
    err_clear();
    return code;
  }
  static std::string errors() {
    char text[2048] = "";
    err_format(text, sizeof text, "");
    return text;
  }

  StorageManager *sm = nullptr;

 private:
  TempDir dir_;
  Params *params_ = nullptr;
};

// Little-endian bytes of unsigned 32-bit values, and count equal bytes.
inline std::string u32s(std::initializer_list<uint32_t> values) {
  std::string text;
  for (const uint32_t value : values) {
    char bytes[4];
    store_u32(bytes, value);
    text.append(bytes, 4);
  }
  return text;
}
inline std::string filled(size_t count, char byte = '\0') {
  return std::string(count, byte);
}

}  // namespace tovik::test
