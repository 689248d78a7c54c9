#include "sql/lexer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "data/builtin.h"
#include "frame/env.h"
#include "frame/error.h"
#include "sql/grammar.h"
#include "sql/keywords.h"

using namespace tovik;

namespace {

// The tokens of a text, one after the other: single characters as they are, kept texts in angle brackets,
// words with a value as their number and value, keywords as their number. A failure ends in "!" and its code.
std::string tokens(const std::string &text) {
  std::vector<char> buffer(text.size() * 2 + 10);
  Lexer lexer;
  err_clear();
  lexer_start(lexer, text.c_str(), buffer.data());
  std::string all;
  for (;;) {
    TokenValue value;
    const int token = lexer_next(lexer, &value);
    if (token == 0) return all;
    if (!all.empty()) all += ' ';
    const auto kept = [&](const char *kind) { return kind + std::string("<") + value.text + ">"; };
    const auto valued = [&](const char *kind) { return kind + std::to_string(value.number); };
    switch (token) {
      case T_LEXERR:
        return all + "!" + std::to_string(error_record().last_code);
      case T_IDENT:
        all += kept("");
        break;
      case T_STRING:
        all += kept("str");
        break;
      case T_INTNUM:
        all += kept("int");
        break;
      case T_DECNUM:
        all += kept("dec");
        break;
      case T_EXPNUM:
        all += kept("exp");
        break;
      case T_TYPE:
        all += valued("type");
        break;
      case T_UNIT:
        all += valued("unit");
        break;
      case T_DATEFN:
        all += valued("part");
        break;
      case T_FUNC:
        all += valued("func");
        break;
      default:
        all += token < 256 ? std::string(1, static_cast<char>(token)) : std::to_string(token);
    }
  }
}

struct Case {
  const char *text;
  const char *tokens;
};

void expect_tokens(std::initializer_list<Case> cases) {
  for (const Case &each : cases) EXPECT_EQ(each.tokens, tokens(each.text)) << each.text;
}

class LexerTest : public ::testing::Test {
 protected:
  void SetUp() override { env_start(nullptr); }
  void TearDown() override {
    err_clear();
    env_release();
  }
};

}  // namespace

TEST_F(LexerTest, OperatorsAndBlanks) {
  expect_tokens({
      {"", ""},
      {" \t\n\v\f\r ", ""},
      {"%()*+,-./;=^", "% ( ) * + , - . / ; = ^"},
      {"!= <> ~=", "336 336 336"},
      {"<= >= ||", "337 338 283"},
      {"< > ! | ~", "< > ! | ~"},
      {"< >", "< >"},
      {"| |", "| |"},
      {"=<", "= <"},
      {"a concat b || c", "<a> 283 <b> 283 <c>"},
      {"1--2", "int<1> - - int<2>"},
  });
}

TEST_F(LexerTest, Comments) {
  expect_tokens({
      {"a/*x*/b", "<a> <b>"},
      {"a /* x */ /* y\n */ b", "<a> <b>"},
      {"/**/a", "<a>"},
      {"/***/a", "<a>"},
      {"a/b", "<a> / <b>"},
      {"/* ' */ 'x'", "str<x>"},
      {"a /* b", "<a> !170001"},
      {"/*", "!170001"},
  });
}

TEST_F(LexerTest, Numbers) {
  expect_tokens({
      {"0 12 007", "int<0> int<12> int<007>"},
      {"1. 1.50", "dec<1.> dec<1.50>"},
      {".5", ". int<5>"},
      {"1.5e3 1.5E-7 2.e+10", "exp<1.5e3> exp<1.5E-7> exp<2.e+10>"},
      {"1.5e ", "exp<1.5e>"},
      {"1.5e+", "exp<1.5e+>"},
      {"1.2.3", "dec<1.2> . int<3>"},
      {"1e5", "!170006"},
      {"12ab", "!170006"},
      {"1.5x", "!170006"},
      {"1.5e3f", "!170006"},
      {"1_", "!170006"},
  });
}

TEST_F(LexerTest, Words) {
  expect_tokens({
      {"abc a1_b _x", "<abc> <a1_b> <_x>"},
      {"select Select sELECT selects", "318 318 318 <selects>"},
      {"year YearOf bigint", "unit507 part500 type68"},
      {"blob microtimestamp char cint", "type5138 type2065 type524 type71"},
      {"Abs truNNc trunc", "func0 func70 <trunc>"},
      {"or and not", "333 334 335"},
      {"desc descending asc ascending", "288 289 274 274"},
      {"begin start rollback cancel order sort between range attr attribute",
       "278 278 317 317 314 314 279 279 275 275"},
  });
}

TEST_F(LexerTest, KeywordLookup) {
  static const struct {
    const char *word;
    int token, value;
  } rows[] = {
      {"add", 269, 0},        {"AUTO_increment", 276, 0},  {"db", 286, 0},     {"direct_into", 292, 0},
      {"having", 302, 0},     {"microsecondof", 263, 506}, {"null", 312, 0},   {"smatch", 321, 0},
      {"test_stmt", 324, 0},  {"csmallinteger", 260, 70},  {"work", 332, 0},   {"week", 262, 509},
      {"timeseries", 325, 0}, {"yearof", 263, 500},        {"concat", 283, 0}, {"where", 331, 0}};
  for (const auto &row : rows) {
    const Keyword *found = keyword_find(row.word);
    ASSERT_NE(nullptr, found) << row.word;
    EXPECT_EQ(row.token, found->token) << row.word;
    EXPECT_EQ(row.value, found->value) << row.word;
  }
  for (const char *word : {"", "a", "ad", "addx", "yearo", "zz"})
    EXPECT_EQ(nullptr, keyword_find(word)) << word;
  for (int i = 0; i < builtin_count; ++i) EXPECT_EQ(nullptr, keyword_find(builtin_row(i)->name));
}

TEST_F(LexerTest, Strings) {
  expect_tokens({
      {"'abc' \"x'y\"", "str<abc> str<x'y>"},
      {"'it''s' \"a\"\"b\"", "str<it's> str<a\"b>"},
      {R"('\'\"\\')", R"(str<'"\>)"},
      {R"('\a\b\f\n\r\t\v\q')", "str<\a\b\f\n\r\t\vq>"},
      {"''", "str<>"},
      {"'open", "str<open>"},
      {"'a''", "str<a'>"},
      {"'a\\", "str<a>"},
      {"'a'b", "str<a> <b>"},
  });
}

TEST_F(LexerTest, MultibyteCharacters) {
  expect_tokens({
      {"表1_a b", "<表1_a> <b>"},
      {"abc表", "<abc> <表>"},
      {"'表''表'", "str<表'表>"},
      {"表select", "<表select>"},
      {"\x82", "!170005"},
  });
  // 0x955C is one SJIS character whose second byte is a backslash.
  env_start("HVI_LANG=SJIS");
  expect_tokens({
      {"'\x95\x5C'", "str<\x95\x5C>"},
      {"\x95\x5C", "<\x95\x5C>"},
      {"'\x95", "str<\x95>"},
      {"\xB1", "!170005"},
  });
}

TEST_F(LexerTest, UnusableCharacters) {
  for (const char c : std::string("#$&:?@[\\]`{}"))
    EXPECT_EQ("<a> !170004", tokens(std::string("a ") + c + " b")) << c;
  for (const char c : {'\x01', '\x08', '\x0E', '\x1F', '\x7F'})
    EXPECT_EQ("<a> !170002", tokens(std::string("a ") + c)) << static_cast<int>(c);
}
