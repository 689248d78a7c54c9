// The modes of kld_cmd_exec.
#include "api/command_loop.h"
#include "api/library.h"
#include "data/database.h"
#include "frame/error.h"
#include "kld_api.h"
#include "sql/statement/statement.h"

using namespace tovik;

namespace {

constexpr int version_major = 4, version_minor = 0, version_revision = 12;

int failed_step(const char *title) {
  err_format(nullptr, 0, title);
  return -1;
}

int create(const char *params) {
  Database *db = db_create(params);
  if (db == nullptr) return failed_step("kld_db_create");
  db_close(db);
  return 0;
}

[[nodiscard]] bool run_text(Statement &statement, const char *sql) {
  if (sql == nullptr) return fail(status::api_argument);
  return sql_execute_text(statement, sql) != SqlResult::failed;
}

[[nodiscard]] bool run_loop(Statement &statement, FILE *in, Prompts prompts) {
  if (in == nullptr) return fail(status::api_argument);
  return command_loop(statement, in, prompts);
}

int run_on(Statement &statement, FILE *in, int mode, const char *sql) {
  if (mode == KLD_CMD_STATEMENT) return run_text(statement, sql) ? 0 : failed_step("kld_sql_call");
  return run_loop(statement, in, mode == KLD_CMD_INTERACTIVE ? Prompts::shown : Prompts::hidden)
             ? 0
             : failed_step("cmd_intr_sql");
}

int with_database(FILE *in, int mode, const char *params, const char *sql) {
  Database *db = db_open(params);
  if (db == nullptr) return failed_step("kld_db_open");
  int result = -1;
  if (Statement *statement = sql_create(db); statement != nullptr) {
    result = run_on(*statement, in, mode, sql);
    sql_destroy(statement);
  } else {
    failed_step("kld_sql_init");
  }
  db_close(db);
  return result;
}

}  // namespace

int kld_cmd_exec(FILE *in, int mode, const char *params, const char *sql) {
  err_clear();
  if (library_left_by_fork() && mode != KLD_CMD_VERSION) {
    err_set(status::api_not_initialised);
    return mode == KLD_CMD_EXISTS ? 0 : failed_step(nullptr);
  }
  switch (mode) {
    case KLD_CMD_CREATE:
      return create(params);
    case KLD_CMD_REMOVE:
      return db_remove(params) ? 0 : failed_step("kld_db_remove");
    case KLD_CMD_STATEMENT:
    case KLD_CMD_SCRIPT:
    case KLD_CMD_INTERACTIVE:
      return with_database(in, mode, params, sql);
    case KLD_CMD_VERSION:
      system_driver.print("Tovik version %d.%d.%d%s", version_major, version_minor, version_revision, "\n");
      return 0;
    case KLD_CMD_EXISTS: {
      const int exists = db_exists(params) ? 1 : 0;
      err_clear();
      return exists;
    }
    default:
      err_set(status::command_utility);
      return failed_step(nullptr);
  }
}
