// Handles of both interfaces: in any order, from several threads, and in a process that fork made.
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "record_support.h"

namespace tovik::test {
namespace {

const char *const table[] = {"t"};
char text[64];
const char *found;
int32_t length;

// One database in files, open through any number of handles. Whoever meets another's hold fails at once.
class Handles : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kld_api_init("HVI_TRAN_SYNC=OFF"), 0);
    ASSERT_EQ(kld_api_create_db(params_.c_str()), 0);
    Session session(params_);
    ASSERT_EQ(session.run("CREATE TABLE t (a int)") | session.run("INSERT INTO t VALUES 1, 2"), 0);
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

enum Kind { statements, statement, records, cursor };
// What a handle gives that ended or is none of its kind.
const int refused[] = {190001, 190001, 202115, 202116};

// A handle that was given out, and whether it still stands.
struct Given {
  Kind kind;
  void *handle;
  bool live;
  void *database;  // of a statement or a cursor
};

// The calls that use a handle; before anything else they check it.
int (*const statement_calls[])(kld_stmt *) = {
    [](kld_stmt *stmt) { return kld_api_pre_stmt_char(stmt, "SELECT a, 1 / (a - 1) FROM t ORDER BY a"); },
    [](kld_stmt *stmt) { return kld_api_pre_stmt_char(stmt, "SELECT SUM(1 / (a - 1)) FROM t"); },
    [](kld_stmt *stmt) { return kld_api_exec_stmt(stmt); },
    [](kld_stmt *stmt) { return kld_api_fetch_stmt(stmt); },
    [](kld_stmt *stmt) { return kld_api_get_data(stmt, 1, 99, nullptr, 0, nullptr, nullptr); },
    [](kld_stmt *stmt) { return kld_api_get_cols_count(stmt, nullptr); },
    [](kld_stmt *stmt) {
      return kld_api_get_cols_desc(stmt, 1, nullptr, 0, nullptr, nullptr, nullptr, nullptr);
    },
    [](kld_stmt *stmt) { return kld_api_exec_sql_wchar(stmt, wide(u"INSERT INTO t VALUES 3")); },
    [](kld_stmt *stmt) { return kld_api_exec_sql_char(stmt, "DELETE FROM t WHERE a = 3"); },
};
int (*const records_calls[])(tovik_db *) = {
    [](tovik_db *db) { return tovik_begin(db); },
    [](tovik_db *db) { return tovik_commit(db); },
    [](tovik_db *db) { return tovik_rollback(db); },
    [](tovik_db *db) { return tovik_execsql_char(db, "INSERT INTO t VALUES 4"); },
    [](tovik_db *db) { return tovik_execsql_wchar(db, wide(u"DELETE FROM t WHERE a = 4")); },
    [](tovik_db *db) { return tovik_insert(db, nullptr, nullptr, 1); },
    [](tovik_db *db) { return tovik_update(db, nullptr, nullptr, 1, nullptr); },
    [](tovik_db *db) { return tovik_delete(db, nullptr, nullptr); },
    [](tovik_db *db) { return tovik_createtbl(db, nullptr, nullptr, 0); },
    [](tovik_db *db) { return tovik_createtbl_ex(db, nullptr, nullptr, 1, nullptr); },
    [](tovik_db *db) { return tovik_droptbl(db, nullptr); },
    [](tovik_db *db) { return tovik_createidx(db, nullptr, nullptr, 1, nullptr, 0, 0); },
    [](tovik_db *db) { return tovik_dropidx(db, nullptr); },
    [](tovik_db *db) { return tovik_gettbllst(db, nullptr, 0); },
    [](tovik_db *db) { return tovik_getcolilst(db, nullptr, nullptr, 0); },
    [](tovik_db *db) { return tovik_opencur(db, nullptr, 0, nullptr, nullptr) == nullptr ? -1 : 0; },
    [](tovik_db *db) {
      return tovik_opencur_dist(db, nullptr, 0, nullptr, nullptr, nullptr, 0) == nullptr ? -1 : 0;
    },
    [](tovik_db *db) { return tovik_selectsql_char(db, nullptr) == nullptr ? -1 : 0; },
};
int (*const cursor_calls[])(tovik_cur *) = {
    [](tovik_cur *cursor) { return tovik_fetchcur(cursor); },
    [](tovik_cur *cursor) { return tovik_getcol(cursor, nullptr, 99, nullptr); },
    [](tovik_cur *cursor) { return tovik_getcol_double(cursor, nullptr, nullptr); },
    [](tovik_cur *cursor) { return tovik_getcol_binary(cursor, "a", text, sizeof text, &length); },
    [](tovik_cur *cursor) { return tovik_getcol_ibuf_char(cursor, "a", &found, &length); },
};

int use(Kind kind, void *handle, size_t call) {
  if (kind == statement)
    return statement_calls[call % std::size(statement_calls)](static_cast<kld_stmt *>(handle));
  if (kind == records) return records_calls[call % std::size(records_calls)](static_cast<tovik_db *>(handle));
  return cursor_calls[call % std::size(cursor_calls)](static_cast<tovik_cur *>(handle));
}
void close(Kind kind, void *handle) {
  if (kind == statements) kld_api_close_db(static_cast<kld_db *>(handle));
  if (kind == statement) kld_api_destroy_stmt(static_cast<kld_stmt *>(handle));
  if (kind == records) tovik_close(static_cast<tovik_db *>(handle));
  if (kind == cursor) tovik_closecur(static_cast<tovik_cur *>(handle));
}

TEST_F(Handles, RandomOrders) {
  Random random;
  std::vector<Given> given;
  const auto add = [&](Kind kind, void *handle, void *database) {
    for (const Given &old : given) EXPECT_NE(old.handle, handle) << "given out before";
    if (handle != nullptr) given.push_back({kind, handle, true, database});
  };
  // A handle of the kind, or, now and then, of another one or null.
  const auto some = [&](Kind kind) {
    Given one = {kind, nullptr, false, nullptr};
    for (int tries = random.one_in(4) ? random.below(2) : 50; tries > 0 && !given.empty(); --tries) {
      one = given[static_cast<size_t>(random.below(static_cast<int>(given.size())))];
      if (one.kind == kind) return one;
    }
    one.live = false;
    return one;
  };
  const auto live = [&](Kind kind) {
    return std::count_if(given.begin(), given.end(),
                         [&](const Given &one) { return one.live && one.kind == kind; });
  };
  for (int step = 0; step < 2000 && !HasFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    const Kind kind = static_cast<Kind>(random.below(4)), owner = kind <= statement ? statements : records;
    const Given one = some(kind), database = some(owner);
    if (random.one_in(200)) {
      kld_api_end();
      for (Given &each : given) each.live = false;
      ASSERT_EQ(tovik_init("HVI_TRAN_SYNC=OFF"), 0);
    } else if (kind == owner && live(kind) < 3 && random.one_in(3)) {
      add(kind, kind == statements ? static_cast<void *>(open_statements()) : open_records(), nullptr);
    } else if (kind != owner && live(kind) < 8 && random.one_in(3)) {
      tovik_db *const db = static_cast<tovik_db *>(database.handle);
      void *made = kind == statement
                       ? static_cast<void *>(kld_api_create_stmt(static_cast<kld_db *>(database.handle)))
                   : random.one_in(2) ? tovik_opencur(db, table, 1, nullptr, nullptr)
                                      : tovik_selectsql_char(db, "SELECT a FROM t");
      EXPECT_EQ(made == nullptr ? error_code() : 0, database.live ? 0 : refused[owner]);
      add(kind, made, database.handle);
    } else if (kind == statement && random.one_in(10)) {
      kld_api_clear_stmt(static_cast<kld_stmt *>(one.handle));
    } else if (random.one_in(8)) {
      const int code = error_code();
      if (random.one_in(4)) {
        std::thread(close, kind, one.handle).join();
      } else {
        close(kind, one.handle);
      }
      EXPECT_EQ(one.live ? code : error_code(), code) << "of the call before";
      for (Given &each : given)
        if (one.live && (each.handle == one.handle || each.database == one.handle)) each.live = false;
    } else if (kind != statements) {
      const int result = use(kind, one.handle, random.next());
      EXPECT_EQ(result < 0 && error_code() == refused[kind], !one.live)
          << kind << " " << result << error_code();
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
    kld_db *statements_db = open_statements();
    tovik_db *records_db = open_records();
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i)
      threads.emplace_back([&] {
        kld_stmt *made[3];
        tovik_cur *cursors[3];
        for (int each = 0; each < 3; ++each) {
          EXPECT_NE(made[each] = kld_api_create_stmt(statements_db), nullptr);
          EXPECT_EQ(use(statement, made[each], 0), 0) << error_code();
          EXPECT_NE(cursors[each] = tovik_opencur(records_db, table, 1, nullptr, nullptr), nullptr);
        }
        for (++ready; ready < thread_count;) std::this_thread::yield();
        for (int each = 0; each < 3; ++each) {
          if (each == 1) kld_api_clear_stmt(made[each]);
          kld_api_destroy_stmt(made[each]);
          tovik_closecur(cursors[each]);
        }
      });
    while (ready < thread_count) std::this_thread::yield();
    kld_api_close_db(statements_db);
    tovik_close(records_db);
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
  kld_db *statements_db = open_statements();
  kld_stmt *stmt = kld_api_create_stmt(statements_db);
  tovik_db *records_db = open_records();
  tovik_cur *rows = tovik_opencur(records_db, table, 1, nullptr, nullptr);
  ASSERT_EQ(tovik_fetchcur(rows), 1);
  ASSERT_EQ(use(statement, stmt, 0), 0);
  // Another thread is inside a call at the moment of the fork.
  std::atomic<bool> done{false};
  int acknowledged = 0;
  Session writer(params_);
  const auto all_refused = [&](int by_statements, int by_records) {
    for (size_t call = 0; call < 20; ++call) {
      if (use(statement, stmt, call) != -1 || error_code() != by_statements) return 1;
      if (use(cursor, rows, call) != -1 || (error_code() != by_records && error_code() != refused[cursor]))
        return 2;
      if (use(records, records_db, call) != -1 || error_code() != by_records) return 3;
    }
    return kld_api_create_stmt(statements_db) == nullptr && error_code() == by_statements ? 0 : 4;
  };
  const auto close_all = [&] {
    kld_api_clear_stmt(stmt);
    kld_api_destroy_stmt(stmt);
    kld_api_close_db(statements_db);
    tovik_closecur(rows);
    tovik_close(records_db);
  };
  kld_api_clear_stmt(stmt);
  tovik_closecur(rows);
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
  EXPECT_EQ(use(statement, stmt, 0), 0) << "the parent's handles go on";
  EXPECT_EQ(use(records, records_db, 0), 0);
  close_all();
}

// A parent in a transaction, with rows not yet read and a pool of its own.
TEST(ForkedProcess, LeavesTheParentAlone) {
  const Library library("HVI_MEM_LIMIT_SIZE=8");
  TestDatabase db("LOCK_RETRY=0;BEGIN_RETRY=0");
  for (const char *sql :
       {"CREATE TABLE t (a int)", "INSERT INTO t VALUES 1, 2, 3", "BEGIN WORK", "INSERT INTO t VALUES 4"})
    ASSERT_EQ(db.run(sql), 0) << sql;
  std::string rows;
  Session &reader = db.session();
  ASSERT_EQ(reader.prepare("SELECT a FROM t") | reader.execute() | reader.fetch_all(&rows, 1), 0);
  const auto write = [&](int expected) {
    if (kld_api_init("HVI_MEM_LIMIT_SIZE=8") != 0) return 1;
    Session own(db.params());
    const int code = own.run("INSERT INTO t VALUES 9");
    return code == expected ? 0 : 2;
  };
  EXPECT_EQ(in_child([&] {
              kld_api_destroy_stmt(reader.statement());
              kld_api_close_db(db.handle());
              return write(140003);
            }),
            0)
      << "the parent's lock stands";
  EXPECT_EQ(reader.fetch_all(&rows), 0);
  EXPECT_EQ(rows, "1;2;3;4");
  kld_api_clear_stmt(reader.statement());
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
