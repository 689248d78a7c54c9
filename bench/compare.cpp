// compare [--rows N] [--rounds N] [--large] [--filter TEXT] [--cap SECONDS] [--csv FILE]
//
// Prints a Markdown table: the median time of each workload with its spread, and how many times as fast Tovik
// is as SQLite. --large: 1,000,000 rows, and the workloads that are for large runs only. --filter: only
// workloads whose name holds TEXT. --cap: a workload gets no further round once all its rounds together took
// so long.
//
// In every round each engine has its turn, in another order each time, on databases of its own in a directory
// under TMPDIR. Exit status 1: the engines gave different answers.
#include "compare.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include "directory.h"

namespace compare {

void give_up(const char *what, const char *cause) {
  fflush(stdout);
  fprintf(stderr, "%s: %s\n", what, cause);
  exit(1);
}

Row::Row(int number, int customers)
    : id(number),
      customer(static_cast<int32_t>((static_cast<uint32_t>(number) * 2246822519u >> 3) %
                                    static_cast<uint32_t>(customers))),
      since(number % 3653) {
  uint64_t mixed = (static_cast<uint64_t>(number) + 1) * 0x9e3779b97f4a7c15u;
  mixed ^= mixed >> 29;
  mixed *= 0xbf58476d1ce4e5b9u;
  mixed ^= mixed >> 32;
  amount = static_cast<double>(mixed % 4000) / 4;
  snprintf(name, sizeof name, "%016llx%08x", static_cast<unsigned long long>(mixed),
           static_cast<unsigned>(number));
  snprintf(note, sizeof note, "note of %d", number);
}

std::string create_table(const Table &table) {
  constexpr const char *columns[] = {"id int NOT NULL", "customer int", "amount double",
                                     "name char(24)",   "since int",    "note varchar(40)"};
  std::string sql = std::string("CREATE TABLE ") + table.name;
  for (int i = 0; i < table.columns; ++i) sql += (i == 0 ? " (" : ", ") + std::string(columns[i]);
  return sql + ")";
}

std::string literals(const Table &table, const Row &row) {
  std::string list = std::to_string(row.id) + ", " + std::to_string(row.customer);
  char rest[120];
  snprintf(rest, sizeof rest, ", %.2f, '%s', %d, '%s'", row.amount, row.name, row.since, row.note);
  return table.columns == 6 ? list + rest : list;
}

namespace {

uint64_t mix(uint64_t sum, uint64_t value) {
  return (sum ^ value) * 0x9e3779b97f4a7c15u + (sum >> 27);
}

}  // namespace

void Answer::add(int64_t value) {
  row_ = mix(row_, static_cast<uint64_t>(value));
}

void Answer::add(double value) {
  uint64_t bits;
  memcpy(&bits, &value, sizeof bits);
  row_ = mix(row_, bits);
}

void Answer::add(std::string_view text) {
  uint64_t word;
  for (; text.size() >= sizeof word; text.remove_prefix(sizeof word)) {
    memcpy(&word, text.data(), sizeof word);
    row_ = mix(row_, word);
  }
  for (char c : text) row_ = mix(row_, static_cast<uint8_t>(c));
}

void Answer::end_row() {
  ++rows_;
  sum_ = ordered_ ? mix(sum_, row_) : sum_ + row_;
  row_ = 1;
}

namespace {

constexpr const char *engine_names[] = {"Tovik", "SQLite rollback", "SQLite WAL"};

std::unique_ptr<Engine> create(EngineKind kind, const std::string &directory, Place place) {
  std::filesystem::remove_all(directory);
  std::filesystem::create_directories(directory);
  return kind == tovik ? create_tovik(directory, place)
                       : create_sqlite(directory, place, kind == sqlite_wal ? "WAL" : "DELETE");
}

struct Options {
  int rows = 100000, rounds = 5;
  bool large = false;
  double cap = 60;
  std::string filter, csv;
};

Options parse(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string key = argv[i];
    if (key == "--large") {
      options.large = true;
      options.rows = 1000000;
      continue;
    }
    if (++i >= argc) give_up(key.c_str(), "unknown, or needs a value");
    if (key == "--rows") {
      options.rows = std::max(2000, atoi(argv[i]));
    } else if (key == "--rounds") {
      options.rounds = std::max(1, atoi(argv[i]));
    } else if (key == "--cap") {
      options.cap = atof(argv[i]);
    } else if (key == "--filter") {
      options.filter = argv[i];
    } else if (key == "--csv") {
      options.csv = argv[i];
    } else {
      give_up(key.c_str(), "unknown");
    }
  }
  return options;
}

struct Spread {
  double low, median, high;

  explicit Spread(std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    low = seconds.front();
    high = seconds.back();
    median = (seconds[(seconds.size() - 1) / 2] + seconds[seconds.size() / 2]) / 2;
  }
};

// Milliseconds with three digits that count.
std::string milliseconds(double seconds) {
  const double ms = seconds * 1000;
  char text[32];
  snprintf(text, sizeof text, "%.*f", ms < 1 ? 3 : ms < 10 ? 2 : ms < 100 ? 1 : 0, ms);
  return text;
}

std::string cell(const Spread &spread) {
  return milliseconds(spread.low) + " **" + milliseconds(spread.median) + "** " + milliseconds(spread.high);
}

class Comparison {
 public:
  explicit Comparison(const Options &options) : options_(options) {
    if (!options.csv.empty()) {
      csv_ = fopen(options.csv.c_str(), "w");
      if (csv_ == nullptr) give_up(options.csv.c_str(), "cannot be written");
      fprintf(csv_, "workload,rows,engine,rounds,min_s,median_s,max_s,ratio,goal\n");
    }
    for (EngineKind kind : {tovik, sqlite_rollback, sqlite_wal}) {
      engines_[kind] = create(kind, directory_of(kind) + "/base", Place::file);
      load_base(*engines_[kind], Run(options.rows, 0, kind, directory_of(kind)));
    }
  }
  ~Comparison() {
    if (csv_ != nullptr) fclose(csv_);
  }
  Comparison(const Comparison &) = delete;
  Comparison &operator=(const Comparison &) = delete;

  void run_all() {
    printf(
        "%d rows, %d rounds; milliseconds: min **median** max; ratio: SQLite / Tovik, rollback journal; "
        "WAL\n\n",
        options_.rows, options_.rounds);
    printf("| workload | Tovik | SQLite, rollback journal | SQLite, WAL | ratio | goal | met |\n");
    printf("|---|---|---|---|---|---|---|\n");
    for (const Workload &workload : workloads) {
      if (workload.when == Workload::large_only && !options_.large) continue;
      if (std::string(workload.name).find(options_.filter) == std::string::npos) continue;
      measure(workload);
      fflush(stdout);
    }
    compare_everything();
  }

 private:
  static std::string directory_of(EngineKind kind) {
    static const Directory directory;  // goes when the program ends, however it does
    return directory.path() + "/" + std::to_string(kind);
  }

  void measure(const Workload &workload) {
    std::vector<double> seconds[engine_count];
    double spent = 0;
    int round = 0;
    for (; round < options_.rounds && (round == 0 || spent < options_.cap); ++round) {
      std::optional<Answer> answer;
      for (int turn = 0; turn < engine_count; ++turn) {
        const EngineKind kind = static_cast<EngineKind>((round + turn) % engine_count);
        Run run(options_.rows, round, kind, directory_of(kind) + "/fresh");
        workload.run(*engines_[kind], run);
        seconds[kind].push_back(run.seconds());
        spent += run.seconds();
        if (run.answer.rows() == 0) give_up(workload.name, "no answer to compare");
        if (answer && !(*answer == run.answer)) give_up(workload.name, "the engines gave different answers");
        answer = run.answer;
      }
    }
    report(workload, round,
           {Spread(seconds[tovik]), Spread(seconds[sqlite_rollback]), Spread(seconds[sqlite_wal])});
  }

  void report(const Workload &workload, int rounds, const std::vector<Spread> &spreads) {
    const double goals[] = {1, workload.goal_rollback, workload.goal_wal};
    double ratios[engine_count];
    bool met = true;
    for (int kind = 0; kind < engine_count; ++kind) {
      ratios[kind] = spreads[static_cast<size_t>(kind)].median / spreads[tovik].median;
      if (kind != tovik) met = met && ratios[kind] >= goals[kind];
      if (csv_ != nullptr) {
        const Spread &spread = spreads[static_cast<size_t>(kind)];
        fprintf(csv_, "\"%s\",%d,%s,%d,%.6f,%.6f,%.6f,%.3f,%.2f\n", workload.name, options_.rows,
                engine_names[kind], rounds, spread.low, spread.median, spread.high, ratios[kind],
                goals[kind]);
      }
    }
    std::string name = workload.name;
    if (rounds < options_.rounds) name += " (" + std::to_string(rounds) + " rounds: cut at the cap)";
    printf("| %s | %s | %s | %s | %.3g; %.3g |", name.c_str(), cell(spreads[tovik]).c_str(),
           cell(spreads[sqlite_rollback]).c_str(), cell(spreads[sqlite_wal]).c_str(), ratios[sqlite_rollback],
           ratios[sqlite_wal]);
    if (workload.goal_rollback > 0) {
      printf(" %g; %g | %s |\n", workload.goal_rollback, workload.goal_wal, met ? "yes" : "no");
    } else {
      printf(" - | - |\n");
    }
  }

  void compare_everything() {
    Answer answers[engine_count];
    for (EngineKind kind : {tovik, sqlite_rollback, sqlite_wal})
      read_everything(*engines_[kind], answers[kind]);
    for (EngineKind kind : {sqlite_rollback, sqlite_wal}) {
      if (!(answers[tovik] == answers[kind]))
        give_up(engine_names[kind], "holds other data than Tovik in the end");
    }
    printf("\nAll answers were the same, and so are the %lld rows in the end.\n",
           static_cast<long long>(answers[tovik].rows()));
  }

  Options options_;
  std::unique_ptr<Engine> engines_[engine_count];
  FILE *csv_ = nullptr;
};

}  // namespace

std::unique_ptr<Engine> Run::fresh(Place place) const {
  return create(kind_, directory_, place);
}

}  // namespace compare

int main(int argc, char **argv) {
  const compare::Options options = compare::parse(argc, argv);
  compare::start_tovik();
  compare::Comparison(options).run_all();
}
