// DIRECT_FROM: the bytes of a file as a value. A text has to be one of the current character set, without a
// zero byte. As the whole value to be stored, what it is depends on the column (set_value.h); elsewhere it is
// a text from the statement's pool, read by the check pass.
#pragma once

#include "sql/evaluate/expr_internal.h"

namespace tovik {

// The check pass: the node's value holds the text and its label from now on. 102, 104, 110002, 301, 50013.
[[nodiscard]] bool check_file(EvalContext &context, Node *node, Value *result);

// The file that node names, into column of row: its bytes into a blob, its text into any other; NULL when it
// is empty. pool lends what a conversion needs, and holds nothing of the file. 102, 104, 1, 301 and those of
// set_computed.
[[nodiscard]] bool set_file(MemoryPool &pool, const Node &node, RowHandle &row, const Column &column);

}  // namespace tovik
