#include "sql/pattern.h"

#include <gtest/gtest.h>

#include <string>

#include "frame/env.h"
#include "support.h"

using namespace tovik;

namespace {

class PatternTest : public ::testing::Test {
 protected:
  void SetUp() override { env_start(nullptr); }
  void TearDown() override { env_release(); }
};

bool matches(const std::string &text, const std::string &pattern, bool fold = false) {
  bool result = false;
  EXPECT_TRUE(pattern_match(text.c_str(), pattern.c_str(), fold, &result));
  return result;
}

struct Case {
  const char *text;
  const char *pattern;
  bool expected;
};

void expect_like(std::initializer_list<Case> cases) {
  for (const Case &each : cases)
    EXPECT_EQ(each.expected, pattern_like(each.text, each.pattern)) << each.text << " LIKE " << each.pattern;
}

void expect_match(std::initializer_list<Case> cases, bool fold = false) {
  for (const Case &each : cases)
    EXPECT_EQ(each.expected, matches(each.text, each.pattern, fold))
        << each.text << (fold ? " MATCH " : " SMATCH ") << each.pattern;
}

}  // namespace

TEST_F(PatternTest, Like) {
  expect_like({
      {"", "", true},           {"", "%", true},           {"", "_", false},
      {"a", "", false},         {"abc", "ab", false},      {"abc", "abcd", false},
      {"abc", "a_c", true},     {"abc", "A%", false},      {"abc", "%c", true},
      {"abc", "%%b%%", true},   {"abc", "%d%", false},     {"aXbXc", "a%X%c", true},
      {"aab", "%ab", true},     {"abab", "%ab_", false},   {"abcabd", "%ab_d%", false},
      {"abcabd", "%abd", true}, {"100%", "100\\%", true},  {"1000", "100\\%", false},
      {"a_c", "a\\_c", true},   {"abc", "a\\_c", false},   {"a\\c", "a\\\\c", true},
      {"a\\", "a\\", true},     {"あいう", "あ_う", true}, {"あいう", "____", false},
      {"あいう", "%い%", true},
  });
}

TEST_F(PatternTest, MatchSequences) {
  expect_match({
      {"", "", true},           {"", "*", true},           {"", "?", false},
      {"a", "", false},         {"abc", "ab", false},      {"ab", "abc", false},
      {"abc", "a*", true},      {"abc", "**c", true},      {"abc", "*b", false},
      {"abcabc", "*bc", true},  {"abc", "a?c", true},      {"abc", "a??c", false},
      {"a*c", "a\\*c", true},   {"abc", "a\\*c", false},   {"a\\", "a\\", true},
      {"a\\c", "a\\\\c", true}, {"あいう", "あ?う", true}, {"あいう", "*う", true},
      {"ABC", "a*", false},
  });
  expect_match({{"ABC", "a*", true}, {"abC", "ABc", true}, {"Ä", "ä", false}, {"[", "{", false}}, true);
}

TEST_F(PatternTest, MatchSets) {
  expect_match({
      {"abcd", "a[b-c]?", false}, {"abc", "a[b-c]?", true}, {"d", "[abc]", false},     {"d", "[^abc]", true},
      {"b", "[^abc]", false},     {"", "[^abc]", false},    {"-", "[-a]", true},       {"a", "[-a]", true},
      {"-", "[a\\-z]", true},     {"m", "[a\\-z]", false},  {"]", "[\\]]", true},      {"^", "[a^]", true},
      {"|", "[a|b]", true},       {"a", "[z-a]", false},    {"q", "[^z-a]", false},    {"a", "[a-]", false},
      {"b", "[^a-]", false},      {"a", "[a", false},       {"a", "[^b", false},       {"a", "[]", false},
      {"a", "[^]", true},         {"い", "[あいう]", true}, {"え", "[^あいう]", true}, {"B", "[a-c]", false},
  });
  expect_match({{"B", "[a-c]", true}, {"b", "[A-C]", true}, {"b", "[B]", true}, {"D", "[a-c]", false}}, true);
}

TEST_F(PatternTest, MatchGroups) {
  expect_match({
      {"abd", "a{bc}d", false},
      {"axb", "a{?}b", true},
      {"a5b", "a{[0-9]}b", true},
      {"a]b", "a{[\\]}]}b", true},
      {"a}b", "a{[}]}b", true},
      {"a}", "a{\\}}", true},
      {"a", "a{}", true},
      {"a", "a}", false},
      {"b", "{a", false},
      {"a", "x}|a", true},
      {"x", "x}|x", false},
  });
}

TEST_F(PatternTest, MatchAlternativesAndParts) {
  expect_match({
      {"abc", "x|abc", true},    {"abc", "x|ab", false},  // the last must match the whole text
      {"abc", "ab|x", true},                              // the others need only reach their separator
      {"abc", "x|y|a*", true},   {"abc", "|x", true},
      {"abc", "x|", false},      {"", "x|", true},
      {"abc", "a&abc", true},    {"abc", "a&ab", false},
      {"abc", "x&abc", false},   {"abc", "*c&a*", true},
      {"abc", "a&x|abc", true},  {"abc", "a&ab&x|y|*", true},
      {"a|c", "a\\|c", true},    {"b", "a\\|c|b", false},  // the next "|" is an escaped one
      {"a|d", "a\\|c|a*", true}, {"c", "[a|b]x|c", true},
      {"ac", "a{b}|x", true},    {"xyz", "*q*|x*", true},
  });
}

TEST_F(PatternTest, CharactersOfTheCurrentSet) {
  // SJIS: 0x837C ends in the byte of "|", 0x835C in that of the backslash, 0x815B in that of "[".
  env_start("HVI_LANG=SJIS");
  EXPECT_TRUE(matches("\x83\x7C", "\x83\x7C"));
  EXPECT_FALSE(matches("\x83", "\x83\x7C"));
  EXPECT_TRUE(matches("\x81\x5B\x61", "?a"));
  EXPECT_TRUE(pattern_like("\x83\x5C%", "\x83\x5C\\%"));
  EXPECT_TRUE(pattern_like("\x83\x5Cx", "_x"));
}

// A pattern that could be tried in exponentially many ways, and patterns longer than the inline work area.
TEST_F(PatternTest, HostilePatterns) {
  std::string stars, groups, text(1000, 'a');
  for (int i = 0; i < 200; ++i) stars += "*a";
  for (int i = 0; i < 400; ++i) groups += "{a}";
  EXPECT_FALSE(matches(text, stars + "b"));
  EXPECT_TRUE(matches(text, stars));
  EXPECT_FALSE(matches(std::string(500, 'a'), groups + "b"));
  EXPECT_TRUE(matches(std::string(400, 'a') + "b", groups + "b"));
  EXPECT_FALSE(matches(std::string(401, 'a'), groups));
  EXPECT_FALSE(matches(text, "*" + groups + "{a" + std::string(2000, '[') + "b"));
  std::string parts;
  for (int i = 0; i < 500; ++i) parts += "a*b|";
  EXPECT_TRUE(matches(text, parts + "a*"));
  std::string likes;
  for (int i = 0; i < 200; ++i) likes += "%a";
  EXPECT_FALSE(pattern_like(text.c_str(), (likes + "b").c_str()));
  EXPECT_TRUE(matches(std::string(700, 'x') + "y", std::string(700, 'x') + "[y]"));
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
    std::string text, pattern, like;
    for (int i = random.below(9); i > 0; --i) text += random.one_in(2) ? 'a' : 'b';
    for (int i = random.below(8); i > 0; --i) pattern += elements[random.below(7)];
    ASSERT_EQ(reference(text.c_str(), pattern.c_str()), matches(text, pattern)) << text << " " << pattern;
    if (pattern.find_first_of("[{") != std::string::npos) continue;
    for (const char c : pattern) like += c == '*' ? '%' : c == '?' ? '_' : c;
    ASSERT_EQ(reference(text.c_str(), pattern.c_str()), pattern_like(text.c_str(), like.c_str()))
        << text << " " << like;
  }
}
