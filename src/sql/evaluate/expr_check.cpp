// The check pass: which rule checks a node, and how columns are found.
#include <algorithm>
#include <cstring>

#include "sql/evaluate/check_rules.h"
#include "sql/evaluate/file_text.h"

namespace tovik {

bool check_node(Check check, Node *node, Value *result) {
  if (node == nullptr || check.depth >= expression_depth_limit) return fail(status::expression_syntax);
  ++check.depth;
  switch (node->kind) {
    case node::column_name:
    case node::qualified_column:
      return bind_column(check, node, result);
    case value_kind::column:
    case value_kind::literal:
    case value_kind::date_literal:
      *result = *node->value;
      return true;
    case value_kind::null:
      set_result(result, value_kind::null, 0, value_null);
      return true;
    case value_kind::string:
      return check_string(node, result);
    case value_kind::integer_text:
    case value_kind::decimal_text:
    case value_kind::exponent_text:
      return check_number(node, result);
    case node::in:
      return check_in(check, node, result);
    case node::is_null:
      return check_is_null(check, node, result);
    case node::between:
      return check_between(check, node, result);
    case node::query:
      return check_exists(check, node, result);
    case node::always_true:
      set_truth(result, 0);
      return true;
    case node::file_name:
      return check_file(check.context, node, result);
    case node::function_call:
      return check_call(check, node, result);
    default:
      if (spine_of(node->kind) != Spine::none) return check_spine(check, node, result);
      if (node_is_comparison(node->kind)) return check_comparison(check, node, result);
      if (node_is_matching(node->kind)) return check_matching(check, node, result);
      return fail(status::expr_operator);
  }
}

namespace {

bool same_text(const char *a, const char *b) {
  return a != nullptr && strcmp(a, b) == 0;
}

// The first of the tables that match tells yes for and that has the column.
template <class Matches>
bool find_column(const TableAccess *tables, const char *name, Matches matches, ColumnRef *found) {
  for (const TableAccess *each = tables; each != nullptr; each = each->next) {
    if (!matches(*each)) continue;
    const Column *column = table_find_column(*each->handle->table, name);
    if (column == nullptr) continue;
    *found = {column, each->handle};
    return true;
  }
  return false;
}

// Nothing recorded.
bool find_named(const TableAccess *tables, const char *table, const char *name, ColumnRef *found) {
  const auto any = [](const TableAccess &) { return true; };
  const auto by_alias = [table](const TableAccess &each) { return same_text(each.alias, table); };
  const auto by_name = [table](const TableAccess &each) {
    return same_text(each.handle->table->name, table);
  };
  if (table == nullptr) return find_column(tables, name, any, found);
  return find_column(tables, name, by_alias, found) || find_column(tables, name, by_name, found);
}

// Goes one of the tables by that name? One that has an alias does not, where another query has one that does.
bool goes_by_name(const TableAccess *tables, const char *name) {
  const TableAccess *each = tables;
  while (each != nullptr &&
         !same_text(each->alias == nullptr ? each->handle->table->name : each->alias, name))
    each = each->next;
  return each != nullptr;
}

// The query in whose tables the column is found, from the inside out; null when in none.
QueryScope *find_scope(QueryScope *inner, const ColumnNameTree &name, ColumnRef *found) {
  for (const bool hidden : {false, true})
    for (QueryScope *scope = inner; scope != nullptr; scope = scope->outer)
      if ((hidden || name.table == nullptr || goes_by_name(scope->tables, name.table)) &&
          find_named(scope->tables, name.table, name.column, found))
        return scope;
  return nullptr;
}

int levels_around(const EvalContext &context) {
  return context.scope == nullptr ? 0 : context.scope->levels;
}

}  // namespace

bool column_lookup(TableAccess *tables, const char *table, const char *name, ColumnRef *found) {
  if (tables == nullptr || name == nullptr || *name == '\0') return fail(status::expr_argument);
  return find_named(tables, table, name, found) || fail(status::no_such_column);
}

bool column_in_scope(EvalContext &context, const ColumnNameTree &name, ColumnRef *found) {
  QueryScope *const own = context.scope;
  if (own == nullptr || own->outer == nullptr)
    return column_lookup(context.tables, name.table, name.column, found);
  const QueryScope *scope = find_scope(own, name, found);
  if (scope == nullptr) return fail(status::no_such_column);
  for (QueryScope *inside = own; inside != scope; inside = inside->outer)
    inside->nearest = std::max(inside->nearest, scope->nesting);
  return true;
}

bool expr_check(EvalContext &context, Node *expression, CheckLabels labels, Value *result) {
  const Check check{context, levels_around(context)};
  Value value;
  if (!check_node(check, expression, &value)) return false;
  value.flags &= static_cast<uint16_t>(~value_can_fail);
  if (labels == CheckLabels::build) {
    value.label = expr_label(*context.pool, expression);
    if (value.label == nullptr) return false;
  }
  if (result != nullptr) *result = value;
  return true;
}

bool condition_check(EvalContext &context, Node *condition) {
  const Check check{context, levels_around(context)};
  Value value;
  if (!check_node(check, condition, &value) || !is_truth(value)) return false;
  if ((value.flags & value_can_fail) == 0) condition->flags |= node_cannot_fail;
  return true;
}

}  // namespace tovik
