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
  explicit Process(const std::string &params, const std::string &settings = "") {
    int down[2], up[2];
    if (pipe(down) != 0 || pipe(up) != 0) abort();
    pid_ = fork();
    commands_ = fdopen(down[pid_ == 0 ? 0 : 1], pid_ == 0 ? "r" : "w");
    answers_ = fdopen(up[pid_ == 0 ? 1 : 0], pid_ == 0 ? "w" : "r");
    close(down[pid_ == 0 ? 1 : 0]);
    close(up[pid_ == 0 ? 0 : 1]);
    if (pid_ == 0) serve(params, settings);
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

  [[noreturn]] void serve(const std::string &params, const std::string &settings) {
    count_all_calls();
    const Engine engine(settings);
    Session session(params);
    put(answers_, std::to_string(session.open_status()) + " opened");
    while (const std::optional<std::string> command = get(commands_))
      put(answers_, answer(session, *command));
    _exit(0);
  }

  pid_t pid_;
  FILE *commands_, *answers_;
};

constexpr int accounts = 20, writers = 3;

// What processes tell each other through common memory.
struct Shared {
  std::atomic<bool> done;
  std::atomic<int> looks;
  std::atomic<int64_t> acknowledged[writers];  // transfers of money
  std::atomic<int32_t> failure;                // the first unexpected status, -2: a wrong answer
  char what[200];                              // the statement that failed, or that answer

  void note(StatusCode status, const std::string &of) {
    int32_t none = 0;
    if (failure.compare_exchange_strong(none, status)) snprintf(what, sizeof what, "%s", of.c_str());
  }
  // A busy database is an answer; anything else is noted.
  bool check(StatusCode status, const std::string &of) {
    if (status != 0 && status != status::database_busy) note(status, of);
    return status == 0;
  }
};

class ProcessTest : public testing::Test {
 protected:
  ProcessTest() { signal(SIGPIPE, SIG_IGN); }
  ~ProcessTest() override {
    EXPECT_EQ(shared_.failure, 0) << shared_.what;
    munmap(&shared_, sizeof shared_);
  }

  std::string params() const {
    return "NAME=t;PATH=" + dir_.path() +
           ";CACHE_SIZE_DAT=40;CACHE_SIZE_TRN=40;LOCK_RETRY=3000;LOCK_SLEEP=1;";
  }
  // Those that killed processes leave behind go with the database.
  std::string temporary_files() const { return "HVI_TMP_DIR=" + dir_.path(); }
  void create(const Statements &statements) {
    const Engine engine("");
    create_database(params(), statements);
  }

  Shared &shared_ = *static_cast<Shared *>(
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

 private:
  TempDir dir_;
};

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

// The owner of a transaction sees its schema changes at once, every other thread and process only after the
// commit, and a rollback brings the very same list back. Direct changes everybody sees.
TEST_F(ProcessTest, OthersSeeSchemaChangesAfterTheCommit) {
  Statements made = {"CREATE TABLE renamed (a int)", "CREATE INDEX r ON renamed (a)"};
  for (const std::string table : {"dropped", "indexed", "emptied", "named", "altered", "again"})
    made = made + Statements{"CREATE TABLE " + table + " (a int)", "INSERT INTO " + table + " VALUES 1"};
  create(made);
  Process other(params());
  const Engine engine("");
  Session owner(params()), beside(owner.database());
  const auto seen_by_others = [&] {
    std::string text;
    std::thread([&] { text = database_text(beside); }).join();
    EXPECT_EQ(other.ask("text"), text);
    return text;
  };
  const auto run = [&owner](const Statements &statements) {
    for (const std::string &sql : statements) ASSERT_EQ(owner.run(sql), 0) << sql;
  };
  const std::string before = database_text(owner);
  std::string after;
  for (const std::string end : {"ROLLBACK TRANSACTION", "COMMIT TRANSACTION"}) {
    run({"BEGIN TRANSACTION", "CREATE TABLE created (a int)", "INSERT INTO created VALUES 7",
         "DROP TABLE dropped", "RENAME TABLE renamed TO new", "CREATE INDEX i ON indexed (a)",
         "EMPTY TABLE emptied", "RENAME ATTR named.a TO b", "ALTER TABLE altered ADD b int AUTO_INCREMENT",
         "DROP TABLE again", "CREATE TABLE again (x text)", "CREATE TABLE t (a int)",
         "CREATE UNIQUE INDEX j ON t (a)", "DROP INDEX j", "RENAME TABLE t TO u", "DROP TABLE u"});
    after = database_text(owner);
    EXPECT_EQ(seen_by_others(), before);
    run({end});
    EXPECT_EQ(database_text(owner), end[0] == 'C' ? after : before);
    EXPECT_EQ(seen_by_others(), database_text(owner));
    EXPECT_EQ(database_fault(owner) + *other.ask("fault"), "");
  }
  EXPECT_NE(after, before);

  const auto fill = [](const std::string &prefix) {
    Statements statements;
    for (int i = 0; i < 20; ++i)  // more than a page of names
      statements = statements + Statements{"CREATE TABLE " + prefix + std::to_string(i) + " (a int)",
                                           "INSERT INTO counted (b) VALUES 'b', 'c'"};
    return statements;
  };
  run(Statements{"SET HVI_AUTO_COMMIT 'OFF'", "CREATE TABLE counted (a int AUTO_INCREMENT, b char(8))"} +
      fill("mine") + Statements{"CREATE INDEX b ON counted (b)", "DROP TABLE indexed"});
  EXPECT_EQ(seen_by_others(), database_text(owner));
  for (const std::string &sql : Statements{"SET HVI_AUTO_COMMIT 'OFF'"} + fill("others"))
    ASSERT_EQ(other.ask(sql), "0") << sql;
  EXPECT_EQ(seen_by_others(), database_text(owner));
  EXPECT_EQ(owner.rows("SELECT COUNT(*), MAX(a) FROM counted"), "80,80");
  EXPECT_EQ(database_fault(owner) + *other.ask("fault"), "");
}

// A process dies at each call that changes a file, of a transaction that writes a temporary file too, which
// stays until a process of that number makes its own, and of its commit. Another that has had the database
// open all the time sees the state before or after, can go on writing, and so can one that opens it anew.
TEST_F(ProcessTest, KilledAtEveryCallOfATransaction) {
  create(schema() + person_rows(0, 60));
  Process reader(params());
  const std::string before = *reader.ask("text");
  int killed = 0, completed = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE("killed at call " + std::to_string(call));
    Process writer(params(), temporary_files());
    ASSERT_EQ(writer.ask("kill " + std::to_string(call)), "armed");
    bool survived = true;
    for (const char *sql : {"BEGIN TRANSACTION", "ALTER TABLE person ADD age int AUTO_INCREMENT",
                            "UPDATE person SET age = age + 100", "COMMIT TRANSACTION"})
      survived = survived && writer.ask(sql) == "0";
    const std::string seen = *reader.ask("text");
    ASSERT_EQ(reader.ask("fault"), "");
    Process fresh(params());
    ASSERT_EQ(fresh.ask("text"), seen);
    Process &next = call % 2 == 0 ? reader : fresh;
    if (seen != before) {
      ASSERT_EQ(next.ask("SELECT COUNT(*), MIN(age), MAX(age) FROM person"), "0 60,101,160");
      ASSERT_EQ(next.ask("ALTER TABLE person DELETE age"), "0");
      ++completed;
    }
    ASSERT_EQ(next.ask("UPDATE person SET note = note WHERE id = 1"), "0");
    for (Process *process : {&reader, &fresh}) ASSERT_EQ(process->ask("text"), before);
    ASSERT_EQ(fresh.ask("fault"), "");
    if (survived) break;
    ++killed;
  }
  EXPECT_GT(completed, 1);
  EXPECT_GT(killed, completed + 10);
  printf("killed at %d calls, completed %d times\n", killed, completed);
}

// A process dies over a commit, most often over its copy, while others read and begin transactions all the
// time: none of them ever sees half of the copy. TOVIK_TEST_SCALE above 1: at every call of the commit.
TEST_F(ProcessTest, SurvivorsOfADeathInTheCopySeeNoHalfOfIt) {
  Statements statements = {"CREATE TABLE t (v int, filler char(200))", "BEGIN TRANSACTION"};
  for (int i = 0; i < 1000; ++i) statements.push_back("INSERT INTO t VALUES 0, 'f'");
  statements.push_back("COMMIT TRANSACTION");
  create(statements);
  const auto read = [this](Session &session) {
    std::string row;
    if (!shared_.check(session.query("SELECT MIN(v), MAX(v) FROM t", &row), "SELECT")) return;
    ++shared_.looks;
    const size_t comma = row.find(',');
    if (row.substr(0, comma) != row.substr(comma + 1)) shared_.note(-2, row);
  };
  const auto begin = [this](Session &session) {
    if (shared_.check(session.run("BEGIN TRANSACTION"), "BEGIN"))
      shared_.check(session.run("ROLLBACK TRANSACTION"), "ROLLBACK");
  };
  pid_t survivors[6];
  for (pid_t &survivor : survivors) {
    survivor = fork();
    if (survivor != 0) continue;
    const Engine engine("");
    Session session(params() + "CACHE_SIZE_DAT=3;BEGIN_SLEEP=1");  // what is read comes from the file
    shared_.check(session.open_status(), "open");
    while (!shared_.done) &survivor < survivors + 3 ? read(session) : begin(session);
    _exit(0);
  }
  int deaths = 0, step = scale() > 1 ? 1 : 13;
  for (int call = 1; call < 1000 && shared_.failure == 0; call += step) {
    Process victim(params() + "BEGIN_RETRY=3000;BEGIN_SLEEP=1");
    ASSERT_EQ(victim.ask("kill " + std::to_string(call)), "armed");
    const std::optional<std::string> answer = victim.ask("UPDATE t SET v = v + 1");
    if (answer == "0") break;
    if (!answer.has_value()) ++deaths;
  }
  shared_.done = true;
  for (const pid_t survivor : survivors) waitpid(survivor, nullptr, 0);
  EXPECT_GT(deaths, 5);
  printf("%d deaths, %d looks\n", deaths, shared_.looks.load());
}

std::string progress(int writer) {
  return "SELECT transfers FROM progress WHERE writer = " + std::to_string(writer);
}

// Money moves between accounts in several processes while they are killed at random and others read. Each
// writer counts its transfers in the database and, once acknowledged, in common memory.
class Worker {
 public:
  Worker(const std::string &params, Shared &shared, int number, uint64_t seed)
      : session_(params), shared_(shared), number_(number), random_(seed) {
    shared.check(session_.open_status(), "open");
  }

  // Until it is killed; a reader when its number is not one of a writer's.
  [[noreturn]] void work() {
    for (; number_ >= writers; usleep(500)) expect_no_money_lost();
    std::string row;
    shared_.check(session_.query(progress(number_), &row), "progress");
    int64_t done = atoll(row.c_str());
    if (done < shared_.acknowledged[number_]) shared_.note(-2, "an acknowledged transfer is gone");
    for (;; ++done) {
      shared_.acknowledged[number_] = done;  // seen, so it stays
      while (!transfer(done + 1)) {
      }
    }
  }

 private:
  void expect_no_money_lost() {
    std::string row;
    if (shared_.check(session_.query("SELECT SUM(balance), COUNT(*) FROM account", &row), "SUM") &&
        row != std::to_string(accounts * 100) + "," + std::to_string(accounts))
      shared_.note(-2, row);
  }

  bool transfer(int64_t number) {
    const std::string amount = std::to_string(random_() % 50);
    if (!run("BEGIN TRANSACTION")) return false;
    if (run("UPDATE account SET balance = balance - " + amount + any_account()) &&
        run("UPDATE account SET balance = balance + " + amount + any_account()) &&
        (random_() % 4 != 0 || (run("ALTER TABLE account ADD spare int BEFORE balance") &&
                                run("ALTER TABLE account DELETE spare"))) &&
        run("UPDATE progress SET transfers = " + std::to_string(number) +
            " WHERE writer = " + std::to_string(number_)) &&
        run("COMMIT TRANSACTION"))
      return true;
    (void)session_.run("ROLLBACK TRANSACTION");
    return false;
  }
  std::string any_account() { return " WHERE id = " + std::to_string(random_() % accounts); }

  bool run(const std::string &sql) { return shared_.check(session_.run(sql), sql); }

  Session session_;
  Shared &shared_;
  const int number_;
  std::mt19937_64 random_;
};

TEST_F(ProcessTest, RandomTransfersSurviveRandomKills) {
  Statements statements = {
      "CREATE TABLE account (id int, balance bigint)", "CREATE UNIQUE INDEX account_id ON account (id)",
      "CREATE INDEX account_balance ON account (balance)",
      "CREATE TABLE progress (writer int, transfers bigint)", "INSERT INTO progress VALUES 0, 0, 1, 0, 2, 0"};
  for (int id = 0; id < accounts; ++id)
    statements.push_back("INSERT INTO account VALUES " + std::to_string(id) + ", 100");
  create(statements);
  Random random;
  const auto start = [&](int number) {
    const uint64_t seed = random.next();
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const Engine engine(temporary_files());
    Worker(params(), shared_, number, seed).work();
  };
  pid_t pids[writers + 2];
  for (int number = 0; number < writers + 2; ++number) pids[number] = start(number);
  const auto end_of = [](pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  };

  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5 * scale());
  int kills = 0;
  for (; std::chrono::steady_clock::now() < end && shared_.failure == 0; ++kills) {
    usleep(static_cast<useconds_t>(1000 + random.below(60000)));
    const int victim = random.below(writers + 1);  // one of the readers too
    end_of(pids[victim]);
    pids[victim] = start(victim);
  }
  for (const pid_t pid : pids) end_of(pid);
  ASSERT_EQ(shared_.failure, 0) << shared_.what;

  Process checker(params());
  EXPECT_EQ(checker.ask("fault"), "");
  EXPECT_EQ(checker.ask("SELECT SUM(balance) FROM account"), "0 " + std::to_string(accounts * 100));
  int64_t transfers = 0;
  for (int writer = 0; writer < writers; ++writer) {
    const int64_t acknowledged = shared_.acknowledged[writer];
    const int64_t stored = atoll(checker.ask(progress(writer))->c_str() + 2);
    EXPECT_TRUE(stored == acknowledged || stored == acknowledged + 1) << stored << " for " << acknowledged;
    transfers += stored;
  }
  EXPECT_GT(transfers, 0);
  printf("%d kills, %lld transfers\n", kills, static_cast<long long>(transfers));
}

}  // namespace
}  // namespace tovik::test
