// The catalog: creates, drops, renames and empties tables, creates and drops indices, and writes the records
// that describe them. Validation leaves everything untouched; the enclosing transaction undoes a failure
// after it.
#pragma once

#include "data/table/table.h"

namespace tovik {

inline constexpr int index_master_default = 2;  // of an index that may hold a key twice

struct ColumnDefinition : ColumnType {
  char name[name_size];
  bool not_null;
  bool auto_increment;
};

struct AutoIncrementOptions {
  int64_t init;
  int32_t step;
  int64_t next;
};

// Statuses of table_create and its validation: 141001 to 141009, 142001 to 142009, 41002 to 41007. The result
// is held.
Table *table_create(Catalog &catalog, const char *name, const ColumnDefinition *columns, int column_count,
                    const AutoIncrementOptions &options);
[[nodiscard]] bool table_drop(Catalog &catalog, const char *name);  // 141004, 41014 to 41018
[[nodiscard]] bool table_rename(Catalog &catalog, const char *name,
                                const char *new_name);  // 141001, 141003, 41014 ...
[[nodiscard]] bool table_empty(Catalog &catalog, const char *name);
// Gives a table other columns: all rows are copied, through an empty temporary database, and each of columns
// takes the values of the table's column of exactly that name. A new column is NULL in the rows that there
// are, or numbers them when it is the auto-increment column. Indices and counter are kept; the index that
// came with an auto-increment column goes with it. Only for the inside of a transaction whose innermost level
// is rolled back on failure. 141004 to 141009, 142001 to 142008; 143002 for a new NOT NULL column in a table
// with rows, 145004 for an index on a column that is no more.
[[nodiscard]] bool table_rebuild(Catalog &catalog, Catalog &temporary, const char *name,
                                 const ColumnDefinition *columns, int column_count);
[[nodiscard]] bool column_rename(Catalog &catalog, const char *table, const char *name,
                                 const char *new_name);  // 142006, 142003

struct IndexDefinition {
  char name[name_size];
  bool unique;
  bool timeseries;
  int master_count;
  int column_count;
  char columns[btree_part_limit][name_size];
};

// 145001 to 145011, 45003 to 45006, 45014 to 45017, 143001; index names at most 31 bytes (172013).
[[nodiscard]] bool index_create(Catalog &catalog, const char *table, const IndexDefinition &definition);
[[nodiscard]] bool index_drop(Catalog &catalog, const char *name);  // 145006, 145012, 45011 to 45013

// The key of a record (record_size bytes) in an index of its table: key_size bytes at key.
void index_key(const Table &table, const Btree &index, const uint8_t *record, uint8_t *key);

}  // namespace tovik
