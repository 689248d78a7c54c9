// The command loop of the interpreter: reads SQL statements and a few loop commands line by line from a
// stream, runs them on one statement object and keeps a numbered history of the last 32.
#pragma once

#include <cstdio>

#include "sql/statement/statement.h"

namespace tovik {

enum class Prompts { hidden, shown };

// Runs until exit, stop or quit, or the end of the stream. Failures of statements are printed and the loop
// goes on; false only when memory runs out (1).
[[nodiscard]] bool command_loop(Statement &statement, FILE *in, Prompts prompts);

}  // namespace tovik
