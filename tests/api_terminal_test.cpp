// The console at a terminal: what it asks, what it answers, and what does not end it.
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>

#include <fstream>

#include "api_support.h"

using namespace tovik::test;

namespace {

// The console on a fresh database behind a pseudo-terminal that neither echoes nor changes line ends.
class Terminal : public testing::Test {
 protected:
  void SetUp() override {
    const std::string database = directory / "shop";
    {
      const Library library;
      ASSERT_EQ(kld_cmd_exec(nullptr, 0, ("NAME=" + database).c_str(), nullptr), 0);
    }
    termios settings{};
    cfmakeraw(&settings);
    cfsetspeed(&settings, B38400);
    settings.c_lflag |= ICANON;
    settings.c_cc[VEOF] = 4;
    child = forkpty(&terminal, nullptr, &settings, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
      execl(TOVIK_CONSOLE, "tovik", "--set", "HVI_SQL_SEL_HDR=OFF;HVI_SQL_SEL_SEP=','", database.c_str(),
            nullptr);
      _exit(127);
    }
    EXPECT_EQ(type("", "1* "), "");
  }
  void TearDown() override {
    close(terminal);
    if (child > 0) waitpid(child, nullptr, 0);
  }

  // Types input; what is printed until the prompt, which must be the last thing.
  std::string type(const std::string &input, const std::string &prompt) {
    EXPECT_EQ(write(terminal, input.data(), input.size()), static_cast<ssize_t>(input.size()));
    std::string printed;
    while (!ends_with(printed, prompt) && read_more(printed)) {
    }
    EXPECT_TRUE(ends_with(printed, prompt)) << input << " gave " << printed;
    return printed.substr(0, printed.size() - prompt.size());
  }
  // Types input that ends the console without a failure and without another word.
  void leave(const std::string &input) {
    std::string printed = type(input, "");
    while (read_more(printed)) {
    }
    EXPECT_EQ(printed, "");
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    child = -1;
  }
  // The script's path.
  std::string script(const char *name, const std::string &text) {
    const std::string path = directory / name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  TempDir directory;

 private:
  static bool ends_with(const std::string &text, const std::string &end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
  }
  bool read_more(std::string &text) {
    pollfd readable{terminal, POLLIN, 0};
    char buffer[4096];
    if (poll(&readable, 1, 20000) != 1) return false;
    const ssize_t count = read(terminal, buffer, sizeof buffer);
    if (count > 0) text.append(buffer, static_cast<size_t>(count));
    return count > 0;
  }

  int terminal = -1;
  pid_t child = -1;
};

TEST_F(Terminal, AsksForEachStatementByNumberAndForMoreOfItWithADot) {
  EXPECT_EQ(type("ECHO 'a\n", ". "), "");
  EXPECT_EQ(type("; b\n", ". "), "");
  EXPECT_EQ(type("';\n", "2* "), "a ; b \n");
  EXPECT_EQ(type("  \n", "2* "), "") << "nothing to run";
  EXPECT_EQ(type("/* of\n", ". "), "");
  EXPECT_EQ(type("two lines */ ECHO 'c';\r\n", "3* "), "c\n");
  EXPECT_EQ(type("!\n", ". "), "");
  EXPECT_EQ(type("echo d\n", "4* "), "d\n");
  EXPECT_EQ(type("run 3;\n", "5* "), "   3  echo d\nd\n");
  EXPECT_EQ(type("rc;\n", "5* "), "   4  echo d\n");
  leave("\4");  // the end of the input
}

TEST_F(Terminal, RunsScriptsInScriptsWithoutPrompts) {
  const std::string inner = script(
      "inner", "ECHO 'in';\r\nnonsense;\r\n! echo system\r\nECHO\r\n 'on'\r\n;\r\nEXIT\r\nECHO 'never';\r\n");
  const std::string outer =
      script("outer", "ECHO 'out';\nrun '" + inner + "'\n;\nrc;\nECHO 'no line end, not run';");
  const std::string printed = type("run '" + outer + "';\n", "6* ");
  EXPECT_EQ(printed.rfind("out\nin\n[1]:171001(0) ", 0), 0u) << printed;
  EXPECT_EQ(printed.substr(printed.find("system")), "system\non\n   5 ECHO\r  'on'\r ;\n");
  leave("quit\n");
}

TEST_F(Terminal, TakesALongStatementAndGoesOnAfterFailures) {
  EXPECT_EQ(type("CREATE TABLE t (id int NOT NULL, s char(40));\nCREATE UNIQUE INDEX ti ON t (id);\n", "3* "),
            "2* ");
  std::string insert = "INSERT INTO t VALUES 0, 'the first'", dots;
  for (int i = 1; i <= 300; ++i) {
    insert += ",\n  " + std::to_string(i) + ", 'row number " + std::to_string(i) + "'";
    dots += ". ";
  }
  EXPECT_EQ(type(insert + ";\n", "4* "), dots);
  EXPECT_EQ(type("INSERT INTO t VALUES 7, 'again';\n", "5* ").rfind("[1]:143001(0) ", 0), 0u);
  EXPECT_EQ(type("SELECT COUNT(*), MAX(id) FROM t;\n", "6* "), "                 301,                 300\n");
  leave(std::string(255, ' ') + "\n");  // too long a line is the end
}

}  // namespace
