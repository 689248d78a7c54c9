// One set of workloads, run by Tovik and by SQLite on the same machine, disk, page size, cache bytes and
// durability. A workload is written once, against Engine; what both engines answer is compared.
#ifndef TOVIK_BENCH_COMPARE_H
#define TOVIK_BENCH_COMPARE_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace compare {

constexpr int page_size = 4096;
constexpr int cache_pages = 1024;  // 4 MiB

enum EngineKind { tovik, sqlite_rollback, sqlite_wal, engine_count };
enum class Place { file, memory };
enum class Sync { off, on };

// Ends the program, with the engine's own error where it has one.
[[noreturn]] void give_up(const char *what, const char *cause);

// Row number n of every table is the same everywhere. A table has the first so many of these columns.
struct Row {
  int32_t id, customer;
  double amount;  // a multiple of 0.25: sums are exact in every order
  char name[25];  // 24 hexadecimal digits, different for every id
  int32_t since;
  char note[41];

  Row() = default;
  Row(int number, int customers);
};

struct Table {
  const char *name;
  int columns;
};
constexpr Table orders{"t", 6}, words{"d", 4}, narrow{"w", 3}, some{"s", 2};

std::string create_table(const Table &table);
std::string literals(const Table &table, const Row &row);  // separated by commas

// What a workload answered: the number of rows and a sum over their values. Rows count in any order unless
// ordered is set.
class Answer {
 public:
  void add(int64_t value);
  void add(double value);
  void add(std::string_view text);
  void end_row();
  void ordered() { ordered_ = true; }
  bool operator==(const Answer &other) const { return rows_ == other.rows_ && sum_ == other.sum_; }
  int64_t rows() const { return rows_; }

 private:
  int64_t rows_ = 0;
  uint64_t sum_ = 0, row_ = 1;
  bool ordered_ = false;
};

// One handle of an engine. Every call succeeds or ends the program.
class Engine {
 public:
  Engine() = default;
  virtual ~Engine() = default;
  Engine(const Engine &) = delete;
  Engine &operator=(const Engine &) = delete;

  virtual void close() = 0;
  virtual void open() = 0;                           // again, after close
  virtual std::unique_ptr<Engine> for_thread() = 0;  // for one more thread on the same data

  virtual void begin() = 0;
  virtual void commit() = 0;
  virtual void set_sync(Sync sync) = 0;
  virtual void execute(const std::string &sql) = 0;
  // A text of its own, prepared, run and forgotten. types: of the columns; i integer, d double, t text.
  virtual void query(const std::string &sql, const char *types, Answer &answer) = 0;
  // Without SQL text: the record interface of Tovik, a statement of SQLite that is prepared once.
  virtual void insert(const Table &table, const Row &row) = 0;
  virtual void read(const Table &table, int id, Answer &answer) = 0;
  virtual const char *blob_type() const = 0;
  virtual void insert_blob(int id, const std::string &bytes) = 0;
  virtual void read_blob(int id, Answer &answer) = 0;
  virtual std::string insert_text(const Table &table, const Row &row) const = 0;
};

// directory: its own, empty.
std::unique_ptr<Engine> create_tovik(const std::string &directory, Place place);
std::unique_ptr<Engine> create_sqlite(const std::string &directory, Place place, const char *journal);
void start_tovik();

// One measurement: a workload on an engine in a round.
class Run {
 public:
  int rows, customers, round;
  Answer answer;

  Run(int row_count, int round_number, EngineKind kind, const std::string &directory)
      : rows(row_count),
        customers(row_count / 100),
        round(round_number),
        kind_(kind),
        directory_(directory) {}
  Row row(int number) const { return Row(number, customers); }
  template <class Work>
  void time(const Work &work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  double seconds() const { return seconds_; }
  std::unique_ptr<Engine> fresh(Place place) const;  // a new database

 private:
  EngineKind kind_;
  std::string directory_;
  double seconds_ = 0;
};

struct Workload {
  const char *name;
  double goal_rollback, goal_wal;  // times as fast as SQLite; 0: none is set
  enum { always, large_only } when;
  void (*run)(Engine &engine, Run &run);  // engine: holds the tables of load_base
};

extern const std::vector<Workload> workloads;

void load_base(Engine &engine, const Run &run);
// All rows of all tables of load_base.
void read_everything(Engine &engine, Answer &answer);

}  // namespace compare

#endif
