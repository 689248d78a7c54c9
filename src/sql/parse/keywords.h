// The keyword table: 114 words, each with its token and, for types, units and date parts, a semantic value.
#pragma once

#include <cstdint>

namespace tovik {

struct Keyword {
  const char *name;  // lower case
  uint16_t token;
  int16_t value;
};

inline constexpr int keyword_count = 114;

const Keyword *keyword_find(const char *word);  // any case; null when none

}  // namespace tovik
