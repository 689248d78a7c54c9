// The execution dispatcher: runs a parsed statement by its kind, inside the transaction or read hold that the
// kind asks for, and ends what it began.
#pragma once

#include "sql/statement/statement.h"

namespace tovik {

// statement.root is set. An automatic transaction is rolled back when the statement fails and committed when
// it succeeds; an explicit one stays open. 70012, 140003 and the executor's status.
[[nodiscard]] bool dispatch(Statement &statement);

}  // namespace tovik
