// Helpers that the test programs share.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace tovik::test {

using Bytes = std::vector<uint8_t>;

// A fresh directory of its own, removed with everything in it at the end of the scope.
class TempDir {
 public:
  TempDir() : path_((std::filesystem::temp_directory_path() / "tovik_test_XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) ADD_FAILURE() << "cannot make " << path_;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::string &path() const { return path_; }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Puts a slot of a platform table back at the end of the scope.
template <class Slot>
class SlotGuard {
 public:
  SlotGuard(Slot &slot, Slot replacement) : slot_(slot), saved_(slot) { slot = replacement; }
  ~SlotGuard() { slot_ = saved_; }
  Slot saved() const { return saved_; }

 private:
  Slot &slot_;
  Slot saved_;
};

enum class Failure { once, from_then_on };

// Calls of which one, counted from 1, or all from that one on must fail; 0: none.
struct FailingCalls {
  int first = 0;
  Failure how = Failure::once;
  int calls = 0;
  bool met = false;  // one has failed

  bool next() {
    ++calls;
    const bool fails = first != 0 && (how == Failure::once ? calls == first : calls >= first);
    met |= fails;
    return fails;
  }
};

// Runs work on a thread with the smallest stack that the limits promise to hold; the redzones of the address
// sanitizer make its frames several times as large.
template <class Work>
void on_small_stack(Work work) {
#if defined(__SANITIZE_ADDRESS__)
  constexpr size_t size = 512 * 1024;
#else
  constexpr size_t size = 128 * 1024;
#endif
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  EXPECT_EQ(0, pthread_attr_setstacksize(&attributes, size));
  pthread_t thread;
  const auto start = [](void *given) -> void * {
    (*static_cast<Work *>(given))();
    return nullptr;
  };
  EXPECT_EQ(0, pthread_create(&thread, &attributes, start, &work));
  EXPECT_EQ(0, pthread_join(thread, nullptr));
  pthread_attr_destroy(&attributes);
}

// The random numbers of one test. The seed is TOVIK_TEST_SEED, or 1 so that a plain run repeats itself;
// a test that fails prints it. Tests named *Random* are run over and over with fresh seeds by scripts/soak.
class Random {
 public:
  Random() : Random(seed_from_environment()) {}
  explicit Random(uint64_t seed)
      : engine_(seed), trace_(__FILE__, __LINE__, "TOVIK_TEST_SEED=" + std::to_string(seed)) {}

  uint64_t next() { return engine_(); }
  int below(int limit) {
    return static_cast<int>(engine_() % static_cast<uint64_t>(limit));
  }  // 0 to limit - 1
  bool one_in(int chances) { return below(chances) == 0; }

 private:
  static uint64_t seed_from_environment() {
    const char *text = getenv("TOVIK_TEST_SEED");
    return text == nullptr ? 1 : strtoull(text, nullptr, 10);
  }

  std::mt19937_64 engine_;
  testing::ScopedTrace trace_;
};

}  // namespace tovik::test
