// 0x8F starts a character of three bytes; any other byte from 0x8E to 0xFE except 0xA0 starts one of two
// bytes, those that start with 0x8E being the half-width katakana; the rest are characters of their own.
#include "platform/charset/byte_pair.h"
#include "platform/charset/character_ops.h"
#include "platform/charset/handlers.h"

namespace tovik {

namespace {

constexpr unsigned char half_katakana_lead = 0x8E;
constexpr unsigned char triple_lead = 0x8F;

bool is_trail(unsigned char byte) {
  return byte_within(byte, 0xA1, 0xFE);
}

int lead_length(unsigned char byte) {
  if (byte == triple_lead) return 3;
  return byte_within(byte, 0x8E, 0xFE) && byte != 0xA0 ? 2 : 1;
}

uint32_t katakana_of(uint32_t hiragana) {
  return hiragana + 0x100;
}

uint32_t full_katakana_of(int half_index) {
  return full_katakana_euc[half_index];
}

constexpr FoldTable euc_folds = {
    {0xA3B0, 0xA3B9}, {0xA3C1, 0xA3DA}, {0xA3E1, 0xA3FA}, {0xA1A1, 0xA1A1}, {0xA4A1, 0xA4F3},
    {0xA5A1, 0xA5F6}, {0x8EA1, 0x8EDF}, katakana_of,      full_katakana_of,
};

struct Euc : BytePairText {
  static constexpr const FoldTable &folds = euc_folds;

  static int length(const char *text) { return bounded_length(text, lead_length(byte_at(text, 0))); }

  static const char *previous(const char *start, const char *text) {
    if (text - start < 2 || !is_trail(byte_at(text, -1))) return text - 1;
    const unsigned char second = byte_at(text, -2);
    if (second == half_katakana_lead) return text - 2;
    if (!is_trail(second)) return text - 1;
    return text - start >= 3 && byte_at(text, -3) == triple_lead ? text - 3 : text - 2;
  }

  static bool valid(const char *text) {
    for (int size; (size = length(text)) != 0; text += size) {
      if (byte_at(text, 0) < 0x80) continue;
      if (size != lead_length(byte_at(text, 0)) || size == 1) return false;
      for (int i = 1; i < size; ++i) {
        if (!is_trail(byte_at(text, i))) return false;
      }
    }
    return true;
  }
};

}  // namespace

constinit const Charset euc_charset = charset_of<Euc>("EUC");

}  // namespace tovik
