// Children come before their node: a comparison becomes a candidate first, and the AND or BETWEEN above it
// then merges two that were found one right after the other.
//
// Invariant: the rows that an index gives for a candidate are exactly those for which its condition is true.
// A comparison for which no index can promise that is no candidate: see plan_literal.cpp for the literals;
// NULL is none of them.
#include "sql/query/plan_candidates.h"

#include "sql/parse/shapes.h"

namespace tovik {

namespace {

// ---- comparisons ----

bool is_ordering(uint16_t kind) {
  return kind == node::equal || kind == node::less || kind == node::greater || kind == node::less_equal ||
         kind == node::greater_equal;
}

TableAccess *access_of(const Candidates &candidates, const RowHandle *row) {
  TableAccess *access = candidates.tables;
  while (access != nullptr && access->handle != row) access = access->next;
  return access;
}

void collect_indices(Candidate &candidate) {
  const Table &table = *candidate.access->handle->table;
  for (int i = 0; i < table.index_count && candidate.index_count < candidate_index_limit; ++i) {
    Btree *index = table.indices[i];
    for (int part = 0; part < index->definition.part_count; ++part) {
      if (index->definition.parts[part].column == candidate.key.column->number) {
        candidate.indices[candidate.index_count++] = {index, part + 1};
        break;
      }
    }
  }
}

// The first index of the one column.
Btree *single_index(const Candidate &candidate) {
  for (int i = 0; i < candidate.index_count; ++i) {
    if (candidate.indices[i].index->definition.part_count == 1) return candidate.indices[i].index;
  }
  return nullptr;
}

// NULL in a list is equal to nothing.
bool list_fits(const Node *items, const Column &column, Signs signs) {
  for (const Node *item : chain(items)) {
    const Node &written = *ValueItemTree::of(*item).value;
    if (written.kind == value_kind::null) continue;
    KeyLiteral literal{&column, {}};
    if (!literal_read(written, signs, &literal.value) || !literal_fits(literal)) return false;
  }
  return true;
}

// A column of a query around, which has one value as long as this query runs.
bool is_outer_column(const Candidates &candidates, const Node &node) {
  return node.kind == value_kind::column && access_of(candidates, node.value->column.row) == nullptr;
}

// Is the rest of the comparison made of keys of the column?
bool compares_with_keys(const Candidates &candidates, const Node &comparison, KeyLiteral &key) {
  const Signs signs = candidates.signs;
  if (comparison.kind == node::in) return list_fits(InTree::of(comparison).items, *key.column, signs);
  const Node &right = *OperatorTree::of(comparison).right;
  if (is_outer_column(candidates, right)) return outer_read(right.value->column, &key);
  return literal_read(right, signs, &key.value) && literal_fits(key);
}

void collect_candidate(Candidates &candidates, Node &comparison, TableAccess *access, const Column &column) {
  if (candidates.count == candidate_limit) return;
  Candidate &candidate = candidates.found[candidates.count];
  candidate = {};
  candidate.condition = &comparison;
  candidate.access = access;
  candidate.key.column = &column;
  collect_indices(candidate);
  if (candidate.index_count == 0 || !compares_with_keys(candidates, comparison, candidate.key)) return;
  candidate.index = single_index(candidate);
  ++candidates.count;
}

void collect_rowid(Candidates &candidates, Node &comparison, TableAccess *access) {
  const Node &number = *OperatorTree::of(comparison).right;
  KeyLiteral literal{&access->handle->table->rowid, {}};
  if (is_outer_column(candidates, number)) {
    if (!outer_read(number.value->column, &literal)) return;
  } else if (is_literal(number)) {
    literal.value = *number.value;
  } else if (number.kind != value_kind::null) {
    return;
  }
  candidates.end = WalkEnd::rowid;
  candidates.rowid = {&comparison, access, row_number_of(literal.value)};
}

// What a comparison or a list tests, if its rows can be looked up in an index.
const Node *tested_of(const Node &condition) {
  if (is_ordering(condition.kind)) return OperatorTree::of(condition).left;
  if (condition.kind != node::in) return nullptr;
  const InTree list = InTree::of(condition);
  return list.negated || list.items == nullptr ? nullptr : list.tested;
}

void collect_comparison(Candidates &candidates, Node &comparison) {
  const Node *tested = tested_of(comparison);
  if (tested == nullptr || tested->kind != value_kind::column) return;
  const ColumnRef &column = tested->value->column;
  TableAccess *access = access_of(candidates, column.row);
  if (access == nullptr) return;
  if (!column_is_rowid(*column.column)) {
    collect_candidate(candidates, comparison, access, *column.column);
  } else if (comparison.kind == node::equal) {
    collect_rowid(candidates, comparison, access);
  }
}

// ---- two in one ----

struct Neighbours {
  Candidate *first, *second;  // null: the two conditions have no candidates next to each other
};

Neighbours neighbours(Candidates &candidates, const Node *condition, const Node *following) {
  for (int i = 0; i + 1 < candidates.count; ++i) {
    Candidate &first = candidates.found[i], &second = candidates.found[i + 1];
    if (!first.merged && first.condition == condition && !second.merged && second.condition == following)
      return {&first, &second};
  }
  return {nullptr, nullptr};
}

void merge(const Neighbours &pair, CandidateKind kind, Node &condition, Btree *index) {
  pair.first->kind = kind;
  pair.first->condition = &condition;
  pair.first->index = index;
  pair.first->second = pair.second->key;
  pair.second->merged = true;
}

bool is_equality(const Candidate &candidate) {
  return candidate.kind == CandidateKind::comparison && candidate.condition->kind == node::equal;
}

// The index in which one column is the first key and the other the second.
Btree *pair_index(const Candidate &a, const Candidate &b) {
  for (int i = 0; i < a.index_count; ++i) {
    for (int j = 0; j < b.index_count; ++j) {
      if (a.indices[i].index == b.indices[j].index && a.indices[i].position != b.indices[j].position) {
        return a.indices[i].index;
      }
    }
  }
  return nullptr;
}

void collect_pair(Candidates &candidates, Node &conjunction) {
  const OperatorTree tree = OperatorTree::of(conjunction);
  const Neighbours pair = neighbours(candidates, tree.left, tree.right);
  if (pair.first == nullptr || !is_equality(*pair.first) || !is_equality(*pair.second)) return;
  if (pair.first->access != pair.second->access || pair.first->key.column == pair.second->key.column) return;
  Btree *index = pair_index(*pair.first, *pair.second);
  if (index != nullptr) merge(pair, CandidateKind::pair, conjunction, index);
}

// An index of the one column, or else one whose first key it is.
Btree *range_index(const Candidate &candidate) {
  if (candidate.index != nullptr) return candidate.index;
  for (int i = 0; i < candidate.index_count; ++i) {
    if (candidate.indices[i].position == 1) return candidate.indices[i].index;
  }
  return nullptr;
}

void collect_range(Candidates &candidates, Node &between) {
  const BetweenTree tree = BetweenTree::of(between);
  const Neighbours bounds = neighbours(candidates, tree.lower, tree.upper);
  if (bounds.first == nullptr) return;
  Btree *index = range_index(*bounds.first);
  if (index == nullptr) return;
  merge(bounds, CandidateKind::range, between, index);
  bounds.first->lower = tree.lower->kind == node::greater ? Bound::exclusive : Bound::inclusive;
  bounds.first->upper = tree.upper->kind == node::less ? Bound::exclusive : Bound::inclusive;
}

// ---- the walk ----

void collect(Candidates &candidates, Node *condition);

// A chain, which the check pass has linked.
void collect_conjunction(Candidates &candidates, Node *top) {
  Node *node = top, *left;
  while ((left = OperatorTree::of(*node).left)->kind == node::logical_and) node = left;
  collect(candidates, left);
  for (;; node = spine_above(*node)) {
    collect(candidates, OperatorTree::of(*node).right);
    collect_pair(candidates, *node);
    if (node == top) return;
  }
}

void collect_between(Candidates &candidates, Node &between) {
  const BetweenTree tree = BetweenTree::of(between);
  if (tree.negated) return;  // its comparisons do not hold for the rows that are wanted
  collect(candidates, tree.lower);
  collect(candidates, tree.upper);
  collect_range(candidates, between);
}

void collect(Candidates &candidates, Node *condition) {
  if (condition == nullptr || candidates.end != WalkEnd::whole) return;
  switch (condition->kind) {
    case node::logical_or:
    case node::logical_not:
      candidates.end = WalkEnd::given_up;
      return;
    case node::logical_and:
      return collect_conjunction(candidates, condition);
    case node::between:
      return collect_between(candidates, *condition);
    default:
      collect_comparison(candidates, *condition);
  }
}

}  // namespace

bool candidate_is_bound(const Candidate &candidate) {
  const uint16_t kind = candidate.condition->kind;
  return candidate.kind == CandidateKind::comparison && is_ordering(kind) && kind != node::equal;
}

bool candidate_is_upper(const Candidate &candidate) {
  const uint16_t kind = candidate.condition->kind;
  return kind == node::less || kind == node::less_equal;
}

Bound candidate_bound(const Candidate &candidate) {
  const uint16_t kind = candidate.condition->kind;
  return kind == node::less || kind == node::greater ? Bound::exclusive : Bound::inclusive;
}

void candidates_collect(TableAccess *tables, Node *condition, Signs signs, Candidates *candidates) {
  candidates->tables = tables;
  candidates->signs = signs;
  candidates->end = WalkEnd::whole;
  candidates->count = 0;
  collect(*candidates, condition);
}

}  // namespace tovik
