#include "platform/posix/path.h"

#include <strings.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace tovik {

namespace {

constexpr char temp_directory[] = "c:\\temp";
constexpr size_t temp_directory_length = sizeof temp_directory - 1;

bool is_separator(char c) {
  return c == '\\' || c == '/';
}

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool in_temp_directory(const char *name) {
  if (strlen(name) < temp_directory_length || strncasecmp(name, "c:", 2) != 0 || !is_separator(name[2]))
    return false;
  const char next = name[temp_directory_length];
  return strncasecmp(name + 3, temp_directory + 3, temp_directory_length - 3) == 0 &&
         (next == '\0' || is_separator(next));
}

const char *system_temp_directory() {
  const char *directory = getenv("TMPDIR");
  return directory != nullptr && directory[0] != '\0' ? directory : "/tmp";
}

}  // namespace

const char *path_last_separator(const char *name) {
  const char *last = nullptr;
  for (; *name != '\0'; ++name) {
    if (is_separator(*name)) last = name;
  }
  return last;
}

SystemPath::SystemPath(const char *name) : valid_(false) {
  if (name == nullptr) {
    errno = EINVAL;
    return;
  }
  const char *prefix = "";
  if (in_temp_directory(name)) {
    prefix = system_temp_directory();
    name += temp_directory_length;
  } else if (is_letter(name[0]) && name[1] == ':') {
    name += 2;
  }
  const size_t prefix_length = strlen(prefix);
  const size_t name_length = strlen(name);
  if (prefix_length + name_length >= sizeof text_) {
    errno = ENAMETOOLONG;
    return;
  }
  memcpy(text_, prefix, prefix_length);
  char *target = text_ + prefix_length;
  for (size_t i = 0; i <= name_length; ++i) target[i] = name[i] == '\\' ? '/' : name[i];
  valid_ = true;
}

void SystemPath::to_directory() {
  char *last = strrchr(text_, '/');
  if (last == nullptr) {
    memcpy(text_, ".", 2);
  } else if (last == text_) {
    text_[1] = '\0';
  } else {
    *last = '\0';
  }
}

}  // namespace tovik
