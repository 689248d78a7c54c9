#include "sql/parse/keywords.h"

#include <cstring>

#include "data/value/datetime.h"
#include "data/value/types.h"
#include "platform/ascii.h"
#include "sql/parse/grammar.h"

namespace tovik {

// Ascending by name.
static constexpr Keyword keywords[keyword_count] = {
    // clang-format off
    {"add", T_ADD, 0},
    {"all", T_ALL, 0},
    {"alter", T_ALTER, 0},
    {"and", T_AND, 0},
    {"any", T_ANY, 0},
    {"as", T_AS, 0},
    {"asc", T_ASC, 0},
    {"ascending", T_ASC, 0},
    {"attr", T_ATTR, 0},
    {"attribute", T_ATTR, 0},
    {"auto_increment", T_AUTO_INCREMENT, 0},
    {"before", T_BEFORE, 0},
    {"begin", T_BEGIN, 0},
    {"between", T_BETWEEN, 0},
    {"bigint", T_TYPE, static_cast<int16_t>(type::bigint)},
    {"biginteger", T_TYPE, static_cast<int16_t>(type::bigint)},
    {"blob", T_TYPE, static_cast<int16_t>(type::blob)},
    {"by", T_BY, 0},
    {"cancel", T_ROLLBACK, 0},
    {"cbigint", T_TYPE, static_cast<int16_t>(type::cbigint)},
    {"cbiginteger", T_TYPE, static_cast<int16_t>(type::cbigint)},
    {"change", T_CHANGE, 0},
    {"char", T_TYPE, static_cast<int16_t>(type::character)},
    {"cint", T_TYPE, static_cast<int16_t>(type::cint)},
    {"cinteger", T_TYPE, static_cast<int16_t>(type::cint)},
    {"commit", T_COMMIT, 0},
    {"concat", T_CONCAT, 0},
    {"create", T_CREATE, 0},
    {"csmallint", T_TYPE, static_cast<int16_t>(type::csmallint)},
    {"csmallinteger", T_TYPE, static_cast<int16_t>(type::csmallint)},
    {"ctinyint", T_TYPE, static_cast<int16_t>(type::ctinyint)},
    {"ctinyinteger", T_TYPE, static_cast<int16_t>(type::ctinyint)},
    {"date", T_TYPE, static_cast<int16_t>(type::date)},
    {"day", T_UNIT, unit_day},
    {"dayof", T_DATEFN, part_day},
    {"db", T_DB, 0},
    {"decimal", T_TYPE, static_cast<int16_t>(type::decimal)},
    {"delete", T_DELETE, 0},
    {"desc", T_DESC, 0},
    {"descending", T_DESCENDING, 0},
    {"describe", T_DESCRIBE, 0},
    {"direct_from", T_DIRECT_FROM, 0},
    {"direct_into", T_DIRECT_INTO, 0},
    {"distinct", T_DISTINCT, 0},
    {"double", T_TYPE, static_cast<int16_t>(type::float64)},
    {"drop", T_DROP, 0},
    {"dump", T_DUMP, 0},
    {"echo", T_ECHO, 0},
    {"empty", T_EMPTY, 0},
    {"exclusive", T_EXCLUSIVE, 0},
    {"exists", T_EXISTS, 0},
    {"float", T_TYPE, static_cast<int16_t>(type::float32)},
    {"from", T_FROM, 0},
    {"group", T_GROUP, 0},
    {"having", T_HAVING, 0},
    {"hour", T_UNIT, unit_hour},
    {"hourof", T_DATEFN, part_hour},
    {"in", T_IN, 0},
    {"inclusive", T_INCLUSIVE, 0},
    {"index", T_INDEX, 0},
    {"info", T_INFO, 0},
    {"insert", T_INSERT, 0},
    {"int", T_TYPE, static_cast<int16_t>(type::int32)},
    {"integer", T_TYPE, static_cast<int16_t>(type::int32)},
    {"into", T_INTO, 0},
    {"is", T_IS, 0},
    {"like", T_LIKE, 0},
    {"match", T_MATCH, 0},
    {"microsecond", T_UNIT, unit_microsecond},
    {"microsecondof", T_DATEFN, part_microsecond},
    {"microtimestamp", T_TYPE, static_cast<int16_t>(type::microtimestamp)},
    {"minute", T_UNIT, unit_minute},
    {"minuteof", T_DATEFN, part_minute},
    {"month", T_UNIT, unit_month},
    {"monthof", T_DATEFN, part_month},
    {"not", T_NOT, 0},
    {"null", T_NULL, 0},
    {"on", T_ON, 0},
    {"or", T_OR, 0},
    {"order", T_ORDER, 0},
    {"print", T_PRINT, 0},
    {"range", T_BETWEEN, 0},
    {"real", T_TYPE, static_cast<int16_t>(type::float64)},
    {"rename", T_RENAME, 0},
    {"rollback", T_ROLLBACK, 0},
    {"second", T_UNIT, unit_second},
    {"secondof", T_DATEFN, part_second},
    {"select", T_SELECT, 0},
    {"set", T_SET, 0},
    {"show", T_SHOW, 0},
    {"smallint", T_TYPE, static_cast<int16_t>(type::smallint)},
    {"smallinteger", T_TYPE, static_cast<int16_t>(type::smallint)},
    {"smatch", T_SMATCH, 0},
    {"some", T_SOME, 0},
    {"sort", T_ORDER, 0},
    {"start", T_BEGIN, 0},
    {"table", T_TABLE, 0},
    {"test_stmt", T_TEST_STMT, 0},
    {"text", T_TYPE, static_cast<int16_t>(type::text)},
    {"time", T_TYPE, static_cast<int16_t>(type::time)},
    {"timeseries", T_TIMESERIES, 0},
    {"tinyint", T_TYPE, static_cast<int16_t>(type::tinyint)},
    {"tinyinteger", T_TYPE, static_cast<int16_t>(type::tinyint)},
    {"to", T_TO, 0},
    {"transaction", T_TRANSACTION, 0},
    {"unique", T_UNIQUE, 0},
    {"update", T_UPDATE, 0},
    {"values", T_VALUES, 0},
    {"varchar", T_TYPE, static_cast<int16_t>(type::varchar)},
    {"week", T_UNIT, unit_week},
    {"where", T_WHERE, 0},
    {"work", T_WORK, 0},
    {"year", T_UNIT, unit_year},
    {"yearof", T_DATEFN, part_year},
    // clang-format on
};

static constexpr bool keywords_sorted() {
  for (int i = 1; i < keyword_count; ++i) {
    const char *a = keywords[i - 1].name, *b = keywords[i].name;
    while (*a == *b) ++a, ++b;
    if (*a > *b) return false;
  }
  return true;
}
static_assert(keywords_sorted());

// Folded bytes decide: A-Z counts as a-z, every other byte as it is.
static int compare_folded(const char *word, const char *name) {
  for (;; ++word, ++name) {
    const int folded = static_cast<unsigned char>(ascii_lower(*word));
    const int other = static_cast<unsigned char>(*name);
    if (folded != other || folded == 0) return folded - other;
  }
}

const Keyword *keyword_find(const char *word) {
  int low = 0, high = keyword_count - 1;
  while (low <= high) {
    const int middle = (low + high) / 2;
    const int order = compare_folded(word, keywords[middle].name);
    if (order == 0) return &keywords[middle];
    if (order > 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  return nullptr;
}

}  // namespace tovik
