#include <cstring>

#include "frame/error.h"
#include "sql/statement/definitions.h"
#include "sql/statement/executors.h"

namespace tovik {

namespace {

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
    if (!name_copy(index.columns[index.column_count++], name, name_limit)) {
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
    if (!column_read(*ColumnItemTree::of(*item).definition, columns[filled++])) return false;
  }
  AutoIncrementOptions options = {1, 1, 0};
  if (!options_read(tree.options, options)) return false;
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
  if (!name_copy(index.name, tree.name, name_limit)) return fail(status::index_name_length);
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
