#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "frame/dump.h"
#include "frame/env.h"
#include "frame/error.h"
#include "frame/log.h"
#include "frame/param_text.h"

using namespace tovik;

namespace {

std::string formatted(const char *title = nullptr, int size = 8192) {
  std::vector<char> buffer(static_cast<size_t>(size) + 1, '\x7f');
  err_format(buffer.data(), size, title);
  EXPECT_EQ('\x7f', buffer[static_cast<size_t>(size)]) << "written past the buffer";
  return buffer.data();
}

// Every test starts and ends with default parameters and an empty error record.
class Frame : public ::testing::Test {
 protected:
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }
  static void reset() {
    env_start(nullptr);
    env_release();
    err_clear();
    err_clear_snapshot();
  }
};

using ErrorRecordTest = Frame;
using DumpTest = Frame;
using EnvTest = Frame;
using ParamText = Frame;
using LogTest = Frame;

}  // namespace

TEST_F(ErrorRecordTest, EmptyRecord) {
  err_set(0);
  EXPECT_EQ(0, error_record().last_code);
  EXPECT_EQ("[UXA error information]\nNo error.(code:0)\n", formatted("[UXA error information]"));
  EXPECT_EQ("No error.(code:0)\n", formatted(""));
}

TEST_F(ErrorRecordTest, CategoriesAndEntryTexts) {
  static const struct {
    StatusCode code;
    int category;
    const char *start;
  } cases[] = {
      {-5, 3, "Error:[DRV--00005] "},     {1, 0, "Error:[SYS-000001] "},
      {9999, 0, "Error:[SYS-009999] "},   {10000, 1, "Error:[INT-010000] "},
      {99999, 1, "Error:[INT-099999] "},  {100000, 2, "Error:[USR-100000] "},
      {190010, 2, "Error:[USR-190010] "}, {1234567, 2, "Error:[USR-1234567] "},
  };
  for (const auto &c : cases) {
    err_clear();
    err_set(c.code);
    const ErrorEntry &entry = error_record().entries[0];
    EXPECT_EQ(c.category, entry.category) << c.code;
    EXPECT_EQ(c.code, entry.code);
    EXPECT_EQ(std::string(c.start) + err_message(c.code), entry.text);
    EXPECT_EQ(error_record().primary, &entry);
  }
}

TEST_F(ErrorRecordTest, DriverErrorsKeepTheirOwnTextAndDetails) {
  err_set_driver(0, "fine", 1, 2);
  err_set_driver(7, "fine", 1, 2);
  EXPECT_EQ(0, error_record().count);
  err_set_driver(-5, "head crash %d", 8, 9);
  const ErrorEntry &entry = error_record().entries[0];
  EXPECT_STREQ("Error:[DRV--00005] head crash %d", entry.text);
  EXPECT_EQ(8, entry.detail1);
  EXPECT_EQ(9, entry.detail2);
}

TEST_F(ErrorRecordTest, ErrnoDecoratesTheTextOnce) {
  errno = ENOENT;
  err_set(status::io_open);
  EXPECT_EQ(0, errno);
  err_set(status::io_create);
  EXPECT_EQ(std::string("Error:[SYS-000102] ") + err_message(102) + " No such file or directory (errno:2)",
            error_record().entries[0].text);
  EXPECT_EQ(ENOENT, error_record().entries[0].sys_errno);
  EXPECT_EQ(std::string("Error:[SYS-000101] ") + err_message(101), error_record().entries[1].text);
  errno = EIO;
  err_clear();
  EXPECT_EQ(0, errno);
}

TEST_F(ErrorRecordTest, SourcePositionShowsUnlessSwitchedOff) {
  err_set_full(-1, "text", "pager.c", 12, false, 0, 0);
  EXPECT_STREQ("Error:[DRV--00001] text \"pager.c\" line:12 ", error_record().entries[0].text);
  env_set("HVI_TEST_DEBUG", "1");
  err_set_full(-1, "text", "pager.c", 12, false, 0, 0);
  EXPECT_STREQ("Error:[DRV--00001] text", error_record().entries[1].text);
}

TEST_F(ErrorRecordTest, SeventeenthErrorReplacesTheSixteenth) {
  for (int i = 1; i <= 17; ++i) err_set_full(-i, "x", nullptr, 0, false, 0, 0);
  EXPECT_EQ(17, error_record().count);
  EXPECT_EQ(-17, error_record().last_code);
  EXPECT_EQ(-1, error_record().primary->code);
  const std::string text = formatted();
  EXPECT_EQ(16, std::count(text.begin(), text.end(), '\n'));
  EXPECT_NE(std::string::npos,
            text.find("[15]:-15(0) Error:[DRV--00015] x\n[16]:-17(0) Error:[DRV--00017] x\n"));
}

TEST_F(ErrorRecordTest, TextPoolFillsToItsLastByte) {
  // "Error:[DRV--00001] " takes 19 characters; two texts of 255 with their zeros fill the pool exactly.
  const std::string longest(236, 'a');
  err_set_full(-1, longest.c_str(), nullptr, 0, false, 0, 0);
  err_set_full(-2, (longest + "cut off").c_str(), nullptr, 0, false, 0, 0);
  err_set_full(-3, "c", nullptr, 0, true, 0, 0);
  const ErrorRecord &record = error_record();
  EXPECT_EQ(255u, strlen(record.entries[0].text));
  EXPECT_EQ(std::string("Error:[DRV--00002] ") + longest, record.entries[1].text);
  EXPECT_STREQ("", record.entries[2].text);
  EXPECT_EQ(512, record.texts_used);
  EXPECT_EQ(-3, record.primary->code);
  err_clear();
  err_set_full(-4, "room again", nullptr, 0, false, 0, 0);
  EXPECT_STREQ("Error:[DRV--00004] room again", record.entries[0].text);
}

TEST_F(ErrorRecordTest, SnapshotOutlivesClear) {
  err_set(status::unique_violation);
  err_set(status::out_of_memory);
  err_save();
  err_clear();
  const ErrorRecord &record = error_record();
  EXPECT_EQ(0, record.count);
  EXPECT_EQ(nullptr, record.primary);
  EXPECT_EQ(status::out_of_memory, record.snapshot.last_code);
  EXPECT_EQ(2, record.snapshot.count);
  EXPECT_EQ(status::unique_violation, record.snapshot.primary.code);
  err_save();  // an empty record saves nothing
  EXPECT_EQ(status::unique_violation, record.snapshot.primary.code);
  err_clear_snapshot();
  EXPECT_EQ(0, record.snapshot.primary.code);
}

TEST_F(ErrorRecordTest, ScopeUndoesWhatItSaw) {
  err_set(status::unique_violation);
  const std::string before = formatted();
  {
    ErrorScope scope;
    err_set(status::out_of_memory);
    err_clear();
    err_set_full(-9, "other", nullptr, 0, true, 0, 0);
  }
  EXPECT_EQ(before, formatted());
  EXPECT_EQ(status::unique_violation, error_record().primary->code);
}

TEST_F(ErrorRecordTest, ThreadsHaveTheirOwn) {
  err_set(status::unique_violation);
  int other_count = -1;
  std::thread([&] { other_count = error_record().count; }).join();
  EXPECT_EQ(0, other_count);
}

TEST_F(ErrorRecordTest, FormatIsCutToItsBuffer) {
  err_set_full(-1, "first", nullptr, 0, false, 0, 0);
  err_set_full(-2, "second", nullptr, 0, false, 0, 0);
  const std::string whole = formatted("title");
  for (size_t size = 2; size < whole.size() + 3; ++size) {
    const std::string cut = formatted("title", static_cast<int>(size));
    EXPECT_EQ(whole.substr(0, cut.size()), cut);
    EXPECT_GE(cut.size() + 2, std::min(size, whole.size() + 2)) << "room left unused";
  }
}

TEST_F(ErrorRecordTest, AbortParameterEndsTheProcess) {
  env_set("HVI_ERROR_ABORT", "ON");
  EXPECT_DEATH(err_set(status::out_of_memory), "");
}

TEST_F(DumpTest, LinesAndTextsAreBounded) {
  static const struct {
    bool line;
    int remaining;
    const char *text;
    const char *stored;  // null: nothing is written
  } cases[] = {
      {true, 5, "abc", "abc\n"}, {true, 4, "abc", "abc"}, {true, 3, "abc", "ab"},  {true, 2, "abc", "a"},
      {true, 2, "", "\n"},       {true, 1, "", nullptr},  {true, 0, "a", nullptr}, {true, -3, "a", nullptr},
      {false, 4, "abc", "abc"},  {false, 3, "abc", "ab"}, {false, 1, "abc", ""},   {false, 0, "abc", nullptr},
  };
  for (const auto &c : cases) {
    char buffer[16];
    memset(buffer, '#', sizeof buffer);
    char *end = (c.line ? dump_line : dump_text)(buffer, c.remaining, "%s", c.text);
    const char *expected = c.stored == nullptr ? "" : c.stored;
    EXPECT_EQ(buffer + strlen(expected), end) << c.text << " in " << c.remaining;
    EXPECT_EQ(c.stored == nullptr ? '#' : '\0', *end);
    EXPECT_EQ(0, memcmp(buffer, expected, strlen(expected)));
    const int used = c.stored == nullptr ? 0 : static_cast<int>(strlen(expected)) + 1;
    EXPECT_EQ('#', buffer[used]);
  }
}

TEST_F(DumpTest, NullPositionPrints) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(nullptr, dump_text(nullptr, 0, "%d,", 1));
  EXPECT_EQ(nullptr, dump_line(nullptr, 0, "%s", std::string(2000, 'y').c_str()));
  EXPECT_EQ("1," + std::string(1023, 'y') + "\n", testing::internal::GetCapturedStdout());
}

TEST_F(EnvTest, ItemsApplyByType) {
  static const struct {
    const char *items;
    Env parameter;
    int32_t number;
  } cases[] = {
      {"HVI_BLOCK_SIZE=8KB", Env::block_size, 8},
      {"HVI_BLOCK_SIZE=1024;HVI_BLOCK_SIZE=512", Env::block_size, 512},
      {"HVI_BLOCK_SIZE=big", Env::block_size, 0},
      {"HVI_BLOCK_SIZE=", Env::block_size, 4096},
      {"HVI_BLOCK_SIZE", Env::block_size, 4096},
      {"hvi_block_size=8", Env::block_size, 4096},
      {"HVI_LOCK_RETRY= -5 ;", Env::lock_retry, -5},
      {"HVI_LOCK_RETRY=99999999999999999999", Env::lock_retry, 2147483647},
      {"HVI_LOCK_RETRY=-2147483649", Env::lock_retry, -2147483647 - 1},
      {"HVI_FILE_MODE=0600", Env::file_mode, 384},
      {"HVI_FILE_MODE=600", Env::file_mode, 600},
      {"HVI_FILE_MODE=0x1fF", Env::file_mode, 511},
      {"HVI_QUERY_PLAN=true", Env::query_plan, 1},
      {"HVI_QUERY_PLAN=oN", Env::query_plan, 1},
      {"HVI_AUTO_COMMIT=YES", Env::auto_commit, 0},
      {"HVI_AUTO_COMMIT=1", Env::auto_commit, 0},
      {"HVI_LANG=sjis", Env::lang, 0},
      {"HVI_LANG=EUC", Env::lang, 1},
      {"HVI_LANG=EUC;HVI_LANG=utf-16le", Env::lang, 2},
      {"HVI_LANG=EUC;HVI_LANG=UTF-16BE", Env::lang, 2},
      {"HVI_LANG=EUC;HVI_LANG=latin1", Env::lang, 1},
      {"UNKNOWN=1;=2;;HVI_LOCK_SLEEP=3", Env::lock_sleep, 3},
  };
  for (const auto &c : cases) {
    env_start(c.items);
    EXPECT_EQ(c.number, env_number(c.parameter)) << c.items;
  }
}

TEST_F(EnvTest, TextValuesAreCopiedAndReleased) {
  char items[] = "HVI_SQL_SEL_SEP = ' | ' ; HVI_QUERY_PLAN=on;HVI_LOG_FILE=;HVI_LOG_FILE";
  env_start(items);
  memset(items, '?', sizeof items - 1);
  EXPECT_STREQ(" | ", env_text(Env::sql_sel_sep));
  EXPECT_TRUE(env_on(Env::query_plan));
  EXPECT_EQ(nullptr, env_text(Env::log_file));
  EXPECT_STREQ("c:\\temp", env_text(Env::tmp_dir));
  env_set("HVI_SQL_SEL_SEP", "");
  EXPECT_STREQ("", env_text(Env::sql_sel_sep));
  env_release();
  EXPECT_EQ(nullptr, env_text(Env::sql_sel_sep));
  EXPECT_STREQ("c:\\temp", env_text(Env::tmp_dir));
  env_start(nullptr);
  EXPECT_STREQ("  ", env_text(Env::sql_sel_sep));
}

TEST_F(EnvTest, TextThatCannotBeCopiedIsUnset) {
  void *(*const alloc)(size_t) = memory_table.mem_alloc;
  memory_table.mem_alloc = [](size_t) -> void * { return nullptr; };
  env_set("HVI_SQL_SEL_SEP", "x");
  memory_table.mem_alloc = alloc;
  EXPECT_EQ(nullptr, env_text(Env::sql_sel_sep));
}

TEST_F(EnvTest, InitTextBeatsTheEnvironmentBeatsTheDefault) {
  setenv("HVI_LOCK_RETRY", "7", 1);
  setenv("HVI_LOCK_SLEEP", "8", 1);
  env_start("HVI_LOCK_SLEEP=9");
  EXPECT_EQ(7, env_number(Env::lock_retry));
  EXPECT_EQ(9, env_number(Env::lock_sleep));
  const auto env_get = system_driver.env_get;
  system_driver.env_get = nullptr;
  env_start(nullptr);
  system_driver.env_get = env_get;
  EXPECT_EQ(100, env_number(Env::lock_retry));
  unsetenv("HVI_LOCK_RETRY");
  unsetenv("HVI_LOCK_SLEEP");
}

TEST_F(EnvTest, RuntimeSetterSparesFixedParameters) {
  env_set("HVI_BLOCK_SIZE", "512");
  EXPECT_EQ(4096, env_number(Env::block_size));
  env_set("HVI_QUERY_PLAN", "ON");
  EXPECT_TRUE(env_on(Env::query_plan));
  env_set("HVI_QUERY_PLAN", nullptr);
  env_set(nullptr, "ON");
  env_set("", "ON");
  env_set("HVI_NOTHING", "ON");
  EXPECT_TRUE(env_on(Env::query_plan));
}

TEST_F(EnvTest, EveryNameIsFoundInItsPlace) {
  for (EnvRow &row : env_table) EXPECT_EQ(&row, env_find(row.name));
  EXPECT_STREQ("HVI_TRAN_SYNC", env_table[static_cast<size_t>(Env::tran_sync)].name);
}

TEST_F(EnvTest, Listing) {
  env_start("HVI_FILE_MODE=600;HVI_LOG_FILE=/a/path/that/is/longer/than/its/column");
  const auto shown = [](const char *name) {
    testing::internal::CaptureStdout();
    env_show(name);
    return testing::internal::GetCapturedStdout();
  };
  const std::string header =
      "name                        value                   type / unit   status \n"
      "--------------------------  ----------------------  ------------  -------\n";
  for (const std::string row :
       {"HVI_LANG                    \"UTF-8\"                 STR  LANG     P DB\n",
        "HVI_FILE_MODE               01130                   NUM  MODE     P \n",
        "HVI_AUTO_COMMIT             \"ON\"                    STR  ON|OFF   \n",
        "HVI_LOG_FILE                \"/a/path/that/is/longer/than/its/column\"STR           \n",
        "HVI_SIZE_DAT                \"\"                      STR  SIZE     P DB\n"}) {
    EXPECT_EQ(header + row, shown(row.substr(0, row.find(' ')).c_str()));
  }
  EXPECT_EQ("", shown("HVI_NOTHING"));
  const std::string all = shown(nullptr);
  EXPECT_EQ(50, std::count(all.begin(), all.end(), '\n'));
  EXPECT_EQ(all, shown(""));
}

TEST_F(ParamText, Pairs) {
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  static const struct {
    const char *text;
    Pairs pairs;
  } cases[] = {
      {"", {}},
      {" \t\r\n", {}},
      {"a", {{"a", ""}}},
      {"a=1", {{"a", "1"}}},
      {" a b = 1 2 ; c ", {{"a b", "1 2"}, {"c", ""}}},
      {"a=1;;b=2;", {{"a", "1"}, {"", ""}, {"b", "2"}}},
      {";", {{"", ""}}},
      {"=5", {{"", "5"}}},
      {"a=b=c", {{"a", "b=c"}}},
      {"a=;b", {{"a", ""}, {"b", ""}}},
      {"a= ' x;y ' junk;b=\"'\"", {{"a", " x;y "}, {"b", "'"}}},
      {"a={c:\\x;'}=;b=2", {{"a", "c:\\x;'"}, {"b", "2"}}},
      {"a='open;b=2", {{"a", "open;b=2"}}},
      {"a=x'y'z", {{"a", "x'y'z"}}},
      {"0123456789=abcdefghij;k=v", {{"01234567", "abcd"}, {"k", "v"}}},
      {"0123456 89='abc  fghij'", {{"0123456", "abc "}}},
  };
  for (const auto &c : cases) {
    Pairs pairs;
    char key[9];
    char value[5];
    for (const char *p = c.text; (p = next_pair(p, key, sizeof key, value, sizeof value)) != nullptr;) {
      pairs.emplace_back(key, value);
    }
    Pairs expected = c.pairs;
    for (auto &pair : expected) pair.second = pair.second.substr(0, 4);
    EXPECT_EQ(expected, pairs) << c.text;
  }
  EXPECT_EQ(nullptr, next_pair(nullptr, nullptr, 0, nullptr, 0));
}

TEST_F(ParamText, CaseBlindComparison) {
  EXPECT_TRUE(text_equal_nocase("aZ-@[", "Az-@["));
  for (const char *other : {"`", "", "@a"}) EXPECT_FALSE(text_equal_nocase("@", other)) << other;
}

TEST_F(LogTest, LinesByLevel) {
  const std::string path = testing::TempDir() + "tovik_log_test_" + std::to_string(getpid());
  const auto contents = [&] {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  log_write(LogLevel::info, "db", "nothing");
  EXPECT_FALSE(std::ifstream(path).good());

  env_set("HVI_LOG_FILE", path.c_str());
  errno = EIO;
  log_write(LogLevel::info, "db", "restart [%u]", 7u);
  EXPECT_EQ(EIO, errno);
  errno = 0;
  int stamp_end = 0;
  sscanf(contents().c_str(), "[%*4d/%*2d/%*2d %*2d:%*2d:%*2d.%*6d]%n", &stamp_end);
  constexpr size_t stamp_length = 28;
  EXPECT_EQ(static_cast<int>(stamp_length), stamp_end) << contents();
  EXPECT_EQ("[info][warm][db] restart [7]\r\n", contents().substr(stamp_length));

  ASSERT_EQ(0, truncate(path.c_str(), 0));
  err_set_full(-1, "torn", nullptr, 0, false, 0, 0);
  log_write(LogLevel::error, "db", "cannot open");
  EXPECT_EQ("[error][warm][db] cannot open [1]:-1(0) Error:[DRV--00001] torn\n",
            contents().substr(stamp_length));

  ASSERT_EQ(0, truncate(path.c_str(), 0));
  log_write(LogLevel::warn, "db", "%s", std::string(600, 'x').c_str());
  log_write(LogLevel::debug, "db", "%s", "");
  EXPECT_EQ(511 + stamp_length + std::string("[debug][warm][db] \r\n").size(), contents().size());
  unlink(path.c_str());

  env_set("HVI_LOG_FILE", "/no/such/directory/log");
  log_write(LogLevel::error, "db", "lost");
  EXPECT_EQ(1, error_record().count);
}
