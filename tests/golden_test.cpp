// One small database that uses every structure of the file format, made by fixed statements under a fixed
// clock: it is compared byte by byte with the committed tests/golden.txt (made anew by scripts/make_golden),
// and then its bytes are damaged one by one.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "engine.h"

namespace tovik::test {
namespace {

constexpr size_t block_size = 1024;
const std::string golden_params = "NAME=golden;BLOCK_SIZE=1024;DRV_NO=101";

std::string number(int n) {
  return std::to_string(n);
}

Statements golden_statements() {
  std::string many = "INSERT INTO many VALUES 0, 0", deep;
  for (int i = 1; i < 300; ++i) many += ", " + number(i % 10 == 0 ? i % 3 : 7) + ", " + number(i * 5);
  Statements statements = {
      // Every type: a plain row, the lowest or highest values, NULLs.
      "CREATE TABLE every (a tinyint NOT NULL, b smallint, c int, d bigint, e ctinyint, f csmallint, g cint, "
      "h cbigint, i float, j double, k decimal(8, 2), l char(5), m varchar(6), n time, o date, "
      "p microtimestamp, q text(1, 6, 20), r blob(1, 4, 16))",
      "INSERT INTO every VALUES 1, -2, 305419896, -4, 5, -6, 7, -8, 1.5, -2.25, '1.50', 'ab', 'vwxyz', "
      "'20200131010203', '20240229', '20200131010203000258', 'inline', '00ff10'",
      "INSERT INTO every VALUES -127, 32767, -2147483647, 9223372036854775807, -128, -32768, -2147483648, "
      "-9223372036854775808, -1.0e30, 1.0e-300, '12345678', 'abcde', 'vwxyz!', '00010101000000', '99991231', "
      "'99991231235959999999', 'a text of which six bytes stay in the row and the rest goes into chunks', "
      "'00112233445566778899aabbccddeeff0123456789'",
      "INSERT INTO every (a) VALUES 3",
      "CREATE INDEX every_date ON every (o, a)",
      // A counter with a start and a step; an index of its own.
      "CREATE TABLE counted (id int AUTO_INCREMENT, v text(1, 8, 40)) AUTO_INCREMENT_INIT = 10, "
      "AUTO_INCREMENT_STEP = 5",
      "INSERT INTO counted (v) VALUES 'one', 'two', 'three has got some chunks of its own, two of them', "
      "'four'",
      // Short rows: one key with so many values that its overflow tree has two levels; ascending keys.
      "CREATE TABLE many (a tinyint, b int)",
      "CREATE (2, 4) INDEX many_a ON many (a)",
      "CREATE UNIQUE TIMESERIES INDEX many_b ON many (b)",
      many,
      // Long keys: a tree of three levels.
      "CREATE TABLE deep (a char(64), b char(64))",
      "CREATE UNIQUE INDEX deep_ab ON deep (a, b)",
  };
  for (int i = 0; i < 40; ++i)
    statements.push_back("INSERT INTO deep VALUES 'key " + number(i * 7 % 40) + "', 'and " + number(i % 3) +
                         "'");
  return statements +
         Statements{
             // Free blocks, free slots in two lists, shorter and longer chains, other names.
             "CREATE TABLE gone (a char(60), b text)",
             "CREATE INDEX gone_a ON gone (a)",
             "INSERT INTO gone VALUES 'x', 'a text that makes chunks before all of it goes'",
             "DELETE FROM many WHERE b > 100 AND b < 130",
             "DELETE FROM counted WHERE id = 15",
             "UPDATE counted SET v = 'three' WHERE id = 20",
             "UPDATE counted SET v = 'four has become longer than its part of the row' WHERE id = 25",
             "CREATE TABLE named (old int)",
             "RENAME TABLE named TO renamed",
             "RENAME ATTR renamed.old TO new",
             "CREATE TABLE vacant (a int)",
             "DROP TABLE gone",
             // What the saved transaction storage holds.
             "BEGIN TRANSACTION",
             "INSERT INTO renamed VALUES 1",
             "UPDATE deep SET b = 'last' WHERE a = 'key 13'",
             "COMMIT TRANSACTION",
         };
}

constexpr size_t last_commit = 4;  // statements
const Statements tables = {"every", "counted", "many", "deep", "renamed"};

DiskImage golden_image() {
  return made_database(golden_params, golden_statements());
}

// ---- The text form: a line "NAME LENGTH" for each storage, then a line for each block that is not all zero:
// its number and "OFFSET:BYTES" in hexadecimal for what stands between the zeros.

std::string hex(const Bytes &bytes, size_t from, size_t to) {
  std::string text;
  char digits[3];
  for (size_t i = from; i < std::min(to, bytes.size()); ++i) {
    snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}

std::string block_text(const Bytes &bytes, size_t block) {
  constexpr size_t gap = 4;  // so many zeros may stand inside a piece
  std::string text;
  char offset[16];
  const size_t end = std::min(block + block_size, bytes.size());
  for (size_t at = block; at < end; ++at) {
    if (bytes[at] == 0) continue;
    size_t last = at;
    for (size_t i = at; i < end && i <= last + gap; ++i)
      if (bytes[i] != 0) last = i;
    snprintf(offset, sizeof offset, " %zx:", at - block);
    text += offset + hex(bytes, at, last + 1);
    at = last;
  }
  return text;
}

std::string image_text(const DiskImage &image) {
  std::string text;
  for (const auto &[name, bytes] : image) {
    text += name + " " + std::to_string(bytes.size()) + "\n";
    for (size_t block = 0; block < bytes.size(); block += block_size)
      if (const std::string pieces = block_text(bytes, block); !pieces.empty())
        text += std::to_string(block / block_size) + pieces + "\n";
  }
  return text;
}

void expect_lines(const std::string &text, std::istream &&wanted) {
  std::istringstream made(text);
  for (std::string line, expected; !made.eof();) {
    std::getline(made, line);
    std::getline(wanted, expected);
    EXPECT_EQ(line, expected);
  }
}

class Golden : public testing::Test {
 protected:
  const Silence silence_;
  const SlotGuard<decltype(system_driver.utc_now)> utc_{system_driver.utc_now, [](Clock *now) {
                                                          *now = {1700000000, 123456};
                                                        }};
  const SlotGuard<decltype(system_driver.local_now)> local_{
      system_driver.local_now, [](DateTimeRec *now) { *now = {2023, 11, 14, 22, 13, 20, 0, 123456}; }};
  const Engine engine_{"HVI_GMT_TIME=ON"};
};

TEST_F(Golden, StatementsMakeTheCommittedBytes) {
  const std::string made = image_text(golden_image());
  if (const char *target = getenv("TOVIK_GOLDEN_WRITE")) std::ofstream(target) << made;
  expect_lines(made, std::ifstream(TOVIK_SOURCE_DIR "/tests/golden.txt"));

  // The driver of the platform's files leaves the same.
  const TempDir directory;
  create_database("NAME=golden;BLOCK_SIZE=1024;PATH=" + directory.path(), golden_statements());
  DiskImage files;
  for (const auto &entry : std::filesystem::directory_iterator(directory.path())) {
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().filename().string()] = Bytes(std::istreambuf_iterator<char>(file), {});
  }
  expect_lines(image_text(files), std::istringstream(made));
}

// Levels, their counters and the pages moved so far, in a transaction and after it.
TEST(GoldenText, Transactions) {
  const Engine engine("");
  fault_driver::load(golden_image());
  Session session(golden_params + ";TRAN_HASH=2;CACHE_SIZE_TRN=3;CACHE_RTS=0");
  const std::string text = printed_by([&session] {
    for (const char *sql : {"BEGIN TRANSACTION", "INSERT INTO deep VALUES 'key 5', 'x'", "INFO TM",
                            "ROLLBACK TRANSACTION", "INFO TM"})
      ASSERT_EQ(session.run(sql), 0) << sql;
  });
  EXPECT_EQ(text, "***  Transaction Information ***\n transaction running. tid[" + number(current_thread()) +
                      "] level[1] hsz[2] atype[0]\n --- transaction level 1 information ---\n"
                      " 1 : hsz[2] bcnt[55] fcnt[2] flst[51] icnt[1]\n"
                      "\\t           --- transaction hash table ---\n           0 : dno[46] tno[1]\n"
                      "***  Transaction Information ***\n transaction not running.\n");
}

// ---- Damage

constexpr unsigned seconds_per_use = 20;
char current_damage[96];  // shown by the alarm when a use takes longer

void time_is_up(int) {
  (void)!write(STDERR_FILENO, current_damage, strlen(current_damage));
  abort();
}

// Reads everything by scans and by indices, checks it and adds rows, or goes on to change and drop all; what
// the scans of the tables gave, in their order, or nothing when the database cannot be opened.
Statements use(const DiskImage &image, bool check_ignore, bool change_all) {
  fault_driver::load(image);
  Session session(golden_params +
                  ";CACHE_SIZE_DAT=24;CACHE_SIZE_TRN=24;CACHE_RTS=0;LOCK_RETRY=1;LOCK_SLEEP=1;BEGIN_RETRY=1;"
                  "BEGIN_SLEEP=1;CHECK_IGNORE=" +
                  (check_ignore ? "true" : "false"));
  const auto run = [&session](const char *sql) {
    EXPECT_NE(session.run(sql), -1) << "failed without a status: " << sql;
  };
  Statements texts;
  if (!session.open()) {
    EXPECT_NE(session.open_status(), 0);
    return texts;
  }
  for (const std::string &table : tables) texts.push_back(session.rows("SELECT * FROM " + table));
  for (const char *sql :
       {"INFO CHECK every", "INFO CHECK counted", "INFO CHECK many", "INFO CHECK deep",
        "SELECT * FROM deep WHERE a = 'key 13'", "SELECT * FROM many WHERE a = 7 AND b > 10",
        "INSERT INTO counted (v) VALUES 'a text that needs chunks of its own, more than one'",
        "INSERT INTO deep VALUES 'key 5', 'new'", "INSERT INTO many VALUES 7, 3"})
    run(sql);
  if (!change_all) return texts;
  for (const char *sql :
       {"UPDATE every SET q = q || ' and more', r = NULL, b = b + 1", "DELETE FROM counted WHERE id > 12",
        "UPDATE deep SET a = 'other' WHERE a > 'key 2'", "DELETE FROM many WHERE a = 7", "DESCRIBE every ALL",
        "CREATE TABLE later (a int, b text)", "CREATE INDEX renamed_new ON renamed (new)",
        "DROP INDEX deep_ab", "BEGIN TRANSACTION", "INSERT INTO renamed VALUES 3", "DROP TABLE counted",
        "ROLLBACK TRANSACTION", "EMPTY TABLE every", "DROP TABLE many", "INFO BM", "INFO TM"})
    run(sql);
  return texts;
}

const int any = static_cast<int>(tables.size());  // of tables may read otherwise

class GoldenDamage : public Golden {
 protected:
  GoldenDamage() { signal(SIGALRM, time_is_up); }
  ~GoldenDamage() override { alarm(0); }

  void try_damage(DiskImage &image, const std::string &name, size_t at, const void *bytes, size_t count) {
    Bytes &storage = image[name];
    const auto place = storage.begin() + static_cast<ptrdiff_t>(at);
    const Bytes good(place, place + static_cast<ptrdiff_t>(count));
    memcpy(&storage[at], bytes, count);
    const std::string what =
        std::to_string(count) + " bytes, first " + hex(storage, at, at + 1) + " for " + hex(good, 0, 1);
    const bool header = at < block_size;
    for (const bool check_ignore : {false, true})
      if (!check_ignore || header) try_image(image, name, at, what, check_ignore, header ? 0 : 1);
    std::copy(good.begin(), good.end(), place);
  }

  // At most so many tables may read otherwise.
  void try_image(const DiskImage &image, const std::string &name, size_t at, const std::string &what,
                 bool check_ignore, int tables_touched) {
    snprintf(current_damage, sizeof current_damage, "%s block %zu offset %zu: %s\n", name.c_str(),
             at / block_size, at % block_size, what.c_str());
    SCOPED_TRACE(current_damage);
    alarm(seconds_per_use);
    const Statements texts = use(image, check_ignore, random_.one_in(8));
    ++uses_;
    if (texts.empty()) return;
    ++opened_;
    EXPECT_LE(std::min(others(texts, states_[0]), others(texts, states_.back())), tables_touched);
  }

  // Tables that read otherwise than in a state and do not say that they cannot. One place of a page belongs
  // to one table, one of a header to none.
  static int others(const Statements &texts, const Statements &state) {
    int count = 0;
    for (size_t i = 0; i < texts.size(); ++i)
      if (texts[i] != state[i] && texts[i].rfind("error", 0) != 0) ++count;
    return count;
  }

#ifdef __SANITIZE_THREAD__
  static constexpr bool thinned = true;  // one thread has no races, and takes thirty times as long here
#else
  static constexpr bool thinned = false;
#endif

  // Every byte of a storage is another one; of the bytes that are zero, outside the heads of blocks, one in
  // four: which, the seed says.
  void flip_bytes(DiskImage image, const std::string &name) {
    for (size_t at = 0; at < image[name].size() && !HasFailure(); ++at) {
      const uint8_t byte = image[name][at];
      if (byte == 0 && at % block_size >= 32 && !random_.one_in(4)) continue;
      if (thinned && !random_.one_in(8)) continue;
      const uint8_t other = byte ^ static_cast<uint8_t>(1 + random_.below(255));
      try_damage(image, name, at, &other, 1);
      if (byte != 0 && random_.one_in(12)) change_word(image, name, std::min(at, image[name].size() - 4));
    }
  }

  // A number gets values that lead somewhere: every one at the head of a block, some elsewhere.
  void change_word(DiskImage &image, const std::string &name, size_t at) {
    const uint32_t block = static_cast<uint32_t>(at / block_size);
    const uint32_t blocks = static_cast<uint32_t>(image[name].size() / block_size);
    for (const uint32_t word : {0u, 1u, block, blocks - 1, blocks, 0x7FFFFFFFu, 0xFFFFFFFFu})
      try_damage(image, name, at, &word, sizeof word);
  }
  void change_words(DiskImage image, const std::string &name) {
    for (size_t block = 0; block < image[name].size(); block += block_size)
      for (size_t at = 0; at < (block == 0 ? 0x138 : 32) && !HasFailure(); at += 4)
        change_word(image, name, block + at);
  }

  // One block stands in the place of another, random bytes among it; the storage ends early.
  void copy_and_cut(const DiskImage &image, const std::string &name) {
    const size_t size = image.at(name).size();
    const auto below = [this](size_t limit) {
      return static_cast<size_t>(random_.below(static_cast<int>(limit)));
    };
    for (size_t at = 0; at < size && !HasFailure(); at += block_size / 2) {
      DiskImage damaged = image;
      Bytes &bytes = damaged[name];
      const size_t block = at / block_size * block_size, source = below(size / block_size) * block_size;
      memcpy(&bytes[block], &image.at(name)[source], block_size);
      for (size_t i = below(4); i > 0; --i) bytes[below(size)] = static_cast<uint8_t>(random_.next());
      try_image(damaged, name, at, "the block at " + number(static_cast<int>(source)), random_.one_in(2),
                any);
      damaged = image;
      damaged[name].resize(at + below(2));
      try_image(damaged, name, at, "the end", random_.one_in(2), any);
    }
  }

  // What an undamaged database reads as becomes one of the states.
  void add_state(const DiskImage &image) {
    states_.push_back(use(image, false, false));
    ASSERT_EQ(states_.back().size(), tables.size());
    EXPECT_EQ(others(states_.back(), Statements(tables.size(), "?")), static_cast<int>(tables.size()))
        << "errors";
  }
  void damage_all(const DiskImage &image, const std::string &name) {
    add_state(image);
    change_words(image, name);
    flip_bytes(image, name);
    copy_and_cut(image, name);
    printf("%s: %d of %d damaged databases opened\n", name.c_str(), opened_, uses_);
  }

  Random random_;
  std::vector<Statements> states_;
  int uses_ = 0, opened_ = 0;
};

TEST_F(GoldenDamage, RandomFlipsOfTheDataPart) {
  damage_all(golden_image(), "golden.dat");
}

// The last commit waits to be copied, as after a death right behind its record.
TEST_F(GoldenDamage, RandomFlipsOfAWaitingRecord) {
  Statements before = golden_statements();
  before.resize(before.size() - last_commit);
  DiskImage image = made_database(golden_params, before);
  add_state(image);
  const auto saved = *golden_image().begin();
  ASSERT_EQ(saved.first.substr(saved.first.size() - 5), ".trn_");
  damage_all({{"golden.dat", image["golden.dat"]}, {"golden.trn", saved.second}}, "golden.trn");
}

}  // namespace
}  // namespace tovik::test
