// A table with other columns: its rows go into a temporary database, which gives its pages back before the
// new table takes them, and from there into a new table of the same name.
//
// old table --table_copy--> temporary table, old table dropped, temporary table --table_copy--> new table,
// indices built anew. Until the level that all this is made in ends well, the old definition stays what a
// rollback brings back.
#include "data/table/catalog_internal.h"
#include "data/table/table_copy.h"
#include "frame/error.h"

namespace tovik {

namespace {

struct Columns {
  const ColumnDefinition *items;
  int count;

  const ColumnDefinition *find(const char *name) const {
    for (int i = 0; i < count; ++i)
      if (strcmp(items[i].name, name) == 0) return &items[i];
    return nullptr;
  }
};

// ---- indices ----

// What the table's indices are on the new columns, in their order. automatic: the one that came with the
// auto-increment column, whose name follows the table's number.
struct KeptIndices {
  IndexDefinition items[index_limit];
  int count;
  int automatic;  // place, or -1
};

IndexDefinition definition_of(const Table &table, const BtreeDefinition &tree) {
  IndexDefinition index = {};
  name_encode(tree.index_name, index.name);
  index.unique = (tree.flags & btree_unique) != 0;
  index.timeseries = (tree.flags & btree_timeseries) != 0;
  index.master_count = tree.master_count;
  index.column_count = tree.part_count;
  for (int i = 0; i < tree.part_count; ++i)
    name_encode(table.columns[tree.parts[i].column - 1].name, index.columns[i]);
  return index;
}

bool all_there(const IndexDefinition &index, const Columns &columns) {
  for (int i = 0; i < index.column_count; ++i)
    if (columns.find(index.columns[i]) == nullptr) return false;
  return true;
}

bool indices_keep(const Table &old, const Columns &columns, KeptIndices &kept) {
  char automatic[name_size];
  auto_index_name(old.id, automatic);
  kept.count = 0;
  kept.automatic = -1;
  for (int i = 0; i < old.index_count; ++i) {
    IndexDefinition &index = kept.items[kept.count];
    index = definition_of(old, old.indices[i]->definition);
    const bool is_automatic = strcmp(index.name, automatic) == 0;
    if (all_there(index, columns)) {
      if (is_automatic) kept.automatic = kept.count;
      ++kept.count;
    } else if (!is_automatic) {
      return fail(status::index_no_column);
    }
  }
  return true;
}

bool indices_build(Table &made, bool numbered_anew, KeptIndices &kept) {
  if (numbered_anew && !auto_index_attach(made)) return false;
  if (kept.automatic >= 0) auto_index_name(made.id, kept.items[kept.automatic].name);
  for (int i = 0; i < kept.count; ++i)
    if (!index_attach(made, kept.items[i])) return false;
  return true;
}

// ---- rows ----

// New columns have no values for the rows that there are.
bool rows_fit(const Table &old, const Columns &columns) {
  if (row_active_count(*old.rows) == 0) return true;
  for (int i = 0; i < columns.count; ++i) {
    const ColumnDefinition &column = columns.items[i];
    if (column.not_null && !column.auto_increment && table_find_column(old, column.name) == nullptr)
      return fail(status::not_null_violation, {.detail1 = i + 1});
  }
  return true;
}

AutoIncrementOptions counter_of(const Table &table) {
  if (table.auto_column == 0) return {1, 1, 1};
  const AutoIncrement counter = row_autoinc_get(*table.rows);
  return {counter.init, counter.step, counter.next};
}

bool keeps_counter(const Table &old, const Columns &columns) {
  return old.auto_column != 0 && columns.find(old.columns[old.auto_column - 1].name) != nullptr;
}

struct Rebuild {
  Catalog &catalog, &temporary;
  Table &old;
  Columns columns;
  AutoIncrementOptions counter;
  bool numbered_anew;
  KeptIndices kept;

  bool check() {
    return columns_validate(columns.items, columns.count, counter) && rows_fit(old, columns) &&
           indices_keep(old, columns, kept);
  }

  bool run() {
    Table *copy = table_bare(temporary, old.name, columns.items, columns.count, counter);
    if (copy == nullptr) return false;
    const bool done = table_copy(old, *copy) && table_storage_drop(old) && take_place(*copy);
    definition_free(copy);
    return done;
  }

 private:
  // The temporary table's counter stands behind the numbers that the rows were given.
  bool take_place(const Table &copy) {
    Table *made = table_bare(catalog, old.name, columns.items, columns.count, counter_of(copy));
    if (made == nullptr) return false;
    if (!table_copy(copy, *made) || !indices_build(*made, numbered_anew, kept) ||
        !table_name_insert(catalog, made->name, made->id)) {
      definition_free(made);
      return false;
    }
    tables_replace(catalog, &old, made);
    table_close(made);
    return true;
  }
};

}  // namespace

bool table_rebuild(Catalog &catalog, Catalog &temporary, const char *name, const ColumnDefinition *columns,
                   int column_count) {
  const TableHold old(table_open(catalog, name));
  if (old == nullptr) return false;
  const Columns all = {columns, column_count};
  const bool keeps = keeps_counter(*old, all);
  const AutoIncrementOptions counter = keeps ? counter_of(*old) : AutoIncrementOptions{1, 1, 1};
  Rebuild rebuild = {catalog, temporary, *old, all, counter, !keeps, {}};
  return rebuild.check() && rebuild.run();
}

}  // namespace tovik
