// A lead byte 0x81-0x9F or 0xE0-0xFC starts a character of two bytes whose trail byte is 0x40-0xFC except
// 0x7F; any other byte is a character of its own, among them the half-width katakana 0xA1-0xDF.
#include "platform/charset/byte_pair.h"
#include "platform/charset/character_ops.h"
#include "platform/charset/handlers.h"

namespace tovik {

namespace {

bool is_lead(unsigned char byte) {
  return byte_within(byte, 0x81, 0x9F) || byte_within(byte, 0xE0, 0xFC);
}

bool is_trail(unsigned char byte) {
  return byte_within(byte, 0x40, 0xFC) && byte != 0x7F;
}

bool is_half_katakana(unsigned char byte) {
  return byte_within(byte, 0xA1, 0xDF);
}

// The katakana row skips the trail byte 0x7F.
uint32_t katakana_of(uint32_t hiragana) {
  const uint32_t trail = hiragana & 0xFF;
  return 0x8300 + trail - (trail < 0xDE ? 0x5F : 0x5E);
}

// Two rows of 94 characters share one lead byte: the odd row has the trail bytes 0x40-0x9E without 0x7F, the
// even row those from 0x9F.
uint32_t full_katakana_of(int half_index) {
  const uint32_t euc = full_katakana_euc[half_index];
  const uint32_t row = (euc >> 8) - 0xA1;
  const uint32_t column = (euc & 0xFF) - 0xA1;
  const uint32_t odd_row_skip = column >= 0x3F ? 1 : 0;
  const uint32_t trail = row % 2 == 0 ? 0x40 + column + odd_row_skip : 0x9F + column;
  return (0x81 + row / 2) << 8 | trail;
}

constexpr FoldTable sjis_folds = {
    {0x824F, 0x8258}, {0x8260, 0x8279}, {0x8281, 0x829A}, {0x8140, 0x8140}, {0x829F, 0x82F2},
    {0x8340, 0x8396}, {0xA1, 0xDF},     katakana_of,      full_katakana_of,
};

struct Sjis : BytePairText {
  static constexpr const FoldTable &folds = sjis_folds;

  static int length(const char *text) { return bounded_length(text, is_lead(byte_at(text, 0)) ? 2 : 1); }

  static const char *previous(const char *start, const char *text) {
    const bool pair = text - start >= 2 && is_lead(byte_at(text, -2)) && is_trail(byte_at(text, -1));
    return pair ? text - 2 : text - 1;
  }

  static bool valid(const char *text) {
    for (int size; (size = length(text)) != 0; text += size) {
      const unsigned char first = byte_at(text, 0);
      if (first < 0x80 || is_half_katakana(first)) continue;
      if (size != 2 || !is_trail(byte_at(text, 1))) return false;
    }
    return true;
  }
};

}  // namespace

constinit const Charset sjis_charset = charset_of<Sjis>("SJIS");

}  // namespace tovik
