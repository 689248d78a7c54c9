#include "frame/charset_current.h"
#include "sql/evaluate/pattern.h"
#include "sql/parse/character.h"

namespace tovik {

// A failure goes back to the last "%" only: what an earlier one could take in, the last one can as well.
bool pattern_like(const char *text, const char *pattern) {
  const Charset &charset = charset_current();
  const char *resume_pattern = nullptr;  // behind the last "%"
  const char *resume_text = nullptr;     // where its sequence ends
  for (;;) {
    if (*pattern == '%') {
      while (*pattern == '%') ++pattern;
      if (*pattern == '\0') return true;
      resume_pattern = pattern;
      resume_text = text;
      continue;
    }
    if (*text == '\0') return *pattern == '\0';  // a shorter rest cannot match either
    if (*pattern != '\0') {
      const Character character = character_at(charset, text);
      const bool any = *pattern == '_';
      if (*pattern == '\\' && pattern[1] != '\0') ++pattern;
      const Character wanted = character_at(charset, pattern);
      if (any || character_equal(character, wanted)) {
        text += character.size;
        pattern += wanted.size;
        continue;
      }
    }
    if (resume_pattern == nullptr) return false;
    resume_text += character_size(charset, resume_text);
    text = resume_text;
    pattern = resume_pattern;
  }
}

}  // namespace tovik
