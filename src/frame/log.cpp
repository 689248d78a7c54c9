#include "frame/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "frame/dump.h"
#include "frame/env.h"
#include "frame/error.h"
#include "platform/platform.h"

namespace tovik {

namespace {

constexpr int line_size = 512;
constexpr int error_text_size = 256;

constexpr const char *level_names[] = {"error", "warn", "info", "message", "debug"};

char *add_prefix(char *line, LogLevel level, const char *tag) {
  DateTimeRec now;
  system_driver.local_now(&now);
  return dump_text(line, line_size, "[%04d/%02d/%02d %02d:%02d:%02d.%06d][%s][%s][%s] ", now.year, now.month,
                   now.day, now.hour, now.minute, now.second, now.microseconds,
                   level_names[static_cast<int>(level)], "warm", tag);
}

}  // namespace

void log_write(LogLevel level, const char *tag, const char *format, ...) {
  const char *path = env_text(Env::log_file);
  if (path == nullptr || path[0] == '\0' || format == nullptr) return;
  const int errno_before = errno;
  FILE *stream = system_driver.stream_open(path, "ab+");
  if (stream != nullptr) {
    char line[line_size];
    char *position = add_prefix(line, level, tag);
    char *const end = line + line_size;
    va_list arguments;
    va_start(arguments, format);
    const int written = vsnprintf(position, static_cast<size_t>(end - position), format, arguments);
    va_end(arguments);
    if (written > 0) position += strlen(position);
    if (level == LogLevel::error) {
      char errors[error_text_size];
      err_format(errors, error_text_size, nullptr);
      position = dump_text(position, static_cast<int>(end - position), " %s", errors);
    } else {
      position = dump_text(position, static_cast<int>(end - position), "\r\n");
    }
    system_driver.stream_write(line, 1, static_cast<size_t>(position - line), stream);
    system_driver.stream_close(stream);
  }
  errno = errno_before;
}

}  // namespace tovik
