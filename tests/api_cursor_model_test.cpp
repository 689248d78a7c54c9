// Queries of one thread - prepared, open, half read - among its changes of rows and definitions, in and
// outside transactions, against a model in memory. Whatever happens in between: a row that is fetched is one
// that its table holds now and that meets the condition now, no row comes twice, and a row that met the
// condition all the time is not missed.
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

#include "api_support.h"
#include "record_support.h"

namespace tovik::test {
namespace {

// ---- the model ----

struct Row {
  int k, a;
  std::string note;
  bool operator==(const Row &) const = default;
  std::string text() const { return std::to_string(k) + "," + std::to_string(a) + "," + note; }
};

struct Table {
  int identity;
  std::map<int, Row> rows;  // by k, which no row ever has again
  bool index_a, index_k;
};
using Schema = std::map<std::string, Table>;

const Table *table_of(const Schema &schema, int identity) {
  for (const auto &[name, table] : schema)
    if (table.identity == identity) return &table;
  return nullptr;
}

enum class Kind { rows, pairs, distinct, count };

struct Query {
  Kind kind;
  std::string x, y;
  int condition, v;
  std::string order;  // a column, or none

  bool meets(const Row &row) const {
    const bool results[] = {true,
                            row.a == v,
                            row.a > v,
                            row.a >= v && row.a <= v + 2,
                            row.k == v,
                            row.a == v || row.a == v + 2,
                            row.k > v && row.a != v,
                            row.a == v && row.k > v};
    return results[condition];
  }
  std::string where() const {
    const std::string n = std::to_string(v), two = std::to_string(v + 2);
    const std::string texts[] = {"x.k = x.k",
                                 "x.a = " + n,
                                 "x.a > " + n,
                                 "x.a BETWEEN " + n + " AND " + two,
                                 "x.k = " + n,
                                 "x.a IN (" + two + ", " + n + ")",
                                 "x.k > " + n + " AND x.a <> " + n,
                                 "x.k > " + n + " AND x.a = " + n};
    return texts[condition];
  }
  std::string sql() const {
    const std::string items[] = {"x.k AS xk, x.a AS xa, x.note AS xd",
                                 "x.k AS xk, x.a AS xa, x.note AS xd, y.k AS yk, y.a AS ya, y.note AS yd",
                                 "DISTINCT x.a AS xk", "COUNT(*) AS xk"};
    return "SELECT " + items[static_cast<int>(kind)] + " FROM " + x + " x" +
           (kind == Kind::pairs ? ", " + y + " y" : "") + " WHERE " + where() +
           (kind == Kind::pairs ? " AND y.a = x.a" : "") + (order.empty() ? "" : " ORDER BY x." + order);
  }
};

// A row, or two of a join, as it is read; (k, k or 0) names it.
using Names = std::pair<int, int>;

std::map<Names, std::string> results(const Query &query, const Table &x, const Table &y) {
  std::map<Names, std::string> all;
  for (const auto &[k, row] : x.rows) {
    if (!query.meets(row)) continue;
    if (query.kind != Kind::pairs) all[{k, 0}] = row.text();
    for (const auto &[other_k, other] : y.rows)
      if (query.kind == Kind::pairs && other.a == row.a) all[{k, other_k}] = row.text() + "," + other.text();
  }
  return all;
}

// ---- the two interfaces ----

class Reader {
 public:
  virtual ~Reader() = default;
  virtual int prepare(const Query &query) = 0;  // codes, 0: done
  virtual int execute() = 0;
  virtual int fetch() = 0;                               // 1, 0, or -code
  virtual int value(int column, std::string *text) = 0;  // 0 or a code
};

class StatementReader : public Reader {
 public:
  explicit StatementReader(kld_db *db) : session_(db) {}
  int prepare(const Query &query) override {
    return kld_api_pre_stmt_char(session_.statement(), query.sql().c_str()) == 0 ? 0 : error_code();
  }
  int execute() override { return kld_api_exec_stmt(session_.statement()) == 0 ? 0 : error_code(); }
  int fetch() override {
    const int more = kld_api_fetch_stmt(session_.statement());
    return more < 0 ? -error_code() : more;
  }
  int value(int column, std::string *text) override {
    char buffer[4096];
    int32_t not_null = 0;
    if (kld_api_get_data(session_.statement(), column + 1, TOVIK_CHAR, buffer, sizeof buffer, nullptr,
                         &not_null) != 0)
      return error_code();
    *text = buffer;
    return 0;
  }

 private:
  Session session_;
};

class RecordReader : public Reader {
 public:
  explicit RecordReader(tovik_db *db) : db_(db) {}
  ~RecordReader() override { tovik_closecur(cursor_); }
  int prepare(const Query &query) override {
    query_ = query;
    return 0;
  }
  int execute() override {
    cursor_ = plain() ? open_plain() : tovik_selectsql_char(db_, query_.sql().c_str());
    return cursor_ != nullptr ? 0 : tovik_geterr();
  }
  int fetch() override {
    const int more = tovik_fetchcur(cursor_);
    return more < 0 ? -tovik_geterr() : more;
  }
  int value(int column, std::string *text) override {
    const char *const names[] = {"xk", "xa", "xd", "yk", "ya", "yd"}, *const plain_names[] = {"k", "a",
                                                                                              "note"};
    char buffer[4096];
    const char *name = plain() ? plain_names[column] : names[column];
    if (tovik_getcol_char(cursor_, name, buffer, sizeof buffer) < 0) return tovik_geterr();
    *text = buffer;
    return 0;
  }

 private:
  bool plain() const { return query_.kind == Kind::rows && query_.condition < 3; }
  tovik_cur *open_plain() {
    tovik_cond cond;
    tovik_order order;
    const char *table = query_.x.c_str();
    if (query_.condition > 0 &&
        tovik_comp_i32(&cond, "a", query_.condition == 1 ? TOVIK_EQ : TOVIK_GT, query_.v) != 0)
      return nullptr;
    if (!query_.order.empty() && tovik_sort(&order, 1, query_.order.c_str(), 0) != 0) return nullptr;
    return tovik_opencur(db_, &table, 1, query_.condition > 0 ? &cond : nullptr,
                         query_.order.empty() ? nullptr : &order);
  }

  tovik_db *db_;
  Query query_{};
  tovik_cur *cursor_ = nullptr;
};

// ---- the test ----

// A record cursor over a SELECT tells of a value that cannot be read with a code of its own.
constexpr int missing_table = 141004, changed_value = 44003, record_value = 202141;

struct Open {
  enum { prepared, open, ended } state = prepared;
  Query query;
  std::unique_ptr<Reader> reader;
  int x = 0, y = 0;                        // identities of the tables
  std::set<Names> owed, delivered;         // what met the condition all the time; what was fetched
  std::multiset<std::string> values;       // DISTINCT, COUNT: what is still to come
  bool untouched = true;                   // nothing was written since it was executed
  std::optional<std::pair<int, Row>> row;  // fetched last: identity of its table, and the row
  bool row_changed = false;                // since then
  int last_order = INT32_MIN;
};

class CursorModel : public testing::TestWithParam<bool> {
 protected:
  CursorModel() {
    const std::string params = "PATH=" + directory.path() + ";BLOCK_SIZE=1024;LOCK_RETRY=0;BEGIN_RETRY=0";
    if (GetParam()) {
      EXPECT_EQ(tovik_create("m", params.c_str()), 0);
      record_db = tovik_open("m", params.c_str());
    } else {
      const std::string named = "NAME=m;" + params;
      EXPECT_EQ(kld_api_create_db(named.c_str()), 0);
      statement_db = kld_api_open_db(named.c_str());
      driver = kld_api_create_stmt(statement_db);
    }
  }
  ~CursorModel() override {
    queries.clear();
    if (driver != nullptr) kld_api_destroy_stmt(driver);
    kld_api_close_db(statement_db);
    tovik_close(record_db);
  }

  int run(const std::string &sql) {
    trace += sql.substr(0, 90) + "\n";
    if (!GetParam()) return kld_api_exec_sql_char(driver, sql.c_str()) == 0 ? 0 : error_code();
    return tovik_execsql_char(record_db, sql.c_str()) == 0 ? 0 : tovik_geterr();
  }
  // What no open query holds back, another thread may do as well.
  void change(const std::string &sql) {
    int code = -1;
    const auto work = [&] { code = run(sql); };
    if (queries.empty() && !inside && random.one_in(2)) {
      std::thread(work).join();
    } else {
      work();
    }
    EXPECT_EQ(code, 0) << sql;
    changed();
  }
  // Rows and tables are no longer what they were.
  void changed() {
    for (Open &query : queries) {
      query.untouched = false;
      const Table *x = table_of(schema, query.x), *y = table_of(schema, query.y);
      const auto now =
          x == nullptr || y == nullptr ? std::map<Names, std::string>{} : results(query.query, *x, *y);
      std::erase_if(query.owed, [&](const Names &names) { return !now.contains(names); });
      if (!query.row) continue;
      const Table *table = table_of(schema, query.row->first);
      const int k = query.row->second.k;
      query.row_changed |=
          table == nullptr || !table->rows.contains(k) || table->rows.at(k).note != query.row->second.note;
    }
  }

  std::string number(int limit) { return std::to_string(random.below(limit)); }
  std::string any_name() { return "t" + number(3); }
  std::string free_name() {
    for (const char *name : {"t0", "t1", "t2"})
      if (!schema.contains(name)) return name;
    return "";
  }
  std::pair<const std::string, Table> *any_table() {
    if (schema.empty()) return nullptr;
    return &*std::next(schema.begin(), random.below(static_cast<int>(schema.size())));
  }
  std::string note() {
    return std::string(static_cast<size_t>(1 + random.below(random.one_in(4) ? 300 : 40)),
                       static_cast<char>('a' + random.below(26)));
  }

  void change_definitions() {
    const std::string free = free_name();
    auto *entry = any_table();
    if (entry == nullptr || (!free.empty() && random.one_in(3))) {
      schema[free] = {++identities, {}, false, false};
      return change("CREATE TABLE " + free + " (k int, a int, note text(1, 6, 12))");
    }
    auto &[name, table] = *entry;
    const std::string id = std::to_string(table.identity);
    switch (random.below(8)) {
      case 0: {
        const std::string dropped = name;
        schema.erase(dropped);
        return change("DROP TABLE " + dropped);
      }
      case 1:
        // The indices keep their names, which hold the identity.
        if (table.index_a || table.index_k) return;
        table.rows.clear();
        table.identity = ++identities;
        return change("EMPTY " + name);
      case 2: {
        if (free.empty()) return;
        const std::string old = name;
        schema[free] = std::move(table);
        schema.erase(old);
        return change("RENAME " + old + " TO " + free);
      }
      case 3:
      case 4:
        table.index_k = !table.index_k;
        return change(table.index_k ? "CREATE UNIQUE INDEX k" + id + " ON " + name + " (k)"
                                    : "DROP INDEX k" + id);
      default:
        table.index_a = !table.index_a;
        return change(table.index_a ? "CREATE INDEX a" + id + " ON " + name + " (a)" : "DROP INDEX a" + id);
    }
  }

  void change_rows() {
    auto *entry = any_table();
    if (entry == nullptr) return;
    auto &[name, table] = *entry;
    Query where{Kind::rows, name, "", 1 + random.below(6), random.below(6), ""};
    if (where.condition == 4) where.v = keys > 0 ? random.below(keys) + 1 : 0;
    if (random.one_in(2)) {
      std::string sql = "INSERT INTO " + name + " VALUES ";
      for (int count = random.one_in(4) ? 20 : 3, i = 0; i < count; ++i) {
        const Row row = {++keys, random.below(6), note()};
        table.rows[row.k] = row;
        sql += (i == 0 ? "" : ", ") + std::to_string(row.k) + ", " + std::to_string(row.a) + ", '" +
               row.note + "'";
      }
      return change(sql);
    }
    std::string condition = " WHERE " + where.where();
    for (size_t at; (at = condition.find("x.")) != std::string::npos;) condition.erase(at, 2);
    const int how = random.below(4), a = random.below(6);
    const std::string text = note();
    for (auto row = table.rows.begin(); row != table.rows.end();) {
      const bool meets = where.meets(row->second);
      if (meets && how == 0) {
        row = table.rows.erase(row);
        continue;
      }
      if (meets && how != 2) row->second.a = a;
      if (meets && how > 1) row->second.note = text;
      ++row;
    }
    const std::string set_a = "a = " + std::to_string(a), set_note = "note = '" + text + "'";
    const std::string sets[] = {"", set_a, set_note, set_a + ", " + set_note};
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

  void prepare() {
    if (queries.size() == 4) return;
    Open query;
    const Kind kinds[] = {Kind::rows, Kind::rows, Kind::rows, Kind::pairs, Kind::distinct, Kind::count};
    query.query = {kinds[random.below(6)], any_name(), any_name(), random.below(8), random.below(6), ""};
    if (query.query.condition == 4) query.query.v = random.below(keys + 1);
    if (query.query.kind < Kind::distinct && random.one_in(3))
      query.query.order = random.one_in(2) ? "k" : "a";
    if (GetParam())
      query.reader = std::make_unique<RecordReader>(record_db);
    else
      query.reader = std::make_unique<StatementReader>(statement_db);
    trace += "prepare " + query.query.sql() + "\n";
    const int code = query.reader->prepare(query.query);
    if (code == 0) return queries.push_back(std::move(query));
    EXPECT_EQ(code, missing_table);
    EXPECT_FALSE(tables_there(query.query));
  }
  bool tables_there(const Query &query) {
    return schema.contains(query.x) && (query.kind != Kind::pairs || schema.contains(query.y));
  }

  // True when the query is done with.
  bool execute(Open &query) {
    trace += "execute " + query.query.sql() + "\n";
    const int code = query.reader->execute();
    if (!tables_there(query.query)) {
      EXPECT_EQ(code, missing_table);
      return random.one_in(3);
    }
    EXPECT_EQ(code, 0);
    query.state = Open::open;
    query.untouched = true;
    const Table &x = schema[query.query.x], &y = query.query.kind == Kind::pairs ? schema[query.query.y] : x;
    query.x = x.identity;
    query.y = y.identity;
    std::set<std::string> distinct;
    const auto now = results(query.query, x, y);
    for (const auto &[names, text] : now) {
      query.owed.insert(names);
      distinct.insert(std::to_string(x.rows.at(names.first).a));
    }
    if (query.query.kind == Kind::distinct) query.values = {distinct.begin(), distinct.end()};
    if (query.query.kind == Kind::count) query.values = {std::to_string(now.size())};
    return false;
  }

  bool fetch(Open &query) {
    trace += "fetch " + query.query.sql() + "\n";
    const Query &what = query.query;
    const int more = query.reader->fetch();
    query.row_changed = false;
    query.row.reset();
    if (what.kind >= Kind::distinct) {
      std::string text;
      EXPECT_EQ(more, query.values.empty() ? 0 : 1);
      if (more != 1) return true;
      EXPECT_EQ(query.reader->value(0, &text), 0);
      const auto value = query.values.find(text);
      EXPECT_TRUE(value != query.values.end()) << text;
      if (value != query.values.end()) query.values.erase(value);
      return false;
    }
    const Table *x = table_of(schema, query.x), *y = table_of(schema, query.y);
    if (x == nullptr || y == nullptr) {
      EXPECT_EQ(more, -missing_table);
      EXPECT_EQ(query.reader->fetch(), 0) << "after a failure the end";
      return true;
    }
    if (more != 1) {
      EXPECT_EQ(more, 0);
      for (const Names &names : query.owed)
        EXPECT_TRUE(query.delivered.contains(names)) << names.first << " " << names.second << " is missed";
      return true;
    }
    std::string values[6], text;
    const bool later = random.one_in(2);  // x's note is read when other statements have run
    for (int column = 0; column < (what.kind == Kind::pairs ? 6 : 3); ++column) {
      const auto row = x->rows.find(atoi(values[0].c_str()));
      if (column == 2 && later && row != x->rows.end())
        values[2] = row->second.note;
      else
        EXPECT_EQ(query.reader->value(column, &values[column]), 0);
      text += (column > 0 ? "," : "") + values[column];
    }
    const Names names = {atoi(values[0].c_str()), atoi(values[3].c_str())};
    const auto now = results(what, *x, *y);
    const auto found = now.find(names);
    EXPECT_EQ(found == now.end() ? "a row that does not meet the condition" : found->second, text);
    EXPECT_TRUE(query.delivered.insert(names).second) << text << " comes twice";
    const int key = atoi(values[what.order == "a" ? 1 : 0].c_str());
    EXPECT_TRUE(!query.untouched || what.order.empty() || key >= query.last_order) << key;
    query.last_order = key;
    if (found != now.end()) query.row = {query.x, x->rows.at(names.first)};
    return HasFailure();
  }

  // The row fetched last is read again after whatever has happened to it.
  void read_again(Open &query) {
    if (!query.row) return;
    std::string value;
    EXPECT_EQ(query.reader->value(1, &value), 0);
    EXPECT_EQ(value, std::to_string(query.row->second.a));
    const int code = query.reader->value(2, &value);
    EXPECT_TRUE(code == 0 || (query.row_changed && (code == changed_value || code == record_value))) << code;
    const Table *table = table_of(schema, query.row->first);
    const bool there = table != nullptr && table->rows.contains(query.row->second.k);
    EXPECT_TRUE(code != 0 || value == query.row->second.note ||
                (there && value == table->rows.at(query.row->second.k).note))
        << value;
  }

  void use_query() {
    if (queries.empty()) return;
    const auto at = queries.begin() + random.below(static_cast<int>(queries.size()));
    bool done = random.one_in(20);
    if (!done && at->state == Open::prepared) done = execute(*at);
    for (int count = random.below(4); !done && at->state == Open::open && count > 0; --count)
      done = fetch(*at);
    if (done) {
      queries.erase(at);
    }
  }

  void expect_model() {
    for (const auto &[name, table] : schema) {
      std::multiset<std::string> found, expected;
      const auto reader = [&]() -> std::unique_ptr<Reader> {
        if (GetParam()) return std::make_unique<RecordReader>(record_db);
        return std::make_unique<StatementReader>(statement_db);
      }();
      ASSERT_EQ(reader->prepare({Kind::rows, name, "", 0, 0, ""}), 0);
      ASSERT_EQ(reader->execute(), 0);
      while (reader->fetch() == 1) {
        std::string values[3];
        for (int column = 0; column < 3; ++column) EXPECT_EQ(reader->value(column, &values[column]), 0);
        found.insert(values[0] + "," + values[1] + "," + values[2]);
      }
      for (const auto &[k, row] : table.rows) expected.insert(row.text());
      EXPECT_EQ(found, expected) << name;
    }
  }

  TempDir directory;
  Library library{"HVI_TRAN_SYNC=OFF"};
  Random random;
  kld_db *statement_db = nullptr;
  kld_stmt *driver = nullptr;
  tovik_db *record_db = nullptr;
  Schema schema, before;
  bool inside = false;
  int identities = 0, keys = 0;
  std::vector<Open> queries;
  std::string trace;
};

TEST_P(CursorModel, RandomInterleavedStatements) {
  for (int step = 0; step < 1500 && !HasFailure(); ++step) {
    switch (random.below(12)) {
      case 0:
        change_definitions();
        break;
      case 1:
        begin_or_end();
        break;
      case 2:
      case 3:
        prepare();
        break;
      case 4:
      case 5:
        change_rows();
        break;
      default:
        use_query();
    }
    for (Open &query : queries)
      if (random.one_in(3)) read_again(query);
    if (step % 100 == 99) expect_model();
  }
  if (HasFailure()) std::cout << trace.substr(trace.size() > 4000 ? trace.size() - 4000 : 0);
}

// Row numbers, those that a table has and those that it had, asked for behind the changes of another
// connection: chains grow, and go to make room for others.
TEST(RowNumbers, RandomNumbersNameTheRowsThatAreThere) {
  const Library library("HVI_TRAN_SYNC=OFF");
  TestDatabase db("BLOCK_SIZE=1024");
  Session other(db.params());
  Random random;
  const auto fill = [&](const std::string &table, int rows) {
    std::string sql = "INSERT INTO " + table + " VALUES 'x'";
    while (--rows > 0) sql += ", 'x'";
    EXPECT_EQ(other.run(sql), 0);
  };
  std::set<int> ever;
  for (const char *table : {"t", "u"})
    EXPECT_EQ(other.run(std::string("CREATE TABLE ") + table + " (a char(90))"), 0);
  for (int round = 0; round < 40 && !testing::Test::HasFailure(); ++round) {
    if (random.one_in(4)) {
      for (const std::string sql : {"DROP TABLE t", "CREATE TABLE t (a char(90))"})
        EXPECT_EQ(other.run(sql), 0);
    }
    EXPECT_EQ(random.one_in(4) ? other.run("EMPTY u") : 0, 0);
    for (int i = random.below(4); i >= 0; --i) fill(random.one_in(3) ? "u" : "t", 1 + random.below(60));
    std::set<int> rows;
    std::istringstream numbers(other.rows("SELECT rowid FROM t"));
    for (std::string number; std::getline(numbers, number, ';');) rows.insert(atoi(number.c_str()));
    ever.insert(rows.begin(), rows.end());
    const bool scanned = random.one_in(3);
    EXPECT_EQ(scanned ? db.rows("SELECT COUNT(*) FROM t") : "", scanned ? std::to_string(rows.size()) : "");
    for (int tries = 0; tries < 60; ++tries) {
      const int number = *std::next(ever.begin(), random.below(static_cast<int>(ever.size())));
      EXPECT_EQ(db.rows("SELECT COUNT(*) FROM t WHERE rowid = " + std::to_string(number)),
                rows.contains(number) ? "1" : "0")
          << number << " in round " << round;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, CursorModel, testing::Bool(),
                         [](const auto &info) { return info.param ? "record" : "statement"; });

}  // namespace
}  // namespace tovik::test
