#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "frame/env.h"
#include "frame/error.h"
#include "frame/log.h"
#include "frame/memory_pool.h"
#include "frame/param_text.h"
#include "support.h"

namespace tovik {
namespace {

std::string formatted(const char *title = nullptr, int size = 8192) {
  std::vector<char> buffer(static_cast<size_t>(size) + 1, '\x7f');
  err_format(buffer.data(), size, title);
  EXPECT_EQ('\x7f', buffer[static_cast<size_t>(size)]) << "written past the buffer";
  return buffer.data();
}

void record(StatusCode code, const std::string &text, bool primary = false) {
  err_set(code, {.text = text.c_str(), .primary = primary});
}

// Every test starts with default parameters and an empty error record.
class Frame : public ::testing::Test {
 protected:
  Frame() {
    env_start(nullptr);
    err_clear();
  }
  ~Frame() override { env_release(); }
};

TEST_F(Frame, TextsOfErrors) {
  EXPECT_EQ("[UXA error information]\nNo error.(code:0)\n", formatted("[UXA error information]"));
  static const std::pair<StatusCode, const char *> cases[] = {
      {-5, "Error:[DRV--00005] "},    {9999, "Error:[SYS-009999] "},   {10000, "Error:[INT-010000] "},
      {99999, "Error:[INT-099999] "}, {100000, "Error:[USR-100000] "}, {1234567, "Error:[USR-1234567] "},
  };
  for (const auto &[code, start] : cases) {
    err_clear();
    err_set(code);
    EXPECT_EQ(std::string(start) + err_message(code), error_record().entries[0].text);
  }
  errno = ENOENT;
  err_set(status::io_open);
  EXPECT_EQ(0, errno);
  err_set(-1, {.text = "text"});
  const auto *entries = error_record().entries;
  EXPECT_EQ(std::string("Error:[SYS-000102] ") + err_message(102) + " No such file or directory (errno:2)",
            entries[1].text);
  EXPECT_STREQ("Error:[DRV--00001] text", entries[2].text);
  const std::string whole = formatted("title");
  for (size_t size = 2; size < whole.size() + 3; ++size) {
    const std::string cut = formatted("title", static_cast<int>(size));
    EXPECT_TRUE(whole.starts_with(cut)) << cut;
    EXPECT_GE(cut.size() + 2, std::min(size, whole.size() + 2)) << "room left unused";
  }
}

TEST_F(Frame, MessagesByCode) {
  for (int i = 0; i < status_text_count; ++i) {
    EXPECT_TRUE(i == 0 || status_texts[i - 1].code < status_texts[i].code) << "row " << i;
    EXPECT_EQ(status_texts[i].text, err_message(status_texts[i].code)) << status_texts[i].code;
  }
  EXPECT_STREQ("\x83\x81\x83\x82\x83\x8a\x8a\x6d\x95\xdb\x82\xc9\x8e\xb8\x94\x73", err_message(1));
  for (const StatusCode unknown : {-5, 0, 3, 119, 22013, 190018, 2147483647})
    EXPECT_STREQ("Not found error message.", err_message(unknown)) << unknown;
}

TEST_F(Frame, ErrorsPastTheLimits) {
  // "Error:[DRV--00001] " takes 19 characters; two texts of 255 with their zeros fill the pool exactly.
  const std::string longest(236, 'a');
  record(-1, longest);
  record(-2, longest + "cut off");
  record(-3, "c", true);
  EXPECT_EQ("Error:[DRV--00002] " + longest, error_record().entries[1].text);
  EXPECT_STREQ("", error_record().entries[2].text);
  EXPECT_EQ(512, error_record().texts_used);
  err_clear();
  for (int i = 1; i <= 17; ++i) record(-i, "x");
  EXPECT_EQ(17, error_record().count);
  EXPECT_EQ(-1, error_record().primary->code);
  const std::string last_two = "[15]:-15(0) Error:[DRV--00015] x\n[16]:-17(0) Error:[DRV--00017] x\n";
  EXPECT_TRUE(formatted().ends_with(last_two)) << formatted();
}

TEST_F(Frame, AScopeGivesTheErrorsBack) {
  err_set(status::unique_violation);
  err_set(status::out_of_memory);
  const std::string before = formatted();
  {
    ErrorScope scope;
    err_clear();
    record(-9, "other", true);
  }
  EXPECT_EQ(before, formatted());
  EXPECT_EQ(status::unique_violation, error_record().primary->code);
}

TEST_F(Frame, ParametersApplyByType) {
  static const struct {
    const char *items;
    Env parameter;
    int32_t number;
  } cases[] = {
      {"HVI_BLOCK_SIZE=big", Env::block_size, 0},
      {"HVI_BLOCK_SIZE=", Env::block_size, 4096},
      {"hvi_block_size=8", Env::block_size, 4096},
      {"HVI_LOCK_RETRY= -5 ;", Env::lock_retry, -5},
      {"HVI_LOCK_RETRY=99999999999999999999", Env::lock_retry, 2147483647},
      {"HVI_FILE_MODE=0600", Env::file_mode, 384},
      {"HVI_FILE_MODE=0x1fF", Env::file_mode, 511},
      {"HVI_QUERY_PLAN=oN", Env::query_plan, 1},
      {"HVI_AUTO_COMMIT=1", Env::auto_commit, 0},
      {"HVI_LANG=EUC;HVI_LANG=latin1", Env::lang, 1},
      {"UNKNOWN=1;=2;;HVI_LOCK_SLEEP=3", Env::lock_sleep, 3},
  };
  for (const auto &c : cases) {
    env_start(c.items);
    EXPECT_EQ(c.number, env_number(c.parameter)) << c.items;
  }
}

TEST_F(Frame, InitTextBeatsTheEnvironmentBeatsTheDefault) {
  setenv("HVI_LOCK_RETRY", "7", 1);
  setenv("HVI_LOCK_SLEEP", "8", 1);
  env_start("HVI_LOCK_SLEEP=9");
  EXPECT_EQ(7, env_number(Env::lock_retry));
  EXPECT_EQ(9, env_number(Env::lock_sleep));
  unsetenv("HVI_LOCK_RETRY");
  unsetenv("HVI_LOCK_SLEEP");
  env_set("HVI_BLOCK_SIZE", "512");
  EXPECT_EQ(4096, env_number(Env::block_size)) << "fixed once the library has started";
  testing::internal::CaptureStdout();
  env_show(nullptr);
  const std::string all = testing::internal::GetCapturedStdout();
  EXPECT_EQ(50, std::count(all.begin(), all.end(), '\n'));
  EXPECT_NE(all.find("HVI_LANG                    \"UTF-8\"                 STR  LANG     P DB\n"),
            std::string::npos);
}

TEST(ParamText, Pairs) {
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  static const std::pair<const char *, Pairs> cases[] = {
      {" a b = 1 2 ; c ", {{"a b", "1 2"}, {"c", ""}}},
      {"a=1;;b=2;", {{"a", "1"}, {"", ""}, {"b", "2"}}},
      {"a=b=c", {{"a", "b=c"}}},
      {"a= ' x;' junk;b=\"'\"", {{"a", " x;"}, {"b", "'"}}},
      {"a={c:\\x;'}=;b=2", {{"a", "c:\\x"}, {"b", "2"}}},
      {"a='open;b=2", {{"a", "open"}}},
      {"0123456789=abcdefghij;k=v", {{"01234567", "abcd"}, {"k", "v"}}},
      {"0123456 89='abc  fghij'", {{"0123456", "abc "}}},
  };
  for (const auto &[text, expected] : cases) {
    Pairs pairs;
    char key[9], value[5];
    for (const char *p = text; (p = next_pair(p, key, sizeof key, value, sizeof value)) != nullptr;)
      pairs.emplace_back(key, value);
    EXPECT_EQ(expected, pairs) << text;
  }
}

TEST_F(Frame, LinesOfTheLog) {
  const test::TempDir directory;
  const std::string path = directory / "log";
  env_set("HVI_LOG_FILE", path.c_str());
  log_write(LogLevel::info, "db", "%s", "restart [7]");
  record(-1, "torn");
  log_write(LogLevel::error, "db", "cannot open");
  log_write(LogLevel::warn, "db", "%s", std::string(600, 'x').c_str());
  env_set("HVI_LOG_FILE", "/no/such/directory/log");
  errno = EIO;
  log_write(LogLevel::error, "db", "lost");
  EXPECT_EQ(EIO, errno);
  EXPECT_EQ(1, error_record().count);

  constexpr size_t stamp = 28;  // "[2024/01/02 03:04:05.000006]"
  std::ifstream file(path, std::ios::binary);
  const char *const expected[] = {"[info][warm][db] restart [7]\r",
                                  "[error][warm][db] cannot open [1]:-1(0) Error:[DRV--00001] torn"};
  std::string line;
  for (const char *text : expected) {
    std::getline(file, line);
    EXPECT_EQ(text, line.substr(stamp));
  }
  std::getline(file, line, '\0');
  EXPECT_EQ(511u, line.size());
}

TEST(MemoryPoolTest, ServesTheLastBytesOrTellsWhyNot) {
  MemoryPool *pool = memory_pool_create(32);
  char *first = static_cast<char *>(memory_pool_alloc(*pool, 1));
  {
    PoolScope scope(*pool);
    EXPECT_EQ(static_cast<char *>(memory_pool_alloc(*pool, 16)) - first, 8) << "rounded up to 8";
    EXPECT_EQ(memory_pool_alloc(*pool, 1), nullptr) << "would end at the capacity";
    EXPECT_EQ(pool->used, 24);
  }
  const std::pair<int64_t, StatusCode> cases[] = {
      {0, 10001}, {INT64_MIN, 10001}, {24, 110002}, {0x100000008, 110002}, {INT64_MAX, 110002}};
  for (const auto &[size, code] : cases) {
    EXPECT_EQ(memory_pool_alloc(*pool, size), nullptr) << size;
    EXPECT_EQ(error_record().last_code, code) << size;
  }
  EXPECT_STREQ(memory_pool_text(*pool, "abcdef", 3), "abc");
  EXPECT_EQ(memory_pool_text(*pool, "a", INT32_MAX), nullptr);
  EXPECT_EQ(pool->used, 16);
  EXPECT_EQ(pool->count, 2);

  pool->kind_mark = 0x1234;
  EXPECT_EQ(memory_pool_alloc(*pool, 8), nullptr);
  EXPECT_EQ(error_record().last_code, 10003);
  memory_pool_destroy(pool);
  err_clear();
}

}  // namespace
}  // namespace tovik
