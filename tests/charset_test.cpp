#include "platform/charset/charset.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

using namespace tovik;
using namespace std::string_literals;

namespace {

// The bytes of a code point sequence in one of the two UTF-16 orders.
std::string utf16(std::u16string_view units, bool big_endian) {
  std::string bytes;
  for (const char16_t unit : units) {
    const char low = static_cast<char>(unit & 0xFF);
    const char high = static_cast<char>(unit >> 8);
    bytes += big_endian ? std::string{high, low} : std::string{low, high};
  }
  return bytes;
}

std::string hex(const std::string &bytes) {
  std::string text;
  char digits[4];
  for (const char c : bytes) {
    snprintf(digits, sizeof digits, "%02X ", static_cast<unsigned char>(c));
    text += digits;
  }
  return text;
}

// A text with the terminator of its character set. It is kept in a heap block of exactly its size, so that a
// walk past its end is seen by the address sanitizer.
class Text {
 public:
  Text(int set, const std::string &bytes) : set_(set), bytes_(bytes.begin(), bytes.end()) {
    bytes_.insert(bytes_.end(), set >= charset_utf16le ? 2 : 1, '\0');
    bytes_.shrink_to_fit();
  }
  const char *data() const { return bytes_.data(); }
  const char *end() const { return bytes_.data() + bytes_.size() - (set_ >= charset_utf16le ? 2 : 1); }

 private:
  int set_;
  std::vector<char> bytes_;
};

std::string converted(int set, const std::string &bytes, uint32_t flags) {
  const Text source(set, bytes);
  std::vector<char> target(bytes.size() * 2 + 2, '#');
  EXPECT_EQ(target.data(), charset_table[set]->convert(target.data(), source.data(), flags));
  const int length = charset_table[set]->byte_length(target.data());
  return std::string(target.data(), static_cast<size_t>(length));
}

std::string utf8(const std::u16string &units) {
  std::string bytes(units.size() * 3 + 1, '\0');
  const int size = system_driver.text_convert(charset_utf8, charset_utf16le, units.c_str(), 0, bytes.data(),
                                              static_cast<int>(bytes.size()), 0);
  EXPECT_LT(0, size);
  return bytes.substr(0, static_cast<size_t>(size - 1));
}

// One text written in every character set.
struct Everywhere {
  std::string sjis;
  std::string euc;
  std::u16string units;

  std::string in(int set) const {
    if (set == charset_sjis) return sjis;
    if (set == charset_euc) return euc;
    return set == charset_utf8 ? utf8(units) : utf16(units, set == charset_utf16be);
  }
};

// Where the characters of a text end, forwards and backwards, and whether it is well-formed.
TEST(Charset, Boundaries) {
  static const struct {
    int set;
    std::string text;
    std::vector<int> lengths;
    bool valid;
  } cases[] = {
      {charset_sjis, "\x82\xA0\x41", {2, 1}, true},
      {charset_sjis, "\xFC\xFC\x9F\x40", {2, 2}, true},
      {charset_sjis, "\x80", {1}, false},
      {charset_sjis, "\x82", {1}, false},
      {charset_sjis, "\x82\x7F", {2}, false},
      {charset_euc, "a\xA4\xA2\x8E\xB1\x8F\xA1\xA1z", {1, 2, 2, 3, 1}, true},
      {charset_euc, "\x8F\xA1", {2}, false},
      {charset_euc, "\xA4\x41", {2}, false},
      {charset_euc, "\x8E\xA0", {2}, false},
      {charset_utf8, "a\xC3\xA9\xE3\x81\x82\xF0\x9F\x98\x80", {1, 2, 3, 4}, true},
      {charset_utf8, "\xF8\x88\x80\x80\x80\xFC\x84\x80\x80\x80\x80", {5, 6}, true},
      {charset_utf8, "\xE3\x81", {2}, false},
      {charset_utf8, "\xFF\x80\x80\x80\x80\x80", {6}, false},
      {charset_utf16le, utf16(u"a\u3042\U0001F600", false), {2, 2, 4}, true},
      {charset_utf16be, utf16(u"a\u3042\U0001F600", true), {2, 2, 4}, true},
      {charset_utf16le, "\x00\xDC\x00\xD8"s, {2, 2}, true},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(charset_table[c.set]->name) + " " + hex(c.text));
    const Charset &set = *charset_table[c.set];
    const Text text(c.set, c.text);
    std::vector<const char *> starts;
    std::vector<int> lengths;
    for (const char *p = text.data(), *next; (next = set.next(p)) != nullptr; p = next) {
      starts.push_back(p);
      lengths.push_back(static_cast<int>(next - p));
    }
    EXPECT_EQ(c.lengths, lengths);
    EXPECT_EQ(static_cast<int>(c.lengths.size()), set.character_count(text.data()));
    EXPECT_EQ(c.valid, set.valid(text.data()));
    if (!c.valid) continue;
    const char *p = text.end();
    for (size_t i = starts.size(); i-- > 0;) {
      p = set.previous(text.data(), p);
      EXPECT_EQ(starts[i], p) << "character " << i;
    }
  }
}

// Units compare unsigned, and in UTF-16 as numbers in either byte order.
TEST(Charset, Compare) {
  EXPECT_EQ(1, charset_table[charset_sjis]->compare("\x82", "\x41"));
  EXPECT_EQ(1, charset_table[charset_utf16le]->compare("\x01\x30\0", "\xFF\x20\0"));
  EXPECT_EQ(1, charset_table[charset_utf16be]->compare("\x30\x01\0", "\x20\xFF\0"));
  EXPECT_EQ(0xE3 - 'a', charset_table[charset_utf8]->compare_characters("b\xE3\x81\x82", "ba", 2));
}

TEST(Charset, Conversions) {
  static const struct {
    uint32_t flags;
    Everywhere source;
    Everywhere target;
  } cases[] = {
      {fold_full_digits, {"\x82\x4F\x82\x58", "\xA3\xB0\xA3\xB9", u"\uFF10\uFF19"}, {"09", "09", u"09"}},
      {fold_full_smalls, {"\x82\x81\x82\x9A", "\xA3\xE1\xA3\xFA", u"\uFF41\uFF5A"}, {"az", "az", u"az"}},
      {fold_upper,
       {"\x82\x81\x82\x9Aiz", "\xA3\xE1\xA3\xFAiz", u"\uFF41\uFF5Aiz"},
       {"\x82\x60\x82\x79IZ", "\xA3\xC1\xA3\xDAIZ", u"\uFF21\uFF3AIZ"}},
      {fold_lower,
       {"\x82\x60\x82\x79@AZ[", "\xA3\xC1\xA3\xDA@AZ[", u"\uFF21\uFF3A@AZ["},
       {"\x82\x81\x82\x9A@az[", "\xA3\xE1\xA3\xFA@az[", u"\uFF41\uFF5A@az["}},
      {fold_full_space | fold_tab, {"\x81\x40\t", "\xA1\xA1\t", u"\u3000\t"}, {"  ", "  ", u"  "}},
      // Small a, mi (before the skipped trail byte of SJIS), mu (after it), n.
      {fold_hiragana,
       {"\x82\x9F\x82\xDD\x82\xDE\x82\xF1", "\xA4\xA1\xA4\xDF\xA4\xE0\xA4\xF3", u"\u3041\u307F\u3080\u3093"},
       {"\x83\x40\x83\x7E\x83\x80\x83\x93", "\xA5\xA1\xA5\xDF\xA5\xE0\xA5\xF3", u"\u30A1\u30DF\u30E0\u30F3"}},
      // KA, TA, HA and HA with their marks: GA, DA, BA, PA.
      {fold_half_katakana,
       {"\xB6\xDE\xC0\xDE\xCA\xDE\xCA\xDF",
        "\x8E\xB6\x8E\xDE\x8E\xC0\x8E\xDE\x8E\xCA\x8E\xDE\x8E\xCA\x8E\xDF",
        u"\uFF76\uFF9E\uFF80\uFF9E\uFF8A\uFF9E\uFF8A\uFF9F"},
       {"\x83\x4B\x83\x5F\x83\x6F\x83\x70", "\xA5\xAC\xA5\xC0\xA5\xD0\xA5\xD1", u"\u30AC\u30C0\u30D0\u30D1"}},
  };
  for (const auto &c : cases) {
    for (int set = 0; set < charset_count; ++set) {
      EXPECT_EQ(hex(c.target.in(set)), hex(converted(set, c.source.in(set), c.flags)))
          << charset_table[set]->name << " " << hex(c.source.in(set)) << std::hex << c.flags;
    }
  }
  static const std::tuple<int, uint32_t, std::string, std::string> single[] = {
      {charset_euc, fold_full_capitals | fold_full_smalls, "\x8F\xA1\xA1\xA3\xE1", "\x8F\xA1\xA1\x61"},
      {charset_sjis, fold_to_capital, "\x82\x61", "\x82\x61"},  // the trail byte is no letter
      {charset_utf8, fold_half_katakana, "\xEF\xBD\xB6\xEF\xBE", "\xE3\x82\xAB\xEF\xBE"},
      {charset_utf16le, fold_lower, utf16(u"\U0001F600Z", false), utf16(u"\U0001F600z", false)},
  };
  for (const auto &[set, flags, source, target] : single)
    EXPECT_EQ(hex(target), hex(converted(set, source, flags)))
        << charset_table[set]->name << " " << hex(source);
}

TEST(Charset, EveryHalfKatakana) {
  static const char16_t full[] =
      u"。「」、・ヲァィゥェォャュョッーアイウエオカキクケコサシスセソタチツテトナニヌネノハヒフヘホ"
      u"マミムメモヤユヨラリルレロワン゛゜";
  for (int i = 0; i < 63; ++i) {
    const std::u16string half(1, static_cast<char16_t>(0xFF61 + i));
    EXPECT_EQ(utf8({full[i]}), converted(charset_utf8, utf8(half), fold_half_katakana)) << i;
    EXPECT_EQ(utf16({&full[i], 1}, true), converted(charset_utf16be, utf16(half, true), fold_half_katakana))
        << i;
    // SJIS and EUC write the same JIS character: two rows to a lead byte in SJIS, one in EUC.
    const std::string sjis = converted(charset_sjis, {static_cast<char>(0xA1 + i)}, fold_half_katakana);
    const std::string euc = converted(charset_euc, {'\x8E', static_cast<char>(0xA1 + i)}, fold_half_katakana);
    const int trail = static_cast<unsigned char>(sjis[1]);
    const int row = (static_cast<unsigned char>(sjis[0]) - 0x81) * 2 + (trail >= 0x9F ? 1 : 0);
    const int column = trail >= 0x9F ? trail - 0x9F : trail - (trail > 0x7F ? 0x41 : 0x40);
    EXPECT_EQ(euc, (std::string{static_cast<char>(0xA1 + row), static_cast<char>(0xA1 + column)})) << i;
  }
}

}  // namespace
