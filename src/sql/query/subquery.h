// Subqueries: queries inside the conditions of a statement, nested to any depth. Each has its own tables and
// its own scope, and belongs to the scope of the query around it. What does not depend on the row of that
// query is run once and kept: the values, each once and in order, in an area of HVI_TMP_BUF_SIZE bytes. When
// they do not fit there, or depend on the row, the query runs for each test, up to the row that settles it.
// Rows that are written while the statement is under way show in what runs after that, not in what was kept.
#pragma once

#include "sql/evaluate/evaluator.h"

namespace tovik {

// Of a statement's own query, or of one inside outer, before its tables are known.
QueryScope scope_of(Catalog &catalog, QueryScope *outer);

// The query of the scope runs again, on other rows of the queries around it.
void subqueries_forget(QueryScope &scope);
void subqueries_release(
    QueryScope *scope);  // tables and kept results; the records themselves live in the pool
using SubqueriesHold = Held<QueryScope, subqueries_release>;

// A table of one of them is not the one that the calling thread would find by its name.
bool subqueries_outdated(const QueryScope &scope);
// One of them reads the table.
bool subqueries_read(const QueryScope &scope, const Table &table);

}  // namespace tovik
