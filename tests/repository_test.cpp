// The rules that the shape of the repository follows: which way includes point, what the engine may take
// from the standard library, and which symbols leave the shared library.
#include <gtest/gtest.h>

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

Names words(const char *text) {
  std::istringstream in(text);
  return Names(std::istream_iterator<std::string>(in), {});
}

const fs::path root = TOVIK_SOURCE_DIR;
const std::vector<std::string> layers = {"platform", "frame", "storage",
                                         "data",     "sql",   "api"};  // bottom first
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

std::vector<Include> includes_of(const fs::path &file) {
  std::vector<Include> found;
  std::ifstream in(root / file);
  std::string text;
  for (int line = 1; std::getline(in, text); ++line) {
    size_t at = text.find_first_not_of(" \t");
    if (at == std::string::npos || text[at] != '#') continue;
    at = text.find_first_not_of(" \t", at + 1);
    if (at == std::string::npos || text.compare(at, 7, "include") != 0) continue;
    size_t open = text.find_first_of("\"<", at);
    if (open == std::string::npos) continue;
    size_t close = text.find_first_of("\">", open + 1);
    found.push_back({file, line, text[open] == '"', text.substr(open + 1, close - open - 1)});
  }
  return found;
}

std::vector<Include> includes_below(const char *folder) {
  const Names source_kinds = {".h", ".c", ".cpp", ".y", ".l", ".inc"};
  std::vector<Include> found;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root / folder)) {
    if (!source_kinds.contains(entry.path().extension().string())) continue;
    std::vector<Include> more = includes_of(fs::relative(entry.path(), root));
    found.insert(found.end(), more.begin(), more.end());
  }
  return found;
}

std::string first_part(const std::string &path) {
  return path.substr(0, path.find('/'));
}

int layer_of(const std::string &folder) {
  for (size_t index = 0; index < layers.size(); ++index) {
    if (layers[index] == folder) return static_cast<int>(index);
  }
  return -1;
}

// Why an include of src/ breaks the rules, or an empty text.
std::string fault_of(const Include &include) {
  const std::string below_src = include.file.generic_string().substr(4);
  const std::string own = first_part(below_src);
  if (layer_of(own) < 0) return "stands outside every layer";
  if (!include.quoted) {
    if (own == "platform" || standard_headers.contains(include.name)) return "";
    // The command interpreter switches its input stream to binary mode itself.
    if (own == "api" && below_src.find("command") != std::string::npos &&
        (include.name == "io.h" || include.name == "fcntl.h"))
      return "";
    return "is for src/platform only (operating system, or allocates)";
  }
  if (interface_headers.contains(include.name))
    return include.name == "tovik_types.h" || own == "api" ? "" : "is for src/api only";
  const int target = layer_of(first_part(include.name));
  if (target < 0) return "is not rooted at src/";
  return target <= layer_of(own) ? "" : "points up";
}

TEST(Repository, IncludesPointDownTheLayersOnly) {
  std::vector<Include> includes = includes_below("src");
  ASSERT_GT(includes.size(), 20u);
  for (const Include &include : includes) EXPECT_EQ(fault_of(include), "") << include.text();
}

TEST(Repository, IncludeRulesRefuseWhatTheyShould) {
  struct {
    const char *file;
    bool quoted;
    const char *name;
    bool allowed;
  } const cases[] = {
      {"src/data/row.cpp", true, "storage/cache.h", true},
      {"src/data/row.cpp", true, "data/types.h", true},
      {"src/data/row.cpp", true, "sql/value.h", false},
      {"src/platform/charset/utf8.cpp", true, "frame/error.h", false},
      {"src/platform/charset/utf8.cpp", true, "platform/charset/charset.h", true},
      {"src/data/row.cpp", true, "types.h", false},
      {"src/data/row.cpp", true, "kld_api.h", false},
      {"src/api/statement.cpp", true, "kld_api.h", true},
      {"src/platform/posix/file.cpp", false, "sys/stat.h", true},
      {"src/storage/file_io.cpp", false, "sys/stat.h", false},
      {"src/storage/file_io.cpp", false, "unistd.h", false},
      {"src/frame/log.cpp", false, "windows.h", false},
      {"src/data/row.cpp", false, "vector", false},
      {"src/data/row.cpp", false, "cstring", true},
      {"src/extra/row.cpp", false, "cstring", false},
  };
  for (const auto &test : cases) {
    const Include include{test.file, 1, test.quoted, test.name};
    EXPECT_EQ(fault_of(include).empty(), test.allowed) << include.text();
  }
}

TEST(Repository, ToolsAndExamplesUseOnlyThePublicHeaders) {
  for (const char *folder : {"tools", "examples"}) {
    for (const Include &include : includes_below(folder)) {
      const bool own = fs::exists(root / include.file.parent_path() / include.name);
      EXPECT_TRUE(!include.quoted || own || interface_headers.contains(include.name)) << include.text();
    }
  }
}

// The names that the shared library defines for others.
std::vector<std::string> exported_symbols() {
  std::vector<std::string> names;
  const std::string command = std::string(TOVIK_NM) + " -D --defined-only '" + TOVIK_LIBRARY + "'";
  FILE *pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return names;
  char line[1024];
  while (fgets(line, sizeof line, pipe) != nullptr) {
    std::string text(line);
    text.erase(text.find_last_not_of("\n") + 1);
    names.push_back(text.substr(text.rfind(' ') + 1));
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return names;
}

bool is_interface_name(const std::string &name) {
  return name == "kld_cmd_exec" || name.starts_with("kld_api_") || name.starts_with("tovik_");
}

// Function names that the public headers declare with the export macro.
Names declared_functions() {
  Names names;
  for (const std::string &header : interface_headers) {
    std::ifstream in(root / "include" / header);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (size_t at = text.find("\nTOVIK_API "); at != std::string::npos;
         at = text.find("\nTOVIK_API ", at + 1)) {
      const size_t end = text.find('(', at);
      const size_t start = text.find_last_of(" *\n", end) + 1;
      names.insert(text.substr(start, end - start));
    }
  }
  return names;
}

TEST(Repository, SharedLibraryExportsTheDeclaredFunctionsAndNothingElse) {
  Names exported;
  for (const std::string &name : exported_symbols()) {
    EXPECT_TRUE(is_interface_name(name)) << name;
    exported.insert(name);
  }
  EXPECT_EQ(exported, declared_functions());
}

}  // namespace
