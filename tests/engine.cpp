#include "engine.h"

#include <set>

#include "api/statement_database.h"
#include "data/database.h"
#include "data/row/data_systems.h"
#include "support.h"
#include "table_oracle.h"

namespace tovik::test {

namespace {

struct ReadHoldScope {
  explicit ReadHoldScope(Database &db) : db(db), held(db_read_begin(db, current_thread())) {}
  ~ReadHoldScope() {
    if (held) db_read_end(db, current_thread());
  }
  Database &db;
  bool held;
};

std::string tables_fault(Database &db) {
  std::vector<std::string> names;
  if (!table_names(db, &names)) return failed("listing the tables");
  for (const std::string &name : names) {
    Table *table = table_open(db, name.c_str());
    if (table == nullptr) return failed("opening " + name);
    const std::string fault = table_fault(*table);
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
    if (!sm_page_get(sm, block, page)) return false;
    block = load_i32(page.data());
  }
  return static_cast<int32_t>(blocks->size()) == counters.fcnt;
}

// The pages of a chain that links them at offset 4.
bool chain_blocks(StorageManager &sm, uint32_t first, uint32_t count, std::vector<BlockNo> *blocks) {
  uint32_t block = first;
  for (uint32_t i = 0; i < count; ++i) {
    Page page;
    if (block == 0 || !sm_page_get(sm, static_cast<BlockNo>(block), page)) return false;
    blocks->push_back(static_cast<BlockNo>(block));
    block = load_u32(page.data() + 4);
  }
  return block == 0;
}

// The row numbers by which a descriptor ROW's row systems or indices are opened.
bool descriptors(RowSystem &rows, std::vector<RowNo> *numbers) {
  return each_row(rows, rows.row_size - 1, [&](RowNo row, const uint8_t *record) {
    // Of the system ROW's rows only the descriptors (type 0) name a row system.
    if (rows.kind != RowKind::system || load_u32(record) == 0) numbers->push_back(row);
  });
}

bool owned_blocks(StorageManager &sm, std::vector<BlockNo> *blocks) {
  DataSystems &systems = data_systems(sm);
  const auto add_rows = [&](RowSystem &rows) {
    const RowCounters &counters = row_counters(rows);
    return chain_blocks(sm, counters.page_top, counters.page_count, blocks);
  };
  *blocks = {1, 2};  // the lock bytes, the system ROW's counters
  std::vector<RowNo> row_systems, indices;
  if (!add_rows(*systems.system_rows) || !descriptors(*systems.system_rows, &row_systems) ||
      !descriptors(*systems.index_descriptors, &indices))
    return false;
  for (const RowNo number : row_systems) {
    RowSystem *rows = row_system_open(number, sm);
    const bool added = rows != nullptr && add_rows(*rows);
    row_system_close(rows);
    if (!added) return false;
  }
  for (const RowNo number : indices) {
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
  if (!owned_blocks(sm, &owned)) return failed("walking the pages");
  for (const BlockNo block : owned)
    if (!owners.insert(block).second) return "block " + std::to_string(block) + " has two owners\n";
  const BlockNo count = bm_counters(*sm.bm, part_dat).bcnt;
  if (static_cast<BlockNo>(owners.size()) == count) return "";
  return std::to_string(owners.size()) + " of " + std::to_string(count) + " blocks have an owner\n";
}

std::string cache_fault(const CacheManager &cm) {
  int dirty = 0;
  for (const CachePage *page = cm.all; page != nullptr; page = page->all_next)
    dirty += (page->status & page_dirty) != 0;
  return dirty == cm.dirty_count ? "" : std::to_string(dirty) + " changed pages are not counted right\n";
}

// The rows as lines that start with the table's name.
std::string row_lines(const std::string &name, const std::string &rows) {
  std::string result = name + ": ";
  for (const char c : rows) result += c == ';' ? "\n" + name + ": " : std::string(1, c);
  return result + "\n";
}

Database &database_of(Session &session) {
  return *static_cast<StatementDatabase *>(handle_find(session.database(), HandleKind::statement_database))
              ->db;
}

std::string table_text(Session &session, const std::string &name) {
  Table *table = table_open(database_of(session), name.c_str());
  if (table == nullptr) return failed("table " + name);
  std::string text = name + "(";
  for (int i = 0; i < table->column_count; ++i) text += std::string(" ") + table->columns[i].name;
  text += ")";
  for (int i = 0; i < table->index_count; ++i) {
    const BtreeDefinition &index = table->indices[i]->definition;
    text += (btree_is_unique(*table->indices[i]) ? ", unique " : ", index ") + std::string(index.index_name);
    for (int part = 0; part < index.part_count; ++part)
      text += " " + std::to_string(index.parts[part].column);
  }
  table_close(table);
  return text + "\n" + row_lines(name, session.rows("SELECT * FROM " + name));
}

}  // namespace

const std::string small_database =
    "NAME=t;DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=24;CACHE_SIZE_TRN=24;CACHE_RTS=0;LOCK_RETRY=2;"
    "LOCK_SLEEP=1;BEGIN_RETRY=2;BEGIN_SLEEP=1";

int scale() {
  const char *text = getenv("TOVIK_TEST_SCALE");
  return text == nullptr ? 1 : std::max(atoi(text), 1);
}

std::string database_text(Session &session) {
  err_clear();
  std::vector<std::string> names;
  {
    const ReadHoldScope hold(database_of(session));
    if (!hold.held || !table_names(database_of(session), &names)) return failed("the tables");
  }
  std::string text;
  for (const std::string &name : names) text += table_text(session, name);
  return text;
}

std::string database_fault(Session &session) {
  err_clear();
  Database &db = database_of(session);
  const ReadHoldScope hold(db);
  if (!hold.held) return failed("reading");
  StorageManager &sm = *db.storage;
  std::string fault = tables_fault(db);
  if (fault.empty()) fault = blocks_fault(sm);
  return fault + cache_fault(*sm.dat) + cache_fault(*sm.trn);
}

Statements operator+(Statements a, const Statements &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

void create_database(const std::string &params, const Statements &statements) {
  ASSERT_EQ(kld_api_create_db(params.c_str()), 0) << error_code();
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

std::string random_statement(Random &random) {
  const auto number = [&random](int limit) { return std::to_string(random.below(limit)); };
  const std::string table = "p" + number(3), index = "i" + number(4), id = number(60);
  const auto name = [&] { return random.one_in(6) ? "NULL" : "'name " + number(5) + "'"; };
  const auto note = [&] {
    return "'" + std::string(static_cast<size_t>(random.below(random.one_in(4) ? 2000 : 60)), 'n') + "'";
  };
  if (random.one_in(3)) {
    const std::string schema_changes[] = {
        "CREATE TABLE " + table + " (id int NOT NULL, name varchar(12), note text)",
        "CREATE TABLE " + table + " (id int NOT NULL, name varchar(12), note text)",
        "CREATE UNIQUE INDEX " + index + " ON " + table + " (id)",
        "CREATE INDEX " + index + " ON " + table + " (name, id)",
        "CREATE INDEX " + index + " ON " + table + " (name)",
        "DROP INDEX " + index,
        "DROP TABLE " + table,
        "EMPTY TABLE " + table,
        "RENAME TABLE " + table + " TO p" + number(3),
        "ALTER TABLE " + table + " ADD more int BEFORE note",
        "ALTER TABLE " + table + " DELETE more",
    };
    return schema_changes[random.below(static_cast<int>(std::size(schema_changes)))];
  }
  if (random.one_in(2)) {
    std::string rows =
        "INSERT INTO " + table + " (id, name, note) VALUES " + id + ", " + name() + ", " + note();
    for (int more = random.below(random.one_in(4) ? 10 : 2); more > 0; --more)
      rows += ", " + number(60) + ", " + name() + ", " + note();
    return rows;
  }
  const std::string conditions[] = {"id = " + id, "id > " + number(60) + " AND id < " + id,
                                    "name = " + name(), "name IS NULL OR id < " + id};
  const std::string changes[] = {
      "DELETE FROM " + table,
      "UPDATE " + table + " SET name = " + name() + ", note = " + note(),
      "UPDATE " + table + " SET note = " + note(),
      "UPDATE " + table + " SET id = id + " + number(60),
  };
  return changes[random.below(4)] + " WHERE " + conditions[random.below(4)];
}

}  // namespace tovik::test
