// A database used through the record interface, and short ways to read what it holds.
#pragma once

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "api_support.h"
#include "tovik.h"

namespace tovik::test {

inline const uint16_t *wide(const char16_t *text) {
  return reinterpret_cast<const uint16_t *>(text);
}

// The failure of a call that has just given result, 0 after a success.
inline int record_code(int result) {
  const int code = tovik_geterr();
  EXPECT_EQ(code != 0, result < 0) << "result " << result << ", code " << code;
  return code;
}

// The same for calls that give a cursor; it is closed.
inline int record_code(tovik_cur *cursor) {
  const int code = record_code(cursor == nullptr ? -1 : 0);
  tovik_closecur(cursor);
  return code;
}

inline tovik_coldef coldef(const char *name, int32_t type, int32_t p1 = 0, int32_t p2 = 0,
                           int32_t not_null = 0) {
  tovik_coldef definition = {};
  memcpy(definition.name, name, std::min(strlen(name) + 1, sizeof definition.name));
  definition.type = type;
  definition.p1 = p1;
  definition.p2 = p2;
  definition.not_null = not_null;
  return definition;
}

// The columns of the rows that a cursor gives, as text "1,a;2,b" with NULL as "-", or "error CODE". Closes
// it.
inline std::string rows_of(tovik_cur *cursor, const std::vector<const char *> &columns) {
  std::string text;
  int more = cursor == nullptr ? -1 : tovik_fetchcur(cursor);
  for (; more == 1; more = tovik_fetchcur(cursor)) {
    if (!text.empty()) text += ';';
    for (const char *column : columns) {
      char value[4096] = "-";
      if (tovik_getcol_char(cursor, column, value, sizeof value) < 0)
        ADD_FAILURE() << column << tovik_geterr();
      text += (column == columns[0] ? "" : ",") + std::string(value);
    }
  }
  if (more < 0) text = "error " + std::to_string(tovik_geterr());
  tovik_closecur(cursor);
  return text;
}

// A fresh database in a directory of its own, open, with the library started for the length of the scope.
class RecordDatabase {
 public:
  explicit RecordDatabase(const std::string &more_params = "")
      : params_("PATH=" + directory_.path() + ";" + more_params) {
    EXPECT_EQ(tovik_init(""), 0);
    EXPECT_EQ(tovik_create("r", params()), 0) << tovik_geterr();
    open();
  }
  ~RecordDatabase() {
    tovik_close(db_);
    tovik_end();
  }

  void open() { EXPECT_NE(db_ = tovik_open("r", params()), nullptr) << tovik_geterr(); }
  void reopen() {
    tovik_close(db_);
    open();
  }
  operator tovik_db *() const { return db_; }
  const char *params() const { return params_.c_str(); }

  int sql(const std::string &text) { return record_code(tovik_execsql_char(db_, text.c_str())); }
  void run(std::initializer_list<const char *> statements) {
    for (const char *text : statements) EXPECT_EQ(sql(text), 0) << text;
  }
  tovik_cur *open_cursor(const char *table, const tovik_cond *cond = nullptr,
                         const tovik_order *order = nullptr) {
    return tovik_opencur(db_, &table, 1, cond, order);
  }
  std::string rows(const char *table, const std::vector<const char *> &columns,
                   const tovik_cond *cond = nullptr, const tovik_order *order = nullptr) {
    return rows_of(open_cursor(table, cond, order), columns);
  }

 private:
  TempDir directory_;
  std::string params_;
  tovik_db *db_ = nullptr;
};

}  // namespace tovik::test
