// Every call of the storage driver fails in turn, once or from then on. Whatever fails, the statement tells
// or succeeds, and afterwards, in the same process, after reopening, and after a crash on top, the database
// holds the state before or after the statement; the state after it if the statement succeeded.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "engine.h"

namespace tovik::test {
namespace {

const std::string database =
    "NAME=t;DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=24;CACHE_SIZE_TRN=24;CACHE_RTS=0;LOCK_RETRY=2;LOCK_"
    "SLEEP=1;"
    "BEGIN_RETRY=2;BEGIN_SLEEP=1";

struct Setting {
  const char *name;
  std::string library;
};

void PrintTo(const Setting &setting, std::ostream *out) {
  *out << setting.name;
}

const Setting settings[] = {
    {"History", ""},
    {"ReusedStorage", "HVI_TRAN_HISTORY=0"},
    {"FreshStorage", "HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF"},
};

// What is done before the failure, and the statement that meets it.
struct Victim {
  Statements before;
  std::string statement;
};

const Victim victims[] = {
    {{},
     "INSERT INTO person VALUES 100, 'new', 'a text long enough for chunks of its own in the overflow rows'"},
    {{}, "UPDATE person SET name = 'other', note = 'short' WHERE id < 10"},
    {{}, "DELETE FROM person WHERE name = 'name 3'"},
    {{}, "CREATE TABLE other (a int, b text)"},
    {{}, "CREATE INDEX person_note ON person (id, name)"},
    {{}, "DROP TABLE person"},
    {{"BEGIN TRANSACTION", "UPDATE person SET name = 'other'", "DROP INDEX person_name"},
     "COMMIT TRANSACTION"},
    {{"BEGIN TRANSACTION", "UPDATE person SET name = 'other'", "DROP INDEX person_name"},
     "ROLLBACK TRANSACTION"},
};

class IoFailureTest : public testing::TestWithParam<Setting> {
 protected:
  IoFailureTest() { fault_driver::install(); }
};

// The states that a database may show: one of the two, until something has told which.
class Expected {
 public:
  Expected(std::string before, std::string after) : before_(std::move(before)), after_(std::move(after)) {}

  void settle_after() { before_ = after_; }
  void look(Session &session) {
    ASSERT_TRUE(session.open()) << session.open_status();
    const std::string state = database_text(session);
    if (state != after_) {
      ASSERT_EQ(state, before_) << "or:\n" << after_;
    }
    before_ = after_ = state;
    ASSERT_EQ(database_fault(session), "");
  }
  void look_after_opening() {
    Session session(database);
    look(session);
  }

 private:
  std::string before_, after_;
};

void expect_writable(Session &session) {
  EXPECT_EQ(session.run("CREATE TABLE probe (a int)"), 0);
  EXPECT_EQ(session.run("DROP TABLE probe"), 0);
}

void look_after_crash(const DiskLog &log, const Expected &expected) {
  StoppedDisk disk(log.base);
  for (const DiskOperation &operation : log.operations) disk.apply(operation);
  Random random;
  disk.each_image(random, 2, 1, [&](const std::string &how, const DiskImage &image) {
    if (testing::Test::HasFatalFailure()) return;
    SCOPED_TRACE("the machine stopped after that, " + how);
    fault_driver::load(image);
    Expected(expected).look_after_opening();
  });
}

// Runs the victim with one call failing; false when it makes fewer calls.
bool run_victim(const DiskImage &base, const Victim &victim, int call, Failure how, Expected expected) {
  fault_driver::load(base);
  auto session = std::make_unique<Session>(database);
  for (const std::string &sql : victim.before) EXPECT_EQ(session->run(sql), 0) << sql;
  fault_driver::fail_call(call, how);
  const StatusCode status = session->run(victim.statement);
  const std::string failed = fault_driver::failed_call();
  fault_driver::heal();
  SCOPED_TRACE(victim.statement + "\ncall " + std::to_string(call) + " failed " + failure_text(how) + ": " +
               failed + "; status " + std::to_string(status));
  EXPECT_NE(status, -1) << "failed without a status";
  if (status == 0) expected.settle_after();
  const DiskLog log = fault_driver::log();
  Expected now = expected;
  now.look(*session);
  expect_writable(*session);
  session.reset();
  now.look_after_opening();
  look_after_crash(log, expected);
  return !failed.empty();
}

TEST_P(IoFailureTest, EveryCallOfAStatement) {
  const Engine engine(GetParam().library);
  const DiskImage base = made_database(database, schema() + person_rows(0, 30));
  for (const Victim &victim : victims) {
    fault_driver::load(base);
    std::string before, after;
    {
      Session session(database);
      before = database_text(session);
      for (const std::string &sql : victim.before) ASSERT_EQ(session.run(sql), 0) << sql;
      ASSERT_EQ(session.run(victim.statement), 0) << victim.statement;
      after = database_text(session);
    }
    for (const Failure how : {Failure::once, Failure::from_then_on}) {
      int call = 1;
      while (run_victim(base, victim, call, how, {before, after}) && !HasFailure()) ++call;
      printf("%3d calls failed %s: %s\n", call - 1, failure_text(how), victim.statement.c_str());
      if (HasFailure()) return;
    }
  }
}

// Opens image with one call of the opening failing; false when it makes fewer calls.
bool open_with_failure(const DiskImage &image, int call, Failure how, Expected expected) {
  fault_driver::load(image);
  fault_driver::fail_call(call, how);
  auto session = std::make_unique<Session>(database);
  const std::string failed = fault_driver::failed_call();
  fault_driver::heal();
  SCOPED_TRACE("call " + std::to_string(call) + " of the opening failed " + failure_text(how) + ": " +
               failed + "; status " + std::to_string(session->open_status()));
  EXPECT_TRUE(session->open() || session->open_status() != 0) << "failed without a status";
  if (session->open()) {
    expected.look(*session);
    expect_writable(*session);
  }
  session.reset();
  expected.look_after_opening();
  return !failed.empty();
}

TEST_P(IoFailureTest, EveryCallOfOpeningAndRecovery) {
  const Engine engine(GetParam().library);
  const DiskImage base = made_database(database, schema() + person_rows(0, 30));
  fault_driver::load(base);
  std::string before, after;
  {
    Session session(database);
    before = database_text(session);
    ASSERT_EQ(session.run("UPDATE person SET name = 'other'"), 0);
    after = database_text(session);
  }
  const DiskLog log = fault_driver::log();
  const size_t step = log.operations.size() / 6;
  StoppedDisk disk(log.base);
  Random random;
  for (size_t position = 0; position < log.operations.size(); ++position) {
    disk.apply(log.operations[position]);
    if (position % step != 0) continue;
    disk.each_image(random, 0, 0, [&](const std::string &what, const DiskImage &image) {
      SCOPED_TRACE("stopped after operation " + std::to_string(position) + ", " + what);
      for (const Failure how : {Failure::once, Failure::from_then_on}) {
        int call = 1;
        while (!HasFailure() && open_with_failure(image, call, how, {before, after})) ++call;
      }
    });
  }
}

TEST_P(IoFailureTest, EveryCallOfClosing) {
  const Engine engine(GetParam().library);
  const DiskImage base = made_database(database, schema() + person_rows(0, 30));
  for (const Failure how : {Failure::once, Failure::from_then_on}) {
    bool failed = true;
    for (int call = 1; failed; ++call) {
      fault_driver::load(base);
      std::string state;
      {
        Session session(database);
        ASSERT_EQ(session.run("UPDATE person SET name = 'other'"), 0);
        state = database_text(session);
        ASSERT_EQ(session.run("BEGIN TRANSACTION"), 0);
        ASSERT_EQ(session.run("UPDATE person SET name = 'never committed'"), 0);
        fault_driver::fail_call(call, how);
      }
      SCOPED_TRACE("call " + std::to_string(call) + " of the close failed " + failure_text(how) + ": " +
                   fault_driver::failed_call());
      failed = !fault_driver::failed_call().empty();
      fault_driver::heal();
      Expected(state, state).look_after_opening();
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Settings, IoFailureTest, testing::ValuesIn(settings),
                         [](const auto &setting) { return setting.param.name; });

}  // namespace
}  // namespace tovik::test
