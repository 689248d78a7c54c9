// What CREATE TABLE and ALTER TABLE define alike: columns and table options, read from the statement tree.
#pragma once

#include "data/table/catalog.h"
#include "sql/parse/shapes.h"

namespace tovik {

// Bounded copy of a name into a catalog field; false when it is longer than limit bytes.
[[nodiscard]] bool name_copy(char (&field)[name_size], const char *name, int limit);

// With the defaults of the column's type. 70005, 172004, 172015.
[[nodiscard]] bool column_read(const Node &node, ColumnDefinition &column);

// Options that are not given leave their fields as they are. 172017, 172018.
[[nodiscard]] bool options_read(const Node *items, AutoIncrementOptions &options);

}  // namespace tovik
