// DESCRIBE and INFO. None of them changes stored data.
#include <cinttypes>
#include <cstdio>

#include "data/row/data_systems.h"
#include "frame/error.h"
#include "frame/param_text.h"
#include "sql/parse/shapes.h"
#include "sql/statement/executors.h"
#include "sql/statement/table_check.h"
#include "storage/transaction/trn_storage.h"

namespace tovik {

namespace {

// ---- DESCRIBE ----

void print_attribute(const Column &column) {
  const TypeRow &type = *type_row(column.type);
  system_driver.print("    %-34s%s", column.name, type.name);
  switch (type.parameter_count) {
    case 1:
      system_driver.print("(%d)", column.p1);
      break;
    case 2:
      system_driver.print("(%d,%d)", column.p1, column.p2);
      break;
    case 3:
      system_driver.print("(%d,%d,%d)", column.p1, column.p2, column.p3);
      break;
    default:
      break;
  }
  system_driver.print("%s%s%s", column.not_null ? "  Not Null" : "",
                      column.auto_increment ? "  Auto Increment" : "", "\n");
}

void print_attributes(const Table &table) {
  for (int i = 0; i < table.column_count; ++i) print_attribute(table.columns[i]);
}

void print_index(const Table &table, const Btree &index) {
  const char *kind = (index.definition.flags & btree_timeseries) != 0 ? "TIMESERIES" : "BTREE";
  if (btree_is_unique(index)) {
    system_driver.print("UNIQUE %s ", kind);
  } else {
    system_driver.print("NORMAL (%d) %s ", index.definition.master_count, kind);
  }
  system_driver.print("%s ON (", index.definition.index_name);
  for (int i = 0; i < index.definition.part_count; ++i) {
    const int column = index.definition.parts[i].column;
    system_driver.print("%s%s", i == 0 ? "" : ", ", table.columns[column - 1].name);
  }
  system_driver.print(")%s", "\n");
}

void print_details(Table &table) {
  if (table.index_count > 0) system_driver.print("%s  Indices:     ", "\n");
  for (int i = 0; i < table.index_count; ++i) {
    if (i > 0) system_driver.print("%15s", "");
    print_index(table, *table.indices[i]);
  }
  system_driver.print("%s  Table row no:      %d%s", "\n", static_cast<int>(table.id), "\n");
  system_driver.print("  Records     :      %d%s", static_cast<int>(row_active_count(*table.rows)), "\n");
  system_driver.print("  Record size :      %d%s", table.record_size, "\n");
  if (table.auto_column == 0) return;
  const AutoIncrement counter = row_autoinc_get(*table.rows);
  system_driver.print("  Auto incremnet next :      %" PRId64 "%s", counter.next, "\n");
  system_driver.print("  Auto incremnet init :      %" PRId64 "%s", counter.init, "\n");
  system_driver.print("  Auto incremnet step :      %d%s", counter.step, "\n");
}

struct Walk {
  Database &db;
  bool all;
  bool first = true;
  bool failed = false;
};

bool describe_one(void *context, const char *name) {
  Walk &walk = *static_cast<Walk *>(context);
  if (!walk.all) {
    system_driver.print("%s%s", name, "\n");
    return true;
  }
  const TableHold table(table_open(walk.db, name));
  walk.failed = table.get() == nullptr;
  if (walk.failed) return false;
  system_driver.print("%s***  Table: %s  ***%s%s", walk.first ? "" : "\n", name, "\n", "\n");
  walk.first = false;
  print_attributes(*table.get());
  return true;
}

// ---- INFO ----

constexpr int info_word_limit = 10;

struct InfoWords {
  const char *words[info_word_limit];
  int count;
  const char *argument() const { return count > 1 ? words[1] : nullptr; }
};

bool word_is(const char *word, const char *expected) {
  return word != nullptr && text_equal_nocase(word, expected);
}

bool info_par(Database &db, const InfoWords &) {
  param_dump(*db.params);
  return true;
}

bool info_bm(Database &db, const InfoWords &words) {
  const LockGuard guard(db.storage->lock);
  bm_dump(*db.storage->bm, word_is(words.argument(), "flst"));
  if (word_is(words.argument(), "trn")) trn_dump(*db.storage->bm);
  return true;
}

bool info_cm(Database &db, const InfoWords &) {
  const LockGuard guard(db.storage->lock);
  cm_dump(*db.storage->dat, "***  Cache Information : DAT ***");
  cm_dump(*db.storage->trn, "*** Cache Information : TRN ***");
  return true;
}

bool info_tm(Database &db, const InfoWords &) {
  tm_dump(*db.storage->tm);
  return true;
}

bool info_lm(Database &db, const InfoWords &) {
  lm_dump(*db.storage->lm, "lock manager");
  return true;
}

bool info_stm(Database &, const InfoWords &) {
  return true;
}

bool info_bt(Database &db, const InfoWords &words) {
  if (words.argument() == nullptr) {
    btree_dump(*db.table_names, "*** Btree Information : table name ***");
    btree_dump(*db.index_names, "*** Btree Information : index name ***");
    return true;
  }
  const TableHold table(table_open(db, words.argument()));
  if (table.get() == nullptr) return false;
  for (int i = 0; i < table.get()->index_count; ++i)
    btree_dump(*table.get()->indices[i], "*** Btree Information ***");
  return true;
}

bool info_check(Database &db, const InfoWords &words) {
  return words.argument() == nullptr || table_check(db, words.argument());
}

bool dump_table_rows(Database &db, const char *table_name) {
  const TableHold hold(table_open(db, table_name));
  if (hold.get() == nullptr) return false;
  const Table &table = *hold.get();
  char title[2 * name_size + 16];
  snprintf(title, sizeof title, "Master: %s", table.name);
  row_system_dump(*table.rows, title);
  for (int i = 0; i < table.column_count; ++i) {
    const Column &column = table.columns[i];
    if (!column_is_large(column)) continue;
    snprintf(title, sizeof title, "Overflow: %s.%s", table.name, column.name);
    row_system_dump(*table.large_rows[column.large_ordinal - 1], title);
  }
  return true;
}

bool info_row(Database &db, const InfoWords &words) {
  const char *which = words.argument();
  if (which == nullptr) return true;
  const DataSystems &systems = data_systems(*db.storage);
  if (text_equal_nocase(which, "_sys")) {
    row_system_dump(*systems.system_rows, "***  Row Information : row system ***");
    return true;
  }
  if (text_equal_nocase(which, "_bt")) {
    row_system_dump(*systems.index_descriptors, "***  Row Information : btree system ***");
    row_system_dump(*systems.index_counters, "***  Row Information : btree counter ***");
    return true;
  }
  return dump_table_rows(db, which);
}

struct InfoRow {
  const char *word;
  bool (*show)(Database &db, const InfoWords &words);
  bool reads;  // tables and indices; the others look at the storage layer's state under its own locks
};

constexpr InfoRow info_rows[] = {
    {"par", info_par, false}, {"bm", info_bm, false},      {"cm", info_cm, false},
    {"tm", info_tm, false},   {"lm", info_lm, false},      {"stm", info_stm, false},
    {"bt", info_bt, true},    {"check", info_check, true}, {"row", info_row, true}};

bool show_reading(Database &db, const InfoRow &row, const InfoWords &words) {
  const ThreadId thread = current_thread();
  if (!db_read_begin(db, thread)) return false;
  const bool shown = row.show(db, words);
  db_read_end(db, thread);
  return shown;
}

}  // namespace

bool exec_describe_db(Statement &statement) {
  Database &db = *statement.db;
  system_driver.print("****  Database: %s  ****%s%s", db.params->name, "\n", "\n");
  Walk walk{db, DescribeTree::of(*statement.root).all};
  return table_walk(db, describe_one, &walk) && !walk.failed;
}

bool exec_describe_table(Statement &statement) {
  const DescribeTree tree = DescribeTree::of(*statement.root);
  const TableHold hold(table_open(*statement.db, node_name(*tree.table)));
  if (hold.get() == nullptr) return false;
  system_driver.print("***  Table: %s  ***%s%s", hold.get()->name, "\n", "\n");
  system_driver.print("  Attributes:%s", "\n");
  print_attributes(*hold.get());
  if (tree.all) print_details(*hold.get());
  return true;
}

bool exec_info(Statement &statement) {
  InfoWords words{};
  for (const Node *item : chain(ListTree::of(*statement.root).items)) {
    if (words.count < info_word_limit) words.words[words.count++] = node_name(*item);
  }
  for (const InfoRow &row : info_rows) {
    if (!text_equal_nocase(words.words[0], row.word)) continue;
    return row.reads ? show_reading(*statement.db, row, words) : row.show(*statement.db, words);
  }
  return true;
}

}  // namespace tovik
