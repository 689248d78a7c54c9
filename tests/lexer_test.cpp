#include "sql/parse/lexer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame/env.h"
#include "frame/error.h"
#include "sql/parse/grammar.h"

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
      return (token == T_TYPE ? "type" : "func") + std::to_string(value.number);
    default:
      return token < 256 ? std::string(1, static_cast<char>(token)) : std::to_string(token);
  }
}

std::string tokens(const std::string &text) {
  std::vector<char> buffer(text.size() + lexer_buffer_slack);
  const std::unique_ptr<MemoryPool, void (*)(MemoryPool *)> pool(memory_pool_create(1 << 16),
                                                                 memory_pool_destroy);
  Lexer lexer;
  err_clear();
  lexer_start(lexer, text.c_str(), buffer.data(), *pool);
  std::string all;
  for (TokenValue value;;) {
    const int token = lexer_next(lexer, &value);
    if (token == 0) return all;
    all += (all.empty() ? "" : " ") + shown(token, value);
    if (token == T_LEXERR) return all;
  }
}

class LexerTest : public ::testing::Test {
 protected:
  ~LexerTest() override {
    err_clear();
    env_release();
  }
  using Cases = std::initializer_list<std::pair<const char *, const char *>>;
  static void expect(const char *settings, Cases cases) {
    env_start(settings);
    for (const auto &[text, expected] : cases) EXPECT_EQ(expected, tokens(text)) << text;
  }
};

}  // namespace

TEST_F(LexerTest, Tokens) {
  expect("", {{" \t\n\v\f\r %()*+,-./;=^", "% ( ) * + , - . / ; = ^"},
              {"!= <> ~= <= >= ||", "336 336 336 337 338 283"},
              {"< > ! | ~ =<", "< > ! | ~ = <"},
              {"1--2", "int<1> - - int<2>"},
              {"/**/a/***/b/c /* ' */ 'x'", "<a> <b> / <c> str<x>"},
              {"a /* b", "<a> !170001"},
              {"a /*/ b", "<a> !170001"},
              {"/*/ a */ b", "<b>"},
              {"0 12 007 1. 1.50 .5", "int<0> int<12> int<007> dec<1.> dec<1.50> . int<5>"},
              {"1.5e3 1.5E-7 2.e+10", "exp<1.5e3> exp<1.5E-7> exp<2.e+10>"},
              {"1.5e 1.5e+ 1.2.3", "exp<1.5e> exp<1.5e+> dec<1.2> . int<3>"},
              {"1e5", "!170006"},
              {"1.5e3f", "!170006"},
              {"a1_b _x selects trunc Select sELECT", "<a1_b> <_x> <selects> <trunc> 318 318"},
              {"Abs truNNc desc descending asc ascending", "func0 func70 288 289 274 274"},
              {"ctinyinteger real microtimestamp", "type69 type138 type2065"},
              {"'abc' \"x'y\" '' 'a'b", "str<abc> str<x'y> str<> str<a> <b>"},
              {"'it''s' \"a\"\"b\" 'open", "str<it's> str<a\"b> str<open>"},
              {R"('\'\"\\' '\a\b\f\n\r\t\v\q')", "str<'\"\\> str<\a\b\f\n\r\t\vq>"},
              {"表1_a abc表select '表''表'", "<表1_a> <abc> <表select> str<表'表>"},
              {"\x82", "!170005"}});
  // A token that a multibyte word ends leaves no byte for its terminator.
  std::string text, expected;
  for (int i = 0; i < 50; ++i) text += "1表 b表 ", expected += " int<1> <表> <b> <表>";
  EXPECT_EQ(expected.substr(1), tokens(text));
  for (const char c : std::string("#$&:?@[\\]`{}"))
    EXPECT_EQ("<a> !170004", tokens(std::string("a ") + c + " b")) << c;
  EXPECT_EQ("<a> !170002", tokens("a \x7F"));
}

// 0x955C is one SJIS character whose second byte is a backslash.
TEST_F(LexerTest, CharactersOfTheCurrentSet) {
  expect("HVI_LANG=SJIS", {{"'\x95\x5C'", "str<\x95\x5C>"},
                           {"\x95\x5C", "<\x95\x5C>"},
                           {"'\x95", "str<\x95>"},
                           {"\xB1", "!170005"}});
}
