// How table definitions are made, copied, put on the database's list and taken off it: what the catalog needs
// beyond opening and closing.
//
// A definition on the list never changes in anything but its counts and levels. A schema change copies it,
// changes the copy and lets the copy take its place (tables_replace).
#pragma once

#include "data/table/catalog_records.h"

namespace tovik {

// An empty definition with room for column_count columns, held once and on no list; null with 1.
Table *definition_new(Catalog &catalog, RowNo id, const char *name, int column_count);

// With holds of its own on everything that the original has open; null on failure.
Table *definition_copy(const Table &table);

// Closes what it has open. It is on no list and nobody holds it.
void definition_free(Table *table);

// Numbers, offsets, sizes and large ordinals of the columns, and the record size, by the types and parameters
// of the columns.
void definition_lay_out(Table &table);

// Room for the handles of the large columns' ROW systems, all null; false with 1.
[[nodiscard]] bool definition_size_large(Table &table);

// The definition of table id from the catalog in the calling thread's view; null with 41009 to 41013.
Table *definition_read(Catalog &catalog, RowNo id, const char *name);

// For the calling thread made takes the place of old; either may be null. Both stay held by the caller; a
// rollback of the open level brings old back.
void tables_replace(Catalog &catalog, Table *old, Table *made);

}  // namespace tovik
