// What stands behind the handles of the statement interface. A database owns its statements: closing it
// clears and frees those that are left, and their handles end with it.
#pragma once

#include "api/handle.h"
#include "sql/statement/statement.h"

namespace tovik {

struct StatementDatabase;

struct OpenStatement {
  Statement *statement;         // owned
  StatementDatabase *database;  // whose list it is on
  const void *handle;
  OpenStatement *next;
};

struct StatementDatabase {
  Database *db;               // owned
  OpenStatement *statements;  // changed under the lock of the handles
};

}  // namespace tovik
