// INFO: listings of what the layers below hold, and the check of a table. None of them changes stored data.
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
