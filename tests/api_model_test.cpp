// Queries of one thread - prepared, open, half read - among its changes of rows and definitions, in and
// outside transactions, with random conditions and sort orders, through SQL and through records, against a
// model in memory. Whatever happens in between: a row that is fetched is one that its table holds now and
// that meets the condition now, no row comes twice, and a row that met the condition all the time is not
// missed.
#include <limits.h>

#include <array>
#include <cmath>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <variant>

#include "record_support.h"

namespace tovik::test {
namespace {

// ---- tables ----

enum { col_k, col_a, col_b, col_d, col_born, col_s, col_note, column_count };
const char *const names[] = {"k", "a", "b", "d", "born", "s", "note", "yk", "ynote"};  // with those of a join
const std::string definition =
    " (k int, a int, b bigint, d double, born date, s char(4), note text(1, 6, 12))";
const char *const signs[] = {" = ", " <> ", " < ", " > ", " <= ", " >= "};
const char *const index_columns[] = {"k", "a", "b", "d", "s", "a, b", "born, s"};

// A number (a date as yyyymmdd) or a text; an empty one is NULL, which sorts lowest.
using Cell = std::optional<std::variant<double, std::string>>;
using Row = std::array<Cell, column_count>;

// As it is read.
std::string text_of(int column, const Cell &cell) {
  if (!cell) return "-";
  if (column >= col_s) return std::get<std::string>(*cell);
  char text[32];
  snprintf(text, sizeof text, column == col_d ? "%.14e" : "%.0f", std::get<double>(*cell));
  return text;
}
struct Table {
  int identity;
  std::map<int, Row> rows = {};  // by k, which no row ever has again
  std::set<int> indices = {};
};
using Schema = std::array<std::optional<Table>, 3>;

std::string sql_name(int column) {
  return std::string("x.") + names[column];
}
std::string name_of(int table) {
  return "t" + std::to_string(table);
}

// ---- conditions ----

enum Truth { unknown = -1, no, yes };
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
Truth either(Truth left, Truth right) {
  return inverse(both(inverse(left), inverse(right)));
}

struct Condition {
  std::string sql;  // with the columns of a table x
  const tovik_cond *cond;
  std::function<Truth(const Row &)> holds;
};
const Condition all_rows = {"x.k = x.k", nullptr, [](const Row &) { return yes; }};

// A value in its forms.
struct Operand {
  Cell value;
  int type;
  tovik_value form;
  std::string sql;
};

struct Query {
  int x, y;    // tables
  bool pairs;  // a join of both
  bool plain;  // a cursor over the table
  Condition condition;
  std::vector<std::pair<int, bool>> order = {};  // two columns and whether they go down, or none

  bool before(const Row &left, const Row &right) const {
    for (const auto &[column, down] : order)
      if (left[column] != right[column]) return (left[column] < right[column]) != down;
    return false;
  }
  std::string sql() const {
    std::string text = "SELECT x.k, x.a, x.b, x.d, x.born, x.s, x.note";
    if (pairs) text += ", y.k AS yk, y.note AS ynote";
    text += " FROM " + name_of(x) + " x" + (pairs ? ", " + name_of(y) + " y" : "");
    text += " WHERE (" + condition.sql + (pairs ? ") AND y.a = x.a" : ")");
    const char *separator = " ORDER BY ";
    for (const auto &[column, down] : order) {
      text += separator + sql_name(column) + (down ? " DESC" : "");
      separator = ", ";
    }
    return text;
  }
};

// A record cursor over a SELECT tells of a value that cannot be read with a code of its own, the last one.
constexpr int missing_table = 141004, another_reads = 140003;
const std::set<std::string> changed_values = {"error 44003", "error 202141"};

using Names = std::pair<int, int>;  // of a row, or of two of a join: k, and k or 0

// A query through statements, or, with a database for them, through records. Codes, 0: done.
struct Open {
  Open(Query what, kld_db *statements, tovik_db *records)
      : query(std::move(what)), session(statements), records(records) {}
  ~Open() { tovik_closecur(cursor); }
  Open(const Open &) = delete;
  Open &operator=(const Open &) = delete;

  int prepare() {
    const bool later = records != nullptr;
    return later || kld_api_pre_stmt_char(session.statement(), query.sql().c_str()) == 0 ? 0 : error_code();
  }
  int execute() {
    if (records == nullptr) return kld_api_exec_stmt(session.statement()) == 0 ? 0 : error_code();
    cursor = query.plain ? open_plain() : tovik_selectsql_char(records, query.sql().c_str());
    return cursor != nullptr ? 0 : error_code();
  }
  // 1, 0, or -code.
  int fetch() {
    const int more = records != nullptr ? tovik_fetchcur(cursor) : kld_api_fetch_stmt(session.statement());
    return more < 0 ? -error_code() : more;
  }
  // Or "error CODE".
  std::string value(int column) {
    char buffer[4096] = "-";
    int32_t not_null = 1;
    const int result = records != nullptr ? tovik_getcol_char(cursor, names[column], buffer, sizeof buffer)
                                          : kld_api_get_data(session.statement(), column + 1, TOVIK_CHAR,
                                                             buffer, sizeof buffer, nullptr, &not_null);
    if (result < 0) return "error " + std::to_string(error_code());
    return column == col_d && strcmp(buffer, "-") != 0 ? text_of(col_d, atof(buffer)) : buffer;
  }

  Query query;
  Session session;
  tovik_db *records;
  tovik_cur *cursor = nullptr;
  bool executed = false;
  int x = 0, y = 0;                 // identities of the tables
  std::set<Names> owed, delivered;  // what met the condition all the time; what was fetched
  bool untouched = true;            // nothing was written since it was executed
  std::optional<Row> row, last;     // of x, fetched last; the one before
  bool row_changed = false;         // since then

 private:
  tovik_cur *open_plain() {
    tovik_order order;
    const std::string name = name_of(query.x);
    const char *const table = name.c_str();
    const bool sorted = !query.order.empty();
    if (sorted) {
      const auto &[first, second] = std::pair(query.order[0], query.order[1]);
      EXPECT_EQ(tovik_sort(&order, 2, names[first.first], first.second, names[second.first], second.second),
                0);
    }
    return tovik_opencur(records, &table, 1, query.condition.cond, sorted ? &order : nullptr);
  }
};

class Model : public testing::TestWithParam<bool> {
 protected:
  // ---- values and conditions ----

  // One of so many, often one of the first two: columns whose indices are there, too, and columns alone.
  int some(int limit) { return random.below(random.one_in(2) ? 2 : limit); }
  // An API data type in which the column takes and compares values.
  int type_for(int column) {
    if (column >= col_s) return TOVIK_CHAR;
    if (column == col_born) return random.one_in(2) ? TOVIK_CHAR : TOVIK_DATETIME;
    return column == col_k ? TOVIK_INT32 : TOVIK_INT8 + random.below(TOVIK_CHAR);
  }
  Operand operand(int column, int type, int longest_text = 3) {
    Operand made = {{}, type, {}, {}};
    double number = column == col_k ? random.below(keys + 1) : random.below(9) - 3;
    if (column == col_born) number = 20240226 + random.below(4);  // to 29 February
    if (type == TOVIK_FLOAT || type == TOVIK_DOUBLE) number += random.below(2) / 2.0;
    std::string text;
    for (int length = random.below(column == col_s ? 4 : longest_text); length >= 0; --length)
      text += random.one_in(2) ? 'a' : 'b';
    if (column < col_s) made.value = number;
    if (column >= col_s) made.value = text;
    const int64_t whole = static_cast<int64_t>(number);
    if (type <= TOVIK_INT64) memcpy(&made.form, &whole, size_t{1} << (type - 1));
    if (type == TOVIK_FLOAT) made.form.f = static_cast<float>(number);
    if (type == TOVIK_DOUBLE) made.form.d = number;
    if (type == TOVIK_DATETIME)
      made.form.datetime = {2024, 2, static_cast<int8_t>(whole % 100), 0, 0, 0, 0, 0};
    if (type == TOVIK_CHAR) made.form.text = texts.emplace_back(text_of(column, made.value)).c_str();
    made.sql = text_of(type < TOVIK_CHAR ? col_d : column, made.value);
    if (type >= TOVIK_CHAR) made.sql = "'" + made.sql + "'";
    if (type <= TOVIK_INT64) made.sql = std::to_string(whole);
    return made;
  }
  Condition built(int result, std::string sql, std::function<Truth(const Row &)> holds) {
    EXPECT_EQ(result, 0) << tovik_geterr();
    return {std::move(sql), &conds.back(), std::move(holds)};
  }
  Condition comparison(int column, int op, const Operand &with) {
    return built(tovik_comp(&conds.emplace_back(), names[column], op, with.type, &with.form),
                 sql_name(column) + signs[op - TOVIK_EQ] + with.sql,
                 [=](const Row &row) { return compare(op, row[column], with.value); });
  }
  Condition leaf() {
    const int kind = random.below(8), column = some(column_count), op = TOVIK_EQ + random.below(6);
    const bool from = random.one_in(2), to = random.one_in(2);
    const char *const name = names[column];
    const int type = type_for(column);
    const Operand low = operand(column, type), high = operand(column, type);
    if (kind > 3) return comparison(column, op, low);
    const Condition equal = comparison(column, TOVIK_EQ, low), other = comparison(column, TOVIK_EQ, high);
    tovik_cond *const cond = &conds.emplace_back();
    if (kind == 0)
      return built(from ? tovik_isnull(cond, name) : tovik_isnotnull(cond, name),
                   sql_name(column) + (from ? " IS NULL" : " IS NOT NULL"),
                   [=](const Row &row) { return truth(row[column].has_value() != from); });
    if (kind == 1) {  // two columns of one kind
      int second = column < col_born ? random.below(col_born) : column;
      if (column >= col_s) second = col_s + random.below(2);
      return built(tovik_compcol(cond, name, op, names[second]),
                   sql_name(column) + signs[op - TOVIK_EQ] + sql_name(second),
                   [=](const Row &row) { return compare(op, row[column], row[second]); });
    }
    if (kind == 2)
      return built(tovik_or(cond, equal.cond, other.cond),
                   sql_name(column) + " IN (" + low.sql + ", " + high.sql + ")",
                   [=](const Row &row) { return either(equal.holds(row), other.holds(row)); });
    const std::string exclusive[] = {" EXCLUSIVE", ""};
    return built(
        tovik_range(cond, name, type, &low.form, from, &high.form, to),
        sql_name(column) + " BETWEEN " + low.sql + exclusive[from] + " AND " + high.sql + exclusive[to],
        [=](const Row &row) {
          return both(compare(from ? TOVIK_GE : TOVIK_GT, row[column], low.value),
                      compare(to ? TOVIK_LE : TOVIK_LT, row[column], high.value));
        });
  }
  Condition tree(int depth) {
    const int kind = random.below(depth == 0 ? 1 : 8);
    if (kind < 3) return leaf();
    const Condition left = tree(depth - 1), right = tree(depth - 1);
    tovik_cond *const cond = &conds.emplace_back();
    if (kind == 3)
      return built(tovik_not(cond, left.cond), "NOT (" + left.sql + ")",
                   [=](const Row &row) { return inverse(left.holds(row)); });
    const bool all = kind < 7;
    return built((all ? tovik_and : tovik_or)(cond, left.cond, right.cond),
                 "(" + left.sql + (all ? " AND " : " OR ") + right.sql + ")",
                 [=](const Row &row) { return (all ? both : either)(left.holds(row), right.holds(row)); });
  }

  // ---- changes ----

  int run(const std::string &sql) { return GetParam() ? db.sql(sql) : driver.run(sql); }
  // By the statement, or with records by an action. What no open query holds back, another thread may do as
  // well.
  void change(const std::string &sql, const std::function<int()> &action = {}) {
    trace += sql.substr(0, 90) + "\n";
    const auto work = [&] { EXPECT_EQ(action && GetParam() ? action() : run(sql), 0) << sql; };
    if (queries.empty() && !inside && random.one_in(2)) {
      std::thread(work).join();
    } else {
      work();
    }
    changed();
  }
  // Rows and tables are no longer what they were.
  void changed() {
    for (Open &query : queries) {
      query.untouched = false;
      std::erase_if(query.owed, [&](const Names &row) { return !gives(query, row); });
      if (!query.row) continue;
      const Row *row = row_now(query);
      query.row_changed |= row == nullptr || (*row)[col_note] != (*query.row)[col_note];
    }
  }

  const Table *table_of(int identity) const {
    for (const auto &table : schema)
      if (table && table->identity == identity) return &*table;
    return nullptr;
  }
  static int key_of(const Row &row) { return static_cast<int>(std::get<double>(*row[col_k])); }
  // The row that was fetched last, as it is now.
  const Row *row_now(const Open &query) const {
    const Table *table = table_of(query.x);
    const int k = key_of(*query.row);
    return table != nullptr && table->rows.contains(k) ? &table->rows.at(k) : nullptr;
  }
  // Whether the query gives the row, or the pair, now.
  bool gives(const Open &query, const Names &row) const {
    const Table *x = table_of(query.x), *y = table_of(query.y);
    if (x == nullptr || y == nullptr || !x->rows.contains(row.first)) return false;
    const Row &outer = x->rows.at(row.first);
    if (query.query.condition.holds(outer) != yes) return false;
    return !query.query.pairs || (y->rows.contains(row.second) &&
                                  compare(TOVIK_EQ, y->rows.at(row.second)[col_a], outer[col_a]) == yes);
  }

  void change_definitions() {
    const int at = random.below(3), to = random.below(3), what = random.below(8);
    const std::string name = name_of(at);
    std::optional<Table> &table = schema[at];
    if (!table) {
      table = Table{++identities};
      return change("CREATE TABLE " + name + definition);
    }
    if (what == 0) {
      table.reset();
      return change("DROP TABLE " + name);
    }
    if (what == 1 && table->indices.empty()) {  // whose names hold the identity
      table = Table{++identities};
      return change("EMPTY " + name);
    }
    if (what == 2 && !schema[to]) {
      std::swap(table, schema[to]);
      return change("RENAME " + name + " TO " + name_of(to));
    }
    const int index = some(static_cast<int>(std::size(index_columns)));
    const std::string of = "INDEX i" + std::to_string(index) + "_" + std::to_string(table->identity);
    if (table->indices.erase(index) > 0) return change("DROP " + of);
    table->indices.insert(index);
    change((index == 0 ? "CREATE UNIQUE " : "CREATE ") + of + " ON " + name + " (" + index_columns[index] +
           ")");
  }

  // A value for the column of a row. Numbers are cut to whole ones by all columns but d.
  Operand random_cell(int column) {
    if (column != col_k && random.one_in(5)) return {{}, 0, {}, "NULL"};
    Operand made = operand(column, type_for(column), random.one_in(4) ? 300 : 40);
    if (column == col_k) made = {static_cast<double>(++keys), TOVIK_INT32, {}, std::to_string(keys)};
    if (column == col_k) made.form.i32 = keys;
    if (column < col_d) made.value = std::trunc(std::get<double>(*made.value)) + 0.0;
    return made;
  }
  // Puts one into a row; gives its form for records.
  tovik_colval set(Row &row, int column, const Operand &cell) {
    tovik_colval record;
    EXPECT_EQ(tovik_setcol(&record, names[column], cell.type, cell.type == 0 ? nullptr : &cell.form), 0);
    row[column] = cell.value;
    return record;
  }

  void insert(Table &table, const std::string &name) {
    std::string values;
    std::vector<tovik_colval> records;
    for (int more = random.one_in(4) ? 20 : 3; more > 0; --more) {
      Row row;
      for (int column = 0; column < column_count; ++column) {
        const Operand cell = random_cell(column);
        records.push_back(set(row, column, cell));
        values += (values.empty() ? "" : ", ") + cell.sql;
      }
      table.rows[keys] = row;
    }
    change("INSERT INTO " + name + " VALUES " + values, [&] {
      int code = 0;
      for (size_t at = 0; code == 0 && at < records.size(); at += column_count)
        code = record_code(tovik_insert(db, name.c_str(), &records[at], column_count));
      return code;
    });
  }
  void change_rows() {
    const int at = random.below(3);
    const std::string name = name_of(at);
    std::optional<Table> &table = schema[at];
    if (!table) return;
    if (random.one_in(2)) return insert(*table, name);
    const Condition condition = tree(some(3));
    std::string where = " WHERE " + condition.sql;
    for (size_t prefix; (prefix = where.find("x.")) != std::string::npos;) where.erase(prefix, 2);
    if (random.one_in(4)) {
      std::erase_if(table->rows, [&](const auto &row) { return condition.holds(row.second) == yes; });
      return change("DELETE FROM " + name + where,
                    [&] { return record_code(tovik_delete(db, name.c_str(), condition.cond)); });
    }
    const int first = 1 + random.below(col_note), second = first % col_note + 1;
    const Operand cells[] = {random_cell(first), random_cell(second)};
    Row changed;
    const tovik_colval values[] = {set(changed, first, cells[0]), set(changed, second, cells[1])};
    for (auto &[k, row] : table->rows)
      if (condition.holds(row) == yes) row[first] = changed[first], row[second] = changed[second];
    change("UPDATE " + name + " SET " + names[first] + " = " + cells[0].sql + ", " + names[second] + " = " +
               cells[1].sql + where,
           [&] { return record_code(tovik_update(db, name.c_str(), values, 2, condition.cond)); });
  }

  void begin_or_end() {
    if (!inside) {
      EXPECT_EQ(run("BEGIN WORK"), 0);
      before = schema;
    } else if (random.one_in(2)) {
      EXPECT_EQ(run("COMMIT WORK"), 0);
    } else {
      schema = before;
      EXPECT_EQ(run("ROLLBACK WORK"), 0);
      changed();
    }
    inside = !inside;
  }

  // ---- queries ----

  // Each of the following is true when the query is done with.
  bool prepare(Open &query) {
    trace += "prepare " + query.query.sql() + "\n";
    const int code = query.prepare();
    EXPECT_TRUE(code == 0 || (code == missing_table && !tables_there(query.query))) << code;
    return code != 0;
  }
  bool tables_there(const Query &query) const { return schema[query.x] && (!query.pairs || schema[query.y]); }

  bool execute(Open &query) {
    trace += "execute " + query.query.sql() + "\n";
    const bool there = tables_there(query.query);
    EXPECT_EQ(query.execute(), there ? 0 : missing_table);
    if (!there) return random.one_in(3);
    query.executed = query.untouched = true;
    query.x = schema[query.query.x]->identity;
    query.y = query.query.pairs ? schema[query.query.y]->identity : query.x;
    for (const auto &[k, row] : schema[query.query.x]->rows) {
      if (!query.query.pairs) query.owed.insert({k, 0});
      if (query.query.pairs)
        for (const auto &[other, its_row] : schema[query.query.y]->rows) query.owed.insert({k, other});
    }
    std::erase_if(query.owed, [&](const Names &row) { return !gives(query, row); });
    return false;
  }

  bool fetch(Open &query) {
    trace += "fetch " + query.query.sql() + "\n";
    const Query &what = query.query;
    const int more = query.fetch();
    query.row_changed = false;
    query.row.reset();
    const Table *x = table_of(query.x), *y = table_of(query.y);
    if (x == nullptr || y == nullptr) {
      EXPECT_EQ(more, -missing_table);
      EXPECT_EQ(query.fetch(), 0) << "after a failure the end";
      return true;
    }
    if (more != 1) {
      EXPECT_EQ(more, 0);
      for (const Names &row : query.owed)
        EXPECT_TRUE(query.delivered.contains(row)) << row.first << " " << row.second << " is missed";
      return true;
    }
    const Names row = {atoi(query.value(col_k).c_str()),
                       what.pairs ? atoi(query.value(column_count).c_str()) : 0};
    if (!gives(query, row)) {
      ADD_FAILURE() << row.first << " " << row.second << " does not meet the condition";
      return true;
    }
    query.row = x->rows.at(row.first);
    const int end = random.one_in(2) ? col_note : column_count;  // the note may be read later
    for (int column = col_a; column < end; ++column)
      EXPECT_EQ(query.value(column), text_of(column, (*query.row)[column])) << names[column];
    const std::string other = what.pairs ? text_of(col_note, y->rows.at(row.second)[col_note]) : "";
    EXPECT_EQ(what.pairs ? query.value(column_count + 1) : "", other);
    EXPECT_TRUE(query.delivered.insert(row).second) << row.first << " " << row.second << " comes twice";
    EXPECT_FALSE(query.untouched && query.last && what.before(*query.row, *query.last)) << row.first;
    query.last = query.row;
    return HasFailure();
  }

  // The row fetched last is read again after whatever has happened to it.
  void read_again(Open &query) {
    if (!query.row) return;
    EXPECT_EQ(query.value(col_a), text_of(col_a, (*query.row)[col_a]));
    const std::string note = query.value(col_note);
    const Row *row = row_now(query);
    EXPECT_TRUE(note == text_of(col_note, (*query.row)[col_note]) ||
                (row != nullptr && note == text_of(col_note, (*row)[col_note])) ||
                (query.row_changed && changed_values.contains(note)))
        << note;
  }

  void add_query() {
    if (queries.size() == 4) return;
    Query query = {random.below(3), random.below(3), random.one_in(3), GetParam() && random.one_in(2),
                   random.one_in(8) ? all_rows : tree(some(4))};
    query.plain = query.plain && !query.pairs;
    if (random.one_in(3)) {
      const int first = random.below(col_note), second = (first + 1 + random.below(col_note - 1)) % col_note;
      query.order = {{first, random.one_in(2)}, {second, random.one_in(2)}};
    }
    if (prepare(queries.emplace_back(query, statements, records))) queries.pop_back();
  }
  void use_query() {
    if (queries.empty()) return;
    const auto query = std::next(queries.begin(), random.below(static_cast<int>(queries.size())));
    bool done = random.one_in(20);
    if (!done && !query->executed) done = execute(*query);
    if (query->executed && !inside && random.one_in(80))  // what it holds back until it is closed
      std::thread([&] { EXPECT_EQ(run("CREATE TABLE refused (a int)"), another_reads); }).join();
    for (int more = random.one_in(3) ? INT_MAX : random.below(4); !done && query->executed && more > 0;
         --more)
      done = fetch(*query);
    if (done) queries.erase(query);
  }
  void expect_model() {
    for (int table = 0; table < 3; ++table) {
      Open all({table, table, false, GetParam(), all_rows}, statements, records);
      if (!prepare(all) && !execute(all) && all.executed)
        while (!fetch(all)) read_again(all);
    }
  }

  Random random;
  Library library{"HVI_TRAN_SYNC=OFF;HVI_TMP_BUF_SIZE=33554432"};  // for what is joined and sorted
  RecordDatabase db{"BLOCK_SIZE=1024;LOCK_RETRY=0;LOCK_SLEEP=1;BEGIN_RETRY=0"};
  Session driver{std::string("NAME=r;") + db.params()};
  kld_db *statements = GetParam() ? nullptr : driver.database();
  tovik_db *records = GetParam() ? static_cast<tovik_db *>(db) : nullptr;
  Schema schema, before;
  bool inside = false;
  int identities = 0, keys = 0;
  std::deque<std::string> texts;  // of operands
  std::deque<tovik_cond> conds;
  std::list<Open> queries;
  std::string trace;
};

TEST_P(Model, RandomInterleavedStatements) {
  for (int step = 0; step < 4000 && !HasFailure(); ++step) {
    const int what = random.below(12);
    if (what == 0) change_definitions();
    if (what == 1) begin_or_end();
    if (what == 2 || what == 3) add_query();
    if (what == 4 || what == 5) change_rows();
    if (what > 5) use_query();
    for (Open &query : queries)
      if (random.one_in(3)) read_again(query);
    if (step % 100 == 99) expect_model();
  }
  for (int table = 0; table < 3; ++table)
    if (schema[table]) expect_sound(printed_by([&] { run("INFO CHECK " + name_of(table)); }));
  if (HasFailure()) std::cout << trace.substr(trace.size() > 4000 ? trace.size() - 4000 : 0);
}

INSTANTIATE_TEST_SUITE_P(, Model, testing::Bool(),
                         [](const auto &info) { return info.param ? "record" : "statement"; });

// Row numbers, those that a table has, those that it had and any others, asked for in a transaction that made
// them and behind the changes of another connection: chains grow, go with a rollback, and go to make room for
// others. What the rows hold looks like the marks of rows that are there.
TEST(RowNumbers, RandomNumbersNameTheRowsThatAreThere) {
  const Library library("HVI_TRAN_SYNC=OFF");
  TestDatabase db("BLOCK_SIZE=1024");
  Session other(db.params());
  Random random;
  const std::string columns = " (a char(90))", row = "'" + std::string(90, 'A') + "'";
  for (const char *table : {"t", "u"}) EXPECT_EQ(other.run("CREATE TABLE " + (table + columns)), 0);
  std::set<int64_t> ever;
  for (int round = 0; round < 60 && !testing::Test::HasFailure(); ++round) {
    const bool inside = random.one_in(3), dropped = random.one_in(4), emptied = random.one_in(4);
    std::vector<std::string> changes;
    if (inside) changes.push_back("BEGIN WORK");
    if (dropped) changes.insert(changes.end(), {"DROP TABLE t", "CREATE TABLE t" + columns});
    if (emptied) changes.push_back("EMPTY u");
    for (int i = random.below(4); i >= 0; --i) {
      const bool another = round > 0 && random.one_in(3);  // the first round gives numbers of t
      std::string &insert =
          changes.emplace_back((another ? "INSERT INTO u VALUES " : "INSERT INTO t VALUES ") + row);
      for (int rows = random.below(60); rows > 0; --rows) insert += ", " + row;
    }
    for (const std::string &sql : changes) EXPECT_EQ(other.run(sql), 0) << sql;
    std::set<int64_t> rows;
    std::istringstream numbers(other.rows("SELECT rowid FROM t"));
    for (std::string number; std::getline(numbers, number, ';');) rows.insert(atoll(number.c_str()));
    ever.insert(rows.begin(), rows.end());
    Session &asked = inside ? other : db.session();
    const bool scanned = random.one_in(3);
    EXPECT_EQ(scanned ? asked.rows("SELECT COUNT(*) FROM t") : "",
              scanned ? std::to_string(rows.size()) : "");
    const int64_t ends[] = {0, -1, 4294967295, 99999999999};
    for (int tries = 0; tries < 60; ++tries) {
      int64_t number = tries < 4 ? ends[tries] : *ever.begin() - 9000 + random.below(20000);
      if (random.one_in(2)) number = *std::next(ever.begin(), random.below(static_cast<int>(ever.size())));
      EXPECT_EQ(asked.rows("SELECT COUNT(*) FROM t WHERE rowid = " + std::to_string(number)),
                rows.contains(number) ? "1" : "0")
          << number << " in round " << round;
    }
    EXPECT_EQ(inside ? other.run(random.one_in(2) ? "COMMIT WORK" : "ROLLBACK WORK") : 0, 0);
  }
}

}  // namespace
}  // namespace tovik::test
