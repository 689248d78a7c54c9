// A database under test, used as an application uses it: through the exported functions only.
#pragma once

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kld_api.h"
#include "support.h"

namespace tovik::test {

// The code of the first failure recorded by the thread's last call, 0 for none.
inline int error_code() {
  int32_t code = 0;
  return kld_api_get_error(nullptr, &code, nullptr, nullptr) == 1 ? code : 0;
}

// Runs action and gives what it printed to standard output.
template <class Action>
std::string printed_by(Action action) {
  fflush(stdout);
  FILE *file = tmpfile();
  const int saved = dup(1);
  dup2(fileno(file), 1);
  action();
  fflush(stdout);
  dup2(saved, 1);
  close(saved);
  std::string text;
  rewind(file);
  char buffer[4096];
  for (size_t count; (count = fread(buffer, 1, sizeof buffer, file)) > 0;) text.append(buffer, count);
  fclose(file);
  return text;
}

// The library, started for the length of the scope.
class Library {
 public:
  explicit Library(const char *settings = "") { EXPECT_EQ(kld_api_init(settings), 0) << error_code(); }
  ~Library() { kld_api_end(); }
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;
};

// Every row is found through every index, as the report of INFO CHECK tells.
inline void expect_sound(const std::string &report) {
  const size_t at = report.find(" record count :[");
  ASSERT_NE(at, std::string::npos) << report;
  const std::string count = report.substr(at + 16, report.find(']', at) - at - 15);
  for (size_t hit = 0; (hit = report.find(" btree hit count :[", hit)) != std::string::npos; ++hit)
    EXPECT_EQ(report.substr(hit + 19, count.size()), count) << report;
}

// A statement on a database, and short ways to use it.
class Session {
 public:
  explicit Session(kld_db *db) : db_(db) { start(); }
  // A database that is closed with it.
  explicit Session(const std::string &params) : db_(kld_api_open_db(params.c_str())), owns_db_(true) {
    start();
  }
  ~Session() {
    kld_api_destroy_stmt(statement_);
    if (owns_db_) kld_api_close_db(db_);
  }
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  bool open() const { return statement_ != nullptr; }
  int open_status() const { return open_status_; }
  kld_db *database() { return db_; }
  kld_stmt *statement() { return statement_; }

  // 0 or the code of the failure; -1: failed without one.
  int run(const std::string &sql) { return outcome(kld_api_exec_sql_char(statement_, sql.c_str())); }

  std::string printed(const std::string &sql) {
    return printed_by([&] { kld_api_exec_sql_char(statement_, sql.c_str()); });
  }

  int prepare(const std::string &sql) { return outcome(kld_api_pre_stmt_char(statement_, sql.c_str())); }
  int execute() { return outcome(kld_api_exec_stmt(statement_)); }

  // Like run; appends the rows as text, "1,a;2,b" with NULL as "-".
  int query(const std::string &sql, std::string *text) {
    int code = prepare(sql);
    if (code == 0) code = execute();
    if (code == 0) code = fetch_all(text);
    kld_api_clear_stmt(statement_);
    return code;
  }

  // The rows, or "error CODE".
  std::string rows(const std::string &sql) {
    std::string text;
    const int code = query(sql, &text);
    return code == 0 ? text : "error " + std::to_string(code);
  }

  // Appends the rows that are left of an executed query, or so many of them.
  int fetch_all(std::string *text, int most = INT_MAX) {
    int32_t columns = 0, more = 0;
    while (most-- > 0 && (more = kld_api_fetch_stmt(statement_)) == 1) {
      if (kld_api_get_cols_count(statement_, &columns) != 0) return outcome(-1);
      for (int column = 1; column <= columns; ++column) {
        if (column > 1 || !text->empty()) *text += column > 1 ? ',' : ';';
        if (const int code = read(column, text)) return code;
      }
    }
    return outcome(more);
  }
  int read(int column, std::string *text) {
    int32_t not_null = 0;
    const int size = static_cast<int>(value_.size()),
              result =
                  kld_api_get_data(statement_, column, TOVIK_CHAR, value_.data(), size, nullptr, &not_null);
    if (result == 0) *text += not_null != 0 ? value_.data() : "-";
    return outcome(result);
  }

 private:
  void start() {
    if (db_ != nullptr) statement_ = kld_api_create_stmt(db_);
    if (statement_ == nullptr) open_status_ = error_code();
  }
  static int outcome(int result) {
    if (result >= 0) return 0;
    const int code = error_code();
    return code == 0 ? -1 : code;
  }

  kld_db *db_;
  bool owns_db_ = false;
  kld_stmt *statement_ = nullptr;
  int open_status_ = 0;
  std::vector<char> value_ = std::vector<char>(65536);
};

// A fresh database in a directory of its own (or in memory), open, with one session.
class TestDatabase {
 public:
  explicit TestDatabase(const std::string &more_params = "") : params_("NAME=t;" + more_params) {
    if (more_params.find("TYPE=MEMORY") == std::string::npos) params_ += ";PATH=" + directory_.path();
    EXPECT_EQ(kld_api_create_db(params_.c_str()), 0) << error_code();
    open();
  }
  ~TestDatabase() { close(); }
  TestDatabase(const TestDatabase &) = delete;
  TestDatabase &operator=(const TestDatabase &) = delete;

  void open() {
    db_ = kld_api_open_db(params_.c_str());
    EXPECT_NE(db_, nullptr) << error_code();
    session_ = new Session(db_);
  }
  void close() {
    delete session_;
    session_ = nullptr;
    kld_api_close_db(db_);
    db_ = nullptr;
  }
  void reopen() {
    close();
    open();
  }

  kld_db *handle() { return db_; }
  const std::string &params() const { return params_; }
  const TempDir &directory() const { return directory_; }
  Session &session() { return *session_; }
  int run(const std::string &sql) { return session_->run(sql); }
  std::string rows(const std::string &sql) { return session_->rows(sql); }
  std::string printed(const std::string &sql) { return session_->printed(sql); }

 private:
  TempDir directory_;
  std::string params_;
  kld_db *db_ = nullptr;
  Session *session_ = nullptr;
};

inline std::vector<std::string> parts(const std::string &list, char separator = ';') {
  std::vector<std::string> all;
  std::istringstream in(list);
  for (std::string part; std::getline(in >> std::ws, part, separator);) all.push_back(part);
  return all;
}

// A database that answers scripts.
class Script : public testing::Test {
 protected:
  explicit Script(const char *settings = "", const std::string &more_params = "")
      : library(settings), db(more_params) {}

  // Lines of statements and what the last of each gives: nothing, the code of its failure, or rows; those
  // before it succeed. PREPARE, EXECUTE, FETCH, READ (the first column) and REST (of the rows) stand for a
  // second session, which CLEAR ends; ELSEWHERE runs a statement on another thread.
  void script(const std::string &lines) {
    for (const std::string &line : parts(lines, '\n')) {
      const size_t end = std::min(line.find(" =>"), line.size());
      std::string given;
      for (const std::string &statement : parts(line.substr(0, end))) {
        EXPECT_EQ(given, "") << line;
        given = answer(statement);
      }
      EXPECT_EQ(given, line.substr(std::min(end + 4, line.size()))) << line;
    }
  }

  const Library library;
  TestDatabase db;

 private:
  std::string answer(const std::string &line) {
    const std::string verb = line.substr(0, line.find(' ')),
                      sql = line.substr(std::min(verb.size() + 1, line.size()));
    if (verb == "SELECT") return db.rows(line);
    if (verb == "REOPEN" || verb == "CLEAR") second_.reset();
    if (verb == "REOPEN") db.reopen();
    if (line.starts_with("INFO CHECK")) expect_sound(db.printed(line));
    if (verb == "REOPEN" || verb == "CLEAR" || verb == "INFO") return "";
    if (!second_) second_ = std::make_unique<Session>(db.handle());
    std::string rows;
    int code = 0;
    if (verb == "ELSEWHERE")
      std::thread([&] { code = Session(db.handle()).run(sql); }).join();
    else
      code = verb == "PREPARE"   ? second_->prepare(sql)
             : verb == "EXECUTE" ? second_->execute()
             : verb == "FETCH"   ? second_->fetch_all(&rows, 1)
             : verb == "READ"    ? second_->read(1, &rows)
             : verb == "REST"    ? second_->fetch_all(&rows)
                                 : db.run(line);
    return code == 0 ? rows : std::to_string(code);
  }

  std::unique_ptr<Session> second_;
};

}  // namespace tovik::test
