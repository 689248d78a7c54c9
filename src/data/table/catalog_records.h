// The catalog's records as they lie in the data file. Offsets stand in catalog_records.cpp under their
// tables; a record read back is checked before it is believed.
#pragma once

#include "data/table/table.h"

namespace tovik {

inline constexpr int table_record_size = 56;
inline constexpr int column_record_size = 60;
inline constexpr int index_list_size = 4 * index_limit;
inline constexpr int index_name_value_size = 36;

void table_record_encode(const TableRecord &record, uint8_t *at);
[[nodiscard]] bool table_record_decode(const uint8_t *at,
                                       TableRecord *record);  // false: damaged; records nothing

void column_record_encode(RowNo table_id, const Column &column, uint8_t *at);
// Column number (from 1) of a table. False when the record is damaged or belongs to another table or column;
// records nothing.
[[nodiscard]] bool column_record_decode(const uint8_t *at, RowNo table_id, int number, int record_size,
                                        Column *column);

// A name as it is stored and as it is a key of the name indices: NUL-filled to name_size bytes. The name is
// shorter than that.
void name_encode(const char *name, char *field);

struct NameKey {
  explicit NameKey(const char *name) { name_encode(name, reinterpret_cast<char *>(bytes)); }
  operator const uint8_t *() const { return bytes; }
  uint8_t bytes[name_size];
};

}  // namespace tovik
