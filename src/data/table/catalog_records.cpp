// Table record (56 bytes)                          Column record (60 bytes)
//   0   u32  ROW system of the records               0   u32  table id
//   4   u32  row of the column records               4   u32  ROW system of the chunks, 0 for none
//   8   u32  row of the index list, 0 for none       8   i32  ordinal among the large columns, 0 for none
//  12   i32  record size                            12   i32  offset of the value in the record
//  16   u16  columns                                16   u16  column number, from 1
//  18   u16  indices                                18   u16  type code
//  20   u16  large columns                          20   i16  p1
//  22   u16  auto-increment column, 0 for none      22   i16  p2
//  24   32   name, NUL-filled                       24   i16  p3
//                                                   26   u8   NOT NULL
//                                                   27   u8   AUTO_INCREMENT
//                                                   28   32   name, NUL-filled
//
// Index list (64 bytes): 16 x u32 row numbers of the index descriptors in creation order, 0 in unused places.
// Value of the index-name index (36 bytes): u32 row number of the descriptor, 32 bytes zero.
#include "data/table/catalog_records.h"

#include "data/table/column_rules.h"
#include "platform/bytes.h"

namespace tovik {

namespace {

namespace table_at {
constexpr int rows_number = 0, columns_row = 4, index_list_row = 8, record_size = 12, column_count = 16,
              index_count = 18, large_count = 20, auto_column = 22, name = 24;
static_assert(name + name_size == table_record_size);
}  // namespace table_at

namespace column_at {
constexpr int table_id = 0, overflow_rows = 4, large_ordinal = 8, offset = 12, number = 16, type = 18,
              p1 = 20, p2 = 22, p3 = 24, not_null = 26, auto_increment = 27, name = 28;
static_assert(name + name_size == column_record_size);
}  // namespace column_at

bool name_decode(const uint8_t *field, char *name) {
  if (field[0] == 0 || memchr(field, 0, name_limit + 1) == nullptr) return false;
  memset(name, 0, name_size);
  strcpy(name, reinterpret_cast<const char *>(field));
  return true;
}

}  // namespace

void name_encode(const char *name, char *field) {
  assert(strlen(name) < name_size);
  memset(field, 0, name_size);
  memcpy(field, name, strlen(name));
}

void table_record_encode(const TableRecord &record, uint8_t *at) {
  store_u32(at + table_at::rows_number, record.rows_number);
  store_u32(at + table_at::columns_row, record.columns_row);
  store_u32(at + table_at::index_list_row, record.index_list_row);
  store_i32(at + table_at::record_size, record.record_size);
  store_u16(at + table_at::column_count, static_cast<uint16_t>(record.column_count));
  store_u16(at + table_at::index_count, static_cast<uint16_t>(record.index_count));
  store_u16(at + table_at::large_count, static_cast<uint16_t>(record.large_count));
  store_u16(at + table_at::auto_column, static_cast<uint16_t>(record.auto_column));
  name_encode(record.name, reinterpret_cast<char *>(at + table_at::name));
}

bool table_record_decode(const uint8_t *at, TableRecord *record) {
  record->rows_number = load_u32(at + table_at::rows_number);
  record->columns_row = load_u32(at + table_at::columns_row);
  record->index_list_row = load_u32(at + table_at::index_list_row);
  record->record_size = load_i32(at + table_at::record_size);
  record->column_count = load_u16(at + table_at::column_count);
  record->index_count = load_u16(at + table_at::index_count);
  record->large_count = load_u16(at + table_at::large_count);
  record->auto_column = load_u16(at + table_at::auto_column);
  return name_decode(at + table_at::name, record->name) && record->rows_number != 0 &&
         record->columns_row != 0 && record->record_size >= record_size_least && record->column_count >= 1 &&
         record->column_count <= column_limit && record->index_count <= index_limit &&
         (record->index_count == 0 || record->index_list_row != 0) &&
         record->large_count <= record->column_count && record->auto_column <= record->column_count;
}

void column_record_encode(RowNo table_id, const Column &column, uint8_t *at) {
  store_u32(at + column_at::table_id, table_id);
  store_u32(at + column_at::overflow_rows, column.overflow_rows);
  store_i32(at + column_at::large_ordinal, column.large_ordinal);
  store_i32(at + column_at::offset, column.offset);
  store_i16(at + column_at::number, column.number);
  store_u16(at + column_at::type, column.type);
  store_i16(at + column_at::p1, column.p1);
  store_i16(at + column_at::p2, column.p2);
  store_i16(at + column_at::p3, column.p3);
  at[column_at::not_null] = column.not_null;
  at[column_at::auto_increment] = column.auto_increment;
  name_encode(column.name, reinterpret_cast<char *>(at + column_at::name));
}

bool column_record_decode(const uint8_t *at, RowNo table_id, int number, int record_size, Column *column) {
  column->overflow_rows = load_u32(at + column_at::overflow_rows);
  column->large_ordinal = load_i32(at + column_at::large_ordinal);
  column->offset = load_i32(at + column_at::offset);
  column->number = load_i16(at + column_at::number);
  column->type = load_u16(at + column_at::type);
  column->p1 = load_i16(at + column_at::p1);
  column->p2 = load_i16(at + column_at::p2);
  column->p3 = load_i16(at + column_at::p3);
  column->not_null = at[column_at::not_null] != 0;
  column->auto_increment = at[column_at::auto_increment] != 0;
  if (load_u32(at + column_at::table_id) != table_id || column->number != number ||
      !column_type_allowed(column->type) || !name_decode(at + column_at::name, column->name))
    return false;
  const bool large = column_is_large(*column);
  if (large && column->p2 < 1) return false;
  column->stored_size = type_stored_size(*column);
  return column->stored_size >= 1 && column->offset >= 0 && column->offset <= record_size &&
         column->stored_size <= record_size - column->offset && large == (column->large_ordinal != 0) &&
         large == (column->overflow_rows != 0);
}

}  // namespace tovik
