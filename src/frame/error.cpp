#include "frame/error.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "frame/dump.h"
#include "frame/env.h"

namespace tovik {

namespace {

constexpr size_t entry_text_size = 256;
constexpr char unknown_message[] = "Not found error message.";

thread_local ErrorRecord record;

// The text of one entry, built piece by piece and cut at its end.
class EntryText {
 public:
  __attribute__((format(printf, 2, 3))) void add(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = vsnprintf(text_ + length_, entry_text_size - length_, format, arguments);
    va_end(arguments);
    if (written > 0) length_ += strlen(text_ + length_);
  }
  const char *text() const { return text_; }
  size_t length() const { return length_; }

 private:
  char text_[entry_text_size] = {};
  size_t length_ = 0;
};

// Copies text into the record's pool; "" when the pool is full.
const char *pool_text(const EntryText &text) {
  const size_t size = text.length() + 1;
  const size_t used = static_cast<size_t>(record.texts_used);
  if (used + size > error_text_pool_size) return "";
  char *copy = record.texts + used;
  memcpy(copy, text.text(), size);
  record.texts_used += static_cast<int32_t>(size);
  return copy;
}

}  // namespace

ErrorCategory error_category(StatusCode code) {
  if (code < 0) return ErrorCategory::driver;
  if (code < 10000) return ErrorCategory::sys;
  return code < 100000 ? ErrorCategory::internal : ErrorCategory::user;
}

const char *error_category_name(ErrorCategory category) {
  static constexpr const char *names[] = {"SYS", "INT", "USR", "DRV"};
  return names[static_cast<int>(category)];
}

ErrorRecord &error_record() {
  return record;
}

void err_set(StatusCode code) {
  err_set(code, {});
}

void err_set(StatusCode code, const ErrorExtra &extra) {
  if (code == 0) return;
  const int sys_errno = errno;
  const ErrorCategory category = error_category(code);
  EntryText line;
  line.add("Error:[%s-%06d] ", error_category_name(category), code);
  line.add("%s", extra.text != nullptr && extra.text[0] != '\0' ? extra.text : err_message(code));
  if (sys_errno != 0) line.add(" %s (errno:%d)", strerror(sys_errno), sys_errno);
  record.last_code = code;
  system_driver.local_now(&record.stamp);
  ErrorEntry &entry = record.entries[record.count < error_entry_limit ? record.count : error_entry_limit - 1];
  entry = {static_cast<int32_t>(category), code, sys_errno, extra.detail1, extra.detail2, pool_text(line)};
  if (record.primary == nullptr || extra.primary) record.primary = &entry;
  if (record.count < std::numeric_limits<int32_t>::max()) ++record.count;
  errno = 0;
  if (env_on(Env::error_abort)) abort();
}

void err_set_first(StatusCode code) {
  const ErrorRecord causes = record;
  err_clear();
  err_set(code);
  for (int i = 0; i < causes.count && i < error_entry_limit; ++i) {
    const ErrorEntry &cause = causes.entries[i];
    errno = cause.sys_errno;
    err_set(cause.code, {.detail1 = cause.detail1, .detail2 = cause.detail2});
  }
}

void err_set_driver(int32_t code, const char *text, int32_t detail1, int32_t detail2) {
  if (code < 0) err_set(code, {.text = text, .detail1 = detail1, .detail2 = detail2});
}

// Called at every exported function: an empty record is already all zero.
void err_clear() {
  if (record.count != 0) memset(static_cast<void *>(&record), 0, offsetof(ErrorRecord, snapshot));
  errno = 0;
}

void err_save() {
  if (record.primary == nullptr) return;
  record.snapshot = {record.last_code, record.stamp, record.count, *record.primary};
}

void err_clear_snapshot() {
  record.snapshot = {};
}

void err_format(char *buffer, int size, const char *title) {
  char *position = buffer;
  const auto room = [&] { return size - static_cast<int>(position - buffer); };
  if (title != nullptr && title[0] != '\0') position = dump_line(position, room(), "%s", title);
  if (record.count == 0) {
    dump_line(position, room(), "No error.(code:%d)", record.last_code);
    return;
  }
  for (int i = 0; i < record.count && i < error_entry_limit; ++i) {
    const ErrorEntry &entry = record.entries[i];
    position = dump_line(position, room(), "[%d]:%d(%d) %s", i + 1, entry.code, entry.sys_errno, entry.text);
  }
}

const char *err_message(StatusCode code) {
  int low = 0;
  int high = status_text_count - 1;
  while (low <= high) {
    const int middle = low + (high - low) / 2;
    if (status_texts[middle].code == code) return status_texts[middle].text;
    if (status_texts[middle].code < code) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  return unknown_message;
}

ErrorScope::ErrorScope() : saved_(record) {}

ErrorScope::~ErrorScope() {
  record = saved_;
}

}  // namespace tovik
