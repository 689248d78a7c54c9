#include "sql/lexer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/env.h"
#include "frame/error.h"
#include "sql/grammar.h"

using namespace tovik;

namespace {

// One token: a single character as it is, a kept text in angle brackets, a word with a value as its kind and
// value, a keyword as its number. A failure is "!" and its code.
std::string shown(int token, const TokenValue &value) {
  switch (token) {
    case T_LEXERR:
      return "!" + std::to_string(error_record().last_code);
    case T_IDENT:
    case T_STRING:
    case T_INTNUM:
    case T_DECNUM:
    case T_EXPNUM: {
      static const char *const kinds[] = {"str", "", "int", "dec", "exp"};
      return kinds[token - T_STRING] + std::string("<") + value.text + ">";
    }
    case T_TYPE:
    case T_FUNC:
    case T_UNIT:
    case T_DATEFN: {
      static const char *const kinds[] = {"type", "func", "unit", "part"};
      return kinds[token - T_TYPE] + std::to_string(value.number);
    }
    default:
      return token < 256 ? std::string(1, static_cast<char>(token)) : std::to_string(token);
  }
}

std::string tokens(const std::string &text) {
  std::vector<char> buffer(text.size() * 2 + 10);
  Lexer lexer;
  err_clear();
  lexer_start(lexer, text.c_str(), buffer.data());
  std::string all;
  for (TokenValue value;;) {
    const int token = lexer_next(lexer, &value);
    if (token == 0) return all;
    if (!all.empty()) all += ' ';
    all += shown(token, value);
    if (token == T_LEXERR) return all;
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

TEST_F(LexerTest, OperatorsBlanksAndComments) {
  expect_tokens({{" \t\n\v\f\r ", ""},
                 {"%()*+,-./;=^", "% ( ) * + , - . / ; = ^"},
                 {"!= <> ~= <= >= ||", "336 336 336 337 338 283"},
                 {"< > ! | ~ =<", "< > ! | ~ = <"},
                 {"1--2", "int<1> - - int<2>"},
                 {"a/*x*/b /* x */ /* y\n */ c", "<a> <b> <c>"},
                 {"/**/a/***/b/c", "<a> <b> / <c>"},
                 {"/* ' */ 'x'", "str<x>"},
                 {"a /* b", "<a> !170001"},
                 {"/*", "!170001"}});
}

TEST_F(LexerTest, Numbers) {
  expect_tokens({{"0 12 007", "int<0> int<12> int<007>"},
                 {"1. 1.50 .5", "dec<1.> dec<1.50> . int<5>"},
                 {"1.5e3 1.5E-7 2.e+10", "exp<1.5e3> exp<1.5E-7> exp<2.e+10>"},
                 {"1.5e 1.5e+ 1.2.3", "exp<1.5e> exp<1.5e+> dec<1.2> . int<3>"}});
  for (const char *text : {"1e5", "12ab", "1.5x", "1.5e3f", "1_"}) EXPECT_EQ("!170006", tokens(text)) << text;
}

TEST_F(LexerTest, Words) {
  expect_tokens({{"abc a1_b _x selects trunc", "<abc> <a1_b> <_x> <selects> <trunc>"},
                 {"select Select sELECT", "318 318 318"},
                 {"Abs truNNc", "func0 func70"},
                 {"add or and not work", "269 333 334 335 332"},
                 {"desc descending asc ascending", "288 289 274 274"},
                 {"begin start rollback cancel order sort", "278 278 317 317 314 314"},
                 {"between range attr attribute concat", "279 279 275 275 283"},
                 {"tinyint smallint int bigint", "type65 type66 type67 type68"},
                 {"ctinyinteger csmallinteger cinteger cbiginteger", "type69 type70 type71 type72"},
                 {"float double real", "type137 type138 type138"},
                 {"decimal char varchar text blob", "type523 type524 type525 type4622 type5138"},
                 {"time date microtimestamp", "type2063 type2064 type2065"},
                 {"year month week day", "unit507 unit508 unit509 unit510"},
                 {"hour minute second microsecond", "unit511 unit512 unit513 unit514"},
                 {"yearof monthof dayof hourof", "part500 part501 part502 part503"},
                 {"minuteof secondof microsecondof", "part504 part505 part506"}});
}

TEST_F(LexerTest, Strings) {
  expect_tokens({{"'abc' \"x'y\" ''", "str<abc> str<x'y> str<>"},
                 {"'it''s' \"a\"\"b\"", "str<it's> str<a\"b>"},
                 {R"('\'\"\\')", R"(str<'"\>)"},
                 {R"('\a\b\f\n\r\t\v\q')", "str<\a\b\f\n\r\t\vq>"},
                 {"'a'b 'open", "str<a> <b> str<open>"},
                 {"'a''", "str<a'>"},
                 {"'a\\", "str<a>"}});
}

TEST_F(LexerTest, MultibyteCharacters) {
  expect_tokens({{"表1_a b", "<表1_a> <b>"},
                 {"abc表select", "<abc> <表select>"},
                 {"'表''表'", "str<表'表>"},
                 {"\x82", "!170005"}});
  // 0x955C is one SJIS character whose second byte is a backslash.
  env_start("HVI_LANG=SJIS");
  expect_tokens({{"'\x95\x5C'", "str<\x95\x5C>"},
                 {"\x95\x5C", "<\x95\x5C>"},
                 {"'\x95", "str<\x95>"},
                 {"\xB1", "!170005"}});
}

TEST_F(LexerTest, UnusableCharacters) {
  for (const char c : std::string("#$&:?@[\\]`{}"))
    EXPECT_EQ("<a> !170004", tokens(std::string("a ") + c + " b")) << c;
  for (const char c : {'\x01', '\x08', '\x0E', '\x1F', '\x7F'})
    EXPECT_EQ("<a> !170002", tokens(std::string("a ") + c)) << static_cast<int>(c);
}
