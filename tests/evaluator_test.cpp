#include <algorithm>

#include "expression_support.h"
#include "frame/env.h"
#include "support.h"

using namespace tovik;
using namespace tovik::test;

namespace {

class EvaluatorTest : public ExpressionTest {
 protected:
  EvaluatorTest() { env_start(nullptr); }
  ~EvaluatorTest() override { env_release(); }
};

std::string repeat(const char *text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

}  // namespace

TEST_F(EvaluatorTest, Arithmetic) {
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
  });
}

TEST_F(EvaluatorTest, Dates) {
  expect({
      {"YEAROF '20200203'; MONTHOF '20200203'; DAYOF '20200203'; HOUROF '20200203040506'", "2020; 2; 3; 4"},
      {"MINUTEOF '20200203040506'; SECONDOF '20200203040506'", "5; 6"},
      {"MICROSECONDOF '20200203040506000007'; YEAROF '2020-02-03'; YEAROF ''", "7; ?113011; ?113015"},
      {"'20200101' - 1 second; '20200101' + 1 week", "20191231235959000000; 20200108000000000000"},
      {"'20200101' + 1.9 day; '20200101' + -1 year", "20200102000000000000; 20190101000000000000"},
      {"'20200101' + 9223372036854775807 day", "?113004"},
      {"'20200101' - -9223372036854775808 day; '20200101' + 1.0e300 second", "?113004; ?113004"},
      {"('20200101' + 1 day) = ('20200103' - 1 day); ('20200101' + 1 day) = '20200102'", "true; !150003"},
  });
}

TEST_F(EvaluatorTest, Comparisons) {
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
      {"4 NOT BETWEEN 1 AND 3; NULL BETWEEN 1 AND 3; 5 BETWEEN NULL AND 3", "true; unknown; false"},
      {"'ABC' MATCH 'a*'; 'ABC' SMATCH 'a*'; 'ABC' !MATCH 'a*'", "true; false; false"},
      {"'ABC' !SMATCH 'a*'; 'ABC' NOT MATCH 'a*'; 'ABC' NOT !MATCH 'a*'", "true; false; true"},
      {"'abc' NOT LIKE 'a%'; NULL LIKE 'a'; 'a' NOT MATCH NULL", "false; unknown; unknown"},
      {"1.5 LIKE '1.5%e+00'; ('20200101' + 1 day) MATCH '20200102*'", "true; true"},
      {"1 MATCH 1.0; 2 SMATCH 1; 2 !MATCH 1; 1 NOT LIKE 1; 1 MATCH NULL",
       "true; false; true; false; unknown"},
  });
}

TEST_F(EvaluatorTest, ThreeValuedLogic) {
  const char *const truths[] = {"1 = 0", "1 = NULL", "1 = 1"};  // in ascending order
  const char *const names[] = {"false", "unknown", "true"};
  for (int a = 0; a < 3; ++a) {
    EXPECT_EQ(names[2 - a], result(std::string("NOT ") + truths[a]));
    for (int b = 0; b < 3; ++b) {
      EXPECT_EQ(names[std::min(a, b)], result(std::string(truths[a]) + " AND " + truths[b]));
      EXPECT_EQ(names[std::max(a, b)], result(std::string(truths[a]) + " OR " + truths[b]));
    }
  }
  // An operand that can fail is evaluated even when the result is settled.
  expect({
      {"1 = 0 AND 1 / 0 = 1; 1 = 1 OR 1 % 0 = 1; 1 / 0 = 1 AND 1 = 0", "?151001; ?151001; ?151001"},
  });
}

TEST_F(EvaluatorTest, Functions) {
  expect({
      {"SUBSTR('abc', 2, ABS(-1)) || 'z'; ABS('x'); ABS(1, 2)", "'bz'; !153001; !153011"},
      {"MAX(MAX(1)); SUM(1 + COUNT(*)); ABS(SUM(1))", "!150004; !150004; NULL"},
      {"NVL(1); ABS(1 / 0); COUNT(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16)", "!153012; ?151001; NULL"},
      {"COUNT(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17)", "!150007"},
      // What NVL gives may be of another type than its check could tell.
      {"NVL(SUBSTR('x', SUM(1)), 5) || 'x'; 1 = NVL(SUM(1), 'x')", "?150006; ?150003"},
  });
}

TEST_F(EvaluatorTest, Aggregates) {
  static const struct {
    const char *expression;
    const char *after_three, *after_none;
  } cases[] = {
      {"COUNT(*)", "3", "0"},
      {"SUM(2) + 1", "7", "NULL"},
      {"10 / COUNT(*)", "3", "?151001"},
      {"NVL(MAX(NULL + 1), -1)", "-1", "-1"},
      // The tested expression is folded once per row, and the items behind a match are folded too.
      {"COUNT(*) BETWEEN 3 AND 3", "true", "false"},
      {"0 IN (1, COUNT(*) - 3)", "true", "false"},
  };
  for (const auto &each : cases)
    for (const int rows : {3, 0}) {
      EvalContext evaluation = context();
      Node *item = parse_item(each.expression);
      Value value;
      ASSERT_TRUE(expr_check(evaluation, item, CheckLabels::none, nullptr)) << each.expression;
      for (int i = 0; i < rows; ++i)
        ASSERT_TRUE(expr_evaluate(evaluation, item, EvalMode::row, &value)) << each.expression;
      const bool finished = expr_evaluate(evaluation, item, EvalMode::total, &value);
      EXPECT_EQ(rows == 3 ? each.after_three : each.after_none, finished ? text_of(value) : failure('?'))
          << each.expression;
    }
}

TEST_F(EvaluatorTest, Labels) {
  static const Case cases[] = {
      {"1 - 2 * 3 / 4 % 5", "(1 - (((2 * 3) / 4) % 5))"},
      {"'a' || 'b' || NULL", "('('a' concat 'b')' concat 'NULL')"},
      {"- -5", "(- -5)"},
      {"MICROSECONDOF ('20200101' + 1 day)", "(microsecondof ('20200101' + (1 day)))"},
      {"COUNT(*)", "COUNT(*)"},
      {"SUBSTR('a', 1, -2) || 'x'", "('SUBSTR(a, 1, -2)' concat 'x')"},
  };
  for (const Case &each : cases) EXPECT_EQ(each.result, label(each.expression)) << each.expression;
}

// The label of a long chain, and the text of one, take their own length, so that they fit the default pool.
TEST_F(EvaluatorTest, LongChainsFitThePool) {
  memory_pool_destroy(pool_);
  pool_ = memory_pool_create(102400);
  EXPECT_EQ(301u + 300 * 5, label("1" + repeat(" + 1", 300)).size());
  const std::string part = "'" + repeat("x", 100) + "'";
  EXPECT_EQ(4002u, result(part + repeat((" || " + part).c_str(), 39)).size());
}

// The deepest expressions that pass, one level more, and chains, in which only the right operands are deeper.
TEST_F(EvaluatorTest, DepthAndLengthOnASmallStack) {
  static const struct {
    const char *open, *inner, *close;
    int most;
    std::string result;
  } nested[] = {
      {"1+(", "1", ")", expression_depth_limit - 1, "300"},
      {"'a'||(", "'b'", ")", expression_depth_limit - 1, "'" + repeat("a", 299) + "b'"},
      {"NVL(NULL, ", "1.5", ")", expression_depth_limit - 1, "1.5"},
      {"1 = 1 AND (", "1 = 0", ")", expression_depth_limit - 2, "false"},
  };
  for (const auto &each : nested) {
    const auto expression = [&each](int levels) {
      return repeat(each.open, levels) + each.inner + repeat(each.close, levels);
    };
    std::string deepest, deeper, labelled = "1";
    on_small_stack([&] {
      deepest = result(expression(each.most));
      deeper = result(expression(each.most + 1));
      if (each.inner[1] != ' ') labelled = label(expression(each.most));
    });
    EXPECT_EQ(each.result, deepest) << each.open;
    EXPECT_EQ("!150004", deeper) << each.open;
    EXPECT_NE("", labelled);
  }
  static const struct {
    const char *first, *more, *last;
    std::string result;
  } chains[] = {
      {"1", "+1", "", "5001"},
      {"'a'", "||'b'", "", "'a" + repeat("b", 5000) + "'"},
      {"1 = 0", " OR 1 = 1", "", "true"},
      {"1 = 1", " AND 1 = 1", " AND NULL = 1", "unknown"},
      {"", "NOT ", "1 = 1", "true"},
      {"", "- ", "1", "1"},
  };
  for (const auto &each : chains) {
    std::string text;
    on_small_stack([&] { text = result(each.first + repeat(each.more, 5000) + each.last); });
    EXPECT_EQ(each.result, text) << each.more;
  }
}
