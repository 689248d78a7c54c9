// What the encodings share whose unit is a byte (see character_ops.h).
#pragma once

#include <cstring>

namespace tovik {

inline unsigned char byte_at(const char *text, int index) {
  return static_cast<unsigned char>(text[index]);
}

// wanted bytes, or fewer when the terminator comes first; 0 at the terminator.
inline int bounded_length(const char *text, int wanted) {
  int length = 0;
  while (length < wanted && text[length] != '\0') ++length;
  return length;
}

struct ByteText {
  static constexpr int unit = 1;

  static char *copy(char *target, const char *source) { return strcpy(target, source); }
  static char *append(char *target, const char *source) { return strcat(target, source); }
  static int byte_length(const char *text) { return static_cast<int>(strlen(text)); }
  static int compare(const char *a, const char *b) {
    const int order = strcmp(a, b);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
  }
};

}  // namespace tovik
