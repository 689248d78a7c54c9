// Where the foldable characters lie among the code points of Unicode; for UTF-8 and UTF-16.
#pragma once

#include "platform/charset/fold.h"

namespace tovik {

uint32_t unicode_katakana_of(uint32_t hiragana);
uint32_t unicode_full_katakana_of(int half_index);

inline constexpr FoldTable unicode_folds = {
    {0xFF10, 0xFF19}, {0xFF21, 0xFF3A}, {0xFF41, 0xFF5A},    {0x3000, 0x3000},         {0x3041, 0x3096},
    {0x30A1, 0x30FE}, {0xFF61, 0xFF9F}, unicode_katakana_of, unicode_full_katakana_of,
};

}  // namespace tovik
