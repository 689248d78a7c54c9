// Queries of one thread - prepared, open, half read - among its changes of rows and definitions, in and
// outside transactions, against a model in memory. Whatever happens in between: a row that is fetched is one
// that its table holds now and that meets the condition now, no row comes twice, and a row that met the
// condition all the time is not missed.
#include <list>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

#include "record_support.h"

namespace tovik::test {
namespace {

// ---- the model ----

struct Row {
  int k, a;
  std::string note;
  std::string text() const { return std::to_string(k) + "," + std::to_string(a) + "," + note; }
};

struct Table {
  int identity;
  std::map<int, Row> rows = {};  // by k, which no row ever has again
  bool index_a = false, index_k = false;
};
struct Schema {
  std::optional<Table> tables[3];
};

std::string name_of(int table) {
  return "t" + std::to_string(table);
}

struct Condition {
  const char *sql;  // of a value and of the one two above it
  bool (*meets)(const Row &row, int v);
};
const Condition conditions[] = {
    {"x.k = x.k", [](const Row &, int) { return true; }},
    {"x.a = %d", [](const Row &row, int v) { return row.a == v; }},
    {"x.a > %d", [](const Row &row, int v) { return row.a > v; }},
    {"x.k = %d", [](const Row &row, int v) { return row.k == v; }},
    {"x.a BETWEEN %d AND %d", [](const Row &row, int v) { return row.a >= v && row.a <= v + 2; }},
    {"x.a IN (%2$d, %1$d)", [](const Row &row, int v) { return row.a == v || row.a == v + 2; }},
    {"x.k > %1$d AND x.a <> %1$d", [](const Row &row, int v) { return row.k > v && row.a != v; }},
    {"x.k > %1$d AND x.a = %1$d", [](const Row &row, int v) { return row.k > v && row.a == v; }},
};
constexpr int all_rows = 0, key_is = 3;

struct Query {
  int x, y;    // tables
  bool pairs;  // a join of both
  int condition, v;
  std::string order = "";  // a column, or none

  bool meets(const Row &row) const { return conditions[condition].meets(row, v); }
  std::string where() const {
    char text[100];
    snprintf(text, sizeof text, conditions[condition].sql, v, v + 2);
    return std::string(" WHERE ") + text;
  }
  std::string sql() const {
    const std::string of_y = pairs ? ", y.k AS yk, y.a AS ya, y.note AS yd" : "";
    return "SELECT x.k AS xk, x.a AS xa, x.note AS xd" + of_y + " FROM " + name_of(x) + " x" +
           (pairs ? ", " + name_of(y) + " y" : "") + where() + (pairs ? " AND y.a = x.a" : "") +
           (order.empty() ? "" : " ORDER BY x." + order);
  }
};

// ---- the two interfaces ----

// A query through statements, or, with a database for them, through records. Codes, 0: done.
class Reader {
 public:
  Reader(const Query &query, kld_db *statements, tovik_db *records)
      : session_(statements), records_(records), query_(query) {}
  ~Reader() { tovik_closecur(cursor_); }
  Reader(const Reader &) = delete;
  Reader &operator=(const Reader &) = delete;

  int prepare() {
    if (records_ != nullptr) return 0;
    return kld_api_pre_stmt_char(session_.statement(), query_.sql().c_str()) == 0 ? 0 : error_code();
  }
  int execute() {
    if (records_ == nullptr) return kld_api_exec_stmt(session_.statement()) == 0 ? 0 : error_code();
    cursor_ = plain() ? open_plain() : tovik_selectsql_char(records_, query_.sql().c_str());
    return cursor_ != nullptr ? 0 : error_code();
  }
  // 1, 0, or -code.
  int fetch() {
    const int more = records_ != nullptr ? tovik_fetchcur(cursor_) : kld_api_fetch_stmt(session_.statement());
    return more < 0 ? -error_code() : more;
  }
  int value(int column, std::string *text) {
    const char *const names[] = {"xk", "xa", "xd", "yk", "ya", "yd"}, *const of_table[] = {"k", "a", "note"};
    const char *const name = plain() ? of_table[column] : names[column];
    char buffer[4096];
    int32_t not_null = 0;
    const int result = records_ != nullptr ? tovik_getcol_char(cursor_, name, buffer, sizeof buffer)
                                           : kld_api_get_data(session_.statement(), column + 1, TOVIK_CHAR,
                                                              buffer, sizeof buffer, nullptr, &not_null);
    if (result < 0) return error_code();
    *text = buffer;
    return 0;
  }

 private:
  bool plain() const { return !query_.pairs && query_.condition < key_is; }
  tovik_cur *open_plain() {
    tovik_cond cond;
    tovik_order order;
    const std::string name = name_of(query_.x);
    const char *const table = name.c_str();
    const bool all = query_.condition == all_rows, sorted = !query_.order.empty();
    EXPECT_EQ(tovik_comp_i32(&cond, "a", query_.condition == 1 ? TOVIK_EQ : TOVIK_GT, query_.v), 0);
    EXPECT_EQ(sorted ? tovik_sort(&order, 1, query_.order.c_str(), 0) : 0, 0);
    return tovik_opencur(records_, &table, 1, all ? nullptr : &cond, sorted ? &order : nullptr);
  }

  Session session_;
  tovik_db *records_;
  const Query query_;
  tovik_cur *cursor_ = nullptr;
};

// ---- the test ----

// A record cursor over a SELECT tells of a value that cannot be read with a code of its own.
constexpr int missing_table = 141004, changed_value = 44003, record_value = 202141;

using Names = std::pair<int, int>;  // of a row, or of two of a join: k, and k or 0

struct Open {
  Open(const Query &what, kld_db *statements, tovik_db *records)
      : query(what), reader(what, statements, records) {}

  Query query;
  Reader reader;
  bool executed = false;
  int x = 0, y = 0;                 // identities of the tables
  std::set<Names> owed, delivered;  // what met the condition all the time; what was fetched
  bool untouched = true;            // nothing was written since it was executed
  std::optional<Row> row;           // of x, fetched last
  bool row_changed = false;         // since then
  int last_order = INT32_MIN;
};

class CursorModel : public testing::TestWithParam<bool> {
 protected:
  // ---- changes ----

  int run(const std::string &sql) {
    trace += sql.substr(0, 90) + "\n";
    return GetParam() ? db.sql(sql) : driver.run(sql);
  }
  // What no open query holds back, another thread may do as well.
  void change(const std::string &sql) {
    const auto work = [&] { EXPECT_EQ(run(sql), 0) << sql; };
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
      const auto now = results(query);
      std::erase_if(query.owed, [&](const Names &names) { return !now.contains(names); });
      if (!query.row) continue;
      const Row *row = row_now(query);
      query.row_changed |= row == nullptr || row->note != query.row->note;
    }
  }

  const Table *table_of(int identity) const {
    for (const auto &table : schema.tables)
      if (table && table->identity == identity) return &*table;
    return nullptr;
  }
  // The row that was fetched last, as it is now.
  const Row *row_now(const Open &query) const {
    const Table *table = table_of(query.x);
    return table != nullptr && table->rows.contains(query.row->k) ? &table->rows.at(query.row->k) : nullptr;
  }
  // What the query gives now, as it is read; nothing when a table is gone.
  std::map<Names, std::string> results(const Open &query) const {
    std::map<Names, std::string> all;
    const Table *x = table_of(query.x), *y = table_of(query.y);
    if (x == nullptr || y == nullptr) return all;
    for (const auto &[k, row] : x->rows) {
      if (!query.query.meets(row)) continue;
      if (!query.query.pairs) all[{k, 0}] = row.text();
      for (const auto &[other_k, other] : y->rows)
        if (query.query.pairs && other.a == row.a) all[{k, other_k}] = row.text() + "," + other.text();
    }
    return all;
  }

  std::string note() {
    return std::string(static_cast<size_t>(1 + random.below(random.one_in(4) ? 300 : 40)),
                       static_cast<char>('a' + random.below(26)));
  }
  Query random_query(bool pairs, int first_condition) {
    const int condition =
        first_condition + random.below(static_cast<int>(std::size(conditions)) - first_condition);
    return {random.below(3), random.below(3), pairs, condition,
            random.below(condition == key_is ? keys + 1 : 6)};
  }

  void change_definitions() {
    const int at = random.below(3), to = random.below(3), what = random.below(8);
    const std::string name = name_of(at);
    std::optional<Table> &table = schema.tables[at];
    if (!table) {
      table = Table{++identities};
      return change("CREATE TABLE " + name + " (k int, a int, note text(1, 6, 12))");
    }
    if (what == 0) {
      table.reset();
      return change("DROP TABLE " + name);
    }
    if (what == 1 && !table->index_a && !table->index_k) {  // whose names hold the identity
      table = Table{++identities};
      return change("EMPTY " + name);
    }
    if (what == 2 && !schema.tables[to]) {
      std::swap(table, schema.tables[to]);
      return change("RENAME " + name + " TO " + name_of(to));
    }
    const bool by_k = what < 5;
    bool &index = by_k ? table->index_k : table->index_a;
    index = !index;
    const std::string column = by_k ? "k" : "a", of = "INDEX " + column + std::to_string(table->identity);
    if (!index) return change("DROP " + of);
    change((by_k ? "CREATE UNIQUE " : "CREATE ") + of + " ON " + name + " (" + column + ")");
  }

  void change_rows() {
    const Query where = random_query(false, 1);
    std::optional<Table> &table = schema.tables[where.x];
    if (!table) return;
    const std::string name = name_of(where.x);
    if (random.one_in(2)) {
      std::string values;
      for (int more = random.one_in(4) ? 20 : 3; more > 0; --more) {
        const Row row = {++keys, random.below(6), note()};
        table->rows[row.k] = row;
        values += (values.empty() ? "" : ", ") + std::to_string(row.k) + ", " + std::to_string(row.a) +
                  ", '" + row.note + "'";
      }
      return change("INSERT INTO " + name + " VALUES " + values);
    }
    const int how = random.below(4), a = random.below(6);
    const std::string text = note();
    std::erase_if(table->rows, [&](const auto &row) { return how == 0 && where.meets(row.second); });
    for (auto &[k, row] : table->rows) {
      if (!where.meets(row)) continue;
      if (how != 2) row.a = a;
      if (how > 1) row.note = text;
    }
    const std::string set_a = "a = " + std::to_string(a), set_note = "note = '" + text + "'";
    const std::string sets[] = {"", set_a, set_note, set_a + ", " + set_note};
    std::string condition = where.where();
    for (size_t prefix; (prefix = condition.find("x.")) != std::string::npos;) condition.erase(prefix, 2);
    change(how == 0 ? "DELETE FROM " + name + condition : "UPDATE " + name + " SET " + sets[how] + condition);
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
    const int code = query.reader.prepare();
    EXPECT_TRUE(code == 0 || (code == missing_table && !tables_there(query.query))) << code;
    return code != 0;
  }
  bool tables_there(const Query &query) const {
    return schema.tables[query.x] && (!query.pairs || schema.tables[query.y]);
  }

  bool execute(Open &query) {
    trace += "execute " + query.query.sql() + "\n";
    const bool there = tables_there(query.query);
    EXPECT_EQ(query.reader.execute(), there ? 0 : missing_table);
    if (!there) return random.one_in(3);
    query.executed = query.untouched = true;
    query.x = schema.tables[query.query.x]->identity;
    query.y = query.query.pairs ? schema.tables[query.query.y]->identity : query.x;
    for (const auto &[names, text] : results(query)) query.owed.insert(names);
    return false;
  }

  bool fetch(Open &query) {
    trace += "fetch " + query.query.sql() + "\n";
    const Query &what = query.query;
    const int more = query.reader.fetch();
    query.row_changed = false;
    query.row.reset();
    std::string values[6], text;
    const Table *x = table_of(query.x), *y = table_of(query.y);
    if (x == nullptr || y == nullptr) {
      EXPECT_EQ(more, -missing_table);
      EXPECT_EQ(query.reader.fetch(), 0) << "after a failure the end";
      return true;
    }
    if (more != 1) {
      EXPECT_EQ(more, 0);
      for (const Names &names : query.owed)
        EXPECT_TRUE(query.delivered.contains(names)) << names.first << " " << names.second << " is missed";
      return true;
    }
    const bool later = random.one_in(2);  // x's note is read when other statements have run
    for (int column = 0; column < (what.pairs ? 6 : 3); ++column) {
      const auto row = x->rows.find(atoi(values[0].c_str()));
      if (column == 2 && later && row != x->rows.end())
        values[2] = row->second.note;
      else
        EXPECT_EQ(query.reader.value(column, &values[column]), 0);
      text += (column > 0 ? "," : "") + values[column];
    }
    const Names names = {atoi(values[0].c_str()), atoi(values[3].c_str())};
    const auto now = results(query);
    const auto found = now.find(names);
    EXPECT_EQ(found == now.end() ? "a row that does not meet the condition" : found->second, text);
    EXPECT_TRUE(query.delivered.insert(names).second) << text << " comes twice";
    const int key = atoi(values[what.order == "a" ? 1 : 0].c_str());
    EXPECT_TRUE(!query.untouched || what.order.empty() || key >= query.last_order) << key;
    query.last_order = key;
    if (found != now.end()) query.row = x->rows.at(names.first);
    return HasFailure();
  }

  // The row fetched last is read again after whatever has happened to it.
  void read_again(Open &query) {
    if (!query.row) return;
    std::string value;
    EXPECT_EQ(query.reader.value(1, &value), 0);
    EXPECT_EQ(value, std::to_string(query.row->a));
    const int code = query.reader.value(2, &value);
    EXPECT_TRUE(code == 0 || (query.row_changed && (code == changed_value || code == record_value))) << code;
    const Row *row = row_now(query);
    EXPECT_TRUE(code != 0 || value == query.row->note || (row != nullptr && value == row->note)) << value;
  }

  void add_query() {
    if (queries.size() == 4) return;
    Query query = random_query(random.one_in(4), 0);
    if (random.one_in(3)) query.order = random.one_in(2) ? "k" : "a";
    if (prepare(queries.emplace_back(query, statements, records))) queries.pop_back();
  }
  void use_query() {
    if (queries.empty()) return;
    const auto query = std::next(queries.begin(), random.below(static_cast<int>(queries.size())));
    bool done = random.one_in(20);
    if (!done && !query->executed) done = execute(*query);
    for (int more = random.below(4); !done && query->executed && more > 0; --more) done = fetch(*query);
    if (done) queries.erase(query);
  }
  void expect_model() {
    for (int table = 0; table < 3; ++table) {
      Open all({table, table, false, all_rows, 0}, statements, records);
      if (!prepare(all) && !execute(all) && all.executed)
        while (!fetch(all)) read_again(all);
    }
  }

  Random random;
  Library library{"HVI_TRAN_SYNC=OFF"};
  RecordDatabase db{"BLOCK_SIZE=1024;LOCK_RETRY=0;BEGIN_RETRY=0"};
  Session driver{std::string("NAME=r;") + db.params()};
  kld_db *statements = GetParam() ? nullptr : driver.database();
  tovik_db *records = GetParam() ? static_cast<tovik_db *>(db) : nullptr;
  Schema schema, before;
  bool inside = false;
  int identities = 0, keys = 0;
  std::list<Open> queries;
  std::string trace;
};

TEST_P(CursorModel, RandomInterleavedStatements) {
  for (int step = 0; step < 1500 && !HasFailure(); ++step) {
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
  if (HasFailure()) std::cout << trace.substr(trace.size() > 4000 ? trace.size() - 4000 : 0);
}

INSTANTIATE_TEST_SUITE_P(, CursorModel, testing::Bool(),
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
      std::string &insert = changes.emplace_back(random.one_in(3) ? "INSERT INTO u VALUES " + row
                                                                  : "INSERT INTO t VALUES " + row);
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
