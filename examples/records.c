/* Loads the time zones of the world into a fresh database and asks it questions, without a line of SQL.
 *
 *   records ZONEINFO DIRECTORY
 *
 * ZONEINFO: where zone.tab and iso3166.tab are (/usr/share/zoneinfo). Only the installed headers are used. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tovik.h"

#define COUNT(array) ((int)(sizeof(array) / sizeof(array)[0]))

static void need(int result, const char *what) {
  if (result >= 0) return;
  fprintf(stderr, "%s failed:\n", what);
  tovik_geterrinfo(NULL, 0);
  exit(1); /* an open transaction leaves no trace */
}

static void create_schema(tovik_db *db) {
  static const tovik_coldef country[] = {{"code", TOVIK_COL_CHAR, 1, 2, 0, 0},
                                         {"name", TOVIK_COL_CHAR, 1, 60, 0, 0}};
  static const tovik_coldef zone[] = {{"name", TOVIK_COL_CHAR, 1, 40, 0, 0},
                                      {"country", TOVIK_COL_CHAR, 1, 2, 0, 0},
                                      {"latitude", TOVIK_COL_DOUBLE, 1, 0, 0, 0},
                                      {"remark", TOVIK_COL_TEXT, 0, 0, 40, 0}};
  need(tovik_createtbl(db, "country", country, COUNT(country)), "create table");
  need(tovik_createtbl(db, "zone", zone, COUNT(zone)), "create table");
  need(tovik_createidx(db, "country_code", (const char *[]){"code"}, 1, "country", 1, 0), "create index");
  need(tovik_createidx(db, "zone_name", (const char *[]){"name"}, 1, "zone", 1, 0), "create index");
  need(tovik_createidx(db, "zone_country", (const char *[]){"country"}, 1, "zone", 0, 0), "create index");
  need(tovik_createidx(db, "zone_latitude", (const char *[]){"latitude"}, 1, "zone", 0, 0), "create index");
}

/* The degrees and minutes of "+DDMM..." or "-DDMM...". */
static double latitude_of(const char *text) {
  int degrees = 0, minutes = 0;
  sscanf(text + 1, "%2d%2d", &degrees, &minutes);
  return (*text == '-' ? -1 : 1) * (degrees + minutes / 60.0);
}

static void add_country(tovik_db *db, char **field) {
  tovik_colval row[2];
  tovik_setcol_char(&row[0], "code", field[0]);
  tovik_setcol_char(&row[1], "name", field[1]);
  need(tovik_insert(db, "country", row, 2), field[1]);
}

static void add_zone(tovik_db *db, char **field) {
  tovik_colval row[4];
  tovik_setcol_char(&row[0], "country", field[0]);
  tovik_setcol_double(&row[1], "latitude", latitude_of(field[1]));
  tovik_setcol_char(&row[2], "name", field[2]);
  if (field[3] != NULL) tovik_setcol_char(&row[3], "remark", field[3]); /* else the column stays NULL */
  need(tovik_insert(db, "zone", row, field[3] != NULL ? 4 : 3), field[2]);
}

/* Every line of the file, its fields parted by tabs, in one transaction. */
static void load(tovik_db *db, const char *directory, const char *name, void (*add)(tovik_db *, char **)) {
  char text[1024];
  snprintf(text, sizeof text, "%s/%s", directory, name);
  FILE *file = fopen(text, "r");
  if (file == NULL) exit((perror(text), 1));
  need(tovik_begin(db), "begin");
  while (fgets(text, sizeof text, file) != NULL) {
    char *field[4] = {text, NULL, NULL, NULL};
    text[strcspn(text, "\n")] = 0;
    for (int i = 1; i < 4 && (field[i] = strchr(field[i - 1], '\t')) != NULL; ++i) *field[i]++ = 0;
    if (*text != '#' && field[1] != NULL) add(db, field);
  }
  need(tovik_commit(db), "commit");
  fclose(file);
}

/* Prints the first limit of the zones, with their countries, that meet where; all of them are counted. */
static void print_zones(tovik_db *db, const char *title, const tovik_cond *where, const tovik_order *order,
                        int limit) {
  const char *tables[] = {"zone", "country"};
  tovik_cond joined, all;
  tovik_compcol(&joined, "zone.country", TOVIK_EQ, "country.code");
  tovik_and(&all, where, &joined);
  tovik_cur *cursor = tovik_opencur(db, tables, 2, &all, order);
  if (cursor == NULL) need(-1, title);
  printf("%s\n", title);
  int more, count = 0;
  while ((more = tovik_fetchcur(cursor)) == 1) {
    char name[41], country[61], remark[100] = "(none)";
    double latitude;
    if (++count > limit) continue;
    need(tovik_getcol_char(cursor, "zone.name", name, sizeof name), "name");
    need(tovik_getcol_char(cursor, "country.name", country, sizeof country), "country");
    need(tovik_getcol_double(cursor, "latitude", &latitude), "latitude");
    need(tovik_getcol_char(cursor, "remark", remark, sizeof remark), "remark"); /* 0: NULL */
    printf("  %s, %s, latitude %.2f, remark %s\n", name, country, latitude, remark);
  }
  need(more, "fetch");
  printf("  %d in all\n", count);
  tovik_closecur(cursor);
}

static void ask_and_change(tovik_db *db) {
  tovik_cond where, north, japan, either;
  tovik_order order;
  tovik_comp_char(&where, "zone.name", TOVIK_EQ, "Asia/Tokyo");
  print_zones(db, "by its key", &where, NULL, 1);
  tovik_range_double(&where, "latitude", 60, 1, 90, 1);
  tovik_sort(&order, 2, "latitude", 1, "zone.name", 0);
  print_zones(db, "north of 60 degrees, the northernmost first", &where, &order, 3);

  tovik_colval remark;
  tovik_setcol_char(&remark, "remark", "the only zone");
  tovik_isnull(&where, "remark");
  need(tovik_update(db, "zone", &remark, 1, &where), "update");
  tovik_comp_double(&north, "latitude", TOVIK_GT, 75);
  tovik_comp_char(&japan, "country", TOVIK_EQ, "JP");
  tovik_or(&either, &north, &japan);
  print_zones(db, "north of 75 degrees or in Japan, after an update", &either, &order, 9);

  need(tovik_begin(db), "begin");
  need(tovik_delete(db, "zone", &either), "delete");
  print_zones(db, "the same, deleted", &either, NULL, 9);
  need(tovik_rollback(db), "roll back");
  print_zones(db, "and rolled back", &either, &order, 9);
}

int main(int argc, char **argv) {
  char params[400];
  if (argc != 3) {
    fprintf(stderr, "usage: records ZONEINFO DIRECTORY\n");
    return 2;
  }
  snprintf(params, sizeof params, "PATH=\"%s\";OVERWRITE=true", argv[2]);
  need(tovik_init(NULL), "start");
  need(tovik_create("zones", params), "create");
  tovik_db *db = tovik_open("zones", params);
  if (db == NULL) need(-1, "open");
  create_schema(db);
  load(db, argv[1], "iso3166.tab", add_country);
  load(db, argv[1], "zone.tab", add_zone);
  ask_and_change(db);
  tovik_close(db);
  tovik_end();
  return 0;
}
