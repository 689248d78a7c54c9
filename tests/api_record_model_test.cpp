// Random conditions, sort orders and row changes through the record interface against a model in memory.
#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <functional>
#include <optional>
#include <sstream>
#include <variant>

#include "record_support.h"

namespace tovik::test {
namespace {

enum { id, a, b, d, born, s, x, column_count };
const std::vector<const char *> names = {"id", "a", "b", "d", "born", "s", "x"};

// A number (a date as yyyymmdd) or a text; an empty one is NULL, which sorts lowest.
using Value = std::variant<double, std::string>;
using Cell = std::optional<Value>;
using Row = std::array<Cell, column_count>;

// As it is read.
std::string text_of(int column, const Cell &cell) {
  if (!cell) return "-";
  if (column >= s) return std::get<std::string>(*cell);
  char text[32];
  snprintf(text, sizeof text, column == d ? "%.14e" : "%.0f", std::get<double>(*cell));
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

class Model : public testing::TestWithParam<std::vector<const char *>> {
 protected:
  Model() {
    db.run(
        {"CREATE TABLE t (id cint NOT NULL, a int, b bigint, d double, born date, s char(4), x text(20, 2, "
         "20))"});
    for (const char *index : GetParam()) EXPECT_EQ(db.sql(index), 0) << index;
  }

  // ---- conditions ----

  // A value in a form of the interface.
  struct Operand {
    Value value;
    tovik_value form;
  };
  // An API data type in which the column takes and compares values.
  int type_for(int column) {
    if (column >= s) return TOVIK_CHAR;
    if (column == born) return random.one_in(2) ? TOVIK_CHAR : TOVIK_DATETIME;
    return TOVIK_INT8 + random.below(TOVIK_CHAR);
  }
  Operand operand(int column, int type) {
    Operand made = {};
    double number = random.below(column == id ? 60 : 9) - 3;
    if (column == born) number = 20240226 + random.below(4);  // to 29 February
    if (type == TOVIK_FLOAT || type == TOVIK_DOUBLE) number += random.below(2) / 2.0;
    std::string text;
    for (int length = random.below(4) + (column == x ? 1 : 0); length > 0; --length)
      text += random.one_in(2) ? 'a' : 'b';
    if (column < s) made.value = number;
    if (column >= s) made.value = text;
    const int64_t whole = static_cast<int64_t>(number);
    if (type <= TOVIK_INT64) memcpy(&made.form, &whole, size_t{1} << (type - 1));
    if (type == TOVIK_FLOAT) made.form.f = static_cast<float>(number);
    if (type == TOVIK_DOUBLE) made.form.d = number;
    if (type == TOVIK_DATETIME)
      made.form.datetime = {2024, 2, static_cast<int8_t>(whole % 100), 0, 0, 0, 0, 0};
    if (type == TOVIK_CHAR) made.form.text = texts.emplace_back(text_of(column, made.value)).c_str();
    return made;
  }
  Condition built(int result, const tovik_cond *cond, Meaning meaning) {
    EXPECT_EQ(result, 0) << tovik_geterr();
    return {cond, std::move(meaning)};
  }
  Condition leaf() {
    tovik_cond *cond = &conds.emplace_back();
    const int kind = random.below(8), column = random.below(column_count), op = TOVIK_EQ + random.below(6);
    const char *name = names[column];
    if (kind == 0) {
      const auto test = random.one_in(2) ? tovik_isnull : tovik_isnotnull;
      return built(test(cond, name), cond, [=](const Row &row) {
        return truth(row[column].has_value() == (test == tovik_isnotnull));
      });
    }
    if (kind == 1) {  // two columns of one kind
      const int second = column < born ? random.below(born) : column == born ? born : s + random.below(2);
      return built(tovik_compcol(cond, name, op, (std::string("t.") + names[second]).c_str()), cond,
                   [=](const Row &row) { return compare(op, row[column], row[second]); });
    }
    const int type = type_for(column);
    const Operand low = operand(column, type), high = operand(column, type);
    if (kind > 3)
      return built(tovik_comp(cond, name, op, type, &low.form), cond,
                   [=](const Row &row) { return compare(op, row[column], low.value); });
    const char from = random.one_in(2), to = random.one_in(2);
    return built(tovik_range(cond, name, type, &low.form, from, &high.form, to), cond, [=](const Row &row) {
      return both(compare(from ? TOVIK_GE : TOVIK_GT, row[column], low.value),
                  compare(to ? TOVIK_LE : TOVIK_LT, row[column], high.value));
    });
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

  // A value for the column of row, and the same for the interface. Numbers are cut to whole ones by all
  // columns but d.
  tovik_colval random_cell(int column, Row &row) {
    tovik_colval record;
    const int type = type_for(column);
    const Operand made = operand(column, type);
    row[column] = made.value;
    if (column < d) row[column] = std::trunc(std::get<double>(made.value)) + 0.0;
    const bool null = column != id && random.one_in(5);
    if (null) row[column].reset();
    EXPECT_EQ(tovik_setcol(&record, names[column], null ? 0 : type, null ? nullptr : &made.form), 0);
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
    std::vector<Row> changed = rows;
    Row &row = changed.emplace_back();
    for (int column = 0; column < column_count; ++column) values.push_back(random_cell(column, row));
    expect_done(record_code(tovik_insert(db, "t", values.data(), column_count)), changed);
  }
  void update(const Condition &condition) {
    Row change;
    const int first = random.below(column_count), second = (first + 1) % column_count;
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

  // The rows, or only their columns that sort them, are read as expected; all of them stand in any order.
  void expect_read(const std::vector<Row> &met, const tovik_cond *cond, const tovik_order *order,
                   const std::vector<int> &columns) {
    std::vector<const char *> read;
    std::vector<std::string> expected, found;
    for (int column : columns) read.push_back(names[column]);
    for (const Row &row : met) {
      std::string &text = expected.emplace_back();
      for (int column : columns) text += (column == columns[0] ? "" : ",") + text_of(column, row[column]);
    }
    std::istringstream rows_read(db.rows("t", read, cond, order));
    for (std::string row; std::getline(rows_read, row, ';');) found.push_back(row);
    if (columns.size() == column_count) {
      std::sort(expected.begin(), expected.end());
      std::sort(found.begin(), found.end());
    }
    EXPECT_EQ(found, expected);
  }
  void expect_rows(const Condition &condition) {
    const int first = random.below(x), second = (first + 1 + random.below(x - 1)) % x;
    const int down[] = {random.below(2), random.below(2)};
    tovik_order order;
    EXPECT_EQ(tovik_sort(&order, 2, names[first], down[0], names[second], down[1]), 0);
    std::vector<Row> met = rows;
    std::erase_if(met, [&](const Row &row) { return condition.holds(row) != yes; });
    std::sort(met.begin(), met.end(), [&](const Row &left, const Row &right) {
      if (left[first] != right[first]) return (left[first] < right[first]) == (down[0] == 0);
      return left[second] != right[second] && (left[second] < right[second]) == (down[1] == 0);
    });
    const bool sorted = random.one_in(2);
    expect_read(met, condition.cond, sorted ? &order : nullptr, {id, a, b, d, born, s, x});
    if (sorted) expect_read(met, condition.cond, &order, {first, second});
  }

  Random random;
  RecordDatabase db;
  std::vector<Row> rows, at_begin;
  bool inside = false;            // a transaction
  std::deque<std::string> texts;  // of operands
  std::deque<tovik_cond> conds;
};

TEST_P(Model, RandomConditionsAndChanges) {
  const Condition all = {nullptr, [](const Row &) { return yes; }};
  for (int step = 0; step < 250 && !HasFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    conds.clear();
    texts.clear();
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
  expect_sound(printed_by([&] { db.sql("INFO CHECK t"); }));
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
