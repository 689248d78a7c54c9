// Damaged and hostile files: whatever bytes of a closed database change, whoever opens, reads and changes it
// gets status codes; the process neither crashes nor runs for ever.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "engine.h"

namespace tovik::test {
namespace {

constexpr unsigned seconds_per_database = 20;

// What was done to the database, shown by the alarm when that takes too long.
char current_damage[256];

void time_is_up(int) {
  (void)!write(STDERR_FILENO, current_damage, strlen(current_damage));
  abort();
}

const Statements battery = {
    "DESCRIBE person ALL",
    "INFO CHECK person",
    "INSERT INTO person VALUES 1000, 'new', 'a text that needs chunks of its own in the overflow row system'",
    "INSERT INTO purse (balance) VALUES 7",
    "UPDATE person SET name = 'other', note = note || ' and more' WHERE id > 20",
    "DELETE FROM person WHERE name = 'name 3'",
    "CREATE TABLE later (a int, b text)",
    "CREATE INDEX person_note ON person (name)",
    "BEGIN TRANSACTION",
    "UPDATE purse SET balance = balance + 1",
    "ROLLBACK TRANSACTION",
    "DROP INDEX person_name",
    "EMPTY TABLE purse",
    "DROP TABLE person",
};

// Reads and changes everything; how many of the statements succeeded.
int use(const DiskImage &image) {
  fault_driver::load(image);
  int succeeded = 0;
  for (const bool change : {false, true}) {
    Session session(small_database);
    EXPECT_TRUE(session.open() || session.open_status() != 0);
    if (!session.open()) continue;
    (void)database_text(session);
    (void)database_fault(session);
    std::string row;
    if (session.query("SELECT * FROM person WHERE id = 17", &row) == 0) ++succeeded;
    for (const std::string &sql : change ? battery : Statements{}) {
      const StatusCode status = session.run(sql);
      EXPECT_NE(status, -1) << "failed without a status: " << sql;
      if (status == 0) ++succeeded;
    }
  }
  return succeeded;
}

// A database with all kinds of pages: chains of several pages, free blocks, free slots, chunks, overflow
// trees.
DiskImage rich_database() {
  Statements statements =
      schema() + person_rows(0, 60) +
      Statements{"CREATE TABLE purse (number int AUTO_INCREMENT, balance bigint, kind int)",
                 "CREATE INDEX purse_kind ON purse (kind)"};
  for (int i = 0; i < 40; ++i)
    statements.push_back("INSERT INTO purse (balance, kind) VALUES " + std::to_string(i) + ", 1");
  return made_database(
      small_database,
      statements + Statements{"CREATE TABLE gone (a int)", "CREATE INDEX gone_a ON gone (a)",
                              "DROP TABLE gone", "DELETE FROM person WHERE id > 10 AND id < 15",
                              "UPDATE person SET name = 'last commit' WHERE id = 5"});
}

class DamageTest : public testing::Test {
 protected:
  DamageTest() { signal(SIGALRM, time_is_up); }
  ~DamageTest() override { alarm(0); }

  // Uses a damaged database within a time.
  static int use_damaged(const DiskImage &image, int round, const std::string &what) {
    snprintf(current_damage, sizeof current_damage, "round %d: %s\n", round, what.c_str());
    SCOPED_TRACE(current_damage);
    alarm(seconds_per_database);
    return use(image);
  }

  const Silence silence_;
  const Engine engine_{""};
  Random random_;
};

// Changes one place of a storage and says what it did.
std::string damage(Bytes &bytes, Random &random) {
  constexpr size_t block_size = 1024;
  if (bytes.empty()) return "empty";
  const auto below = [&random](size_t limit) {
    return static_cast<size_t>(random.below(static_cast<int>(limit)));
  };
  const size_t blocks = (bytes.size() + block_size - 1) / block_size;
  const size_t block = below(blocks) * block_size;
  // Headers of pages and the first slots matter most.
  const size_t position = std::min(block + below(random.one_in(2) ? 64 : block_size), bytes.size() - 1);
  const std::string where = " at " + std::to_string(position);
  switch (random.below(5)) {
    case 0:
      bytes[position] ^= static_cast<uint8_t>(1 << random.below(8));
      return "bit" + where;
    case 1: {  // a word that is a plausible number, or an extreme one
      constexpr uint32_t extremes[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x10000};
      const uint32_t word = random.one_in(2) ? extremes[random.below(6)] : static_cast<uint32_t>(below(200));
      const size_t aligned = position & ~size_t{3};
      memcpy(&bytes[aligned], &word, std::min(sizeof word, bytes.size() - aligned));
      return "word " + std::to_string(word) + where;
    }
    case 2: {
      const size_t length = std::min(bytes.size() - position, 1 + below(random.one_in(2) ? 300 : 1));
      for (size_t i = 0; i < length; ++i) bytes[position + i] = static_cast<uint8_t>(random.next());
      return std::to_string(length) + " random bytes" + where;
    }
    case 3: {  // one block over another
      const size_t source = below(blocks) * block_size;
      memmove(&bytes[block], &bytes[source],
              std::min({block_size, bytes.size() - source, bytes.size() - block}));
      return "block at " + std::to_string(source) + " over that at " + std::to_string(block);
    }
    default:
      if (!random.one_in(8)) return damage(bytes, random);
      bytes.resize(position);
      return "cut" + where;
  }
}

TEST_F(DamageTest, RandomDamageOfAClosedDatabase) {
  const DiskImage intact = rich_database();
  ASSERT_EQ(use(intact), static_cast<int>(battery.size()) + 2);
  int opened = 0;
  const int count = 1500 * scale();
  for (int round = 0; round < count && !HasFailure(); ++round) {
    DiskImage image = intact;
    std::string what;
    for (int i = random_.below(3); i >= 0; --i) {
      auto storage = image.begin();
      if (random_.one_in(4)) std::advance(storage, random_.below(static_cast<int>(image.size())));
      what += storage->first + ": " + damage(storage->second, random_) + "; ";
    }
    if (use_damaged(image, round, what) > 0) ++opened;
  }
  printf("%d of %d damaged databases could still be used in part\n", opened, count);
}

// A commit record and a page map that lie, in the current TRN storage and in a saved one.
TEST_F(DamageTest, RandomDamageOfACommitRecord) {
  fault_driver::load(rich_database());
  {
    Session session(small_database);
    ASSERT_EQ(session.run("UPDATE person SET name = 'other'"), 0);
  }
  // Images in which the record waits to be applied.
  std::vector<DiskImage> images;
  const DiskLog log = fault_driver::log();
  each_stop(log, random_, 0, 0, [&](const std::string &, const DiskImage &image) {
    const auto trn = image.find("t.trn");
    if (trn != image.end() && trn->second.size() > 1024 && trn->second[0xE8] == 3) images.push_back(image);
  });
  ASSERT_FALSE(images.empty());
  const int count = 1000 * scale();
  for (int round = 0; round < count && !HasFailure(); ++round) {
    DiskImage image = images[static_cast<size_t>(random_.below(static_cast<int>(images.size())))];
    Bytes &trn = image["t.trn"];
    std::string what;
    for (int i = random_.below(2); i >= 0; --i) {
      if (random_.one_in(2) && trn.size() > 0x140) {
        const size_t byte = 0xE8 + static_cast<size_t>(random_.below(80));  // the commit record itself
        trn[byte] = static_cast<uint8_t>(random_.next());
        what += "commit record at " + std::to_string(byte) + "; ";
      } else {
        what += damage(trn, random_) + "; ";
      }
    }
    (void)use_damaged(image, round, what);
  }
}

}  // namespace
}  // namespace tovik::test
