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

// A statement, and the committed state before and after it.
struct Step {
  std::string sql;
  bool direct;        // its own changes may be half made
  size_t begin, end;  // operations in the log before and after it
  std::string before, after;

  // Commits and direct changes are looked at closely.
  bool closely() const { return direct || sql.starts_with("COMMIT"); }
};

// What the statements do, step by step, to the database on the disk. One that fails leaves the state as it
// was, unless a transaction is open.
std::vector<Step> steps_of(const std::string &params, const Statements &statements, bool may_fail) {
  std::vector<Step> steps;
  Session session(params);
  std::string state = database_text(session);
  bool in_transaction = false, direct = false;
  for (const std::string &sql : statements) {
    Step step = {sql,  direct && !sql.starts_with("ALTER"), fault_driver::log().operations.size(), 0, state,
                 state};
    const StatusCode status = session.run(sql);
    EXPECT_TRUE(status == 0 || may_fail) << sql << ": " << status;
    step.end = fault_driver::log().operations.size();
    in_transaction = sql.starts_with("BEGIN") ||
                     (in_transaction && !sql.starts_with("COMMIT") && !sql.starts_with("ROLLBACK"));
    direct |= sql.starts_with("SET HVI_AUTO_COMMIT");
    if (!in_transaction) step.after = state = database_text(session);
    steps.push_back(step);
  }
  EXPECT_EQ(database_fault(session), "");
  return steps;
}

class CrashTest : public testing::TestWithParam<Setting> {
 protected:
  // Runs the statements on a new database and stops the machine after every operation.
  void examine(const Statements &statements, bool may_fail) {
    fault_driver::load(made_database(params_, {}));
    const std::vector<Step> steps = steps_of(params_, statements, may_fail);
    const DiskLog log = fault_driver::log();
    Examination examination(params_, random_);
    StoppedDisk disk(log.base);
    size_t position = 0;
    const auto stop = [&](const Step &step, const char *when) {
      disk.each_image(random_, step.closely() ? 40 : 2, step.closely() ? 4 : 1,
                      [&](const std::string &how, const DiskImage &image) {
                        SCOPED_TRACE(when + step.sql + "\nstopped after operation " +
                                     std::to_string(position) + ", " + how);
                        examination.examine(image, random_.one_in(step.closely() ? 5 : 20));
                      });
    };
    for (const Step &step : steps) {
      examination.allow(step.before, step.after);
      for (; position < step.end; ++position) {
        disk.apply(log.operations[position]);
        if (!step.direct && position >= step.begin) stop(step, "within ");
      }
      examination.allow(step.after, step.after);
      stop(step, "after ");
    }
    printf("%zu disk operations, %d images\n", log.operations.size(), examination.images());
  }

  const Engine engine_{GetParam().library};
  const std::string params_ = GetParam().params;
  Random random_;
};

// At its end, changes outside a transaction make the saved storage stale: no crash after them brings the
// blocks of the earlier commit back.
TEST_P(CrashTest, EveryCallOfAWorkload) {
  examine(Statements{"BEGIN TRANSACTION", "ROLLBACK TRANSACTION"} + schema() + person_rows(0, 16) +
              Statements{
                  "UPDATE person SET note = 'a longer text that needs chunks of its own' WHERE id = 2",
                  "DELETE FROM person WHERE id = 3",
                  "CREATE TABLE account (number int AUTO_INCREMENT, balance bigint)",
                  "INSERT INTO account (balance) VALUES 100, 200, 300",
                  "BEGIN TRANSACTION",
              } +
              person_rows(20, 20) +
              Statements{
                  "UPDATE person SET name = 'moved' WHERE id < 4 OR id > 30",
                  "DELETE FROM person WHERE id > 5 AND id < 12",
                  "COMMIT TRANSACTION",
                  "BEGIN TRANSACTION",
                  "DROP TABLE person",
                  "ROLLBACK TRANSACTION",
                  "CREATE INDEX account_balance ON account (balance)",
                  "ALTER TABLE person ADD age int BEFORE name",
                  "RENAME TABLE account TO purse",
                  "DROP INDEX person_name",
                  "EMPTY TABLE person",
                  "DROP TABLE person",
                  "UPDATE purse SET balance = 400",
                  "SET HVI_AUTO_COMMIT 'OFF'",
                  "ALTER TABLE purse ADD owner text",
                  "UPDATE purse SET balance = 500 WHERE number > 1",
                  "DELETE FROM purse WHERE number = 2",
              },
          false);
}

TEST_P(CrashTest, RandomWorkload) {
  Statements statements;
  bool in_transaction = false;
  for (int i = 0; i < 60; ++i) {
    statements.push_back(random_statement(random_));
    if (!random_.one_in(4)) continue;
    statements.push_back(!in_transaction     ? "BEGIN TRANSACTION"
                         : random_.one_in(4) ? "ROLLBACK TRANSACTION"
                                             : "COMMIT TRANSACTION");
    in_transaction = !in_transaction;
  }
  if (in_transaction) statements.push_back("COMMIT TRANSACTION");
  examine(statements, true);
}

// Until creation returns there may be no database, but afterwards there is one, and what a stopped creation
// leaves can be replaced.
TEST_P(CrashTest, EveryCallOfCreation) {
  fault_driver::load({});
  ASSERT_EQ(kld_api_create_db(params_.c_str()), 0);
  const DiskLog log = fault_driver::log();
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
  each_stop(log, random_, 3, 1, look);
  complete = true;
  StoppedDisk(log).each_image(random_, 3, 1, look);
}

INSTANTIATE_TEST_SUITE_P(Settings, CrashTest, testing::ValuesIn(settings), testing::PrintToStringParamName());

}  // namespace
}  // namespace tovik::test
