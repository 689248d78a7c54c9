// One row at a time, as an application does it: reads by a unique key and inserts, through either interface
// of Tovik and, where its development files are installed, through SQLite on the same machine and disk with
// the same durability - a commit has returned when the row is on the disk.
//
// The table has 100,000 rows of an integer, a text and a double, with a unique index on the integer; the
// caches hold all of it. Databases live in a directory of their own under TMPDIR.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "directory.h"
#include "kld_api.h"
#include "tovik.h"
#if defined(TOVIK_BENCH_SQLITE)
#include <sqlite3.h>
#endif

namespace {

constexpr int row_count = 100000;

void need(bool done, const char *what) {
  if (done) return;
  kld_api_print_error(what);
  exit(1);
}

struct Row {
  int32_t id;
  char name[41];
  double price;

  explicit Row(int number) : id(number), price(number / 4.0) {
    snprintf(name, sizeof name, "name of %d", number);
  }
};

const char cache_params[] =
    ";CACHE_SIZE_DAT=65536;CACHE_SIZE_TRN=65536;HASH_SIZE_DAT=65536;HASH_SIZE_TRN=65536";

class TovikRecords {
 public:
  TovikRecords() {
    const std::string params = "PATH=" + directory_.path() + cache_params;
    need(tovik_init("") == 0 && tovik_create("b", params.c_str()) == 0, "create");
    db_ = tovik_open("b", params.c_str());
    need(db_ != nullptr, "open");
    static constexpr tovik_coldef columns[] = {{"id", TOVIK_COL_INT, 1, 0, 0, 0},
                                               {"name", TOVIK_COL_CHAR, 0, 40, 0, 0},
                                               {"price", TOVIK_COL_DOUBLE, 0, 0, 0, 0}};
    const char *key[] = {"id"};
    need(tovik_createtbl(db_, "t", columns, 3) == 0 && tovik_createidx(db_, "ti", key, 1, "t", 1, 0) == 0,
         "schema");
  }
  ~TovikRecords() {
    tovik_close(db_);
    tovik_end();
  }

  void begin() { need(tovik_begin(db_) == 0, "begin"); }
  void commit() { need(tovik_commit(db_) == 0, "commit"); }
  void insert(const Row &row) {
    tovik_colval values[3];
    tovik_setcol_i32(&values[0], "id", row.id);
    tovik_setcol_char(&values[1], "name", row.name);
    tovik_setcol_double(&values[2], "price", row.price);
    need(tovik_insert(db_, "t", values, 3) == 0, "insert");
  }
  void read(Row &row) {
    const char *tables[] = {"t"};
    tovik_cond by_key;
    tovik_comp_i32(&by_key, "id", TOVIK_EQ, row.id);
    tovik_cur *cursor = tovik_opencur(db_, tables, 1, &by_key, nullptr);
    need(tovik_fetchcur(cursor) == 1 && tovik_getcol_i32(cursor, "id", &row.id) == 1 &&
             tovik_getcol_char(cursor, "name", row.name, sizeof row.name) == 1 &&
             tovik_getcol_double(cursor, "price", &row.price) == 1,
         "read");
    tovik_closecur(cursor);
  }

 private:
  Directory directory_;
  tovik_db *db_;
};

// Only SQL text: a query is prepared, and a row inserted, from a text of its own.
class TovikStatements {
 public:
  TovikStatements() {
    const std::string params = "NAME=b;PATH=" + directory_.path() + cache_params;
    need(kld_api_init("") == 0 && kld_api_create_db(params.c_str()) == 0, "create");
    db_ = kld_api_open_db(params.c_str());
    statement_ = kld_api_create_stmt(db_);
    need(statement_ != nullptr, "open");
    run("CREATE TABLE t (id int NOT NULL, name char(40), price double)");
    run("CREATE UNIQUE INDEX ti ON t (id)");
  }
  ~TovikStatements() {
    kld_api_destroy_stmt(statement_);
    kld_api_close_db(db_);
    kld_api_end();
  }

  void begin() { run("BEGIN WORK"); }
  void commit() { run("COMMIT WORK"); }
  void insert(const Row &row) {
    char sql[128];
    snprintf(sql, sizeof sql, "INSERT INTO t VALUES %d, '%s', %.2f", row.id, row.name, row.price);
    run(sql);
  }
  void read(Row &row) {
    char sql[64];
    snprintf(sql, sizeof sql, "SELECT id, name, price FROM t WHERE id = %d", row.id);
    need(kld_api_pre_stmt_char(statement_, sql) == 0 && kld_api_exec_stmt(statement_) == 0 &&
             kld_api_fetch_stmt(statement_) == 1,
         "query");
    get(1, TOVIK_INT32, &row.id, sizeof row.id);
    get(2, TOVIK_CHAR, row.name, sizeof row.name);
    get(3, TOVIK_DOUBLE, &row.price, sizeof row.price);
    kld_api_clear_stmt(statement_);
  }

 private:
  void run(const char *sql) { need(kld_api_exec_sql_char(statement_, sql) == 0, sql); }
  void get(int column, int type, void *value, int size) {
    int32_t not_null;
    need(kld_api_get_data(statement_, column, type, value, size, nullptr, &not_null) == 0, "value");
  }

  Directory directory_;
  kld_db *db_;
  kld_stmt *statement_;
};

#if defined(TOVIK_BENCH_SQLITE)
// Statements are prepared once. No mutex: the connection belongs to one thread.
class Sqlite {
 public:
  explicit Sqlite(const char *journal) {
    const std::string file = directory_.path() + "/b.sqlite";
    need(sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                         nullptr) == SQLITE_OK,
         "sqlite open");
    run((std::string("PRAGMA journal_mode=") + journal).c_str());
    run("PRAGMA synchronous=FULL");
    run("PRAGMA cache_size=-262144");
    run("CREATE TABLE t (id INTEGER NOT NULL, name TEXT, price REAL)");
    run("CREATE UNIQUE INDEX ti ON t (id)");
    insert_ = prepare("INSERT INTO t VALUES (?, ?, ?)");
    read_ = prepare("SELECT id, name, price FROM t WHERE id = ?");
  }
  ~Sqlite() {
    sqlite3_finalize(insert_);
    sqlite3_finalize(read_);
    sqlite3_close(db_);
  }

  void begin() { run("BEGIN"); }
  void commit() { run("COMMIT"); }
  void insert(const Row &row) {
    sqlite3_bind_int(insert_, 1, row.id);
    sqlite3_bind_text(insert_, 2, row.name, -1, SQLITE_STATIC);
    sqlite3_bind_double(insert_, 3, row.price);
    need(sqlite3_step(insert_) == SQLITE_DONE && sqlite3_reset(insert_) == SQLITE_OK, "sqlite insert");
  }
  void read(Row &row) {
    sqlite3_bind_int(read_, 1, row.id);
    need(sqlite3_step(read_) == SQLITE_ROW, "sqlite read");
    row.id = sqlite3_column_int(read_, 0);
    benchmark::DoNotOptimize(sqlite3_column_text(read_, 1));  // not copied: its best form
    row.price = sqlite3_column_double(read_, 2);
    need(sqlite3_reset(read_) == SQLITE_OK, "sqlite reset");
  }

 private:
  void run(const char *sql) { need(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }
  sqlite3_stmt *prepare(const char *sql) {
    sqlite3_stmt *statement = nullptr;
    need(sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
    return statement;
  }

  Directory directory_;
  sqlite3 *db_ = nullptr;
  sqlite3_stmt *insert_, *read_;
};

struct SqliteJournal : Sqlite {
  SqliteJournal() : Sqlite("DELETE") {}
};
struct SqliteWal : Sqlite {
  SqliteWal() : Sqlite("WAL") {}
};
#endif

enum Inside { outside_transaction, in_transaction };

template <class Engine>
void fill(Engine &engine) {
  engine.begin();
  for (int id = 0; id < row_count; ++id) engine.insert(Row(id));
  engine.commit();
}

template <class Engine>
void point_read(benchmark::State &state) {
  Engine engine;
  fill(engine);
  if (state.range(0) == in_transaction) engine.begin();
  uint32_t i = 0;
  Row row(0);
  for (auto _ : state) {
    row.id = static_cast<int32_t>((++i * 2654435761u >> 1) % row_count);
    engine.read(row);
    benchmark::DoNotOptimize(row);
  }
  if (state.range(0) == in_transaction) engine.commit();
}

template <class Engine>
void insert(benchmark::State &state) {
  Engine engine;
  fill(engine);
  if (state.range(0) == in_transaction) engine.begin();
  int id = row_count;
  for (auto _ : state) engine.insert(Row(id++));
  if (state.range(0) == in_transaction) engine.commit();
}

#define POINT_BENCH(Engine)                                                                            \
  BENCHMARK_TEMPLATE(point_read, Engine)->ArgName("transaction")->Arg(outside_transaction);            \
  BENCHMARK_TEMPLATE(point_read, Engine)->ArgName("transaction")->Arg(in_transaction);                 \
  BENCHMARK_TEMPLATE(insert, Engine)->ArgName("transaction")->Arg(in_transaction)->Iterations(200000); \
  BENCHMARK_TEMPLATE(insert, Engine)                                                                   \
      ->ArgName("transaction")                                                                         \
      ->Arg(outside_transaction)                                                                       \
      ->Iterations(300)                                                                                \
      ->UseRealTime()

POINT_BENCH(TovikRecords);
POINT_BENCH(TovikStatements);
#if defined(TOVIK_BENCH_SQLITE)
POINT_BENCH(SqliteJournal);
POINT_BENCH(SqliteWal);
#endif

}  // namespace

BENCHMARK_MAIN();
