// Handles of both interfaces: in any order, from several threads, and in a process that fork made.
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "record_support.h"

namespace tovik::test {
namespace {

const char *const table[] = {"t"};

// One database in files, open through any number of handles. Whoever meets another's hold fails at once.
class Handles : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kld_api_init("HVI_TRAN_SYNC=OFF"), 0);
    ASSERT_EQ(kld_api_create_db(params_.c_str()), 0);
    Session session(params_);
    ASSERT_EQ(session.run("CREATE TABLE t (a int)"), 0);
    ASSERT_EQ(session.run("INSERT INTO t VALUES 1, 2"), 0);
  }
  void TearDown() override { kld_api_end(); }

  kld_db *open_statements() { return kld_api_open_db(params_.c_str()); }
  tovik_db *open_records() { return tovik_open("h", params_.c_str()); }
  int count() {
    Session session(params_);
    return atoi(session.rows("SELECT COUNT(*) FROM t").c_str());
  }

  TempDir directory_;
  std::string params_ = "NAME=h;PATH=" + directory_.path() + ";LOCK_RETRY=0;BEGIN_RETRY=0";
};

// ---- random orders ----

// A handle that was given out, and whether it still stands.
struct Given {
  enum Kind { statements, statement, records, cursor } kind;
  void *handle;
  bool live;
  void *database;  // of a statement or a cursor

  template <class T>
  T *as() const {
    return static_cast<T *>(handle);
  }
};

class RandomOrder {
 public:
  explicit RandomOrder(Random &random) : random_(random) {}

  void add(Given::Kind kind, void *handle, void *database = nullptr) {
    if (handle == nullptr) return;
    for (const Given &old : given) EXPECT_NE(old.handle, handle) << "given out before";
    given.push_back({kind, handle, true, database});
  }
  Given *some(Given::Kind kind) {
    for (int tries = 0; tries < 50 && !given.empty(); ++tries) {
      Given &one = given[static_cast<size_t>(random_.below(static_cast<int>(given.size())))];
      if (one.kind == kind) return &one;
    }
    return nullptr;
  }
  void closed(Given &one) {
    if (one.live)
      for (Given &other : given)
        if (other.live && other.database == one.handle) other.live = false;
    one.live = false;
  }
  int live(Given::Kind kind) const {
    return static_cast<int>(std::count_if(given.begin(), given.end(),
                                          [kind](const Given &one) { return one.live && one.kind == kind; }));
  }

  std::vector<Given> given;

 private:
  Random &random_;
};

// The calls that use a statement or a cursor; the one code is what a handle that ended gives each time.
int use_statement(kld_stmt *stmt, int call) {
  int32_t number = 0, not_null = 0;
  switch (call) {
    case 0:
      return kld_api_pre_stmt_char(stmt, "SELECT a, 1 / (a - 1) FROM t ORDER BY a");
    case 1:
      return kld_api_pre_stmt_char(stmt, "SELECT SUM(1 / (a - 1)) FROM t");
    case 2:
      return kld_api_exec_stmt(stmt);
    case 3:
      return kld_api_fetch_stmt(stmt);
    case 4:
      return kld_api_get_data(stmt, 1, TOVIK_INT32, &number, sizeof number, nullptr, &not_null);
    case 5:
      return kld_api_get_cols_count(stmt, &number);
    case 6:
      return kld_api_get_cols_desc(stmt, 1, nullptr, 0, &number, nullptr, nullptr, nullptr);
    case 7:
      return kld_api_exec_sql_wchar(stmt, wide(u"INSERT INTO t VALUES 3"));
    default:
      return kld_api_exec_sql_char(stmt, "DELETE FROM t WHERE a = 3");
  }
}
constexpr int statement_calls = 9;

int use_cursor(tovik_cur *cursor, int call) {
  int32_t number;
  tovik_value value;
  return call == 0   ? tovik_fetchcur(cursor)
         : call == 1 ? tovik_getcol(cursor, "a", TOVIK_WCHAR, &value)
                     : tovik_getcol_i32(cursor, "a", &number);
}
constexpr int cursor_calls = 3;

int use_records(tovik_db *db, int call) {
  tovik_colval value;
  tovik_setcol_i32(&value, "a", 4);
  char names[32];
  return call == 0   ? tovik_insert(db, "t", &value, 1)
         : call == 1 ? tovik_gettbllst(db, names, sizeof names)
         : call == 2 ? tovik_begin(db)
         : call == 3 ? tovik_rollback(db)
                     : tovik_execsql_char(db, "DELETE FROM t WHERE a = 4");
}
constexpr int records_calls = 5;

TEST_F(Handles, RandomOrders) {
  Random random;
  RandomOrder order(random);
  const auto close = [&](Given &one) {
    const auto work = [&] {
      switch (one.kind) {
        case Given::statements:
          return kld_api_close_db(one.as<kld_db>());
        case Given::statement:
          return kld_api_destroy_stmt(one.as<kld_stmt>());
        case Given::records:
          return tovik_close(one.as<tovik_db>());
        case Given::cursor:
          return tovik_closecur(one.as<tovik_cur>());
      }
    };
    if (random.one_in(4)) {
      std::thread(work).join();
    } else {
      work();
    }
    order.closed(one);
  };
  for (int step = 0; step < 1000 && !HasFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    const Given::Kind kind = static_cast<Given::Kind>(random.below(4));
    const Given::Kind owner = kind <= Given::statement ? Given::statements : Given::records;
    Given *one = order.some(kind), *database = order.some(owner);
    if (random.one_in(200)) {
      kld_api_end();
      for (Given &each : order.given) each.live = false;
      ASSERT_EQ(tovik_init("HVI_TRAN_SYNC=OFF"), 0);
    } else if (kind == owner && order.live(kind) < 3 && random.one_in(3)) {
      order.add(kind, kind == Given::statements ? static_cast<void *>(open_statements()) : open_records());
    } else if (kind != owner && database != nullptr && order.live(kind) < 8 && random.one_in(3)) {
      void *made = kind == Given::statement ? static_cast<void *>(kld_api_create_stmt(database->as<kld_db>()))
                   : random.one_in(2) ? tovik_opencur(database->as<tovik_db>(), table, 1, nullptr, nullptr)
                                      : tovik_selectsql_char(database->as<tovik_db>(), "SELECT a FROM t");
      EXPECT_EQ(made != nullptr, database->live) << error_code();
      if (made == nullptr) {
        EXPECT_EQ(error_code(), kind == Given::statement ? 190001 : 202115);
      }
      order.add(kind, made, database->handle);
    } else if (one != nullptr && random.one_in(5)) {
      if (kind == Given::statement && random.one_in(2)) {
        kld_api_clear_stmt(one->as<kld_stmt>());
      } else {
        close(*one);
      }
    } else if (one != nullptr && kind != Given::statements) {
      const int ended = kind == Given::statement ? 190001 : kind == Given::records ? 202115 : 202116;
      const int result =
          kind == Given::statement ? use_statement(one->as<kld_stmt>(), random.below(statement_calls))
          : kind == Given::records ? use_records(one->as<tovik_db>(), random.below(records_calls))
                                   : use_cursor(one->as<tovik_cur>(), random.below(cursor_calls));
      EXPECT_EQ(result < 0 && error_code() == ended, !one->live) << kind << " " << result << error_code();
    }
  }
  kld_api_end();  // with whatever is still open
  ASSERT_EQ(kld_api_init(""), 0);
  EXPECT_GE(count(), 2);
}

// ---- threads ----

// Statements and cursors are cleared and closed on their threads while another closes the database.
TEST_F(Handles, ClosedByThreadsAtTheSameTime) {
  constexpr int thread_count = 3;
  for (int round = 0; round < 40; ++round) {
    kld_db *statements = open_statements();
    tovik_db *records = open_records();
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i)
      threads.emplace_back([&] {
        kld_stmt *made[3];
        tovik_cur *cursors[3];
        for (int each = 0; each < 3; ++each) {
          EXPECT_NE(made[each] = kld_api_create_stmt(statements), nullptr);
          EXPECT_EQ(use_statement(made[each], 0), 0) << error_code();
          EXPECT_NE(cursors[each] = tovik_opencur(records, table, 1, nullptr, nullptr), nullptr);
        }
        for (++ready; ready < thread_count;) std::this_thread::yield();
        for (int each = 0; each < 3; ++each) {
          if (each == 1) kld_api_clear_stmt(made[each]);
          kld_api_destroy_stmt(made[each]);
          tovik_closecur(cursors[each]);
        }
      });
    while (ready < thread_count) std::this_thread::yield();
    kld_api_close_db(statements);
    tovik_close(records);
    for (std::thread &thread : threads) thread.join();
  }
  EXPECT_EQ(count(), 2);
}

// ---- fork ----

// What work gives in a process that fork makes: 0, or the number of what went wrong.
template <class Work>
int in_child(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int result = 0;
  waitpid(child, &result, 0);
  return WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
}

TEST_F(Handles, AreRefusedInAProcessThatForkMade) {
  kld_db *statements = open_statements();
  kld_stmt *stmt = kld_api_create_stmt(statements);
  tovik_db *records = open_records();
  tovik_cur *cursor = tovik_opencur(records, table, 1, nullptr, nullptr);
  ASSERT_EQ(tovik_fetchcur(cursor), 1);
  ASSERT_EQ(use_statement(stmt, 0), 0);
  // Another thread is inside a call at the moment of the fork.
  std::atomic<bool> done{false};
  int acknowledged = 0;
  Session writer(params_);
  const auto all_refused = [&](int code_of_statements, int code_of_records) {
    for (int call = 0; call < statement_calls; ++call)
      if (use_statement(stmt, call) != -1 || error_code() != code_of_statements) return 1 + call;
    for (int call = 0; call < cursor_calls; ++call)
      if (use_cursor(cursor, call) != -1 || (tovik_geterr() != code_of_records && tovik_geterr() != 202116))
        return 20 + call;
    for (int call = 0; call < records_calls; ++call)
      if (use_records(records, call) != -1 || tovik_geterr() != code_of_records) return 30 + call;
    return kld_api_create_stmt(statements) == nullptr && error_code() == code_of_statements ? 0 : 40;
  };
  const auto close_all = [&] {
    kld_api_clear_stmt(stmt);
    kld_api_destroy_stmt(stmt);
    kld_api_close_db(statements);
    tovik_closecur(cursor);
    tovik_close(records);
  };
  kld_api_clear_stmt(stmt);
  tovik_closecur(cursor);
  std::thread inserts([&] {
    for (; !done; usleep(1000))
      if (writer.run("INSERT INTO t VALUES 5") == 0) ++acknowledged;
  });
  for (int round = 0; round < 5; ++round) {
    EXPECT_EQ(in_child([&] {
                if (const int wrong = all_refused(190010, 202101)) return wrong;
                if (open_statements() != nullptr || error_code() != 190010) return 41;
                if (kld_cmd_exec(nullptr, 2, params_.c_str(), "ECHO 1") != -1) return 42;
                close_all();
                kld_api_end();
                return 0;
              }),
              0);
    EXPECT_EQ(in_child([&] {
                if (kld_api_init("") != 0) return 50;
                if (const int wrong = all_refused(190001, 202115)) return wrong;
                close_all();
                Session own(params_);
                int code = 140003;
                while (code == 140003) code = own.run("INSERT INTO t VALUES 6");
                return code == 0 ? 0 : 51;
              }),
              0);
  }
  done = true;
  inserts.join();
  EXPECT_EQ(count(), 2 + acknowledged + 5);
  EXPECT_EQ(use_statement(stmt, 0), 0) << "the parent's handles go on";
  EXPECT_EQ(use_records(records, 1), 1);
  close_all();
}

// A parent in a transaction, with rows not yet read and a pool of its own.
TEST(ForkedProcess, LeavesTheParentAlone) {
  const Library library("HVI_MEM_LIMIT_SIZE=8");
  TestDatabase db("LOCK_RETRY=0;BEGIN_RETRY=0");
  ASSERT_EQ(db.run("CREATE TABLE t (a int)"), 0);
  ASSERT_EQ(db.run("INSERT INTO t VALUES 1, 2, 3"), 0);
  ASSERT_EQ(db.run("BEGIN WORK"), 0);
  ASSERT_EQ(db.run("INSERT INTO t VALUES 4"), 0);
  kld_stmt *stmt = db.session().statement();
  ASSERT_EQ(kld_api_pre_stmt_char(stmt, "SELECT a FROM t"), 0);
  ASSERT_EQ(kld_api_exec_stmt(stmt), 0);
  ASSERT_EQ(kld_api_fetch_stmt(stmt), 1);
  const auto write = [&](int expected) {
    if (kld_api_init("HVI_MEM_LIMIT_SIZE=8") != 0) return 1;
    Session own(db.params());
    const int code = own.run("INSERT INTO t VALUES 9");
    return code == expected ? 0 : 2;
  };
  EXPECT_EQ(in_child([&] {
              kld_api_destroy_stmt(stmt);
              kld_api_close_db(db.handle());
              return write(140003);
            }),
            0)
      << "the parent's lock stands";
  EXPECT_EQ(kld_api_fetch_stmt(stmt), 1);
  kld_api_clear_stmt(stmt);
  EXPECT_EQ(db.run("COMMIT WORK"), 0);
  EXPECT_EQ(in_child([&] { return write(0); }), 0);
  EXPECT_EQ(db.rows("SELECT a FROM t"), "1;2;3;4;9");
  const pid_t idle = fork();  // has the parent's descriptors as long as it lives
  if (idle == 0) pause();
  db.close();
  EXPECT_EQ(kld_api_remove_db(db.params().c_str()), 0) << error_code();
  kill(idle, SIGKILL);
  waitpid(idle, nullptr, 0);
}

}  // namespace
}  // namespace tovik::test
