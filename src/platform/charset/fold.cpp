#include "platform/charset/fold.h"

#include "platform/charset/charset.h"

namespace tovik {

namespace {

constexpr CodeRange ascii_capitals = {'A', 'Z'};
constexpr CodeRange ascii_smalls = {'a', 'z'};
constexpr uint32_t ascii_case_distance = 'a' - 'A';

uint32_t fold_ascii(uint32_t code, uint32_t flags) {
  if ((flags & fold_to_capital) != 0 && ascii_smalls.holds(code)) return code - ascii_case_distance;
  if ((flags & fold_to_small) != 0 && ascii_capitals.holds(code)) return code + ascii_case_distance;
  return (flags & fold_tab) != 0 && code == '\t' ? ' ' : code;
}

}  // namespace

// clang-format off
const uint16_t full_katakana_euc[half_katakana_count] = {
    0xA1A3, 0xA1D6, 0xA1D7, 0xA1A2, 0xA1A6, 0xA5F2, 0xA5A1, 0xA5A3, 0xA5A5, 0xA5A7,  // 0xA1: . [ ] , ・ ヲ ァ ィ ゥ ェ
    0xA5A9, 0xA5E3, 0xA5E5, 0xA5E7, 0xA5C3, 0xA1BC,                                  // 0xAB: ォ ャ ュ ョ ッ ー
    0xA5A2, 0xA5A4, 0xA5A6, 0xA5A8, 0xA5AA,                                          // 0xB1: ア イ ウ エ オ
    0xA5AB, 0xA5AD, 0xA5AF, 0xA5B1, 0xA5B3,                                          // 0xB6: カ キ ク ケ コ
    0xA5B5, 0xA5B7, 0xA5B9, 0xA5BB, 0xA5BD,                                          // 0xBB: サ シ ス セ ソ
    0xA5BF, 0xA5C1, 0xA5C4, 0xA5C6, 0xA5C8,                                          // 0xC0: タ チ ツ テ ト
    0xA5CA, 0xA5CB, 0xA5CC, 0xA5CD, 0xA5CE,                                          // 0xC5: ナ ニ ヌ ネ ノ
    0xA5CF, 0xA5D2, 0xA5D5, 0xA5D8, 0xA5DB,                                          // 0xCA: ハ ヒ フ ヘ ホ
    0xA5DE, 0xA5DF, 0xA5E0, 0xA5E1, 0xA5E2,                                          // 0xCF: マ ミ ム メ モ
    0xA5E4, 0xA5E6, 0xA5E8,                                                          // 0xD4: ヤ ユ ヨ
    0xA5E9, 0xA5EA, 0xA5EB, 0xA5EC, 0xA5ED,                                          // 0xD7: ラ リ ル レ ロ
    0xA5EF, 0xA5F3, 0xA1AB, 0xA1AC,                                                  // 0xDC: ワ ン and the marks
};
// clang-format on

uint32_t fold_code(const FoldTable &table, uint32_t code, uint32_t next, uint32_t flags, bool *with_next) {
  *with_next = false;
  if (code < 0x80) return fold_ascii(code, flags);
  const struct {
    CodeRange range;
    uint32_t to_ascii;  // the flag that folds the range to ASCII
    char ascii;
    uint32_t to_other;  // the flag that folds it to the letters of the other case
    uint32_t other;
  } full_width[] = {
      {table.full_digits, fold_full_digits, '0', 0, 0},
      {table.full_capitals, fold_full_capitals, 'A', fold_full_to_small, table.full_smalls.first},
      {table.full_smalls, fold_full_smalls, 'a', fold_full_to_capital, table.full_capitals.first},
  };
  for (const auto &row : full_width) {
    if (!row.range.holds(code)) continue;
    const uint32_t place = code - row.range.first;
    if ((flags & row.to_ascii) != 0) return static_cast<uint32_t>(row.ascii) + place;
    return (flags & row.to_other) != 0 ? row.other + place : code;
  }
  if (table.full_space.holds(code)) return (flags & fold_full_space) != 0 ? ' ' : code;
  if (table.hiragana.holds(code)) return (flags & fold_hiragana) != 0 ? table.katakana_of(code) : code;
  if (!table.half_katakana.holds(code) || (flags & fold_half_katakana) == 0) return code;
  const uint32_t full = table.full_katakana_of(static_cast<int>(code - table.half_katakana.first));
  const uint32_t semi_voiced = table.half_katakana.last;
  const uint32_t voiced = semi_voiced - 1;
  *with_next = next == voiced || next == semi_voiced;
  return *with_next ? full + (next == voiced ? 1 : 2) : full;
}

bool code_in_class(const FoldTable &table, uint32_t code, int character_class) {
  switch (character_class) {
    case 3:
      return table.full_space.holds(code);
    case 4:
      return table.full_capitals.holds(code);
    case 5:
      return table.full_smalls.holds(code);
    case 6:
      return table.full_digits.holds(code);
    case 7:
      return table.hiragana.holds(code);
    case 8:
      return table.katakana.holds(code);
    case 9:
      return table.half_katakana.holds(code);
    default:
      return false;
  }
}

}  // namespace tovik
