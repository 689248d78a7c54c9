// Texts to tokens, and tokens to statements.
#include "sql/parse/parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame/env.h"
#include "frame/error.h"
#include "sql/parse/grammar.h"
#include "sql/parse/lexer.h"

using namespace tovik;

namespace {

using Pool = std::unique_ptr<MemoryPool, void (*)(MemoryPool *)>;

Pool pool_of(int size) {
  return {memory_pool_create(size), memory_pool_destroy};
}

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
  const Pool pool = pool_of(1 << 16);
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

bool parses(const std::string &text, int pool_size = 1 << 22) {
  const Pool pool = pool_of(pool_size);
  Node *root = nullptr;
  err_clear();
  return parse(*pool, text.c_str(), &root);
}

class ParserTest : public ::testing::Test {
 protected:
  ParserTest() { env_start(""); }
  ~ParserTest() override {
    err_clear();
    env_release();
  }
  static void expect(std::initializer_list<std::pair<const char *, const char *>> cases) {
    for (const auto &[text, expected] : cases) EXPECT_EQ(expected, tokens(text)) << text;
  }
};

}  // namespace

TEST_F(ParserTest, Tokens) {
  expect({{" \t\n\v\f\r %()*+,-./;=^", "% ( ) * + , - . / ; = ^"},
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
          {"a1_b _x selects trunc Select sELECT", "<a1_b> <_x> <selects> <trunc> 318 318"},
          {"aBs abss truNNc desc descending asc ascending", "func0 <abss> func70 288 289 274 274"},
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
TEST_F(ParserTest, CharactersOfTheCurrentSet) {
  env_start("HVI_LANG=SJIS");
  expect({{"'\x95\x5C'", "str<\x95\x5C>"},
          {"\x95\x5C", "<\x95\x5C>"},
          {"'\x95", "str<\x95>"},
          {"\xB1", "!170005"}});
}

TEST_F(ParserTest, SyntaxErrors) {
  for (const char *text :
       {"", "SELECT a > 1 FROM t", "COMMIT", "; ;", "DROP t; DROP u", "CREATE TIMESERIES INDEX i t (a)",
        "CREATE t ()", "INSERT t VALUES (1, (2, 3))", "SELECT FROM t INTO f", "SELECT FROM t WHERE a",
        "SELECT FROM t GROUP a", "SELECT FROM t ORDER BY a GROUP BY a", "SELECT FROM t GROUP BY a + 1",
        "SELECT a, FROM t", "TEST_STMT (a", "TEST_STMT ABS()", "SELECT FROM t WHERE a = b = c"}) {
    EXPECT_FALSE(parses(text)) << text;
    EXPECT_EQ(status::syntax_error, error_record().last_code) << text;
  }
  for (const char *text : {"ALTER t ADD a int BEFORE b, c DELETE d, t.e", "INSERT INTO t VALUES 1, (2, 3)",
                           "CREATE t (a int NOT NULL, c text(1,2,3,4)) init = 5, step TO -1, x = 's'",
                           "SELECT FROM t u WHERE a = 1 GROUP BY a, u.b HAVING NOT a = 1 ORDER BY b INTO 'f'",
                           "SELECT FROM t HAVING a = 1",
                           "SELECT a PRINT 'x', t.c > 1 z FROM t u, v WHERE a > ALL (SELECT b FROM u)"})
    EXPECT_TRUE(parses(text)) << text;
  // A lexical failure is recorded first, the syntax error after it.
  EXPECT_FALSE(parses("SELECT # FROM t"));
  EXPECT_EQ(status::undefined_character, error_record().entries[0].code);
  EXPECT_EQ(status::syntax_error, error_record().entries[1].code);
}

TEST_F(ParserTest, StacksGrowToTheirLimit) {
  const auto nested = [](size_t depth) {
    return "TEST_STMT " + std::string(depth, '(') + "a" + std::string(depth, ')');
  };
  EXPECT_TRUE(parses(nested(9990)));
  EXPECT_FALSE(parses(nested(10010)));
  EXPECT_EQ(status::syntax_error, error_record().entries[0].code);
  std::string chain = "TEST_STMT a";  // of operators leans to the left and takes no stack
  for (int i = 0; i < 20000; ++i) chain += "+a";
  EXPECT_TRUE(parses(chain));
}

// Whatever the pool's size, a parse that does not fit says so.
TEST_F(ParserTest, ExhaustedPool) {
  int size = 16;
  for (; !parses("SELECT a + 1, COUNT(*) x FROM t WHERE a IN (1, 'b') ORDER BY a", size); size += 16) {
    ASSERT_EQ(status::pool_limit, error_record().entries[0].code) << size;
    const StatusCode last = error_record().last_code;
    ASSERT_TRUE(last == status::sql_memory || last == status::value_memory) << size << ": " << last;
  }
  EXPECT_GT(size, 800);
}
