// The executors of the statement kinds, called by the dispatcher with the statement's root set. Each records
// its failure and gives false; transactions and read holds are the dispatcher's.
#pragma once

#include "sql/statement/statement.h"

namespace tovik {

// Schema statements (schema.cpp)
[[nodiscard]] bool exec_create_table(Statement &statement);
[[nodiscard]] bool exec_create_index(Statement &statement);
[[nodiscard]] bool exec_drop_table(Statement &statement);
[[nodiscard]] bool exec_drop_index(Statement &statement);
[[nodiscard]] bool exec_empty(Statement &statement);
[[nodiscard]] bool exec_rename_table(Statement &statement);
[[nodiscard]] bool exec_rename_attr(Statement &statement);

// ALTER TABLE (alter.cpp)
[[nodiscard]] bool exec_alter(Statement &statement);

// Data change statements (change.cpp)
[[nodiscard]] bool exec_insert(Statement &statement);
[[nodiscard]] bool exec_update(Statement &statement);
[[nodiscard]] bool exec_delete(Statement &statement);

// Utility statements (describe.cpp, info.cpp)
[[nodiscard]] bool exec_describe_db(Statement &statement);
[[nodiscard]] bool exec_describe_table(Statement &statement);
[[nodiscard]] bool exec_info(Statement &statement);

}  // namespace tovik
