#include "frame/dump.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace tovik {

namespace {

constexpr int format_buffer_size = dump_text_limit + 1;

// Stores text and then end (a terminating text of 0 or 1 characters) if both fit, else as much of text as
// fits.
char *store(char *position, int remaining, const char *text, const char *end) {
  const int text_length = static_cast<int>(strlen(text));
  const int end_length = static_cast<int>(strlen(end));
  if (text_length + end_length + 1 <= remaining) {
    memcpy(position, text, static_cast<size_t>(text_length));
    memcpy(position + text_length, end, static_cast<size_t>(end_length) + 1);
    return position + text_length + end_length;
  }
  const int kept = text_length < remaining - 1 ? text_length : remaining - 1;
  memcpy(position, text, static_cast<size_t>(kept));
  position[kept] = '\0';
  return position + kept;
}

__attribute__((format(printf, 4, 0))) char *dump(char *position, int remaining, const char *end,
                                                 const char *format, va_list arguments) {
  char text[format_buffer_size];
  if (vsnprintf(text, format_buffer_size, format, arguments) < 0) text[0] = '\0';
  if (position == nullptr) {
    system_driver.print("%s%s", text, end);
    return nullptr;
  }
  return remaining <= static_cast<int>(strlen(end)) ? position : store(position, remaining, text, end);
}

}  // namespace

char *dump_line(char *position, int remaining, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  position = dump(position, remaining, "\n", format, arguments);
  va_end(arguments);
  return position;
}

void print_line(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  dump(nullptr, 0, "\n", format, arguments);
  va_end(arguments);
}

char *dump_text(char *position, int remaining, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  position = dump(position, remaining, "", format, arguments);
  va_end(arguments);
  return position;
}

}  // namespace tovik
