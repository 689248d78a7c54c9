// The life of a database object. Where the catalog lies in a data file:
//
//   system ROW, descriptors in order     index descriptor ROW, in order
//     0  index descriptor ROW              0  table-name index
//     1  index page-counter ROW            1  index-name index
//     2  table management ROW
//     3  column management ROW
//     4  index management ROW
#include "data/database.h"

#include "data/row/data_systems.h"
#include "data/table/catalog_records.h"
#include "frame/dump.h"
#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

constexpr int management_place = 2;  // of the first management ROW in the system ROW

// Closes a database that did not get finished.
using Unfinished = Held<Database, db_close>;
using ParamHold = Held<Params, param_destroy>;

Database *db_new(const char *params) {
  Unfinished db(mem_new<Database>());
  if (db == nullptr) return fail_null(status::out_of_memory);
  for (ReadHold &hold : db->holds) hold.thread = no_thread;
  for (ThreadId &thread : db->owed) thread = no_thread;
  db->lock = system_driver.lock_create();
  db->tables_lock = system_driver.lock_create();
  if (db->lock == nullptr || db->tables_lock == nullptr) return fail_null(status::lock_create);
  db->params = param_create(params);
  if (db->params == nullptr) return nullptr;
  return db.release();
}

BtreeDefinition name_index_definition(uint32_t flags, int value_size) {
  BtreeDefinition definition = {};
  definition.flags = btree_unique | flags;
  definition.part_count = 1;
  definition.master_count = 1;
  definition.value_size = value_size;
  definition.parts[0] = {type::character, name_size, 0};
  return definition;
}

bool name_index_fits(const Btree &index, uint32_t flags, int value_size) {
  const BtreeDefinition &definition = index.definition;
  return definition.flags == (btree_unique | flags) && definition.part_count == 1 &&
         definition.value_size == value_size && definition.parts[0].type == type::character &&
         definition.parts[0].size == name_size;
}

bool catalog_create(Database &db) {
  StorageManager &sm = *db.storage;
  db.table_rows = row_system_create(sm, RowKind::fixed, table_record_size, 0, 0, 0);
  if (db.table_rows == nullptr) return fail(status::db_table_rows_create);
  db.column_rows = row_system_create(sm, RowKind::variable, column_record_size, 0, 0, 0);
  if (db.column_rows == nullptr) return fail(status::db_column_rows_create);
  db.index_rows = row_system_create(sm, RowKind::fixed, index_list_size, 0, 0, 0);
  if (db.index_rows == nullptr) return fail(status::db_index_rows_create);
  db.table_names = btree_create(sm, name_index_definition(0, 4));
  if (db.table_names == nullptr) return fail(status::db_table_names_create);
  db.index_names = btree_create(sm, name_index_definition(btree_payload, index_name_value_size));
  if (db.index_names == nullptr) return fail(status::db_index_names_create);
  return true;
}

// The row numbers of count descriptors of rows, from place on.
bool descriptor_numbers(RowSystem &rows, int place, int count, RowNo *numbers) {
  RowNo row = row_position(rows, RowPosition::first);
  for (int i = 0; i < place + count; ++i) {
    if (i > 0 && !row_next_position(rows, row, &row)) return fail(status::db_first_position);
    if (row == 0) return fail(status::db_first_position);
    if (i >= place) numbers[i - place] = row;
  }
  return true;
}

RowSystem *management_open(StorageManager &sm, RowNo number, RowKind kind, int data_size, StatusCode status) {
  RowSystem *rows = row_system_open(number, sm);
  if (rows != nullptr && rows->kind == kind && rows->row_size == data_size + 1) return rows;
  if (rows != nullptr) row_system_close(rows);
  return fail_null(status);
}

Btree *name_index_open(StorageManager &sm, RowNo number, uint32_t flags, int value_size, StatusCode status) {
  Btree *index = btree_open(sm, number);
  if (index != nullptr && name_index_fits(*index, flags, value_size)) return index;
  if (index != nullptr) btree_close(index);
  return fail_null(status);
}

bool catalog_open(Database &db) {
  StorageManager &sm = *db.storage;
  const DataSystems &systems = data_systems(sm);
  RowNo rows[3], indices[2];
  if (!descriptor_numbers(*systems.system_rows, management_place, 3, rows)) return false;
  db.table_rows = management_open(sm, rows[0], RowKind::fixed, table_record_size, status::db_table_rows_open);
  if (db.table_rows == nullptr) return false;
  db.column_rows =
      management_open(sm, rows[1], RowKind::variable, column_record_size, status::db_column_rows_open);
  if (db.column_rows == nullptr) return false;
  db.index_rows = management_open(sm, rows[2], RowKind::fixed, index_list_size, status::db_index_rows_open);
  if (db.index_rows == nullptr) return false;
  if (!descriptor_numbers(*systems.index_descriptors, 0, 2, indices)) return false;
  db.table_names = name_index_open(sm, indices[0], 0, 4, status::db_table_names_open);
  if (db.table_names == nullptr) return false;
  db.index_names =
      name_index_open(sm, indices[1], btree_payload, index_name_value_size, status::db_index_names_open);
  return db.index_names != nullptr;
}

bool contents_open(Database &db) {
  if (!sm_open_systems(*db.storage)) return fail(status::db_storage_open);
  return catalog_open(db);
}

bool contents_open_locked(Database &db) {
  const ThreadId thread = current_thread();
  if (!db_read_begin(db, thread)) return false;
  const bool opened = contents_open(db);
  db_read_end(db, thread);
  return opened;
}

}  // namespace

// Everything is in the file when this returns: whoever opens the database next reads the header and the
// management ROWs from there.
Database *db_create(const char *params) {
  Unfinished db(db_new(params));
  if (db == nullptr) return nullptr;
  db->storage = sm_create(*db->params);
  if (db->storage == nullptr) return fail_null(status::db_storage_create);
  if (catalog_create(*db) && sm_direct_end(*db->storage)) return db.release();
  bm_discard(*db->storage->bm);
  return nullptr;
}

Database *db_open(const char *params) {
  Unfinished db(db_new(params));
  if (db == nullptr) return nullptr;
  db->storage = sm_open(*db->params);
  if (db->storage == nullptr) return fail_null(status::db_storage_open);
  return contents_open_locked(*db) ? db.release() : nullptr;
}

Database *db_create_work() {
  char text[128];
  const char *size = env_text(Env::size_tmp);
  const bool sized = size != nullptr && size[0] != 0;
  dump_text(text, sizeof text, "NAME=hvi_%s%.64s;name=alter", sized ? ";SIZE_DAT=" : "", sized ? size : "");
  Unfinished db(db_new(text));
  if (db == nullptr) return nullptr;
  db->storage = sm_create_work(*db->params);
  if (db->storage == nullptr) return fail_null(status::db_storage_create);
  return catalog_create(*db) ? db.release() : nullptr;
}

void db_close(Database *db) {
  if (db == nullptr) return;
  if (db->storage != nullptr) {
    tables_close_all(*db);
    for (Btree *index : {db->index_names, db->table_names})
      if (index != nullptr) btree_close(index);
    for (RowSystem *rows : {db->index_rows, db->column_rows, db->table_rows})
      if (rows != nullptr) row_system_close(rows);
    sm_close(db->storage);
  }
  param_destroy(db->params);
  for (Lock *lock : {db->tables_lock, db->lock})
    if (lock != nullptr) system_driver.lock_destroy(lock);
  mem_delete(db);
}

bool db_remove(const char *text) {
  const ParamHold params(param_create(text));
  const bool removed = params != nullptr && bm_remove(*params);
  return removed || fail(status::db_remove);
}

bool db_exists(const char *text) {
  const ErrorScope missing_is_no_failure;
  const ParamHold params(param_create(text));
  return params != nullptr && Held<BlockManager, bm_close>(bm_open(*params, true)) != nullptr;
}

}  // namespace tovik
