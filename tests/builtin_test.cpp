#include "data/builtin.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "expression_support.h"
#include "frame/env.h"
#include "support.h"

namespace tovik {
namespace {

// An argument written as a literal: a whole number, a real, a text or NULL.
struct Argument {
  Value value{};

  Argument(int integer) {
    value.type = type::bigint;
    value.integer = integer;
  }
  Argument(int64_t integer) : Argument(0) { value.integer = integer; }
  Argument(double real) {
    value.type = type::float64;
    value.real = real;
  }
  Argument(const std::string &text) {
    value.type = type::character;
    value.text = TextRef{text.c_str(), static_cast<int32_t>(text.size())};
  }
  Argument(std::nullptr_t) { value.flags = value_null; }
};

class BuiltinTest : public test::ExpressionTest {
 protected:
  BuiltinTest() : driver_(system_driver) { env_start(""); }
  ~BuiltinTest() override { system_driver = driver_; }

  // A function called with arguments that no expression could write.
  std::string call(const char *name, std::initializer_list<Argument> arguments) {
    err_clear();
    std::vector<Value> values;
    for (const Argument &argument : arguments) values.push_back(argument.value);
    const int number = builtin_find(name)->number, count = static_cast<int>(values.size());
    Value prepared{}, result{};
    if (!builtin_prepare(number, values.data(), count, prepared) ||
        !builtin_evaluate(number, values.data(), count, *pool_, result))
      return failure('!');
    if ((result.type & TYPE_CHARACTER) == 0 || result.is_null()) return test::text_of(result);
    EXPECT_EQ(strlen(result.text.text), static_cast<size_t>(result.text.length));
    return result.text.text;
  }

  std::string aggregate(const char *name, const std::vector<Argument> &rows) {
    err_clear();
    const int number = builtin_find(name)->number;
    Accumulator accumulator;
    Value result{};
    const Value *first = rows.empty() ? nullptr : &rows[0].value;
    if (!builtin_start(number, first, rows.empty() ? 0 : 1, accumulator)) return failure('!');
    for (size_t i = 1; i < rows.size(); ++i)  // the first row only gives the type
      EXPECT_TRUE(builtin_accumulate(number, &rows[i].value, 1, accumulator));
    builtin_finish(number, accumulator, result);
    EXPECT_NE(result.flags & value_aggregate, 0);
    return test::text_of(result) + (result.type == type::bigint ? " bigint" : " double");
  }

 private:
  SystemDriver driver_;
};

TEST_F(BuiltinTest, NamesAreFoundInAnyCase) {
  for (int number = 0; number < builtin_count; ++number) {
    const BuiltinRow *row = builtin_row(number);
    std::string name = row->name;
    name[0] = static_cast<char>(tolower(name[0]));
    EXPECT_EQ(builtin_find(name.c_str()), row);
  }
  for (const char *name : {"TRUNC", "", "A", "ABSS", "YNN", "Z", "CURRENT-DATE", "\xC3\xA4"})
    EXPECT_EQ(builtin_find(name), nullptr) << name;
  EXPECT_EQ(builtin_find("yn")->number, 0x4B);
  EXPECT_EQ(builtin_find("current_timestamp")->number, 0x10);
  Value result{};
  for (const int number : {76, -1}) {
    err_clear();
    EXPECT_FALSE(builtin_prepare(number, nullptr, 0, result));
    EXPECT_EQ(error_record().last_code, 53001);
    EXPECT_FALSE(builtin_evaluate(number, nullptr, 0, *pool_, result));
  }
}

TEST_F(BuiltinTest, ArgumentCountsAndClassesAreChecked) {
  expect({{"NOW(1)", "!153011"},
          {"ABS(1, 2)", "!153011"},
          {"ROUND(1, 2, 3)", "!153011"},
          {"SUBSTR('a')", "!153012"},
          {"SUBSTR('a', 1, 1, 1)", "!153011"},
          {"INSTR('a')", "!153012"},
          {"INSTR('a', 'a', 1, 1, 1)", "!153011"},
          {"TRANSLATE('a', 'a')", "!153012"},
          {"ABS('1')", "!153001"},
          {"REPEAT('a', 1.0)", "!153002"},
          {"LPAD('a', 1, 1)", "!153003"},
          {"INSTR('a', 'a', 1, '1')", "!153004"},
          {"DAYNAME('20200101')", "!153001"},
          {"ADD_MONTHS(NOW, 1.0)", "!153002"}});
  const struct {
    const char *name;
    std::vector<Argument> arguments;
    TypeCode type;
  } nulls[] = {
      {"ADD_MONTHS", {nullptr, 1}, type::date},
      {"SUBSTR", {nullptr, nullptr}, type::character},
      {"SIGN", {nullptr}, type::bigint},
      {"POW", {2, nullptr}, type::float64},
      {"TOCHAR", {nullptr, nullptr}, type::character},
      {"TODATE", {5, nullptr}, type::microtimestamp},
  };
  for (const auto &c : nulls) {
    std::vector<Value> values;
    for (const Argument &argument : c.arguments) values.push_back(argument.value);
    const int number = builtin_find(c.name)->number, count = static_cast<int>(values.size());
    Value prepared{}, result{};
    ASSERT_TRUE(builtin_prepare(number, values.data(), count, prepared)) << c.name;
    ASSERT_TRUE(builtin_evaluate(number, values.data(), count, *pool_, result)) << c.name;
    EXPECT_EQ(prepared.type, c.type) << c.name;
    EXPECT_EQ(result.type, c.type) << c.name;
    EXPECT_TRUE(result.is_null()) << c.name;
  }
}

TEST_F(BuiltinTest, Mathematics) {
  const std::pair<const char *, double (*)(double)> functions[] = {
      {"ACOS", acos}, {"ASIN", asin}, {"ATAN", atan}, {"COS", cos},   {"COSH", cosh},    {"EXP", exp},
      {"FABS", fabs}, {"LOG", log},   {"SIN", sin},   {"SINH", sinh}, {"LOG10", log10},  {"SQRT", sqrt},
      {"TAN", tan},   {"TANH", tanh}, {"ERF", erf},   {"ERFC", erfc}, {"GAMMA", tgamma}, {"J0", j0},
      {"J1", j1},     {"Y0", y0},     {"Y1", y1}};
  for (const auto &[name, function] : functions) {
    const std::string wanted = test::formatted("%.12g", function(0.7));
    EXPECT_EQ(result(name + std::string("(0.7)")), wanted);
  }
  expect({{"ABS(-9223372036854775808)", "-9223372036854775808"},
          {"ABS(-2.5)", "2.5"},
          {"SIGN(-0.5)", "-1"},
          {"SIGN(9223372036854775807)", "1"},
          {"ROUND(2.5)", "3.0"},
          {"ROUND(-2.5)", "-3.0"},
          {"ROUND(1.25, 1)", "1.3"},
          {"ROUND(1250, -2)", "1300.0"},
          {"ROUND(1.25, 0.9)", "1.0"},
          {"TRUNNC(-1.7)", "-1.0"},
          {"CEILING(-1.7)", "-1.0"},
          {"FLOOR(-1.2)", "-2.0"},
          {"ATAN2(1, 2)", "0.463647609001"},
          {"FMOD(7.5, 2)", "1.5"},
          {"HYPOT(3, 4)", "5.0"},
          {"POW(2, 10)", "1024.0"},
          {"SQRT(4)", "2.0"},
          {"LOG(0)", "-inf"},
          {"JN(2.9, 1)", "0.114903484932"},
          {"JN(9223372036854775807, 1)", "0.0"},
          {"YN(2, 1)", "-1.65068260682"}});
}

// Kana have three bytes each.
TEST_F(BuiltinTest, CharacterFunctions) {
  expect({{"ASCII('AB')", "65"},
          {"ASCII('')", "0"},
          {"ASCII('あ')", "14909826"},
          {"CHR(14909826)", "'あ'"},
          {"CHR(4259906)", "'AB'"},
          {"CHR(0)", "''"},
          {"CHAR_LENGTH('あいう')", "3"},
          {"LENGTHB('あいう')", "9"},
          {"LOWER('AbCＡ')", "'abcａ'"},
          {"TOUPPER('aBcａ')", "'ABCＡ'"},
          {"LTRIM('  a b ')", "'a b '"},
          {"RTRIM('  a b ')", "'  a b'"},
          {"TRIM('  a b ')", "'a b'"},
          {"LEFT('あいう', 2)", "'あい'"},
          {"LEFT('abc', 9223372036854775807)", "'abc'"},
          {"RIGHT('あいう', 1)", "'う'"},
          {"RIGHT('abc', 9223372036854775807)", "'abc'"},
          {"RIGHT('abc', -9223372036854775808)", "''"},
          {"REPEAT('ab', 3)", "'ababab'"},
          {"REPEAT('ab', -1)", "''"},
          {"SPACE(3)", "'   '"},
          {"REVERSE('aあz')", "'zあa'"},
          {"SUBSTR('abcde', 2, 3)", "'bcd'"},
          {"SUBSTR('abcde', -2)", "'de'"},
          {"SUBSTR('abcde', 0, 2)", "'ab'"},
          {"SUBSTR('abcde', 2, 0)", "'bcde'"},
          {"SUBSTR('abcde', 2, -1)", "''"},
          {"SUBSTR('abcde', 6)", "''"},
          {"SUBSTRING('あいう', 2, 9223372036854775807)", "'いう'"},
          {"SUBSTR('abcde', -9223372036854775808)", "'abcde'"},
          {"LPAD('abcde', 3)", "'abc'"},
          {"LPAD('ab', 7, 'xyz')", "'xyzxyab'"},
          {"LPAD('ab', 4, '')", "'  ab'"},
          {"RPAD('ab', 5, 'あいう')", "'abあいう'"},
          {"RPAD('ab', 0, 'x')", "''"},
          {"REPLACE('abcabc', 'bc', 'X')", "'aXaX'"},
          {"REPLACE('aaa', 'aa', 'b')", "'ba'"},
          {"REPLACE('abcabc', 'bc')", "'aa'"},
          {"REPLACE('abc', '', 'x')", "'abc'"},
          {"REPLACE('', 'a', 'x')", "''"},
          {"TRANSLATE('abcabc', 'abb', 'x')", "'xcxc'"},
          {"TRANSLATE('abc', 'ca', 'あz')", "'zbあ'"},
          {"TRANSLATE('abc', '', 'x')", "'abc'"}});
}

TEST_F(BuiltinTest, PositionsOfATextInAnother) {
  expect({{"INSTR('abcabc', 'bc')", "2"},
          {"INSTR('abcabc', 'bc', 1, 2)", "5"},
          {"INSTR('abcabc', 'bc', 3)", "5"},
          {"INSTR('abcabc', 'bc', 1, 3)", "0"},
          {"INSTR('abcabc', 'bc', 1, 0)", "2"},
          {"INSTR('abcabc', 'bc', 0)", "0"},
          {"INSTR('abcabc', 'bc', 1, -1)", "0"},
          {"INSTR('abcabc', '', 1)", "0"},
          {"INSTR('', 'a')", "0"},
          {"INSTR('aaaa', 'aa', 1, 2)", "3"},
          {"INSTR('aaaa', 'aa', 1, 3)", "0"},
          {"INSTR('abc', 'c', 9223372036854775807)", "0"},
          {"INSTR('abc', 'c', 1, 9223372036854775807)", "0"},
          {"INSTR('あいz', 'z')", "3"}});
  // From the right: a match that ends at the start position does not count.
  expect({{"INSTR('abcabc', 'bc', -1)", "2"},
          {"INSTR('abcabcx', 'bc', -1)", "5"},
          {"INSTR('abcabcx', 'bc', -1, 2)", "2"},
          {"INSTR('abcabcx', 'bc', -1, 3)", "0"},
          {"INSTR('abcabcx', 'bc', -7)", "0"},
          {"INSTR('abcabcx', 'bc', -9223372036854775808)", "0"}});
}

TEST_F(BuiltinTest, HugeCountsEndInTheLimitOfThePool) {
  for (const int64_t count : {int64_t{16} << 20, int64_t{INT32_MAX}, int64_t{1} << 32, INT64_MAX}) {
    for (const char *name : {"REPEAT", "LPAD", "RPAD"}) {
      EXPECT_EQ(call(name, {std::string("ab"), count}), "!110002") << name << " " << count;
      EXPECT_EQ(error_record().last_code, 53002);
    }
    EXPECT_EQ(call("SPACE", {count}), "!110002") << count;
  }
  EXPECT_EQ(pool_->used, 0);
  const int64_t most = ((16 << 20) - 8) / 7;  // seven bytes are set aside per character
  EXPECT_EQ(call("LPAD", {std::string("ab"), most + 1}), "!110002");
  EXPECT_EQ(call("LPAD", {std::string("ab"), most - 1}).size(), static_cast<size_t>(most - 1));
}

TEST_F(BuiltinTest, Dates) {
  expect({{"DAYNAME('20000101' + 0 day)", "'Saturday'"},
          {"DAYOFWEEK('20000101' + 0 day)", "6"},
          {"DAYOFYEAR('20201231' + 0 day)", "366"},
          {"DAYOFYEAR('15821231' + 0 day)", "355"},
          {"WEEKOFYEAR('20230101' + 0 day)", "1"},
          {"WEEKOFYEAR('20220101' + 0 day)", "0"},
          {"WEEKOFYEAR('20220102' + 0 day)", "1"},
          {"WEEKOFYEAR('20221231' + 0 day)", "52"},
          {"LAST_DAY('20200205101112' + 0 day)", "20200229101112000000"},
          {"LAST_DAY('19000205' + 0 day)", "19000228000000000000"},
          {"NEXT_DAY('20240101093000' + 0 day, 'monday')", "20240108093000000000"},
          {"NEXT_DAY('20240101' + 0 day, 'TUESDAY')", "20240102000000000000"},
          {"NEXT_DAY('20240101' + 0 day, 'Sunday')", "20240107000000000000"},
          {"NEXT_DAY('20240101' + 0 day, 'mon')", "?153007"},
          {"NEXT_DAY('99991231' + 0 day, 'Sunday')", "?113004"},
          {"ADD_MONTHS('20210131' + 0 day, 1)", "20210303000000000000"},
          {"ADD_MONTHS('20210331' + 0 day, -1)", "20210303000000000000"},
          {"ADD_MONTHS('20210331' + 0 day, -9223372036854775808)", "?113004"}});
}

TEST_F(BuiltinTest, CurrentTimes) {
  system_driver.local_now = [](DateTimeRec *now) { *now = DateTimeRec{2021, 2, 3, 4, 5, 6, 0, 789000}; };
  const struct {
    const char *name, *result;
    TypeCode shown;
  } cases[] = {{"CURRENT_DATE", "20210203000000000000", type::date},
               {"CURRENT_TIME", "20210203040506000000", type::time},
               {"CURRENT_TIMESTAMP", "20210203040506789000", type::microtimestamp},
               {"NOW", "20210203040506789000", type::time}};
  for (const auto &c : cases) {
    Value value{};
    ASSERT_TRUE(builtin_evaluate(builtin_find(c.name)->number, nullptr, 0, *pool_, value));
    EXPECT_EQ(test::text_of(value), c.result);
    EXPECT_EQ(value.declared, c.shown) << c.name;
    EXPECT_EQ(value.type, type::microtimestamp) << c.name;
  }
}

TEST_F(BuiltinTest, TextsOfNumbersAndDates) {
  expect({{"TOCHAR(1234, '9999')", "' 1234'"},
          {"TOCHAR(-1234, '99999')", "' -1234'"},
          {"TOCHAR(-12, '09999')", "'-00012'"},
          {"TOCHAR(1234567, '9,999,999')", "' 1,234,567'"},
          {"TOCHAR(12, '9,999')", "'    12'"},
          {"TOCHAR(12, '0,000')", "' 0,012'"},
          {"TOCHAR(1234.5, '9,999.99')", "' 1,234.50'"},
          {"TOCHAR(0.5, '9.99')", "'  .50'"},
          {"TOCHAR(-0.5, '0.0')", "'-0.5'"},
          {"TOCHAR(-0.5, '99.9')", "'  -.5'"},
          {"TOCHAR(0.25, '.9')", "' .3'"},
          {"TOCHAR(-2.5, '9')", "'-3'"},
          {"TOCHAR(2.675, '9.99')", "' 2.68'"},
          {"TOCHAR(99.99, '999.9')", "' 100.0'"},
          {"TOCHAR(-0.001, '9.99')", "'  .00'"},
          {"TOCHAR(-9223372036854775808, '9999999999999999999')", "'-9223372036854775808'"},
          {"TOCHAR('12.5', '99.99')", "' 12.50'"},
          {"TOCHAR(10, '9')", "?153007"},
          {"TOCHAR(9.96, '9.9')", "?153007"},
          {"TOCHAR(1, '')", "?153007"},
          {"TOCHAR(1, '9.9.9')", "?153007"},
          {"TOCHAR(1, ',999')", "?153007"},
          {"TOCHAR(1, 'YYYY')", "?153007"},
          {"TOCHAR(LOG(-1), '9')", "?153007"},
          {"TOCHAR('abc', '9')", "?153007"},
          {"TOCHAR(1, 9)", "?153002"},
          {"TOCHAR('20200131040506000789', 'YYYY-MM-DD hh24:mi:ss.FF')", "'2020-01-31 04:05:06.000789'"},
          {"TOCHAR('20200131' + 0 day, 'DD日')", "'31日'"},
          {"TOCHAR('20200131', 'MM/YYYY')", "'01/2020'"},
          {"TOCHAR('20200131', 'YYYY Q')", "?153007"},
          {"TOCHAR('20200131', '--')", "?153007"},
          {"TOCHAR('20200131' + 0 day, '999')", "?153007"},
          {"TODATE('2020-01-31 04:05:06.5', 'YYYY-MM-DD HH24:MI:SS.FF')", "20200131040506500000"},
          {"TODATE(2020, 'YYYY')", "20200101000000000000"},
          {"TODATE('20200131' + 0 day, 'YYYY')", "20200131000000000000"},
          {"TODATE('2020-1-31', 'YYYY-MM-DD')", "?153007"},
          {"TODATE('2020-01-31x', 'YYYY-MM-DD')", "?153007"},
          {"TODATE('2020-01', 'YYYY-MM-DD')", "?153007"},
          {"TODATE('01', 'MM')", "?153007"},
          {"TODATE('20201301', 'YYYYMMDD')", "?113005"},
          {"TODATE(1.5, 'YYYY')", "?153001"}});
}

TEST_F(BuiltinTest, Aggregates) {
  // The first value of each list only tells the argument's type.
  const struct {
    const char *name;
    std::vector<Argument> rows;
    const char *result;
  } cases[] = {
      {"SUM", {0, 3, nullptr, 4}, "7 bigint"},
      {"SUM", {0.0, 1.5, 2.0}, "3.5 double"},
      {"SUM", {0, INT64_MAX, 1}, "-9223372036854775808 bigint"},
      {"SUM", {0}, "NULL bigint"},
      {"AVG", {0, 1, 2, nullptr}, "1.5 double"},
      {"AVG", {0.0}, "NULL double"},
      {"MAX", {0, -5, -3, nullptr, -4}, "-3 bigint"},
      {"MIN", {0.0, 5.0, -3.5, 4.0}, "-3.5 double"},
      {"MIN", {0, nullptr}, "NULL bigint"},
      {"COUNT", {nullptr, 1, nullptr, 2}, "2 bigint"},
      {"COUNT", {}, "0 bigint"},
      {"SUM", {0, 1, 2.9}, "3 bigint"},
      {"MAX", {std::string()}, "!153001"},
      {"AVG", {}, "!153001"},
      {"ABS", {1}, "!53001"},
  };
  for (const auto &c : cases) EXPECT_EQ(aggregate(c.name, c.rows), c.result) << c.name;
}

// Texts of whole and broken characters: every function ends, stays inside its buffers, and keeps the laws
// that tie it to its neighbours.
TEST_F(BuiltinTest, RandomTextsObeyTheirLaws) {
  test::Random random;
  const char *const pieces[] = {"a", "b", " ", "\xE3\x81\x82", "\xE3", "\x81", "\xFC\x80", "\xC3\xA4"};
  for (int i = 0; i < 3000; ++i) {
    memory_pool_empty(*pool_);
    std::string text, sought;
    for (int n = random.below(10); n > 0; --n) text += pieces[random.below(8)];
    for (int n = random.below(3); n > 0; --n) sought += pieces[random.below(8)];
    const int number = random.below(14) - 3;
    SCOPED_TRACE(testing::PrintToString(text) + " " + testing::PrintToString(sought) + " " +
                 std::to_string(number));
    EXPECT_EQ(call("REPLACE", {text, sought, sought}), text);
    EXPECT_EQ(call("TRANSLATE", {text, sought, sought}), text);
    if (number > 0) {
      EXPECT_EQ(call("LEFT", {text, number}) + call("SUBSTR", {text, number + 1}), text);
      EXPECT_EQ(call("SUBSTR", {text, -number, 0}).size(), call("RIGHT", {text, number}).size());
      EXPECT_TRUE(call("RPAD", {text, number}).starts_with(call("LEFT", {text, number})));
    }
    EXPECT_EQ(call("REVERSE", {text}).size(), text.size());
    const int position = std::stoi(call("INSTR", {text, sought}));
    EXPECT_LE(position, std::stoi(call("LENGTH", {text})));
    if (position > 0) {
      EXPECT_EQ(call("SUBSTR", {text, position}).compare(0, sought.size(), sought), 0);
    }
    call("UPPER", {text});
    call("TODATE", {text, "YYYY" + text});
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace tovik
