// A directory of its own for a benchmark's databases, under TMPDIR. It goes with the object.
#ifndef TOVIK_BENCH_DIRECTORY_H
#define TOVIK_BENCH_DIRECTORY_H

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

class Directory {
 public:
  Directory() : path_((std::filesystem::temp_directory_path() / "tovik_bench_XXXXXX").string()) {
    if (mkdtemp(path_.data()) != nullptr) return;
    perror(path_.c_str());
    exit(1);
  }
  ~Directory() { std::filesystem::remove_all(path_); }
  Directory(const Directory &) = delete;
  Directory &operator=(const Directory &) = delete;
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

#endif
