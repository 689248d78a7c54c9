// The layers below the exported functions started for a test, what they record, and a file driver
// that fails when told to.
#pragma once

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "data/data_layer.h"
#include "data/row/data_systems.h"
#include "frame/env.h"
#include "frame/error.h"
#include "storage/io/io.h"
#include "support.h"

namespace tovik::test {

using Codes = std::vector<StatusCode>;

// The codes in the thread's error record, oldest first.
inline Codes recorded() {
  Codes codes;
  const ErrorRecord &record = error_record();
  for (int i = 0; i < record.count && i < error_entry_limit; ++i) codes.push_back(record.entries[i].code);
  return codes;
}
inline Codes take_recorded() {
  const Codes codes = recorded();
  err_clear();
  return codes;
}
// The first of them, 0 when there is none.
inline StatusCode first_status() {
  const Codes codes = take_recorded();
  return codes.empty() ? 0 : codes[0];
}
inline std::string errors() {
  char text[2048] = "";
  err_format(text, sizeof text, "");
  return text;
}

// The engine, started with the settings of an init text.
class Engine {
 public:
  explicit Engine(const char *settings = "HVI_GMT_TIME=true") {
    err_clear();
    env_start(settings);
    EXPECT_TRUE(io_init());
    data_layer_register();
  }
  ~Engine() {
    io_term();
    env_release();
  }
};

template <class Work>
void on_other_thread(Work work) {
  std::thread([&] {
    work();
    err_clear();
  }).join();
}

inline Bytes read_file(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

inline void write_file(const std::string &path, const Bytes &bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::string> file_names(const std::string &directory) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(directory))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The file driver as added driver 101, behind a log of its calls ("sync a.dat") and a count after which a
// call fails. Made before the engine.
class FaultDriver {
 public:
  static constexpr int driver_no = 101;

  FaultDriver() {
    log_ = {};
    failing_ = {};
    driver_ = file_driver;
    driver_.name = "fault driver";
    driver_.file_open = [](const char *name, int flags, int mode, int number, int size) -> DriverHandle {
      if (fails((flags & open_create) != 0 ? "create" : "open", name)) return no_handle;
      const DriverHandle handle = file_driver.file_open(name, flags, mode, number, size);
      if (handle != no_handle) names_[handle] = name;
      return handle;
    };
    driver_.file_close = [](DriverHandle handle) {
      const bool failed = fails("close", names_[handle]);
      return file_driver.file_close(handle) < 0 || failed ? -1 : 0;
    };
    driver_.file_remove = [](const char *name) {
      return fails("remove", name) ? -1 : file_driver.file_remove(name);
    };
    driver_.file_rename = [](const char *name, const char *target) {
      return fails("rename", name) ? -1 : file_driver.file_rename(name, target);
    };
    wrap<&IoDriver::file_read>("read", file_driver.file_read);
    wrap<&IoDriver::file_write>("write", file_driver.file_write);
    wrap<&IoDriver::file_sync>("sync", file_driver.file_sync);
    wrap<&IoDriver::file_truncate>("truncate", file_driver.file_truncate);
    added_drivers[driver_no - added_driver_base] = &driver_;
  }
  ~FaultDriver() { added_drivers[driver_no - added_driver_base] = nullptr; }

  // As on a full disk; counted from now on.
  void fail_call(int call, Failure how = Failure::once) { failing_ = {call, how}; }
  std::vector<std::string> take_log() { return std::exchange(log_, {}); }

 private:
  template <auto slot, class Result, class... Arguments>
  static void wrap(const char *call, Result (*)(DriverHandle, Arguments...)) {
    static const char *name;
    name = call;
    driver_.*slot = [](DriverHandle handle, Arguments... arguments) -> Result {
      return fails(name, names_[handle]) ? -1 : (file_driver.*slot)(handle, arguments...);
    };
  }
  static bool fails(const char *call, const std::string &name) {
    log_.push_back(std::string(call) + " " + name.substr(name.find_last_of("/\\") + 1));
    if (!failing_.next()) return false;
    errno = ENOSPC;
    return true;
  }

  inline static IoDriver driver_;
  inline static std::vector<std::string> log_;
  inline static std::map<DriverHandle, std::string> names_;
  inline static FailingCalls failing_;
};

}  // namespace tovik::test
