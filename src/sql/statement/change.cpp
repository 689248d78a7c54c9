// INSERT, UPDATE and DELETE.
//
// What one row needs from the statement's pool ends with that row. Cost per inserted row beside the row
// handle's own: one check and one evaluation per value.
#include <cstring>

#include "frame/error.h"
#include "sql/evaluate/set_value.h"
#include "sql/parse/shapes.h"
#include "sql/statement/executors.h"
#include "sql/statement/load.h"

namespace tovik {

namespace {

// The columns that a source names (or all), and the values for them.
struct Values : Targets {
  Node *values;  // chain of value items, or of assignment items
  int value_count;
};

RowHandle *open_row(Database &db, const char *table_name) {
  Table *table = table_open(db, table_name);
  return table == nullptr ? nullptr : row_handle_open(table);
}

// ---- binding ----

bool bind_assignments(MemoryPool &pool, const Table &table, Values &targets) {
  if (!targets_allocate(pool, targets.value_count, targets)) return false;
  for (const Node *item : chain(targets.values)) {
    const AssignmentTree assignment = AssignmentTree::of(*item);
    if (assignment.value == nullptr) return fail(status::assignment_tree);
    if (!targets_add(table, assignment.name, targets)) return false;
  }
  return true;
}

// The expression of a value item or of an assignment item.
Node *value_expression(const Node &item) {
  return item.kind == node::assignment_item ? AssignmentTree::of(item).value : ValueItemTree::of(item).value;
}

enum class Rows { many, one };

// How many values a source must give: whole rows for INSERT, one row for UPDATE.
bool value_count_fits(const Values &targets, Rows rows) {
  if (rows == Rows::one) return targets.value_count == targets.column_count;
  return targets.value_count >= targets.column_count && targets.value_count % targets.column_count == 0;
}

bool bind_source(MemoryPool &pool, const Table &table, const SourceTree &source, Rows rows, Values &targets) {
  targets.values = ListTree::of(*source.values).items;
  targets.value_count = node_count(targets.values);
  if (source.values->kind == node::assignment_list) return bind_assignments(pool, table, targets);
  if (source.columns == nullptr) {
    if (!targets_all(pool, table, targets)) return false;
    return value_count_fits(targets, rows) || fail(status::value_count_rows);
  }
  if (!targets_named(pool, table, source.columns, targets)) return false;
  return value_count_fits(targets, rows) || fail(status::value_count_columns);
}

// ---- rows ----

// Builds and inserts one row from the values at item; *next is the item after them.
bool insert_row(EvalContext &context, RowHandle &row, const Values &targets, Node *item, Node **next) {
  const PoolScope scope(*context.pool);
  row_handle_reset(row);
  for (int i = 0; i < targets.column_count; ++i, item = node_next(*item)) {
    Node *expression = value_expression(*item);
    if (!set_value_check(context, expression)) return false;
    if (!set_value(context, *expression, row, *targets.columns[i])) return false;
  }
  *next = item;
  return row_handle_insert(row);
}

bool update_row(EvalContext &context, RowHandle &writer, const RowHandle &reader, const Values &targets) {
  const PoolScope scope(*context.pool);
  row_handle_copy(writer, reader);
  const Node *item = targets.values;
  for (int i = 0; i < targets.column_count; ++i, item = node_next(*item)) {
    if (!set_value(context, *value_expression(*item), writer, *targets.columns[i])) return false;
  }
  return row_handle_update(writer);
}

bool check_values(EvalContext &context, const Values &targets) {
  for (const Node *item : chain(targets.values)) {
    if (!set_value_check(context, value_expression(*item))) return false;
  }
  return true;
}

template <class Take>
bool found_rows(const EvalContext &context, Node *condition, Take take) {
  CursorRequest request{};
  request.context = context;
  request.condition = condition;
  const CursorHold cursor(cursor_open(request));
  return cursor.get() != nullptr && each_row([&] { return cursor_fetch(*cursor); }, take);
}

// The path of the access becomes the list of the rows that meet the condition.
bool collect_rows(const EvalContext &context, Node *condition) {
  TableAccess &access = *context.tables;
  RowSet *rows = rowset_new();
  if (rows == nullptr) return false;
  const bool done = found_rows(context, condition, [&] { return rowset_add(*rows, access.handle->row); });
  access_start(access);
  access.rows = rows;  // owned from here on
  access.path = AccessPath::row_list;
  return done;
}

// Calls change for every row of the table that meets the condition of where (null: every row). When
// subqueries of the condition read the table, all rows are found before the first one changes.
template <class Change>
bool change_rows(Statement &statement, TableAccess &access, const Node *where, Change change) {
  QueryScope scope = scope_of(*statement.db, nullptr);
  const SubqueriesHold subqueries(&scope);
  scope.tables = &access;
  EvalContext context = sql_context(statement, &access);
  context.scope = &scope;
  Node *condition = WhereTree::of(where).condition;
  if (condition != nullptr && !condition_check(context, condition)) return false;
  if (!subqueries_read(scope, *access.handle->table)) return found_rows(context, condition, change);
  return collect_rows(context, condition) && each_row([&] { return access_next(access); }, change);
}

TableAccess *open_access(Statement &statement, const char *table_name) {
  Table *table = table_open(*statement.db, table_name);
  return table == nullptr ? nullptr : access_open(*statement.pool, table, nullptr);
}

}  // namespace

bool exec_insert(Statement &statement) {
  const InsertTree tree = InsertTree::of(*statement.root);
  const SourceTree source = SourceTree::of(*tree.source);
  const RowHandleHold row(open_row(*statement.db, node_name(*tree.table)));
  if (row.get() == nullptr) return false;
  if (source.is_file()) return load_rows(*statement.pool, *row, source);
  Values targets{};
  if (!bind_source(*statement.pool, *row->table, source, Rows::many, targets)) return false;
  EvalContext context = sql_context(statement, nullptr);
  for (Node *item = targets.values; item != nullptr;) {
    if (!insert_row(context, *row, targets, item, &item)) return false;
  }
  return true;
}

bool exec_update(Statement &statement) {
  const UpdateTree tree = UpdateTree::of(*statement.root);
  const SourceTree source = SourceTree::of(*tree.source);
  const char *table_name = node_name(*tree.table);
  const AccessHold access(open_access(statement, table_name));
  if (access.get() == nullptr) return false;
  const RowHandleHold writer(open_row(*statement.db, table_name));
  if (writer.get() == nullptr) return false;
  if (source.is_file()) {
    LoadedRow values{};
    return load_only_row(*statement.pool, *writer->table, source, values) &&
           change_rows(statement, *access, tree.where, [&] {
             row_handle_copy(*writer, *access->handle);
             return loaded_row_set(*statement.pool, values, *writer) && row_handle_update(*writer);
           });
  }
  Values targets{};
  if (!bind_source(*statement.pool, *writer->table, source, Rows::one, targets)) return false;
  EvalContext context = sql_context(statement, access.get());
  if (!check_values(context, targets)) return false;
  return change_rows(statement, *access, tree.where,
                     [&] { return update_row(context, *writer, *access->handle, targets); });
}

bool exec_delete(Statement &statement) {
  const DeleteTree tree = DeleteTree::of(*statement.root);
  const AccessHold access(open_access(statement, node_name(*tree.table)));
  if (access.get() == nullptr) return false;
  return change_rows(statement, *access, tree.where, [&] { return row_handle_delete(*access->handle); });
}

}  // namespace tovik
