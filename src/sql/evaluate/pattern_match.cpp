// A part without groups is matched in one walk over the text that goes back to its last "*". A part with
// "{group}"s can be matched in many ways; it is matched by following every place of the pattern that matching
// can stand at, all at once, character by character of the text: each place is one bit, so that no place is
// tried twice at the same character. A place inside a group is kept apart, because there only a sequence is
// matched.
#include <algorithm>
#include <utility>

#include "frame/charset_current.h"
#include "frame/error.h"
#include "platform/array.h"
#include "platform/ascii.h"
#include "sql/evaluate/pattern.h"
#include "sql/parse/character.h"

namespace tovik {

namespace {

constexpr int inline_words = 4;  // patterns below 256 bytes need no memory for their bits
constexpr int word_bits = 64;

// The places of a pattern that are active, in order.
struct Places {
  uint64_t *outside;  // of groups
  uint64_t *inside;
};

bool holds(const uint64_t *bits, int place) {
  return (bits[place / word_bits] >> (place % word_bits) & 1) != 0;
}
bool put(uint64_t *bits, int place) {  // false when it was there
  uint64_t &word = bits[place / word_bits];
  const uint64_t bit = uint64_t{1} << (place % word_bits);
  const bool added = (word & bit) == 0;
  word |= bit;
  return added;
}

// By size, then by bytes: the order of the codes in every 8-bit character set.
int character_order(Character a, Character b) {
  return a.size != b.size ? a.size - b.size : memcmp(a.bytes, b.bytes, static_cast<size_t>(a.size));
}

enum class PartResult { failed, malformed, at_and, at_or, whole };

class Matcher {
 public:
  Matcher(const char *pattern, bool fold) : charset_(charset_current()), pattern_(pattern), fold_(fold) {}

  [[nodiscard]] bool start();
  bool run(const char *text);

 private:
  struct Set {
    int end = 0;  // place behind the "]", 0 without one
    bool valid = false;
    bool holds = false;
  };

  PartResult match_part(const char *text, int place);
  PartResult follow(const char *text, int place);
  PartResult at_separator(int place);
  int skip_stars(int place) const;
  void enter(int place);
  void enter_inside(int place);
  void clear(Places &places);
  bool activate(uint64_t *bits, int place);
  bool step(Character character);
  int consume(int place, Character character);
  Set scan_set(int place, Character character);
  Character member(int *place) const;
  int skip_element(int place);
  int group_end(int place);
  int next_alternative();
  bool same(Character a, Character b) const;
  bool within(Character character, Character low, Character high) const;

  const Charset &charset_;
  const char *pattern_;
  const bool fold_;
  int length_ = 0;
  int unclosed_ = 0;  // no set that starts at or behind this place has its "]"
  uint64_t inline_bits_[4 * inline_words];
  Array<uint64_t> bits_;  // of longer patterns
  Places now_{}, next_{};

  // Of the part being matched.
  int start_ = 0;                       // its place
  int first_word_ = 0, last_word_ = 0;  // words of the bit sets that are in use
  int furthest_ = 0;                    // the last place that was active
  int separator_ = 0;                   // the "|" or "&" that was reached
  bool separated_ = false;
  bool rest_matches_ = false;  // a trailing "*" is active
  bool malformed_ = false;
};

bool Matcher::start() {
  length_ = static_cast<int>(strlen(pattern_));
  unclosed_ = length_;
  const int words = length_ / word_bits + 1;
  uint64_t *bits = inline_bits_;
  if (words > inline_words && strchr(pattern_, '{') != nullptr) {
    if (!bits_.resize(4 * words)) return fail(status::out_of_memory);
    bits = bits_.data();
  }
  now_ = {bits, bits + words};
  next_ = {bits + 2 * words, bits + 3 * words};
  return true;
}

bool Matcher::run(const char *text) {
  int place = 0;
  for (;;) {
    switch (match_part(text, place)) {
      case PartResult::whole:
      case PartResult::at_or:
        return true;
      case PartResult::malformed:
        return false;
      case PartResult::at_and:
        place = separator_ + 1;
        break;
      case PartResult::failed:
        place = next_alternative();
        if (place == 0) return false;
        break;
    }
  }
}

// A failure goes back to the last "*" only: what an earlier one could take in, the last one can as well.
PartResult Matcher::match_part(const char *text, int place) {
  const char *const part_text = text;
  const char *resume_text = nullptr;
  int resume_place = 0;  // behind the last "*", whose sequence ends at resume_text
  start_ = furthest_ = place;
  for (;;) {
    furthest_ = std::max(furthest_, place);
    switch (pattern_[place]) {
      case '*':
        place = skip_stars(place);
        if (pattern_[place] == '\0') return PartResult::whole;
        resume_text = text;
        resume_place = place;
        continue;
      case '{':
        return follow(part_text, start_);
      case '}':
        return PartResult::malformed;
      case '|':
      case '&':
        return at_separator(place);
      case '\0':
        if (*text == '\0') return PartResult::whole;
        break;
      default:
        if (*text == '\0') return PartResult::failed;  // a shorter rest cannot match either
        const Character character = character_at(charset_, text);
        const int after = consume(place, character);
        if (after == 0) break;
        text += character.size;
        place = after;
        continue;
    }
    if (resume_text == nullptr) return PartResult::failed;
    resume_text += character_size(charset_, resume_text);
    text = resume_text;
    place = resume_place;
  }
}

int Matcher::skip_stars(int place) const {
  while (pattern_[place] == '*') ++place;
  return place;
}

PartResult Matcher::at_separator(int place) {
  separator_ = place;
  return pattern_[place] == '&' ? PartResult::at_and : PartResult::at_or;
}

PartResult Matcher::follow(const char *text, int place) {
  separated_ = rest_matches_ = malformed_ = false;
  furthest_ = place;
  first_word_ = last_word_ = place / word_bits;
  clear(now_);
  clear(next_);
  enter(place);
  for (;;) {
    if (malformed_) return PartResult::malformed;
    if (separated_) return at_separator(separator_);
    if (rest_matches_) return PartResult::whole;
    if (*text == '\0') {
      const bool at_end = furthest_ == length_ && holds(next_.outside, length_);
      return at_end ? PartResult::whole : PartResult::failed;
    }
    std::swap(now_, next_);
    clear(next_);
    const Character character = character_at(charset_, text);
    if (!step(character)) return PartResult::failed;
    text += character.size;
  }
}

void Matcher::clear(Places &places) {
  for (int i = first_word_; i <= last_word_; ++i) places.outside[i] = places.inside[i] = 0;
}

// Makes place active before the next character, with every place that can be reached from it without one.
void Matcher::enter(int place) {
  while (activate(next_.outside, place)) {
    switch (pattern_[place]) {
      case '*':
        place = skip_stars(place);
        if (pattern_[place] == '\0') rest_matches_ = true;
        break;
      case '{': {
        const int end = group_end(place + 1);
        if (end == 0) {
          malformed_ = true;
          return;
        }
        if (end != place + 1) enter_inside(place + 1);
        place = end + 1;
        break;
      }
      case '}':
        malformed_ = true;
        return;
      case '|':
      case '&':
        separated_ = true;
        separator_ = place;
        return;
      default:
        return;
    }
  }
}

void Matcher::enter_inside(int place) {
  if (pattern_[place] == '}') {
    enter(place + 1);
  } else {
    (void)activate(next_.inside, place);
  }
}

// False when the place was active already.
bool Matcher::activate(uint64_t *bits, int place) {
  while (last_word_ < place / word_bits) {
    ++last_word_;
    now_.outside[last_word_] = now_.inside[last_word_] = 0;
    next_.outside[last_word_] = next_.inside[last_word_] = 0;
  }
  furthest_ = std::max(furthest_, place);
  return put(bits, place);
}

// Moves every active place over one character of the text; false when none is active any more.
bool Matcher::step(Character character) {
  const int last_word = last_word_;
  bool any = false;
  for (int i = first_word_; i <= last_word; ++i) {
    any = any || (now_.outside[i] | now_.inside[i]) != 0;
    for (uint64_t rest = now_.outside[i]; rest != 0; rest &= rest - 1) {
      const int place = i * word_bits + __builtin_ctzll(rest);
      const char c = pattern_[place];
      if (c == '*') {
        enter(place);
      } else if (c != '\0' && c != '{') {
        const int after = consume(place, character);
        if (after != 0) enter(after);
      }
    }
    for (uint64_t rest = now_.inside[i]; rest != 0; rest &= rest - 1) {
      const int after = consume(i * word_bits + __builtin_ctzll(rest), character);
      if (after != 0) enter_inside(after);
    }
  }
  return any;
}

// The place behind the element at place when it matches character, else 0.
int Matcher::consume(int place, Character character) {
  const char first = pattern_[place];
  if (first == '?') return place + 1;
  if (first == '[') {
    const Set set = scan_set(place, character);
    return set.valid && set.holds ? set.end : 0;
  }
  if (static_cast<unsigned char>(first) < 0x80 && first != '\\') {
    if (character.size != 1) return 0;
    const char c = *character.bytes;
    return c == first || (fold_ && ascii_lower(c) == ascii_lower(first)) ? place + 1 : 0;
  }
  const Character wanted = member(&place);
  return same(character, wanted) ? place : 0;
}

Matcher::Set Matcher::scan_set(int place, Character character) {
  Set set{.valid = true};
  if (place >= unclosed_) return {};
  const int start = place++;
  const bool negated = pattern_[place] == '^';
  if (negated) ++place;
  while (pattern_[place] != ']') {
    if (pattern_[place] == '\0') {
      unclosed_ = start;
      return {};
    }
    const Character low = member(&place);
    if (pattern_[place] != '-') {
      set.holds = set.holds || same(character, low);
      continue;
    }
    ++place;
    if (pattern_[place] == ']' || pattern_[place] == '\0') {
      set.valid = false;
      continue;
    }
    const Character high = member(&place);
    if (character_order(low, high) > 0) set.valid = false;
    set.holds = set.holds || within(character, low, high);
  }
  set.end = place + 1;
  set.holds = set.holds != negated;
  return set;
}

// Reads the literal character at *place, without the backslash before it. A last backslash is itself.
Character Matcher::member(int *place) const {
  if (pattern_[*place] == '\\' && pattern_[*place + 1] != '\0') ++*place;
  const Character character = character_at(charset_, pattern_ + *place);
  *place += character.size;
  return character;
}

int Matcher::skip_element(int place) {
  if (pattern_[place] == '[') {
    const Set set = scan_set(place, {"", 1});
    return set.end != 0 ? set.end : place + 1;
  }
  (void)member(&place);
  return place;
}

// The "}" of the group whose content starts at place; 0 without one.
int Matcher::group_end(int place) {
  while (pattern_[place] != '}') {
    if (pattern_[place] == '\0') return 0;
    place = skip_element(place);
  }
  return place;
}

// The place behind the "|" that is next from the furthest place on; 0 when there is none or it is escaped.
// Walks from the start of the part, because the furthest place may stand inside a group, where a "|" is a
// character.
int Matcher::next_alternative() {
  int place = start_;
  while (pattern_[place] != '\0') {
    if (pattern_[place] == '|') return place + 1;
    if (place >= furthest_ && pattern_[place] == '\\' && pattern_[place + 1] == '|') return 0;
    const int end = pattern_[place] == '{' ? group_end(place + 1) : 0;
    place = end != 0 ? end + 1 : skip_element(place);
  }
  return 0;
}

bool Matcher::same(Character a, Character b) const {
  if (fold_ && a.size == 1 && b.size == 1) return ascii_lower(*a.bytes) == ascii_lower(*b.bytes);
  return character_equal(a, b);
}

bool Matcher::within(Character character, Character low, Character high) const {
  const auto between = [&](Character c) {
    return character_order(low, c) <= 0 && character_order(c, high) <= 0;
  };
  if (between(character)) return true;
  if (!fold_ || character.size != 1) return false;
  const char small = ascii_lower(*character.bytes), capital = ascii_upper(*character.bytes);
  return between({&small, 1}) || between({&capital, 1});
}

}  // namespace

bool pattern_match(const char *text, const char *pattern, bool fold, bool *matches) {
  Matcher matcher(pattern, fold);
  if (!matcher.start()) return false;
  *matches = matcher.run(text);
  return true;
}

}  // namespace tovik
