// The life of a database object.
#include "data/database.h"

#include "data/table/catalog_stores.h"
#include "frame/dump.h"
#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

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

Database *db_create_work(const Database &owner) {
  char text[128];
  const char *size = env_text(Env::size_tmp);
  const bool sized = size != nullptr && size[0] != 0;
  dump_text(text, sizeof text, "NAME=hvi_%s%.64s;name=alter", sized ? ";SIZE_DAT=" : "", sized ? size : "");
  Unfinished db(db_new(text));
  if (db == nullptr) return nullptr;
  db->params->encrypt_key = owner.params->encrypt_key;
  db->params->io.file_mode = owner.params->io.file_mode;
  db->storage = sm_create_work(*db->params);
  if (db->storage == nullptr) return fail_null(status::db_storage_create);
  return catalog_create(*db) ? db.release() : nullptr;
}

void db_close(Database *db) {
  if (db == nullptr) return;
  if (db->storage != nullptr) {
    catalog_close(*db);
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
  return params != nullptr && Held<BlockManager, bm_close>(bm_open(*params, History::pruned)) != nullptr;
}

}  // namespace tovik
