// Expressions, parsed, checked and evaluated from their text, and the functions in them.
#include "sql/evaluate/evaluator.h"

#include <cmath>
#include <cstring>

#include "data/function/builtin.h"
#include "data/value/datetime.h"
#include "engine_support.h"
#include "sql/parse/parser.h"

namespace tovik {
namespace {

std::string formatted(const char *format, double real) {
  char text[64];
  snprintf(text, sizeof text, format, real);
  return text;
}

// A value as SQL would write it; a double always has a point or an exponent.
std::string text_of(const Value &value) {
  if (value.is_null()) return "NULL";
  if (value.kind == value_kind::truth) {
    const Truth truth = static_cast<Truth>(value.integer);
    return truth == Truth::yes ? "true" : truth == Truth::no ? "false" : "unknown";
  }
  if ((value.type & TYPE_INTEGER) != 0) return std::to_string(value.integer);
  if ((value.type & TYPE_CHARACTER) != 0) {
    EXPECT_EQ('\0', value.text.text[value.text.length]);
    return "'" + std::string(value.text.text, static_cast<size_t>(value.text.length)) + "'";
  }
  if ((value.type & TYPE_DATETIME) != 0) {
    char text[24];
    EXPECT_TRUE(format_datetime(type::microtimestamp, value.datetime, text));
    return text;
  }
  const std::string text = formatted("%.12g", value.real);
  return text.find_first_of(".en") == std::string::npos ? text + ".0" : text;
}

// A failure as it shows up: its first status, behind "!" from the check and behind "?" from the evaluation.
std::string failure(char mark) {
  EXPECT_NE(0, error_record().count);
  return mark + std::to_string(error_record().entries[0].code);
}

std::string repeat(const std::string &text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

class Expressions : public ::testing::Test {
 protected:
  void SetUp() override {
    env_start("");
    ASSERT_NE(nullptr, pool_ = memory_pool_create(16 << 20));
  }
  void TearDown() override {
    memory_pool_destroy(pool_);
    err_clear();
    env_release();
  }

  EvalContext context() { return {&stack_, pool_, nullptr}; }

  // The tree of an expression, or of a condition; null when it cannot be parsed.
  Node *parse_item(const std::string &expression) {
    pool_->used = 0;
    Node *root = nullptr;
    err_clear();
    if (!parse(*pool_, ("TEST_STMT " + expression).c_str(), &root)) {
      err_clear();
      if (!parse(*pool_, ("TEST_STMT " + expression + " AS x").c_str(), &root)) return nullptr;
    }
    return root->second->third;
  }

  std::string result(const std::string &expression) {
    Node *item = parse_item(expression);
    if (item == nullptr) return "no statement";
    EvalContext evaluation = context();
    Value checked, value, again;
    if (!expr_check(evaluation, item, CheckLabels::none, &checked)) return failure('!');
    if (!expr_evaluate(evaluation, item, EvalMode::row, &value)) return failure('?');
    EXPECT_TRUE(stack_.values.empty());
    const bool as_checked =
        checked.is_null() ? value.is_null() : value.is_null() || value.type == checked.type;
    EXPECT_TRUE(as_checked) << expression << ": type " << checked.type << " became " << value.type;
    const std::string text = text_of(value);
    EXPECT_TRUE(expr_evaluate(evaluation, item, EvalMode::row, &again));
    EXPECT_EQ(text, text_of(again)) << "evaluated again: " << expression;
    return text;
  }

  std::string label(const std::string &expression) {
    EvalContext evaluation = context();
    Value checked;
    EXPECT_TRUE(expr_check(evaluation, parse_item(expression), CheckLabels::build, &checked));
    return checked.label;
  }

  // One or more expressions a case, with "; " between them.
  void expect(std::initializer_list<std::pair<const char *, const char *>> cases) {
    for (const auto &[expressions, expected] : cases) {
      std::string all, rest = expressions;
      for (size_t at; (at = rest.find("; ")) != std::string::npos; rest.erase(0, at + 2))
        all += result(rest.substr(0, at)) + "; ";
      EXPECT_EQ(expected, all + result(rest)) << expressions;
    }
  }

  ValueStack stack_;
  MemoryPool *pool_ = nullptr;
};

TEST_F(Expressions, Operators) {
  expect({
      {"1 + 2 * 3; 10 - 4 - 3; -7 / 2; 7 % -2; -7 % 2; - - 5", "7; 3; -3; 1; -1; 5"},
      {"-(9223372036854775808); 9223372036854775808", "-9223372036854775808; !150002"},
      // Past the range the result wraps around.
      {"9223372036854775807 + 1; 9223372036854775807 * 2", "-9223372036854775808; -2"},
      {"-9223372036854775808 - 1; - -9223372036854775808", "9223372036854775807; -9223372036854775808"},
      {"-9223372036854775808 / -1; -9223372036854775808 % -1", "-9223372036854775808; 0"},
      {"7 / 0; 7 % 0; 7 / 0.0; 7.5 % 0; 1.5e; 1.5e999",
       "?151001; ?151001; ?151001; ?151001; !150002; !150002"},
      {"7.0 / 2; 1 + 0.5; 1 - 0.75; 1.5e1 * 2; -7.5 % 2", "3.5; 1.5; 0.25; 30.0; -1.5"},
      // The quotient leaves the 32-bit range and counts as its lowest number.
      {"1.0e10 % 1; -1.0e10 % 1.0", "12147483648.0; -7852516352.0"},
      {"1.5 / NULL; NULL / 0; -NULL; YEAROF NULL; NULL + 1 day", "NULL; NULL; NULL; NULL; NULL"},
      {"1 * 'x'; -'1'; YEAROF 2020; 1 + 1 day", "!150005; !150005; !150005; !150005"},
      {"'20200101' + '1' day; 1 || 'a'; 'a' || 1.5", "!150005; !150006; !150006"},
      {"DIRECT_FROM 'f'; t.a + 1", "!50010; !50001"},
      {"'a' || NULL; NULL || 'b'; NULL || NULL; '' || ''", "'a'; 'b'; NULL; ''"},
      // Dates.
      {"YEAROF '20200203'; MONTHOF '20200203'; DAYOF '20200203'; HOUROF '20200203040506'", "2020; 2; 3; 4"},
      {"MINUTEOF '20200203040506'; SECONDOF '20200203040506'", "5; 6"},
      {"MICROSECONDOF '20200203040506000007'; YEAROF '2020-02-03'; YEAROF ''", "7; ?113011; ?113015"},
      {"'20200101' - 1 second; '20200101' + 1 week", "20191231235959000000; 20200108000000000000"},
      {"'20200101' + 1.9 day; '20200101' + -1 year", "20200102000000000000; 20190101000000000000"},
      {"'20200101' + 9223372036854775807 day", "?113004"},
      {"'20200101' - -9223372036854775808 day; '20200101' + 1.0e300 second", "?113004; ?113004"},
      {"-1 * 2 - - -3; '20200101' + 1 day - 1 * 2 month", "-5; 20191102000000000000"},
      {"('20200101' + 1 day) = ('20200103' - 1 day); ('20200101' + 1 day) = '20200102'", "true; !150003"},
  });
}

TEST_F(Expressions, Comparisons) {
  expect({
      {"1 <> 1; 2 < 1; 2 > 1; 1 <= 1; 1 >= 2; 1 = 1.0", "false; false; true; true; false; true"},
      {"-9223372036854775808 < 9223372036854775807; 'a' = 'a '", "true; false"},
      {"'あ' > 'z'; NULL = NULL; NULL <> 'x'; NULL + 1 IS NULL", "true; unknown; unknown; true"},
      {"1 = 'a'; 1 IN (1, 'a'); 1 BETWEEN 0 AND 'x'", "!150003; !150003; !150003"},
      {"1 = (SELECT a FROM t); 1 IN (SELECT a FROM t)", "!150003; !150003"},
      {"1 > ALL (SELECT a FROM t); EXISTS (SELECT a FROM t)", "!150003; !50010"},
      {"1 IN (1, NULL); 2 IN (1, NULL); 2 NOT IN (1, NULL)", "true; unknown; unknown"},
      {"1 IN (1, 1 / 0); 2 IN (1, 1 / 0); NULL IN (1, 2)", "true; ?151001; unknown"},
      {"1 BETWEEN 1 AND 3; 1 BETWEEN 1 EXCLUSIVE AND 3", "true; false"},
      {"3 BETWEEN 1 AND 3 EXCLUSIVE; 3 BETWEEN 1 AND 3 INCLUSIVE", "false; true"},
      {"4 NOT BETWEEN 1 EXCLUSIVE TO 5; 1 = 1 OR 1 = 0 AND NOT 1 = 1; 2 NOT IN ((1, NULL))",
       "false; true; unknown"},
      {"4 NOT BETWEEN 1 AND 3; NULL BETWEEN 1 AND 3; 5 BETWEEN NULL AND 3", "true; unknown; false"},
      {"'ABC' MATCH 'a*'; 'ABC' SMATCH 'a*'; 'ABC' !MATCH 'a*'", "true; false; false"},
      {"'ABC' !SMATCH 'a*'; 'ABC' NOT MATCH 'a*'; 'ABC' NOT !MATCH 'a*'", "true; false; true"},
      {"'abc' NOT LIKE 'a%'; NULL LIKE 'a'; 'a' NOT MATCH NULL", "false; unknown; unknown"},
      {"1.5 LIKE '1.5%e+00'; ('20200101' + 1 day) MATCH '20200102*'", "true; true"},
      {"1 MATCH 1.0; 2 SMATCH 1; 2 !MATCH 1; 1 NOT LIKE 1; 1 MATCH NULL",
       "true; false; true; false; unknown"},
      // An operand that can fail is evaluated even when the result is settled.
      {"1 = 0 AND 1 / 0 = 1; 1 = 1 OR 1 % 0 = 1; 1 / 0 = 1 AND 1 = 0", "?151001; ?151001; ?151001"},
  });
  const char *const truths[] = {"1 = 0", "1 = NULL", "1 = 1"};  // in ascending order
  const char *const names[] = {"false", "unknown", "true"};
  for (int a = 0; a < 3; ++a) {
    EXPECT_EQ(names[2 - a], result(std::string("NOT ") + truths[a]));
    for (int b = 0; b < 3; ++b) {
      EXPECT_EQ(names[std::min(a, b)], result(std::string(truths[a]) + " AND " + truths[b]));
      EXPECT_EQ(names[std::max(a, b)], result(std::string(truths[a]) + " OR " + truths[b]));
    }
  }
}

TEST_F(Expressions, ArgumentsAreChecked) {
  expect({
      {"SUBSTR('abc', 2, ABS(-1)) || 'z'; ABS('x'); ABS(1, 2)", "'bz'; !153001; !153011"},
      {"MAX(MAX(1)); SUM(1 + COUNT(*)); ABS(SUM(1))", "!150004; !150004; NULL"},
      {"NVL(1); ABS(1 / 0); COUNT(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16)", "!153012; ?151001; NULL"},
      {"COUNT(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17)", "!150007"},
      // What NVL gives may be of another type than its check could tell.
      {"NVL(SUBSTR('x', SUM(1)), 5) || 'x'; 1 = NVL(SUM(1), 'x')", "?150006; ?150003"},
      {"NOW(1); ROUND(1, 2, 3)", "!153011; !153011"},
      {"SUBSTR('a'); SUBSTR('a', 1, 1, 1)", "!153012; !153011"},
      {"INSTR('a'); INSTR('a', 'a', 1, 1, 1); TRANSLATE('a', 'a')", "!153012; !153011; !153012"},
      {"SUBSTR(NULL, NULL); SIGN(NULL); POW(2, NULL)", "NULL; NULL; NULL"},
      {"TOCHAR(NULL, NULL); TODATE(5, NULL)", "NULL; NULL"},
  });
}

TEST_F(Expressions, Mathematics) {
  const std::pair<const char *, double (*)(double)> functions[] = {
      {"ACOS", acos}, {"ASIN", asin}, {"ATAN", atan}, {"COS", cos},   {"COSH", cosh},    {"EXP", exp},
      {"FABS", fabs}, {"LOG", log},   {"SIN", sin},   {"SINH", sinh}, {"LOG10", log10},  {"SQRT", sqrt},
      {"TAN", tan},   {"TANH", tanh}, {"ERF", erf},   {"ERFC", erfc}, {"GAMMA", tgamma}, {"J0", j0},
      {"J1", j1},     {"Y0", y0},     {"Y1", y1}};
  for (const auto &[name, function] : functions)
    EXPECT_EQ(result(name + std::string("(0.7)")), formatted("%.12g", function(0.7)));
  expect({
      {"ABS(-9223372036854775808); ABS(-2.5)", "-9223372036854775808; 2.5"},
      {"SIGN(-0.5); SIGN(9223372036854775807)", "-1; 1"},
      {"ROUND(2.5); ROUND(-2.5); ROUND(1.25, 1)", "3.0; -3.0; 1.3"},
      {"ROUND(1250, -2); ROUND(1.25, 0.9)", "1300.0; 1.0"},
      {"TRUNNC(-1.7); CEILING(-1.7); FLOOR(-1.2)", "-1.0; -1.0; -2.0"},
      {"ATAN2(1, 2); FMOD(7.5, 2); HYPOT(3, 4)", "0.463647609001; 1.5; 5.0"},
      {"JN(2.9, 1); JN(9223372036854775807, 1)", "0.114903484932; 0.0"},
      // The library would take two thousand million steps.
      {"JN(2147483647, 1.0e9); JN(-2147483647, 2.0e9); YN(2147483647, 1.0e10)", "0.0; nan; nan"},
  });
}

// Kana have three bytes each.
TEST_F(Expressions, Texts) {
  expect({
      {"ASCII('AB'); ASCII(''); ASCII('あ')", "65; 0; 14909826"},
      {"CHR(14909826); CHR(4259906); CHR(0)", "'あ'; 'AB'; ''"},
      {"CHAR_LENGTH('あいう'); LENGTHB('あいう')", "3; 9"},
      {"LOWER('AbCＡ'); TOUPPER('aBcａ')", "'abcａ'; 'ABCＡ'"},
      {"LTRIM('  a b '); RTRIM('  a b '); TRIM('  a b ')", "'a b '; '  a b'; 'a b'"},
      {"RIGHT('あいう', 1); RIGHT('abc', 9223372036854775807)", "'う'; 'abc'"},
      {"RIGHT('abc', -9223372036854775808)", "''"},
      {"SUBSTR('abcde', (2, 3)); SUBSTR('abcde', -2)", "'bcd'; 'de'"},
      {"SUBSTR('abcde', 0, 2); SUBSTR('abcde', 2, 0)", "'ab'; 'bcde'"},
      {"SUBSTR('abcde', 2, -1); SUBSTR('abcde', 6)", "''; ''"},
      {"SUBSTR('abcde', -9223372036854775808)", "'abcde'"},
      {"LPAD('abcde', 3); LPAD('ab', 7, 'xyz'); LPAD('ab', 4, '')", "'abc'; 'xyzxyab'; '  ab'"},
      {"RPAD('ab', 5, 'あいう'); RPAD('ab', 0, 'x')", "'abあいう'; ''"},
      {"REPLACE('abcabc', 'bc', 'X'); REPLACE('aaa', 'aa', 'b')", "'aXaX'; 'ba'"},
      {"TRANSLATE('abcabc', 'abb', 'x'); TRANSLATE('abc', 'ca', 'あz')", "'xcxc'; 'zbあ'"},
      {"INSTR('abcabc', 'bc'); INSTR('abcabc', 'bc', 1, 2)", "2; 5"},
      {"INSTR('abcabc', 'bc', 1, -1); INSTR('abcabc', '', 1)", "0; 0"},
      {"INSTR('aaaa', 'aa', 1, 2); INSTR('aaaa', 'aa', 1, 3)", "3; 0"},
      {"INSTR('abc', 'c', 1, 9223372036854775807)", "0"},
      // From the right: a match that ends at the start position does not count.
      {"INSTR('abcabc', 'bc', -1); INSTR('abcabcx', 'bc', -1)", "2; 5"},
      {"INSTR('abcabcx', 'bc', -1, 2); INSTR('abcabcx', 'bc', -1, 3)", "2; 0"},
      {"INSTR('abcabcx', 'bc', -9223372036854775808)", "0"},
  });
}

TEST_F(Expressions, HugeCountsEndInTheLimitOfThePool) {
  for (const char *call : {"REPEAT('ab', ", "LPAD('ab', ", "RPAD('ab', ", "SPACE("})
    for (const char *count : {"16777216", "2147483647", "4294967296", "9223372036854775807"}) {
      EXPECT_EQ(result(call + std::string(count) + ")"), "?53002") << call << count;
      EXPECT_EQ(error_record().last_code, 110002);
    }
  // Seven bytes are set aside per character of padding, and for a text in its other case as many as it has.
  expect({{"LENGTHB(LPAD('ab', 1190000)); LENGTHB(LPAD('ab', 2400000))", "1190000; ?53002"},
          {"LENGTH(UPPER(REPEAT('a', 4000000)))", "4000000"}});
}

TEST_F(Expressions, TheCurrentTime) {
  const test::SlotGuard<decltype(system_driver.local_now)> clock(
      system_driver.local_now, [](DateTimeRec *now) { *now = {2021, 2, 3, 4, 5, 6, 0, 789}; });
  const std::tuple<const char *, TypeCode, const char *> cases[] = {
      {"CURRENT_DATE", type::date, "20210203000000000000"},
      {"CURRENT_TIME", type::time, "20210203040506000000"},
      {"CURRENT_TIMESTAMP", type::microtimestamp, "20210203040506000789"},
      {"NOW", type::time, "20210203040506000789"}};
  for (const auto &[name, shown, expected] : cases) {
    EXPECT_EQ(result(name), expected);
    EXPECT_EQ(builtin_find(name)->display, shown) << name;
  }
}

TEST_F(Expressions, TextsOfNumbersAndDates) {
  expect({
      {"DAYNAME('20000101' + 0 day); DAYNAME('15821004' + 1 day)", "'Saturday'; 'Friday'"},
      {"DAYOFYEAR('20201231' + 0 day); DAYOFYEAR('15821231' + 0 day)", "366; 355"},
      {"WEEKOFYEAR('20230101' + 0 day); WEEKOFYEAR('20220101' + 0 day)", "1; 0"},
      {"WEEKOFYEAR('20220102' + 0 day); WEEKOFYEAR('20221231' + 0 day)", "1; 52"},
      {"LAST_DAY('20200205101112' + 0 day)", "20200229101112000000"},
      {"NEXT_DAY('20240101093000' + 0 day, 'monday')", "20240108093000000000"},
      {"NEXT_DAY('20240101' + 0 day, 'mon')", "?153007"},
      {"NEXT_DAY('99991231' + 0 day, 'Sunday')", "?113004"},
      {"ADD_MONTHS('20210331' + 0 day, -1)", "20210303000000000000"},
      {"ADD_MONTHS('20210331' + 0 day, -9223372036854775808)", "?113004"},
      {"TOCHAR(-12, '09999'); TOCHAR(12, '0,000')", "'-00012'; ' 0,012'"},
      {"TOCHAR(1234.5, '9,999.99'); TOCHAR(0.5, '9.99')", "' 1,234.50'; '  .50'"},
      {"TOCHAR(-0.5, '0.0'); TOCHAR(-0.5, '99.9')", "'-0.5'; '  -.5'"},
      {"TOCHAR(0.25, '.9'); TOCHAR(-2.5, '9'); TOCHAR(2.675, '9.99')", "' .3'; '-3'; ' 2.68'"},
      {"TOCHAR(-9223372036854775808, '9999999999999999999')", "'-9223372036854775808'"},
      {"TOCHAR(10, '9'); TOCHAR(9.96, '9.9'); TOCHAR(LOG(-1), '9')", "?153007; ?153007; ?153007"},
      {"TOCHAR('', '9'); TOCHAR('-1', '9'); TOCHAR(' ', '9')", "?153007; '-1'; ?153007"},
      {"TOCHAR(1, ''); TOCHAR(1, '9.9.9'); TOCHAR(1, ',999')", "?153007; ?153007; ?153007"},
      {"TOCHAR('20200131040506000789', 'YYYY-MM-DD hh24:mi:ss.FF')", "'2020-01-31 04:05:06.000789'"},
      {"TOCHAR('20200131', 'YYYY Q'); TOCHAR('20200131', '--')", "?153007; ?153007"},
      {"TOCHAR('20200131' + 0 day, '999')", "?153007"},
      {"TODATE('2020-01-31 04:05:06.5', 'YYYY-MM-DD HH24:MI:SS.FF')", "20200131040506500000"},
      {"TODATE('2020-1-31', 'YYYY-MM-DD'); TODATE('2020-01-31x', 'YYYY-MM-DD')", "?153007; ?153007"},
      {"TODATE('2020-01', 'YYYY-MM-DD'); TODATE('01', 'MM')", "?153007; ?153007"},
  });
}

// Folded over no row and over three.
TEST_F(Expressions, Aggregates) {
  const std::tuple<const char *, const char *, const char *> cases[] = {
      {"COUNT(*)", "0", "3"},
      {"SUM(2) + 1", "NULL", "7"},
      {"10 / COUNT(*)", "?151001", "3"},
      {"NVL(MAX(NULL + 1), -1)", "-1", "-1"},
      {"SUM(9223372036854775807)", "NULL", "9223372036854775805"},
      // The tested expression is folded once per row, and the items behind a match are folded too.
      {"COUNT(*) BETWEEN 3 AND 3", "false", "true"},
      {"0 IN (1, COUNT(*) - 3)", "false", "true"},
  };
  for (const auto &[expression, of_none, of_three] : cases)
    for (const int rows : {0, 3}) {
      EvalContext evaluation = context();
      Node *item = parse_item(expression);
      Value value;
      ASSERT_TRUE(expr_check(evaluation, item, CheckLabels::none, nullptr)) << expression;
      for (int i = 0; i < rows; ++i) ASSERT_TRUE(expr_evaluate(evaluation, item, EvalMode::row, &value));
      const bool finished = expr_evaluate(evaluation, item, EvalMode::total, &value);
      EXPECT_EQ(rows == 0 ? of_none : of_three, finished ? text_of(value) : failure('?')) << expression;
    }
}

TEST_F(Expressions, Labels) {
  static const std::pair<const char *, const char *> cases[] = {
      {"1 - 2 * 3 / 4 % 5", "(1 - (((2 * 3) / 4) % 5))"},
      {"'a' || 'b' || NULL", "('('a' concat 'b')' concat 'NULL')"},
      {"- -5", "(- -5)"},
      {"MICROSECONDOF ('20200101' + 1 day)", "(microsecondof ('20200101' + (1 day)))"},
      {"COUNT(*)", "COUNT(*)"},
      {"SUBSTR('a', 1, -2) || 'x'", "('SUBSTR(a, 1, -2)' concat 'x')"},
  };
  for (const auto &[expression, expected] : cases) EXPECT_EQ(expected, label(expression)) << expression;
}

// The label of a long chain, and the text of one, take their own length, so that they fit the default pool.
TEST_F(Expressions, LongChainsFitThePool) {
  memory_pool_destroy(pool_);
  pool_ = memory_pool_create(102400);
  EXPECT_EQ(301u + 300 * 5, label("1" + repeat(" + 1", 300)).size());
  const std::string part = "'" + repeat("x", 100) + "'";
  EXPECT_EQ(4002u, result(part + repeat(" || " + part, 39)).size());
}

// The deepest expressions that pass, one level more, and chains, in which only the right operands are deeper.
TEST_F(Expressions, DepthAndLengthOnASmallStack) {
  const struct {
    const char *first, *more, *inner, *close;
    int count;
    std::string result;
  } cases[] = {
      {"", "1+(", "1", ")", expression_depth_limit - 1, "300"},
      {"", "'a'||(", "'b'", ")", expression_depth_limit - 1, "'" + repeat("a", 299) + "b'"},
      {"", "NVL(NULL, ", "1.5", ")", expression_depth_limit - 1, "1.5"},
      {"", "1 = 1 AND (", "1 = 0", ")", expression_depth_limit - 2, "false"},
      {"1", "+1", "", "", 5000, "5001"},
      {"'a'", "||'b'", "", "", 5000, "'a" + repeat("b", 5000) + "'"},
      {"1 = 0", " OR 1 = 1", "", "", 5000, "true"},
      {"1 = 1", " AND 1 = 1", " AND NULL = 1", "", 5000, "unknown"},
      {"", "NOT ", "1 = 1", "", 5000, "true"},
      {"", "- ", "1", "", 5000, "1"},
  };
  for (const auto &each : cases) {
    const auto expression = [&each](int count) {
      return each.first + repeat(each.more, count) + each.inner + repeat(each.close, count);
    };
    std::string deepest, deeper = "!150004", labelled = "1";
    test::on_small_stack([&] {
      deepest = result(expression(each.count));
      if (*each.close != '\0') deeper = result(expression(each.count + 1));
      if (*each.close != '\0' && each.inner[1] != ' ') labelled = label(expression(each.count));
    });
    EXPECT_EQ(each.result, deepest) << each.more;
    EXPECT_EQ("!150004", deeper) << each.more;
    EXPECT_NE("", labelled);
  }
}

// ---- functions called with arguments that no expression could write ----

struct Argument : Value {
  Argument() : Value{} { flags = value_null; }
  Argument(int number) : Value{} {
    type = type::bigint;
    integer = number;
  }
  Argument(double number) : Value{} {
    type = type::float64;
    real = number;
  }
  Argument(const std::string &bytes) : Value{} {
    type = type::character;
    text = {bytes.c_str(), static_cast<int32_t>(bytes.size())};
  }
  Argument(const DateTimeRec &date) : Value{} {
    type = type::microtimestamp;
    datetime = date;
  }
};

// What NVL chooses may be of another class in every row: with arguments of any class in any place, a function
// gives a value of the class that the table tells, or the status of the first wrong argument.
TEST_F(Expressions, ArgumentsOfAnyClassInAnyRow) {
  const std::string digits = "20210203", empty;
  const Argument kinds[] = {{}, 3, -2.5, digits, empty, DateTimeRec{2021, 2, 28, 0, 0, 0, 0, 0}};
  constexpr int kind_count = 6;
  const auto fits = [](const Value &value, char letter) {
    const TypeCode wanted = letter == 'N'   ? TYPE_NUMERIC
                            : letter == 'I' ? TYPE_INTEGER
                            : letter == 'S' ? TYPE_CHARACTER
                            : letter == 'D' ? TYPE_DATETIME
                                            : ~TypeCode{0};
    return value.is_null() || (value.type & wanted) != 0;
  };
  int calls = 0;
  for (int number = 0; number < builtin_count; ++number)
    for (int count = 0, combinations = 1; count <= 4; ++count, combinations *= kind_count) {
      const BuiltinRow &row = *builtin_row(number);
      Value values[4] = {kinds[0], kinds[0], kinds[0], kinds[0]}, result{};
      if (!builtin_prepare(number, values, count, result)) continue;  // another number of arguments
      for (int i = 0; i < combinations; ++i) {
        std::string trace = row.name;
        int wrong = -1;
        for (int place = 0, rest = i; place < count; ++place, rest /= kind_count) {
          values[place] = kinds[rest % kind_count];
          trace += " " + text_of(values[place]);
          if (wrong < 0 && number != builtin::count && !fits(values[place], row.classes[place]))
            wrong = place;
        }
        SCOPED_TRACE(trace);
        memory_pool_empty(*pool_);
        err_clear();
        ++calls;
        if (row.category == BuiltinCategory::aggregate) {
          Accumulator sum{type::bigint, 0, {0}};
          EXPECT_EQ(builtin_accumulate(number, values, count, sum), wrong < 0);
          continue;
        }
        result = {};
        const bool done = builtin_evaluate(number, values, count, *pool_, result);
        if (done && wrong < 0) {
          const TypeCode given = row.result != 0 ? row.result : values[0].type;
          EXPECT_TRUE(result.is_null() || number == builtin::nvl ||
                      datum_kind(result.type) == datum_kind(given));
          text_of(result);
        } else if (wrong >= 0) {
          EXPECT_EQ(failure('!'), "!" + std::to_string(153001 + wrong));
        } else {
          EXPECT_TRUE(failure('!').starts_with("!153") || failure('!').starts_with("!113"));
        }
      }
    }
  EXPECT_GT(calls, 3000);
}

// Texts of whole and broken characters: every function ends, stays inside its buffers, and keeps the laws
// that tie it to its neighbours.
TEST_F(Expressions, RandomTextsObeyTheirLaws) {
  const auto call = [this](const char *name, std::initializer_list<Argument> arguments) {
    const std::vector<Value> values(arguments.begin(), arguments.end());
    Value given{};
    if (!builtin_evaluate(builtin_find(name)->number, values.data(), static_cast<int>(values.size()), *pool_,
                          given))
      return failure('!');
    if ((given.type & TYPE_CHARACTER) == 0) return text_of(given);
    EXPECT_EQ(strlen(given.text.text), static_cast<size_t>(given.text.length));
    return std::string(given.text.text);
  };
  test::Random random;
  const char *const pieces[] = {"a", "b", " ", "\xE3\x81\x82", "\xE3", "\x81", "\xFC\x80", "\xC3\xA4"};
  for (int i = 0; i < 3000 && !HasFailure(); ++i) {
    memory_pool_empty(*pool_);
    std::string text, sought;
    for (int n = random.below(10); n > 0; --n) text += pieces[random.below(8)];
    for (int n = random.below(3); n > 0; --n) sought += pieces[random.below(8)];
    const int number = 1 + random.below(10);
    SCOPED_TRACE(testing::PrintToString(text) + " " + testing::PrintToString(sought) + " " +
                 std::to_string(number));
    EXPECT_EQ(call("REPLACE", {text, sought, sought}), text);
    EXPECT_EQ(call("TRANSLATE", {text, sought, sought}), text);
    EXPECT_EQ(call("LEFT", {text, number}) + call("SUBSTR", {text, number + 1}), text);
    EXPECT_TRUE(call("RPAD", {text, number}).starts_with(call("LEFT", {text, number})));
    EXPECT_EQ(call("REVERSE", {text}).size(), text.size());
    const int position = std::stoi(call("INSTR", {text, sought}));
    EXPECT_LE(position, std::stoi(call("LENGTH", {text})));
    EXPECT_TRUE(position == 0 || call("SUBSTR", {text, position}).starts_with(sought));
    call("TODATE", {text, "YYYY" + text});
    err_clear();
  }
}

}  // namespace
}  // namespace tovik
