// The list of open definitions.
//
// Invariants
//   1. Every definition that differs from the committed catalog is on the list until its level ends, with the
//      level in created_level or dropped_level. So a definition that is read from the catalog describes the
//      committed state, whoever reads it, and may be shared.
//   2. A definition is gone exactly when it is off the list; it is freed with its last holder then.
//   3. The list, the counts and the levels change under the database's table lock only.
#include "data/table/table.h"

#include <utility>

#include "data/table/catalog_names.h"
#include "data/table/table_definition.h"
#include "frame/error.h"
#include "frame/param_text.h"

namespace tovik {

namespace {

Table *find_visible(Catalog &catalog, const char *name, int level) {
  for (Table *table = catalog.tables; table != nullptr; table = table->next)
    if (table->state.visible(level) && strcmp(table->name, name) == 0) return table;
  return nullptr;
}

void put_on_list(Catalog &catalog, Table *table) {
  table->next = catalog.tables;
  catalog.tables = table;
}

// Takes every definition that is gone off the list.
void sweep_list(Catalog &catalog) {
  for (Table **link = &catalog.tables; *link != nullptr;) {
    Table *table = *link;
    if (!table->state.gone()) {
      link = &table->next;
      continue;
    }
    *link = table->next;
    table->next = nullptr;
    if (table->state.references == 0) definition_free(table);
  }
}

Table *open_from_catalog(Catalog &catalog, const char *name) {
  RowNo id = 0;
  const Found found = strlen(name) > name_limit ? Found::no : table_name_find(catalog, name, &id);
  if (found == Found::yes) return definition_read(catalog, id, name);
  return fail_null(found == Found::no ? status::table_missing : status::table_open_search);
}

}  // namespace

Table *table_open(Catalog &catalog, const char *name) {
  if (name == nullptr || name[0] == 0) return fail_null(status::table_argument);
  LockGuard guard(catalog.tables_lock);
  Table *table = find_visible(catalog, name, sm_level(*catalog.storage));
  if (table != nullptr) {
    ++table->state.references;
    return table;
  }
  table = open_from_catalog(catalog, name);
  if (table != nullptr) put_on_list(catalog, table);
  return table;
}

void table_close(Table *table) {
  if (table == nullptr) return;
  LockGuard guard(table->catalog->tables_lock);
  assert(table->state.references > 0);
  if (--table->state.references == 0 && table->state.gone()) definition_free(table);
}

RowHandle *table_take_spare(Table &table) {
  LockGuard guard(table.catalog->tables_lock);
  for (RowHandle *&spare : table.spare_handles)
    if (spare != nullptr) return std::exchange(spare, nullptr);
  return nullptr;
}

bool table_keep_spare(Table &table, RowHandle *handle) {
  LockGuard guard(table.catalog->tables_lock);
  for (RowHandle *&spare : table.spare_handles) {
    if (spare != nullptr) continue;
    spare = handle;
    return true;
  }
  return false;
}

bool table_is_current(const Table &table) {
  return table.state.visible(sm_level(*table.catalog->storage));
}

const Column *table_find_column(const Table &table, const char *name) {
  for (int i = 0; i < table.column_count; ++i)
    if (strcmp(table.columns[i].name, name) == 0) return &table.columns[i];
  return text_equal_nocase(name, table.rowid.name) ? &table.rowid : nullptr;
}

void tables_replace(Catalog &catalog, Table *old, Table *made) {
  LockGuard guard(catalog.tables_lock);
  const int level = sm_level(*catalog.storage);
  if (old != nullptr) {
    if (old->state.created_level == level)
      old->state.set_gone();  // nobody else has seen it
    else
      old->state.set_dropped(level);
  }
  if (made != nullptr) {
    made->state.created_level = static_cast<int8_t>(level);
    put_on_list(catalog, made);
  }
  sweep_list(catalog);
}

void tables_level_merged(Catalog &catalog, int level) {
  LockGuard guard(catalog.tables_lock);
  for (Table *table = catalog.tables; table != nullptr; table = table->next) table->state.level_merged(level);
  sweep_list(catalog);
}

void tables_level_dropped(Catalog &catalog, int level) {
  LockGuard guard(catalog.tables_lock);
  for (Table *table = catalog.tables; table != nullptr; table = table->next)
    table->state.level_dropped(level);
  sweep_list(catalog);
}

void tables_forget_all(Catalog &catalog) {
  LockGuard guard(catalog.tables_lock);
  for (Table *table = catalog.tables; table != nullptr; table = table->next) table->state.set_gone();
  sweep_list(catalog);
}

void tables_close_all(Catalog &catalog) {
  LockGuard guard(catalog.tables_lock);
  for (Table *table = catalog.tables; table != nullptr; table = table->next) table->state.references = 0;
  tables_forget_all(catalog);
}

}  // namespace tovik
