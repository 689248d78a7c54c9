// Table definitions: the in-memory description of an open table, held on its database's list and shared by
// all who have it open. The records of the catalog are catalog_records.h.
//
// Inside an open transaction a schema change never edits a definition that others may read: it makes a new
// one that only the transaction's owner sees (HandleState), and hides the old one from the owner. The end of
// the transaction keeps one of the two.
#pragma once

#include "data/index/btree.h"
#include "data/row/row_system.h"
#include "platform/held.h"

namespace tovik {

struct RowHandle;
struct Table;

inline constexpr int name_limit = 20;        // bytes of a table or column name
inline constexpr int name_size = 32;         // stored field
inline constexpr int column_limit = 200;     // per table
inline constexpr int table_limit = 128;      // per database
inline constexpr int index_limit = 16;       // per table
inline constexpr int record_size_least = 4;  // bytes of a record, however few its columns take
inline constexpr int16_t rowid_column_number = -1;
inline constexpr int spare_handle_limit = 2;  // an UPDATE uses two at a time

struct Column : ColumnType {
  int16_t number;  // from 1; -1 for rowid
  bool not_null;
  bool auto_increment;
  int32_t offset;         // of the stored value in the record
  int32_t stored_size;    // bytes in the record
  int32_t large_ordinal;  // from 1 among the large columns; 0 for others
  RowNo overflow_rows;    // ROW system of the chunks, large columns only
  char name[name_size];
};

inline bool column_is_rowid(const Column &column) {
  return column.number == rowid_column_number;
}
inline bool column_is_large(const Column &column) {
  return (column.type & TYPE_LARGE) != 0;
}

// On what the tables of a database stand, and the list of the open definitions.
struct Catalog {
  StorageManager *storage;
  RowSystem *table_rows, *column_rows, *index_rows;  // the management ROWs
  Btree *table_names, *index_names;
  Lock *tables_lock;  // guards the list
  Table *tables;
};

// What the catalog records of a table (layout: catalog_records.cpp).
struct TableRecord {
  RowNo rows_number, columns_row, index_list_row;
  int32_t record_size;
  int32_t column_count, index_count, large_count;
  int32_t auto_column;  // number of the auto-increment column, 0 = none
  char name[name_size];
};

struct Table : TableRecord {
  Catalog *catalog;
  RowNo id;         // row number of the table record
  Column *columns;  // column_count of them
  Column rowid;
  RowSystem *rows;
  RowSystem **large_rows;  // large_count of them, by ordinal
  Btree *indices[index_limit];
  RowHandle *spare_handles[spare_handle_limit];  // closed, for those who open one next
  HandleState state;  // gone: no longer on the list, freed when the last user closes it
  Table *next;
};

// The definition of the table of that name as the calling thread sees it, held: table_close gives it back.
// Takes the database's table lock. 41001 without a name, 141004, 41008 to 41013.
Table *table_open(Catalog &catalog, const char *name);
void table_close(Table *table);  // null is ignored

// A spare row handle, or null; and one back, false when there are enough. Take the database's table lock.
RowHandle *table_take_spare(Table &table);
[[nodiscard]] bool table_keep_spare(Table &table, RowHandle *handle);

// Is this the definition that the calling thread would find by the table's name now? One that is not may
// still be read by whoever holds it, but no row may be written through it: its indices may be out of date.
bool table_is_current(const Table &table);

// Gives the hold on a definition back at the end of the scope.
using TableHold = Held<Table, table_close>;

// By exact name, or rowid (any case); null when there is none, nothing recorded.
const Column *table_find_column(const Table &table, const char *name);

// Calls visit for every table name in catalog order (row order of the table records) as the calling thread
// sees it; stops when visit gives false. False when the catalog cannot be read (46xxx).
[[nodiscard]] bool table_walk(Catalog &catalog, bool (*visit)(void *context, const char *name),
                              void *context);

// For the database object: the end of a transaction level, another process's commit (every definition leaves
// the list; those still held are freed when closed), and the close of the database (all are freed).
void tables_level_merged(Catalog &catalog, int level);
void tables_level_dropped(Catalog &catalog, int level);
void tables_forget_all(Catalog &catalog);
void tables_close_all(Catalog &catalog);

}  // namespace tovik
