// The machine stops at every call that changes the disk; whatever it leaves, the database opens again with
// exactly the state before or after the change in progress, and everything inside agrees.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string_view>

#include "engine.h"
#include "fault_driver.h"

namespace tovik::test {
namespace {

const std::string database = "NAME=t;DRV_NO=101;BLOCK_SIZE=1024;";
const std::string small_caches = database + "CACHE_SIZE_DAT=6;CACHE_SIZE_TRN=6";
const std::string large_caches = database + "CACHE_SIZE_DAT=1000;CACHE_SIZE_TRN=1000";

struct Setting {
  const char *name;
  std::string library, params;
};

void PrintTo(const Setting &setting, std::ostream *out) {
  *out << setting.name;
}

const Setting settings[] = {
    {"History", "", large_caches},
    {"HistorySmallCaches", "", small_caches},
    {"ReusedStorage", "HVI_TRAN_HISTORY=0", small_caches},
    {"FreshStorage", "HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF", small_caches},
    {"KeptHistory", "HVI_TRAN_HISTORY=1;HVI_TRAN_HISTORY_SAVE=ON", small_caches},
    {"LargeBlocks", "", small_caches + ";BLOCK_SIZE=4096"},
    {"OneStorage", "", small_caches + ";TYPE2=RAW;SIZE_DAT=80B;SIZE_TRN=60B"},
};

// A run recorded: what the disk did, and the committed state after each step.
struct Step {
  std::string sql;
  size_t begin, end;  // operations in the log before and after it
  std::string before, after;
};

struct Recording {
  DiskLog log;
  std::vector<Step> steps;
};

// A statement that fails leaves the state as it was, unless a transaction is open.
Recording record(const std::string &params, const DiskImage &image, const Statements &statements,
                 bool may_fail = false) {
  Recording run;
  fault_driver::load(image);
  {
    Session session(params);
    std::string state = database_text(session);
    bool in_transaction = false;
    for (const std::string &sql : statements) {
      Step step = {sql, fault_driver::log().operations.size(), 0, state, state};
      const StatusCode status = session.run(sql);
      EXPECT_TRUE(status == 0 || may_fail) << sql << ": " << status;
      step.end = fault_driver::log().operations.size();
      in_transaction = sql.starts_with("BEGIN") ||
                       (in_transaction && !sql.starts_with("COMMIT") && !sql.starts_with("ROLLBACK"));
      if (!in_transaction) step.after = state = database_text(session);
      run.steps.push_back(step);
    }
    EXPECT_EQ(database_fault(session), "");
  }
  run.log = fault_driver::log();
  return run;
}

// Opens what machines that stopped have left, and looks.
class Examination {
 public:
  Examination(const std::string &params, Random &random) : params_(params), random_(random) {}

  // The states allowed in the images examined from here on.
  void allow(const std::string &before, const std::string &after) {
    if (before == before_ && after == after_) return;
    before_ = before;
    after_ = after;
    seen_.clear();
  }

  void examine(const DiskImage &image, bool stop_recovery) {
    if (testing::Test::HasFailure() || !seen_.insert(hash(image)).second) return;
    ++images_;
    fault_driver::load(image);
    DiskLog recovery;
    look(stop_recovery ? &recovery : nullptr);
    each_stop(recovery, random_, 2, 1, [&](const std::string &how, const DiskImage &left) {
      SCOPED_TRACE("recovery " + how);
      examine(left, false);
    });
  }

  int images() const { return images_; }

 private:
  static size_t hash(const DiskImage &image) {
    size_t hash = 0;
    for (const auto &[name, bytes] : image)
      for (const std::string_view part :
           {std::string_view(name), {reinterpret_cast<const char *>(bytes.data()), bytes.size()}})
        hash = hash * 0x9E3779B97F4A7C15U + std::hash<std::string_view>()(part);
    return hash;
  }

  // On a full disk the completion of a commit may have to wait, but not longer than for room.
  void look(DiskLog *recovery) {
    if (random_.one_in(4)) {
      fault_driver::fill_disk(0);
      const Session waits_perhaps(params_);
      fault_driver::heal();
    }
    Session session(params_);
    ASSERT_TRUE(session.open()) << session.open_status();
    const std::string state = database_text(session);
    if (state != after_) {
      ASSERT_EQ(state, before_) << "or:\n" << after_;
    }
    ASSERT_EQ(database_fault(session), "");
    if (recovery != nullptr) *recovery = fault_driver::log();
    if (!random_.one_in(8)) return;
    ASSERT_EQ(session.run("CREATE TABLE later (x int)"), 0);
    ASSERT_EQ(database_fault(session), "");
  }

  std::string params_;
  Random &random_;
  std::string before_, after_;
  std::set<size_t> seen_;
  int images_ = 0;
};

struct Thoroughness {
  int singles;  // unflushed changes that are lost, torn or kept one by one
  int randoms;
  int recoveries;                 // one image in so many has its recovery stopped too
  bool within_statements = true;  // else the machine stops only when one has ended
};

// Runs the statements and stops the machine after every operation.
void examine_run(const std::string &params, const DiskImage &base, const Statements &statements,
                 const Thoroughness &thoroughness, bool may_fail = false) {
  const Recording run = record(params, base, statements, may_fail);
  Random random;
  Examination examination(params, random);
  StoppedDisk disk(run.log.base);
  size_t position = 0;
  const auto stop = [&](const std::string &sql) {
    disk.each_image(
        random, thoroughness.singles, thoroughness.randoms,
        [&](const std::string &how, const DiskImage &image) {
          SCOPED_TRACE(sql + "\nstopped after operation " + std::to_string(position) + ", " + how);
          examination.examine(image, random.one_in(thoroughness.recoveries));
        });
  };
  for (const Step &step : run.steps) {
    examination.allow(step.before, step.after);
    for (; position < step.end; ++position) {
      disk.apply(run.log.operations[position]);
      if (thoroughness.within_statements && position >= step.begin) stop(step.sql);
    }
    examination.allow(step.after, step.after);
    stop("after " + step.sql);
  }
  printf("%zu disk operations, %d images\n", run.log.operations.size(), examination.images());
}

class CrashTest : public testing::TestWithParam<Setting> {
 protected:
  const Engine engine_{GetParam().library};
  const std::string params_ = GetParam().params;
};

TEST_P(CrashTest, EveryCallOfACommit) {
  examine_run(params_, made_database(params_, schema() + person_rows(0, 40)),
              Statements{"BEGIN TRANSACTION"} + person_rows(100, 12) +
                  Statements{"UPDATE person SET name = 'other' WHERE id < 12",
                             "DELETE FROM person WHERE id > 30 AND id < 36", "COMMIT TRANSACTION"},
              {.singles = 1000, .randoms = 4, .recoveries = 5});
}

TEST_P(CrashTest, EveryCallOfAWorkload) {
  const Statements statements =
      Statements{"BEGIN TRANSACTION", "ROLLBACK TRANSACTION"} + schema() + person_rows(0, 6) +
      Statements{
          "UPDATE person SET note = 'a longer text that needs chunks of its own to be stored' WHERE id = 2",
          "DELETE FROM person WHERE id = 3",
          "CREATE TABLE account (number int AUTO_INCREMENT, balance bigint)",
          "INSERT INTO account (balance) VALUES 100, 200, 300",
          "BEGIN TRANSACTION",
      } +
      person_rows(10, 40) +
      Statements{
          "UPDATE person SET name = 'moved' WHERE id > 30",
          "COMMIT TRANSACTION",
          "BEGIN TRANSACTION",
          "DROP TABLE person",
          "ROLLBACK TRANSACTION",
          "CREATE INDEX account_balance ON account (balance)",
          "RENAME TABLE account TO purse",
          "DROP INDEX person_name",
          "EMPTY TABLE person",
          "DROP TABLE person",
      };
  examine_run(params_, made_database(params_, {}), statements,
              {.singles = 3, .randoms = 1, .recoveries = 20});
}

TEST_P(CrashTest, RandomWorkload) {
  Random random;
  Statements statements;
  bool in_transaction = false;
  for (int i = 0; i < 60; ++i) {
    statements.push_back(random_statement(random));
    if (!random.one_in(4)) continue;
    statements.push_back(!in_transaction    ? "BEGIN TRANSACTION"
                         : random.one_in(4) ? "ROLLBACK TRANSACTION"
                                            : "COMMIT TRANSACTION");
    in_transaction = !in_transaction;
  }
  if (in_transaction) statements.push_back("COMMIT TRANSACTION");
  examine_run(params_, made_database(params_, {}), statements, {.singles = 2, .randoms = 1, .recoveries = 20},
              true);
}

// Each growth of a file finds the disk full in turn, and so do all later ones: the statement that meets it
// says what became of it, the database stays readable all the time, and goes on when there is room.
TEST_P(CrashTest, FullDiskAtEveryGrowth) {
  const DiskImage base = made_database(params_, schema() + person_rows(0, 20));
  const Recording run = record(
      params_, base,
      person_rows(100, 4) +
          Statements{"UPDATE person SET note = note || 'longer than it was before'", "BEGIN TRANSACTION"} +
          person_rows(200, 12) +
          Statements{"DELETE FROM person WHERE id > 100", "COMMIT TRANSACTION",
                     "CREATE INDEX person_note ON person (id, name)",
                     "CREATE TABLE other (a int AUTO_INCREMENT, b text)", "DROP INDEX person_name",
                     "DROP TABLE person"});
  Random random;
  Examination examination(params_, random);
  const auto look = [&](const Step &step, const std::string &expected, Session &session) {
    ASSERT_TRUE(session.open()) << step.sql << ": " << session.open_status();
    ASSERT_EQ(database_text(session), expected) << step.sql;
    ASSERT_EQ(database_fault(session), "") << step.sql;
  };
  int growths = -1;
  for (bool met = true; met && !HasFailure();) {
    SCOPED_TRACE(++growths);
    met = false;
    fault_driver::load(base);
    fault_driver::fill_disk(growths);
    const Step *step;
    std::string expected;
    {
      Session session(params_);
      for (step = run.steps.data(); step != run.steps.data() + run.steps.size() && !met; ++step) {
        const StatusCode status = session.run(step->sql);
        met = status != 0;
        expected = !met || status == status::tran_apply ? step->after : step->before;
      }
      --step;
      if (met) (void)session.run("ROLLBACK TRANSACTION");
      look(*step, expected, session);
    }
    const DiskLog log = fault_driver::log();
    for (const bool full : {true, false}) {
      if (!full) fault_driver::heal();
      Session session(params_);
      look(*step, expected, session);
      if (!full) {
        ASSERT_EQ(session.run("CREATE TABLE later (x int)"), 0);
      }
    }
    examination.allow(expected, expected);
    StoppedDisk(log).each_image(random, 2, 1, [&](const std::string &how, const DiskImage &image) {
      SCOPED_TRACE("after " + step->sql + ", " + how);
      examination.examine(image, random.one_in(4));
    });
  }
  printf("%d growths, %d images\n", growths, examination.images());
}

// Until creation returns there may be no database, but afterwards there is one, and what a stopped creation
// leaves can be replaced.
TEST_P(CrashTest, EveryCallOfCreation) {
  fault_driver::load({});
  ASSERT_EQ(kld_api_create_db(params_.c_str()), 0);
  const DiskLog log = fault_driver::log();
  Random random;
  bool complete = false;
  const auto look = [&](const std::string &how, const DiskImage &image) {
    SCOPED_TRACE(how);
    fault_driver::load(image);
    {
      Session session(params_);
      const bool usable = session.open() && database_text(session).empty() && database_fault(session).empty();
      EXPECT_TRUE(usable || !complete) << session.open_status();
    }
    EXPECT_EQ(kld_api_create_db((params_ + ";OVERWRITE=true").c_str()), 0) << error_code();
    Session session(params_);
    EXPECT_TRUE(session.open()) << session.open_status();
    EXPECT_EQ(database_fault(session), "");
  };
  each_stop(log, random, 3, 1, look);
  complete = true;
  StoppedDisk(log).each_image(random, 3, 1, look);
}

INSTANTIATE_TEST_SUITE_P(Settings, CrashTest, testing::ValuesIn(settings),
                         [](const auto &setting) { return setting.param.name; });

// A change outside a transaction makes the saved storage stale: no crash after the change brings the blocks
// of the earlier commit back.
TEST(Crash, SavedStorageIsNotAppliedOverNewerBlocks) {
  const Engine engine("HVI_TRAN_HISTORY=1");
  examine_run(small_caches, made_database(small_caches, schema() + person_rows(0, 20)),
              {"UPDATE person SET name = 'committed'", "SET HVI_AUTO_COMMIT 'OFF'",
               "UPDATE person SET name = 'direct' WHERE id < 10", "DELETE FROM person WHERE id = 15"},
              {.singles = 1000, .randoms = 4, .recoveries = 1, .within_statements = false});
}

}  // namespace
}  // namespace tovik::test
