// What AND connects in a condition, each tested as soon as the tables that it names stand on rows: a table
// whose row fails is left before those inside it are read. Conditions are cut only where no part can fail, so
// that no row fails, or is spared a failure, for the order of the tests.
#pragma once

#include "sql/evaluate/evaluator.h"
#include "sql/query/column_test.h"

namespace tovik {

inline constexpr int from_table_limit = 16;

struct Conjunct {
  const Node *condition;
  ColumnTest test;  // of the condition
  bool tests;       // test stands for the condition
  Conjunct *next;   // of the same table
};

struct Conjuncts {
  Conjunct *of_table[from_table_limit];  // FROM order: what the rows of a table settle
};

// condition: checked, and planned; null: nothing to test. The parts live in the context's pool; a condition
// of more than 64 parts, or without room for them, stays whole. 110002 without room for that.
[[nodiscard]] bool conjuncts_split(EvalContext &context, const Node *condition, Conjuncts *conjuncts);

// Are all true? Statuses of evaluation.
[[nodiscard]] bool conjuncts_met(EvalContext &context, const Conjunct *first, bool *met);

}  // namespace tovik
