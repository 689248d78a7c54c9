#include "sql/evaluate/pattern.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "frame/env.h"
#include "support.h"

using namespace tovik;

namespace {

class PatternTest : public ::testing::Test {
 protected:
  PatternTest() { env_start(nullptr); }
  ~PatternTest() override { env_release(); }
};

template <bool fold>
bool matches(const std::string &text, const std::string &pattern) {
  bool result = false;
  EXPECT_TRUE(pattern_match(text.c_str(), pattern.c_str(), fold, &result));
  return result;
}

constexpr auto exact = matches<false>, folded = matches<true>;

bool like(const std::string &text, const std::string &pattern) {
  return pattern_like(text.c_str(), pattern.c_str());
}

// Pairs of a text and a pattern; a pattern behind "!" does not match. Nothing is written ''.
void expect_pairs(const char *pairs, bool (*matches)(const std::string &, const std::string &)) {
  std::istringstream in(pairs);
  for (std::string text, pattern; in >> text >> pattern;) {
    const bool expected = pattern[0] != '!';
    if (!expected) pattern.erase(0, 1);
    if (text == "''") text.clear();
    if (pattern == "''") pattern.clear();
    EXPECT_EQ(expected, matches(text, pattern)) << "\"" << text << "\" with pattern \"" << pattern << "\"";
  }
}

}  // namespace

TEST_F(PatternTest, Like) {
  expect_pairs(R"(
      '' ''           '' %            '' !_           abc !A%         abc a_c         aab %ab
      100% 100\%      1000 !100\%     a_c a\_c
      abc !a\_c       a\c a\\c        a\ a\           あいう あ_う    あいう !____
  )",
               like);
}

TEST_F(PatternTest, Match) {
  expect_pairs(R"(
      '' ''           '' *            '' !?           a !''           abc !ab         ab !abc
      abc !*b         abcabc *bc      abc a?c         a*c a\*c        abc !a\*c       a\ a\
      a\c a\\c        あいう あ?う    あいう *う     ABC !a*
      abcd !a[b-c]?   abc a[b-c]?     d ![abc]        d [^abc]        b ![^abc]       '' ![^abc]
      - [-a]          a [-a]          - [a\-z]        m ![a\-z]       ] [\]]          ^ [a^]
      | [a|b]         a ![z-a]        q ![^z-a]       a ![a-]         b ![^a-]        a ![a
      a ![^b          a ![]           a [^]           い [あいう]     え [^あいう]    B ![a-c]
      abd !a{bc}d     axb a{?}b       a5b a{[0-9]}b   a]b a{[\]}]}b   a}b a{[}]}b     a} a{\}}
      a a{}           a !a}           b !{a           a x}|a          x !x}|x
  )",
               exact);
  // Of alternatives the last must match the whole text, the others need only reach their separator. Behind
  // an escaped separator the next one counts as its text.
  expect_pairs(R"(
      abc x|abc       abc !x|ab       abc ab|x        abc x|y|a*      abc |x          abc !x|
      '' x|           abc a&abc       abc !a&ab       abc !x&abc      abc *c&a*       abc a&x|abc
      abc a&ab&x|y|*  a|c a\|c        b !a\|c|b       a|d a\|c|a*     c [a|b]x|c      ac a{b}|x
      xyz *q*|x*
      xz !{y|xz}q     xz {y|xz}q|x*   xz a{y|xz}q|x*  xz !x{y|xz}q    x|z {x|}z       aq {a|b\|}c|*q
  )",
               exact);
  expect_pairs("ABC a*  abC ABc  Ä !ä  [ !{  B [a-c]  b [A-C]  b [B]  D ![a-c]", folded);
}

TEST_F(PatternTest, CharactersOfTheCurrentSet) {
  // SJIS: 0x837C ends in the byte of "|", 0x835C in that of the backslash, 0x815B in that of "[".
  env_start("HVI_LANG=SJIS");
  EXPECT_TRUE(exact("\x83\x7C", "\x83\x7C"));
  EXPECT_TRUE(exact("\x81\x5B\x61", "?a"));
  EXPECT_TRUE(like("\x83\x5C%", "\x83\x5C\\%"));
}

// Patterns that could be tried in exponentially many ways, and patterns longer than the inline work area.
TEST_F(PatternTest, HostilePatterns) {
  const auto repeated = [](const char *text, int count) {
    std::string all;
    while (count-- > 0) all += text;
    return all;
  };
  const std::string text(1000, 'a'), stars = repeated("*a", 200), groups = repeated("{a}", 400);
  EXPECT_FALSE(exact(text, stars + "b"));
  EXPECT_TRUE(exact(text, stars));
  EXPECT_TRUE(exact(std::string(400, 'a') + "b", groups + "b"));
  EXPECT_FALSE(exact(text, "*" + groups + "{a" + std::string(2000, '[') + "b"));
  EXPECT_TRUE(exact(text, repeated("a*b|", 500) + "a*"));
  EXPECT_FALSE(like(text, repeated("%a", 200) + "b"));
}

namespace {

// What "*", "?", one-character sets and groups of one character mean, written down as a recursion.
bool reference(const char *text, const char *pattern) {
  switch (*pattern) {
    case '\0':
      return *text == '\0';
    case '*':
      return reference(text, pattern + 1) || (*text != '\0' && reference(text + 1, pattern));
    case '?':
      return *text != '\0' && reference(text + 1, pattern + 1);
    case '[':
      return *text == pattern[1] && reference(text + 1, pattern + 3);
    case '{':
      return (*text == pattern[1] && reference(text + 1, pattern + 3)) || reference(text, pattern + 3);
    default:
      return *text == *pattern && reference(text + 1, pattern + 1);
  }
}

}  // namespace

TEST_F(PatternTest, RandomPatternsAgreeWithTheirMeaning) {
  test::Random random;
  static const char *const elements[] = {"*", "?", "a", "b", "[a]", "{b}", "{a}"};
  for (int round = 0; round < 20000; ++round) {
    std::string text, pattern;
    for (int i = random.below(9); i > 0; --i) text += random.one_in(2) ? 'a' : 'b';
    for (int i = random.below(8); i > 0; --i) pattern += elements[random.below(7)];
    const bool expected = reference(text.c_str(), pattern.c_str());
    ASSERT_EQ(expected, exact(text, pattern)) << text << " " << pattern;
    if (pattern.find_first_of("[{") != std::string::npos) continue;
    for (char &c : pattern) c = c == '*' ? '%' : c == '?' ? '_' : c;
    ASSERT_EQ(expected, like(text, pattern)) << text << " " << pattern;
  }
}
