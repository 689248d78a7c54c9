// The rules that the shape of the repository follows: which way includes point, what the engine may take
// from the standard library, and which symbols leave the shared library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

template <class Words = Names>
Words words(const char *text) {
  std::istringstream in(text);
  return Words(std::istream_iterator<std::string>(in), {});
}

const fs::path root = TOVIK_SOURCE_DIR;
// The folders of src, bottom first: the rooms of a layer, and what stands in none above them all.
const std::vector<std::string> folders = words<std::vector<std::string>>(
    "platform frame storage/io storage/params storage/block storage/cache storage/transaction storage "
    "data/value data/function data/row data/index data/table data sql/parse sql/evaluate sql/query "
    "sql/statement sql api");
const Names interface_headers = {"kld_api.h", "tovik.h", "tovik_types.h"};

// What the engine uses of the standard library. Containers, strings and streams are missing on purpose:
// they allocate behind the memory table's back.
const Names standard_headers = words(
    "algorithm array atomic bit bitset cassert cctype cerrno cfloat charconv cinttypes climits cmath compare "
    "cstdarg cstddef cstdint cstdio cstdlib cstring ctime cwchar initializer_list iterator limits new "
    "numeric "
    "optional span string_view tuple type_traits utility");

struct Include {
  fs::path file;  // relative to the root
  int line;
  bool quoted;
  std::string name;

  std::string text() const { return file.generic_string() + ":" + std::to_string(line) + ": " + name; }
};

std::vector<Include> includes_below(const char *folder) {
  std::vector<Include> found;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root / folder)) {
    if (entry.is_directory()) continue;
    std::ifstream in(entry.path());
    std::string text;
    for (int line = 1; std::getline(in, text); ++line) {
      char mark = 0, name[256] = "";
      if (sscanf(text.c_str(), " # include %c%255[^\">]", &mark, name) == 2)
        found.push_back({fs::relative(entry.path(), root), line, mark == '"', name});
    }
  }
  return found;
}

// The place of the folder in which path, below src, stands; -1 for one that is not known.
int place_of(const std::string &path) {
  const std::string folder = path.starts_with("platform/") ? "platform" : path.substr(0, path.rfind('/'));
  const auto found = std::find(folders.begin(), folders.end(), folder);
  return found == folders.end() ? -1 : static_cast<int>(found - folders.begin());
}

// Why an include of src/ breaks the rules, or an empty text.
std::string fault_of(const Include &include) {
  const std::string file = include.file.generic_string().substr(4);
  const int own = place_of(file), api = place_of("api/any"), target = place_of(include.name);
  if (own < 0) return "stands in a folder that is not known";
  if (!include.quoted) {
    // The command interpreter switches its input stream to binary mode itself.
    const bool of_console = own == api && file.find("command") != std::string::npos &&
                            (include.name == "io.h" || include.name == "fcntl.h");
    return own == place_of("platform/any") || of_console || standard_headers.contains(include.name)
               ? ""
               : "is for src/platform only (operating system, or allocates)";
  }
  if (interface_headers.contains(include.name))
    return include.name == "tovik_types.h" || own == api ? "" : "is for src/api only";
  if (target < 0) return "is not rooted at src/";
  return target <= own ? "" : "points up";
}

TEST(Repository, IncludesPointDownOnlyAndThoseFromOutsideToThePublicHeaders) {
  const std::vector<Include> includes = includes_below("src");
  ASSERT_GT(includes.size(), 20u);
  for (const Include &include : includes) EXPECT_EQ(fault_of(include), "") << include.text();
  EXPECT_EQ(fault_of({"src/data/row/row.cpp", 1, true, "data/table/table.h"}), "points up");
  EXPECT_NE(fault_of({"src/data/row/row.cpp", 1, false, "vector"}), "");
  for (const char *folder : {"tools", "examples"})
    for (const Include &include : includes_below(folder)) {
      const bool own = fs::exists(root / include.file.parent_path() / include.name);
      EXPECT_TRUE(!include.quoted || own || interface_headers.contains(include.name)) << include.text();
    }
}

// The names that the shared library defines for others.
Names exported_symbols() {
  Names names;
  const std::string command = std::string(TOVIK_NM) + " -D --defined-only '" + TOVIK_LIBRARY + "'";
  FILE *pipe = popen(command.c_str(), "r");
  char line[1024], name[1024];
  while (pipe != nullptr && fgets(line, sizeof line, pipe) != nullptr)
    if (sscanf(line, "%*s %*s %1023s", name) == 1) names.insert(name);
  EXPECT_EQ(pipe == nullptr ? -1 : pclose(pipe), 0) << command;
  return names;
}

// Function names that the public headers declare with the export macro: the word before the first "(".
Names declared_functions() {
  Names names;
  for (const std::string &header : interface_headers) {
    std::ifstream in(root / "include" / header);
    for (std::string line; std::getline(in, line);) {
      if (!line.starts_with("TOVIK_API ")) continue;
      const std::string before = line.substr(0, line.find('('));
      names.insert(before.substr(before.find_last_of(" *") + 1));
    }
  }
  return names;
}

TEST(Repository, SharedLibraryExportsTheDeclaredFunctionsAndNothingElse) {
  const Names exported = exported_symbols();
  for (const std::string &name : exported)
    EXPECT_TRUE(name == "kld_cmd_exec" || name.starts_with("kld_api_") || name.starts_with("tovik_")) << name;
  EXPECT_GT(exported.size(), 10u);
  EXPECT_EQ(exported, declared_functions());
}

}  // namespace
