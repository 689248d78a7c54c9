#include <cstdio>
#include <cstring>

#include "data/table/catalog.h"
#include "data/table/column_rules.h"
#include "frame/error.h"
#include "frame/param_text.h"
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

bool read_column(const Node &definition, ColumnDefinition &column) {
  const char *name = node_name(definition);
  if (name == nullptr || *name == 0) return fail(status::column_name_syntax);
  if (!copy_name(column.name, name, name_limit)) return fail(status::column_name_too_long);
  column.type = type::int32;
  column.not_null = definition.qual != 0;
  column.auto_increment = definition.flags != 0;
  if (const Node *written = definition.second; written != nullptr) {
    column.type = static_cast<TypeCode>(written->value->integers[0]);
    if (!read_type_parameters(written->second, column)) return false;
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

bool read_options(const Node *item, AutoIncrementOptions &options) {
  options = {1, 1, 0};
  for (; item != nullptr; item = item->first) {
    const Node &option = *item->second;
    const char *name = node_name(*option.first);
    if (text_equal_nocase(name, "auto_increment_init")) {
      if (!read_option(*option.second, INT64_MAX, status::option_auto_increment_init, &options.init))
        return false;
    } else if (text_equal_nocase(name, "auto_increment_step")) {
      int64_t step;
      if (!read_option(*option.second, autoinc_step_limit, status::option_auto_increment_step, &step))
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
  if (kind->kind == node::index_timeseries) {
    index.timeseries = true;
    kind = kind->first;
  }
  if (kind->kind == node::index_unique) {
    index.unique = true;
    index.master_count = 1;
    return;
  }
  const int64_t count = kind->value->integers[1];
  index.unique = kind->value->integers[0] <= 0;
  index.master_count = count < 0 || count > INT16_MAX ? -1 : static_cast<int>(count);
}

bool read_index_columns(const Node *column, IndexDefinition &index) {
  if (column == nullptr) return fail(status::create_index_syntax);
  for (; column != nullptr; column = column->first) {
    if (index.column_count == btree_part_limit) return fail(status::index_too_many_columns);
    const char *name = node_name(*column);
    if (*name == 0) return fail(status::create_index_syntax);
    if (!copy_name(index.columns[index.column_count++], name, name_limit)) {
      return fail(status::index_column_name_length);
    }
  }
  return true;
}

}  // namespace

bool exec_create_table(Statement &statement) {
  const Node &root = *statement.root;
  const int count = node_count(root.second);
  if (count == 0) return fail(status::create_table_syntax);
  if (count > column_limit) return fail(status::too_many_column_definitions);
  ColumnDefinition *columns = memory_pool_new<ColumnDefinition>(*statement.pool, count);
  if (columns == nullptr) return fail(status::sql_memory);
  int filled = 0;
  for (const Node *item = root.second; item != nullptr; item = item->first) {
    if (!read_column(*item->second, columns[filled++])) return false;
  }
  AutoIncrementOptions options;
  if (!read_options(root.third, options)) return false;
  Table *table = table_create(*statement.db, node_name(*root.first), columns, count, options);
  if (table == nullptr) return false;
  table_close(table);
  return true;
}

bool exec_create_index(Statement &statement) {
  const Node &name = *statement.root->second;
  const Node *table = name.first;
  IndexDefinition index{};
  read_index_kind(statement.root->first, index);
  if (*node_name(name) == 0 || table == nullptr) return fail(status::create_index_syntax);
  if (!copy_name(index.name, node_name(name), name_limit)) return fail(status::index_name_length);
  if (!read_index_columns(table->first, index)) return false;
  return index_create(*statement.db, node_name(*table), index);
}

bool exec_drop_table(Statement &statement) {
  return table_drop(*statement.db, node_name(*statement.root->second));
}

bool exec_drop_index(Statement &statement) {
  return index_drop(*statement.db, node_name(*statement.root->second));
}

bool exec_empty(Statement &statement) {
  return table_empty(*statement.db, node_name(*statement.root->second));
}

bool exec_rename_table(Statement &statement) {
  return table_rename(*statement.db, node_name(*statement.root->first), node_name(*statement.root->second));
}

bool exec_rename_attr(Statement &statement) {
  const Node &old_name = *statement.root->first;
  const char *new_name = node_name(*statement.root->second);
  if (static_cast<int>(strlen(new_name)) > name_limit) return fail(status::column_name_length);
  return column_rename(*statement.db, node_name(old_name), node_second_name(old_name), new_name);
}

}  // namespace tovik
