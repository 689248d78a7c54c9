// Preparing a query: FROM tables, select items, WHERE, GROUP BY, HAVING, ORDER BY, in this order.
#include "sql/query/query.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "frame/env.h"
#include "frame/error.h"
#include "sql/parse/shapes.h"

namespace tovik {

namespace {

MemoryPool &pool_of(Query &query) {
  return *query.pool;
}

EvalContext context_of(Query &query) {
  return {query.stack, query.pool, query.tables, &query.scope};
}

// Of what may hold aggregate calls.
EvalContext group_context_of(Query &query) {
  return {query.stack, query.pool, query.tables, &query.scope, &query.grouping.aggregates};
}

Query *query_new(Catalog &catalog, const EvalContext &context) {
  Query *query = memory_pool_new<Query>(*context.pool);
  if (query == nullptr) return fail_null(status::sql_memory);
  query->scope = scope_of(catalog, context.scope);
  query->stack = context.stack;
  query->pool = context.pool;
  query->separator = memory_pool_text(*context.pool, env_text(Env::sql_sel_sep));
  return query->separator == nullptr ? fail_null(status::sql_memory) : query;
}

void read_output(Query &query, const Node *file) {
  if (file == nullptr) return;
  const FileTree tree = FileTree::of(*file);
  query.output_file = tree.name;
  query.output_mode = tree.mode == file_dump_into ? OutputMode::dump_into : OutputMode::into;
}

bool open_tables(Query &query, const Node *names) {
  TableAccess **end = &query.tables;
  int count = 0;
  for (const Node *name : chain(names)) {
    if (++count > from_table_limit) return fail(status::too_many_from_tables);
    Table *table = table_open(*query.scope.catalog, node_name(*name));
    if (table == nullptr) return false;
    *end = access_open(pool_of(query), table, node_second_name(*name));
    if (*end == nullptr) return false;
    end = &(*end)->next;
  }
  query.scope.tables = query.tables;
  return true;
}

// ---- result columns ----

bool allocate_columns(Query &query, int count) {
  query.columns = memory_pool_new<ResultColumn>(pool_of(query), count);
  if (query.columns == nullptr) return fail(status::sql_memory);
  query.column_count = count;
  return true;
}

bool all_columns(Query &query) {
  int count = 0;
  for (const TableAccess *access = query.tables; access != nullptr; access = access->next) {
    count += access->handle->table->column_count;
  }
  if (!allocate_columns(query, count)) return false;
  ResultColumn *result = query.columns;
  for (TableAccess *access = query.tables; access != nullptr; access = access->next) {
    const Table &table = *access->handle->table;
    for (int i = 0; i < table.column_count; ++i, ++result) {
      result->kind = ResultKind::column;
      result->column = {&table.columns[i], access->handle};
      result->type = table.columns[i].type;
      result->label = table.columns[i].name;
    }
  }
  return true;
}

ResultKind kind_of(const Node &expression) {
  switch (expression.kind) {
    case value_kind::column:
      return ResultKind::column;
    case value_kind::literal:
    case value_kind::date_literal:
      return ResultKind::typed_constant;
    case value_kind::string:
      return ResultKind::string_constant;
    default:
      return ResultKind::computed;
  }
}

const char *string_label(MemoryPool &pool, const char *text) {
  const size_t size = strlen(text) + sizeof " ''";
  char *label = static_cast<char *>(memory_pool_alloc(pool, static_cast<int64_t>(size)));
  if (label == nullptr) return fail_null(status::expr_label_memory);
  snprintf(label, size, " '%s'", text);
  return label;
}

bool label_item(Query &query, const Node *alias, const Value &value, ResultColumn &result) {
  if (alias != nullptr) {
    result.label = node_name(*alias);
  } else if (result.kind == ResultKind::string_constant) {
    result.label = string_label(pool_of(query), value.text.text);
  } else {
    result.label = value.label == nullptr ? "" : value.label;
  }
  return result.label != nullptr;
}

bool read_item(Query &query, const SelectItemTree &item, ResultColumn &result, int *expression_count) {
  EvalContext context = group_context_of(query);
  const bool named = item.alias != nullptr;
  Value value{};
  if (!expr_check(context, item.expression, named ? CheckLabels::none : CheckLabels::build, &value))
    return false;
  result.kind = kind_of(*item.expression);
  result.expression = item.expression;
  result.flags = value.flags;
  result.type = value.type;
  if (result.kind == ResultKind::column) {
    result.column = item.expression->value->column;
    result.type = result.column.column->type;
  } else {
    if (value.declared != 0) result.type = value.declared;
    if (!named) result.expression_number = ++*expression_count;
  }
  return label_item(query, item.alias, value, result);
}

bool read_items(Query &query, const Node *items) {
  const int count = node_count(items);
  if (count == 0) return fail(status::select_no_column);
  if (count > select_item_limit) return fail(status::select_too_many_columns);
  if (!allocate_columns(query, count)) return false;
  int expression_count = 0;
  ResultColumn *result = query.columns;
  for (const Node *item : chain(items)) {
    if (!read_item(query, SelectItemTree::of(*item), *result++, &expression_count)) return false;
  }
  return true;
}

// ---- WHERE, GROUP BY, HAVING and ORDER BY ----

bool read_condition(Query &query, const Node *where) {
  query.condition = WhereTree::of(where).condition;
  if (query.condition == nullptr) return true;
  EvalContext context = context_of(query);
  return condition_check(context, query.condition);
}

bool read_group_columns(Query &query, const Node *names) {
  if (names == nullptr) return true;
  Grouping &grouping = query.grouping;
  grouping.keys = memory_pool_new<ColumnRef>(pool_of(query), node_count(names));
  if (grouping.keys == nullptr) return fail(status::sql_memory);
  for (const Node *each : chain(names)) {
    const ColumnNameTree name = ColumnNameTree::of(*each);
    ColumnRef &found = grouping.keys[grouping.key_count];
    if (!column_lookup(query.tables, name.table, name.column, &found)) return false;
    if (std::find(grouping.keys, &found, found) == &found) ++grouping.key_count;
  }
  return true;
}

bool read_having(Query &query, Node *condition) {
  query.grouping.condition = condition;
  if (condition == nullptr) return true;
  EvalContext context = group_context_of(query);
  return condition_check(context, condition);
}

bool read_grouping(Query &query, const Node *group) {
  query.grouped = group != nullptr || query.grouping.aggregates.count > 0;
  if (group == nullptr) return true;
  const GroupByTree tree = GroupByTree::of(*group);
  return read_group_columns(query, tree.columns) && read_having(query, tree.condition);
}

bool read_order(Query &query, const Node *items) {
  for (const Node *item : chain(items)) {
    const OrderItemTree tree = OrderItemTree::of(*item);
    const ColumnNameTree name = ColumnNameTree::of(*tree.column);
    ColumnRef found;
    if (!column_lookup(query.tables, name.table, name.column, &found)) return false;
    if (query.order_count == order_key_limit) return fail(status::too_many_order_keys);
    const SortDirection direction = tree.descending ? SortDirection::descending : SortDirection::ascending;
    if (!sort_add_key(query.order, &query.order_count, {found, direction})) return false;
  }
  return true;
}

bool read_query(Query &query, const QueryTree &tree, const Node *order) {
  if (!open_tables(query, tree.tables)) return false;
  query.distinct = tree.distinct;
  const bool columns = tree.items == nullptr ? all_columns(query) : read_items(query, tree.items);
  return columns && read_condition(query, tree.where) && read_grouping(query, tree.group) &&
         read_order(query, order);
}

}  // namespace

const char *result_name(const ResultColumn &column, char (&buffer)[result_name_size]) {
  if (column.kind == ResultKind::column) return column.column.column->name;
  if (column.expression_number == 0) return column.label;
  snprintf(buffer, sizeof buffer, "EXPRESSION_%d", column.expression_number);
  return buffer;
}

bool query_prepare_select(Catalog &catalog, const EvalContext &context, const Node &root, Query **made) {
  *made = nullptr;
  const SelectTree select = SelectTree::of(root);
  if (select.query == nullptr) return fail(status::select_argument);
  Query *query = *made = query_new(catalog, context);
  if (query == nullptr) return false;
  read_output(*query, select.file);
  return read_query(*query, QueryTree::of(*select.query), select.order);
}

bool query_prepare_inside(const EvalContext &context, const SubqueryPlace &place, Query **made) {
  Query *query = *made = query_new(*context.scope->catalog, context);
  if (query == nullptr) return false;
  query->scope.levels = place.levels;
  if (!read_query(*query, QueryTree::of(place.query), nullptr)) return false;
  if (place.use != SubqueryUse::value) query->distinct = false;
  return true;
}

bool query_prepare_items(Catalog &catalog, const EvalContext &context, const Node &root, Query **made) {
  Query *query = *made = query_new(catalog, context);
  if (query == nullptr) return false;
  query->items_only = true;
  query->scope.ops = nullptr;  // nothing is read
  return read_items(*query, ListTree::of(root).items) && read_grouping(*query, nullptr);
}

void query_release(Query *query) {
  if (query == nullptr) return;
  if (query->cursor != nullptr) cursor_close(query->cursor);
  query->cursor = nullptr;
  subqueries_release(&query->scope);
  access_close(query->tables);
  query->tables = nullptr;
}

bool query_outdated(const Query &query) {
  for (const TableAccess *access = query.tables; access != nullptr; access = access->next)
    if (access_outdated(*access)) return true;
  return subqueries_outdated(query.scope);
}

bool query_open(Query &query) {
  subqueries_forget(query.scope);
  CursorRequest request{};
  request.context = context_of(query);
  request.condition = query.condition;
  request.order = query.order;
  request.order_count = query.order_count;
  request.columns = query.columns;
  request.column_count = query.column_count;
  request.grouping = query.grouped ? &query.grouping : nullptr;
  request.distinct = query.distinct;
  request.planning = query.planning;
  query.cursor = cursor_open(request);
  return query.cursor != nullptr;
}

Found query_fetch(Query &query) {
  return cursor_fetch(*query.cursor);
}

}  // namespace tovik
