// Character functions. Texts are read up to their terminator; positions and counts are in whole characters of
// the current character set. Every result is a new text of the pool: its size is asked for, and refused when
// the pool cannot hold it, before any loop that the arguments could make long.
#include <cstdint>
#include <cstring>

#include "data/function/builtin.h"
#include "frame/charset_current.h"
#include "frame/error.h"

namespace tovik {

namespace {

struct Call {
  const Charset &charset;
  const Value *arguments;
  int count;
  MemoryPool &pool;
  Value &result;

  const char *text(int index) const { return arguments[index].text.text; }
  int64_t integer(int index, int64_t absent) const {
    return index < count ? arguments[index].integer : absent;
  }
  const char *text_or_empty(int index) const { return index < count ? text(index) : ""; }
};

int64_t bytes_of(const char *text) {
  return static_cast<int64_t>(strlen(text));
}

char *allocate(const Call &call, int64_t size) {
  return builtin_allocate(call.pool, size);
}

// count times unit plus a terminator; a product that no pool could hold becomes a size that none does.
int64_t saturated_size(int64_t count, int64_t unit) {
  return count > INT32_MAX / unit ? INT64_MAX : count * unit + 1;
}

bool give_integer(const Call &call, int64_t value) {
  call.result.integer = value;
  return true;
}

// text is in the pool, its bytes ended by end.
bool give_built(const Call &call, char *text, char *end) {
  *end = '\0';
  call.result.text = TextRef{text, static_cast<int32_t>(end - text)};
  return true;
}

bool give_copy(const Call &call, const char *start, const char *end) {
  const int64_t length = end - start;
  char *text = allocate(call, length + 1);
  if (text == nullptr) return false;
  memcpy(text, start, static_cast<size_t>(length));
  return give_built(call, text, text + length);
}

bool give_empty(const Call &call) {
  return give_copy(call, "", "");
}

char *append(char *target, const char *start, int64_t length) {
  memcpy(target, start, static_cast<size_t>(length));
  return target + length;
}

const char *skip_characters(const Charset &charset, const char *text, int64_t count) {
  for (; count > 0 && *text != '\0'; --count) text = charset.next(text);
  return text;
}

bool starts_with(const char *text, const char *start, int64_t length) {
  return strncmp(text, start, static_cast<size_t>(length)) == 0;
}

bool ascii(const Call &call) {
  const char *text = call.text(0), *end = skip_characters(call.charset, text, 1);
  uint64_t code = 0;
  for (; text != end; ++text) code = code << 8 | static_cast<uint8_t>(*text);
  return give_integer(call, static_cast<int64_t>(code));
}

bool chr(const Call &call) {
  const uint64_t code = static_cast<uint64_t>(call.arguments[0].integer);
  char bytes[8];
  char *end = bytes;
  for (int shift = 56; shift >= 0; shift -= 8)
    if (const char byte = static_cast<char>(code >> shift); byte != 0) *end++ = byte;
  return give_copy(call, bytes, end);
}

// No character takes more bytes in its other case.
bool fold(const Call &call, uint32_t flags) {
  char *text = allocate(call, bytes_of(call.text(0)) + 1);
  if (text == nullptr) return false;
  call.charset.convert(text, call.text(0), flags);
  return give_built(call, text, text + bytes_of(text));
}

enum class Ends { left, right, both };

bool trim(const Call &call, Ends ends) {
  const char *start = call.text(0), *end = start + bytes_of(start);
  while (ends != Ends::right && *start == ' ') ++start;
  while (ends != Ends::left && end > start && end[-1] == ' ') --end;
  return give_copy(call, start, end);
}

bool left(const Call &call) {
  const char *text = call.text(0);
  return give_copy(call, text, skip_characters(call.charset, text, call.arguments[1].integer));
}

bool right(const Call &call) {
  const int64_t wanted = call.arguments[1].integer;
  if (wanted < 1) return give_empty(call);
  const int64_t skipped = call.charset.character_count(call.text(0)) - wanted;
  const char *start = skip_characters(call.charset, call.text(0), skipped);
  return give_copy(call, start, start + bytes_of(start));
}

bool repeat(const Call &call, const char *text, int64_t times) {
  const int64_t length = bytes_of(text);
  if (times <= 0 || length == 0) return give_empty(call);
  char *built = allocate(call, saturated_size(times, length));
  if (built == nullptr) return false;
  char *end = built;
  for (int64_t i = 0; i < times; ++i) end = append(end, text, length);
  return give_built(call, built, end);
}

bool reverse(const Call &call) {
  const char *text = call.text(0);
  const int64_t length = bytes_of(text);
  char *built = allocate(call, length + 1);
  if (built == nullptr) return false;
  for (char *at = built + length; *text != '\0';) {
    const char *next = call.charset.next(text);
    at -= next - text;
    append(at, text, next - text);
    text = next;
  }
  return give_built(call, built, built + length);
}

bool substr(const Call &call) {
  const char *text = call.text(0);
  int64_t position = call.arguments[1].integer;
  const int64_t length = call.integer(2, 0);
  if (position < 0) position += call.charset.character_count(text) + 1;
  if (length < 0) return give_empty(call);
  const char *start = skip_characters(call.charset, text, position - 1);
  const char *end = length == 0 ? start + bytes_of(start) : skip_characters(call.charset, start, length);
  return give_copy(call, start, end);
}

// Appends count characters of pad, which is repeated as often as needed.
char *append_padding(const Charset &charset, char *target, const char *pad, int64_t count) {
  for (const char *at = pad; count > 0; --count) {
    const char *next = charset.next(at);
    target = append(target, at, next - at);
    at = *next != '\0' ? next : pad;
  }
  return target;
}

enum class Side { left, right };

bool pad(const Call &call, Side side) {
  constexpr int64_t bytes_per_character = 7;
  const int64_t wanted = call.arguments[1].integer;
  if (wanted < 1) return give_empty(call);
  const char *padding = call.text_or_empty(2);
  if (*padding == '\0') padding = " ";
  char *built = allocate(call, saturated_size(wanted, bytes_per_character));
  if (built == nullptr) return false;

  const char *text = call.text(0), *text_end = skip_characters(call.charset, text, wanted);
  const int64_t missing = wanted - call.charset.character_count(text);
  char *end = built;
  if (side == Side::left) end = append_padding(call.charset, end, padding, missing);
  end = append(end, text, text_end - text);
  if (side == Side::right) end = append_padding(call.charset, end, padding, missing);
  return give_built(call, built, end);
}

// Matches of sought from the left, not overlapping, from the character at position on; counted are those
// whose last character lies before limit. Stops at the wanted-th.
struct MatchScan {
  int64_t found;     // how many
  int64_t position;  // of the last
};

MatchScan scan_matches(const Charset &charset, const char *text, int64_t position, const char *sought,
                       int64_t limit, int64_t wanted) {
  MatchScan scan{0, 0};
  const int64_t sought_bytes = bytes_of(sought), sought_characters = charset.character_count(sought);
  text = skip_characters(charset, text, position - 1);
  while (scan.found < wanted && *text != '\0' && position + sought_characters - 1 < limit) {
    if (starts_with(text, sought, sought_bytes)) {
      ++scan.found;
      scan.position = position;
      text += sought_bytes;
      position += sought_characters;
    } else {
      text = charset.next(text);
      ++position;
    }
  }
  return scan;
}

bool instr(const Call &call) {
  const char *text = call.text(0), *sought = call.text(1);
  const int64_t start = call.integer(2, 1);
  int64_t occurrence = call.integer(3, 1);
  if (*text == '\0' || *sought == '\0' || start == 0 || occurrence < 0) return give_integer(call, 0);
  if (occurrence == 0) occurrence = 1;

  const int64_t length = call.charset.character_count(text);
  if (start > length) return give_integer(call, 0);
  if (start > 0) {
    const MatchScan scan = scan_matches(call.charset, text, start, sought, length + 1, occurrence);
    return give_integer(call, scan.found == occurrence ? scan.position : 0);
  }
  const int64_t limit = length + 1 + start;  // counted from the right: the k-th last match before it
  const int64_t found = scan_matches(call.charset, text, 1, sought, limit, INT64_MAX).found;
  if (found < occurrence) return give_integer(call, 0);
  const int64_t from_left = found - occurrence + 1;
  return give_integer(call, scan_matches(call.charset, text, 1, sought, limit, from_left).position);
}

// Walks text, calling match for every match of sought and other for every other character.
template <class Match, class Other>
void walk_matches(const Charset &charset, const char *text, const char *sought, Match match, Other other) {
  const int64_t length = bytes_of(sought);
  while (*text != '\0') {
    if (length > 0 && starts_with(text, sought, length)) {
      match();
      text += length;
      continue;
    }
    const char *next = charset.next(text);
    other(text, next - text);
    text = next;
  }
}

bool replace(const Call &call) {
  const char *text = call.text(0), *sought = call.text(1), *replacement = call.text_or_empty(2);
  const int64_t replacement_bytes = bytes_of(replacement);
  int64_t matches = 0;
  walk_matches(
      call.charset, text, sought, [&] { ++matches; }, [](const char *, int64_t) {});
  const int64_t size = bytes_of(text) + matches * (replacement_bytes - bytes_of(sought)) + 1;
  char *built = allocate(call, size);
  if (built == nullptr) return false;
  char *end = built;
  walk_matches(
      call.charset, text, sought, [&] { end = append(end, replacement, replacement_bytes); },
      [&](const char *character, int64_t length) { end = append(end, character, length); });
  return give_built(call, built, end);
}

// The character that stands in to where the one at character stands first in from: itself when from does not
// have it, none (an empty text) when to is shorter.
struct Character {
  const char *start;
  int64_t length;
};

Character translated(const Charset &charset, Character character, const char *from, const char *to) {
  for (; *from != '\0'; from = charset.next(from), to = skip_characters(charset, to, 1)) {
    if (charset.next(from) - from != character.length ||
        !starts_with(from, character.start, character.length))
      continue;
    return Character{to, skip_characters(charset, to, 1) - to};
  }
  return character;
}

bool translate(const Call &call) {
  const Charset &charset = call.charset;
  const auto each = [&](auto use) {
    for (const char *text = call.text(0); *text != '\0';) {
      const char *next = charset.next(text);
      use(translated(charset, Character{text, next - text}, call.text(1), call.text(2)));
      text = next;
    }
  };
  int64_t size = 1;
  each([&](Character character) { size += character.length; });
  char *built = allocate(call, size);
  if (built == nullptr) return false;
  char *end = built;
  each([&](Character character) { end = append(end, character.start, character.length); });
  return give_built(call, built, end);
}

}  // namespace

bool builtin_text(int number, const Value *arguments, int count, MemoryPool &pool, Value &result) {
  for (int i = 0; i < count; ++i)
    if ((arguments[i].type & TYPE_CHARACTER) != 0 && arguments[i].text.text == nullptr)
      return fail(status::function_string);
  const Call call{charset_current(), arguments, count, pool, result};
  switch (number) {
    case builtin::ascii:
      return ascii(call);
    case builtin::char_length:
    case builtin::length:
      return give_integer(call, call.charset.character_count(call.text(0)));
    case builtin::chr:
      return chr(call);
    case builtin::instr:
      return instr(call);
    case builtin::left:
      return left(call);
    case builtin::lengthb:
      return give_integer(call, bytes_of(call.text(0)));
    case builtin::lower:
    case builtin::tolower:
      return fold(call, fold_lower);
    case builtin::lpad:
      return pad(call, Side::left);
    case builtin::ltrim:
      return trim(call, Ends::left);
    case builtin::repeat:
      return repeat(call, call.text(0), arguments[1].integer);
    case builtin::replace:
      return replace(call);
    case builtin::reverse:
      return reverse(call);
    case builtin::right:
      return right(call);
    case builtin::rpad:
      return pad(call, Side::right);
    case builtin::rtrim:
      return trim(call, Ends::right);
    case builtin::space:
      return repeat(call, " ", arguments[0].integer);
    case builtin::substr:
    case builtin::substring:
      return substr(call);
    case builtin::toupper:
    case builtin::upper:
      return fold(call, fold_upper);
    case builtin::translate:
      return translate(call);
    case builtin::trim:
      return trim(call, Ends::both);
    default:
      return fail(status::function_argument);
  }
}

}  // namespace tovik
