// NULL keys stand lowest in every index and meet no comparison: a range without a lower bound starts behind
// them.
#include "sql/query/plan_lookup.h"

#include "data/value/stored_form.h"
#include "frame/error.h"
#include "sql/parse/shapes.h"

namespace tovik {

namespace {

bool search(Btree &index, const uint8_t *key, RowSet &rows) {
  return btree_search(index, key, &rows) != Found::failed;
}

// Two items may give the same rows. NULL gives none.
bool search_list(const Candidate &candidate, RowSet &rows) {
  uint8_t key[btree_key_limit];
  KeyLiteral item = candidate.key;
  for (const Node *node : chain(InTree::of(*candidate.condition).items)) {
    if (!literal_read(*ValueItemTree::of(*node).value, Signs::accepted, &item.value)) continue;
    if (!literal_store(item, key) || !search(*candidate.index, key, rows)) return false;
  }
  rowset_make_distinct(rows);
  return true;
}

bool store_null_key(const Column &column, uint8_t *key) {
  return store_value(column, ValueMode::null, nullptr, key) != Stored::failed;
}

// A value that the column cannot hold bounds nothing: the comparison with it is tested in each row.
bool stores(const KeyLiteral &literal, uint8_t *key) {
  const ErrorScope no_failure_of_the_query;
  return literal_store(literal, key);
}

bool search_bound(const Candidate &candidate, const uint8_t *key, RowSet &rows) {
  uint8_t null_key[btree_key_limit], other[btree_key_limit];
  if (!store_null_key(*candidate.key.column, null_key)) return false;
  const Bound bound = candidate_bound(candidate);
  const bool narrowed = candidate.second.column != nullptr && stores(candidate.second, other);
  BtreeRange range = {null_key, Bound::exclusive, key, bound, false};
  if (candidate_is_upper(candidate)) {
    if (narrowed) range.lower = other, range.lower_bound = candidate.lower;
  } else {
    range = {key, bound, narrowed ? other : nullptr, narrowed ? candidate.upper : Bound::none, false};
  }
  return btree_range(*candidate.index, range, rows);
}

bool search_comparison(const Candidate &candidate, RowSet &rows) {
  uint8_t key[btree_key_limit];
  if (!literal_store(candidate.key, key)) return false;
  return candidate_is_bound(candidate) ? search_bound(candidate, key, rows)
                                       : search(*candidate.index, key, rows);
}

// The values of both columns, in the order of the index's parts.
bool store_pair_key(const Candidate &candidate, uint8_t *key) {
  const bool in_order = candidate.index->definition.parts[0].column == candidate.key.column->number;
  const KeyLiteral &first = in_order ? candidate.key : candidate.second;
  const KeyLiteral &second = in_order ? candidate.second : candidate.key;
  return literal_store(first, key) && literal_store(second, key + first.column->stored_size);
}

bool search_pair(const Candidate &candidate, RowSet &rows) {
  uint8_t key[btree_key_limit];
  return store_pair_key(candidate, key) && search(*candidate.index, key, rows);
}

bool search_range(const Candidate &candidate, RowSet &rows) {
  uint8_t lower[btree_key_limit], upper[btree_key_limit];
  if (!literal_store(candidate.key, lower) || !literal_store(candidate.second, upper)) return false;
  const BtreeRange range = {lower, candidate.lower, upper, candidate.upper,
                            candidate.index->definition.part_count > 1};
  return btree_range(*candidate.index, range, rows);
}

bool search_index(const Candidate &candidate, RowSet &rows) {
  switch (candidate.kind) {
    case CandidateKind::pair:
      return search_pair(candidate, rows);
    case CandidateKind::range:
      return search_range(candidate, rows);
    default:
      return candidate.condition->kind == node::in ? search_list(candidate, rows)
                                                   : search_comparison(candidate, rows);
  }
}

// Every part of a unique index is equal to a literal.
bool is_unique_key(const Candidate &candidate) {
  return btree_is_unique(*candidate.index) &&
         (candidate.kind == CandidateKind::pair ||
          (candidate.kind == CandidateKind::comparison && candidate.condition->kind == node::equal));
}

bool look_up_row(const Candidate &candidate) {
  uint8_t key[btree_key_limit], value[sizeof(RowNo)];
  const bool stored = candidate.kind == CandidateKind::pair ? store_pair_key(candidate, key)
                                                            : literal_store(candidate.key, key);
  if (!stored) return false;
  const Found found = btree_find_value(*candidate.index, key, value);
  if (found == Found::failed) return false;
  candidate.access->path = AccessPath::unique_row;
  candidate.access->row = found == Found::yes ? load_u32(value) : 0;
  return true;
}

// No row meets a comparison with NULL.
bool look_up_nothing(const Candidate &candidate) {
  candidate.access->path = AccessPath::unique_row;
  candidate.access->row = 0;
  return true;
}

bool look_up_rows(const Candidate &candidate) {
  RowSet *rows = rowset_new();
  if (rows == nullptr) return false;
  candidate.access->rows = rows;  // owned from here on
  candidate.access->path = AccessPath::row_list;
  return search_index(candidate, *rows);
}

}  // namespace

bool plan_lookup(const Candidate &candidate) {
  if (candidate.key.value.is_null() || candidate.second.value.is_null()) return look_up_nothing(candidate);
  return is_unique_key(candidate) ? look_up_row(candidate) : look_up_rows(candidate);
}

}  // namespace tovik
