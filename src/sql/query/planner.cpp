// Candidates are collected in one walk of the condition, children before their node; the first usable one is
// chosen. A number with a sign is no literal. Only when no candidate is usable the walk is repeated with such
// numbers taken as literals, and the rows then come in the order of a scan.
//
// Invariant: the rows that an access path delivers are exactly those for which the replaced part of the
// condition is true. Where an index cannot promise that, the comparison is no candidate:
//   - NULL as the literal. NULL keys stand lowest in every index and meet no comparison: a range without a
//     lower bound starts behind them.
//   - A real number for an integer column, unless it is whole and below 2^53: from there on several integers
//     are equal to one real number.
//   - A number with more than seven digits for a float column, whose values are compared by seven digits.
//   - A text that begins with the byte that marks a NULL text.
//   - A local time that is not that of exactly one instant, for a column whose keys are universal time: where
//     clocks are set forward it is that of none, where they are set back that of two.
// A date column is compared by its days, a time column by its seconds, with or without an index. A literal
// that its column cannot hold (a number out of range, a text that is too long) fails the query.
#include "sql/query/planner.h"

#include <cmath>
#include <cstring>

#include "data/table/catalog.h"
#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "data/value/stored_form.h"
#include "frame/env.h"
#include "frame/error.h"
#include "sql/parse/shapes.h"

namespace tovik {

namespace {

constexpr int candidate_limit = 16;
constexpr int candidate_index_limit = 8;

enum class PlanState { none, given_up, candidates, index, rowid };
enum class CandidateKind { comparison, pair, range };

struct IndexUse {
  Btree *index;
  int position;  // of the column among the index's keys, from 1
};

struct Candidate {
  bool used;
  CandidateKind kind;
  Node *condition;  // replaced when the candidate is chosen
  TableAccess *access;
  const Column *column;
  const Column *second_column;  // pair
  Value value;                  // the literal; not of IN, which has a list of them
  Value second_value;           // pair: of the second column; range: the upper bound
  Btree *index;                 // chosen
  Bound lower, upper;           // range
  IndexUse indices[candidate_index_limit];
  int index_count;
};

struct Plan {
  EvalContext &context;
  bool signs;  // a number with a sign counts as a literal
  PlanState state;
  Candidate candidates[candidate_limit];
  int candidate_count;
  Candidate *chosen;
  Node *rowid_condition;
  TableAccess *rowid_access;
  Guaranteed guaranteed;
};

// ---- literals ----

bool is_literal(const Node &node) {
  return node.kind == value_kind::literal || node.kind == value_kind::string ||
         node.kind == value_kind::date_literal;
}

void negate(Value &number) {
  if ((number.type & TYPE_INTEGER) != 0) {
    number.integer = static_cast<int64_t>(0 - static_cast<uint64_t>(number.integer));
  } else {
    number.real = -number.real;
  }
}

// False when node counts as no literal.
bool read_literal(const Plan &plan, const Node &node, Value *value) {
  const bool negated = plan.signs && node.kind == node::negation;
  const Node &literal = negated ? *OperatorTree::of(node).right : node;
  if (!is_literal(literal)) return false;
  *value = *literal.value;
  if (negated) negate(*value);
  return true;
}

constexpr double exact_integers = 0x1p53;  // below, no two integers are the same real number

bool is_exact_integer(double real) {
  return real == std::floor(real) && std::fabs(real) < exact_integers;
}

double as_real(const Value &value) {
  return (value.type & TYPE_INTEGER) != 0 ? static_cast<double>(value.integer) : value.real;
}

bool same_time(const Column &column, const DateTimeRec &a, const DateTimeRec &b) {
  int order;
  return compare_values(column.type, &a, 0, column.type, &b, &order) && order == 0;
}

int64_t seconds_of(const DateTimeRec &time) {
  return ((day_number(time.year, time.month, time.day) * 24 + time.hour) * 60 + time.minute) * 60 +
         time.second;
}

bool local_at(const DateTimeRec &utc, int64_t amount, int unit, DateTimeRec *moved, DateTimeRec *local) {
  if (!datetime_add(utc, amount, unit, moved)) return false;
  *local = *moved;
  return datetime_to_local(local);
}

// Would the zone's offset of the day before or after make literal the local time of a second instant?
bool names_one_instant(const Column &column, const DateTimeRec &literal) {
  const ErrorScope no_failure_of_the_query;
  uint8_t key[btree_key_limit];
  DateTimeRec back, utc, near, local;
  if (store_value(column, ValueMode::binary, &literal, key) != Stored::value ||
      fetch_value(column, ValueMode::binary, key, &back) != Stored::value ||
      !same_time(column, back, literal))
    return false;
  const DateTimeRec instant = load_datetime_form(column.type, key);
  for (const int days : {-1, 1}) {
    if (!local_at(instant, days, unit_day, &near, &local)) return false;
    const int64_t shift = seconds_of(back) - seconds_of(instant) - (seconds_of(local) - seconds_of(near));
    if (!local_at(instant, shift, unit_second, &utc, &local)) return false;
    if (shift != 0 && same_time(column, local, literal)) return false;
  }
  return true;
}

// Can the literal be a key of the column without losing anything?
bool fits_key(const Column &column, const Value &value) {
  switch (datum_kind(column.type)) {
    case DatumKind::integer:
      return (value.type & TYPE_INTEGER) != 0 ||
             ((value.type & TYPE_FLOAT) != 0 && is_exact_integer(value.real));
    case DatumKind::real:
      if (!type_numeric(value.type)) return false;
      return column.type == type::float64 ||
             float32_rounded(static_cast<float>(as_real(value))) == as_real(value);
    case DatumKind::datetime:
      return (value.type & TYPE_DATETIME) != 0 &&
             (column.type == type::date || names_one_instant(column, value.datetime));
    default:
      return (value.type & TYPE_CHARACTER) != 0 && static_cast<uint8_t>(*value.text.text) != null_flag;
  }
}

// The stored form of the literal in the column at key.
bool store_key(const Column &column, const Value &value, uint8_t *key) {
  Value converted = value;
  if ((column.type & TYPE_INTEGER) != 0 && (value.type & TYPE_FLOAT) != 0) {
    converted.integer = static_cast<int64_t>(value.real);
  } else if ((column.type & TYPE_FLOAT) != 0) {
    converted.real = as_real(value);
  }
  return store_value(column, ValueMode::binary, value_datum(converted), key) != Stored::failed;
}

bool store_null_key(const Column &column, uint8_t *key) {
  return store_value(column, ValueMode::null, nullptr, key) != Stored::failed;
}

// ---- collecting ----

bool is_ordering(uint16_t kind) {
  return kind == node::equal || kind == node::less || kind == node::greater || kind == node::less_equal ||
         kind == node::greater_equal;
}

TableAccess *access_of(const Plan &plan, const RowHandle *row) {
  TableAccess *access = plan.context.tables;
  while (access != nullptr && access->handle != row) access = access->next;
  return access;
}

void collect_indices(Candidate &candidate) {
  const Table &table = *candidate.access->handle->table;
  for (int i = 0; i < table.index_count && candidate.index_count < candidate_index_limit; ++i) {
    Btree *index = table.indices[i];
    for (int part = 0; part < index->definition.part_count; ++part) {
      if (index->definition.parts[part].column == candidate.column->number) {
        candidate.indices[candidate.index_count++] = {index, part + 1};
        break;
      }
    }
  }
}

// NULL in a list is equal to nothing.
bool list_fits(const Plan &plan, const Column &column, const Node *items) {
  for (const Node *item : chain(items)) {
    const Node &written = *ValueItemTree::of(*item).value;
    Value value;
    if (written.kind == value_kind::null) continue;
    if (!read_literal(plan, written, &value) || !fits_key(column, value)) return false;
  }
  return true;
}

void choose_rowid(Plan &plan, Node &comparison, TableAccess *access) {
  plan.state = PlanState::rowid;
  plan.rowid_condition = &comparison;
  plan.rowid_access = access;
}

// Is the rest of the comparison made of keys of the column?
bool compares_with_keys(const Plan &plan, const Column &column, const Node &comparison, Value *value) {
  if (comparison.kind == node::in) return list_fits(plan, column, InTree::of(comparison).items);
  return read_literal(plan, *OperatorTree::of(comparison).right, value) && fits_key(column, *value);
}

void collect_candidate(Plan &plan, Node &comparison, TableAccess *access, const Column &column) {
  if (plan.candidate_count == candidate_limit) return;
  Candidate &candidate = plan.candidates[plan.candidate_count];
  candidate = {};
  candidate.condition = &comparison;
  candidate.access = access;
  candidate.column = &column;
  collect_indices(candidate);
  if (candidate.index_count == 0 || !compares_with_keys(plan, column, comparison, &candidate.value)) return;
  candidate.used = true;
  ++plan.candidate_count;
  plan.state = PlanState::candidates;
}

// What a comparison or a list tests, if its rows can be looked up in an index.
const Node *tested_of(const Node &condition) {
  if (is_ordering(condition.kind)) return OperatorTree::of(condition).left;
  if (condition.kind != node::in) return nullptr;
  const InTree list = InTree::of(condition);
  return list.negated || list.items == nullptr ? nullptr : list.tested;
}

void collect_comparison(Plan &plan, Node &comparison) {
  const Node *tested = tested_of(comparison);
  if (tested == nullptr || tested->kind != value_kind::column) return;
  const ColumnRef &column = tested->value->column;
  TableAccess *access = access_of(plan, column.row);
  if (access == nullptr) return;
  if (!column_is_rowid(*column.column)) {
    collect_candidate(plan, comparison, access, *column.column);
  } else if (comparison.kind == node::equal) {
    const Node &number = *OperatorTree::of(comparison).right;
    if (is_literal(number) || number.kind == value_kind::null) choose_rowid(plan, comparison, access);
  }
}

// The used candidate of condition, with the next slot holding that of following; null when there is none.
Candidate *adjacent_candidates(Plan &plan, const Node *condition, const Node *following) {
  for (int i = 0; i + 1 < plan.candidate_count; ++i) {
    Candidate &candidate = plan.candidates[i];
    if (candidate.used && candidate.condition == condition && plan.candidates[i + 1].used &&
        plan.candidates[i + 1].condition == following) {
      return &candidate;
    }
  }
  return nullptr;
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

void collect_pair(Plan &plan, Node &conjunction) {
  const OperatorTree tree = OperatorTree::of(conjunction);
  Candidate *first = adjacent_candidates(plan, tree.left, tree.right);
  if (first == nullptr) return;
  Candidate &second = first[1];
  if (first->kind != CandidateKind::comparison || second.kind != CandidateKind::comparison ||
      first->condition->kind != node::equal || second.condition->kind != node::equal ||
      first->access != second.access || first->column == second.column) {
    return;
  }
  Btree *index = pair_index(*first, second);
  if (index == nullptr) return;
  first->kind = CandidateKind::pair;
  first->condition = &conjunction;
  first->index = index;
  first->second_column = second.column;
  first->second_value = second.value;
  second.used = false;
}

// An index of the one column, or else one whose first key it is.
Btree *range_index(const Candidate &candidate) {
  Btree *longer = nullptr;
  for (int i = 0; i < candidate.index_count; ++i) {
    const IndexUse &use = candidate.indices[i];
    if (use.index->definition.part_count == 1) return use.index;
    if (use.position == 1 && longer == nullptr) longer = use.index;
  }
  return longer;
}

void collect_range(Plan &plan, Node &between) {
  const BetweenTree tree = BetweenTree::of(between);
  Candidate *lower = adjacent_candidates(plan, tree.lower, tree.upper);
  if (lower == nullptr) return;
  Btree *index = range_index(*lower);
  if (index == nullptr) return;
  lower->kind = CandidateKind::range;
  lower->condition = &between;
  lower->index = index;
  lower->second_value = lower[1].value;
  lower->lower = tree.lower->kind == node::greater ? Bound::exclusive : Bound::inclusive;
  lower->upper = tree.upper->kind == node::less ? Bound::exclusive : Bound::inclusive;
  lower[1].used = false;
}

void collect(Plan &plan, Node *condition);

// A chain, which the check pass has linked.
void collect_conjunction(Plan &plan, Node *top) {
  Node *node = top, *left;
  while ((left = OperatorTree::of(*node).left)->kind == node::logical_and) node = left;
  collect(plan, left);
  for (;; node = spine_above(*node)) {
    collect(plan, OperatorTree::of(*node).right);
    collect_pair(plan, *node);
    if (node == top) return;
  }
}

void collect_between(Plan &plan, Node &between) {
  const BetweenTree tree = BetweenTree::of(between);
  if (tree.negated) return;  // its comparisons do not hold for the rows that are wanted
  collect(plan, tree.lower);
  collect(plan, tree.upper);
  collect_range(plan, between);
}

void collect(Plan &plan, Node *condition) {
  if (condition == nullptr || plan.state == PlanState::given_up || plan.state == PlanState::rowid) return;
  switch (condition->kind) {
    case node::logical_or:
    case node::logical_not:
      plan.state = PlanState::given_up;
      return;
    case node::logical_and:
      return collect_conjunction(plan, condition);
    case node::between:
      return collect_between(plan, *condition);
    default:
      collect_comparison(plan, *condition);
  }
}

// ---- choosing and setting up ----

void choose(Plan &plan) {
  if (plan.state != PlanState::candidates) return;
  for (int i = 0; i < plan.candidate_count; ++i) {
    Candidate &candidate = plan.candidates[i];
    if (!candidate.used) continue;
    for (int j = 0; candidate.index == nullptr && j < candidate.index_count; ++j) {
      if (candidate.indices[j].index->definition.part_count == 1)
        candidate.index = candidate.indices[j].index;
    }
    if (candidate.index != nullptr) {
      plan.chosen = &candidate;
      plan.state = PlanState::index;
      return;
    }
  }
  plan.state = PlanState::none;
}

bool search(Btree &index, const uint8_t *key, RowSet &rows) {
  return btree_search(index, key, &rows) != BtreeFind::failed;
}

// Two items may give the same rows.
bool search_list(const Plan &plan, const Candidate &candidate, RowSet &rows) {
  uint8_t key[btree_key_limit];
  for (const Node *item : chain(InTree::of(*candidate.condition).items)) {
    Value value;
    if (!read_literal(plan, *ValueItemTree::of(*item).value, &value)) continue;  // NULL
    if (!store_key(*candidate.column, value, key)) return false;
    if (!search(*candidate.index, key, rows)) return false;
  }
  rowset_make_distinct(rows);
  return true;
}

bool search_comparison(const Candidate &candidate, RowSet &rows) {
  const uint16_t kind = candidate.condition->kind;
  uint8_t key[btree_key_limit], null_key[btree_key_limit];
  if (!store_key(*candidate.column, candidate.value, key)) return false;
  if (kind == node::equal) return search(*candidate.index, key, rows);
  if (!store_null_key(*candidate.column, null_key)) return false;
  const Bound bound = kind == node::less || kind == node::greater ? Bound::exclusive : Bound::inclusive;
  const bool below = kind == node::less || kind == node::less_equal;
  const BtreeRange range = below ? BtreeRange{null_key, Bound::exclusive, key, bound, false}
                                 : BtreeRange{key, bound, nullptr, Bound::none, false};
  return btree_range(*candidate.index, range, rows);
}

// The values of both columns, in the order of the index's parts.
bool store_pair_key(const Candidate &candidate, uint8_t *key) {
  int offset = 0;
  for (int part = 0; part < 2; ++part) {
    const bool first = candidate.index->definition.parts[part].column == candidate.column->number;
    const Column &column = first ? *candidate.column : *candidate.second_column;
    if (!store_key(column, first ? candidate.value : candidate.second_value, key + offset)) return false;
    offset += column.stored_size;
  }
  return true;
}

bool search_pair(const Candidate &candidate, RowSet &rows) {
  uint8_t key[btree_key_limit];
  return store_pair_key(candidate, key) && search(*candidate.index, key, rows);
}

bool search_range(const Candidate &candidate, RowSet &rows) {
  uint8_t lower[btree_key_limit], upper[btree_key_limit];
  if (!store_key(*candidate.column, candidate.value, lower)) return false;
  if (!store_key(*candidate.column, candidate.second_value, upper)) return false;
  const BtreeRange range = {lower, candidate.lower, upper, candidate.upper,
                            candidate.index->definition.part_count > 1};
  return btree_range(*candidate.index, range, rows);
}

bool search_index(const Plan &plan, const Candidate &candidate, RowSet &rows) {
  switch (candidate.kind) {
    case CandidateKind::pair:
      return search_pair(candidate, rows);
    case CandidateKind::range:
      return search_range(candidate, rows);
    default:
      return candidate.condition->kind == node::in ? search_list(plan, candidate, rows)
                                                   : search_comparison(candidate, rows);
  }
}

// Every part of a unique index is equal to a literal.
bool is_unique_key(const Candidate &candidate) {
  return btree_is_unique(*candidate.index) &&
         (candidate.kind == CandidateKind::pair ||
          (candidate.kind == CandidateKind::comparison && candidate.condition->kind == node::equal));
}

bool set_up_unique_row(const Candidate &candidate) {
  uint8_t key[btree_key_limit], value[sizeof(RowNo)];
  const bool stored = candidate.kind == CandidateKind::pair
                          ? store_pair_key(candidate, key)
                          : store_key(*candidate.column, candidate.value, key);
  if (!stored) return false;
  const BtreeFind found = btree_find_value(*candidate.index, key, value);
  if (found == BtreeFind::failed) return false;
  candidate.access->path = AccessPath::unique_row;
  candidate.access->row = found == BtreeFind::found ? load_u32(value) : 0;
  return true;
}

bool set_up_row_list(const Plan &plan, const Candidate &candidate) {
  RowSet *rows = rowset_new();
  if (rows == nullptr) return false;
  candidate.access->rows = rows;  // owned from here on
  candidate.access->path = AccessPath::row_list;
  if (!search_index(plan, candidate, *rows)) return false;
  if (plan.signs) rowset_sort(*rows);
  return true;
}

void replace(Plan &plan, Node &condition) {
  plan.guaranteed = {&condition, condition.kind};
  condition.kind = node::always_true;
}

bool set_up_index(Plan &plan, const Candidate &candidate) {
  if (!(is_unique_key(candidate) ? set_up_unique_row(candidate) : set_up_row_list(plan, candidate)))
    return false;
  replace(plan, *candidate.condition);
  return true;
}

// A literal that is no row number names no row.
RowNo row_number_of(const Node &literal) {
  if (literal.kind == value_kind::null || !type_numeric(literal.value->type)) return 0;
  const double number = as_real(*literal.value);
  return is_exact_integer(number) && number > 0 && number <= UINT32_MAX ? static_cast<RowNo>(number) : 0;
}

void set_up_rowid(Plan &plan) {
  plan.rowid_access->path = AccessPath::rowid;
  plan.rowid_access->row = row_number_of(*OperatorTree::of(*plan.rowid_condition).right);
  replace(plan, *plan.rowid_condition);
}

// ---- printing ----

const char *table_name(const TableAccess &access) {
  return access.handle->table->name;
}

void print_scans(const Plan &plan) {
  for (const TableAccess *access = plan.context.tables; access != nullptr; access = access->next) {
    system_driver.print("TABLE '%s':%s", table_name(*access), "\n");
    system_driver.print("        Scan entire table%s", "\n");
  }
}

void print_index_use(const Candidate &candidate) {
  const char *index = candidate.index->definition.index_name;
  system_driver.print("TABLE '%s':%s", table_name(*candidate.access), "\n");
  system_driver.print("        Indices usable:%s", "\n");
  switch (candidate.kind) {
    case CandidateKind::pair:
      system_driver.print("        '%s' : '%s' '%s' composite %s", index, candidate.column->name,
                          candidate.second_column->name, "\n");
      break;
    case CandidateKind::range:
      system_driver.print("        '%s' : '%s' between %s", index, candidate.column->name, "\n");
      break;
    default:
      system_driver.print("        '%s' : '%s' %s", index, candidate.column->name, "\n");
  }
  system_driver.print("        Use records from indices%s", "\n");
}

void print_plan(const Plan &plan) {
  system_driver.print("---- QUERY PLAN ----%s", "\n");
  switch (plan.state) {
    case PlanState::index:
      print_index_use(*plan.chosen);
      break;
    case PlanState::rowid:
      system_driver.print("TABLE '%s':%s", table_name(*plan.rowid_access), "\n");
      system_driver.print(plan.rowid_access->row != 0 ? "        row id usable%s" : "        check row id%s",
                          "\n");
      break;
    default:
      print_scans(plan);
  }
  system_driver.print("--------------------%s", "\n");
}

}  // namespace

bool plan_query(EvalContext &context, Node *condition, Guaranteed *guaranteed) {
  Plan plan{context, false, PlanState::none, {}, 0, nullptr, nullptr, nullptr, {}};
  collect(plan, condition);
  choose(plan);
  if (plan.state == PlanState::none) {
    plan.signs = true;
    plan.candidate_count = 0;
    collect(plan, condition);
    choose(plan);
  }
  if (plan.state == PlanState::rowid) set_up_rowid(plan);
  if (plan.state == PlanState::index && !set_up_index(plan, *plan.chosen)) return false;
  *guaranteed = plan.guaranteed;
  if (env_on(Env::query_plan)) print_plan(plan);
  return true;
}

}  // namespace tovik
