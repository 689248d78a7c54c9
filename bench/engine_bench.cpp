// Micro-benchmarks of the inner loops: what one row, one key and one short statement cost. Databases live in
// a directory of their own under TMPDIR; caches are large enough that no page leaves them.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "api/library.h"
#include "data/database.h"
#include "data/index/btree.h"
#include "frame/error.h"
#include "kld_api.h"
#include "sql/statement/statement.h"

namespace tovik {
namespace {

void need(bool done, const char *what) {
  if (done) return;
  err_format(nullptr, 0, what);
  exit(1);
}

class Fixture {
 public:
  explicit Fixture(bool transaction) {
    directory_ = (std::filesystem::temp_directory_path() / "tovik_bench_XXXXXX").string();
    need(mkdtemp(directory_.data()) != nullptr, "directory");
    need(library_start("HVI_SQL_BUF_SIZE=1048576"), "start");
    const std::string params =
        "NAME=b;PATH=" + directory_ +
        ";CACHE_SIZE_DAT=65536;CACHE_SIZE_TRN=65536;HASH_SIZE_DAT=65536;HASH_SIZE_TRN=65536";
    db_ = db_create(params.c_str());
    need(db_ != nullptr, "create");
    if (transaction) need(db_start(*db_, current_thread(), Nesting::refused) == DbStart::started, "begin");
    statement_ = sql_create(db_);
    need(statement_ != nullptr, "statement");
  }
  ~Fixture() {
    sql_destroy(statement_);
    db_close(db_);
    library_end();
    std::filesystem::remove_all(directory_);
  }
  Fixture(const Fixture &) = delete;
  Fixture &operator=(const Fixture &) = delete;

  StorageManager &storage() { return *db_->storage; }
  Statement &statement() { return *statement_; }
  void run(const std::string &sql) {
    need(sql_execute_text(*statement_, sql.c_str()) == SqlResult::done, sql.c_str());
  }

 private:
  std::string directory_;
  Database *db_;
  Statement *statement_;
};

constexpr int record_size = 100;

void row_insert_100_bytes(benchmark::State &state) {
  Fixture fixture(true);
  RowSystem *rows = row_system_create(fixture.storage(), RowKind::fixed, record_size, 0, 0, 0);
  need(rows != nullptr, "rows");
  uint8_t record[record_size] = {1};
  RowNo row;
  for (auto _ : state) need(row_insert(*rows, record, record_size, &row), "insert");
  row_system_close(rows);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(row_insert_100_bytes)->Iterations(500000);

void row_scan_100_bytes(benchmark::State &state) {
  Fixture fixture(true);
  RowSystem *rows = row_system_create(fixture.storage(), RowKind::fixed, record_size, 0, 0, 0);
  uint8_t record[record_size] = {1};
  RowNo row;
  for (int i = 0; i < 100000; ++i) need(row_insert(*rows, record, record_size, &row), "insert");
  for (auto _ : state) {
    RowScan scan;
    row_scan_start(scan, *rows);
    while (row_scan_next(scan, record, record_size, &row) == Found::yes) benchmark::DoNotOptimize(record);
  }
  row_system_close(rows);
  state.SetItemsProcessed(state.iterations() * 100000);
}
BENCHMARK(row_scan_100_bytes);

Btree *int_index(Fixture &fixture, uint32_t flags) {
  BtreeDefinition definition{};
  definition.flags = flags;
  definition.part_count = 1;
  definition.master_count = 1;
  definition.value_size = 4;
  definition.parts[0] = {type::int32, 4, 1};
  Btree *index = btree_create(fixture.storage(), definition);
  need(index != nullptr, "index");
  return index;
}

uint32_t scattered(uint32_t i) {
  return i * 2654435761u >> 1;
}

void btree_insert_scattered_int(benchmark::State &state) {
  Fixture fixture(true);
  Btree *index = int_index(fixture, btree_unique);
  uint32_t i = 0;
  for (auto _ : state) {
    const uint32_t key = scattered(++i);
    need(btree_insert(*index, reinterpret_cast<const uint8_t *>(&key), &i) != BtreeInsert::failed, "insert");
  }
  btree_close(index);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(btree_insert_scattered_int)->Iterations(500000);

void btree_search_int(benchmark::State &state) {
  Fixture fixture(true);
  Btree *index = int_index(fixture, btree_unique);
  for (uint32_t i = 1; i <= 100000; ++i) {
    const uint32_t key = scattered(i);
    need(btree_insert(*index, reinterpret_cast<const uint8_t *>(&key), &i) == BtreeInsert::inserted,
         "insert");
  }
  uint32_t i = 0, value;
  for (auto _ : state) {
    const uint32_t key = scattered(i++ % 100000 + 1);
    need(btree_find_value(*index, reinterpret_cast<const uint8_t *>(&key), &value) == Found::yes, "search");
  }
  btree_close(index);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(btree_search_int);

void key_comparison(benchmark::State &state) {
  const TypeCode code = static_cast<TypeCode>(state.range(0));
  const StoredCompare compare = stored_compare_of(code);
  uint8_t a[32] = "a key of a table", b[32] = "a key of a tabld";
  for (auto _ : state) {
    benchmark::DoNotOptimize(a);
    benchmark::DoNotOptimize(compare(a, b, 32));
  }
}
BENCHMARK(key_comparison)
    ->Arg(type::int32)
    ->Arg(type::cbigint)
    ->Arg(type::varchar)
    ->Arg(type::microtimestamp);

void fill(Fixture &fixture, int rows) {
  fixture.run("CREATE TABLE t (id int, name varchar(40), price double)");
  fixture.run("CREATE UNIQUE INDEX ti ON t (id)");
  fixture.run("BEGIN WORK");
  for (int i = 0; i < rows; i += 100) {
    std::string sql = "INSERT INTO t VALUES ";
    for (int k = i; k < i + 100; ++k) {
      sql += (k == i ? "" : ", ") + std::to_string(k) + ", 'name of " + std::to_string(k) + "', 1.5";
    }
    fixture.run(sql);
  }
  fixture.run("COMMIT WORK");
}

// Prepare, execute, fetch one row, read three values, clear.
void select_by_key(benchmark::State &state) {
  Fixture fixture(false);
  fill(fixture, 100000);
  Statement &statement = fixture.statement();
  int i = 0;
  for (auto _ : state) {
    char sql[64];
    snprintf(sql, sizeof sql, "SELECT id, name, price FROM t WHERE id = %d",
             static_cast<int>(scattered(++i) % 100000));
    need(sql_prepare(statement, sql, Execution::stepwise) == SqlResult::done && sql_execute(statement),
         "execute");
    need(sql_fetch(statement) == Found::yes, "fetch");
    for (int column = 0; column < 3; ++column) {
      Value value;
      need(cursor_value(*statement.query->cursor, statement.query->columns[column], &value), "value");
      benchmark::DoNotOptimize(value);
    }
    sql_clear(statement);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(select_by_key);

void select_scan_with_condition(benchmark::State &state) {
  Fixture fixture(false);
  fill(fixture, 100000);
  Statement &statement = fixture.statement();
  for (auto _ : state) {
    need(sql_prepare(statement, "SELECT COUNT(*) FROM t WHERE price > 1.0 AND name LIKE 'name%9'",
                     Execution::stepwise) == SqlResult::done &&
             sql_execute(statement),
         "execute");
    sql_clear(statement);
  }
  state.SetItemsProcessed(state.iterations() * 100000);
}
BENCHMARK(select_scan_with_condition);

void insert_statement_in_transaction(benchmark::State &state) {
  Fixture fixture(false);
  fill(fixture, 100);
  fixture.run("BEGIN WORK");
  int i = 1000;
  for (auto _ : state) {
    ++i;
    char sql[96];
    snprintf(sql, sizeof sql, "INSERT INTO t VALUES %d, 'name of %d', 2.5", i, i);
    need(sql_execute_text(fixture.statement(), sql) == SqlResult::done, "insert");
  }
  fixture.run("ROLLBACK WORK");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(insert_statement_in_transaction)->Iterations(200000);

void insert_statement_of_its_own(benchmark::State &state) {
  Fixture fixture(false);
  fill(fixture, 100);
  int i = 1000;
  for (auto _ : state) {
    ++i;
    char sql[96];
    snprintf(sql, sizeof sql, "INSERT INTO t VALUES %d, 'name of %d', 2.5", i, i);
    need(sql_execute_text(fixture.statement(), sql) == SqlResult::done, "insert");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(insert_statement_of_its_own)->Iterations(300);

}  // namespace
}  // namespace tovik

BENCHMARK_MAIN();
