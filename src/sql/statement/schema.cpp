#include <cstdio>
#include <cstring>

#include "data/table/catalog.h"
#include "data/table/column_rules.h"
#include "frame/error.h"
#include "frame/param_text.h"
#include "sql/parse/shapes.h"
#include "sql/statement/executors.h"

namespace tovik {

namespace {

constexpr int64_t type_parameter_limit = INT16_MAX;

// Bounded copy of a name into a catalog field; false when it is longer than limit bytes.
bool copy_name(char (&field)[name_size], const char *name, int limit) {
  if (static_cast<int>(strlen(name)) > limit) return false;
  snprintf(field, sizeof field, "%s", name);
  return true;
}

// ---- CREATE TABLE ----

bool read_type_parameters(const Node *parameters, ColumnDefinition &column) {
  if (parameters == nullptr) return true;
  const int64_t *written = parameters->value->integers;
  if (written[0] < 1) return fail(status::type_parameter_1);
  int16_t *fields[] = {&column.p1, &column.p2, &column.p3};
  for (int i = 0; i < 3; ++i) {
    if (written[i] > type_parameter_limit || written[i] < -type_parameter_limit)
      return fail(status::type_parameter_1);
    *fields[i] = static_cast<int16_t>(written[i]);
  }
  return true;
}

bool read_column(const ColumnDefinitionTree &definition, ColumnDefinition &column) {
  const char *name = definition.name;
  if (name == nullptr || *name == 0) return fail(status::column_name_syntax);
  if (!copy_name(column.name, name, name_limit)) return fail(status::column_name_too_long);
  column.type = type::int32;
  column.not_null = definition.not_null;
  column.auto_increment = definition.auto_increment;
  if (definition.type != nullptr) {
    const ColumnTypeTree type = ColumnTypeTree::of(*definition.type);
    column.type = static_cast<TypeCode>(type.code);
    if (!read_type_parameters(type.parameters, column)) return false;
  }
  column_take_defaults(column);
  return true;
}

// An integer option value within its bounds, or the option's status.
bool read_option(const Node &value, int64_t limit, StatusCode failure, int64_t *number) {
  if (value.kind != value_kind::literal) return fail(failure);
  *number = value.value->integers[0];
  return (*number >= 1 && *number <= limit) || fail(failure);
}

bool read_options(const Node *items, AutoIncrementOptions &options) {
  options = {1, 1, 0};
  for (const Node *item : chain(items)) {
    const AssignmentTree option = AssignmentTree::of(*item);
    if (text_equal_nocase(option.name, "auto_increment_init")) {
      if (!read_option(*option.value, INT64_MAX, status::option_auto_increment_init, &options.init))
        return false;
    } else if (text_equal_nocase(option.name, "auto_increment_step")) {
      int64_t step;
      if (!read_option(*option.value, autoinc_step_limit, status::option_auto_increment_step, &step))
        return false;
      options.step = static_cast<int32_t>(step);
    }
  }
  return true;
}

// ---- CREATE INDEX ----

void read_index_kind(const Node *kind, IndexDefinition &index) {
  index.master_count = index_master_default;
  if (kind == nullptr) return;
  const IndexKindTree tree = IndexKindTree::of(*kind);
  index.timeseries = tree.timeseries;
  if (tree.base->kind == node::index_unique) {
    index.unique = true;
    index.master_count = 1;
    return;
  }
  const int64_t *written = tree.base->value->integers, count = written[1];
  index.unique = written[0] <= 0;
  index.master_count = count < 0 || count > INT16_MAX ? -1 : static_cast<int>(count);
}

bool read_index_columns(const Node *columns, IndexDefinition &index) {
  if (columns == nullptr) return fail(status::create_index_syntax);
  for (const Node *column : chain(columns)) {
    if (index.column_count == btree_part_limit) return fail(status::index_too_many_columns);
    const char *name = node_name(*column);
    if (*name == 0) return fail(status::create_index_syntax);
    if (!copy_name(index.columns[index.column_count++], name, name_limit)) {
      return fail(status::index_column_name_length);
    }
  }
  return true;
}

// ---- DROP, EMPTY ----

const char *target_name(const Statement &statement) {
  return node_name(*TargetTree::of(*statement.root).target);
}

}  // namespace

bool exec_create_table(Statement &statement) {
  const CreateTableTree tree = CreateTableTree::of(*statement.root);
  const int count = node_count(tree.columns);
  if (count == 0) return fail(status::create_table_syntax);
  if (count > column_limit) return fail(status::too_many_column_definitions);
  ColumnDefinition *columns = memory_pool_new<ColumnDefinition>(*statement.pool, count);
  if (columns == nullptr) return fail(status::sql_memory);
  int filled = 0;
  for (const Node *item : chain(tree.columns)) {
    const Node &definition = *ColumnItemTree::of(*item).definition;
    if (!read_column(ColumnDefinitionTree::of(definition), columns[filled++])) return false;
  }
  AutoIncrementOptions options;
  if (!read_options(tree.options, options)) return false;
  Table *table = table_create(*statement.db, node_name(*tree.table), columns, count, options);
  if (table == nullptr) return false;
  table_close(table);
  return true;
}

bool exec_create_index(Statement &statement) {
  const CreateIndexTree tree = CreateIndexTree::of(*statement.root);
  IndexDefinition index{};
  read_index_kind(tree.kind, index);
  if (*tree.name == 0) return fail(status::create_index_syntax);
  if (!copy_name(index.name, tree.name, name_limit)) return fail(status::index_name_length);
  if (!read_index_columns(tree.columns, index)) return false;
  return index_create(*statement.db, node_name(*tree.table), index);
}

bool exec_drop_table(Statement &statement) {
  return table_drop(*statement.db, target_name(statement));
}

bool exec_drop_index(Statement &statement) {
  return index_drop(*statement.db, target_name(statement));
}

bool exec_empty(Statement &statement) {
  return table_empty(*statement.db, target_name(statement));
}

bool exec_rename_table(Statement &statement) {
  const RenameTree tree = RenameTree::of(*statement.root);
  return table_rename(*statement.db, node_name(*tree.old_name), node_name(*tree.new_name));
}

bool exec_rename_attr(Statement &statement) {
  const RenameTree tree = RenameTree::of(*statement.root);
  const ColumnNameTree old_name = ColumnNameTree::of(*tree.old_name);
  const char *new_name = node_name(*tree.new_name);
  if (static_cast<int>(strlen(new_name)) > name_limit) return fail(status::column_name_length);
  return column_rename(*statement.db, old_name.table, old_name.column, new_name);
}

}  // namespace tovik
