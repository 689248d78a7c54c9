#include "data/builtin.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "data/datetime.h"
#include "frame/env.h"
#include "frame/error.h"
#include "support.h"

namespace tovik {
namespace {

// Arguments written as literals: whole numbers, reals, texts, dates, NULL.
struct Argument {
  Value value{};

  Argument(int integer) : Argument(static_cast<int64_t>(integer)) {}
  Argument(int64_t integer) {
    value.type = type::bigint;
    value.integer = integer;
  }
  Argument(double real) {
    value.type = type::float64;
    value.real = real;
  }
  Argument(const char *text) {
    value.type = type::character;
    value.text = TextRef{text, text == nullptr ? 0 : static_cast<int32_t>(strlen(text))};
  }
  Argument(const DateTimeRec &date) {
    value.type = type::microtimestamp;
    value.datetime = date;
  }
  Argument(std::nullptr_t) { value.flags = value_null; }
};

DateTimeRec date(const char *text) {
  DateTimeRec record{};
  EXPECT_TRUE(parse_datetime(type::microtimestamp, text, true, &record)) << text;
  return record;
}

std::string shown(const Value &value) {
  if (value.is_null()) return "NULL";
  char text[64] = "";
  if ((value.type & TYPE_INTEGER) != 0) return std::to_string(value.integer);
  if ((value.type & TYPE_FLOAT) != 0) snprintf(text, sizeof text, "%.12g", value.real);
  if ((value.type & TYPE_DATETIME) != 0) {
    EXPECT_TRUE(format_datetime(type::microtimestamp, value.datetime, text));
  }
  if ((value.type & TYPE_CHARACTER) == 0) return text;
  EXPECT_EQ(strlen(value.text.text), static_cast<size_t>(value.text.length));
  return value.text.text;
}

class BuiltinTest : public testing::Test {
 protected:
  BuiltinTest() : driver_(system_driver), pool_(memory_pool_create(102400)) {
    env_start("");
    err_clear();
  }
  ~BuiltinTest() override {
    memory_pool_destroy(pool_);
    system_driver = driver_;
  }

  // The result as text, or "!" and the first status recorded.
  std::string call(const char *name, const std::vector<Argument> &arguments) {
    err_clear();
    const BuiltinRow *row = builtin_find(name);
    if (row == nullptr) return "no such function";
    std::vector<Value> values;
    for (const Argument &argument : arguments) values.push_back(argument.value);
    const int count = static_cast<int>(values.size());
    Value prepared{};
    result_ = Value{};
    if (!builtin_prepare(row->number, values.data(), count, prepared) ||
        !builtin_evaluate(row->number, values.data(), count, *pool_, result_))
      return "!" + std::to_string(error_record().entries[0].code);
    EXPECT_EQ(prepared.type, result_.type) << name;
    EXPECT_EQ(prepared.declared, result_.declared) << name;
    return shown(result_);
  }

  std::string aggregate(const char *name, const std::vector<Argument> &rows) {
    err_clear();
    const int number = builtin_find(name)->number;
    Accumulator accumulator;
    Value result{};
    const Value *first = rows.empty() ? nullptr : &rows[0].value;
    if (!builtin_start(number, first, rows.empty() ? 0 : 1, accumulator))
      return "!" + std::to_string(error_record().last_code);
    for (size_t i = 1; i < rows.size(); ++i)  // the first row only gives the type
      EXPECT_TRUE(builtin_accumulate(number, &rows[i].value, 1, accumulator));
    builtin_finish(number, accumulator, result);
    EXPECT_NE(result.flags & value_aggregate, 0);
    return shown(result) + (result.type == type::bigint ? " bigint" : " double");
  }

  struct Case {
    const char *name;
    std::vector<Argument> arguments;
    const char *result;
  };
  void check(const std::vector<Case> &cases) {
    for (size_t i = 0; i < cases.size(); ++i)
      EXPECT_EQ(call(cases[i].name, cases[i].arguments), cases[i].result) << cases[i].name << ", case " << i;
  }

  SystemDriver driver_;
  MemoryPool *pool_;
  Value result_{};
};

TEST_F(BuiltinTest, NamesAreFoundInAnyCase) {
  for (int number = 0; number < builtin_count; ++number) {
    const BuiltinRow *row = builtin_row(number);
    std::string name = row->name;
    EXPECT_EQ(builtin_find(name.c_str()), row);
    name[0] = static_cast<char>(tolower(name[0]));
    EXPECT_EQ(builtin_find(name.c_str()), row);
  }
  for (const char *name : {"TRUNC", "", "A", "ABSS", "YNN", "Z", "CURRENT-DATE", "\xC3\xA4"})
    EXPECT_EQ(builtin_find(name), nullptr) << name;
  EXPECT_EQ(builtin_find("yn")->number, 0x4B);
  EXPECT_EQ(builtin_find("current_timestamp")->number, 0x10);
  EXPECT_EQ(builtin_row(76), nullptr);
  EXPECT_EQ(builtin_row(-1), nullptr);
}

TEST_F(BuiltinTest, ArgumentCountsAndClassesAreChecked) {
  check({
      {"NOW", {1}, "!153011"},
      {"ABS", {}, "!153012"},
      {"ABS", {1, 2}, "!153011"},
      {"ROUND", {}, "!153012"},
      {"ROUND", {1, 2, 3}, "!153011"},
      {"SUBSTR", {"a"}, "!153012"},
      {"SUBSTR", {"a", 1, 1, 1}, "!153011"},
      {"INSTR", {"a"}, "!153012"},
      {"INSTR", {"a", "a", 1, 1, 1}, "!153011"},
      {"TRANSLATE", {"a", "a"}, "!153012"},
      {"NVL", {1}, "!153012"},
      {"ABS", {"1"}, "!153001"},
      {"REPEAT", {"a", 1.0}, "!153002"},
      {"LPAD", {"a", 1, 1}, "!153003"},
      {"INSTR", {"a", "a", 1, "1"}, "!153004"},
      {"DAYNAME", {"20200101"}, "!153001"},
      {"ADD_MONTHS", {date("20200101"), 1.0}, "!153002"},
  });
  Value result{};
  for (const int number : {76, -1}) {
    err_clear();
    EXPECT_FALSE(builtin_prepare(number, nullptr, 0, result));
    EXPECT_EQ(error_record().last_code, 53001);
    EXPECT_FALSE(builtin_evaluate(number, nullptr, 0, *pool_, result));
  }
}

TEST_F(BuiltinTest, NullArgumentsGiveNullOfTheShownType) {
  const struct {
    const char *name;
    std::vector<Argument> arguments;
    TypeCode type;
  } cases[] = {
      {"ADD_MONTHS", {nullptr, 1}, type::date},    {"SUBSTR", {"abc", nullptr}, type::character},
      {"SIGN", {nullptr}, type::bigint},           {"POW", {2, nullptr}, type::float64},
      {"TOCHAR", {nullptr, "9"}, type::character}, {"TODATE", {"20200101", nullptr}, type::microtimestamp},
  };
  for (const auto &c : cases) {
    std::vector<Value> values;
    for (const Argument &argument : c.arguments) values.push_back(argument.value);
    Value result{};
    const int number = builtin_find(c.name)->number;
    ASSERT_TRUE(builtin_prepare(number, values.data(), static_cast<int>(values.size()), result)) << c.name;
    EXPECT_EQ(result.type, c.type) << c.name;
    ASSERT_TRUE(builtin_evaluate(number, values.data(), static_cast<int>(values.size()), *pool_, result));
    EXPECT_EQ(result.type, c.type) << c.name;
    EXPECT_TRUE(result.is_null()) << c.name;
  }
}

TEST_F(BuiltinTest, Mathematics) {
  check({
      {"ABS", {-3}, "3"},
      {"ABS", {INT64_MIN}, "-9223372036854775808"},
      {"ABS", {-2.5}, "2.5"},
      {"SIGN", {-0.5}, "-1"},
      {"SIGN", {0}, "0"},
      {"SIGN", {INT64_MAX}, "1"},
      {"ROUND", {2.5}, "3"},
      {"ROUND", {-2.5}, "-3"},
      {"ROUND", {1.25, 1}, "1.3"},
      {"ROUND", {1250, -2}, "1300"},
      {"ROUND", {1.25, 0.9}, "1"},
      {"TRUNNC", {-1.7}, "-1"},
      {"TRUNNC", {1.79, 1}, "1.7"},
      {"CEILING", {-1.7}, "-1"},
      {"CEILING", {1.21, 1}, "1.3"},
      {"FLOOR", {-1.2}, "-2"},
      {"FLOOR", {1299, -2}, "1200"},
      {"ATAN2", {1, 2}, "0.463647609001"},
      {"FMOD", {7.5, 2}, "1.5"},
      {"HYPOT", {3, 4}, "5"},
      {"POW", {2, 10}, "1024"},
      {"ACOS", {1}, "0"},
      {"ASIN", {1}, "1.57079632679"},
      {"ATAN", {1}, "0.785398163397"},
      {"COS", {0}, "1"},
      {"COSH", {0}, "1"},
      {"EXP", {1}, "2.71828182846"},
      {"FABS", {-1}, "1"},
      {"LOG", {10}, "2.30258509299"},
      {"LOG10", {1000}, "3"},
      {"SIN", {1}, "0.841470984808"},
      {"SINH", {1}, "1.17520119364"},
      {"SQRT", {2}, "1.41421356237"},
      {"TAN", {1}, "1.55740772465"},
      {"TANH", {1}, "0.761594155956"},
      {"ERF", {1}, "0.84270079295"},
      {"ERFC", {1}, "0.15729920705"},
      {"GAMMA", {5}, "24"},
      {"J0", {1}, "0.765197686558"},
      {"J1", {1}, "0.440050585745"},
      {"JN", {2.9, 1}, "0.114903484932"},
      {"JN", {-1, 1}, "-0.440050585745"},
      {"JN", {INT64_MAX, 1}, "0"},
      {"Y0", {1}, "0.0882569642157"},
      {"Y1", {1}, "-0.7812128213"},
      {"YN", {2, 1}, "-1.65068260682"},
      {"LOG", {0}, "-inf"},
  });
}

TEST_F(BuiltinTest, CharacterFunctions) {
  const char *kana = "\xE3\x81\x82\xE3\x81\x84\xE3\x81\x86";  // three characters of three bytes
  check({
      {"ASCII", {"AB"}, "65"},
      {"ASCII", {""}, "0"},
      {"ASCII", {kana}, "14909826"},  // 0xE38182
      {"CHR", {14909826}, "\xE3\x81\x82"},
      {"CHR", {0x410042}, "AB"},
      {"CHR", {0}, ""},
      {"CHAR_LENGTH", {kana}, "3"},
      {"LENGTH", {""}, "0"},
      {"LENGTHB", {kana}, "9"},
      {"LENGTH", {"\xE3\x81"}, "1"},
      {"LOWER", {"AbC\xEF\xBC\xA1"}, "abc\xEF\xBD\x81"},
      {"TOUPPER", {"aBc\xEF\xBD\x81"}, "ABC\xEF\xBC\xA1"},
      {"UPPER", {"a\xE3"}, "A\xE3"},
      {"LTRIM", {"  a b "}, "a b "},
      {"RTRIM", {"  a b "}, "  a b"},
      {"TRIM", {"  a b "}, "a b"},
      {"TRIM", {"   "}, ""},
      {"LEFT", {kana, 2}, "\xE3\x81\x82\xE3\x81\x84"},
      {"LEFT", {"abc", INT64_MAX}, "abc"},
      {"LEFT", {"abc", 0}, ""},
      {"RIGHT", {kana, 1}, "\xE3\x81\x86"},
      {"RIGHT", {"abc", 3}, "abc"},
      {"RIGHT", {"abc", INT64_MAX}, "abc"},
      {"RIGHT", {"abc", INT64_MIN}, ""},
      {"REPEAT", {"ab", 3}, "ababab"},
      {"REPEAT", {"ab", -1}, ""},
      {"REPEAT", {"", INT64_MAX}, ""},
      {"SPACE", {3}, "   "},
      {"REVERSE",
       {"a\xE3\x81\x82z"},
       "z\xE3\x81\x82"
       "a"},
      {"SUBSTR", {"abcde", 2, 3}, "bcd"},
      {"SUBSTR", {"abcde", -2}, "de"},
      {"SUBSTR", {"abcde", 0, 2}, "ab"},
      {"SUBSTR", {"abcde", 2, 0}, "bcde"},
      {"SUBSTR", {"abcde", 2, -1}, ""},
      {"SUBSTR", {"abcde", 6}, ""},
      {"SUBSTRING", {kana, 2, INT64_MAX}, "\xE3\x81\x84\xE3\x81\x86"},
      {"SUBSTR", {"abcde", INT64_MIN}, "abcde"},
      {"LPAD", {"abcde", 3}, "abc"},
      {"LPAD", {"ab", 7, "xyz"}, "xyzxyab"},
      {"LPAD", {"ab", 4, ""}, "  ab"},
      {"RPAD", {"ab", 5, kana}, "ab\xE3\x81\x82\xE3\x81\x84\xE3\x81\x86"},
      {"RPAD", {"ab", 0, "x"}, ""},
      {"RPAD", {"", 2}, "  "},
      {"REPLACE", {"abcabc", "bc", "X"}, "aXaX"},
      {"REPLACE", {"aaa", "aa", "b"}, "ba"},
      {"REPLACE", {"abcabc", "bc"}, "aa"},
      {"REPLACE", {"abc", "b", ""}, "ac"},
      {"REPLACE", {"abc", "", "x"}, "abc"},
      {"REPLACE", {"", "a", "x"}, ""},
      {"TRANSLATE", {"abcabc", "abb", "x"}, "xcxc"},
      {"TRANSLATE", {"abc", "ca", "\xE3\x81\x82z"}, "zb\xE3\x81\x82"},
      {"TRANSLATE", {"abc", "", "x"}, "abc"},
      {"LENGTH", {static_cast<const char *>(nullptr)}, "!53003"},
  });
}

TEST_F(BuiltinTest, PositionsOfATextInAnother) {
  check({
      {"INSTR", {"abcabc", "bc"}, "2"},
      {"INSTR", {"abcabc", "bc", 1, 2}, "5"},
      {"INSTR", {"abcabc", "bc", 3}, "5"},
      {"INSTR", {"abcabc", "bc", 1, 3}, "0"},
      {"INSTR", {"abcabc", "bc", 1, 0}, "2"},
      {"INSTR", {"abcabc", "bc", 0}, "0"},
      {"INSTR", {"abcabc", "bc", 1, -1}, "0"},
      {"INSTR", {"abcabc", "", 1}, "0"},
      {"INSTR", {"", "a"}, "0"},
      {"INSTR", {"aaaa", "aa", 1, 2}, "3"},  // matches do not overlap
      {"INSTR", {"aaaa", "aa", 1, 3}, "0"},
      {"INSTR", {"abc", "c", INT64_MAX, 1}, "0"},
      {"INSTR", {"abc", "c", 1, INT64_MAX}, "0"},
      {"INSTR", {"\xE3\x81\x82\xE3\x81\x84z", "z"}, "3"},
      {"INSTR", {"abcabc", "bc", -1}, "2"},  // the last ends at the start position and does not count
      {"INSTR", {"abcabcx", "bc", -1}, "5"},
      {"INSTR", {"abcabcx", "bc", -1, 2}, "2"},
      {"INSTR", {"abcabcx", "bc", -1, 3}, "0"},
      {"INSTR", {"abcabcx", "bc", -7}, "0"},
      {"INSTR", {"abcabcx", "bc", INT64_MIN}, "0"},
  });
}

TEST_F(BuiltinTest, HugeCountsEndInTheLimitOfThePool) {
  for (const int64_t count : {int64_t{102400}, int64_t{INT32_MAX}, int64_t{1} << 32, INT64_MAX}) {
    for (const char *name : {"REPEAT", "LPAD", "RPAD"}) {
      EXPECT_EQ(call(name, {"ab", count}), "!110002") << name << " " << count;
      EXPECT_EQ(error_record().last_code, 53002);
    }
    EXPECT_EQ(call("SPACE", {count}), "!110002") << count;
  }
  EXPECT_EQ(pool_->used, 0);
  EXPECT_EQ(call("LPAD", {"ab", 14628}), "!110002");  // seven bytes are set aside per character
  EXPECT_EQ(call("LPAD", {"ab", 14600}).size(), 14600u);
}

TEST_F(BuiltinTest, Dates) {
  check({
      {"DAYNAME", {date("20000101")}, "Saturday"},
      {"DAYOFWEEK", {date("20000101")}, "6"},
      {"DAYOFYEAR", {date("20201231")}, "366"},
      {"DAYOFYEAR", {date("15821231")}, "355"},
      {"WEEKOFYEAR", {date("20230101")}, "1"},
      {"WEEKOFYEAR", {date("20220101")}, "0"},
      {"WEEKOFYEAR", {date("20220102")}, "1"},
      {"WEEKOFYEAR", {date("20221231")}, "52"},
      {"LAST_DAY", {date("20200205101112")}, "20200229101112000000"},
      {"LAST_DAY", {date("19000205")}, "19000228000000000000"},
      {"LAST_DAY", {date("20200405")}, "20200430000000000000"},
      {"NEXT_DAY", {date("20240101093000"), "monday"}, "20240108093000000000"},
      {"NEXT_DAY", {date("20240101"), "TUESDAY"}, "20240102000000000000"},
      {"NEXT_DAY", {date("20240101"), "Sunday"}, "20240107000000000000"},
      {"NEXT_DAY", {date("20240101"), "mon"}, "!153007"},
      {"NEXT_DAY", {date("99991231"), "Sunday"}, "!113004"},
      {"ADD_MONTHS", {date("20210131"), 1}, "20210303000000000000"},
      {"ADD_MONTHS", {date("20200131"), 1}, "20200302000000000000"},
      {"ADD_MONTHS", {date("20210331"), 1}, "20210501000000000000"},
      {"ADD_MONTHS", {date("20210331"), -1}, "20210303000000000000"},
      {"ADD_MONTHS", {date("20210331"), INT64_MIN}, "!113004"},
  });
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
    EXPECT_EQ(call(c.name, {}), c.result);
    EXPECT_EQ(result_.declared, c.shown) << c.name;
    EXPECT_EQ(result_.type, type::microtimestamp) << c.name;
  }
}

TEST_F(BuiltinTest, NullReplacement) {
  check({
      {"NVL", {nullptr, "b"}, "b"},
      {"NVL", {5, "b"}, "5"},
      {"NVL", {nullptr, nullptr}, "NULL"},
      {"NVL", {date("20200101"), 1}, "20200101000000000000"},
  });
}

TEST_F(BuiltinTest, TextsOfNumbersAndDates) {
  check({
      {"TOCHAR", {1234, "9999"}, " 1234"},
      {"TOCHAR", {1234, "99999"}, "  1234"},
      {"TOCHAR", {-1234, "99999"}, " -1234"},
      {"TOCHAR", {12, "00000"}, " 00012"},
      {"TOCHAR", {-12, "09999"}, "-00012"},
      {"TOCHAR", {1234567, "9,999,999"}, " 1,234,567"},
      {"TOCHAR", {12, "9,999"}, "    12"},
      {"TOCHAR", {12, "0,000"}, " 0,012"},
      {"TOCHAR", {1234.5, "9,999.99"}, " 1,234.50"},
      {"TOCHAR", {0.5, "9.99"}, "  .50"},
      {"TOCHAR", {-0.5, "0.0"}, "-0.5"},
      {"TOCHAR", {-0.5, "99.9"}, "  -.5"},
      {"TOCHAR", {0, "999"}, "   0"},
      {"TOCHAR", {0.25, ".9"}, " .3"},
      {"TOCHAR", {2.5, "9"}, " 3"},
      {"TOCHAR", {-2.5, "9"}, "-3"},
      {"TOCHAR", {2.675, "9.99"}, " 2.68"},
      {"TOCHAR", {99.99, "999.9"}, " 100.0"},
      {"TOCHAR", {-0.001, "9.99"}, "  .00"},
      {"TOCHAR", {1e-300, "0.00"}, " 0.00"},
      {"TOCHAR", {INT64_MIN, "9999999999999999999"}, "-9223372036854775808"},
      {"TOCHAR", {"12.5", "99.99"}, " 12.50"},
      {"TOCHAR", {10, "9"}, "!153007"},
      {"TOCHAR", {9.96, "9.9"}, "!153007"},
      {"TOCHAR", {1, ""}, "!153007"},
      {"TOCHAR", {1, "9.9.9"}, "!153007"},
      {"TOCHAR", {1, ",999"}, "!153007"},
      {"TOCHAR", {1, "9.9,9"}, "!153007"},
      {"TOCHAR", {1, "YYYY"}, "!153007"},
      {"TOCHAR", {std::nan(""), "9"}, "!153007"},
      {"TOCHAR", {"abc", "9"}, "!153007"},
      {"TOCHAR", {1, 9}, "!153002"},
      {"TOCHAR", {date("20200131040506000789"), "YYYY-MM-DD hh24:mi:ss.FF"}, "2020-01-31 04:05:06.000789"},
      {"TOCHAR", {date("20200131"), "DD\xE6\x97\xA5"}, "31\xE6\x97\xA5"},
      {"TOCHAR", {"20200131", "MM/YYYY"}, "01/2020"},
      {"TOCHAR", {date("20200131"), "YYYY Q"}, "!153007"},
      {"TOCHAR", {date("20200131"), "--"}, "!153007"},
      {"TOCHAR", {date("20200131"), "999"}, "!153007"},
      {"TODATE", {"2020-01-31 04:05:06.5", "YYYY-MM-DD HH24:MI:SS.FF"}, "20200131040506500000"},
      {"TODATE", {"31012020", "DDMMYYYY"}, "20200131000000000000"},
      {"TODATE", {2020, "YYYY"}, "20200101000000000000"},
      {"TODATE", {date("20200131"), "YYYY"}, "20200131000000000000"},
      {"TODATE", {"2020-1-31", "YYYY-MM-DD"}, "!153007"},
      {"TODATE", {"2020-01-31x", "YYYY-MM-DD"}, "!153007"},
      {"TODATE", {"2020-01", "YYYY-MM-DD"}, "!153007"},
      {"TODATE", {"2020/01", "YYYY-MM"}, "!153007"},
      {"TODATE", {"01", "MM"}, "!153007"},
      {"TODATE", {"20201301", "YYYYMMDD"}, "!113005"},
      {"TODATE", {"2020010124", "YYYYMMDDHH24"}, "!113007"},
      {"TODATE", {1.5, "YYYY"}, "!153001"},
  });
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
      {"COUNT", {"", "a", nullptr, "b"}, "2 bigint"},
      {"COUNT", {}, "0 bigint"},
      {"SUM", {0, 1, 2.9}, "3 bigint"},
      {"MAX", {"a"}, "!153001"},
      {"AVG", {}, "!153001"},
      {"ABS", {1}, "!53001"},
  };
  for (const auto &c : cases) EXPECT_EQ(aggregate(c.name, c.rows), c.result) << c.name;

  Accumulator accumulator;
  ASSERT_TRUE(builtin_start(builtin::count, nullptr, 0, accumulator));
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(builtin_accumulate(builtin::count, nullptr, 0, accumulator));
  EXPECT_EQ(accumulator.count, 3);
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
    const std::string length = call("LENGTH", {text.c_str()});
    SCOPED_TRACE(testing::PrintToString(text) + " " + testing::PrintToString(sought) + " " +
                 std::to_string(number));
    EXPECT_EQ(call("REPLACE", {text.c_str(), sought.c_str(), sought.c_str()}), text);
    EXPECT_EQ(call("TRANSLATE", {text.c_str(), sought.c_str(), sought.c_str()}), text);
    if (number > 0) {
      EXPECT_EQ(call("LEFT", {text.c_str(), number}) + call("SUBSTR", {text.c_str(), number + 1}), text);
      EXPECT_EQ(call("SUBSTR", {text.c_str(), -number, 0}).size(),
                call("RIGHT", {text.c_str(), number}).size());
      EXPECT_TRUE(call("RPAD", {text.c_str(), number}).starts_with(call("LEFT", {text.c_str(), number})));
    }
    EXPECT_EQ(call("REVERSE", {text.c_str()}).size(), text.size());
    const int position = std::stoi(call("INSTR", {text.c_str(), sought.c_str()}));
    EXPECT_LE(position, std::stoi(length));
    if (position > 0) {
      EXPECT_EQ(call("SUBSTR", {text.c_str(), position}).compare(0, sought.size(), sought), 0);
    }
    call("UPPER", {text.c_str()});
    call("TOCHAR", {date("20200101"), text.c_str()});
    call("TODATE", {text.c_str(), ("YYYY" + text).c_str()});
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace tovik
