// Loads a Japanese-English dictionary into a fresh database and asks it questions.
//
//   dictionary FILE DIRECTORY
//
// FILE: UTF-8 lines "headword [reading] /gloss/gloss/". Only the installed headers are used.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "kld_api.h"

namespace {

constexpr int rows_per_statement = 64;
constexpr int rows_per_transaction = 50000;
constexpr int rows_per_progress = 10000;

[[noreturn]] void give_up(const char *what) {
  kld_api_print_error(what);
  fflush(stdout);
  exit(1);
}

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

class Database {
 public:
  explicit Database(const std::string &params)
      : db_(kld_api_open_db(params.c_str())),
        statement_(db_ == nullptr ? nullptr : kld_api_create_stmt(db_)) {
    if (statement_ == nullptr) give_up("open");
  }
  ~Database() {
    kld_api_destroy_stmt(statement_);
    kld_api_close_db(db_);
  }
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;

  void run(const std::string &sql) {
    if (kld_api_exec_sql_char(statement_, sql.c_str()) < 0) give_up(sql.substr(0, 200).c_str());
  }

  // The rows of a query, one line each, columns separated by " | ".
  std::string query(const std::string &sql) {
    if (kld_api_pre_stmt_char(statement_, sql.c_str()) != 0 || kld_api_exec_stmt(statement_) != 0) {
      give_up(sql.c_str());
    }
    int32_t columns = 0;
    if (kld_api_get_cols_count(statement_, &columns) != 0) give_up("columns");
    std::string rows;
    int more;
    while ((more = kld_api_fetch_stmt(statement_)) == 1) {
      for (int column = 1; column <= columns; ++column) {
        static char text[8192];
        int32_t not_null = 0;
        if (kld_api_get_data(statement_, column, TOVIK_CHAR, text, sizeof text, nullptr, &not_null) != 0) {
          give_up("value");
        }
        rows += column == 1 ? "    " : " | ";
        rows += not_null != 0 ? text : "(null)";
      }
      rows += '\n';
    }
    if (more < 0) give_up("fetch");
    kld_api_clear_stmt(statement_);
    return rows;
  }

 private:
  kld_db *db_;
  kld_stmt *statement_;
};

struct Entry {
  std::string_view headword, reading, mark, gloss;
};

// An entry without a reading is read as it is written; its first mark is the word in the first brackets.
bool parse_line(std::string_view line, Entry &entry) {
  const size_t slash = line.find(" /");
  if (slash == std::string_view::npos || line.size() < slash + 4) return false;
  std::string_view words = line.substr(0, slash);
  entry.gloss = line.substr(slash + 2, line.rfind('/') - slash - 2);
  const size_t bracket = words.find(" [");
  entry.headword = words.substr(0, bracket);
  entry.reading = entry.headword;
  if (bracket != std::string_view::npos)
    entry.reading = words.substr(bracket + 2, words.size() - bracket - 3);
  entry.mark = {};
  if (entry.gloss.front() == '(') entry.mark = entry.gloss.substr(1, entry.gloss.find_first_of(",)") - 1);
  if (entry.mark.size() > 12) entry.mark = {};
  return true;
}

void append_text(std::string &sql, std::string_view text) {
  sql += ", '";
  for (const char c : text) {
    if (c == '\'' || c == '\\') sql += '\\';
    sql += c;
  }
  sql += '\'';
}

class Loader {
 public:
  explicit Loader(Database &db) : db_(db) {}

  void add(const Entry &entry) {
    if (loaded_ % rows_per_transaction == 0) begin();
    sql_ += pending_ == 0 ? "INSERT INTO entry VALUES " : ", ";
    sql_ += std::to_string(++loaded_);
    append_text(sql_, entry.headword);
    append_text(sql_, entry.reading);
    append_text(sql_, entry.mark);
    append_text(sql_, entry.gloss);
    if (++pending_ == rows_per_statement) flush();
    if (loaded_ % rows_per_progress == 0) progress();
    if (loaded_ % rows_per_transaction == 0) commit();
  }

  void finish() {
    if (loaded_ % rows_per_transaction != 0) commit();
    progress();
    printf("\n");
  }

  int loaded() const { return loaded_; }
  double seconds() const { return watch_.seconds(); }

 private:
  void begin() { db_.run("BEGIN TRANSACTION"); }
  void commit() {
    flush();
    db_.run("COMMIT TRANSACTION");
  }
  void flush() {
    if (pending_ == 0) return;
    db_.run(sql_);
    sql_.clear();
    pending_ = 0;
  }
  void progress() {
    printf("\r%d entries, %.0f per second", loaded_, loaded_ / seconds());
    fflush(stdout);
  }

  Database &db_;
  Stopwatch watch_;
  std::string sql_;
  int pending_ = 0;
  int loaded_ = 0;
};

void create_schema(Database &db) {
  db.run(
      "CREATE TABLE entry (id int NOT NULL, headword text(20, 40, 64), reading varchar(112), mark "
      "varchar(12),"
      " gloss text(20, 64, 64))");
  db.run("CREATE UNIQUE INDEX entry_id ON entry (id)");
  db.run("CREATE INDEX entry_reading ON entry (reading)");
  db.run("CREATE TABLE mark (code varchar(12), meaning varchar(40))");
  db.run(
      "INSERT INTO mark VALUES 'n', 'noun', 'v1', 'ichidan verb', 'v5r', 'godan verb with ru', 'adj-i',"
      " 'adjective', 'adj-na', 'adjectival noun', 'adv', 'adverb', 'exp', 'expression', 'int', "
      "'interjection',"
      " 'pn', 'pronoun', 'prt', 'particle', 'num', 'number', 'ctr', 'counter'");
}

void load(Database &db, const char *file) {
  std::ifstream in(file, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (text.empty()) {
    fprintf(stderr, "cannot read %s\n", file);
    exit(1);
  }
  Loader loader(db);
  for (size_t start = 0; start < text.size();) {
    const size_t end = text.find('\n', start);
    Entry entry;
    if (parse_line(std::string_view(text).substr(start, end - start), entry)) loader.add(entry);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  loader.finish();
  printf("loaded %d entries with both indices in place in %.2f s: %.0f rows per second\n", loader.loaded(),
         loader.seconds(), loader.loaded() / loader.seconds());
}

void print_sizes(const std::string &directory) {
  for (const auto &file : std::filesystem::directory_iterator(directory)) {
    printf("  %-24s %8.1f MB\n", file.path().filename().c_str(), static_cast<double>(file.file_size()) / 1e6);
  }
}

// Every question with its answer and, when told, the time it took.
std::string ask_all(Database &db, bool print) {
  static constexpr const char *questions[] = {
      "SELECT headword, gloss FROM entry WHERE id = 100000",
      "SELECT headword, gloss FROM entry WHERE reading = 'いぬ'",
      "SELECT headword, reading, gloss FROM entry WHERE reading LIKE 'いぬの%'",
      "SELECT headword, meaning FROM entry, mark WHERE reading = 'はし' AND mark = code",
      "SELECT reading, headword, id FROM entry WHERE reading BETWEEN 'ねこか' AND 'ねこし' ORDER BY reading "
      "DESC, id",
      "SELECT COUNT(*), MIN(id), MAX(id) FROM entry",
      "SELECT COUNT(*) AS nouns FROM entry WHERE mark = 'n' AND LENGTH(reading) < 4",
  };
  std::string answers;
  for (const char *question : questions) {
    const Stopwatch watch;
    const std::string answer = db.query(question);
    answers += answer;
    if (print) printf("\n%s\n%s    (%.2f ms)\n", question, answer.c_str(), watch.seconds() * 1000);
  }
  return answers;
}

double peak_megabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

int run(const char *file, const std::string &directory) {
  const std::string params = "NAME=edict;PATH=\"" + directory +
                             "\";OVERWRITE=true;CACHE_SIZE_DAT=4096;CACHE_SIZE_TRN=8192;HASH_SIZE_DAT=4096;"
                             "HASH_SIZE_TRN=8192";
  if (kld_api_create_db(params.c_str()) != 0) give_up("create");
  const Stopwatch watch;
  std::string before;
  {
    Database db(params);
    create_schema(db);
    load(db, file);
    print_sizes(directory);
    before = ask_all(db, true);
  }
  Database db(params);
  if (ask_all(db, false) != before) {
    fprintf(stderr, "the answers changed when the database was opened again\n");
    return 1;
  }
  printf(
      "\nclosed, opened again: the same answers. %.1f s in all, peak memory %.0f MB (the dictionary text, 32 "
      "MB of\n"
      "TRN cache and 16 MB of DAT cache included)\n",
      watch.seconds(), peak_megabytes());
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: dictionary FILE DIRECTORY\n");
    return 2;
  }
  if (kld_api_init("HVI_SQL_BUF_SIZE=262144") != 0) give_up("start");
  const int status = run(argv[1], argv[2]);
  kld_api_end();
  return status;
}
