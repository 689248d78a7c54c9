// The plan of a query as HVI_QUERY_PLAN shows it, printed through the system driver.
#pragma once

#include "sql/query/plan_candidates.h"

namespace tovik {

// What was chosen, the other null; both null: every table is scanned.
void plan_print(const TableAccess *tables, const RowidCandidate *rowid, const Candidate *indexed);

}  // namespace tovik
