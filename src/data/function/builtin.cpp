#include "data/function/builtin.h"

#include "frame/error.h"
#include "platform/ascii.h"

namespace tovik {

namespace {

using Category = BuiltinCategory;

constexpr BuiltinRow builtin_table[builtin_count] = {
    {"ABS", builtin::abs, Category::mathematics, 1, "N", 0, 0},
    {"ACOS", builtin::acos, Category::mathematics, 1, "N", type::float64, 0},
    {"ADD_MONTHS", builtin::add_months, Category::datetime, 2, "DI", type::microtimestamp, type::date},
    {"ASCII", builtin::ascii, Category::text, 1, "S", type::bigint, 0},
    {"ASIN", builtin::asin, Category::mathematics, 1, "N", type::float64, 0},
    {"ATAN", builtin::atan, Category::mathematics, 1, "N", type::float64, 0},
    {"ATAN2", builtin::atan2, Category::mathematics, 2, "NN", type::float64, 0},
    {"AVG", builtin::avg, Category::aggregate, 1, "N", type::float64, 0},
    {"CEILING", builtin::ceiling, Category::mathematics, 4, "NN", type::float64, 0},
    {"CHAR_LENGTH", builtin::char_length, Category::text, 1, "S", type::bigint, 0},
    {"CHR", builtin::chr, Category::text, 1, "I", type::character, 0},
    {"COS", builtin::cos, Category::mathematics, 1, "N", type::float64, 0},
    {"COSH", builtin::cosh, Category::mathematics, 1, "N", type::float64, 0},
    {"COUNT", builtin::count, Category::aggregate, 8, "?", type::bigint, 0},
    {"CURRENT_DATE", builtin::current_date, Category::datetime, 0, "", type::microtimestamp, type::date},
    {"CURRENT_TIME", builtin::current_time, Category::datetime, 0, "", type::microtimestamp, type::time},
    {"CURRENT_TIMESTAMP", builtin::current_timestamp, Category::datetime, 0, "", type::microtimestamp,
     type::microtimestamp},
    {"DAYNAME", builtin::dayname, Category::datetime, 1, "D", type::character, 0},
    {"DAYOFWEEK", builtin::dayofweek, Category::datetime, 1, "D", type::bigint, 0},
    {"DAYOFYEAR", builtin::dayofyear, Category::datetime, 1, "D", type::bigint, 0},
    {"ERF", builtin::erf, Category::mathematics, 1, "N", type::float64, 0},
    {"ERFC", builtin::erfc, Category::mathematics, 1, "N", type::float64, 0},
    {"EXP", builtin::exp, Category::mathematics, 1, "N", type::float64, 0},
    {"FABS", builtin::fabs, Category::mathematics, 1, "N", type::float64, 0},
    {"FLOOR", builtin::floor, Category::mathematics, 4, "NN", type::float64, 0},
    {"FMOD", builtin::fmod, Category::mathematics, 2, "NN", type::float64, 0},
    {"GAMMA", builtin::gamma, Category::mathematics, 1, "N", type::float64, 0},
    {"HYPOT", builtin::hypot, Category::mathematics, 2, "NN", type::float64, 0},
    {"INSTR", builtin::instr, Category::text, 7, "SSII", type::bigint, 0},
    {"J0", builtin::j0, Category::mathematics, 1, "N", type::float64, 0},
    {"J1", builtin::j1, Category::mathematics, 1, "N", type::float64, 0},
    {"JN", builtin::jn, Category::mathematics, 2, "NN", type::float64, 0},
    {"LAST_DAY", builtin::last_day, Category::datetime, 1, "D", type::microtimestamp, type::date},
    {"LEFT", builtin::left, Category::text, 2, "SI", type::character, 0},
    {"LENGTH", builtin::length, Category::text, 1, "S", type::bigint, 0},
    {"LENGTHB", builtin::lengthb, Category::text, 1, "S", type::bigint, 0},
    {"LOG", builtin::log, Category::mathematics, 1, "N", type::float64, 0},
    {"LOG10", builtin::log10, Category::mathematics, 1, "N", type::float64, 0},
    {"LOWER", builtin::lower, Category::text, 1, "S", type::character, 0},
    {"LPAD", builtin::lpad, Category::text, 5, "SIS", type::character, 0},
    {"LTRIM", builtin::ltrim, Category::text, 1, "S", type::character, 0},
    {"MAX", builtin::max, Category::aggregate, 1, "N", 0, 0},
    {"MIN", builtin::min, Category::aggregate, 1, "N", 0, 0},
    {"NEXT_DAY", builtin::next_day, Category::datetime, 2, "DS", type::microtimestamp, type::date},
    {"NOW", builtin::now, Category::datetime, 0, "", type::microtimestamp, type::time},
    {"NVL", builtin::nvl, Category::conversion, 2, "??", 0, 0},
    {"POW", builtin::pow, Category::mathematics, 2, "NN", type::float64, 0},
    {"REPEAT", builtin::repeat, Category::text, 2, "SI", type::character, 0},
    {"REPLACE", builtin::replace, Category::text, 5, "SSS", type::character, 0},
    {"REVERSE", builtin::reverse, Category::text, 1, "S", type::character, 0},
    {"RIGHT", builtin::right, Category::text, 2, "SI", type::character, 0},
    {"ROUND", builtin::round, Category::mathematics, 4, "NN", type::float64, 0},
    {"RPAD", builtin::rpad, Category::text, 5, "SIS", type::character, 0},
    {"RTRIM", builtin::rtrim, Category::text, 1, "S", type::character, 0},
    {"SIGN", builtin::sign, Category::mathematics, 1, "N", type::bigint, 0},
    {"SIN", builtin::sin, Category::mathematics, 1, "N", type::float64, 0},
    {"SINH", builtin::sinh, Category::mathematics, 1, "N", type::float64, 0},
    {"SPACE", builtin::space, Category::text, 1, "I", type::character, 0},
    {"SQRT", builtin::sqrt, Category::mathematics, 1, "N", type::float64, 0},
    {"SUBSTR", builtin::substr, Category::text, 5, "SII", type::character, 0},
    {"SUBSTRING", builtin::substring, Category::text, 5, "SII", type::character, 0},
    {"SUM", builtin::sum, Category::aggregate, 1, "N", 0, 0},
    {"TAN", builtin::tan, Category::mathematics, 1, "N", type::float64, 0},
    {"TANH", builtin::tanh, Category::mathematics, 1, "N", type::float64, 0},
    {"TOCHAR", builtin::tochar, Category::conversion, 2, "??", type::character, 0},
    {"TODATE", builtin::todate, Category::conversion, 2, "??", type::microtimestamp, 0},
    {"TOLOWER", builtin::tolower, Category::text, 1, "S", type::character, 0},
    {"TOUPPER", builtin::toupper, Category::text, 1, "S", type::character, 0},
    {"TRANSLATE", builtin::translate, Category::text, 3, "SSS", type::character, 0},
    {"TRIM", builtin::trim, Category::text, 1, "S", type::character, 0},
    {"TRUNNC", builtin::trunnc, Category::mathematics, 4, "NN", type::float64, 0},
    {"UPPER", builtin::upper, Category::text, 1, "S", type::character, 0},
    {"WEEKOFYEAR", builtin::weekofyear, Category::datetime, 1, "D", type::bigint, 0},
    {"Y0", builtin::y0, Category::mathematics, 1, "N", type::float64, 0},
    {"Y1", builtin::y1, Category::mathematics, 1, "N", type::float64, 0},
    {"YN", builtin::yn, Category::mathematics, 2, "NN", type::float64, 0},
};

constexpr int compare_names(const char *a, const char *b) {
  while (*a != '\0' && *a == *b) ++a, ++b;
  return static_cast<unsigned char>(*a) - static_cast<unsigned char>(*b);
}

constexpr bool table_in_order() {
  for (int i = 0; i < builtin_count; ++i) {
    if (builtin_table[i].number != i) return false;
    if (i > 0 && compare_names(builtin_table[i - 1].name, builtin_table[i].name) >= 0) return false;
  }
  return true;
}
static_assert(table_in_order());

// As compare_names, small letters of name counted as capitals.
int compare_folded(const char *name, const char *capitals) {
  for (;; ++name, ++capitals) {
    const char folded = ascii_upper(*name);
    if (folded != *capitals || folded == '\0')
      return static_cast<unsigned char>(folded) - static_cast<unsigned char>(*capitals);
  }
}

// Fewest and most arguments, by argument rule.
struct ArgumentRange {
  int low, high;
};
constexpr ArgumentRange argument_ranges[] = {
    {0, 0}, {1, 1}, {2, 2}, {3, 3}, {1, 2}, {2, 3}, {1, 3}, {2, 4}, {0, builtin_argument_limit},
};

bool check_count(const BuiltinRow &row, int count) {
  const ArgumentRange &range = argument_ranges[row.rule];
  if (count > range.high) return fail(status::arguments_too_many);
  return count >= range.low || fail(status::arguments_too_few);
}

TypeCode class_bits(char argument_class) {
  switch (argument_class) {
    case 'N':
      return TYPE_NUMERIC;
    case 'I':
      return TYPE_INTEGER;
    case 'S':
      return TYPE_CHARACTER;
    case 'D':
      return TYPE_DATETIME;
    default:
      return 0;
  }
}

bool check_classes(const BuiltinRow &row, const Value *arguments, int count) {
  constexpr StatusCode failures[] = {status::argument_1_type, status::argument_2_type,
                                     status::argument_3_type, status::argument_4_type};
  for (int i = 0; i < count; ++i)
    if (!arguments[i].is_null() && (arguments[i].type & class_bits(row.classes[i])) == 0)
      return fail(failures[i]);
  return true;
}

// Of the functions that give NULL for a NULL argument; conversions and aggregates look at their arguments
// themselves.
bool arguments_checked(const BuiltinRow &row) {
  return row.category <= Category::datetime;
}

bool any_null(const Value *arguments, int count) {
  for (int i = 0; i < count; ++i)
    if (arguments[i].is_null()) return true;
  return false;
}

TypeCode result_type(const BuiltinRow &row, const Value *arguments) {
  return row.result != 0 ? row.result : arguments[0].type;
}

void set_result(const BuiltinRow &row, const Value *arguments, Value &result) {
  result.kind = value_kind::computed;
  result.type = result_type(row, arguments);
  result.declared = row.display;
  result.flags = row.category == Category::aggregate ? value_aggregate : 0;
}

// Checks the arguments and makes the result empty; *null: it is NULL whatever the function does.
bool begin_result(const BuiltinRow &row, const Value *arguments, int count, Value &result, bool *null) {
  if (arguments_checked(row) && !check_classes(row, arguments, count)) return false;
  set_result(row, arguments, result);
  *null = arguments_checked(row) && any_null(arguments, count);
  if (!*null) return true;
  if (row.display != 0) result.type = row.display;
  result.flags = value_null;
  return true;
}

}  // namespace

const BuiltinRow *builtin_row(int number) {
  return number < 0 || number >= builtin_count ? nullptr : &builtin_table[number];
}

const BuiltinRow *builtin_find(const char *name) {
  int low = 0, high = builtin_count - 1;
  while (low <= high) {
    const int middle = (low + high) / 2;
    const int order = compare_folded(name, builtin_table[middle].name);
    if (order == 0) return &builtin_table[middle];
    if (order < 0) {
      high = middle - 1;
    } else {
      low = middle + 1;
    }
  }
  return nullptr;
}

bool builtin_prepare(int number, const Value *arguments, int count, Value &result) {
  const BuiltinRow *row = builtin_row(number);
  if (row == nullptr) return fail(status::function_argument);
  bool null;
  if (!check_count(*row, count) || !begin_result(*row, arguments, count, result, &null)) return false;
  if (number == builtin::nvl) {
    const Value &chosen = arguments[0].is_null() ? arguments[1] : arguments[0];
    result.type = chosen.type;
    result.declared = chosen.declared;
    result.flags = chosen.flags & value_null;
  }
  return true;
}

char *builtin_allocate(MemoryPool &pool, int64_t size) {
  if (!memory_pool_fits(pool, size)) err_set(status::function_memory);
  return static_cast<char *>(memory_pool_alloc(pool, size));
}

bool builtin_evaluate(int number, const Value *arguments, int count, MemoryPool &pool, Value &result) {
  const BuiltinRow *row = builtin_row(number);
  if (row == nullptr || row->category == Category::aggregate) return fail(status::function_argument);
  bool null;
  if (!begin_result(*row, arguments, count, result, &null)) return false;
  if (null) return true;
  switch (row->category) {
    case Category::mathematics:
      return builtin_mathematics(number, arguments, count, result);
    case Category::text:
      return builtin_text(number, arguments, count, pool, result);
    case Category::datetime:
      return builtin_datetime(number, arguments, count, pool, result);
    default:
      return builtin_conversion(number, arguments, count, pool, result);
  }
}

}  // namespace tovik
