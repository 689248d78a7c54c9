// The plan of a query as HVI_QUERY_PLAN shows it, printed through the system driver.
#pragma once

#include "sql/query/join_lookup.h"
#include "sql/query/plan_candidates.h"

namespace tovik {

// What was chosen, the other null; both null: every table is scanned. Beyond that, a line for each look-up
// for the rows of other tables; lookups: null, or one for each of the tables.
void plan_print(const TableAccess *tables, const RowidCandidate *rowid, const Candidate *indexed,
                const JoinLookup *lookups);

}  // namespace tovik
