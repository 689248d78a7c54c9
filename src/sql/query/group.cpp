// A row costs one look-up by its keys' hash, and the evaluation of the arguments of the aggregate calls. The
// pool of the statement holds what one group needs, however many there are.
#include "sql/query/group.h"

#include <algorithm>

#include "frame/error.h"
#include "sql/parse/shapes.h"

namespace tovik {

namespace {

int accumulators_size(const Grouping &grouping) {
  return grouping.aggregates.count * static_cast<int>(sizeof(Accumulator));
}

bool start_accumulators(MemoryPool &pool, Groups &groups) {
  const AggregateCalls &calls = groups.grouping->aggregates;
  if (calls.count == 0) return true;
  groups.start = memory_pool_new<Accumulator>(pool, calls.count);
  if (groups.start == nullptr) return false;
  for (const AggregateCall *call = calls.first; call != nullptr; call = call->next) {
    if (CallTree::of(*call->node).distinct) return fail(status::unsupported);
    groups.start[call->number] = call->start;
  }
  return true;
}

// The store sorts by its first columns.
void sorted_keys_first(Grouping &grouping, Groups &groups, const OrderKey *order, int order_count) {
  ColumnRef *const end = grouping.keys + grouping.key_count;
  for (int i = 0; i < order_count; ++i) {
    ColumnRef *const place = grouping.keys + groups.sorted_count;
    ColumnRef *const key = std::find(place, end, order[i].column);
    if (key == end) continue;
    std::swap(*place, *key);
    groups.directions[groups.sorted_count++] = order[i].direction;
  }
}

bool create_store(MemoryPool &pool, Groups &groups) {
  const Grouping &grouping = *groups.grouping;
  SortColumn *columns = memory_pool_new<SortColumn>(pool, grouping.key_count);
  if (columns == nullptr || !row_forms_new(pool, grouping.key_count, &groups.row)) return false;
  for (int i = 0; i < grouping.key_count; ++i) columns[i] = sort_column(*grouping.keys[i].column);
  groups.store = sort_store_create_groups(columns, grouping.key_count, accumulators_size(grouping));
  return groups.store != nullptr;
}

bool prepare(Groups &groups, MemoryPool &pool) {
  return start_accumulators(pool, groups) && (groups.grouping->key_count == 0 || create_store(pool, groups));
}

// That of the row on which the tables stand.
bool find_group(Groups &groups, MemoryPool &pool, Accumulator **accumulators) {
  const Grouping &grouping = *groups.grouping;
  for (int i = 0; i < grouping.key_count; ++i)
    if (!row_forms_read(pool, grouping.keys[i], i, groups.row)) return false;
  int group;
  if (!sort_store_group(*groups.store, groups.row.forms, groups.start, &group)) return false;
  *accumulators = static_cast<Accumulator *>(sort_state(*groups.store, group));
  return true;
}

int group_count(const Groups &groups) {
  return groups.store == nullptr ? 1 : groups.store->rows.size();
}

void stand_on(Groups &groups, int index) {
  const Grouping &grouping = *groups.grouping;
  for (int i = 0; i < grouping.key_count; ++i)
    groups.row.values[i] =
        value_of_sort_form(grouping.keys[i].column->type, sort_value(*groups.store, index, i));
  if (groups.store != nullptr)
    groups.current.accumulators = static_cast<Accumulator *>(sort_state(*groups.store, index));
}

}  // namespace

Groups *groups_open(const EvalContext &context, Grouping &grouping, const OrderKey *order, int order_count) {
  Groups *groups = memory_pool_new<Groups>(*context.pool);
  if (groups == nullptr) return nullptr;
  groups->grouping = &grouping;
  sorted_keys_first(grouping, *groups, order, order_count);
  if (!prepare(*groups, *context.pool)) return nullptr;
  groups->current = {groups->start, grouping.keys, groups->row.values, grouping.key_count};
  return groups;
}

void groups_close(Groups *groups) {
  if (groups == nullptr) return;
  sort_store_destroy(groups->store);
  groups->store = nullptr;
}

bool groups_add(Groups &groups, EvalContext &context) {
  Accumulator *accumulators = groups.start;
  if (groups.store != nullptr && !find_group(groups, *context.pool, &accumulators)) return false;
  return aggregates_add(context, groups.grouping->aggregates, accumulators);
}

bool groups_complete(Groups &groups, EvalContext &context) {
  context.group = &groups.current;
  return groups.sorted_count == 0 || sort_execute(*groups.store, groups.directions, groups.sorted_count);
}

Found groups_next(Groups &groups, EvalContext &context) {
  while (groups.next < group_count(groups)) {
    stand_on(groups, groups.next++);
    bool met = true;
    const Node *condition = groups.grouping->condition;
    if (condition != nullptr && !condition_met(context, condition, &met)) return Found::failed;
    if (met) return Found::yes;
  }
  return Found::no;
}

}  // namespace tovik
