#include "data/value/types.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "data/value/datetime.h"
#include "engine_support.h"

namespace tovik {
namespace {

using test::first_status;

class TypesTest : public testing::Test {
 protected:
  TypesTest() {
    env_start("");
    env_table[static_cast<int>(Env::gmt_time)].number = 1;
    err_clear();
  }
};

// "value", "null" or the status that was recorded.
std::string outcome(Stored stored) {
  if (stored == Stored::value) return "value";
  if (stored == Stored::null) return "null";
  EXPECT_EQ(error_record().count, 1);
  return std::to_string(first_status());
}

std::string store_text(TypeCode code, const char *text, std::vector<uint8_t> *stored, int p1 = 5) {
  stored->assign(static_cast<size_t>(type_stored_size(code, p1, 0)), 0xEE);
  return outcome(store_value(code, ValueMode::text, text, stored->data(), p1, 0));
}

std::string fetch_text(TypeCode code, const std::vector<uint8_t> &stored, int p1 = 5) {
  std::string text(static_cast<size_t>(type_text_size(code, p1)), '#');
  const std::string result = outcome(fetch_value(code, ValueMode::text, stored.data(), text.data(), p1, 0));
  return result == "value" ? text.c_str() : result;
}

TEST_F(TypesTest, TextIsStoredAndReadBack) {
  const struct {
    TypeCode code;
    const char *text;
    const char *result;  // of storing
    const char *fetched;
  } cases[] = {
      {type::tinyint, "128", "113002", ""},
      {type::tinyint, "-128", "113002", ""},
      {type::int32, " \t+42", "value", "42"},
      {type::bigint, "-9223372036854775808", "113002", ""},
      {type::cbigint, "-99999999999999999999", "value", "-9223372036854775808"},
      {type::cbigint, "99999999999999999999", "113001", ""},
      {type::cbigint, nullptr, "113015", ""},
      {type::float32, "-123456789", "value", "-1.234568e+08"},
      {type::float64, "-1.2345678901234567e-300", "value", "-1.23456789012346e-300"},  // the widest
      {type::float64, "0x1.8p1", "value", "3.00000000000000e+00"},
      {type::float64, "1e309", "113001", ""},
      {type::character, "abcde", "value", "abcde"},
      {type::character, "abcdef", "113003", ""},
      {type::decimal, "1.50", "value", "1.50"},
      {type::character, "", "null", ""},
      {type::date, "20200101123456", "value", "20200101"},
      {type::microtimestamp, "20000229235959123456", "value", "20000229235959123456"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(type_row(c.code)->name) + " " + (c.text == nullptr ? "(absent)" : c.text));
    std::vector<uint8_t> stored;
    const std::string result = store_text(c.code, c.text, &stored);
    EXPECT_EQ(result, c.result);
    if (result == "value" || result == "null") {
      EXPECT_EQ(fetch_text(c.code, stored), c.fetched);
    }
  }
}

TEST_F(TypesTest, TimesAreStoredInUtc) {
  env_table[static_cast<int>(Env::gmt_time)].number = 0;
  std::vector<uint8_t> stored;
  // The first and the last hour of the calendar lie outside it in UTC.
  for (const char *zone : {"EST5", "JST-9"}) {
    setenv("TZ", zone, 1);
    ASSERT_EQ(system_driver.sys_start(), 0);
    for (const char *text : {"00010101000000", "20200101100000", "99991231235959"}) {
      EXPECT_EQ(store_text(type::time, text, &stored), "value");
      EXPECT_EQ(fetch_text(type::time, stored), text) << zone;
    }
  }
  EXPECT_EQ(store_text(type::time, "20200101100000", &stored), "value");
  EXPECT_EQ(stored[4], 1);

  // Stored in one zone and read in another; what is read can be stored again.
  const struct {
    const char *stored_in, *text, *read_in, *expected;
  } moved[] = {
      {"UTC", "99991231235959", "JST-9", "99991231235959"},
      {"JST-9", "00010101020000", "UTC", "00010101000000"},
      {"JST-9", "00010101020000", "EST5", "00010101000000"},
      {"JST-9", "15821015010000", "UTC", "15821004160000"},
      {"JST-9", "15000301010000", "UTC", "15000229160000"},
  };
  for (const auto &c : moved)
    for (const TypeCode code : {type::time, type::microtimestamp}) {
      SCOPED_TRACE(c.text);
      const auto use = [](const char *zone) {
        setenv("TZ", zone, 1);
        ASSERT_EQ(system_driver.sys_start(), 0);
      };
      use(c.stored_in);
      EXPECT_EQ(store_text(code, c.text, &stored), "value");
      use(c.read_in);
      DateTimeRec record;
      ASSERT_EQ(fetch_value(code, ValueMode::binary, stored.data(), &record, 0, 0), Stored::value);
      EXPECT_EQ(fetch_text(code, stored).substr(0, 14), c.expected);
      EXPECT_TRUE(check_datetime(type::microtimestamp, record));
      EXPECT_TRUE(code == type::microtimestamp || record.microseconds == 0);
    }
  unsetenv("TZ");
}

template <class T>
std::string bytes_of(const T &value) {
  return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

TEST_F(TypesTest, ValuesOfTwoTypesCompare) {
  const int64_t odd = 9007199254740993, even = 9007199254740992;
  const DateTimeRec early{2020, 1, 1, 10, 0, 0, 0, 5}, late{2020, 1, 1, 10, 0, 0, 0, 6};
  const struct {
    TypeCode a;
    std::string left;
    TypeCode b;
    std::string right;
    int result;
  } cases[] = {
      {type::bigint, bytes_of(odd), type::cint, bytes_of(even), 1},
      {type::bigint, bytes_of(odd), type::float64, bytes_of(static_cast<double>(even)), 0},
      {type::microtimestamp, bytes_of(late), type::time, bytes_of(early), 0},
      {type::blob, bytes_of(1) + "z", TYPE_BINARY, bytes_of(2) + "ab", -1},
      {type::blob, bytes_of(2) + "a\xFF", type::blob, bytes_of(2) + "ab", 1},
  };
  for (const auto &c : cases) {
    int result = 9;
    ASSERT_TRUE(compare_values(c.a, c.left.data(), 0, c.b, c.right.data(), &result));
    EXPECT_EQ(result, c.result) << "case " << &c - cases;
  }
}

TEST_F(TypesTest, Literals) {
  const struct {
    TypeCode classes;
    const char *text;
    std::string value;  // empty: it fails
    StatusCode code;
  } cases[] = {
      {TYPE_BINARY, "fFABC", bytes_of(3) + "\xFF\xAB\x0C", 0},
      {TYPE_FLOAT, "1e999", "", 113001},
      {type::microtimestamp, "2020", "", 113012},
      {TYPE_BINARY, "0g", "", 113013},
  };
  for (const auto &c : cases)
    for (const bool records : {true, false}) {
      char target[32];
      EXPECT_EQ(parse_literal(c.classes, c.text, records, target), c.code == 0);
      EXPECT_TRUE(c.code != 0 || std::string(target, c.value.size()) == c.value) << "case " << &c - cases;
      EXPECT_EQ(first_status(), records ? c.code : 0) << "case " << &c - cases;
    }
}

// Stored values in their order, by their type's own comparison and by that of any two types.
TEST_F(TypesTest, StoredValuesHaveTheirOrder) {
  const struct {
    std::vector<TypeCode> codes;
    std::vector<const char *> ascending;
  } cases[] = {
      {{type::tinyint, type::smallint, type::int32, type::bigint}, {nullptr, "-127", "-1", "0", "1", "127"}},
      {{type::ctinyint, type::csmallint, type::cint, type::cbigint}, {nullptr, "-128", "-1", "0", "127"}},
      {{type::bigint, type::cbigint}, {nullptr, "-9223372036854775807", "-4294967296", "1", "4294967296"}},
      {{type::float32, type::float64},
       {nullptr, "-inf", "-1e30", "-1", "0", "1e-30", "1.00001", "inf", "nan"}},
      {{type::character, type::varchar}, {nullptr, "a", "a\x01", "aa", "a\xFF", "b", "\x7F", "\x80"}},
      {{type::date}, {nullptr, "00010101", "00010201", "02560101", "20191231", "20200101", "20200102"}},
      {{type::time, type::microtimestamp}, {nullptr, "20200101000001", "20200101000100", "20200101010000"}},
      {{type::microtimestamp}, {"20200101000000000001", "20200101000000000256", "20200101000000065536"}},
  };
  const auto stored = [](TypeCode code, const char *text) {
    std::vector<uint8_t> bytes(16);
    const ValueMode mode = text == nullptr ? ValueMode::null : ValueMode::text;
    EXPECT_NE(store_value(code, mode, text, bytes.data(), 5, 0), Stored::failed) << text;
    return bytes;
  };
  for (const auto &c : cases)
    for (const TypeCode code : c.codes)
      for (size_t i = 0; i < c.ascending.size(); ++i)
        for (size_t j = 0; j < c.ascending.size(); ++j) {
          const std::vector<uint8_t> a = stored(code, c.ascending[i]), b = stored(code, c.ascending[j]);
          SCOPED_TRACE(type_row(code)->name + (": " + testing::PrintToString(a)) + testing::PrintToString(b));
          const int expected = (i > j) - (i < j);
          int general = 9;
          ASSERT_TRUE(compare_stored(code, a.data(), 5, code, b.data(), &general));
          EXPECT_EQ(general, expected);
          EXPECT_EQ(stored_compare_of(code)(a.data(), b.data(), 5), expected);
        }
}

}  // namespace
}  // namespace tovik
