// Every allocation fails in turn, once or from then on. Whatever fails, the call tells so with status 1 or
// does without, nothing leaks, and afterwards the database holds the state before or after the call.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>

#include "engine.h"
#include "fault_memory.h"
#include "frame/error.h"
#include "platform/platform.h"

namespace tovik::test {
namespace {

const std::string database =
    "NAME=t;DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=24;CACHE_SIZE_TRN=24;CACHE_RTS=0;LOCK_RETRY=2;LOCK_"
    "SLEEP=1;"
    "BEGIN_RETRY=2;BEGIN_SLEEP=1";

// What is done before the failure, and the statement that meets it. A query is fetched to its end.
struct Victim {
  Statements before;
  std::string statement;
};

const Victim victims[] = {
    {{},
     "SELECT p.id, q.note FROM person p, person q WHERE p.id = q.id AND q.name = 'name 2' ORDER BY p.note "
     "DESC"},
    {{}, "SELECT DISTINCT name FROM person WHERE id IN (3, 10, 11) AND note LIKE '%d%'"},
    {{}, "SELECT COUNT(*), MAX(id), AVG(id) FROM person"},
    {{},
     "INSERT INTO person VALUES 100, 'new', 'a text long enough for chunks of its own in the overflow rows'"},
    {{}, "UPDATE person SET name = 'other', note = note || ' and more' WHERE id < 10"},
    {{}, "DELETE FROM person WHERE name = 'name 3'"},
    {{}, "CREATE TABLE other (a int AUTO_INCREMENT, b text)"},
    {{}, "CREATE INDEX person_note ON person (id, name)"},
    {{}, "DROP INDEX person_name"},
    {{}, "RENAME TABLE person TO people"},
    {{}, "EMPTY TABLE person"},
    {{}, "DROP TABLE person"},
    {{}, "BEGIN TRANSACTION"},
    {{"BEGIN TRANSACTION", "UPDATE person SET name = 'other'", "DROP INDEX person_name"},
     "COMMIT TRANSACTION"},
    {{"BEGIN TRANSACTION", "UPDATE person SET name = 'other'", "DROP INDEX person_name"},
     "ROLLBACK TRANSACTION"},
    {{}, "DESCRIBE person ALL"},
    {{}, "INFO CHECK person"},
};

// A lock object is an allocation too, and has a status of its own.
bool tells_of_memory(StatusCode first) {
  if (first == status::out_of_memory || first == status::lock_create) return true;
  const ErrorRecord &record = error_record();
  for (int i = 0; i < std::min(record.count, error_entry_limit); ++i)
    if (record.entries[i].code == status::out_of_memory) return true;
  return false;
}

int silent_print(const char *, ...) {
  return 0;
}

class AllocFailureTest : public testing::Test {
 protected:
  AllocFailureTest() {
    fault_driver::install();
    print_ = system_driver.print;
    system_driver.print = silent_print;
  }
  ~AllocFailureTest() override { system_driver.print = print_; }

 private:
  decltype(system_driver.print) print_;
};

StatusCode perform(Session &session, const std::string &statement) {
  if (!statement.starts_with("SELECT")) return session.run(statement);
  std::string rows;
  return session.query(statement, &rows);
}

void look(Session &session, std::string *before, std::string *after) {
  ASSERT_TRUE(session.open()) << session.open_status();
  const std::string state = database_text(session);
  if (state != *after) {
    ASSERT_EQ(state, *before) << "or:\n" << *after;
  }
  ASSERT_EQ(database_fault(session), "");
  *before = *after = state;
}

// Runs call with every allocation failing in turn until it makes no more; it must check for itself.
int fail_every_allocation(CountedMemory &memory, const std::function<void(int call, Failure how)> &run) {
  int count = 0;
  for (const Failure how : {Failure::once, Failure::from_then_on}) {
    for (int call = 1;; ++call) {
      SCOPED_TRACE("allocation " + std::to_string(call) + " failed " + failure_text(how));
      const int blocks = memory.blocks();
      run(call, how);
      EXPECT_EQ(memory.blocks(), blocks) << "blocks leaked";
      if (testing::Test::HasFailure()) return count;
      if (!memory.failed()) break;
      ++count;
    }
  }
  return count;
}

TEST_F(AllocFailureTest, EveryAllocationOfAStatement) {
  CountedMemory memory;
  const Engine engine("");
  const DiskImage base = made_database(database, schema() + person_rows(0, 30));
  for (const Victim &victim : victims) {
    SCOPED_TRACE(victim.statement);
    fault_driver::load(base);
    std::string before, after;
    {
      Session session(database);
      before = database_text(session);
      for (const std::string &sql : victim.before) ASSERT_EQ(session.run(sql), 0) << sql;
      ASSERT_EQ(perform(session, victim.statement), 0);
      after = database_text(session);
    }
    const int count = fail_every_allocation(memory, [&](int call, Failure how) {
      std::string possible[2] = {before, after};
      fault_driver::load(base);
      {
        Session session(database);
        for (const std::string &sql : victim.before) ASSERT_EQ(session.run(sql), 0) << sql;
        memory.fail(call, how);
        const StatusCode status = perform(session, victim.statement);
        memory.heal();
        EXPECT_TRUE(status == 0 || tells_of_memory(status)) << status;
        if (status == 0) possible[0] = after;
        if (victim.statement == "BEGIN TRANSACTION" && status == 0) {
          ASSERT_EQ(session.run("ROLLBACK TRANSACTION"), 0);
        }
        look(session, &possible[0], &possible[1]);
        ASSERT_EQ(session.run("CREATE TABLE probe (a int)"), 0);
        ASSERT_EQ(session.run("DROP TABLE probe"), 0);
      }
      Session session(database);
      look(session, &possible[0], &possible[1]);
    });
    printf("%3d allocations failed: %s\n", count, victim.statement.c_str());
    if (HasFailure()) return;
  }
}

// Opening includes the completion of a commit that was cut short.
TEST_F(AllocFailureTest, EveryAllocationOfOpeningAndRecovery) {
  CountedMemory memory;
  const Engine engine("");
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
      (void)fail_every_allocation(memory, [&](int call, Failure how) {
        std::string possible[2] = {before, after};
        fault_driver::load(image);
        {
          memory.fail(call, how);
          Session session(database);
          memory.heal();
          EXPECT_TRUE(session.open() || tells_of_memory(session.open_status())) << session.open_status();
          if (session.open()) look(session, &possible[0], &possible[1]);
        }
        Session session(database);
        look(session, &possible[0], &possible[1]);
      });
    });
    if (HasFailure()) return;
  }
}

TEST_F(AllocFailureTest, EveryAllocationOfCreation) {
  CountedMemory memory;
  const Engine engine("");
  fail_every_allocation(memory, [&](int call, Failure how) {
    fault_driver::load({});
    memory.fail(call, how);
    const int created = kld_api_create_db(database.c_str());
    memory.heal();
    if (created != 0) {
      EXPECT_TRUE(tells_of_memory(first_status())) << first_status();
      ASSERT_EQ(kld_api_create_db((database + ";OVERWRITE=true").c_str()), 0) << first_status();
    }
    std::string empty;
    Session session(database);
    look(session, &empty, &empty);
  });
}

TEST_F(AllocFailureTest, EveryAllocationOfClosing) {
  CountedMemory memory;
  const Engine engine("");
  const DiskImage base = made_database(database, schema() + person_rows(0, 30));
  fail_every_allocation(memory, [&](int call, Failure how) {
    fault_driver::load(base);
    std::string state;
    {
      Session session(database);
      state = database_text(session);
      ASSERT_EQ(session.run("BEGIN TRANSACTION"), 0);
      ASSERT_EQ(session.run("DELETE FROM person"), 0);
      memory.fail(call, how);
    }
    memory.heal();
    Session session(database);
    look(session, &state, &state);
  });
}

}  // namespace
}  // namespace tovik::test
