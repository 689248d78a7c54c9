// Work that goes on while calls of the driver and allocations fail here and there: after each unit of work
// the database holds the state before or after it, as a second database that meets no failures tells, and at
// the end the machine stops.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <sstream>

#include "engine.h"
#include "fault_memory.h"

namespace tovik::test {
namespace {

const std::string options =
    ";DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=6;CACHE_SIZE_TRN=6;CACHE_RTS=0;LOCK_RETRY=2;LOCK_SLEEP=0;"
    "BEGIN_RETRY=2;BEGIN_SLEEP=0";
const std::string no_failure = "no failure";
const std::string subject = "NAME=t" + options;
const std::string model = "NAME=model" + options;

// Statements that take effect together or not at all.
Statements random_unit(Random &random) {
  Statements unit = {random_statement(random)};
  if (random.one_in(2)) return unit;
  for (int more = random.below(5); more > 0; --more) unit.push_back(random_statement(random));
  unit.insert(unit.begin(), "BEGIN TRANSACTION");
  unit.push_back("COMMIT TRANSACTION");
  return unit;
}

// The content of a database without the order of its tables and rows: work that is undone in one database and
// not in the other can change which slots are free, and so where later rows go.
std::string unordered_text(Session &session) {
  std::istringstream text(database_text(session));
  std::multiset<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.insert(line);
  std::string result;
  for (const std::string &line : lines) result += line + "\n";
  return result;
}

class RandomFailureTest : public testing::TestWithParam<const char *> {
 protected:
  // Arms one kind of failure for the next calls; a word about it.
  std::string arm() {
    if (random_.one_in(3)) return no_failure;
    const Failure how = random_.one_in(2) ? Failure::once : Failure::from_then_on;
    const int call = 1 + random_.below(random_.one_in(2) ? 20 : 100);
    const bool of_driver = random_.one_in(2);
    if (of_driver)
      fault_driver::fail_call(call, how);
    else
      memory_.fail(call, how);
    return std::string(of_driver ? "driver call " : "allocation ") + std::to_string(call) + " fails " +
           failure_text(how);
  }
  void heal() {
    fault_driver::heal();
    memory_.heal();
  }

  // Whether every statement had the outcome that the model says. One that has not ends the unit.
  bool run_unit(Session &session, const Statements &unit, const std::vector<StatusCode> &outcomes) {
    for (size_t i = 0; i < unit.size(); ++i) {
      const StatusCode status = session.run(unit[i]);
      if (status == outcomes[i]) continue;
      unexpected_ =
          std::to_string(status) + " for " + std::to_string(outcomes[i]) + ": " + unit[i].substr(0, 60);
      if (unit.size() > 1) roll_back(session);
      return false;
    }
    return true;
  }

  // A rollback that fails for the failure of the moment is repeated when that is over.
  void roll_back(Session &session) {
    if (session.run("ROLLBACK TRANSACTION") == 0) return;
    heal();
    (void)session.run("ROLLBACK TRANSACTION");
  }

  // Whatever the disk keeps of what was not flushed, the subject shows state. Afterwards everything is kept.
  void stop_machine(const std::string &state) {
    const DiskImage content = fault_driver::content();
    const DiskLog log = fault_driver::log();
    StoppedDisk(log).each_image(random_, 3, 3, [&](const std::string &how, const DiskImage &image) {
      if (HasFatalFailure()) return;
      SCOPED_TRACE("the machine stopped, " + how);
      fault_driver::load(image);
      Session session(subject);
      ASSERT_TRUE(session.open()) << session.open_status();
      ASSERT_EQ(unordered_text(session), state);
      ASSERT_EQ(database_fault(session), "");
    });
    fault_driver::load(content);
  }

  std::string unexpected_;
  CountedMemory memory_;
  Random random_;
};

TEST_P(RandomFailureTest, RandomUnits) {
  const int blocks = memory_.blocks();
  {
    const Engine engine(GetParam());
    (void)made_database(subject, {});
    create_database(model, {});
    fault_driver::load(fault_driver::content());
    auto session = std::make_unique<Session>(subject);
    auto reference = std::make_unique<Session>(model);
    std::string state;
    int failed = 0, after_failure = 0;
    const int rounds = 1000 * scale();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
      const Statements unit = random_unit(random_);
      std::vector<StatusCode> outcomes;
      if (unit.size() == 1) {
        ASSERT_EQ(reference->run("BEGIN TRANSACTION"), 0);
      }
      for (const std::string &sql : unit)
        outcomes.push_back(sql.starts_with("COMMIT") ? 0 : reference->run(sql));
      // Alone, a statement that fails leaves nothing; inside a transaction, what it did before stays.
      const bool nothing = unit.size() == 1 && outcomes[0] != 0;
      const std::string after = nothing ? state : unordered_text(*reference);

      const std::string what = arm();
      const bool done = run_unit(*session, unit, outcomes);
      heal();
      std::string trace = "round " + std::to_string(round) + ", " + what;
      for (const std::string &sql : unit) trace += "\n" + sql.substr(0, 100);
      SCOPED_TRACE(trace);
      EXPECT_TRUE(done || what != no_failure) << unexpected_;
      if (random_.one_in(10)) {
        session.reset();
        session = std::make_unique<Session>(subject);
        ASSERT_TRUE(session->open()) << session->open_status();
      }
      const std::string now = unordered_text(*session);
      if (now != after) {
        ASSERT_EQ(now, state) << "or:\n" << after;
        ASSERT_FALSE(done);
      }
      ASSERT_EQ(database_fault(*session), "");
      if (!done) ++failed;
      if (!done && now == after) ++after_failure;
      const bool keep = now == after && !nothing;
      ASSERT_EQ(reference->run(keep ? "COMMIT TRANSACTION" : "ROLLBACK TRANSACTION"), 0);
      state = now;
      if (!random_.one_in(20)) continue;
      session.reset();
      reference.reset();
      stop_machine(state);
      session = std::make_unique<Session>(subject);
      reference = std::make_unique<Session>(model);
    }
    printf("%d of %d units failed, %d of them took effect\n", failed, rounds, after_failure);
  }
  EXPECT_EQ(memory_.blocks(), blocks) << "blocks leaked";
}

INSTANTIATE_TEST_SUITE_P(Settings, RandomFailureTest,
                         testing::Values("", "HVI_TRAN_HISTORY=0",
                                         "HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF"));

}  // namespace
}  // namespace tovik::test
