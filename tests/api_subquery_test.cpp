// Random statements beside SQLite, over the same random tables: rows and changes must be the same. The number
// of statements is TOVIK_SQLITE_STATEMENTS.
#include <sqlite3.h>

#include "api_support.h"

namespace tovik::test {
namespace {

// SQL in both dialects: SQLite has neither ANY nor ALL.
struct Sql {
  std::string ours, theirs;

  Sql(std::string both) : ours(both), theirs(both) {}
  Sql(const char *both) : Sql(std::string(both)) {}
  Sql(std::string ours, std::string theirs) : ours(ours), theirs(theirs) {}
};

Sql operator+(const Sql &a, const Sql &b) {
  return {a.ours + b.ours, a.theirs + b.theirs};
}

class Sqlite {
 public:
  Sqlite() { EXPECT_EQ(sqlite3_open(":memory:", &db_), SQLITE_OK); }
  ~Sqlite() { sqlite3_close(db_); }

  std::string rows(const std::string &sql) {
    std::string all;
    const auto take = [](void *text, int count, char **values, char **) {
      std::string &rows = *static_cast<std::string *>(text);
      for (int i = 0; i < count; ++i)
        rows += (i > 0 ? "," : rows.empty() ? "" : ";") + std::string(values[i] == nullptr ? "-" : values[i]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), take, &all, nullptr), SQLITE_OK) << sqlite3_errmsg(db_) << sql;
    return all;
  }

 private:
  sqlite3 *db_ = nullptr;
};

enum class Kind { number, text };

// Conditions over the tables t0 to t2, all of (id int, a int, b int, d double, s varchar(10)).
class Conditions {
 public:
  explicit Conditions(Random &random) : random_(random) {}

  template <class... Choices>
  std::string one_of(Choices... choices) {
    const std::string all[] = {choices...};
    return all[random_.below(sizeof...(choices))];
  }
  std::string table() { return one_of("t0", "t1", "t2"); }
  std::string literal(Kind kind) {
    if (random_.one_in(12)) return "NULL";
    return kind == Kind::text ? one_of("'p'", "'q'", "'r'") : one_of("0", "1", "2", "3", "1.5");
  }

  // FROM one table or two; their columns can be named until leave.
  std::string enter() {
    sizes_.push_back(random_.one_in(4) ? 2 : 1);
    std::string from;
    for (size_t i = 0; i < sizes_.back(); ++i) {
      names_.push_back("x" + std::to_string(++tables_));
      from += (i == 0 ? " FROM " : ", ") + table() + " " + names_.back();
    }
    return from;
  }
  void enter(const std::string &name) {
    names_.push_back(name);
    sizes_.push_back(1);
  }
  void leave() {
    names_.resize(names_.size() - sizes_.back());
    sizes_.pop_back();
  }

  // Of the innermost tables, or of any of those around.
  std::string column(Kind kind, bool innermost = false) {
    const std::string name = kind == Kind::text ? "s" : one_of("id", "a", "a", "b", "d");
    const bool inside = innermost || random_.one_in(2);
    if (inside && sizes_.back() == 1 && random_.one_in(3)) return name;
    return table_name(inside ? sizes_.back() : names_.size()) + "." + name;
  }
  std::string table_name(size_t innermost) {
    return names_[names_.size() - 1 - static_cast<size_t>(random_.below(static_cast<int>(innermost)))];
  }
  std::string operand(Kind kind) {
    if (random_.one_in(6)) return literal(kind);
    return kind == Kind::number && random_.one_in(5) ? column(kind) + " + " + literal(kind) : column(kind);
  }
  std::string comparison() { return one_of(" = ", " = ", " <> ", " < ", " <= ", " > ", " >= "); }
  Kind kind() { return random_.one_in(3) ? Kind::text : Kind::number; }

  // deep: how many queries inside each other; wide: how many conditions.
  Sql condition(int deep, int wide) {
    const int choice = random_.below(deep > 0 ? 12 : 6);
    const Kind kind = choice == 9 ? Kind::number : this->kind();
    const std::string tested = operand(kind);
    switch (choice) {
      case 0:
        return column(kind) + " = " + column(kind);
      case 1:
        return tested + one_of(" IS NULL", " IS NOT NULL");
      case 2:
        return column(kind) + one_of(" IN (", " NOT IN (") + literal(kind) + ", " + literal(kind) + ")";
      case 3:
        if (wide > 0) return Sql("NOT (") + condition(deep, wide - 1) + ")";
        return tested + comparison() + operand(kind);
      case 4:
        if (wide > 0)
          return Sql("(") + condition(deep, wide - 1) + one_of(") AND (", ") OR (") +
                 condition(deep, wide - 1) + ")";
        return tested + comparison() + operand(kind);
      case 5:
        return column(kind) + " BETWEEN " + operand(kind) + " AND " + operand(kind);
      case 6:
      case 7:
        return tested + one_of(" IN (", " NOT IN (") + query(kind, deep - 1, wide) + ")";
      case 8:
        return one_of("EXISTS (", "NOT EXISTS (") + query(kind, deep - 1, wide) + ")";
      case 9:
        return Sql(tested) + comparison() + "(" + scalar(deep - 1, wide) + ")";
      default:
        return quantified(tested, query(kind, deep - 1, wide));
    }
  }

 private:
  Sql query(Kind kind, int deep, int wide) {
    const std::string from = enter();
    const std::string select = one_of("SELECT ", "SELECT ", "SELECT DISTINCT ") + operand(kind);
    const Sql where = random_.one_in(5) ? Sql("") : " WHERE " + condition(deep, wide - 1);
    leave();
    return Sql(select, select + " AS v") + from + where;
  }
  // One row: of an aggregate, or found by its key.
  Sql scalar(int deep, int wide) {
    if (random_.one_in(3))
      return "SELECT k." + one_of("a", "b", "d") + " FROM " + table() +
             " k WHERE k.id = " + table_name(names_.size()) + one_of(".id", ".a");
    const std::string from = enter();
    const std::string item = random_.one_in(4) ? "COUNT(*)"
                                               : one_of("MAX", "MIN", "SUM", "AVG", "COUNT") + "(" +
                                                     column(Kind::number, true) + ")";
    const size_t outer = static_cast<size_t>(random_.below(static_cast<int>(names_.size() - sizes_.back())));
    const std::string more = random_.one_in(4) ? " + " + names_[outer] + ".id" : "";
    const Sql where = condition(deep, wide - 1);
    leave();
    return "SELECT " + item + more + from + " WHERE " + where;
  }
  Sql quantified(const std::string &tested, const Sql &query) {
    const std::string holds = tested + comparison();
    const bool all = random_.one_in(2);
    const std::string some = " FROM (" + query.theirs + ") AS some WHERE ";
    const std::string test = all ? "(NOT (" + holds + "some.v))" : "(" + holds + "some.v)";
    return {holds + (all ? "ALL (" : one_of("ANY (", "SOME (")) + query.ours + ")",
            "(CASE WHEN EXISTS (SELECT 1" + some + test + ") THEN " + (all ? "0" : "1") +
                " WHEN EXISTS (SELECT 1" + some + test + " IS NULL) THEN NULL ELSE " + (all ? "1" : "0") +
                " END)"};
  }

  Random &random_;
  std::vector<std::string> names_;
  std::vector<size_t> sizes_;  // of the queries inside each other
  int tables_ = 0;
};

std::string sorted(const std::string &rows) {
  std::vector<std::string> all = parts(rows);
  std::sort(all.begin(), all.end());
  std::string text;
  for (const std::string &row : all) text += row + ";";
  return text;
}

class BesideSqlite : public testing::Test {
 protected:
  explicit BesideSqlite(const char *settings = "") : library(settings) {}

  void run() {
    const char *wanted = getenv("TOVIK_SQLITE_STATEMENTS");
    const int statements = wanted == nullptr ? 400 : atoi(wanted);
    for (int i = 0; i < statements && !HasFailure(); ++i) {
      if (i % 25 == 0) make_tables(i > 0);
      if (random.one_in(4)) {
        change();
      } else {
        select();
      }
    }
  }
  void make_tables(bool again) {
    for (const std::string name : {"t0", "t1", "t2"}) {
      if (again) both("DROP TABLE " + name);
      both("CREATE TABLE " + name + " (id int, a int, b int, d double, s varchar(10))");
      EXPECT_EQ(db.run("CREATE UNIQUE INDEX " + name + "_id ON " + name + " (id)"), 0);
      for (const std::string columns : {"a", "b, a", "s"}) {
        const std::string index = name + "_" + columns[0] + " ON " + name + " (" + columns + ")";
        EXPECT_EQ(random.one_in(2) ? db.run("CREATE (1, 4) INDEX " + index) : 0, 0);
      }
      for (int id = random.below(9); id >= 0; --id)
        both("INSERT INTO " + name + " VALUES (" + std::to_string(id) + ", " + value("4") + ", " +
             value("3") + ", " + value("0.5") + ", " + value("'q'") + ")");
    }
  }
  std::string value(const std::string &usual) {
    Conditions some(random);
    return random.one_in(4) ? usual : some.literal(usual[0] == '\'' ? Kind::text : Kind::number);
  }
  void both(const std::string &sql) {
    std::string whole = sql;  // a whole number for an int
    for (size_t at; sql.starts_with("INSERT") && (at = whole.find("1.5")) != std::string::npos;)
      whole.replace(at, 3, "2");
    EXPECT_EQ(db.run(whole), 0) << whole;
    sqlite.rows(whole);
  }

  void select() {
    Conditions conditions(random);
    const std::string from = conditions.enter();
    const Sql sql = "SELECT x1.id, x1.a, x1.s" + from + " WHERE " + conditions.condition(3, 2);
    EXPECT_EQ(sorted(db.rows(sql.ours)), sorted(sqlite.rows(sql.theirs))) << sql.ours << "\n"
                                                                          << sql.theirs << tables();
  }
  void change() {
    Conditions conditions(random);
    const std::string table = conditions.table(), all = "SELECT id, a, b, s FROM " + table;
    conditions.enter(table);
    const std::string change =
        random.one_in(3) ? "DELETE FROM " + table
                         : "UPDATE " + table + " SET " +
                               conditions.one_of("a = b + 1", "b = a", "a = NULL", "s = 'p', b = id");
    const Sql where = conditions.condition(2, 1);
    // A change of SQLite's may see rows that it has changed already.
    const Sql sql = {change + " WHERE " + where.ours,
                     change + " WHERE id IN (SELECT id FROM " + table + " WHERE " + where.theirs + ")"};
    const std::string before = tables();
    EXPECT_EQ(db.run(sql.ours), 0) << sql.ours;
    sqlite.rows(sql.theirs);
    EXPECT_EQ(sorted(db.rows(all)), sorted(sqlite.rows(all))) << sql.ours << "\n" << sql.theirs << before;
  }
  std::string tables() {
    std::string all;
    for (const std::string name : {"t0", "t1", "t2"})
      all += "\n" + name + " " + db.rows("SELECT * FROM " + name);
    return all;
  }

  const Library library;
  TestDatabase db{"TYPE=MEMORY"};
  Sqlite sqlite;
  Random random;
};

TEST_F(BesideSqlite, RandomSubqueriesSelectAndChangeTheSameRows) {
  run();
}

// Nothing that subqueries give can be kept.
class BesideSqliteWithoutRoom : public BesideSqlite {
 protected:
  BesideSqliteWithoutRoom() : BesideSqlite("HVI_TMP_BUF_SIZE=24") {}
};

TEST_F(BesideSqliteWithoutRoom, RandomSubqueriesSelectAndChangeTheSameRows) {
  run();
}

}  // namespace
}  // namespace tovik::test
