// The command interpreter: modes, the statement loop, its history; the console at a terminal.
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>

#include <cstring>
#include <fstream>

#include "api_support.h"

using namespace tovik::test;

namespace {

class Command : public testing::Test {
 protected:
  // What the loop prints for an input text.
  std::string loop(const std::string &input, bool interactive = false) {
    FILE *in = tmpfile();
    fwrite(input.data(), 1, input.size(), in);
    rewind(in);
    const std::string printed =
        printed_by([&] { result = kld_cmd_exec(in, interactive ? 4 : 3, db.params().c_str(), nullptr); });
    fclose(in);
    return printed;
  }

  int result = 0;
  Library library{"HVI_SQL_SEL_HDR=OFF"};
  TestDatabase db;
};

TEST_F(Command, ModesCreateRunTestAndRemove) {
  const TempDir directory;
  const std::string params = "NAME=m;PATH=" + directory.path();
  EXPECT_EQ(kld_cmd_exec(nullptr, 6, params.c_str(), nullptr), 0);
  EXPECT_EQ(error_code(), 0);
  EXPECT_EQ(kld_cmd_exec(nullptr, 0, params.c_str(), nullptr), 0);
  EXPECT_EQ(kld_cmd_exec(nullptr, 6, params.c_str(), nullptr), 1);
  const auto expect_failure = [&](int mode, const char *sql, const char *report) {
    const std::string printed =
        printed_by([&] { EXPECT_EQ(kld_cmd_exec(nullptr, mode, params.c_str(), sql), -1); });
    EXPECT_EQ(printed.rfind(report, 0), 0u) << printed;
  };
  expect_failure(0, nullptr, "kld_db_create\n[1]:120101(0) ");
  expect_failure(2, "nonsense", "kld_sql_call\n[1]:171001(0) ");
  expect_failure(2, nullptr, "kld_sql_call\n[1]:90001(0) ");
  expect_failure(3, nullptr, "cmd_intr_sql\n[1]:90001(0) ");
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(kld_cmd_exec(nullptr, 2, params.c_str(), "ECHO 'hi'"), 0); }), "hi\n");
  EXPECT_EQ(kld_cmd_exec(nullptr, 1, params.c_str(), nullptr), 0);
  EXPECT_EQ(kld_cmd_exec(nullptr, 6, params.c_str(), nullptr), 0);
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(kld_cmd_exec(nullptr, 5, nullptr, nullptr), 0); }),
            "Tovik version 4.0.12\n");
}

TEST_F(Command, CollectsStatementsOverLines) {
  EXPECT_EQ(
      loop("CREATE TABLE t (a int,\n b char(5));\nINSERT INTO t VALUES 1,\n'a;b';\nSELECT * FROM t\n;\n"),
      "          1  a;b\n");
  EXPECT_EQ(loop("SELECT /* a/b\ncomment; *\n/ */ a FROM t;\n"), "          1\n");
  EXPECT_EQ(loop("SELECT a FROM t;"), "") << "no line end: not run";
  EXPECT_EQ(loop("  \n\nECHO 'x''\ny';\n"), "x' y\n");
  EXPECT_EQ(loop("ECHO 'x'\n;\nquit\nECHO 'y';\n", true), "1* . x\n2* ");
  EXPECT_EQ(result, 0);
  const std::string failure = loop("SELECT nothing;\nECHO 'on';\n");
  EXPECT_EQ(failure.rfind("[1]:171001(0) ", 0), 0u) << failure;
  EXPECT_EQ(failure.substr(failure.size() - 3), "on\n");
}

TEST_F(Command, LeavesOnItsWordsOnly) {
  for (const char *word : {"exit", "stop", "quit", "EXIT;", "Quit ;"}) {
    EXPECT_EQ(loop(std::string(word) + "\nECHO 'after';\n"), "") << word;
  }
  EXPECT_EQ(loop("exit now\nECHO 'after';\n"), "extra characters after end of valid commandafter\n");
  EXPECT_EQ(loop("exitnow\nECHO 'after';\n"), "expecting a commandafter\n");
  EXPECT_EQ(loop("rcx\n;\nECHO 'after';\n"), "*** Error: no command\nafter\n");
  EXPECT_EQ(loop("exitnow;\nrun '';\n").size(), 2 * strlen("extra characters after end of valid command"));
}

TEST_F(Command, KeepsAHistoryOfThirtyTwo) {
  std::string many;
  for (int i = 1; i <= 40; ++i) many += "ECHO '" + std::to_string(i) + "';\n";
  std::string all;
  for (int i = 9; i <= 40; ++i) {
    all += (i < 10 ? "   " : "  ") + std::to_string(i) + " ECHO '" + std::to_string(i) + "';\n";
  }
  const std::string printed =
      loop(many + "rc all;\nrun 5;\nrc 4294967305;\nrc 12;\nrun 12;\nrc 9;\nrun;\nrc;\n  ECHO 'x';\nRC;\n");
  const size_t listing = printed.find("40\n") + 3;
  EXPECT_EQ(printed.substr(listing),
            all +
                "*** Error: invalid command\n*** Error: no command\n  12 ECHO '12';\n  12 ECHO '12';\n12\n"
                "*** Error: no command\n  41 ECHO '12';\n12\n  42 ECHO '12';\nx\n  43   ECHO 'x';\n");
}

TEST_F(Command, RunsSystemCommandsAndScripts) {
  EXPECT_EQ(loop("! printf one\ndo printf two;\n!\nprintf three\n! ;\nrun;\n"),
            "onetwothreeexpecting a system command\n   3  printf three\nthree");
  const TempDir directory;
  const std::string inner = directory / "inner", outer = directory / "outer";
  std::ofstream(inner) << "ECHO 'in';\r\n! echo system\r\nECHO\r\n 'on'\r\n;\r\nEXIT\r\nECHO 'never';\r\n";
  std::ofstream(outer) << "ECHO 'out';\nrun '" + inner + "'\n;\nrc;\nECHO 'no line end, not run';";
  EXPECT_EQ(loop("run '" + outer + "';\nECHO 'outside';\nrun 'none';\n", true),
            "1* out\nin\nsystem\non\n   4 ECHO\r  'on'\r ;\n5* outside\n6* fopen error.'none'\n6* ");
  std::ofstream(outer) << "run '" << outer << "';\nECHO 'back';\n";
  const std::string printed = loop("run '" + outer + "';\n");
  EXPECT_EQ(printed.find("back\n"), strlen("fopen error.''\n") + outer.size()) << "a script without end";
  EXPECT_EQ(result, 0);
}

// The console: each prompt is there before the next line is typed, and only what says so ends it.
TEST_F(Command, ConsoleAtATerminal) {
  std::string insert = "INSERT INTO t VALUES 0", dots;
  for (int i = 1; i <= 300; ++i) insert += ",\n  " + std::to_string(i), dots += ". ";
  const std::vector<std::vector<std::pair<std::string, std::string>>> talks = {
      {{"ECHO 'a\n", ". "},
       {"; b\n", ". "},
       {"';\n", "a ; b \n2* "},
       {"  \n", "2* "},
       {"/* of /\n", ". "},
       {"two lines */ ECHO 'c';\r\n", "c\n3* "},
       {"!\n", ". "},
       {"echo d\n", "d\n4* "},
       {"run 3;\n", "   3  echo d\nd\n5* "},
       {"CREATE TABLE t (id int);\nCREATE UNIQUE INDEX ti ON t (id);\n", "6* 7* "},
       {"\4", ""}},
      {{insert + ";\n", dots + "2* "},
       {"SELECT COUNT(*) FROM t;\n", "                 301\n3* "},
       {std::string(255, ' ') + "\n", ""}},  // too long a line is the end
  };
  for (const auto &talk : talks) {
    termios settings{};  // neither echo nor other line ends
    cfmakeraw(&settings);
    settings.c_lflag |= ICANON;
    settings.c_cc[VEOF] = 4;
    int terminal = -1, status = -1;
    const pid_t child = forkpty(&terminal, nullptr, &settings, nullptr);
    if (child == 0)
      _exit(execl(TOVIK_CONSOLE, "tovik", "--set", "HVI_SQL_SEL_HDR=OFF", (db.directory() / "t").c_str(),
                  nullptr));
    pollfd readable{terminal, POLLIN, 0};
    const auto expect_printed = [&](const std::string &expected) {
      std::string printed;
      for (char c;
           printed.size() < expected.size() && poll(&readable, 1, 20000) == 1 && read(terminal, &c, 1) == 1;)
        printed += c;
      EXPECT_EQ(printed, expected);
    };
    expect_printed("1* ");
    for (const auto &[typed, answer] : talk) {
      EXPECT_EQ(write(terminal, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
      expect_printed(answer);
    }
    char more;
    EXPECT_NE(read(terminal, &more, 1), 1) << more;
    close(terminal);
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
}

}  // namespace
