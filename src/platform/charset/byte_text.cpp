#include "platform/charset/byte_text.h"

#include <cstring>

namespace tovik {

char *byte_text_copy(char *target, const char *source) {
  return strcpy(target, source);
}

int byte_text_length(const char *text, bool with_terminator) {
  return static_cast<int>(strlen(text)) + (with_terminator ? 1 : 0);
}

int byte_text_compare(const char *a, const char *b) {
  const int order = strcmp(a, b);
  return order < 0 ? -1 : order > 0 ? 1 : 0;
}

char *byte_text_append(char *target, const char *source) {
  return strcat(target, source);
}

void byte_text_clear(char *text) {
  text[0] = '\0';
}

}  // namespace tovik
