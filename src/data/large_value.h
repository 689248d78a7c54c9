// Values of text and blob columns: an 8-byte reference and the first p2 bytes in the record, the rest as one
// variable row (a chain of chunks) in the column's own ROW system.
#pragma once

#include "data/row_handle.h"

namespace tovik {

// Copies bytes into the column's buffer. 144001 for no bytes.
[[nodiscard]] bool large_set(RowHandle &handle, const Column &column, const void *bytes, int32_t length);

// Before a new record is written: the buffered value, or NULL, into the record and a new chunk row. 44009.
[[nodiscard]] bool large_insert(RowHandle &handle, const Column &column);

// For a row that is updated: replaces the stored value by the buffered one or NULL, or keeps it. 44008,
// 44010.
[[nodiscard]] bool large_update(RowHandle &handle, const Column &column);

[[nodiscard]] bool large_delete(RowHandle &handle, const Column &column);  // frees the chunk row. 44008

// Reads the stored value into the column's buffer, unless this row's value is there already. 44001, 44007, 1.
Stored large_get(RowHandle &handle, const Column &column);

}  // namespace tovik
