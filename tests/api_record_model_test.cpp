// Random conditions, sort orders and row changes through the record interface against a model in memory.
#include <algorithm>
#include <array>
#include <deque>
#include <functional>
#include <optional>
#include <variant>

#include "record_support.h"

namespace tovik::test {
namespace {

enum { id, a, b, d, born, s, x, column_count };
constexpr const char *names[] = {"id", "a", "b", "d", "born", "s", "x"};

// A number (a date as yyyymmdd) or a text; an empty one is NULL, which sorts lowest.
using Value = std::variant<double, std::string>;
using Cell = std::optional<Value>;
using Row = std::array<Cell, column_count>;

std::string text_of(const Cell &cell) {
  if (!cell) return "-";
  if (cell->index() == 1) return std::get<std::string>(*cell);
  char text[32];
  snprintf(text, sizeof text, "%.10g", std::get<double>(*cell));
  return text;
}
std::string text_of(const Row &row) {
  std::string text;
  for (const Cell &cell : row) text += text_of(cell) + ",";
  return text;
}

// ---- what conditions mean ----

enum Truth { unknown = -1, no, yes };
using Meaning = std::function<Truth(const Row &)>;
struct Condition {
  const tovik_cond *cond;
  Meaning holds;
};

Truth truth(bool holds) {
  return holds ? yes : no;
}
Truth compare(int op, const Cell &left, const Cell &right) {
  if (!left || !right) return unknown;
  const bool results[] = {left == right, left != right, left < right,
                          right < left,  left <= right, left >= right};
  return truth(results[op - TOVIK_EQ]);
}
Truth both(Truth left, Truth right) {
  if (left == no || right == no) return no;
  return left == unknown || right == unknown ? unknown : yes;
}
Truth inverse(Truth value) {
  return value == unknown ? unknown : truth(value == no);
}
bool like(const char *text, const char *pattern) {
  if (*pattern == 0) return *text == 0;
  if (*pattern == '%') return like(text, pattern + 1) || (*text != 0 && like(text + 1, pattern));
  return *text != 0 && (*pattern == '_' || *pattern == *text) && like(text + 1, pattern + 1);
}

// ---- values in the interface's forms; texts live as long as the test ----

class Operands {
 public:
  explicit Operands(Random &random) : random_(random) {}

  // A text column takes no empty text.
  Value value(int column, const char *letters = "abc") {
    if (column == born) return 20240226.0 + random_.below(4);  // to 29 February
    if (column < s)
      return column == d ? random_.below(12) / 2.0 - 2 : random_.below(column == id ? 60 : 9) - 3.0;
    std::string text;
    for (int length = random_.below(4) + (column == x ? 1 : 0); length > 0; --length)
      text += letters[static_cast<size_t>(random_.below(static_cast<int>(strlen(letters))))];
    return text;
  }
  // An API data type in which the column takes or compares values.
  int type(int column, const Value &lower, const Value &upper) {
    if (column >= s) return TOVIK_CHAR + random_.below(2);
    if (column == born) return TOVIK_CHAR + random_.below(3);
    const auto whole = [](const Value &v) {
      return std::get<double>(v) == static_cast<int>(std::get<double>(v));
    };
    return whole(lower) && whole(upper) ? TOVIK_INT8 + random_.below(8) : TOVIK_FLOAT + random_.below(2);
  }
  tovik_value form(int type, const Value &value) {
    tovik_value form = {};
    if (type == TOVIK_CHAR || type == TOVIK_WCHAR) {
      const std::string &text = texts_.emplace_back(text_of(Cell(value)));
      if (type == TOVIK_CHAR) form.text = text.c_str();
      if (type == TOVIK_WCHAR) form.wide = wide(wide_.emplace_back(text.begin(), text.end()).c_str());
      return form;
    }
    const double number = std::get<double>(value);
    const int64_t whole = static_cast<int64_t>(number);
    if (type <= TOVIK_INT64) memcpy(&form, &whole, size_t{1} << (type - 1));
    if (type == TOVIK_FLOAT) form.f = static_cast<float>(number);
    if (type == TOVIK_DOUBLE) form.d = number;
    if (type == TOVIK_DATETIME)
      form.datetime = {static_cast<int16_t>(whole / 10000),
                       static_cast<int8_t>(whole / 100 % 100),
                       static_cast<int8_t>(whole % 100),
                       0,
                       0,
                       0,
                       0,
                       0};
    return form;
  }

 private:
  Random &random_;
  std::deque<std::string> texts_;
  std::deque<std::u16string> wide_;
};

int comp(tovik_cond *cond, const char *column, int op, int type, const tovik_value &v) {
  const std::function<int()> typed[] = {[&] { return tovik_comp_i8(cond, column, op, v.i8); },
                                        [&] { return tovik_comp_i16(cond, column, op, v.i16); },
                                        [&] { return tovik_comp_i32(cond, column, op, v.i32); },
                                        [&] { return tovik_comp_i64(cond, column, op, v.i64); },
                                        [&] { return tovik_comp_float(cond, column, op, v.f); },
                                        [&] { return tovik_comp_double(cond, column, op, v.d); },
                                        [&] { return tovik_comp_char(cond, column, op, v.text); },
                                        [&] { return tovik_comp_wchar(cond, column, op, v.wide); },
                                        [&] { return tovik_comp_ctime(cond, column, op, &v.datetime); }};
  return typed[type - 1]();
}

int range(tovik_cond *cond, const char *column, int type, const tovik_value &low, char from,
          const tovik_value &high, char to) {
  const std::function<int()> typed[] = {
      [&] { return tovik_range_i8(cond, column, low.i8, from, high.i8, to); },
      [&] { return tovik_range_i16(cond, column, low.i16, from, high.i16, to); },
      [&] { return tovik_range_i32(cond, column, low.i32, from, high.i32, to); },
      [&] { return tovik_range_i64(cond, column, low.i64, from, high.i64, to); },
      [&] { return tovik_range_float(cond, column, low.f, from, high.f, to); },
      [&] { return tovik_range_double(cond, column, low.d, from, high.d, to); },
      [&] { return tovik_range(cond, column, TOVIK_CHAR, &low, from, &high, to); },
      [&] { return tovik_range_wchar(cond, column, low.wide, from, high.wide, to); },
      [&] { return tovik_range_ctime(cond, column, &low.datetime, from, &high.datetime, to); }};
  return typed[type - 1]();
}

int set(tovik_colval *record, const char *column, int type, const tovik_value &v) {
  const std::function<int()> typed[] = {[&] { return tovik_setcol_i8(record, column, v.i8); },
                                        [&] { return tovik_setcol_i16(record, column, v.i16); },
                                        [&] { return tovik_setcol_i32(record, column, v.i32); },
                                        [&] { return tovik_setcol_i64(record, column, v.i64); },
                                        [&] { return tovik_setcol_float(record, column, v.f); },
                                        [&] { return tovik_setcol_double(record, column, v.d); },
                                        [&] { return tovik_setcol_char(record, column, v.text); },
                                        [&] { return tovik_setcol_wchar(record, column, v.wide); },
                                        [&] { return tovik_setcol_ctime(record, column, &v.datetime); }};
  return typed[type - 1]();
}

class Model : public testing::TestWithParam<std::vector<const char *>> {
 protected:
  Model() {
    db.run(
        {"CREATE TABLE t (id cint NOT NULL, a int, b bigint, d double, born date, s char(4), x text(20, 2, "
         "20))"});
    for (const char *index : GetParam()) EXPECT_EQ(db.sql(index), 0) << index;
  }

  // ---- conditions ----

  Condition built(int result, const tovik_cond *cond, Meaning meaning) {
    EXPECT_EQ(result, 0) << tovik_geterr();
    return {cond, std::move(meaning)};
  }
  Condition leaf() {
    tovik_cond *cond = &conds.emplace_back();
    const int column = random.below(column_count), op = TOVIK_EQ + random.below(6);
    const Value low = operands.value(column == a && random.one_in(3) ? d : column, "ab"),
                high = operands.value(column);
    const int type = operands.type(column, low, high);
    const tovik_value v = operands.form(type, low);
    const char *name = names[column];
    switch (random.below(10)) {
      case 0: {
        const auto test = random.one_in(2) ? tovik_isnull : tovik_isnotnull;
        return built(test(cond, name), cond, [=](const Row &row) {
          return truth(row[column].has_value() == (test == tovik_isnotnull));
        });
      }
      case 1: {  // two columns of one kind
        const int second = column < born ? random.below(born) : column == born ? born : s + random.below(2);
        return built(tovik_compcol(cond, name, op, (std::string("t.") + names[second]).c_str()), cond,
                     [=](const Row &row) { return compare(op, row[column], row[second]); });
      }
      case 2:
      case 3: {
        const char from = random.one_in(2), to = random.one_in(2);
        return built(range(cond, name, type, v, from, operands.form(type, high), to), cond,
                     [=](const Row &row) {
                       return both(compare(from ? TOVIK_GE : TOVIK_GT, row[column], low),
                                   compare(to ? TOVIK_LE : TOVIK_LT, row[column], high));
                     });
      }
      case 4: {
        const int text = s + random.below(2);
        const std::string pattern = std::get<std::string>(operands.value(text, "ab%_"));
        return built(tovik_comp_char(cond, names[text], TOVIK_LIKE, operands.form(TOVIK_CHAR, pattern).text),
                     cond, [=](const Row &row) {
                       return row[text] ? truth(like(text_of(row[text]).c_str(), pattern.c_str())) : unknown;
                     });
      }
      default:
        return built(random.one_in(2) ? comp(cond, name, op, type, v) : tovik_comp(cond, name, op, type, &v),
                     cond, [=](const Row &row) { return compare(op, row[column], low); });
    }
  }
  Condition tree(int depth) {
    const int kind = random.below(depth == 0 ? 1 : 8);
    if (kind < 2) return leaf();
    tovik_cond *cond = &conds.emplace_back();
    const Condition left = tree(depth - 1);
    if (kind == 2)
      return built(tovik_not(cond, left.cond), cond,
                   [=](const Row &row) { return inverse(left.holds(row)); });
    const Condition right = tree(depth - 1);
    if (kind < 6)
      return built(tovik_and(cond, left.cond, right.cond), cond,
                   [=](const Row &row) { return both(left.holds(row), right.holds(row)); });
    return built(tovik_or(cond, left.cond, right.cond), cond, [=](const Row &row) {
      return inverse(both(inverse(left.holds(row)), inverse(right.holds(row))));
    });
  }

  // ---- changes ----

  tovik_colval random_cell(int column, Row &row) {
    tovik_colval record;
    const Value value = operands.value(column);
    const int type = operands.type(column, value, value);
    const tovik_value v = operands.form(type, value);
    row[column] = value;
    if (column == id || !random.one_in(5)) {
      EXPECT_EQ(random.one_in(2) ? set(&record, names[column], type, v)
                                 : tovik_setcol(&record, names[column], type, &v),
                0);
    } else {
      row[column].reset();
      EXPECT_EQ(tovik_setcolnull(&record, names[column]), 0);
    }
    return record;
  }
  // The engine has done what made the model changed, or refused it whole for equal keys.
  void expect_done(int code, std::vector<Row> changed) {
    std::vector<Cell> ids;
    for (const Row &row : changed) ids.push_back(row[id]);
    std::sort(ids.begin(), ids.end());
    const bool unique = !GetParam().empty() && strstr(GetParam()[0], "UNIQUE") != nullptr;
    const bool collides = unique && std::adjacent_find(ids.begin(), ids.end()) != ids.end();
    ASSERT_EQ(code, collides ? 143001 : 0);
    if (!collides) rows = std::move(changed);
    if (collides && inside) end_transaction(tovik_rollback(db), at_begin);
  }
  void insert() {
    std::vector<tovik_colval> values;
    Row row;
    for (int column = 0; column < column_count; ++column) values.push_back(random_cell(column, row));
    std::vector<Row> changed = rows;
    changed.push_back(row);
    expect_done(record_code(tovik_insert(db, "t", values.data(), column_count)), changed);
  }
  void update(const Condition &condition) {
    Row change;
    const int first = random.below(column_count),
              second = (first + 1 + random.below(column_count - 1)) % column_count;
    const tovik_colval values[] = {random_cell(first, change), random_cell(second, change)};
    std::vector<Row> changed = rows;
    for (Row &row : changed)
      if (condition.holds(row) == yes) row[first] = change[first], row[second] = change[second];
    expect_done(record_code(tovik_update(db, "t", values, 2, condition.cond)), changed);
  }
  void remove(const Condition &condition) {
    std::vector<Row> changed = rows;
    std::erase_if(changed, [&](const Row &row) { return condition.holds(row) == yes; });
    expect_done(record_code(tovik_delete(db, "t", condition.cond)), changed);
  }
  void end_transaction(int result, std::vector<Row> now) {
    EXPECT_EQ(result, 0) << tovik_geterr();
    rows = std::move(now);
    inside = false;
  }
  void begin_or_end() {
    if (inside)
      return random.one_in(2) ? end_transaction(tovik_commit(db), rows)
                              : end_transaction(tovik_rollback(db), at_begin);
    EXPECT_EQ(tovik_begin(db), 0) << tovik_geterr();
    at_begin = rows;
    inside = true;
  }

  // ---- what is read ----

  static Cell read_cell(tovik_cur *cursor, int column) {
    int64_t whole;
    double real;
    char text[16];
    if (column == d) return tovik_getcol_double(cursor, "d", &real) == 1 ? Cell(real) : Cell();
    if (column < born)
      return tovik_getcol_i64(cursor, names[column], &whole) == 1 ? Cell(static_cast<double>(whole)) : Cell();
    if (tovik_getcol_char(cursor, names[column], text, sizeof text) != 1) return Cell();
    return column == born ? Cell(atof(text)) : Cell(text);
  }
  void expect_rows(const Condition &condition) {
    const int first = random.below(column_count), second = random.below(column_count);
    const int down[] = {random.below(2), random.below(2)};
    const bool sorted = first < x && second < x && random.one_in(2);
    tovik_order order;
    EXPECT_EQ(tovik_sort(&order, 2, names[first], down[0], names[second], down[1]), 0);
    const auto before = [&](const Row &left, const Row &right) {
      if (left[first] != right[first]) return (left[first] < right[first]) == (down[0] == 0);
      return left[second] != right[second] && (left[second] < right[second]) == (down[1] == 0);
    };
    std::vector<std::string> expected, found;
    for (const Row &row : rows)
      if (condition.holds(row) == yes) expected.push_back(text_of(row));
    tovik_cur *cursor = db.open_cursor("t", condition.cond, sorted ? &order : nullptr);
    ASSERT_NE(cursor, nullptr) << tovik_geterr();
    for (Row previous; tovik_fetchcur(cursor) == 1;) {
      Row row;
      for (int column = 0; column < column_count; ++column) row[column] = read_cell(cursor, column);
      EXPECT_FALSE(sorted && !found.empty() && before(row, previous)) << text_of(previous) << text_of(row);
      previous = row;
      found.push_back(text_of(row));
    }
    EXPECT_EQ(tovik_geterr(), 0);
    tovik_closecur(cursor);
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
  }

  Random random;
  Operands operands{random};
  RecordDatabase db;
  std::vector<Row> rows, at_begin;
  bool inside = false;  // a transaction
  std::deque<tovik_cond> conds;
};

TEST_P(Model, RandomConditionsAndChanges) {
  const Condition all = {nullptr, [](const Row &) { return yes; }};
  for (int step = 0; step < 250 && !HasFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    conds.clear();
    if (random.one_in(inside ? 20 : 2)) begin_or_end();
    for (int i = random.below(4); i > 0; --i) insert();
    const Condition condition = tree(random.below(4));
    expect_rows(random.one_in(10) ? all : condition);
    if (random.one_in(5)) update(condition);
    if (random.one_in(8)) remove(condition);
  }
  expect_rows(all);
  if (inside) begin_or_end();
  db.reopen();
  expect_rows(all);
  db.expect_sound("t");
}

INSTANTIATE_TEST_SUITE_P(
    , Model,
    testing::Values(std::vector<const char *>{},
                    std::vector<const char *>{"CREATE UNIQUE INDEX ti ON t (id)", "CREATE INDEX ta ON t (a)",
                                              "CREATE INDEX tds ON t (born, s)"},
                    std::vector<const char *>{"CREATE INDEX tab ON t (a, b)", "CREATE INDEX td ON t (d)",
                                              "CREATE INDEX ts ON t (s)"}));

}  // namespace
}  // namespace tovik::test
