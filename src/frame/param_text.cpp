#include "frame/param_text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/ascii.h"
#include "platform/platform.h"

namespace tovik {

namespace {

// A bounded target that drops what does not fit.
class Cut {
 public:
  Cut(char *buffer, int size) : buffer_(buffer), room_(size - 1), length_(0) { buffer_[0] = '\0'; }

  void add(char c) {
    if (length_ >= room_) return;
    buffer_[length_++] = c;
    buffer_[length_] = '\0';
  }
  void trim() {
    while (length_ > 0 && is_blank(buffer_[length_ - 1])) buffer_[--length_] = '\0';
  }

 private:
  char *buffer_;
  int room_;
  int length_;
};

// The character that closes a value opened by c, or 0 when c opens none.
char closing_of(char c) {
  if (c == '"' || c == '\'') return c;
  return c == '{' ? '}' : '\0';
}

// Reads a value from just past its "="; stops at ";" or the end.
const char *read_value(const char *text, Cut *value) {
  text = skip_blanks(text);
  const char closing = closing_of(*text);
  if (closing == '\0') {
    for (; *text != '\0' && *text != ';'; ++text) value->add(*text);
    value->trim();
    return text;
  }
  for (++text; *text != '\0' && *text != closing; ++text) value->add(*text);
  while (*text != '\0' && *text != ';') ++text;
  return text;
}

}  // namespace

const char *next_pair(const char *text, char *key, int key_size, char *value, int value_size) {
  if (text == nullptr) return nullptr;
  text = skip_blanks(text);
  if (*text == '\0') return nullptr;
  Cut key_text(key, key_size);
  Cut value_text(value, value_size);
  for (; *text != '\0' && *text != '=' && *text != ';'; ++text) key_text.add(*text);
  key_text.trim();
  if (*text == '=') text = read_value(text + 1, &value_text);
  return *text == ';' ? text + 1 : text;
}

char *text_dup(const char *text) {
  const size_t size = strlen(text) + 1;
  char *copy = static_cast<char *>(mem_alloc(size));
  if (copy != nullptr) memcpy(copy, text, size);
  return copy;
}

int32_t text_number(const char *text, int base) {
  const int before = errno;
  const long long wide = strtoll(text, nullptr, base);
  errno = before;
  if (wide > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (wide < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(wide);
}

bool text_equal_nocase(const char *a, const char *b) {
  while (*a != '\0' && ascii_lower(*a) == ascii_lower(*b)) {
    ++a;
    ++b;
  }
  return ascii_lower(*a) == ascii_lower(*b);
}

}  // namespace tovik
