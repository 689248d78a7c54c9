#include "engine.h"

#include <algorithm>
#include <set>

#include "api/handle.h"
#include "data/catalog.h"
#include "data/data_layer.h"
#include "data/database.h"
#include "frame/error.h"
#include "support.h"

namespace tovik::test {

namespace {

constexpr int text_limit = 65536;  // bytes of one value as text

std::string status_text(const std::string &what, StatusCode status) {
  return what + ": error " + std::to_string(status) + "\n";
}

struct ReadHoldScope {
  explicit ReadHoldScope(Database &db) : db(db), held(db_read_begin(db, current_thread())) {}
  ~ReadHoldScope() {
    if (held) db_read_end(db, current_thread());
  }
  Database &db;
  bool held;
};

bool table_names(Database &db, std::vector<std::string> *names) {
  const auto visit = [](void *context, const char *name) {
    static_cast<std::vector<std::string> *>(context)->push_back(name);
    return true;
  };
  return table_walk(db, visit, names);
}

// What stands in an index or should: keys with their row numbers, in no particular order.
using Entries = std::vector<std::pair<std::string, RowNo>>;

template <class Visit>  // bool visit(row, record)
bool each_row(RowSystem &rows, int record_size, Visit visit) {
  std::vector<uint8_t> record(static_cast<size_t>(record_size));
  RowScan scan;
  row_scan_start(scan, rows);
  for (;;) {
    RowNo row = 0;
    switch (row_scan_next(scan, record.data(), record_size, &row)) {
      case RowFetch::row:
        if (!visit(row, record.data())) return false;
        break;
      case RowFetch::end:
        return true;
      default:
        return false;
    }
  }
}

bool index_entries(Btree &index, Entries *entries) {
  RowSet *rows = rowset_new();
  BtreeCursor cursor;
  bool complete = false;
  if (rows != nullptr && btree_cursor_open(cursor, index, BtreeRange{})) {
    uint8_t key[btree_key_limit];
    BtreeFetch fetched;
    while ((fetched = btree_cursor_fetch(cursor, key, rows, nullptr)) == BtreeFetch::item)
      for (const RowNo row : rows->rows)
        entries->emplace_back(
            std::string(reinterpret_cast<char *>(key), static_cast<size_t>(btree_key_size(index))), row);
    complete = fetched == BtreeFetch::end;
    btree_cursor_close(cursor);
  }
  rowset_free(rows);
  return complete;
}

bool index_finds(Btree &index, const std::string &key, RowNo row) {
  RowSet *rows = rowset_new();
  if (rows == nullptr) return false;
  const BtreeFind found = btree_search(index, reinterpret_cast<const uint8_t *>(key.data()), rows);
  const bool contains =
      found == BtreeFind::found && std::find(rows->rows.begin(), rows->rows.end(), row) != rows->rows.end();
  rowset_free(rows);
  return contains;
}

std::string index_fault(const Table &table, Btree &index) {
  const std::string name = std::string(table.name) + "." + index.definition.index_name;
  Entries wanted, found;
  const bool scanned = each_row(*table.rows, table.record_size, [&](RowNo row, const uint8_t *record) {
    uint8_t key[btree_key_limit];
    index_key(table, index, record, key);
    wanted.emplace_back(
        std::string(reinterpret_cast<char *>(key), static_cast<size_t>(btree_key_size(index))), row);
    return true;
  });
  if (!scanned) return status_text(name + ": reading the rows", first_status());
  if (!index_entries(index, &found)) return status_text(name + ": walking the index", first_status());
  for (const auto &[key, row] : wanted)
    if (!index_finds(index, key, row)) return name + " does not find row " + std::to_string(row) + "\n";
  std::sort(wanted.begin(), wanted.end());
  std::sort(found.begin(), found.end());
  if (wanted == found) return "";
  return name + " holds " + std::to_string(found.size()) + " entries for " + std::to_string(wanted.size()) +
         " rows, or others\n";
}

std::string tables_fault(Database &db) {
  std::vector<std::string> names;
  if (!table_names(db, &names)) return status_text("listing the tables", first_status());
  for (const std::string &name : names) {
    Table *table = table_open(db, name.c_str());
    if (table == nullptr) return status_text("opening " + name, first_status());
    std::string fault;
    uint32_t rows = 0;
    if (!each_row(*table->rows, table->record_size, [&rows](RowNo, const uint8_t *) { return ++rows > 0; }))
      fault = status_text("reading " + name, first_status());
    else if (rows != row_active_count(*table->rows))
      fault = name + " counts " + std::to_string(row_active_count(*table->rows)) + " rows and has " +
              std::to_string(rows) + "\n";
    for (int i = 0; i < table->index_count && fault.empty(); ++i)
      fault = index_fault(*table, *table->indices[i]);
    table_close(table);
    if (!fault.empty()) return fault;
  }
  return "";
}

bool free_blocks(StorageManager &sm, std::set<BlockNo> *blocks) {
  const Counters &counters = bm_counters(*sm.bm, part_dat);
  for (BlockNo block = counters.flst; block != 0;) {
    if (block > counters.bcnt || !blocks->insert(block).second) return false;
    Page page;
    if (!sm_page_get(sm, block, 0, page)) return false;
    block = load_i32(page.data());
  }
  return static_cast<int32_t>(blocks->size()) == counters.fcnt;
}

// The pages of a chain that links them at offset 4.
bool chain_blocks(StorageManager &sm, uint32_t first, uint32_t count, std::vector<BlockNo> *blocks) {
  uint32_t block = first;
  for (uint32_t i = 0; i < count; ++i) {
    Page page;
    if (block == 0 || !sm_page_get(sm, static_cast<BlockNo>(block), 0, page)) return false;
    blocks->push_back(static_cast<BlockNo>(block));
    block = load_u32(page.data() + 4);
  }
  return block == 0;
}

bool row_numbers(RowSystem &rows, int record_size, std::vector<RowNo> *numbers) {
  return each_row(rows, record_size, [&](RowNo row, const uint8_t *record) {
    // Of the system ROW's rows only the descriptors (type 0) name a row system.
    if (rows.kind != RowKind::system || load_u32(record) == 0) numbers->push_back(row);
    return true;
  });
}

bool owned_blocks(StorageManager &sm, std::vector<BlockNo> *blocks) {
  DataSystems &systems = data_systems(sm);
  const auto add_rows = [&](RowSystem &rows) {
    const RowCounters &counters = row_counters(rows);
    return chain_blocks(sm, counters.page_top, counters.page_count, blocks);
  };
  *blocks = {1, 2};  // the lock bytes, the system ROW's counters
  std::vector<RowNo> numbers;
  if (!add_rows(*systems.system_rows) ||
      !row_numbers(*systems.system_rows, systems.system_rows->row_size - 1, &numbers))
    return false;
  for (const RowNo number : numbers) {
    RowSystem *rows = row_system_open(number, sm);
    if (rows == nullptr) return false;
    const bool added = add_rows(*rows);
    row_system_close(rows);
    if (!added) return false;
  }

  numbers.clear();
  if (!row_numbers(*systems.index_descriptors, systems.index_descriptors->row_size - 1, &numbers))
    return false;
  for (const RowNo number : numbers) {
    Btree *index = btree_open(sm, number);
    if (index == nullptr) return false;
    const BtreePages &pages = index->pages[sm_level(sm)];
    const bool added = chain_blocks(sm, pages.first, pages.count, blocks);
    btree_close(index);
    if (!added) return false;
  }
  return true;
}

std::string blocks_fault(StorageManager &sm) {
  std::set<BlockNo> owners;
  std::vector<BlockNo> owned;
  if (!free_blocks(sm, &owners)) return "the free list is broken\n";
  if (!owned_blocks(sm, &owned)) return status_text("walking the pages", first_status());
  for (const BlockNo block : owned)
    if (!owners.insert(block).second) return "block " + std::to_string(block) + " has two owners\n";
  const BlockNo count = bm_counters(*sm.bm, part_dat).bcnt;
  if (static_cast<BlockNo>(owners.size()) == count) return "";
  return std::to_string(owners.size()) + " of " + std::to_string(count) + " blocks have an owner\n";
}

// The rows as lines that start with the table's name; long runs of one character by their length.
std::string row_lines(const std::string &name, const std::string &rows) {
  std::string result;
  for (size_t begin = 0; begin < rows.size();) {
    if (begin == 0 || rows[begin - 1] == '\n') result += name + ": ";
    const size_t end = std::min(rows.find_first_not_of(rows[begin], begin), rows.size());
    const size_t run = rows[begin] == '\n' ? 1 : end - begin;
    result += rows[begin];
    if (run >= 6) result += "{" + std::to_string(run) + "}";
    begin += run < 6 ? 1 : run;
  }
  return result;
}

std::string index_text(const Btree &index) {
  const BtreeDefinition &definition = index.definition;
  std::string text = btree_is_unique(index) ? ", unique " : ", index ";
  text += definition.index_name;
  for (int i = 0; i < definition.part_count; ++i) text += " " + std::to_string(definition.parts[i].column);
  return text;
}

std::string table_text(Session &session, const std::string &name) {
  Table *table = table_open(session.database(), name.c_str());
  if (table == nullptr) return status_text("table " + name, first_status());
  std::string text = name + "(";
  for (int i = 0; i < table->column_count; ++i)
    text += std::string(i > 0 ? ", " : "") + table->columns[i].name;
  text += ")";
  for (int i = 0; i < table->index_count; ++i) text += index_text(*table->indices[i]);
  table_close(table);
  std::string rows;
  const StatusCode status = session.query("SELECT * FROM " + name, &rows);
  return text + "\n" + (status == 0 ? row_lines(name, rows) : status_text("rows", status));
}

}  // namespace

int scale() {
  const char *text = getenv("TOVIK_TEST_SCALE");
  return text == nullptr ? 1 : std::max(atoi(text), 1);
}

Engine::Engine(const std::string &settings) {
  if (kld_api_init(settings.c_str()) != 0) ADD_FAILURE() << "the library does not start: " << first_status();
}

StatusCode first_status() {
  int32_t code = 0;
  return kld_api_get_error(nullptr, &code, nullptr, nullptr) == 1 ? code : 0;
}

Session::Session(const std::string &params) : db_(kld_api_open_db(params.c_str())) {
  if (db_ != nullptr) statement_ = kld_api_create_stmt(db_);
  if (statement_ == nullptr) open_status_ = first_status();
}

Session::Session(Session *other) : db_(other->db_), owns_db_(false), statement_(kld_api_create_stmt(db_)) {
  if (statement_ == nullptr) open_status_ = first_status();
}

Session::~Session() {
  kld_api_destroy_stmt(statement_);
  if (owns_db_) kld_api_close_db(db_);
}

static StatusCode outcome(int result) {
  if (result >= 0) return 0;
  const StatusCode status = first_status();
  return status == 0 ? -1 : status;
}

StatusCode Session::run(const std::string &sql) {
  return outcome(kld_api_exec_sql_char(statement_, sql.c_str()));
}

StatusCode Session::query(const std::string &sql, std::string *rows) {
  StatusCode status = outcome(kld_api_pre_stmt_char(statement_, sql.c_str()));
  if (status == 0) status = outcome(kld_api_exec_stmt(statement_));
  if (status == 0) status = fetch_all(rows);
  kld_api_clear_stmt(statement_);
  return status;
}

StatusCode Session::fetch_all(std::string *rows) {
  std::vector<char> buffer(text_limit);
  int32_t columns = 0;
  if (kld_api_get_cols_count(statement_, &columns) != 0) return outcome(-1);
  int fetched;
  while ((fetched = kld_api_fetch_stmt(statement_)) == 1) {
    for (int column = 1; column <= columns; ++column) {
      int32_t not_null = 0;
      if (kld_api_get_data(statement_, column, TOVIK_CHAR, buffer.data(), text_limit, nullptr, &not_null) !=
          0)
        return outcome(-1);
      *rows += not_null == 0 ? "~" : buffer.data();
      *rows += column < columns ? "|" : "\n";
    }
  }
  return outcome(fetched);
}

Database &Session::database() const {
  return *handle_object<Database>(db_, HandleKind::statement_database);
}

std::string database_text(Session &session) {
  err_clear();
  std::vector<std::string> names;
  {
    const ReadHoldScope hold(session.database());
    if (!hold.held || !table_names(session.database(), &names))
      return status_text("the tables", first_status());
  }
  std::string text;
  for (const std::string &name : names) text += table_text(session, name);
  return text;
}

std::string database_fault(Session &session) {
  err_clear();
  Database &db = session.database();
  const ReadHoldScope hold(db);
  if (!hold.held) return status_text("reading", first_status());
  const std::string fault = tables_fault(db);
  return fault.empty() ? blocks_fault(*db.storage) : fault;
}

Statements operator+(Statements a, const Statements &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

void create_database(const std::string &params, const Statements &statements) {
  ASSERT_EQ(kld_api_create_db(params.c_str()), 0) << first_status();
  Session session(params);
  ASSERT_TRUE(session.open()) << session.open_status();
  for (const std::string &sql : statements) ASSERT_EQ(session.run(sql), 0) << sql;
}

DiskImage made_database(const std::string &params, const Statements &statements) {
  fault_driver::load({});
  create_database(params, statements);
  return fault_driver::content();
}

Statements schema() {
  return {"CREATE TABLE person (id int NOT NULL, name varchar(20), note text)",
          "CREATE UNIQUE INDEX person_id ON person (id)", "CREATE INDEX person_name ON person (name, id)"};
}

Statements person_rows(int from, int count) {
  Statements statements;
  for (int id = from; id < from + count; ++id) {
    const std::string note(static_cast<size_t>(id * 13 % 90 + 1), static_cast<char>('a' + id % 26));
    statements.push_back("INSERT INTO person VALUES " + std::to_string(id) + ", 'name " +
                         std::to_string(id % 7) + "', '" + note + "'");
  }
  return statements;
}

static std::string random_row(Random &random) {
  const std::string id = std::to_string(random.below(60));
  const std::string name = random.one_in(6) ? "NULL" : "'name " + std::to_string(random.below(5)) + "'";
  const std::string note(static_cast<size_t>(random.below(random.one_in(4) ? 2000 : 60)), 'n');
  return id + ", " + name + ", " + (note.empty() ? "NULL" : "'" + note + "'");
}

static std::string random_condition(Random &random) {
  const std::string number = std::to_string(random.below(60));
  switch (random.below(4)) {
    case 0:
      return " WHERE id = " + number;
    case 1:
      return " WHERE id > " + number + " AND id < " + number + " + 9";
    case 2:
      return " WHERE name = 'name " + std::to_string(random.below(5)) + "'";
    default:
      return " WHERE name IS NULL OR id < " + std::to_string(random.below(10));
  }
}

std::string random_statement(Random &random) {
  const std::string table = "p" + std::to_string(random.below(3));
  const std::string index = "i" + std::to_string(random.below(4));
  switch (random.below(20)) {
    case 0:
    case 1:
      return "CREATE TABLE " + table + " (id int NOT NULL, name varchar(12), note text)";
    case 2:
      return "CREATE UNIQUE INDEX " + index + " ON " + table + " (id)";
    case 3:
      return "CREATE INDEX " + index + " ON " + table + (random.one_in(2) ? " (name)" : " (name, id)");
    case 4:
      return "DROP INDEX " + index;
    case 5:
      return random.one_in(2) ? "DROP TABLE " + table : "EMPTY TABLE " + table;
    case 6:
      return "RENAME TABLE " + table + " TO p" + std::to_string(random.below(3));
    case 7:
    case 8:
      return "DELETE FROM " + table + random_condition(random);
    case 9:
    case 10:
    case 11:
      return "UPDATE " + table + " SET name = 'name " + std::to_string(random.below(5)) + "', note = '" +
             std::string(static_cast<size_t>(1 + random.below(400)), 'u') + "'" + random_condition(random);
    case 12:
      return "UPDATE " + table + " SET id = id + " + std::to_string(random.below(30)) +
             random_condition(random);
    default: {
      std::string sql = "INSERT INTO " + table + " VALUES " + random_row(random);
      for (int more = random.one_in(3) ? random.below(12) : 0; more > 0; --more)
        sql += ", " + random_row(random);
      return sql;
    }
  }
}

}  // namespace tovik::test
