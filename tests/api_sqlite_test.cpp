// Random statements beside SQLite, over the same random tables: rows, groups and changes must be the same,
// with subqueries and groups inside each other. The number of statements is TOVIK_SQLITE_STATEMENTS.
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

enum Kind { number, text };

// One statement over the tables t0 to t2, all of (id, a, b, d: numbers, s: a text).
class Statement {
 public:
  // keys: how many columns there may be in a GROUP BY.
  Statement(Random &random, int keys) : random_(random), keys_(keys) {}

  Sql select() { return random_.one_in(3) ? groups(nullptr, keys_, 2, 2) : rows(nullptr, 3, 2); }
  // A change of the table. One of SQLite's may see rows that it has changed already.
  Sql change(const std::string &table) {
    scopes_.push_back({{table}});
    const std::string change =
        random_.one_in(3)
            ? "DELETE FROM " + table
            : "UPDATE " + table + " SET " + one_of("a = b + 1", "b = a", "a = NULL", "s = 'p', b = id");
    const Sql where = condition(2, 1);
    return {change + " WHERE " + where.ours,
            change + " WHERE id IN (SELECT id FROM " + table + " WHERE " + where.theirs + ")"};
  }
  std::string literal(Kind kind) {
    if (random_.one_in(12)) return "NULL";
    return kind == text ? one_of("'p'", "'q'", "'r'") : one_of("0", "1", "2", "3", "1.5");
  }
  template <class... Choices>
  std::string one_of(Choices... choices) {
    const std::string all[] = {choices...};
    return all[random_.below(sizeof...(choices))];
  }
  std::string table() { return one_of("t0", "t1", "t2"); }
  bool ordered() const { return ordered_; }

 private:
  // What can be named within a query: the columns of its tables or, in a HAVING, what its groups have.
  struct Scope {
    std::vector<std::string> names;
    std::vector<std::string> values[2] = {};  // of each kind

    bool grouped() const { return !values[number].empty(); }
  };

  // FROM one table or two, of the whole statement up to four, which are the innermost scope from now on.
  std::string enter() {
    std::string from;
    scopes_.emplace_back();
    const int most = scopes_.size() == 1 ? 4 : 2;
    for (int i = random_.one_in(4) ? 2 + random_.below(most - 1) : 1; i > 0; --i) {
      scopes_.back().names.push_back("x" + std::to_string(++tables_));
      from += (from.empty() ? " FROM " : ", ") + table() + " " + scopes_.back().names.back();
    }
    return from;
  }
  const std::string &some(const std::vector<std::string> &all) {
    return all[static_cast<size_t>(random_.below(static_cast<int>(all.size())))];
  }
  // A table of the innermost scopes but so many, or "" when there is none: of groups, subqueries see nothing.
  std::string outer_table(size_t but) {
    std::vector<std::string> names;
    for (size_t i = 0; i + but < scopes_.size(); ++i)
      if (!scopes_[i].grouped()) names.insert(names.end(), scopes_[i].names.begin(), scopes_[i].names.end());
    return names.empty() ? "" : some(names);
  }
  std::string column_name(Kind kind) { return kind == text ? "s" : one_of("id", "a", "a", "b", "d"); }
  // Of the innermost scope, or of any of those around.
  std::string column(Kind kind) {
    const Scope &inner = scopes_.back();
    if (const std::string outer = outer_table(1); !outer.empty() && random_.one_in(3))
      return outer + "." + column_name(kind);
    if (inner.grouped()) return some(inner.values[kind]);
    const std::string name = column_name(kind);
    return inner.names.size() == 1 && random_.one_in(4) ? name : some(inner.names) + "." + name;
  }
  std::string operand(Kind kind) {
    if (random_.one_in(6)) return literal(kind);
    return kind == number && random_.one_in(5) ? column(kind) + " + " + literal(kind) : column(kind);
  }
  std::string comparison() { return one_of(" = ", " = ", " <> ", " < ", " <= ", " > ", " >= "); }
  Kind some_kind() {
    const bool texts = !scopes_.back().grouped() || !scopes_.back().values[text].empty();
    return texts && random_.one_in(3) ? text : number;
  }

  // deep: how many queries inside each other; wide: how many conditions.
  Sql condition(int deep, int wide) {
    const int choice = random_.below(deep > 0 ? 12 : 6);
    const Kind kind = choice == 9 ? number : some_kind();
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
        break;
      case 4:
        if (wide > 0)
          return Sql("(") + condition(deep, wide - 1) + one_of(") AND (", ") OR (") +
                 condition(deep, wide - 1) + ")";
        break;
      case 5:
        return column(kind) + " BETWEEN " + operand(kind) + " AND " + operand(kind);
      case 6:
      case 7:
        return tested + one_of(" IN (", " NOT IN (") + query(kind, deep - 1, wide) + ")";
      case 8:
        return one_of("EXISTS (", "NOT EXISTS (") + query(kind, deep - 1, wide) + ")";
      case 9:
        return Sql(tested) + comparison() + "(" + one_row(deep - 1, wide) + ")";
      default:
        return quantified(tested, query(kind, deep - 1, wide));
    }
    return tested + comparison() + operand(kind);
  }

  Sql query(Kind kind, int deep, int wide) {
    const bool grouped = keys_ > 0 && random_.one_in(4);
    return grouped ? groups(&kind, keys_, deep, wide) : rows(&kind, deep, wide);
  }
  Sql where(int deep, int wide) {
    return random_.one_in(5) ? Sql("") : " WHERE " + condition(deep, wide - 1);
  }
  // One column of a kind, or without one several.
  Sql rows(const Kind *kind, int deep, int wide) {
    const std::string from = enter(), first = scopes_.back().names[0];
    const std::string items =
        kind != nullptr ? operand(*kind) : first + ".id, " + first + ".a, " + first + ".s";
    const std::string select =
        one_of("SELECT ", keys_ > 0 || kind != nullptr ? "SELECT DISTINCT " : "SELECT ") + items;
    const Sql condition = where(deep, wide);
    scopes_.pop_back();
    return Sql(select, kind != nullptr ? select + " AS v" : select) + from + condition;
  }
  // One row: of an aggregate, or found by its key.
  Sql one_row(int deep, int wide) {
    const std::string outer = outer_table(scopes_.back().grouped() ? 1 : 0);
    if (!outer.empty() && random_.one_in(3))
      return "SELECT k." + one_of("a", "b", "d") + " FROM " + table() + " k WHERE k.id = " + outer +
             one_of(".id", ".a");
    const Kind kind = number;
    return groups(&kind, 0, deep, wide);
  }
  std::string aggregate() {
    const auto name = [&] { return some(scopes_.back().names); };
    if (random_.one_in(4)) return one_of("COUNT(*)", "COUNT(" + name() + ".s)");
    return one_of("SUM(", "AVG(", "MIN(", "MAX(", "COUNT(") + name() + "." + column_name(number) +
           one_of(")", " + 1)", " * " + name() + ".b)");
  }
  // The groups by some keys, or the one of all rows: one value of a kind, or without one several.
  Sql groups(const Kind *kind, int keys, int deep, int wide) {
    const std::string from = enter();
    const Sql condition = where(deep, wide);
    std::string list, order, items, select = "SELECT ";
    std::vector<std::string> values[2] = {{aggregate(), aggregate()}, {}};
    for (int i = random_.below(keys + 1); i >= 0 && keys > 0; --i) {
      const Kind of = i == 0 && kind != nullptr ? *kind : random_.one_in(4) ? text : number;
      const std::string key = some(scopes_.back().names) + "." + column_name(of);
      if (std::find(values[of].begin(), values[of].end(), key) != values[of].end()) continue;
      values[of].push_back(key);
      list += (list.empty() ? " GROUP BY " : ", ") + key;
      order += (order.empty() ? " ORDER BY " : ", ") + key + one_of("", " DESC");
      if (kind == nullptr) items += ", " + (of == text ? key : one_of(key, "COUNT(*) + 2 * " + key));
    }
    if (kind == nullptr) {
      ordered_ = !list.empty() && random_.one_in(2);
      items = values[number][0] + one_of("", " + " + values[number][1]) + items;
    } else {
      items = some(values[*kind]) + (*kind == number ? one_of("", " + " + some(values[number])) : "");
      if (const std::string outer = outer_table(1); *kind == number && !outer.empty() && random_.one_in(4))
        items += " + " + outer + ".id";
    }
    if (!ordered_ && keys_ > 0) select = one_of("SELECT ", "SELECT ALL ", "SELECT DISTINCT ");
    scopes_.back().values[number] = values[number];
    scopes_.back().values[text] = values[text];
    const Sql having = random_.one_in(2) ? "" : " HAVING " + this->condition(deep, wide);
    scopes_.pop_back();
    select += items;
    return Sql(select, kind != nullptr ? select + " AS v" : select) + from + condition + list + having +
           (kind == nullptr && ordered_ ? order : "");
  }
  // SQLite knows no aggregate of groups below another query.
  Sql quantified(const std::string &tested, const Sql &query) {
    const bool all = random_.one_in(2);
    if (scopes_.back().grouped())
      return Sql(tested) + Sql(all ? " <> ALL (" : " = ANY (", all ? " NOT IN (" : " IN (") + query + ")";
    const std::string holds = tested + comparison();
    const std::string some = " FROM (" + query.theirs + ") AS some WHERE ";
    const std::string test = all ? "(NOT (" + holds + "some.v))" : "(" + holds + "some.v)";
    return {holds + (all ? "ALL (" : one_of("ANY (", "SOME (")) + query.ours + ")",
            "(CASE WHEN EXISTS (SELECT 1" + some + test + ") THEN " + (all ? "0" : "1") +
                " WHEN EXISTS (SELECT 1" + some + test + " IS NULL) THEN NULL ELSE " + (all ? "1" : "0") +
                " END)"};
  }

  Random &random_;
  int keys_;
  std::vector<Scope> scopes_;  // of the queries inside each other
  int tables_ = 0;
  bool ordered_ = false;
};

class BesideSqlite : public testing::Test {
 protected:
  explicit BesideSqlite(const char *settings = "", int keys = 3) : library(settings), keys(keys) {
    EXPECT_EQ(sqlite3_open(":memory:", &sqlite), SQLITE_OK);
  }
  ~BesideSqlite() override { sqlite3_close(sqlite); }

  void run() {
    const char *wanted = getenv("TOVIK_SQLITE_STATEMENTS");
    const int statements = wanted == nullptr ? 600 : atoi(wanted);
    for (int i = 0; i < statements && !HasFailure(); ++i) {
      if (i % 25 == 0) make_tables(i > 0);
      Statement statement(random, keys);
      if (random.one_in(4)) {
        const std::string table = statement.table(), before = tables();
        const Sql change = statement.change(table);
        EXPECT_EQ(db.run(change.ours), 0) << change.ours;
        in_sqlite(change.theirs);
        compare("SELECT id, a, b, s FROM " + table, false, change.ours + "\n" + change.theirs + before);
      } else {
        const Sql select = statement.select();
        compare(select, statement.ordered(), "");
      }
    }
    EXPECT_GT(compared, static_cast<size_t>(statements));
  }
  void make_tables(bool again) {
    for (const std::string name : {"t0", "t1", "t2"}) {
      const bool chunks = name == "t2";
      if (again) both("DROP TABLE " + name);
      both("CREATE TABLE " + name + " (id int, a int, b smallint, d double, s " +
           (chunks ? "text)" : "varchar(10))"));
      EXPECT_EQ(db.run("CREATE UNIQUE INDEX " + name + "_id ON " + name + " (id)"), 0);
      for (const std::string columns : {"a", "b, a", "s"}) {
        const std::string index = name + "_" + columns[0] + " ON " + name + " (" + columns + ")";
        const bool made = random.one_in(2) && !(chunks && columns == "s");
        EXPECT_EQ(made ? db.run("CREATE (1, 4) INDEX " + index) : 0, 0);
      }
      const auto value = [&](const std::string &usual, Kind kind = number) {
        return ", " + (random.one_in(4) ? usual : Statement(random, 0).literal(kind));
      };
      for (int id = random.below(chunks ? 16 : 9); id >= 0; --id) {
        std::string whole = value("4") + value("-1");  // of an int
        for (size_t at; (at = whole.find(".5")) != std::string::npos;) whole.erase(at, 2);
        const std::string long_text = random.one_in(2) ? "'a text of a few chunks'" : "'a text of chunks'";
        both("INSERT INTO " + name + " VALUES (" + std::to_string(id) + whole + value("0.5") +
             value(chunks ? long_text : "'q'", text) + ")");
      }
    }
  }
  void both(const std::string &sql) {
    EXPECT_EQ(db.run(sql), 0) << sql;
    in_sqlite(sql);
  }
  std::string in_sqlite(const std::string &sql) {
    std::string rows;
    const auto take = [](void *text, int count, char **cells, char **) {
      for (int i = 0; i < count; ++i)
        *static_cast<std::string *>(text) +=
            std::string(cells[i] == nullptr ? "-" : cells[i]) + ",;"[i + 1 == count];
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(sqlite, sql.c_str(), take, &rows, nullptr), SQLITE_OK)
        << sqlite3_errmsg(sqlite) << sql;
    return rows;
  }

  // Rows with numbers in six digits, sorted where their order is open.
  static std::vector<std::string> comparable(const std::string &rows, bool ordered) {
    std::vector<std::string> all;
    for (const std::string &row : parts(rows)) {
      all.emplace_back();
      for (const std::string &cell : parts(row, ',')) {
        char *end = nullptr, digits[32];
        snprintf(digits, sizeof digits, "%g", strtod(cell.c_str(), &end) + 0.0);  // SQLite shows no -0
        all.back() += (*end == 0 ? digits : cell) + ",";
      }
    }
    if (!ordered) std::sort(all.begin(), all.end());
    return all;
  }
  void compare(const Sql &query, bool ordered, const std::string &about) {
    const auto ours = comparable(db.rows(query.ours), ordered);
    EXPECT_EQ(ours, comparable(in_sqlite(query.theirs), ordered)) << query.ours << "\n"
                                                                  << query.theirs << "\n"
                                                                  << about << tables();
    compared += ours.size();
  }
  std::string tables() {
    std::string all;
    for (const std::string name : {"t0", "t1", "t2"})
      all += "\n" + name + " " + db.rows("SELECT * FROM " + name);
    return all;
  }

  const Library library;
  const int keys;
  TestDatabase db{"TYPE=MEMORY"};
  sqlite3 *sqlite = nullptr;
  Random random;
  size_t compared = 0;
};

TEST_F(BesideSqlite, RandomStatementsSelectAndChangeTheSameRows) {
  run();
}

// Nothing that subqueries give can be kept, nor are there groups but the one of all rows.
class BesideSqliteWithoutRoom : public BesideSqlite {
 protected:
  BesideSqliteWithoutRoom() : BesideSqlite("HVI_TMP_BUF_SIZE=24", 0) {}
};

TEST_F(BesideSqliteWithoutRoom, RandomStatementsSelectAndChangeTheSameRows) {
  run();
}

}  // namespace
}  // namespace tovik::test
