// The scope of a query: its tables, and the queries around it. A name that the tables of a query do not have
// is looked up in the query around it, and so on outward. Running a query that stands in a condition is the
// work of the layer above, which gives its operations with the scope; checking and evaluating conditions ask
// for them.
#pragma once

#include "data/table/catalog.h"
#include "sql/evaluate/access.h"
#include "sql/parse/tree.h"

namespace tovik {

struct EvalContext;
enum class Truth : int { unknown = -1, no = 0, yes = 1 };

// What the condition around a subquery wants of it: its only value, one of its values, or a row.
enum class SubqueryUse { value, list, existence };

// A subquery as the check pass finds it.
struct SubqueryPlace {
  const Node &query;
  SubqueryUse use;
  int levels;  // of expressions around it
};

struct SubqueryOps {
  // Check pass: prepares the query in the context's scope, which owns it from then on, and tells in *column
  // what its values are like. Null on failure: the statuses of preparing a query; 172008 unless it has one
  // column, where its values are wanted.
  Subquery *(*prepare)(EvalContext &context, const SubqueryPlace &place, Value *column);
  // Evaluation pass: how tested compares with its only value (unknown without a row; 172008 with several) or
  // with at least one of its values, or whether it has a row (both ignored). The statuses of a query.
  bool (*test)(EvalContext &context, Subquery &subquery, uint16_t comparison, const Value *tested,
               Truth *truth);
};

struct QueryScope {
  const SubqueryOps *ops;  // null: no subqueries here
  Catalog *catalog;
  TableAccess *tables;
  QueryScope *outer;     // of the query around this one; null: the statement's own
  int nesting;           // queries around it
  int nearest;           // nesting of the nearest of them on whose row the result depends, -1 without one
  int levels;            // of expressions around it
  Subquery *subqueries;  // in its conditions and items
};

}  // namespace tovik
