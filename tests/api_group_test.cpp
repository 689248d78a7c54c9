// Random groups beside SQLite, over the same random tables. The number of statements is
// TOVIK_SQLITE_STATEMENTS.
#include <sqlite3.h>

#include <cstdlib>

#include "api_support.h"

namespace tovik::test {
namespace {

// Rows as text, with numbers in six digits, and sorted where their order is open.
std::vector<std::string> comparable(const std::string &rows, bool ordered) {
  std::vector<std::string> all;
  for (const std::string &row : parts(rows)) {
    all.emplace_back();
    for (const std::string &cell : parts(row, ',')) {
      char *end = nullptr, digits[32];
      snprintf(digits, sizeof digits, "%g", strtod(cell.c_str(), &end));
      all.back() += (*end == 0 ? digits : cell) + ",";
    }
  }
  if (!ordered) std::sort(all.begin(), all.end());
  return all;
}

class Groups : public testing::Test {
 protected:
  Groups() { EXPECT_EQ(sqlite3_open(":memory:", &sqlite_), SQLITE_OK); }
  ~Groups() override { sqlite3_close(sqlite_); }

  template <class... Choices>
  std::string one_of(Choices... choices) {
    const std::string all[] = {choices...};
    return all[random.below(sizeof...(choices))];
  }

  std::string in_sqlite(const std::string &sql) {
    std::string rows;
    const auto take = [](void *text, int count, char **cells, char **) {
      for (int i = 0; i < count; ++i)
        *static_cast<std::string *>(text) +=
            std::string(cells[i] == nullptr ? "-" : cells[i]) + ",;"[i + 1 == count];
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(sqlite_, sql.c_str(), take, &rows, nullptr), SQLITE_OK) << sql;
    return rows;
  }
  void both(const std::string &sql) {
    EXPECT_EQ(db.run(sql), 0) << sql;
    in_sqlite(sql);
  }

  void make_tables(bool again) {
    for (const std::string name : {"t", "u"}) {
      if (again) both("DROP TABLE " + name);
      both("CREATE TABLE " + name + " (id int, a int, b smallint, d double, s text)");
      EXPECT_EQ(random.one_in(2) ? 0 : db.run("CREATE INDEX " + name + "a ON " + name + " (a)"), 0);
      for (int rows = random.below(30); rows > 0; --rows)
        both("INSERT INTO " + name + " VALUES (0, " + one_of("1, ", "2, ", "3, ", "NULL, ") +
             one_of("-1, ", "0, ", "1, ", "NULL, ") + one_of("0.5, ", "1.5, ", "2.0, ", "NULL, ") +
             one_of("'p'", "'a text of a few chunks'", "'a text of chunks'", "NULL") + ")");
    }
  }

  std::string aggregate() {
    if (random.one_in(4)) return one_of("COUNT(*)", "COUNT(x.s)");
    return one_of("SUM(", "AVG(", "MIN(", "MAX(", "COUNT(") + one_of("x.a", "x.b", "x.d", last + ".b") +
           one_of(")", " + 1)", " * x.b)");
  }
  // Of groups.
  std::string condition(int deep) {
    if (deep > 0 && random.one_in(3)) return "NOT (" + condition(deep - 1) + ")";
    if (deep > 0 && random.one_in(2))
      return "(" + condition(deep - 1) + one_of(") AND (", ") OR (") + condition(deep - 1) + ")";
    const std::string tested = keys.empty() || random.one_in(2) ? aggregate() : keys[0];
    if (tested.ends_with(".s")) return tested + one_of(" = 'p'", " > 'ab'", " IS NULL");
    return tested + one_of(" > 1", " <= 2", " IS NULL", " IN (1, 2, 0.5)", " BETWEEN 0 AND 2");
  }

  void compare() {
    last = random.one_in(3) ? "y" : "x";
    keys.clear();
    for (int count = random.below(4); count > 0; --count) {
      const std::string key = one_of("x.a", "x.b", "x.d", "x.s", last + ".s");
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
    }
    std::string list, order, items = aggregate() + one_of("", ", " + aggregate() + " + " + aggregate());
    for (const std::string &key : keys) {
      list += (list.empty() ? " GROUP BY " : ", ") + key;
      order += (order.empty() ? " ORDER BY " : ", ") + key + one_of("", " DESC");
      items += one_of("", ", " + key, key.ends_with(".s") ? "" : ", COUNT(*) + 2 * " + key);
    }
    const bool ordered = !keys.empty() && random.one_in(2);
    const std::string sql =
        one_of("SELECT ", ordered ? "SELECT ALL " : "SELECT DISTINCT ") + items + " FROM t x" +
        (last == "y" ? ", u y WHERE x.a = y.a" : one_of("", " WHERE x.a = 2", " WHERE x.b < 1")) + list +
        one_of("", " HAVING " + condition(2)) + (ordered ? order : "");
    const auto ours = comparable(db.rows(sql), ordered), theirs = comparable(in_sqlite(sql), ordered);
    EXPECT_EQ(ours, theirs) << sql << db.rows("SELECT * FROM t") << "\n" << db.rows("SELECT * FROM u");
    groups += ours.size();
  }

  const Library library;
  TestDatabase db{"TYPE=MEMORY"};
  sqlite3 *sqlite_ = nullptr;
  Random random;
  std::string last;  // table of the statement, and what it groups by
  std::vector<std::string> keys;
  size_t groups = 0;
};

TEST_F(Groups, RandomGroupsAreThoseOfSqlite) {
  const char *wanted = getenv("TOVIK_SQLITE_STATEMENTS");
  const int statements = wanted == nullptr ? 600 : atoi(wanted);
  for (int i = 0; i < statements && !HasFailure(); ++i) {
    if (i % 25 == 0) make_tables(i > 0);
    compare();
  }
  EXPECT_GT(groups, static_cast<size_t>(statements));
}

}  // namespace
}  // namespace tovik::test
