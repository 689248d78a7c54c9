// The calling thread's error record: a chain of up to 16 entries, the first failure and those of the callers
// that passed it upwards, each with a formatted text.
//
// A failing function records its status once, where the failure is detected, and returns its failure value;
// fail() does both in one expression. Recording allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/status.h"
#include "platform/found.h"
#include "platform/platform.h"

namespace tovik {

enum class ErrorCategory : int32_t { sys = 0, internal = 1, user = 2, driver = 3 };

ErrorCategory error_category(StatusCode code);
const char *error_category_name(ErrorCategory category);  // "SYS", "INT", "USR", "DRV"

struct ErrorEntry {
  int32_t category;
  StatusCode code;
  int32_t sys_errno;  // the runtime library's error number when the error was recorded
  int32_t detail1;    // what the failing operation tells, or 0
  int32_t detail2;
  const char *text;  // in the record's text pool, or "" when the pool is full
};

inline constexpr int error_entry_limit = 16;
inline constexpr int error_text_pool_size = 512;

struct ErrorSnapshot {
  StatusCode last_code;
  DateTimeRec stamp;
  int32_t count;
  ErrorEntry primary;
};

struct ErrorRecord {
  StatusCode last_code;
  DateTimeRec stamp;    // local time of the most recent recording
  int32_t count;        // keeps counting past error_entry_limit
  ErrorEntry *primary;  // the entry that the record interface reports
  ErrorEntry entries[error_entry_limit];
  char texts[error_text_pool_size];
  int32_t texts_used;
  ErrorSnapshot snapshot;
};

ErrorRecord &error_record();  // the calling thread's

// Records code with its catalogue text. Code 0 does nothing.
void err_set(StatusCode code);

// What an entry carries besides its code.
struct ErrorExtra {
  const char *text = nullptr;  // replaces the catalogue text unless null or empty
  bool primary = false;        // this entry becomes the primary one
  int32_t detail1 = 0;
  int32_t detail2 = 0;
};
void err_set(StatusCode code, const ErrorExtra &extra);

// Records code in front of all that is recorded: an outcome that tells the caller more than its causes do.
void err_set_first(StatusCode code);

// What storage drivers report through; records negative codes only.
void err_set_driver(int32_t code, const char *text, int32_t detail1, int32_t detail2);

void err_clear();           // empties the record and errno; keeps the snapshot
void err_save();            // copies the primary entry, if any, into the snapshot
void err_clear_snapshot();  // zeroes the snapshot

// Writes title (unless null or empty) and one line per entry through dump_line; a null buffer prints.
void err_format(char *buffer, int size, const char *title);

const char *err_message(StatusCode code);  // Shift-JIS; "Not found error message." for a code without text

// What becomes of a failure that its caller may take lightly.
enum class Mishap { recorded, silent };

// Records code and gives false: the one-line failure of every operation that returns bool.
[[nodiscard]] inline bool fail(StatusCode code) {
  err_set(code);
  return false;
}

[[nodiscard]] inline bool fail(StatusCode code, const ErrorExtra &extra) {
  err_set(code, extra);
  return false;
}

// The same for operations that return an object.
[[nodiscard]] inline std::nullptr_t fail_null(StatusCode code) {
  err_set(code);
  return nullptr;
}
[[nodiscard]] inline std::nullptr_t fail_null(StatusCode code, const ErrorExtra &extra) {
  err_set(code, extra);
  return nullptr;
}

// The same for operations that look for something.
[[nodiscard]] inline Found fail_found(StatusCode code) {
  err_set(code);
  return Found::failed;
}

// Puts the record back as it was at construction: for a try whose failure is not the caller's.
class ErrorScope {
 public:
  ErrorScope();
  ~ErrorScope();
  ErrorScope(const ErrorScope &) = delete;
  ErrorScope &operator=(const ErrorScope &) = delete;

 private:
  ErrorRecord saved_;
};

}  // namespace tovik
