// Looking a candidate up in its index: the rows for which its condition is true, as the access path of its
// table.
#pragma once

#include "sql/query/plan_candidates.h"

namespace tovik {

// candidate: has an index. Puts the candidate's access on the row of a unique key, or on a list of rows,
// which the access owns: in the order of the keys, those of IN in the order of their positions. Statuses of
// literal conversion and index search; 1. After a failure the access may own a list, and is to be closed.
[[nodiscard]] bool plan_lookup(const Candidate &candidate);

}  // namespace tovik
