// Finding a column of a cursor by the name that the caller gives. Names that were found before are known by
// their hash and place, so that reading a column costs the same whether a row has ten of them or two hundred.
// A known place is looked at again each time: it stands for a name only while it bears it.
#pragma once

#include "frame/memory_pool.h"

namespace tovik {

struct RecordCursor;
struct ColumnRef;
struct ResultColumn;

enum class NameForm : uint8_t { none, column, qualified, label, expression };

// A table cursor: the number of the table in its chain and that of the column in the table. An SQL cursor:
// the number of the result column.
struct KnownName {
  uint32_t hash;
  NameForm form;  // none: free
  uint8_t table;
  uint16_t column;
};

struct KnownNames {
  KnownName *entries;  // none: nothing is remembered
  uint32_t mask;
};

// Room for the names of count columns. 110002.
[[nodiscard]] bool names_reserve(MemoryPool &pool, int count, KnownNames *names);

// The column among the cursor's tables. 150008.
[[nodiscard]] bool cursor_table_column(RecordCursor &cursor, const char *name, ColumnRef *found);

// The result column of a DISTINCT cursor, by the table column that it is, or of an SQL cursor, by its name or
// alias. Null with 150008, 202140.
const ResultColumn *cursor_result_column(RecordCursor &cursor, const char *name);

}  // namespace tovik
