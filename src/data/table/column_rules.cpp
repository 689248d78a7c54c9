#include "data/table/column_rules.h"

#include "frame/error.h"

namespace tovik {

namespace {

// A parameter outside least to most becomes the default, unless the catalog is to refuse it.
struct ParameterRule {
  int16_t otherwise, least, most;
  StatusCode refusal;  // 0: none
};

constexpr ParameterRule absent = {0, 0, 0, 0};
constexpr ParameterRule no_precision = {0, 0, 0, status::column_parameter_1};
constexpr ParameterRule as_given = {0, INT16_MIN, INT16_MAX, 0};
constexpr ParameterRule size = {20, 1, INT16_MAX, 0};
constexpr ParameterRule chunk = {20, 5, INT16_MAX, 0};  // a chunk's link and one byte at least
constexpr ParameterRule length = {20, 1, INT16_MAX, status::column_parameter_1};
constexpr ParameterRule width = {1, 1, 3, status::column_parameter_2};

struct TypeRule {
  TypeCode type;
  ParameterRule p1, p2, p3;
};

// Every type but byte.
constexpr TypeRule type_rules[] = {
    {type::tinyint, absent, absent, absent},
    {type::smallint, absent, absent, absent},
    {type::int32, absent, absent, absent},
    {type::bigint, absent, absent, absent},
    {type::ctinyint, absent, absent, absent},
    {type::csmallint, absent, absent, absent},
    {type::cint, absent, absent, absent},
    {type::cbigint, absent, absent, absent},
    {type::float32, as_given, as_given, as_given},
    {type::float64, as_given, as_given, as_given},
    {type::decimal, size, as_given, absent},
    {type::character, length, width, absent},
    {type::varchar, length, width, absent},
    {type::text, size, size, chunk},
    {type::time, no_precision, absent, absent},
    {type::date, no_precision, absent, absent},
    {type::microtimestamp, no_precision, absent, absent},
    {type::blob, size, size, chunk},
};

const TypeRule *rule_of(int32_t code) {
  for (const TypeRule &rule : type_rules)
    if (rule.type == code) return &rule;
  return nullptr;
}

enum class Refusal { never, where_laid_down };

bool settle(int16_t &parameter, const ParameterRule &rule, Refusal refusal) {
  if (parameter >= rule.least && parameter <= rule.most) return true;
  if (refusal == Refusal::where_laid_down && rule.refusal != 0) return fail(rule.refusal);
  parameter = rule.otherwise;
  return true;
}

bool settle_all(ColumnType &column, const TypeRule &rule, Refusal refusal) {
  return settle(column.p1, rule.p1, refusal) && settle(column.p2, rule.p2, refusal) &&
         settle(column.p3, rule.p3, refusal);
}

}  // namespace

bool column_type_allowed(int32_t code) {
  return rule_of(code) != nullptr;
}

void column_take_defaults(ColumnType &column) {
  if (const TypeRule *rule = rule_of(column.type)) (void)settle_all(column, *rule, Refusal::never);
}

bool column_type_check(ColumnType &column) {
  const TypeRule *rule = rule_of(column.type);
  if (rule == nullptr) return fail(status::column_type);
  return settle_all(column, *rule, Refusal::where_laid_down);
}

}  // namespace tovik
