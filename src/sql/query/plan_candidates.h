// What of a condition an access path could take over, found in one walk of it. The candidates point into the
// condition and into the tables' definitions and own nothing; collecting changes neither, has no status, and
// allocates nothing.
#pragma once

#include "data/index/btree.h"
#include "sql/evaluate/access.h"
#include "sql/query/plan_literal.h"

namespace tovik {

inline constexpr int candidate_limit = 16;  // the later ones are ignored
inline constexpr int candidate_index_limit = 8;

// One comparison with a literal or with a column of a query around, or a list of literals (IN); two
// equalities with the parts of one index (AND); the two bounds of a BETWEEN.
enum class CandidateKind { comparison, pair, range };

struct IndexUse {
  Btree *index;
  int position;  // of the column among the index's keys, from 1
};

struct Candidate {
  CandidateKind kind;
  bool merged;      // into the candidate before it, which stands for both
  Node *condition;  // what the rows of the index make true
  TableAccess *access;
  KeyLiteral key;     // of IN only the column; range: the lower bound
  KeyLiteral second;  // pair: the other column; range: the upper bound; comparison: the bound on its other
                      // side that another candidate gives, without a column when none does
  Bound lower, upper;
  Btree *index;                             // the one to look in; null: none gives the rows
  IndexUse indices[candidate_index_limit];  // of the table, with the column among their keys
  int index_count;
};

// A comparison with a row's number.
struct RowidCandidate {
  Node *condition;
  TableAccess *access;
  RowNo row;  // 0: no row has that number
};

// How the walk ended: after the whole condition; at a row's number, better than any index; at an OR or NOT,
// under which no part of the condition holds for all the rows that are wanted.
enum class WalkEnd { whole, rowid, given_up };

struct Candidates {
  TableAccess *tables;
  Signs signs;
  WalkEnd end;
  RowidCandidate rowid;              // end rowid
  Candidate found[candidate_limit];  // in the order of the condition
  int count;
};

// Is the condition of the candidate one of < <= > >=, and does it bound the rows from above?
bool candidate_is_bound(const Candidate &candidate);
bool candidate_is_upper(const Candidate &candidate);
Bound candidate_bound(const Candidate &candidate);  // exclusive or inclusive

// condition: checked, or null; tables: the chain whose columns it compares. Whatever candidates held is
// replaced.
void candidates_collect(TableAccess *tables, Node *condition, Signs signs, Candidates *candidates);

}  // namespace tovik
