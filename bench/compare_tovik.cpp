#include <string>

#include "compare.h"
#include "kld_api.h"
#include "tovik.h"

namespace compare {
namespace {

void need(bool done, const char *what) {
  if (done) return;
  kld_api_print_error(what);
  give_up(what, "Tovik");
}

// Conditions, rows and statements that change something go through the record interface, queries through the
// statement interface, which opens a handle of its own when the first one comes.
class Tovik final : public Engine {
 public:
  Tovik(const std::string &directory, Place place)
      : params_((place == Place::memory ? "TYPE=MEMORY" : "PATH=" + directory) +
                ";BLOCK_SIZE=" + std::to_string(page_size) +
                ";HASH_SIZE_DAT=1024;HASH_SIZE_TRN=1024;TRAN_HASH=4096;LOCK_RETRY=10000;LOCK_SLEEP=1" +
                ";CACHE_SIZE_DAT=" + std::to_string(cache_pages) +
                ";CACHE_SIZE_TRN=" + std::to_string(cache_pages)),
        place_(place) {
    need(tovik_create("b", params_.c_str()) == 0, "create");
    open();
  }
  Tovik(const std::string &params, tovik_db *shared) : params_(params), db_(shared), owner_(false) {}
  ~Tovik() override {
    close();
    // A directory goes as a whole; memory would stay until the process ends.
    if (place_ == Place::memory) need(kld_api_remove_db(("NAME=b;" + params_).c_str()) == 0, "remove");
  }

  void open() override {
    db_ = tovik_open("b", params_.c_str());
    need(db_ != nullptr, "open");
  }
  void close() override {
    kld_api_destroy_stmt(statement_);
    kld_api_close_db(queries_);
    if (owner_) tovik_close(db_);
    statement_ = nullptr;
    queries_ = nullptr;
    db_ = nullptr;
  }
  std::unique_ptr<Engine> for_thread() override { return std::make_unique<Tovik>(params_, db_); }

  void begin() override { need(tovik_begin(db_) == 0, "begin"); }
  void commit() override { need(tovik_commit(db_) == 0, "commit"); }
  void set_sync(Sync sync) override {
    execute(sync == Sync::on ? "SET HVI_TRAN_SYNC 'ON'" : "SET HVI_TRAN_SYNC 'OFF'");
  }
  void execute(const std::string &sql) override {
    need(tovik_execsql_char(db_, sql.c_str()) == 0, sql.c_str());
  }

  void query(const std::string &sql, const char *types, Answer &answer) override {
    if (queries_ == nullptr) {
      queries_ = kld_api_open_db(("NAME=b;" + params_).c_str());
      statement_ = kld_api_create_stmt(queries_);
      need(statement_ != nullptr, "statement");
    }
    need(kld_api_pre_stmt_char(statement_, sql.c_str()) == 0 && kld_api_exec_stmt(statement_) == 0,
         sql.c_str());
    int fetched;
    while ((fetched = kld_api_fetch_stmt(statement_)) == 1) {
      for (int column = 0; types[column] != 0; ++column) add_value(column + 1, types[column], answer);
      answer.end_row();
    }
    need(fetched == 0, sql.c_str());
    kld_api_clear_stmt(statement_);
  }

  void insert(const Table &table, const Row &row) override {
    tovik_colval values[6];
    tovik_setcol_i32(&values[0], "id", row.id);
    tovik_setcol_i32(&values[1], "customer", row.customer);
    tovik_setcol_double(&values[2], "amount", row.amount);
    if (table.columns > 3) tovik_setcol_char(&values[3], "name", row.name);
    if (table.columns > 4) {
      tovik_setcol_i32(&values[4], "since", row.since);
      tovik_setcol_char(&values[5], "note", row.note);
    }
    need(tovik_insert(db_, table.name, values, table.columns) == 0, "insert");
  }

  void read(const Table &table, int id, Answer &answer) override {
    tovik_cond by_id;
    tovik_comp_i32(&by_id, "id", TOVIK_EQ, id);
    tovik_cur *cursor = open_cursor(table.name, by_id);
    Row row;
    need(tovik_getcol_i32(cursor, "id", &row.id) == 1 &&
             tovik_getcol_i32(cursor, "customer", &row.customer) == 1 &&
             tovik_getcol_double(cursor, "amount", &row.amount) == 1,
         "read");
    answer.add(int64_t{row.id});
    answer.add(int64_t{row.customer});
    answer.add(row.amount);
    if (table.columns > 3) add_text(cursor, "name", answer);
    if (table.columns > 4) {
      need(tovik_getcol_i32(cursor, "since", &row.since) == 1, "read");
      answer.add(int64_t{row.since});
      add_text(cursor, "note", answer);
    }
    answer.end_row();
    tovik_closecur(cursor);
  }

  const char *blob_type() const override { return "blob(20, 20, 4000)"; }  // chunks of about a page
  void insert_blob(int id, const std::string &bytes) override {
    tovik_colval values[2];
    tovik_setcol_i32(&values[0], "id", id);
    tovik_setcol_binary(&values[1], "data", bytes.data(), static_cast<int>(bytes.size()));
    need(tovik_insert(db_, "b", values, 2) == 0, "insert blob");
  }
  void read_blob(int id, Answer &answer) override {
    tovik_cond by_id;
    tovik_comp_i32(&by_id, "id", TOVIK_EQ, id);
    tovik_cur *cursor = open_cursor("b", by_id);
    const void *data;
    int32_t length;
    need(tovik_getcol_ibuf_binary(cursor, "data", &data, &length) == 1, "read blob");
    answer.add(std::string_view(static_cast<const char *>(data), static_cast<size_t>(length)));
    answer.end_row();
    tovik_closecur(cursor);
  }

  std::string insert_text(const Table &table, const Row &row) const override {
    return std::string("INSERT INTO ") + table.name + " VALUES " + literals(table, row);
  }

 private:
  tovik_cur *open_cursor(const char *table, const tovik_cond &condition) {
    const char *tables[] = {table};
    tovik_cur *cursor = tovik_opencur(db_, tables, 1, &condition, nullptr);
    need(tovik_fetchcur(cursor) == 1, "fetch");
    return cursor;
  }
  static void add_text(tovik_cur *cursor, const char *column, Answer &answer) {
    const char *text;
    int32_t length;
    need(tovik_getcol_ibuf_char(cursor, column, &text, &length) == 1, "text");
    answer.add(std::string_view(text, static_cast<size_t>(length)));
  }
  void add_value(int column, char type, Answer &answer) {
    int64_t integer = 0;
    double real = 0;
    char text[64] = "";
    int32_t not_null = 0, length = 0;
    int result;
    if (type == 'i') {
      result =
          kld_api_get_data(statement_, column, TOVIK_INT64, &integer, sizeof integer, nullptr, &not_null);
      answer.add(integer);
    } else if (type == 'd') {
      result = kld_api_get_data(statement_, column, TOVIK_DOUBLE, &real, sizeof real, nullptr, &not_null);
      answer.add(real);
    } else {
      result = kld_api_get_data(statement_, column, TOVIK_CHAR, text, sizeof text, &length, &not_null);
      answer.add(std::string_view(text));
    }
    need(result == 0, "value");
  }

  std::string params_;
  Place place_ = Place::file;
  tovik_db *db_ = nullptr;
  bool owner_ = true;
  kld_db *queries_ = nullptr;
  kld_stmt *statement_ = nullptr;
};

}  // namespace

void start_tovik() {
  // Room to sort a million rows in memory, as SQLite has with temp_store=MEMORY.
  need(kld_api_init("HVI_TMP_BUF_SIZE=536870912;HVI_SQL_BUF_SIZE=1048576") == 0, "start");
}

std::unique_ptr<Engine> create_tovik(const std::string &directory, Place place) {
  return std::make_unique<Tovik>(directory, place);
}

}  // namespace compare
