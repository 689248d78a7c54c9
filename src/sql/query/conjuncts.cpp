// Of one table, comparisons that look at the record come first, subqueries last.
#include "sql/query/conjuncts.h"

#include <algorithm>

#include "frame/error.h"
#include "sql/evaluate/expr_internal.h"

namespace tovik {

namespace {

constexpr int part_limit = 64;

// ---- the parts ----

struct Parts {
  const Node *items[part_limit];
  int count;
  bool all;  // they fit
};

void collect(const Node *condition, Parts &parts);

void collect_conjunction(const Node *top, Parts &parts) {
  const Node *node = top, *left;
  while ((left = OperatorTree::of(*node).left)->kind == node::logical_and) node = left;
  collect(left, parts);
  for (;; node = spine_above(*node)) {
    collect(OperatorTree::of(*node).right, parts);
    if (node == top || !parts.all) return;
  }
}

void collect(const Node *condition, Parts &parts) {
  if (condition->kind == node::always_true) return;
  if (condition->kind == node::logical_and) return collect_conjunction(condition, parts);
  if (condition->kind == node::between && !BetweenTree::of(*condition).negated) {
    const BetweenTree tree = BetweenTree::of(*condition);
    collect(tree.lower, parts);
    return collect(tree.upper, parts);
  }
  parts.all = parts.count < part_limit;
  if (parts.all) parts.items[parts.count++] = condition;
}

// ---- the tables that a part names ----

// The place of the innermost table that is named under node; count when there is a subquery, which may name
// any.
int innermost(const TableAccess *tables, int count, const Node *node) {
  int place = 0;
  for (OperandsTree tree; node != nullptr; node = tree.leading) {
    tree = OperandsTree::of(*node);
    if (tree.subquery) return count;
    if (node->kind == value_kind::column)
      place = std::max(place, access_place(tables, node->value->column.row));
    place = std::max(place, innermost(tables, count, tree.following));
    for (const Node *item : chain(tree.items))
      place = std::max(place, innermost(tables, count, ValueItemTree::of(*item).value));
  }
  return place;
}

// ---- lists ----

// In the order of their costs.
enum class Rank { test, condition, subquery };

struct Placed {
  Conjunct *conjunct;
  int place;
  Rank rank;
};

Placed place(const TableAccess *tables, int count, Conjunct &conjunct) {
  const int place = count > 1 || !conjunct.tests ? innermost(tables, count, conjunct.condition) : 0;
  if (place == count) return {&conjunct, std::max(count - 1, 0), Rank::subquery};
  return {&conjunct, place, conjunct.tests ? Rank::test : Rank::condition};
}

void append(Conjunct *&list, Conjunct *conjunct) {
  Conjunct **end = &list;
  while (*end != nullptr) end = &(*end)->next;
  *end = conjunct;
}

// False when there is no room.
bool split(EvalContext &context, const Node *condition, Conjuncts *conjuncts) {
  const ErrorScope no_failure_of_the_query;
  Parts parts{{}, 0, true};
  collect(condition, parts);
  if (!parts.all) return false;
  Conjunct *made = memory_pool_new<Conjunct>(*context.pool, parts.count);
  if (made == nullptr) return parts.count == 0;
  const int count = access_count(context.tables);
  Placed placed[part_limit];
  for (int i = 0; i < parts.count; ++i) {
    made[i].condition = parts.items[i];
    made[i].tests = column_test_of(*parts.items[i], &made[i].test);
    placed[i] = place(context.tables, count, made[i]);
  }
  for (const Rank rank : {Rank::test, Rank::condition, Rank::subquery})
    for (int i = 0; i < parts.count; ++i)
      if (placed[i].rank == rank) append(conjuncts->of_table[placed[i].place], placed[i].conjunct);
  return true;
}

}  // namespace

bool conjuncts_split(EvalContext &context, const Node *condition, Conjuncts *conjuncts) {
  *conjuncts = {};
  if (condition == nullptr || condition->kind == node::always_true) return true;
  if ((condition->flags & node_cannot_fail) != 0 && split(context, condition, conjuncts)) return true;
  Conjunct *whole = memory_pool_new<Conjunct>(*context.pool);
  if (whole == nullptr) return false;
  whole->condition = condition;
  conjuncts->of_table[std::max(access_count(context.tables) - 1, 0)] = whole;
  return true;
}

bool conjuncts_met(EvalContext &context, const Conjunct *first, bool *met) {
  *met = true;
  for (const Conjunct *each = first; each != nullptr && *met; each = each->next) {
    if (each->tests) {
      *met = column_test_holds(each->test);
    } else if (!condition_met(context, each->condition, met)) {
      return false;
    }
  }
  return true;
}

}  // namespace tovik
