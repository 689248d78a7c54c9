// A number with a sign is no literal at first. Only when no candidate is usable the walk is repeated with
// such numbers taken as literals, and the rows then come in the order of a scan.
#include "sql/query/planner.h"

#include "frame/env.h"
#include "sql/query/plan_lookup.h"
#include "sql/query/plan_print.h"

namespace tovik {

namespace {

Candidate *first_usable(Candidates &candidates) {
  for (int i = 0; i < candidates.count; ++i) {
    Candidate &candidate = candidates.found[i];
    if (!candidate.merged && candidate.index != nullptr) return &candidate;
  }
  return nullptr;
}

// Of a bound that was chosen, the first on its other side: the rows are fewer and come in the same order.
void narrow(Candidates &candidates, Candidate &chosen) {
  if (!candidate_is_bound(chosen)) return;
  for (int i = 0; i < candidates.count; ++i) {
    const Candidate &other = candidates.found[i];
    if (other.merged || other.key.column != chosen.key.column || other.access != chosen.access ||
        !candidate_is_bound(other) || candidate_is_upper(other) == candidate_is_upper(chosen))
      continue;
    chosen.second = other.key;
    (candidate_is_upper(other) ? chosen.upper : chosen.lower) = candidate_bound(other);
    return;
  }
}

// What was chosen: at most one of the two.
struct Choice {
  const RowidCandidate *rowid;
  const Candidate *indexed;
};

Choice choose(TableAccess *tables, Node *condition, Candidates *candidates) {
  for (const Signs signs : {Signs::refused, Signs::accepted}) {
    candidates_collect(tables, condition, signs, candidates);
    if (candidates->end == WalkEnd::rowid) return {&candidates->rowid, nullptr};
    if (candidates->end == WalkEnd::given_up) break;
    Candidate *usable = first_usable(*candidates);
    if (usable == nullptr) continue;
    narrow(*candidates, *usable);
    return {nullptr, usable};
  }
  return {nullptr, nullptr};
}

void set_up_rowid(const RowidCandidate &rowid) {
  rowid.access->path = AccessPath::rowid;
  rowid.access->row = rowid.row;
}

bool set_up_index(const Candidate &candidate, Signs signs) {
  if (!plan_lookup(candidate)) return false;
  RowSet *rows = candidate.access->rows;
  if (signs == Signs::accepted && rows != nullptr) rowset_sort(*rows);
  return true;
}

void replace(Node &condition, Guaranteed *guaranteed) {
  *guaranteed = {&condition, condition.kind};
  condition.kind = node::always_true;
}

// Sets up what was chosen.
bool set_up(const Choice &choice, Signs signs, Guaranteed *guaranteed) {
  if (choice.rowid != nullptr) {
    set_up_rowid(*choice.rowid);
    replace(*choice.rowid->condition, guaranteed);
  } else if (choice.indexed != nullptr) {
    if (!set_up_index(*choice.indexed, signs)) return false;
    replace(*choice.indexed->condition, guaranteed);
  }
  return true;
}

bool find_lookups(EvalContext &context, Plan &plan) {
  TableAccess *access = context.tables;
  if (access == nullptr || access->next == nullptr) return true;
  JoinLookup *lookup = memory_pool_new<JoinLookup>(*context.pool, access_count(access));
  if (lookup == nullptr) return false;
  plan.lookups = lookup;
  Conjunct **conjuncts = plan.conjuncts.of_table;
  for (++lookup; (access = access->next) != nullptr; ++lookup)
    join_lookup_find(*access, *++conjuncts, lookup);
  return true;
}

}  // namespace

bool plan_query(EvalContext &context, Node *condition, Planning planning, Plan *plan) {
  *plan = {};
  const bool planned = planning != Planning::none && context.tables != nullptr;
  Candidates candidates{};
  const Choice choice = planned ? choose(context.tables, condition, &candidates) : Choice{};
  if (!set_up(choice, candidates.signs, &plan->guaranteed) ||
      !conjuncts_split(context, condition, &plan->conjuncts))
    return false;
  if (planned && !find_lookups(context, *plan)) return false;
  if (planned && planning == Planning::shown && env_on(Env::query_plan))
    plan_print(context.tables, choice.rowid, choice.indexed, plan->lookups);
  return true;
}

}  // namespace tovik
