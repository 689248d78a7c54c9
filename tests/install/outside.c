/* A program of somebody else's, written in what C and C++ have in common: makes a database in the directory
 * given, writes two rows and reads one back. */
#include <kld_api.h>
#include <stdio.h>
#include <string.h>
#include <tovik.h>

static int failed(const char *step) {
  kld_api_print_error(step);
  return 1;
}

static int use(kld_stmt *stmt) {
  char name[21];
  int32_t length, not_null;
  if (kld_api_exec_sql_char(stmt, "CREATE TABLE fruit (id int NOT NULL, name char(20))") != 0 ||
      kld_api_exec_sql_char(stmt, "INSERT INTO fruit VALUES 1, 'apple', 2, 'melon'") != 0)
    return failed("write");
  if (kld_api_pre_stmt_char(stmt, "SELECT name FROM fruit WHERE id = 2") != 0 ||
      kld_api_exec_stmt(stmt) != 0 || kld_api_fetch_stmt(stmt) != 1 ||
      kld_api_get_data(stmt, 1, TOVIK_CHAR, name, sizeof name, &length, &not_null) != 0)
    return failed("read");
  printf("%s, %d rows left\n", name, kld_api_fetch_stmt(stmt));
  return strcmp(name, "melon") == 0 && length == 5 && not_null == 1 ? 0 : 1;
}

int main(int argc, char **argv) {
  char where[512];
  kld_db *db;
  kld_stmt *stmt;
  int result;
  if (argc != 2 || sizeof(DateTimeRec) != 12) return 2;
  snprintf(where, sizeof where, "NAME=outside;PATH=\"%s\";OVERWRITE=true", argv[1]);
  if (tovik_init("") != 0 || kld_api_create_db(where) != 0) return failed("create");
  db = kld_api_open_db(where);
  stmt = kld_api_create_stmt(db);
  result = db == NULL || stmt == NULL ? failed("open") : use(stmt);
  kld_api_destroy_stmt(stmt);
  kld_api_close_db(db);
  tovik_end();
  return result;
}
