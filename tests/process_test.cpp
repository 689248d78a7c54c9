// Several processes and threads on one database: who sees what while a transaction is open, and what is left
// of the work of processes that are killed at any moment.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <optional>
#include <thread>

#include "engine.h"
#include "platform/platform.h"

namespace tovik::test {
namespace {

// Kills the process at the n-th call that changes a file, once armed.
int calls_until_kill = 0;

template <auto slot, class Result, class... Arguments>
void count_calls(Result (*now)(Arguments...)) {
  static Result (*const original)(Arguments...) = now;
  file_driver.*slot = [](Arguments... arguments) {
    if (calls_until_kill > 0 && --calls_until_kill == 0) raise(SIGKILL);
    return original(arguments...);
  };
}

// A process of its own with the database open, that answers commands: SQL (the status, then the rows of a
// SELECT), "text", "fault", "kill N" (at the Nth call from now on that changes a file).
class Process {
 public:
  explicit Process(const std::string &params) {
    int down[2], up[2];
    if (pipe(down) != 0 || pipe(up) != 0) abort();
    pid_ = fork();
    commands_ = fdopen(down[pid_ == 0 ? 0 : 1], pid_ == 0 ? "r" : "w");
    answers_ = fdopen(up[pid_ == 0 ? 1 : 0], pid_ == 0 ? "w" : "r");
    close(down[pid_ == 0 ? 1 : 0]);
    close(up[pid_ == 0 ? 0 : 1]);
    if (pid_ == 0) serve(params);
    EXPECT_EQ(get(answers_), "0 opened");
  }
  ~Process() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    fclose(commands_);
    fclose(answers_);
  }
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;

  // The answer, or nothing when the process died over it. It is then dead altogether: its answers end before
  // the system has let go of its locks, and until then others rightly take it for a living writer.
  std::optional<std::string> ask(const std::string &command) {
    put(commands_, command);
    std::optional<std::string> answer = get(answers_);
    if (!answer.has_value()) {
      kill(pid_, SIGKILL);
      siginfo_t died;
      waitid(P_PID, static_cast<id_t>(pid_), &died, WEXITED | WNOWAIT);
    }
    return answer;
  }

  static std::string answer(Session &session, const std::string &command) {
    if (command == "text") return database_text(session);
    if (command == "fault") return database_fault(session);
    if (command.starts_with("kill ")) {
      calls_until_kill = atoi(command.c_str() + 5);
      return "armed";
    }
    if (!command.starts_with("SELECT")) return std::to_string(session.run(command));
    std::string rows;
    const StatusCode status = session.query(command, &rows);
    return std::to_string(status) + " " + rows;
  }

  static void count_all_calls() {
    count_calls<&IoDriver::file_write>(file_driver.file_write);
    count_calls<&IoDriver::file_sync>(file_driver.file_sync);
    count_calls<&IoDriver::file_truncate>(file_driver.file_truncate);
    count_calls<&IoDriver::file_remove>(file_driver.file_remove);
    count_calls<&IoDriver::file_rename>(file_driver.file_rename);
    count_calls<&IoDriver::file_unlock>(file_driver.file_unlock);
  }

 private:
  // Texts end with a NUL.
  static void put(FILE *file, const std::string &text) {
    fwrite(text.c_str(), 1, text.size() + 1, file);
    fflush(file);
  }
  static std::optional<std::string> get(FILE *file) {
    std::string text;
    int c;
    while ((c = getc(file)) > 0) text += static_cast<char>(c);
    return c == 0 ? std::optional(text) : std::nullopt;
  }

  [[noreturn]] void serve(const std::string &params) {
    count_all_calls();
    const Engine engine("");
    Session session(params);
    put(answers_, std::to_string(session.open_status()) + " opened");
    while (const std::optional<std::string> command = get(commands_))
      put(answers_, answer(session, *command));
    _exit(0);
  }

  pid_t pid_;
  FILE *commands_, *answers_;
};

class ProcessTest : public testing::Test {
 protected:
  ProcessTest() { signal(SIGPIPE, SIG_IGN); }

  std::string params() const {
    return "NAME=t;PATH=" + dir_.path() +
           ";CACHE_SIZE_DAT=40;CACHE_SIZE_TRN=40;LOCK_RETRY=3000;LOCK_SLEEP=1;";
  }
  void create(const Statements &statements) {
    const Engine engine("");
    create_database(params(), statements);
  }

 private:
  TempDir dir_;
};

TEST_F(ProcessTest, OthersSeeTheCommittedStateAndASecondWriterGivesUp) {
  create({"CREATE TABLE t (id int, v int)", "CREATE UNIQUE INDEX t_id ON t (id)",
          "INSERT INTO t VALUES 1, 10, 2, 20"});
  const std::string hasty = params() + "BEGIN_RETRY=3;BEGIN_SLEEP=1";
  Process process(hasty);  // before this process has threads
  const Engine engine("");
  Session writer(hasty);
  ASSERT_TRUE(writer.open()) << writer.open_status();
  const auto expect_of_others = [&](const std::string &sql, const std::string &answer) {
    std::thread([&] {
      Session session(writer.database());
      EXPECT_EQ(Process::answer(session, sql), answer) << sql;
    }).join();
    EXPECT_EQ(process.ask(sql), answer) << sql;
  };
  const std::string all = "SELECT id, v FROM t";

  for (const char *sql : {"BEGIN TRANSACTION", "UPDATE t SET v = v + 1", "INSERT INTO t VALUES 3, 30",
                          "CREATE TABLE fresh (a int)"})
    ASSERT_EQ(writer.run(sql), 0) << sql;
  expect_of_others(all, "0 1,10;2,20");
  expect_of_others("SELECT * FROM fresh", "141004 ");
  expect_of_others("UPDATE t SET v = 0", std::to_string(status::database_busy));
  EXPECT_EQ(Process::answer(writer, all), "0 1,11;2,21;3,30");

  ASSERT_EQ(writer.run("COMMIT TRANSACTION"), 0);
  expect_of_others(all, "0 1,11;2,21;3,30");
  expect_of_others("SELECT v FROM t WHERE id = 3", "0 30");
  expect_of_others("SELECT * FROM fresh", "0 ");
}

// What another process has open stays, until that closes it or dies. One that is killed anywhere on the way
// of a removal or a replacement leaves the old database, the new one, or what counts as none.
TEST_F(ProcessTest, OpenDatabasesStayUntilTheirHolderDies) {
  const auto create_again = [&] { create({"CREATE TABLE t (id int)", "INSERT INTO t VALUES 1"}); };
  create_again();
  const Engine engine("");
  const std::string overwrite = params() + "OVERWRITE=true";
  const auto remove = [&] { return kld_api_remove_db(params().c_str()) == 0 ? 0 : error_code(); };
  const auto replace = [&] { return kld_api_create_db(overwrite.c_str()) == 0 ? 0 : error_code(); };
  {
    Process holder(params());
    ASSERT_EQ(holder.ask("BEGIN TRANSACTION"), "0");
    ASSERT_EQ(holder.ask("INSERT INTO t VALUES 2"), "0");
    EXPECT_EQ(remove(), status::io_remove);
    EXPECT_EQ(replace(), status::block_remove_old);
    ASSERT_EQ(holder.ask("COMMIT TRANSACTION"), "0");
    EXPECT_EQ(holder.ask("SELECT id FROM t"), "0 1;2");
    ASSERT_EQ(holder.ask("kill 1"), "armed");
    EXPECT_FALSE(holder.ask("INSERT INTO t VALUES 3").has_value());
    EXPECT_EQ(replace(), 0);
  }
  EXPECT_EQ(Session(params()).rows("SELECT id FROM t"), "error 141004");
  EXPECT_EQ(remove(), 0);

  for (const bool replaced : {false, true}) {
    for (int call = 1;; ++call) {
      SCOPED_TRACE(testing::Message() << "killed at call " << call << " replaced " << replaced);
      ASSERT_EQ(replace(), 0);
      ASSERT_EQ(Session(params()).run("CREATE TABLE t (id int)"), 0);
      const pid_t pid = fork();
      if (pid == 0) {
        const Engine own("");
        Process::count_all_calls();
        calls_until_kill = call;
        _exit(replaced ? replace() : remove());
      }
      int ended = 0;
      waitpid(pid, &ended, 0);
      const bool survived = WIFEXITED(ended);
      ASSERT_TRUE(!survived || WEXITSTATUS(ended) == 0);
      Session left(params());
      if (left.open()) {
        EXPECT_EQ(database_fault(left), "");
        const std::string rows = left.rows("SELECT * FROM t");
        EXPECT_TRUE(rows == "" || (replaced && rows == "error 141004")) << rows;
      }
      if (survived) break;
    }
  }
}

// A process dies at each call of a commit that changes a file. Another that has had the database open all the
// time sees the state before or after, can go on writing, and so can one that opens it anew.
TEST_F(ProcessTest, KilledAtEveryCallOfACommit) {
  create(schema() + person_rows(0, 30));
  Process reader(params());
  std::string before = *reader.ask("text");
  int killed = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE("killed at call " + std::to_string(call));
    Process writer(params());
    ASSERT_EQ(writer.ask("BEGIN TRANSACTION"), "0");
    ASSERT_EQ(writer.ask("UPDATE person SET name = 'by " + std::to_string(call) + "' WHERE id > 5"), "0");
    ASSERT_EQ(writer.ask("DELETE FROM person WHERE id = 3"), "0");
    ASSERT_EQ(writer.ask("INSERT INTO person VALUES 3, 'again', 'a note for person number three'"), "0");
    const std::string after = *writer.ask("text");
    ASSERT_EQ(writer.ask("kill " + std::to_string(call)), "armed");
    const bool survived = writer.ask("COMMIT TRANSACTION").has_value();
    if (!survived) ++killed;

    const std::string seen = *reader.ask("text");
    if (seen != after) {
      ASSERT_EQ(seen, before) << "or:\n" << after;
      ASSERT_FALSE(survived);
    }
    ASSERT_EQ(reader.ask("fault"), "");
    Process fresh(params());
    ASSERT_EQ(fresh.ask("text"), seen);
    ASSERT_EQ((call % 2 == 0 ? reader : fresh).ask("UPDATE person SET note = 'seen' WHERE id = 1"), "0");
    ASSERT_EQ(fresh.ask("fault"), "");
    before = *reader.ask("text");
    ASSERT_EQ(fresh.ask("text"), before);
    if (survived) break;
  }
  EXPECT_GT(killed, 10);
  printf("killed at %d calls\n", killed);
}

// A process dies over a commit, most often over its copy, while others read and begin transactions all the
// time: none of them ever sees half of the copy. TOVIK_TEST_SCALE above 1: at every call of the commit.
TEST_F(ProcessTest, SurvivorsOfADeathInTheCopySeeNoHalfOfIt) {
  Statements statements = {"CREATE TABLE t (v int, filler char(200))", "BEGIN TRANSACTION"};
  for (int i = 0; i < 1000; ++i) statements.push_back("INSERT INTO t VALUES 0, 'f'");
  statements.push_back("COMMIT TRANSACTION");
  create(statements);
  struct Shared {
    std::atomic<bool> done;
    std::atomic<int> looks, begins, failure;
    char torn[100];
  };
  void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Shared &shared = *static_cast<Shared *>(memory);
  const auto check = [&](StatusCode status) {
    if (status != 0 && status != status::database_busy) shared.failure = status;
    return status == 0;
  };
  const auto read = [&](Session &session) {
    std::string row;
    if (!check(session.query("SELECT MIN(v), MAX(v) FROM t", &row))) return;
    ++shared.looks;
    const size_t comma = row.find(',');
    if (row.substr(0, comma) != row.substr(comma + 1))
      snprintf(shared.torn, sizeof shared.torn, "%s", row.c_str());
  };
  const auto begin = [&](Session &session) {
    if (check(session.run("BEGIN TRANSACTION")) && check(session.run("ROLLBACK TRANSACTION")))
      ++shared.begins;
  };
  pid_t survivors[6];
  for (pid_t &survivor : survivors) {
    survivor = fork();
    if (survivor != 0) continue;
    const Engine engine("");
    Session session(params() + "CACHE_SIZE_DAT=3;BEGIN_SLEEP=1");  // what is read comes from the file
    check(session.open_status());
    while (!shared.done) &survivor < survivors + 3 ? read(session) : begin(session);
    _exit(0);
  }
  int deaths = 0, step = scale() > 1 ? 1 : 13;
  for (int call = 1; call < 1000 && shared.failure == 0; call += step) {
    Process victim(params() + "BEGIN_RETRY=3000;BEGIN_SLEEP=1");
    ASSERT_EQ(victim.ask("kill " + std::to_string(call)), "armed");
    const std::optional<std::string> answer = victim.ask("UPDATE t SET v = v + 1");
    if (answer == "0") break;
    if (!answer.has_value()) ++deaths;
  }
  shared.done = true;
  for (const pid_t survivor : survivors) waitpid(survivor, nullptr, 0);
  EXPECT_EQ(shared.failure, 0);
  EXPECT_STREQ(shared.torn, "");
  EXPECT_GT(deaths, 5);
  printf("%d deaths, %d looks, %d begins\n", deaths, shared.looks.load(), shared.begins.load());
  munmap(memory, sizeof(Shared));
}

// Money moves between accounts in several processes while they are killed at random and others read. Each
// writer counts its transfers in the database and, once acknowledged, in shared memory.
class Bank {
 public:
  static constexpr int accounts = 20;
  static constexpr int writers = 3;
  static constexpr int64_t total = accounts * 100;

  struct Shared {
    std::atomic<int64_t> acknowledged[writers];  // transfers
    std::atomic<int32_t> failure;                // the first unexpected status
    char what[200];                              // a wrong sum, or the statement that failed
  };

  Bank() {
    void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared_ = static_cast<Shared *>(memory);
  }
  ~Bank() { munmap(shared_, sizeof(Shared)); }

  static Statements statements() {
    Statements result = {"CREATE TABLE account (id int, balance bigint)",
                         "CREATE UNIQUE INDEX account_id ON account (id)",
                         "CREATE INDEX account_balance ON account (balance)",
                         "CREATE TABLE progress (writer int, transfers bigint)"};
    for (int id = 0; id < accounts; ++id)
      result.push_back("INSERT INTO account VALUES " + std::to_string(id) + ", 100");
    for (int writer = 0; writer < writers; ++writer)
      result.push_back("INSERT INTO progress VALUES " + std::to_string(writer) + ", 0");
    return result;
  }

  // A writer, or a reader when its number is not one of a writer's, for some tries.
  void work(Session &session, int worker, uint64_t seed, int tries) {
    if (!session.open()) note(session.open_status(), "open");
    std::mt19937_64 random(seed);
    if (worker >= writers) {
      for (; tries > 0; --tries, usleep(500)) read(session);
      return;
    }
    int64_t done = transfers(session, worker);
    if (done < shared_->acknowledged[worker]) note(-2, "an acknowledged transfer is gone");
    shared_->acknowledged[worker] = done;  // seen, so it stays
    for (; tries > 0; --tries)
      if (transfer(session, random, worker, done + 1)) shared_->acknowledged[worker] = ++done;
  }

  static std::string progress(int writer) {
    return "SELECT transfers FROM progress WHERE writer = " + std::to_string(writer);
  }
  int64_t transfers(Session &session, int writer) {
    std::string row;
    check(session.query(progress(writer), &row), "progress");
    return atoll(row.c_str());
  }

  const Shared &shared() const { return *shared_; }

 private:
  void read(Session &session) {
    std::string row;
    const StatusCode status = session.query("SELECT SUM(balance), COUNT(*) FROM account", &row);
    const std::string expected = std::to_string(total) + "," + std::to_string(accounts);
    if (status == 0 && row != expected) note(-2, row.c_str());
    check(status, "SELECT SUM");
  }

  bool transfer(Session &session, std::mt19937_64 &random, int writer, int64_t number) {
    const std::string amount = std::to_string(random() % 50);
    const std::string from = std::to_string(random() % accounts), to = std::to_string(random() % accounts);
    if (!run(session, "BEGIN TRANSACTION")) return false;
    if (run(session, "UPDATE account SET balance = balance - " + amount + " WHERE id = " + from) &&
        run(session, "UPDATE account SET balance = balance + " + amount + " WHERE id = " + to) &&
        run(session, "UPDATE progress SET transfers = " + std::to_string(number) +
                         " WHERE writer = " + std::to_string(writer)) &&
        run(session, "COMMIT TRANSACTION"))
      return true;
    (void)session.run("ROLLBACK TRANSACTION");
    return false;
  }

  bool run(Session &session, const std::string &sql) { return check(session.run(sql), sql.c_str()); }
  // A busy database is an answer; anything else is noted.
  bool check(StatusCode status, const char *what) {
    if (status == 0) return true;
    if (status != status::database_busy) note(status, what);
    return false;
  }

  void note(StatusCode status, const char *what) {
    int32_t none = 0;
    if (!shared_->failure.compare_exchange_strong(none, status)) return;
    snprintf(shared_->what, sizeof shared_->what, "%s", what);
  }

  Shared *shared_;
};

TEST_F(ProcessTest, RandomTransfersOfThreads) {
  create(Bank::statements());
  const Engine engine("");
  Session database(params());
  ASSERT_TRUE(database.open()) << database.open_status();
  Bank bank;
  Random random;
  std::vector<std::thread> threads;
  for (int worker = 0; worker < Bank::writers + 2; ++worker)
    threads.emplace_back([&, worker, seed = random.next()] {
      Session session(database.database());
      bank.work(session, worker, seed, (worker < Bank::writers ? 40 : 200) * scale());
    });
  for (std::thread &thread : threads) thread.join();
  ASSERT_EQ(bank.shared().failure, 0) << bank.shared().what;
  EXPECT_EQ(database_fault(database), "");
  for (int writer = 0; writer < Bank::writers; ++writer) {
    EXPECT_GT(bank.shared().acknowledged[writer], 0);
    EXPECT_EQ(bank.transfers(database, writer), bank.shared().acknowledged[writer]);
  }
  bank.work(database, Bank::writers, 0, 1);
  ASSERT_EQ(bank.shared().failure, 0) << bank.shared().what;
}

TEST_F(ProcessTest, RandomTransfersSurviveRandomKills) {
  create(Bank::statements());
  Bank bank;
  Random random;
  const auto start = [&](int worker) {
    const uint64_t seed = random.next();
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const Engine engine("");
    Session session(params());
    bank.work(session, worker, seed, INT_MAX);
    _exit(0);
  };
  pid_t pids[Bank::writers + 2];
  for (int worker = 0; worker < Bank::writers + 2; ++worker) pids[worker] = start(worker);

  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5 * scale());
  int kills = 0;
  while (std::chrono::steady_clock::now() < end && bank.shared().failure == 0) {
    usleep(static_cast<useconds_t>(1000 + random.below(60000)));
    const int victim = random.below(Bank::writers + 1);  // one of the readers too
    kill(pids[victim], SIGKILL);
    waitpid(pids[victim], nullptr, 0);
    pids[victim] = start(victim);
    ++kills;
  }
  for (const pid_t pid : pids) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  ASSERT_EQ(bank.shared().failure, 0) << bank.shared().what;

  Process checker(params());
  EXPECT_EQ(checker.ask("fault"), "");
  EXPECT_EQ(checker.ask("SELECT SUM(balance) FROM account"), "0 " + std::to_string(Bank::total));
  int64_t transfers = 0;
  for (int writer = 0; writer < Bank::writers; ++writer) {
    const int64_t acknowledged = bank.shared().acknowledged[writer];
    const int64_t stored = atoll(checker.ask(Bank::progress(writer))->c_str() + 2);
    EXPECT_TRUE(stored == acknowledged || stored == acknowledged + 1) << stored << " for " << acknowledged;
    transfers += stored;
  }
  EXPECT_GT(transfers, 0);
  printf("%d kills, %lld transfers\n", kills, static_cast<long long>(transfers));
}

}  // namespace
}  // namespace tovik::test
