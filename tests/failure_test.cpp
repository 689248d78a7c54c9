// Every call of the storage driver, or every allocation, fails in turn, once or from then on, or the disk is
// full from one growth on. Whatever fails, the call tells or succeeds, nothing leaks, and afterwards, in the
// same process, after reopening, and after a crash on top, the database holds the state before or after the
// call; the state after it if it succeeded.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <thread>

#include "engine.h"
#include "fault_memory.h"
#include "frame/error.h"
#include "storage/io/io.h"
#include "tovik.h"

namespace tovik::test {
namespace {

struct Setting {
  const char *name;
  bool of_memory;
  const char *library;
};

void PrintTo(const Setting &setting, std::ostream *out) {
  *out << setting.name;
}

// Few pages are in the caches, so that changes are cut short within.
const std::string database =
    "NAME=t;DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=6;CACHE_SIZE_TRN=6;CACHE_RTS=0;LOCK_RETRY=2;"
    "LOCK_SLEEP=1;BEGIN_RETRY=2;BEGIN_SLEEP=1";

const Setting settings[] = {
    {"Allocations", true, ""},
    {"CallsWithHistory", false, ""},
    {"CallsWithReusedStorage", false, "HVI_TRAN_HISTORY=0;HVI_CACHE_SIZE_TMP=2"},
    {"CallsWithFreshStorage", false, "HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF"},
    {"CallsWithoutLocks", false, "HVI_LOCK_DISABLE=ON"},
};

// The record interface on a connection of its own: a row, and rows read back.
const std::string by_records = "one insertion and reads by records";
int perform_by_records() {
  tovik_colval values[2];
  tovik_cond cond;
  tovik_order order;
  tovik_setcol_i32(&values[0], "id", 100);
  tovik_setcol_wchar(&values[1], "name", reinterpret_cast<const uint16_t *>(u"new"));
  tovik_range_i32(&cond, "id", 5, 1, 15, 1);
  tovik_sort(&order, 1, "name", 1);
  tovik_db *db = tovik_open("t", database.c_str());
  int code = db == nullptr ? tovik_geterr() : 0;
  if (code == 0 && tovik_insert(db, "person", values, 2) != 0) code = tovik_geterr();
  const char *tables[] = {"person"}, *distinct[] = {"name"};
  for (int columns = 0; columns <= 1 && code == 0; ++columns) {
    tovik_cur *cursor = tovik_opencur_dist(db, tables, 1, &cond, &order, distinct, columns);
    tovik_value value;
    int fetched = -1;
    while (cursor != nullptr && (fetched = tovik_fetchcur(cursor)) == 1)
      if (tovik_getcol(cursor, "name", TOVIK_WCHAR, &value) < 0) break;
    if (fetched != 0) code = tovik_geterr();
    tovik_closecur(cursor);
  }
  tovik_close(db);
  return code;
}

// What is done before the failure, and the statement that meets it. A query is fetched to its end.
struct Victim {
  Statements before;
  std::string statement;
};

const std::string closing = "the end of the connection";
std::string many_rows() {
  std::string sql = "INSERT INTO person VALUES ";
  for (int id = 100; id < 160; ++id)
    sql += (id > 100 ? ", " : "") + std::to_string(id) + ", 'name " + std::to_string(id) + "', NULL";
  return sql;
}

// A transaction in which the indices have some levels.
const Statements begun = {"BEGIN TRANSACTION", many_rows()};
const Statements changes = {"BEGIN TRANSACTION", "UPDATE person SET name = 'other'",
                            "DROP INDEX person_name"};

// Alone, and in a transaction that is committed after it.
const std::string all_changes[] = {
    "INSERT INTO person VALUES 99, 'new', 'a text long enough for chunks of its own in the overflow'",
    "UPDATE person SET name = 'other', note = note || ' and more' WHERE id < 10",
    "UPDATE person SET note = 'short' WHERE id < 10",
    "UPDATE person SET name = 'other' WHERE id > 120",
    "DELETE FROM person WHERE id > 20 AND id < 140",
    "CREATE TABLE other (a int AUTO_INCREMENT, b text)",
    "CREATE INDEX person_note ON person (id, name)",
    "DROP INDEX person_name",
    "ALTER TABLE person ADD number int AUTO_INCREMENT BEFORE name",
    "RENAME TABLE person TO people",
    "EMPTY TABLE person",
    "DROP TABLE person"};

std::vector<Victim> victims() {
  std::vector<Victim> all = {
      {{},
       "SELECT p.id, q.note FROM person p, person q WHERE p.id = q.id AND q.name = 'name 2' ORDER BY p.note "
       "DESC"},
      {{}, "SELECT DISTINCT name FROM person WHERE id IN (3, 10, 11) AND name BETWEEN 'name 2' AND 'name 4'"},
      {{}, "SELECT note, COUNT(*), MAX(id) FROM person GROUP BY note, name HAVING AVG(id) > 2 ORDER BY note"},
      {{},
       "SELECT id FROM person p WHERE name > ANY (SELECT q.name FROM person q WHERE q.id < 5) AND EXISTS "
       "(SELECT * FROM person q WHERE q.name = p.name AND q.id = (SELECT MAX(r.id) FROM person r))"},
      {{}, "DELETE FROM person WHERE id IN (SELECT id + 1 FROM person WHERE name = 'name 2')"},
      {{}, "SELECT * FROM person DUMP INTO 'rows'"},
      {{"SELECT id + 50 AS id, name, note FROM person DUMP INTO 'rows'"}, "INSERT INTO person FROM 'rows'"},
      {{}, "DESCRIBE person ALL"},
      {{}, "INFO CHECK person"},
      {{}, by_records},
      {{}, "BEGIN TRANSACTION"},
      {changes, "COMMIT TRANSACTION"},
      {changes, "ROLLBACK TRANSACTION"},
      {changes, closing}};
  for (const std::string &change : all_changes)
    for (const Statements &before : {Statements(), begun}) all.push_back({before, change});
  return all;
}

StatusCode perform(std::optional<Session> &session, const std::string &statement) {
  if (statement == by_records) return perform_by_records();
  if (statement == closing) return session.reset(), 0;
  if (!statement.starts_with("SELECT") || statement.ends_with("'rows'")) return session->run(statement);
  std::string rows;
  return session->query(statement, &rows);
}

// The states that a database may show: one of the two, until something has told which.
struct Expected {
  std::string before, after;

  // What a statement says of itself is the truth.
  void told(StatusCode status) {
    if (status == 0 || status == status::tran_apply)
      before = after;
    else if (status != status::tran_trn_remove)
      after = before;
  }
  void look(Session &session) {
    ASSERT_TRUE(session.open()) << session.open_status();
    const std::string state = database_text(session);
    if (state != after) {
      ASSERT_EQ(state, before) << "or:\n" << after;
    }
    before = after = state;
    ASSERT_EQ(database_fault(session), "");
  }
  void look_and_go_on(Session &session) {
    look(session);
    ASSERT_EQ(session.run("CREATE TABLE probe (a int)"), 0);
    ASSERT_EQ(session.run("DROP TABLE probe"), 0);
  }
  void look_after_opening() {
    Session session(database);
    look(session);
  }
};

void look_after_crash(const DiskLog &log, const Expected &expected) {
  Random random;
  StoppedDisk(log).each_image(random, 2, 1, [&](const std::string &how, const DiskImage &image) {
    if (testing::Test::HasFatalFailure()) return;
    SCOPED_TRACE("the machine stopped after that, " + how);
    fault_driver::load(image);
    Expected(expected).look_after_opening();
  });
}

class FailureTest : public testing::TestWithParam<Setting> {
 protected:
  // Runs work for each call or allocation until it makes no more; it calls arm() where they begin to fail
  // and heal() where that ends.
  template <class Work>
  void fail_each(const char *what, Work work) {
    int count = 0;
    for (const std::optional<Failure> how : {std::optional(Failure::once), {Failure::from_then_on}, {}})
      for (number_ = 1, how_ = how; fills_disk() <= !GetParam().of_memory; ++number_, ++count) {
        const int blocks = memory_.blocks();
        SCOPED_TRACE(std::string(what) + "\ncall " + std::to_string(number_) + " fails " +
                     (how ? failure_text(*how) : "on a full disk"));
        work();
        EXPECT_EQ(memory_.blocks(), blocks) << "blocks leaked";
        if (HasFailure()) ADD_FAILURE() << "after the failure of: " << failed_;
        if (HasFailure()) return;
        if (failed_.empty()) break;
      }
    printf("%3d failures: %s\n", count, what);
  }
  void arm() {
    if (fills_disk())
      fault_driver::fill_disk(number_ - 1);
    else if (GetParam().of_memory)
      memory_.fail(number_, *how_);
    else
      fault_driver::fail_call(number_, *how_);
  }
  void heal() {
    memory_.heal();
    failed_ = memory_.failed() ? "an allocation" : fault_driver::failed_call();
    fault_driver::heal();
  }

  bool fails_on() const { return how_ == Failure::from_then_on; }
  bool fills_disk() const { return !how_.has_value(); }

  // A failure has a status; that of an allocation tells of it. A lock object is an allocation too, and has a
  // status of its own, and so has the memory of the record interface.
  void expect_told(StatusCode first) {
    EXPECT_NE(first, -1) << "failed without a status";
    last_statuses_.insert(error_record().last_code);
    if (first == 0 || !GetParam().of_memory || first == status::lock_create ||
        first == status::record_api_memory)
      return;
    bool told = first == status::out_of_memory;
    const ErrorRecord &record = error_record();
    for (int i = 0; i < std::min(record.count, error_entry_limit); ++i)
      told |= record.entries[i].code == status::out_of_memory;
    EXPECT_TRUE(told) << first;
  }

  // Commits what a statement did in a transaction. One that failed keeps what it did until then, whole in
  // itself, or the transaction can only be rolled back.
  void commit(Session &session, StatusCode status, Expected &expected) {
    const StatusCode committed = session.run("COMMIT TRANSACTION");
    if (!fills_disk()) {
      EXPECT_TRUE(committed == 0 || (status != 0 && committed == status::tran_bad_state)) << committed;
    }
    if (committed != 0) (void)session.run("ROLLBACK TRANSACTION");
    if (status != 0 && committed == 0)
      expected.before = expected.after = database_text(session);
    else
      expected.told(committed);
  }

  // A full disk stays so for a while, in which everything can be read.
  void meet_failure(const Victim &victim, Expected expected) {
    fault_driver::load(base_);
    DiskLog log;
    {
      std::optional<Session> session(database);
      for (const std::string &sql : victim.before) ASSERT_EQ(session->run(sql), 0) << sql;
      arm();
      const StatusCode status = perform(session, victim.statement);
      if (!fills_disk()) heal();
      expect_told(status);
      if (status == 0 && victim.statement == "BEGIN TRANSACTION") {
        ASSERT_EQ(session->run("ROLLBACK TRANSACTION"), 0);
      }
      if (victim.before == begun)
        commit(*session, status, expected);
      else if (status == 0 || victim.statement != by_records)
        expected.told(status);
      log = fault_driver::log();
      if (session && !fills_disk()) Expected(expected).look_and_go_on(*session);
      if (session && fills_disk()) Expected(expected).look(*session);
    }
    if (fills_disk()) {
      Expected(expected).look_after_opening();
      heal();
      Session session(database);
      Expected(expected).look_and_go_on(session);
    }
    Expected(expected).look_after_opening();
    if (!GetParam().of_memory && victim.before != begun) look_after_crash(log, expected);
  }

  // What a victim does when nothing fails.
  Expected outcome(const Victim &victim) {
    Expected expected;
    fault_driver::load(base_);
    std::optional<Session> session(database);
    expected.before = database_text(*session);
    for (const std::string &sql : victim.before) EXPECT_EQ(session->run(sql), 0) << sql;
    EXPECT_EQ(perform(session, victim.statement), 0) << victim.statement;
    expected.after = victim.statement == closing ? expected.before : database_text(*session);
    return expected;
  }

  const bool locks_ = strstr(GetParam().library, "LOCK_DISABLE") == nullptr;
  CountedMemory memory_;
  std::set<StatusCode> last_statuses_;
  const Silence silence_;
  const Engine engine_{GetParam().library};
  const SlotGuard<IoDriver> files_{file_driver, *added_drivers[fault_driver::number - added_driver_base]};
  const DiskImage base_ = made_database(database, schema() + person_rows(0, 30));

 private:
  int number_ = 0;
  std::optional<Failure> how_;  // without: the disk is full
  std::string failed_;
};

TEST_P(FailureTest, EveryFailureOfAStatement) {
  for (const Victim &victim : victims()) {
    if (victim.statement == by_records && !locks_) continue;  // which no other connection can do without
    const Expected possible = outcome(victim);
    const std::string what = victim.statement.substr(0, 80) + (victim.before == begun ? ", then COMMIT" : "");
    fail_each(what.c_str(), [&] { meet_failure(victim, possible); });
    if (HasFailure()) return;
  }
  // A sort says so when it cannot read its rows, behind the cause.
  EXPECT_TRUE(last_statuses_.contains(status::sort_read) || GetParam().of_memory || !locks_);
}

// Opening includes the completion of a commit that was cut short.
TEST_P(FailureTest, EveryFailureOfOpeningAndRecovery) {
  const Expected possible = outcome({{}, "UPDATE person SET name = 'other'"});
  const DiskLog log = fault_driver::log();
  Random random;
  const auto open = [&](const std::string &what, const DiskImage &image) {
    if (HasFailure()) return;
    fail_each(what.c_str(), [&] {
      Expected expected = possible;
      fault_driver::load(image);
      {
        arm();
        Session session(database);
        heal();
        expect_told(session.open_status());
        EXPECT_TRUE(session.open() || session.open_status() != 0) << "failed without a status";
        if (session.open()) expected.look_and_go_on(session);
      }
      expected.look_after_opening();
    });
  };
  each_stop(log, random, 0, 0, open, log.operations.size() / 6);
}

TEST_P(FailureTest, EveryFailureOfCreation) {
  fail_each("creation", [&] {
    fault_driver::load({});
    arm();
    const int created = kld_api_create_db(database.c_str());
    heal();
    if (created != 0) {
      const StatusCode status = error_code();
      EXPECT_NE(status, 0);
      expect_told(status);
      // Only what cannot be removed stays.
      const bool clean = fault_driver::content().empty();
      EXPECT_TRUE(clean || fails_on()) << "a creation that failed left a file";
      ASSERT_EQ(kld_api_create_db((database + (clean ? "" : ";OVERWRITE=true")).c_str()), 0) << error_code();
    }
    Expected().look_after_opening();
  });
}

// What a change outside a transaction could not write is not written while somebody else reads.
TEST(DirectChange, IsFinishedUnderTheExclusiveLevel) {
  const Silence silence;
  const Engine engine("HVI_AUTO_COMMIT=OFF");
  const DiskImage base = made_database(database, schema() + person_rows(0, 30));
  int refused = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE(call);
    fault_driver::load(base);
    Session session(database), reader(session.database());
    fault_driver::fail_call(call, Failure::once);
    (void)session.run("UPDATE person SET name = 'other' WHERE id < 20");
    if (fault_driver::failed_call().empty()) break;
    fault_driver::heal();
    std::thread([&] {
      ASSERT_EQ(kld_api_pre_stmt_char(reader.statement(), "SELECT * FROM person"), 0) << error_code();
    }).join();
    const size_t operations = fault_driver::log().operations.size();
    const int begun = session.run("BEGIN TRANSACTION");
    if (begun == status::database_busy) {
      EXPECT_EQ(fault_driver::log().operations.size(), operations) << "the file changed under a reader";
      ++refused;
    } else {
      EXPECT_EQ(begun, 0);
      EXPECT_EQ(session.run("ROLLBACK TRANSACTION"), 0);
    }
    kld_api_clear_stmt(reader.statement());
    EXPECT_EQ(session.run("BEGIN TRANSACTION"), 0);
    EXPECT_EQ(session.run("ROLLBACK TRANSACTION"), 0);
  }
  EXPECT_GT(refused, 0);
}

INSTANTIATE_TEST_SUITE_P(Settings, FailureTest, testing::ValuesIn(settings),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tovik::test
