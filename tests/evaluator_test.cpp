// Expressions, parsed, checked and evaluated from their text, and the functions in them.
#include "sql/evaluate/evaluator.h"

#include <cmath>
#include <cstring>

#include "data/function/builtin.h"
#include "data/value/datetime.h"
#include "engine_support.h"
#include "sql/parse/parser.h"
#include "sql/parse/shapes.h"

namespace tovik {
namespace {

std::string formatted(const char *format, double real) {
  char text[64];
  snprintf(text, sizeof text, format, real);
  return text;
}

// A value as SQL would write it; a double always has a point or an exponent, a date no time of zeros.
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
    std::string shorter = text;
    while (shorter.size() > 8 && shorter.ends_with("000000")) shorter.resize(shorter.size() - 6);
    return shorter;
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

  EvalContext context() { return {&stack_, pool_, nullptr, nullptr, &calls_}; }

  // The tree of an expression, or of a condition; null when it cannot be parsed.
  Node *parse_item(const std::string &expression) {
    pool_->used = 0;
    calls_ = {};
    Node *root = nullptr;
    err_clear();
    if (!parse(*pool_, ("TEST_STMT " + expression).c_str(), &root)) {
      err_clear();
      if (!parse(*pool_, ("TEST_STMT " + expression + " AS x").c_str(), &root)) return nullptr;
    }
    return SelectItemTree::of(*ListTree::of(*root).items).expression;
  }

  // Of a checked expression: of a group of so many rows when an aggregate is in it.
  bool evaluate(EvalContext &evaluation, const Node *item, Value *value, int rows = 0) {
    std::vector<Accumulator> accumulators;
    for (const AggregateCall *call = calls_.first; call != nullptr; call = call->next)
      accumulators.push_back(call->start);
    while (rows-- > 0) EXPECT_TRUE(aggregates_add(evaluation, calls_, accumulators.data()));
    const Group group{accumulators.data(), nullptr, nullptr, 0};
    evaluation.group = calls_.count == 0 ? nullptr : &group;
    return expr_evaluate(evaluation, item, value);
  }

  std::string result(const std::string &expression) {
    Node *item = parse_item(expression);
    if (item == nullptr) return "no statement";
    EvalContext evaluation = context();
    Value checked, value, again;
    if (!expr_check(evaluation, item, CheckLabels::none, &checked)) return failure('!');
    if (!evaluate(evaluation, item, &value)) return failure('?');
    EXPECT_TRUE(stack_.values.empty());
    const bool as_checked =
        checked.is_null() ? value.is_null() : value.is_null() || value.type == checked.type;
    EXPECT_TRUE(as_checked) << expression << ": type " << checked.type << " became " << value.type;
    const std::string text = text_of(value);
    EXPECT_TRUE(evaluate(evaluation, item, &again));
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

  const test::SlotGuard<decltype(system_driver.local_now)> clock_{
      system_driver.local_now, [](DateTimeRec *now) { *now = {2021, 2, 3, 4, 5, 6, 0, 789}; }};
  ValueStack stack_;
  AggregateCalls calls_{};
  MemoryPool *pool_ = nullptr;
};

TEST_F(Expressions, Results) {
  expect({
      {"1 + 2 * 3; 10 - 4 - 3; -7 / 2; 7 % -2; - - 5", "7; 3; -3; 1; 5"},
      {"-(9223372036854775808); 9223372036854775808", "-9223372036854775808; !150002"},
      // Past the range the result wraps around.
      {"9223372036854775807 + 1; 9223372036854775807 * 2", "-9223372036854775808; -2"},
      {"-9223372036854775808 - 1; - -9223372036854775808", "9223372036854775807; -9223372036854775808"},
      {"-9223372036854775808 / -1; -9223372036854775808 % -1; 7 / 0", "-9223372036854775808; 0; ?151001"},
      {"7 % 0; 7 / 0.0; 1.5e; 1.5e999; 7.0 / 2; 1.5e1 * 2", "?151001; ?151001; !150002; !150002; 3.5; 30.0"},
      {"-7.5 % 2", "-1.5"},
      // The quotient leaves the 32-bit range and counts as its lowest number.
      {"1.0e10 % 1; -1.0e10 % 1.0; 1.5 / NULL; NULL / 0", "12147483648.0; -7852516352.0; NULL; NULL"},
      {"-NULL; YEAROF NULL; NULL + 1 day; 1 * 'x'; -'1'", "NULL; NULL; NULL; !150005; !150005"},
      {"YEAROF 2020; 1 + 1 day; '20200101' + '1' day; 1 || 'a'", "!150005; !150005; !150005; !150006"},
      {"DIRECT_FROM '/no/such'; t.a + 1; 'a' || NULL; NULL || 'b'; NULL || NULL",
       "!102; !50001; 'a'; 'b'; NULL"},
      // Dates.
      {"YEAROF '20200203'; MONTHOF '20200203'; DAYOF '20200203'; HOUROF '20200203040506'", "2020; 2; 3; 4"},
      {"MINUTEOF '20200203040506'; SECONDOF '20200203040506'", "5; 6"},
      {"MICROSECONDOF '20200203040506000007'; YEAROF '2020-02-03'; YEAROF ''", "7; ?113011; ?113015"},
      {"'20200101' - 1 second; '20200101' + 1 week", "20191231235959; 20200108"},
      {"'20200101' + 1.9 day; '20200101' + -1 year", "20200102; 20190101"},
      {"'20200101' + 1.0e300 second; -1 * 2 - - -3", "?113004; -5"},
      {"'20200101' + 1 day - 1 * 2 month; ('20200101' + 1 day) = ('20200103' - 1 day)", "20191102; true"},
      {"('20200101' + 1 day) = '20200102'; '20200229120000' + 1 year", "!150003; 20210301120000"},
      {"'20200315' - 2019 year; '20210131235959' + 1 month", "00010315; 20210303235959"},
      {"'20200228230000' + 25 hour; '20200101' - 1 microsecond", "20200301; 20191231235959999999"},
      {"'00010101' + 315537897599999999 microsecond", "99991229235959999999"},
      // The Julian calendar up to the gap of October 1582.
      {"'15821004' + 1 day; '15821015' - 1 day", "15821015; 15821004"},
      {"'15811010123456' + 1 year; '15821114' - 1 month", "15821015123456; 15821015"},
      {"'15000301' - 1 second; '15000131' + 1 month", "15000229235959; 15000302"},
      {"'15040229' - 4 year", "15000229"},
      // Fields of a date.
      {"DAYOF '20000229'; DAYOF '19000229'; DAYOF '15000229'; DAYOF '15010229'", "29; ?113006; 29; ?113006"},
      {"DAYOF '20231301'; DAYOF '00000101'; DAYOF '15821005'", "?113005; ?113004; ?113019"},
      {"DAYOF '15821015'; DAYOF '2020010112345'; DAYOF '20200101240000'", "15; ?113012; ?113007"},
      {"DAYOF '20200101236000'; DAYOF '20200101235960'; DAYOF '20200101235959999999'", "?113008; ?113009; 1"},
      // Comparisons.
      {"1 <> 1; 2 < 1; 2 > 1; 1 <= 1; 1 >= 2; 1 = 1.0", "false; false; true; true; false; true"},
      {"-9223372036854775808 < 9223372036854775807; 'a' = 'a '; 'あ' > 'z'", "true; false; true"},
      {"NULL = NULL; NULL <> 'x'; NULL + 1 IS NULL; 1 = 'a'", "unknown; unknown; true; !150003"},
      {"1 IN (1, 'a'); 1 BETWEEN 0 AND 'x'; 1 = (SELECT a FROM t)", "!150003; !150003; !150003"},
      {"1 IN (SELECT a FROM t); 1 > ALL (SELECT a FROM t)", "!150003; !150003"},
      {"EXISTS (SELECT a FROM t); 1 IN (1, NULL); 2 IN (1, NULL)", "!50010; true; unknown"},
      {"2 NOT IN (1, NULL); 1 IN (1, 1 / 0); 2 IN (1, 1 / 0)", "unknown; true; ?151001"},
      {"NULL IN (1, 2); 1 BETWEEN 1 AND 3; 1 BETWEEN 1 EXCLUSIVE AND 3", "unknown; true; false"},
      {"3 BETWEEN 1 AND 3 EXCLUSIVE; 3 BETWEEN 1 AND 3 INCLUSIVE", "false; true"},
      {"4 NOT BETWEEN 1 EXCLUSIVE TO 5; 1 = 1 OR 1 = 0 AND NOT 1 = 1", "false; true"},
      {"2 NOT IN ((1, NULL)); 4 NOT BETWEEN 1 AND 3; NULL BETWEEN 1 AND 3", "unknown; true; unknown"},
      {"5 BETWEEN NULL AND 3; 'ABC' MATCH 'a*'; 'ABC' SMATCH 'a*'", "false; true; false"},
      {"'ABC' !MATCH 'a*'; 'ABC' !SMATCH 'a*'; 'ABC' NOT !MATCH 'a*'", "false; true; true"},
      {"'abc' NOT LIKE 'a%'; NULL LIKE 'a'; 'a' NOT MATCH NULL", "false; unknown; unknown"},
      {"1.5 LIKE '1.5%e+00'; ('20200101' + 1 day) MATCH '20200102*'; 1 MATCH 1.0", "true; true; true"},
      {"2 SMATCH 1; 2 !MATCH 1; 1 NOT LIKE 1; 1 MATCH NULL", "false; true; false; unknown"},
      // An operand that can fail is evaluated even when the result is settled.
      {"1 = 0 AND 1 / 0 = 1; 1 = 1 OR 1 % 0 = 1; 1 / 0 = 1 AND 1 = 0", "?151001; ?151001; ?151001"},
      // Arguments.
      {"SUBSTR('abc', 2, ABS(-1)) || 'z'; ABS('x'); ABS(1, 2)", "'bz'; !153001; !153011"},
      {"MAX(MAX(1)); SUM(1 + COUNT(*)); ABS(SUM(1)); NVL(1)", "!150004; !150004; NULL; !153012"},
      {"ABS(1 / 0); COUNT(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16)", "?151001; 0"},
      {"COUNT(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17)", "!150007"},
      // What NVL gives may be of another type than its check could tell.
      {"NVL(SUBSTR('x', SUM(1)), 5) || 'x'; 1 = NVL(SUM(1), 'x'); SUBSTR('a')", "?150006; ?150003; !153012"},
      {"SUBSTR('a', 1, 1, 1); SUBSTR(NULL, NULL); SIGN(NULL); POW(2, NULL)", "!153011; NULL; NULL; NULL"},
      {"TOCHAR(NULL, NULL); TODATE(5, NULL)", "NULL; NULL"},
      // Mathematics.
      {"ABS(-9223372036854775808); ABS(-2.5); SIGN(-0.5); ROUND(2.5)", "-9223372036854775808; 2.5; -1; 3.0"},
      {"ROUND(-2.5); ROUND(1.25, 1); ROUND(1250, -2); ROUND(1.25, 0.9)", "-3.0; 1.3; 1300.0; 1.0"},
      {"TRUNNC(-1.7); CEILING(-1.7); FLOOR(-1.2); ATAN2(1, 2)", "-1.0; -1.0; -2.0; 0.463647609001"},
      {"FMOD(7.5, 2); HYPOT(3, 4); JN(2.9, 1); JN(9223372036854775807, 1)", "1.5; 5.0; 0.114903484932; 0.0"},
      // The library would take two thousand million steps.
      {"JN(2147483647, 1.0e9); JN(-2147483647, 2.0e9); YN(2147483647, 1.0e10)", "0.0; nan; nan"},
      // Texts: kana have three bytes each.
      {"ASCII('AB'); ASCII(''); ASCII('あ'); CHR(14909826); CHR(4259906)", "65; 0; 14909826; 'あ'; 'AB'"},
      {"CHR(0); CHAR_LENGTH('あいう'); LENGTHB('あいう'); LOWER('AbCＡ')", "''; 3; 9; 'abcａ'"},
      {"TOUPPER('aBcａ'); LTRIM('  a b '); RTRIM('  a b ')", "'ABCＡ'; 'a b '; '  a b'"},
      {"TRIM('  a b '); RIGHT('あいう', 1); RIGHT('abc', 9223372036854775807)", "'a b'; 'う'; 'abc'"},
      {"RIGHT('abc', -9223372036854775808); SUBSTR('abcde', (2, 3)); SUBSTR('abcde', -2)", "''; 'bcd'; 'de'"},
      {"SUBSTR('abcde', 0, 2); SUBSTR('abcde', 2, 0); SUBSTR('abcde', 2, -1)", "'ab'; 'bcde'; ''"},
      {"SUBSTR('abcde', 6); SUBSTR('abcde', -9223372036854775808); LPAD('abcde', 3)", "''; 'abcde'; 'abc'"},
      {"LPAD('ab', 7, 'xyz'); LPAD('ab', 4, ''); RPAD('ab', 5, 'あいう')", "'xyzxyab'; '  ab'; 'abあいう'"},
      {"RPAD('ab', 0, 'x'); REPLACE('abcabc', 'bc', 'X'); REPLACE('aaa', 'aa', 'b')", "''; 'aXaX'; 'ba'"},
      {"TRANSLATE('abcabc', 'abb', 'x'); TRANSLATE('abc', 'ca', 'あz')", "'xcxc'; 'zbあ'"},
      {"INSTR('abcabc', 'bc'); INSTR('abcabc', 'bc', 1, 2); INSTR('abcabc', 'bc', 1, -1)", "2; 5; 0"},
      {"INSTR('abc', 'c', 1, 9223372036854775807); INSTR('abcabc', '', 1)", "0; 0"},
      {"INSTR('aaaa', 'aa', 1, 2); INSTR('aaaa', 'aa', 1, 3)", "3; 0"},
      // From the right: a match that ends at the start position does not count.
      {"INSTR('abcabc', 'bc', -1); INSTR('abcabcx', 'bc', -1); INSTR('abcabcx', 'bc', -1, 2)", "2; 5; 2"},
      {"INSTR('abcabcx', 'bc', -1, 3); INSTR('abcabcx', 'bc', -9223372036854775808)", "0; 0"},
      // Texts of numbers and dates.
      {"DAYNAME('20000101' + 0 day); DAYNAME('15821004' + 1 day)", "'Saturday'; 'Friday'"},
      {"DAYOFYEAR('20201231' + 0 day); DAYOFYEAR('15821231' + 0 day)", "366; 355"},
      {"WEEKOFYEAR('20230101' + 0 day); WEEKOFYEAR('20220101' + 0 day)", "1; 0"},
      {"WEEKOFYEAR('20220102' + 0 day); WEEKOFYEAR('20221231' + 0 day)", "1; 52"},
      {"LAST_DAY('20200205101112' + 0 day)", "20200229101112"},
      {"NEXT_DAY('20240101093000' + 0 day, 'monday')", "20240108093000"},
      {"NEXT_DAY('20240101' + 0 day, 'mon'); NEXT_DAY('99991231' + 0 day, 'Sunday')", "?153007; ?113004"},
      {"ADD_MONTHS('20210331' + 0 day, -1)", "20210303"},
      {"ADD_MONTHS('20210331' + 0 day, -9223372036854775808); TOCHAR(-12, '09999')", "?113004; '-00012'"},
      {"TOCHAR(12, '0,000'); TOCHAR(1234.5, '9,999.99')", "' 0,012'; ' 1,234.50'"},
      {"TOCHAR(0.5, '9.99'); TOCHAR(-0.5, '0.0'); TOCHAR(-0.5, '99.9')", "'  .50'; '-0.5'; '  -.5'"},
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
      // The clock, which the fixture sets.
      {"CURRENT_DATE; CURRENT_TIME; CURRENT_TIMESTAMP", "20210203; 20210203040506; 20210203040506000789"},
      {"NOW; 'NOW' + 0 day; 'Today' + 0 day", "20210203040506000789; 20210203040506000789; 20210203"},
  });
}

TEST_F(Expressions, TruthsAndMathematics) {
  const char *const truths[] = {"1 = 0", "1 = NULL", "1 = 1"};  // in ascending order
  const char *const names[] = {"false", "unknown", "true"};
  for (int a = 0; a < 3; ++a) {
    EXPECT_EQ(names[2 - a], result(std::string("NOT ") + truths[a]));
    for (int b = 0; b < 3; ++b) {
      EXPECT_EQ(names[std::min(a, b)], result(std::string(truths[a]) + " AND " + truths[b]));
      EXPECT_EQ(names[std::max(a, b)], result(std::string(truths[a]) + " OR " + truths[b]));
    }
  }
  EXPECT_EQ(builtin_find("CURRENT_DATE")->display, type::date);
  EXPECT_EQ(builtin_find("NOW")->display, type::time);
  const std::pair<const char *, double (*)(double)> functions[] = {
      {"ACOS", acos}, {"ASIN", asin}, {"ATAN", atan}, {"COS", cos},   {"COSH", cosh},    {"EXP", exp},
      {"FABS", fabs}, {"LOG", log},   {"SIN", sin},   {"SINH", sinh}, {"LOG10", log10},  {"SQRT", sqrt},
      {"TAN", tan},   {"TANH", tanh}, {"ERF", erf},   {"ERFC", erfc}, {"GAMMA", tgamma}, {"J0", j0},
      {"J1", j1},     {"Y0", y0},     {"Y1", y1}};
  for (const auto &[name, function] : functions)
    EXPECT_EQ(result(name + std::string("(0.7)")), formatted("%.12g", function(0.7)));
}

TEST_F(Expressions, DatesOutsideTheCalendarFail) {
  for (const char *unit : {"year", "month", "week", "day", "hour", "minute", "second", "microsecond"})
    for (const std::string amount : {"1", "9223372036854775806", "9223372036854775807"}) {
      EXPECT_EQ(result("'99991231235959999999' + " + amount + " " + unit), "?113004") << unit << amount;
      EXPECT_EQ(result("'00010101' - " + amount + " " + unit), "?113004") << unit << amount;
    }
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

// Over no row and over three.
TEST_F(Expressions, Aggregates) {
  const std::tuple<const char *, const char *, const char *> cases[] = {
      {"COUNT(*)", "0", "3"},
      {"SUM(2) + 1", "NULL", "7"},
      {"10 / COUNT(*)", "?151001", "3"},
      {"NVL(MAX(NULL + 1), -1)", "-1", "-1"},
      {"SUM(9223372036854775807)", "NULL", "9223372036854775805"},
      // The tested expression counts a row once, and the items behind a match count it too.
      {"COUNT(*) BETWEEN 3 AND 3", "false", "true"},
      {"0 IN (1, COUNT(*) - 3)", "false", "true"},
  };
  for (const auto &[expression, of_none, of_three] : cases)
    for (const int rows : {0, 3}) {
      EvalContext evaluation = context();
      Node *item = parse_item(expression);
      Value value;
      ASSERT_TRUE(expr_check(evaluation, item, CheckLabels::none, nullptr)) << expression;
      const bool finished = evaluate(evaluation, item, &value, rows);
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
