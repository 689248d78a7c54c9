// A number with a sign is no literal at first. Only when no candidate is usable the walk is repeated with
// such numbers taken as literals, and the rows then come in the order of a scan.
#include "sql/query/planner.h"

#include "frame/env.h"
#include "sql/query/plan_lookup.h"
#include "sql/query/plan_print.h"

namespace tovik {

namespace {

const Candidate *first_usable(const Candidates &candidates) {
  for (int i = 0; i < candidates.count; ++i) {
    const Candidate &candidate = candidates.found[i];
    if (!candidate.merged && candidate.index != nullptr) return &candidate;
  }
  return nullptr;
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
    const Candidate *usable = first_usable(*candidates);
    if (usable != nullptr) return {nullptr, usable};
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

}  // namespace

bool plan_query(TableAccess *tables, Node *condition, Planning planning, Guaranteed *guaranteed) {
  *guaranteed = {};
  if (planning == Planning::none) return true;
  Candidates candidates{};
  const Choice choice = choose(tables, condition, &candidates);
  if (choice.rowid != nullptr) {
    set_up_rowid(*choice.rowid);
    replace(*choice.rowid->condition, guaranteed);
  } else if (choice.indexed != nullptr) {
    if (!set_up_index(*choice.indexed, candidates.signs)) return false;
    replace(*choice.indexed->condition, guaranteed);
  }
  if (planning == Planning::shown && env_on(Env::query_plan))
    plan_print(tables, choice.rowid, choice.indexed);
  return true;
}

}  // namespace tovik
