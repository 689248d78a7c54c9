#include "data/function/builtin.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
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
  Argument(const DateTimeRec &datetime) {
    value.type = type::microtimestamp;
    value.datetime = datetime;
  }
};

class BuiltinTest : public test::ExpressionTest {
 protected:
  BuiltinTest() { env_start(""); }

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
    if (!builtin_start(number, &rows[0].value, 1, accumulator)) return failure('!');
    for (size_t i = 1; i < rows.size(); ++i)  // the first row only gives the type
      EXPECT_TRUE(builtin_accumulate(number, &rows[i].value, 1, accumulator));
    builtin_finish(number, accumulator, result);
    return test::text_of(result);
  }
};

TEST_F(BuiltinTest, NamesAreFoundInAnyCase) {
  for (int number = 0; number < builtin_count; ++number) {
    std::string name = builtin_row(number)->name;
    name[0] = static_cast<char>(tolower(name[0]));
    EXPECT_EQ(builtin_find(name.c_str()), builtin_row(number)) << name;
  }
  for (const char *name : {"TRUNC", "", "A", "ABSS", "YNN", "Z", "CURRENT-DATE", "\xC3\xA4"})
    EXPECT_EQ(builtin_find(name), nullptr) << name;
}

TEST_F(BuiltinTest, ArgumentCountsAndClassesAreChecked) {
  expect({
      {"NOW(1); ROUND(1, 2, 3)", "!153011; !153011"},
      {"SUBSTR('a'); SUBSTR('a', 1, 1, 1)", "!153012; !153011"},
      {"INSTR('a'); INSTR('a', 'a', 1, 1, 1); TRANSLATE('a', 'a')", "!153012; !153011; !153012"},
      {"ABS('1'); REPEAT('a', 1.0); LPAD('a', 1, 1)", "!153001; !153002; !153003"},
      {"SUBSTR(NULL, NULL); SIGN(NULL); POW(2, NULL)", "NULL; NULL; NULL"},
      {"TOCHAR(NULL, NULL); TODATE(5, NULL)", "NULL; NULL"},
  });
}

// What NVL chooses may be of another class in every row: with arguments of any class in any place, a function
// gives a value of the class that the table tells, or the status of the first wrong argument.
TEST_F(BuiltinTest, ArgumentsOfAnyClassInAnyRow) {
  const std::string digits = "20210203", empty;
  const Argument kinds[] = {nullptr, 3, -2.5, digits, empty, DateTimeRec{2021, 2, 28, 0, 0, 0, 0, 0}};
  constexpr int kind_count = 6;
  const auto fits = [](const Value &value, char letter) {
    return value.is_null() || letter == '?' || (letter == 'N' && type_numeric(value.type)) ||
           (letter == 'I' && (value.type & TYPE_INTEGER) != 0) ||
           (letter == 'S' && (value.type & TYPE_CHARACTER) != 0) ||
           (letter == 'D' && (value.type & TYPE_DATETIME) != 0);
  };
  int calls = 0;
  for (int number = 0; number < builtin_count; ++number)
    for (int count = 0, combinations = 1; count <= 4; ++count, combinations *= kind_count) {
      const BuiltinRow &row = *builtin_row(number);
      Value values[4] = {kinds[0].value, kinds[0].value, kinds[0].value, kinds[0].value}, result{};
      if (!builtin_prepare(number, values, count, result)) continue;  // another number of arguments
      for (int i = 0; i < combinations; ++i) {
        std::string trace = row.name;
        int wrong = -1;
        for (int place = 0, rest = i; place < count; ++place, rest /= kind_count) {
          values[place] = kinds[rest % kind_count].value;
          trace += " " + test::text_of(values[place]);
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
          test::text_of(result);
        } else if (wrong >= 0) {
          EXPECT_EQ(failure('!'), "!" + std::to_string(153001 + wrong));
        } else {
          EXPECT_TRUE(failure('!').starts_with("!153") || failure('!').starts_with("!113"));
        }
      }
    }
  EXPECT_GT(calls, 3000);
}

TEST_F(BuiltinTest, Mathematics) {
  const std::pair<const char *, double (*)(double)> functions[] = {
      {"ACOS", acos}, {"ASIN", asin}, {"ATAN", atan}, {"COS", cos},   {"COSH", cosh},    {"EXP", exp},
      {"FABS", fabs}, {"LOG", log},   {"SIN", sin},   {"SINH", sinh}, {"LOG10", log10},  {"SQRT", sqrt},
      {"TAN", tan},   {"TANH", tanh}, {"ERF", erf},   {"ERFC", erfc}, {"GAMMA", tgamma}, {"J0", j0},
      {"J1", j1},     {"Y0", y0},     {"Y1", y1}};
  for (const auto &[name, function] : functions)
    EXPECT_EQ(result(name + std::string("(0.7)")), test::formatted("%.12g", function(0.7)));
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
TEST_F(BuiltinTest, CharacterFunctions) {
  expect({
      {"ASCII('AB'); ASCII(''); ASCII('あ')", "65; 0; 14909826"},
      {"CHR(14909826); CHR(4259906); CHR(0)", "'あ'; 'AB'; ''"},
      {"CHAR_LENGTH('あいう'); LENGTHB('あいう')", "3; 9"},
      {"LOWER('AbCＡ'); TOUPPER('aBcａ')", "'abcａ'; 'ABCＡ'"},
      {"LTRIM('  a b '); RTRIM('  a b '); TRIM('  a b ')", "'a b '; '  a b'; 'a b'"},
      {"RIGHT('あいう', 1); RIGHT('abc', 9223372036854775807)", "'う'; 'abc'"},
      {"RIGHT('abc', -9223372036854775808)", "''"},
      {"SUBSTR('abcde', 2, 3); SUBSTR('abcde', -2)", "'bcd'; 'de'"},
      {"SUBSTR('abcde', 0, 2); SUBSTR('abcde', 2, 0)", "'ab'; 'bcde'"},
      {"SUBSTR('abcde', 2, -1); SUBSTR('abcde', 6)", "''; ''"},
      {"SUBSTR('abcde', -9223372036854775808)", "'abcde'"},
      {"LPAD('abcde', 3); LPAD('ab', 7, 'xyz'); LPAD('ab', 4, '')", "'abc'; 'xyzxyab'; '  ab'"},
      {"RPAD('ab', 5, 'あいう'); RPAD('ab', 0, 'x')", "'abあいう'; ''"},
      {"REPLACE('abcabc', 'bc', 'X'); REPLACE('aaa', 'aa', 'b')", "'aXaX'; 'ba'"},
      {"TRANSLATE('abcabc', 'abb', 'x'); TRANSLATE('abc', 'ca', 'あz')", "'xcxc'; 'zbあ'"},
  });
}

TEST_F(BuiltinTest, PositionsOfATextInAnother) {
  expect({
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

TEST_F(BuiltinTest, HugeCountsEndInTheLimitOfThePool) {
  for (const int64_t count : {int64_t{16} << 20, int64_t{INT32_MAX}, int64_t{1} << 32, INT64_MAX}) {
    for (const char *name : {"REPEAT", "LPAD", "RPAD"}) {
      EXPECT_EQ(call(name, {std::string("ab"), count}), "!53002") << name << " " << count;
      EXPECT_EQ(error_record().last_code, 110002);
    }
    EXPECT_EQ(call("SPACE", {count}), "!53002") << count;
  }
  EXPECT_EQ(pool_->used, 0);
  const int64_t most = ((16 << 20) - 8) / 7;  // seven bytes are set aside per character
  EXPECT_EQ(call("LPAD", {std::string("ab"), most + 1}), "!53002");
  EXPECT_EQ(call("LPAD", {std::string("ab"), most - 1}).size(), static_cast<size_t>(most - 1));
  const std::string small((16 << 20) - 16, 'a');
  memory_pool_empty(*pool_);
  EXPECT_EQ(call("UPPER", {small}), std::string(small.size(), 'A'));
}

// The clock's local time, to what each function keeps of it.
TEST_F(BuiltinTest, TheCurrentTime) {
  const struct {
    const char *name;
    TypeCode shown;
    size_t digits;
  } cases[] = {{"CURRENT_DATE", type::date, 8},
               {"CURRENT_TIME", type::time, 14},
               {"CURRENT_TIMESTAMP", type::microtimestamp, 20},
               {"NOW", type::time, 20}};
  const auto clock = [] {
    const time_t seconds = time(nullptr);
    char digits[15];
    strftime(digits, sizeof digits, "%Y%m%d%H%M%S", localtime(&seconds));
    return std::string(digits);
  };
  for (const auto &[name, shown, digits] : cases) {
    const std::string before = clock(), text = call(name, {}), after = clock();
    const size_t compared = std::min<size_t>(digits, 14);
    EXPECT_LE(before.substr(0, compared), text.substr(0, compared)) << name;
    EXPECT_GE(after.substr(0, compared), text.substr(0, compared)) << name;
    EXPECT_EQ(text.substr(digits), std::string(20 - digits, '0')) << name;
    EXPECT_EQ(builtin_find(name)->display, shown) << name;
  }
}

TEST_F(BuiltinTest, Dates) {
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
  });
}

TEST_F(BuiltinTest, TextsOfNumbersAndDates) {
  expect({
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

TEST_F(BuiltinTest, Aggregates) {
  // The first value of each list only tells the argument's type.
  const struct {
    const char *name;
    std::vector<Argument> rows;
    const char *result;
  } cases[] = {
      {"SUM", {0, INT64_MAX, 1}, "-9223372036854775808"},
      {"SUM", {0, 1, 2.9}, "3"},
      {"SUM", {0.5, 1.25, nullptr, -4.0, 1}, "-1.75"},
      {"MIN", {0.5, 3.5, -1.5, nullptr, -1.25}, "-1.5"},
      {"MAX", {0.5, -3.5, -1.5, nullptr, -1.75}, "-1.5"},
      {"MAX", {0.5, nullptr}, "NULL"},
      {"AVG", {0.5, 1.5, 2, nullptr}, "1.75"},
      {"COUNT", {nullptr, 1, nullptr, 2}, "2"},
      {"ABS", {1}, "!53001"},
  };
  for (const auto &c : cases) EXPECT_EQ(aggregate(c.name, c.rows), c.result) << c.name;
}

// Texts of whole and broken characters: every function ends, stays inside its buffers, and keeps the laws
// that tie it to its neighbours.
TEST_F(BuiltinTest, RandomTextsObeyTheirLaws) {
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
  }
}

}  // namespace
}  // namespace tovik
