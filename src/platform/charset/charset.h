// Character-set handlers: everything that must know where a character starts or ends, how many characters a
// text holds, or how case and width fold. Texts end with a NUL unit (one zero byte; two in UTF-16).
#pragma once

#include <cstdint>

namespace tovik {

enum CharsetIndex : int {
  charset_sjis = 0,
  charset_euc = 1,
  charset_utf8 = 2,
  charset_utf16le = 3,
  charset_utf16be = 4
};

// Conversion flags of convert and convert_character; several may be combined.
inline constexpr uint32_t fold_full_digits = 0x001;      // full-width digits to ASCII
inline constexpr uint32_t fold_full_capitals = 0x002;    // full-width capitals to ASCII
inline constexpr uint32_t fold_full_smalls = 0x004;      // full-width small letters to ASCII
inline constexpr uint32_t fold_full_to_capital = 0x008;  // full-width small letters to full-width capitals
inline constexpr uint32_t fold_full_to_small = 0x010;    // full-width capitals to full-width small letters
inline constexpr uint32_t fold_half_katakana = 0x020;    // half-width katakana to full-width
inline constexpr uint32_t fold_hiragana = 0x040;         // hiragana to katakana
inline constexpr uint32_t fold_full_space = 0x080;       // full-width space to ASCII space
inline constexpr uint32_t fold_tab = 0x100;              // tab to space
inline constexpr uint32_t fold_to_capital = 0x200;       // ASCII small letters to capitals
inline constexpr uint32_t fold_to_small = 0x400;         // ASCII capitals to small letters
inline constexpr uint32_t fold_upper = fold_full_to_capital | fold_to_capital;
inline constexpr uint32_t fold_lower = fold_full_to_small | fold_to_small;

// Pointers are to bytes also where the unit is 16 bits wide.
struct Charset {
  const char *name;
  char *(*copy)(char *target, const char *source);
  char *(*copy_characters)(char *target, const char *source, int count);  // terminates the target
  int (*byte_length)(const char *text);                                   // without the terminator
  int (*character_count)(const char *text);
  int (*compare)(const char *a, const char *b);  // unit by unit, unsigned: -1, 0, 1
  int (*compare_characters)(const char *a, const char *b,
                            int count);  // difference of the first differing bytes
  char *(*append)(char *target, const char *source);
  const char *(*next)(const char *text);  // just past the character; null at the terminator or for null
  // Start of the character that ends just before text; nothing before start is looked at, start < text.
  const char *(*previous)(const char *start, const char *text);
  bool (*valid)(const char *text);
  char *(*convert)(char *target, const char *source, uint32_t flags);  // target holds 2 x the source's bytes
  bool (*is_class)(const char *text, int character_class);             // class of the first character
  void (*convert_character)(char **target, const char **source, uint32_t flags);
  void (*clear)(char *text);
};

// Handlers by index, ended by null. A null entry inside the table is a character set not built in.
extern const Charset *const charset_table[];
inline constexpr int charset_count = 5;

}  // namespace tovik
