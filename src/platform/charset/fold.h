// Case, width and kana folding and the character classes, the same for every character set. A handler tells
// where its characters of each kind lie; here a character is a number: its bytes read as one big-endian
// number (SJIS, EUC) or its code point (UTF-8, UTF-16).
#pragma once

#include <cstdint>

namespace tovik {

struct CodeRange {
  uint32_t first;
  uint32_t last;
  constexpr bool holds(uint32_t code) const { return code >= first && code <= last; }
};

struct FoldTable {
  CodeRange full_digits;
  CodeRange full_capitals;
  CodeRange full_smalls;
  CodeRange full_space;
  CodeRange hiragana;
  CodeRange katakana;
  CodeRange half_katakana;  // 63 characters; the last two are the voiced and the semi-voiced mark
  uint32_t (*katakana_of)(uint32_t hiragana);
  uint32_t (*full_katakana_of)(int half_index);
};

// A character that no conversion and no class but "multi-byte" concerns.
inline constexpr uint32_t code_without_folds = 0xFFFFFFFF;

inline constexpr int half_katakana_count = 63;

// Half-width katakana in JIS X 0201 order as JIS X 0208 codes of the EUC form (0xA1A3...).
extern const uint16_t full_katakana_euc[half_katakana_count];

// Folds one character. next is the character after it; *with_next is set when that is a mark that the result
// takes in.
uint32_t fold_code(const FoldTable &table, uint32_t code, uint32_t next, uint32_t flags, bool *with_next);

// Classes 3 to 9 of the character classes.
bool code_in_class(const FoldTable &table, uint32_t code, int character_class);

}  // namespace tovik
