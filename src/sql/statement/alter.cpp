// ALTER TABLE: ADD and DELETE make a list of the columns that the table is to have and have the table rebuilt
// once; SET acts on the table as it is then.
#include <cstring>

#include "data/table/catalog_change.h"
#include "data/value/stored_form.h"
#include "frame/error.h"
#include "sql/statement/definitions.h"
#include "sql/statement/executors.h"

namespace tovik {

namespace {

using DatabaseHold = Held<Database, db_close>;

// The columns that the table is to have.
struct WorkingList {
  const Table &table;  // as it was
  ColumnDefinition *columns;
  int count, room;
  bool edited;

  int find(const char *name) const {
    int i = 0;
    while (i < count && strcmp(columns[i].name, name) != 0) ++i;
    return i;
  }
};

bool is_column(const Table &table, const char *name) {
  const Column *column = table_find_column(table, name);
  return column != nullptr && !column_is_rowid(*column);
}

// Room for every column that the actions could add.
bool list_start(MemoryPool &pool, const Node *actions, WorkingList &list) {
  list.room = list.table.column_count;
  for (const Node *action : chain(actions))
    if (action->kind == node::alter_add) list.room += node_count(ListTree::of(*action).items);
  list.columns = memory_pool_new<ColumnDefinition>(pool, list.room);
  if (list.columns == nullptr) return fail(status::sql_memory);
  for (; list.count < list.table.column_count; ++list.count) {
    const Column &column = list.table.columns[list.count];
    ColumnDefinition &kept = list.columns[list.count];
    static_cast<ColumnType &>(kept) = column;
    memcpy(kept.name, column.name, name_size);
    kept.not_null = column.not_null;
    kept.auto_increment = column.auto_increment;
  }
  return true;
}

bool add_column(const ColumnItemTree &item, WorkingList &list) {
  ColumnDefinition column = {};
  if (!column_read(*item.definition, column)) return false;
  if (is_column(list.table, column.name)) return fail(status::alter_add_exists);
  int place = list.count;
  if (item.before != nullptr) {
    place = list.find(item.before);
    if (place == list.count) return fail(status::alter_before_missing);
  }
  assert(list.count < list.room);
  ColumnDefinition *at = list.columns + place;
  memmove(static_cast<void *>(at + 1), at, sizeof *at * static_cast<size_t>(list.count++ - place));
  *at = column;
  return true;
}

bool delete_column(const ColumnNameTree &name, WorkingList &list) {
  if (name.table != nullptr) return fail(status::select_argument);
  if (!is_column(list.table, name.column)) return fail(status::alter_delete_missing);
  const int place = list.find(name.column);
  if (place == list.count) return fail(status::alter_delete_twice);
  if (list.count == 1) return fail(status::alter_delete_columns);
  ColumnDefinition *at = list.columns + place;
  memmove(static_cast<void *>(at), at + 1, sizeof *at * static_cast<size_t>(--list.count - place));
  return true;
}

bool edit(const Node &action, WorkingList &list) {
  const Node *items = ListTree::of(action).items;
  if (items == nullptr || action.kind == node::alter_change) return fail(status::unsupported);
  if (action.kind == node::alter_set) return true;
  list.edited = true;
  for (const Node *item : chain(items)) {
    const bool done = action.kind == node::alter_add ? add_column(ColumnItemTree::of(*item), list)
                                                     : delete_column(ColumnNameTree::of(*item), list);
    if (!done) return false;
  }
  return true;
}

bool edit_all(const Node *actions, WorkingList &list) {
  for (const Node *action : chain(actions))
    if (!edit(*action, list)) return false;
  return list.count <= column_limit || fail(status::too_many_column_definitions);
}

bool rebuild(Database &db, const char *name, const WorkingList &list) {
  if (!list.edited) return true;
  const DatabaseHold temporary(db_create_work(db));
  return temporary != nullptr && table_rebuild(db, *temporary, name, list.columns, list.count);
}

// A written step is checked, but the table keeps the one that it has.
bool set_options(Database &db, const char *name, const Node *actions) {
  AutoIncrementOptions options = {};
  for (const Node *action : chain(actions))
    if (action->kind == node::alter_set && !options_read(ListTree::of(*action).items, options)) return false;
  if (options.init == 0 && options.step == 0) return true;
  const TableHold table(table_open(db, name));
  if (table == nullptr) return false;
  if (table->auto_column == 0) return fail(status::no_auto_increment_column);
  if (options.init == 0) return true;
  if (options.init > integer_form(table->columns[table->auto_column - 1].type)->high)
    return fail(status::auto_increment_init_range);
  return row_autoinc_set(*table->rows, options.init, row_autoinc_get(*table->rows).step, options.init);
}

}  // namespace

// Nothing can be put right after half a rebuild but by the rollback of a level of its own.
bool exec_alter(Statement &statement) {
  const AlterTree tree = AlterTree::of(*statement.root);
  Database &db = *statement.db;
  const char *name = node_name(*tree.table);
  const TableHold table(table_open(db, name));
  if (table == nullptr) return false;
  WorkingList list = {*table, nullptr, 0, 0, false};
  if (!list_start(*statement.pool, tree.actions, list) || !edit_all(tree.actions, list)) return false;
  if (sm_level(*db.storage) == tran_level_limit) return fail(status::tran_nesting_limit);
  return catalog_as_a_whole(db,
                            [&] { return rebuild(db, name, list) && set_options(db, name, tree.actions); });
}

}  // namespace tovik
