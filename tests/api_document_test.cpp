// The examples in the documents do what the documents say.
#include <fstream>
#include <iterator>
#include <sstream>

#include "api_support.h"

namespace tovik::test {
namespace {

std::string document(const std::string &name) {
  std::ifstream file(TOVIK_SOURCE_DIR "/" + name);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// The text of the blocks that begin with the line "```language".
std::string blocks(const std::string &text, const std::string &language) {
  const std::string begin = "```" + language + "\n";
  std::string found;
  for (size_t at = 0; (at = text.find(begin, at)) != std::string::npos;) {
    const size_t end = text.find("```", at += begin.size());
    found += text.substr(at, end - at);
    at = end;
  }
  return found;
}

std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string with_blanks(std::string rows) {
  for (size_t at = 0; (at = rows.find_first_of(",;", at)) != std::string::npos; ++at)
    rows.replace(at, 1, rows[at] == ',' ? ", " : "\n");
  return rows;
}

// One statement a line; the lines below a query are its rows, and "-- fails: CODE" stands behind one that
// fails.
TEST(Documents, ExamplesOfTheSqlDialect) {
  const Library library;
  TestDatabase db;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(db.directory().path());  // where files without a directory go
  const std::vector<std::string> lines = lines_of(blocks(document("docs/SQL.md"), "sql"));
  int queries = 0;
  for (size_t i = 0; i < lines.size();) {
    const std::string &line = lines[i++];
    const std::string sql = line.substr(0, line.rfind(';'));
    const size_t fails = line.find("-- fails: ");
    std::string expected;
    for (; i < lines.size() && lines[i].starts_with("-- "); ++i)
      expected += (expected.empty() ? "" : "\n") + lines[i].substr(3);
    const bool writes = sql.find(" INTO '") != std::string::npos;
    if ((sql.starts_with("SELECT") && !writes) || sql.starts_with("TEST_STMT")) {
      EXPECT_EQ(with_blanks(db.rows(sql)), expected) << sql;
      ++queries;
    } else {
      EXPECT_EQ(db.run(sql), fails == std::string::npos ? 0 : std::stoi(line.substr(fails + 10))) << sql;
    }
  }
  std::filesystem::current_path(before);
  EXPECT_GE(queries, 10);
}

// The console lines in their order, without the one that asks for statements; setup.sql is made before.
TEST(Documents, ConsoleLinesOfTheReadme) {
  const TempDir directory;
  std::ofstream(directory / "setup.sql") << "INSERT INTO fruit VALUES 2, 'melon';\n";
  const auto run = [&](const std::string &arguments) {
    const std::string command = "cd '" + directory.path() + "' && '" TOVIK_CONSOLE "' " + arguments + " 2>&1";
    FILE *pipe = popen(command.c_str(), "r");
    std::string output;
    for (int c; (c = getc(pipe)) != EOF;) output += static_cast<char>(c);
    return std::to_string(pclose(pipe)) + " " + output;
  };
  int commands = 0;
  for (const std::string &line : lines_of(document("README.md"))) {
    const size_t comment = line.find(" # ");
    if (!line.starts_with("    tovik ") || line.ends_with("ended by ;")) continue;
    const std::string arguments = line.substr(10, comment == std::string::npos ? comment : comment - 10);
    if (arguments.find('|') != std::string::npos) continue;
    const std::string printed = run(arguments);
    EXPECT_TRUE(printed.starts_with("0 ")) << line << "\n" << printed;
    if (commands == 0) run("shop \"CREATE TABLE fruit (id int, name char(9))\"");
    ++commands;
  }
  EXPECT_EQ(commands, 4);
  EXPECT_TRUE(run("--help").starts_with("0 usage"));
}

// Every key of the parameter string and every environment parameter has its row.
TEST(Documents, ParametersAreComplete) {
  const std::string text = document("docs/PARAMETERS.md");
  const size_t environment = text.find("## The environment parameters");
  const auto expect_rows = [](const std::string &source, const std::string &start, const std::string &table,
                              int count) {
    for (const std::string &line : lines_of(document(source))) {
      if (!line.starts_with(start)) continue;
      const std::string name = line.substr(6, line.find('"', 6) - 6);
      EXPECT_NE(table.find("`" + name + "`"), std::string::npos) << name;
      --count;
    }
    EXPECT_EQ(count, 0) << source;
  };
  expect_rows("src/storage/params/params.cpp", "    {\"", text.substr(0, environment), 41);
  expect_rows("src/frame/env.cpp", "    {\"HVI_", text.substr(environment), 48);
}

}  // namespace
}  // namespace tovik::test
