// Values of text and blob columns: an 8-byte reference and the first p2 bytes in the record, the rest as one
// variable row (a chain of chunks) in the column's own ROW system.
//
// The tail of a new value always becomes a new chunk row, and the tail of the value that it replaces is freed
// only after everything else of the row is written (large_free): until then the row can be put back as it
// was.
#pragma once

#include "data/table/row_handle.h"

namespace tovik {

// Copies bytes into the column's buffer. 144001 for no bytes.
[[nodiscard]] bool large_set(RowHandle &handle, const Column &column, const void *bytes, int32_t length);

// Before a record is written: the value or NULL that was set goes into the handle's record and into a new
// chunk row. 44009, of a row that is stored already 44010.
[[nodiscard]] bool large_store(RowHandle &handle, const Column &column);

// Frees the chunk row, if any, of the value in record. 44008.
[[nodiscard]] bool large_free(RowHandle &handle, const Column &column, const uint8_t *record);

// For a stored value that was copied as it is into another table, whose column keeps its chunks in to: copies
// the chunk row that it refers to from the one ROW system to the other, through buffer, and makes it refer to
// the copy. 44001, 44007, 44009, 1.
[[nodiscard]] bool large_tail_copy(const Column &column, RowSystem &from, RowSystem &to, uint8_t *value,
                                   LargeBuffer &buffer);

// Reads the stored value into the column's buffer, unless this row's value is there already. 44001, 44007, 1;
// 44003 when the row was written since it was read, and the value with it.
Stored large_get(RowHandle &handle, const Column &column);

}  // namespace tovik
