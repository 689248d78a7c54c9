// The operations that walk a text by characters, written once for all character sets. An Encoding says:
//
//   unit                 bytes per unit: 1 or 2
//   folds                its FoldTable
//   length(text)         bytes of the character at text, 0 at the terminator. A character that the terminator
//                        cuts short ends there, so no walk passes the end of a text.
//   code(text, length)   the number under which folds knows the character, or code_without_folds
//   store(target, code)  writes a character; its bytes
//   and the rest of its handler: copy, append, byte_length, compare, previous, valid.
#pragma once

#include <cstring>

#include "platform/charset/charset.h"
#include "platform/charset/fold.h"

namespace tovik {

template <class Encoding>
struct CharacterOps {
  static void terminate(char *text) { memset(text, 0, Encoding::unit); }

  static char *copy_characters(char *target, const char *source, int count) {
    const char *end = source;
    for (; count > 0; --count) {
      const int length = Encoding::length(end);
      if (length == 0) break;
      end += length;
    }
    const size_t size = static_cast<size_t>(end - source);
    memcpy(target, source, size);
    terminate(target + size);
    return target;
  }

  static int character_count(const char *text) {
    int count = 0;
    for (int length; (length = Encoding::length(text)) != 0; text += length) ++count;
    return count;
  }

  static int compare_characters(const char *a, const char *b, int count) {
    for (; count > 0; --count) {
      // At the end of a its terminator still has to be compared with b.
      const int length = Encoding::length(a);
      const int compared = length == 0 ? Encoding::unit : length;
      for (int i = 0; i < compared; ++i) {
        const int difference = static_cast<unsigned char>(a[i]) - static_cast<unsigned char>(b[i]);
        if (difference != 0) return difference;
      }
      if (length == 0) return 0;
      a += length;
      b += length;
    }
    return 0;
  }

  static const char *next(const char *text) {
    if (text == nullptr) return nullptr;
    const int length = Encoding::length(text);
    return length == 0 ? nullptr : text + length;
  }

  static void convert_character(char **target, const char **source, uint32_t flags) {
    const int length = Encoding::length(*source);
    const char *after = *source + length;
    const uint32_t code = Encoding::code(*source, length);
    uint32_t folded = code;
    if (code != code_without_folds) {
      const int next_length = code < 0x80 ? 0 : Encoding::length(after);
      const uint32_t next = next_length == 0 ? code_without_folds : Encoding::code(after, next_length);
      bool with_next;
      folded = fold_code(Encoding::folds, code, next, flags, &with_next);
      if (with_next) after += next_length;
    }
    if (folded == code) {
      memmove(*target, *source, static_cast<size_t>(length));
      *target += length;
    } else {
      *target += Encoding::store(*target, folded);
    }
    *source = after;
  }

  static char *convert(char *target, const char *source, uint32_t flags) {
    char *position = target;
    while (Encoding::length(source) != 0) convert_character(&position, &source, flags);
    terminate(position);
    return target;
  }

  static bool is_class(const char *text, int character_class) {
    const int length = text == nullptr ? 0 : Encoding::length(text);
    if (length == 0) return character_class == 0;
    const uint32_t code = Encoding::code(text, length);
    if (character_class == 1) return code < 0x80;
    if (character_class == 2) return length > 1;
    return code_in_class(Encoding::folds, code, character_class);
  }
};

// The handler of an encoding.
template <class Encoding>
constexpr Charset charset_of(const char *name) {
  using Ops = CharacterOps<Encoding>;
  return {name,
          Encoding::copy,
          Ops::copy_characters,
          Encoding::byte_length,
          Ops::character_count,
          Encoding::compare,
          Ops::compare_characters,
          Encoding::append,
          Ops::next,
          Encoding::previous,
          Encoding::valid,
          Ops::convert,
          Ops::is_class,
          Ops::convert_character,
          Ops::terminate};
}

}  // namespace tovik
