// Everything that is checked before the catalog is touched.
#include "data/table/catalog_internal.h"
#include "data/table/column_rules.h"
#include "data/value/stored_form.h"
#include "frame/error.h"
#include "frame/param_text.h"

namespace tovik {

namespace {

bool is_terminated(const char (&name)[name_size]) {
  return memchr(name, 0, name_size) != nullptr;
}

bool names_validate(const ColumnDefinition *columns, int count, int i) {
  if (!is_terminated(columns[i].name)) return fail(status::column_name_length);
  if (!column_name_validate(columns[i].name)) return false;
  for (int later = i + 1; later < count; ++later)
    if (strncmp(columns[i].name, columns[later].name, name_size) == 0) return fail(status::column_name_twice);
  return true;
}

bool auto_increment_validate(const ColumnDefinition *columns, int count,
                             const AutoIncrementOptions &options) {
  bool seen = false;
  for (int i = 0; i < count; ++i) {
    if (!columns[i].auto_increment) continue;
    if ((columns[i].type & TYPE_INTEGER) == 0) return fail(status::auto_increment_type);
    if (options.init <= 0) return fail(status::auto_increment_init);
    if (options.step < 1 || options.step > autoinc_step_limit) return fail(status::auto_increment_step);
    if (options.init > integer_form(columns[i].type)->high) return fail(status::auto_increment_init_range);
    if (seen) return fail(status::auto_increment_twice);
    seen = true;
  }
  return true;
}

}  // namespace

bool column_name_validate(const char *name) {
  if (name[0] == 0) return fail(status::column_no_name);
  if (strlen(name) > name_limit) return fail(status::column_name_length);
  if (text_equal_nocase(name, "rowid")) return fail(status::column_name_reserved);
  return true;
}

bool column_complete(const ColumnDefinition &definition, Column *column) {
  *column = {};
  static_cast<ColumnType &>(*column) = definition;
  name_encode(definition.name, column->name);
  column->auto_increment = definition.auto_increment;
  column->not_null = definition.not_null || definition.auto_increment;
  return column_type_check(*column);
}

bool columns_validate(const ColumnDefinition *columns, int column_count,
                      const AutoIncrementOptions &options) {
  for (int i = 0; i < column_count; ++i) {
    Column column;
    if (!names_validate(columns, column_count, i) || !column_complete(columns[i], &column)) return false;
  }
  return auto_increment_validate(columns, column_count, options);
}

bool table_validate(Catalog &catalog, const char *name, const ColumnDefinition *columns, int column_count,
                    const AutoIncrementOptions &options) {
  if (name == nullptr || name[0] == 0 || columns == nullptr || column_count < 1)
    return fail(status::table_argument);
  if (strlen(name) > name_limit) return fail(status::table_name_length);
  if (row_active_count(*catalog.table_rows) >= table_limit) return fail(status::too_many_tables);
  if (column_count > column_limit) return fail(status::too_many_columns);
  RowNo id;
  if (!name_absent(table_name_find(catalog, name, &id), status::table_name_search, status::table_exists))
    return false;
  return columns_validate(columns, column_count, options);
}

namespace {

bool index_name_validate(Catalog &catalog, const char (&name)[name_size]) {
  if (name[0] == 0) return fail(status::index_no_name);
  if (!is_terminated(name)) return fail(status::index_name_length);
  RowNo descriptor;
  return name_absent(index_name_find(catalog, name, &descriptor), status::index_name_search,
                     status::index_name_exists);
}

bool key_parts_validate(const Table &table, const IndexDefinition &definition, BtreeDefinition *tree) {
  int key_size = 0;
  for (int i = 0; i < definition.column_count; ++i) {
    const Column *column =
        is_terminated(definition.columns[i]) ? table_find_column(table, definition.columns[i]) : nullptr;
    if (column == nullptr || column_is_rowid(*column)) return fail(status::index_no_column);
    for (int before = 0; before < i; ++before)
      if (tree->parts[before].column == column->number) return fail(status::index_column_twice);
    if (column_is_large(*column)) return fail(status::index_large_column);
    tree->parts[i] = {column->type, static_cast<uint16_t>(column->stored_size),
                      static_cast<uint16_t>(column->number)};
    key_size += column->stored_size;
  }
  return key_size <= btree_key_limit || fail(status::index_key_size);
}

bool same_columns(const BtreeDefinition &a, const BtreeDefinition &b) {
  if (a.part_count != b.part_count) return false;
  for (int i = 0; i < a.part_count; ++i)
    if (a.parts[i].column != b.parts[i].column) return false;
  return true;
}

}  // namespace

bool index_validate(const Table &table, const IndexDefinition &definition, BtreeDefinition *tree) {
  *tree = {};
  if (definition.column_count < 1 || definition.column_count > btree_part_limit)
    return fail(status::index_column_count);
  if (!definition.unique && (definition.master_count < 0 || definition.master_count > 16))
    return fail(status::index_master_count);
  if (!index_name_validate(*table.catalog, definition.name)) return false;
  if (table.index_count >= index_limit) return fail(status::too_many_indices);
  if (!key_parts_validate(table, definition, tree)) return false;
  tree->flags = (definition.unique ? btree_unique : 0) | (definition.timeseries ? btree_timeseries : 0);
  tree->part_count = definition.column_count;
  tree->master_count = definition.unique ? 1 : definition.master_count;
  tree->value_size = 4;
  tree->table_id = table.id;
  name_encode(definition.name, tree->index_name);
  for (int i = 0; i < table.index_count; ++i)
    if (same_columns(*tree, table.indices[i]->definition)) return fail(status::index_exists);
  return true;
}

}  // namespace tovik
