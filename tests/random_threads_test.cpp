// Several threads at random work on one database, over one handle or a handle each, every thread with two
// statements in use at a time: transfers between accounts whose sum never changes, a table of the thread's
// own beside a model of it, and rows and schemas of tables that everybody changes. Whatever meets, a status
// tells only what a caller can be told, and in the end everything inside agrees.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine.h"

namespace tovik::test {
namespace {

constexpr int thread_count = 3;
constexpr int account_count = 20;
constexpr int account_sum = account_count * 100;
constexpr StatusCode first_users_status = 100000;  // below, something inside is wrong

struct Setting {
  const char *name;
  std::string library, params;
  bool own_handles;
};

const Setting settings[] = {
    {"OneHandle", "HVI_TRAN_SYNC=OFF", "CACHE_SIZE_DAT=40;CACHE_SIZE_TRN=20", false},
    {"OwnHandles", "", "CACHE_SIZE_DAT=40;CACHE_SIZE_TRN=20", true},
    {"ReusedStorage", "HVI_TRAN_HISTORY=0;HVI_TRAN_SYNC=OFF", "CACHE_SIZE_DAT=200;CACHE_SIZE_TRN=200", true},
    {"OneStorage", "HVI_TRAN_SYNC=OFF", "TYPE2=RAW;SIZE_DAT=2000B;SIZE_TRN=1000B;CACHE_SIZE_DAT=40", true},
    {"Memory", "", "TYPE=MEMORY;CACHE_SIZE_DAT=40;CACHE_SIZE_TRN=20", true},
};

void PrintTo(const Setting &setting, std::ostream *out) {
  *out << setting.name;
}

// One thread's part. It tells what it found wrong instead of failing the test, which only the main thread
// may.
class Worker {
 public:
  Worker(kld_db *db, int number, uint64_t seed)
      : first_(db), second_(db), reader_(db), own_("own" + std::to_string(number)), engine_(seed) {}

  // What it found wrong, or "".
  std::string work(int steps) {
    patiently(first_, "CREATE TABLE " + own_ + " (k int, v varchar(20), note text)");
    for (int i = 0; i < steps && fault_.empty(); ++i) step();
    return fault_;
  }

 private:
  int below(int limit) { return static_cast<int>(engine_() % static_cast<uint64_t>(limit)); }

  void step() {
    static constexpr void (Worker::*steps[])() = {&Worker::transfer,         &Worker::transfer,
                                                  &Worker::look_at_the_sum,  &Worker::open_or_fetch,
                                                  &Worker::change_own_table, &Worker::change_own_table,
                                                  &Worker::change_scratch,   &Worker::change_scratch};
    (this->*steps[below(8)])();
  }

  void found(const std::string &what) {
    if (fault_.empty()) fault_ = "the thread of " + own_ + ": " + what + "\n";
  }

  // Any result will do but one that says that something inside is wrong.
  void check(const std::string &what, int code) {
    if (code != 0 && code < first_users_status) found(what + ": error " + std::to_string(code));
  }

  void change_scratch() {
    Random random(engine_());
    const std::string sql = random_statement(random);
    check(sql, (below(2) == 0 ? first_ : second_).run(sql));
  }

  // Busy is an answer, and the thread's own open cursor a reason for it.
  bool patiently(Session &session, const std::string &sql) {
    for (int tries = 0;; ++tries) {
      const int code = session.run(sql);
      if (code == 0) return true;
      if (code == status::database_busy && tries < 1000) {
        close_cursor();
        continue;
      }
      found(sql + ": error " + std::to_string(code));
      return false;
    }
  }

  std::string account(int change) {
    return "UPDATE account SET balance = balance + " + std::to_string(change) +
           " WHERE id = " + std::to_string(below(account_count));
  }

  void transfer() {
    if (!patiently(first_, "BEGIN TRANSACTION")) return;
    const bool moved = patiently(first_, account(-1)) && patiently(second_, account(1));
    if (!moved || below(4) == 0) {
      patiently(second_, "ROLLBACK TRANSACTION");
      return;
    }
    close_cursor();
    if (const int code = first_.run("COMMIT TRANSACTION"); code != 0 && code != status::database_busy)
      found("COMMIT: error " + std::to_string(code));  // busy: rolled back
  }

  void look_at_the_sum() {
    std::string sum;
    const int code = first_.query("SELECT SUM(balance), COUNT(*) FROM account", &sum);
    if (code == status::database_busy) return;
    if (code != 0) return found("sum: error " + std::to_string(code));
    const std::string expected = std::to_string(account_sum) + "," + std::to_string(account_count);
    if (sum != expected) found("sum: " + sum + " instead of " + expected);
  }

  void change_own_table() {
    const int number = below(30);
    const std::string key = std::to_string(number);
    const int change = below(12);
    if (change < 2) {
      if (patiently(second_, "DELETE FROM " + own_ + " WHERE k = " + key)) keys_.erase(number);
    } else if (change < 4) {
      if (patiently(first_, indexed_ ? "DROP INDEX " + own_ + "_k"
                                     : "CREATE UNIQUE INDEX " + own_ + "_k ON " + own_ + " (k)"))
        indexed_ = !indexed_;
    } else if (change == 4) {
      if (patiently(second_, "EMPTY TABLE " + own_)) keys_.clear();
    } else if (!keys_.contains(number)) {
      if (patiently(first_, "INSERT INTO " + own_ + " VALUES " + key + ", 'v" + key +
                                "', 'a note that takes some room of its own: " + key + "'"))
        keys_.insert(number);
    }
    look_at_own_table(key);
  }

  void look_at_own_table(const std::string &key) {
    std::string row, count;
    const int code = second_.query("SELECT v FROM " + own_ + " WHERE k = " + key, &row);
    if (code == status::database_busy) return;
    if (code != 0) return found("own row: error " + std::to_string(code));
    if (row != (keys_.contains(std::stoi(key)) ? "v" + key : "")) found("own row " + key + ": '" + row + "'");
    if (second_.query("SELECT COUNT(*) FROM " + own_, &count) == 0 && count != std::to_string(keys_.size()))
      found("own table: " + count + " rows instead of " + std::to_string(keys_.size()));
  }

  // The cursor stays open over the steps between.
  void open_or_fetch() {
    kld_stmt *statement = reader_.statement();
    if (!cursor_) {
      const std::string sql = std::string(below(2) == 0 ? "SELECT id, balance FROM account ORDER BY balance"
                                                        : "SELECT name FROM p0 WHERE id > 3");
      kld_api_clear_stmt(statement);
      cursor_ = kld_api_pre_stmt_char(statement, sql.c_str()) == 0 && kld_api_exec_stmt(statement) == 0;
      return check(sql, error_code());
    }
    for (int i = 0; i < 5 && cursor_; ++i) {
      if (kld_api_fetch_stmt(statement) == 1) continue;
      check("fetch", error_code());
      close_cursor();
    }
  }

  void close_cursor() {
    kld_api_clear_stmt(reader_.statement());
    cursor_ = false;
  }

  Session first_, second_, reader_;
  const std::string own_;
  std::string fault_;
  std::mt19937_64 engine_;
  std::set<int> keys_;
  bool indexed_ = false;
  bool cursor_ = false;
};

void make_accounts(Session &session) {
  ASSERT_EQ(session.run("CREATE TABLE account (id int, balance int)"), 0);
  ASSERT_EQ(session.run("CREATE UNIQUE INDEX account_id ON account (id)"), 0);
  for (int id = 0; id < account_count; ++id)
    ASSERT_EQ(session.run("INSERT INTO account VALUES " + std::to_string(id) + ", 100"), 0);
}

class RandomThreads : public testing::TestWithParam<Setting> {};

TEST_P(RandomThreads, AgreeWithTheirModelsAndLeaveASoundDatabase) {
  const Engine engine(GetParam().library);
  TestDatabase database(GetParam().params +
                        ";LOCK_RETRY=200;LOCK_SLEEP=1;BEGIN_RETRY=200;BEGIN_SLEEP=1;CACHE_RTS=0");
  Random random;
  make_accounts(database.session());
  std::string faults[thread_count];
  std::vector<std::thread> threads;
  for (int number = 0; number < thread_count; ++number)
    threads.emplace_back([&, number, seed = random.next()] {
      kld_db *own = GetParam().own_handles ? kld_api_open_db(database.params().c_str()) : nullptr;
      faults[number] = Worker(own != nullptr ? own : database.handle(), number, seed).work(100 * scale());
      kld_api_close_db(own);
    });
  for (std::thread &thread : threads) thread.join();
  for (const std::string &fault : faults) EXPECT_EQ(fault, "");
  EXPECT_EQ(database_fault(database.session()), "");
  if (GetParam().params.find("MEMORY") == std::string::npos) database.reopen();
  EXPECT_EQ(database.rows("SELECT SUM(balance) FROM account"), std::to_string(account_sum));
  EXPECT_EQ(database_fault(database.session()), "");
}

INSTANTIATE_TEST_SUITE_P(Settings, RandomThreads, testing::ValuesIn(settings),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tovik::test
