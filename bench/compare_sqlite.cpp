#include <sqlite3.h>

#include <map>
#include <string>

#include "compare.h"

namespace compare {
namespace {

class Sqlite final : public Engine {
 public:
  Sqlite(const std::string &file, const char *journal) : file_(file), journal_(journal) { open(); }
  ~Sqlite() override { close(); }

  // No mutex: a connection belongs to one thread.
  void open() override {
    need(sqlite3_open_v2(file_.c_str(), &db_,
                         SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr),
         "open");
    sqlite3_busy_timeout(db_, 10000);
    execute("PRAGMA page_size=" + std::to_string(page_size));
    execute("PRAGMA journal_mode=" + journal_);
    execute("PRAGMA cache_size=-" + std::to_string(cache_pages * (page_size / 1024)));
    execute("PRAGMA temp_store=MEMORY");
    execute("PRAGMA case_sensitive_like=ON");  // as in Tovik; and LIKE may use an index
    set_sync(Sync::on);
  }
  void close() override {
    for (const auto &[text, statement] : prepared_) sqlite3_finalize(statement);
    prepared_.clear();
    sqlite3_close(db_);
    db_ = nullptr;
  }
  std::unique_ptr<Engine> for_thread() override { return std::make_unique<Sqlite>(file_, journal_.c_str()); }

  void begin() override { step(prepared("BEGIN")); }
  void commit() override { step(prepared("COMMIT")); }
  void set_sync(Sync sync) override {
    execute(sync == Sync::on ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
  }
  void execute(const std::string &sql) override {
    need(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr), sql.c_str());
  }

  void query(const std::string &sql, const char *types, Answer &answer) override {
    sqlite3_stmt *statement = prepare(sql.c_str());
    fetch(statement, types, answer);
    sqlite3_finalize(statement);
  }

  void insert(const Table &table, const Row &row) override {
    sqlite3_stmt *statement = prepared(insert_of(table));
    sqlite3_bind_int(statement, 1, row.id);
    sqlite3_bind_int(statement, 2, row.customer);
    sqlite3_bind_double(statement, 3, row.amount);
    if (table.columns > 3) sqlite3_bind_text(statement, 4, row.name, -1, SQLITE_STATIC);
    if (table.columns > 4) {
      sqlite3_bind_int(statement, 5, row.since);
      sqlite3_bind_text(statement, 6, row.note, -1, SQLITE_STATIC);
    }
    step(statement);
  }
  void read(const Table &table, int id, Answer &answer) override {
    sqlite3_stmt *statement = prepared(read_of(table));
    sqlite3_bind_int(statement, 1, id);
    const char types[] = {'i', 'i', 'd', table.columns > 3 ? 't' : '\0', table.columns > 4 ? 'i' : '\0',
                          't', '\0'};
    fetch(statement, types, answer);
    need(sqlite3_reset(statement), "reset");
  }

  const char *blob_type() const override { return "blob"; }
  void insert_blob(int id, const std::string &bytes) override {
    sqlite3_stmt *statement = prepared("INSERT INTO b VALUES (?, ?)");
    sqlite3_bind_int(statement, 1, id);
    sqlite3_bind_blob(statement, 2, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    step(statement);
  }
  void read_blob(int id, Answer &answer) override {
    sqlite3_stmt *statement = prepared("SELECT data FROM b WHERE id = ?");
    sqlite3_bind_int(statement, 1, id);
    fetch(statement, "b", answer);
    need(sqlite3_reset(statement), "reset");
  }

  std::string insert_text(const Table &table, const Row &row) const override {
    return std::string("INSERT INTO ") + table.name + " VALUES (" + literals(table, row) + ")";
  }

 private:
  void need(int result, const char *what) const {
    if (result != SQLITE_OK) give_up(what, sqlite3_errmsg(db_));
  }
  static const char *insert_of(const Table &table) {
    return table.columns == 6   ? "INSERT INTO t VALUES (?, ?, ?, ?, ?, ?)"
           : table.columns == 4 ? "INSERT INTO d VALUES (?, ?, ?, ?)"
                                : "INSERT INTO w VALUES (?, ?, ?)";
  }
  static const char *read_of(const Table &table) {
    return table.columns == 6   ? "SELECT * FROM t WHERE id = ?"
           : table.columns == 4 ? "SELECT * FROM d WHERE id = ?"
                                : "SELECT * FROM w WHERE id = ?";
  }
  sqlite3_stmt *prepare(const char *sql) {
    sqlite3_stmt *statement = nullptr;
    need(sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr), sql);
    return statement;
  }
  // By the address of the literal: the search must cost nothing.
  sqlite3_stmt *prepared(const char *sql) {
    sqlite3_stmt *&statement = prepared_[sql];
    if (statement == nullptr) statement = prepare(sql);
    return statement;
  }
  void step(sqlite3_stmt *statement) {
    if (sqlite3_step(statement) != SQLITE_DONE) need(SQLITE_ERROR, sqlite3_sql(statement));
    need(sqlite3_reset(statement), "reset");
  }
  // Texts and blobs are not copied: SQLite's best form.
  void fetch(sqlite3_stmt *statement, const char *types, Answer &answer) {
    int result;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
      for (int column = 0; types[column] != 0; ++column) {
        if (types[column] == 'i') {
          answer.add(int64_t{sqlite3_column_int64(statement, column)});
        } else if (types[column] == 'd') {
          answer.add(sqlite3_column_double(statement, column));
        } else {
          const void *bytes = types[column] == 't' ? sqlite3_column_text(statement, column)
                                                   : sqlite3_column_blob(statement, column);
          answer.add(std::string_view(static_cast<const char *>(bytes),
                                      static_cast<size_t>(sqlite3_column_bytes(statement, column))));
        }
      }
      answer.end_row();
    }
    if (result != SQLITE_DONE) need(SQLITE_ERROR, sqlite3_sql(statement));
  }

  std::string file_, journal_;
  sqlite3 *db_ = nullptr;
  std::map<const char *, sqlite3_stmt *> prepared_;
};

}  // namespace

std::unique_ptr<Engine> create_sqlite(const std::string &directory, Place place, const char *journal) {
  return std::make_unique<Sqlite>(place == Place::memory ? ":memory:" : directory + "/b.sqlite",
                                  place == Place::memory ? "MEMORY" : journal);
}

}  // namespace compare
