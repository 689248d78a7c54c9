// How slots lie in the pages of a row system: the only place that walks the stream over a page chain, grows
// the chain and writes slots. Within the data layer's row system only.
//
// Page of a row system (one block of B bytes)
//   offset  size   field
//   0       4      block number of the previous page, 0 in the first
//   4       4      block number of the next page, 0 in the last
//   8       B - 8  the slot stream; it goes on at offset 8 of the next page
//
// Slot (row size bytes of the stream; it may start in one page and end in another)
//   offset  size   field
//   0       1      flag: 'A' active, 'D' deleted, 0 never used
//   1       4      row number of the value's next piece (variable kinds), or of the next deleted slot
//   1 or 5  rest   data; zero behind the link of a deleted slot
#pragma once

#include "data/row/row_system.h"

namespace tovik {

inline constexpr int row_page_previous = 0;
inline constexpr int row_page_next = 4;
inline constexpr uint32_t row_page_stream = 8;

inline constexpr uint8_t slot_active = 0x41;
inline constexpr uint8_t slot_deleted = 0x44;
inline constexpr uint8_t slot_unused = 0;
inline constexpr int slot_link = 1;
inline constexpr int slot_link_size = 4;

inline uint32_t row_stream_per_page(const RowSystem &rows) {
  return rows.block_size - row_page_stream;
}
inline int slot_data_offset(const RowSystem &rows) {
  return row_kind_variable(rows.kind) ? slot_link + slot_link_size : slot_link;
}
inline int slot_data_size(const RowSystem &rows) {
  return rows.row_size - slot_data_offset(rows);
}

// Every byte of the block has a 32-bit address.
inline bool row_block_addressable(uint32_t block_size, uint32_t block) {
  return block != 0 && (uint64_t{block} + 1) * block_size <= uint64_t{1} << 32;
}
inline bool row_number_plausible(uint32_t block_size, RowNo row) {
  return row_block_addressable(block_size, row / block_size) && row % block_size >= row_page_stream;
}

// A place in the stream, with its page held. offset may equal the block size: the place is then the first
// stream byte of the next page, which is fetched when it is needed.
struct SlotCursor {
  Page page;
  uint32_t offset = 0;
};

inline RowNo slot_number(const RowSystem &rows, const SlotCursor &at) {
  return static_cast<uint32_t>(at.page.block()) * rows.block_size + at.offset;
}
inline uint8_t slot_flag(const SlotCursor &at) {
  return at.page.data()[at.offset];
}

// Puts the cursor on row's flag; a page that is held already is kept. 30009.
[[nodiscard]] bool slot_seek(RowSystem &rows, RowNo row, SlotCursor &at);

// Moves count bytes along the stream, copying them unless buffer is null. 30007, 30009.
[[nodiscard]] bool slot_read(RowSystem &rows, SlotCursor &at, void *buffer, int count);

// Fetches the next page if the cursor stands at the end of its page. 30007, 30009.
[[nodiscard]] bool slot_enter_page(RowSystem &rows, SlotCursor &at);

// Moves over the flag and reads the link behind it; a link that cannot be a row number is 30015.
[[nodiscard]] bool slot_read_link(RowSystem &rows, SlotCursor &at, RowNo *link);

// What a slot holds from its flag on; the rest of the slot is zero.
struct SlotImage {
  uint8_t header[slot_link + slot_link_size];
  int header_size;
  const void *data;
  int length;
};
SlotImage slot_image(uint8_t flag, const void *data, int length);
SlotImage slot_image_linked(uint8_t flag, RowNo link, const void *data, int length);

// Writes the whole slot on whose flag the cursor stands and lets its pages go. next (optional): the position
// behind the slot. The first two pages of a slot are changed only when every page was reached, the flag last,
// so that only a slot of more than two pages can be left half written; if it held a row, that tears the
// level. 30004, 30007, 30009.
[[nodiscard]] bool slot_store(RowSystem &rows, SlotCursor &at, const SlotImage &image, RowNo *next);

// Makes the chain long enough for count more slots at the new offset and the position behind them. A failure
// takes the pages added by this call away again. 30004, 30007, 30009, 121001.
[[nodiscard]] bool row_reserve(RowSystem &rows, int level, int64_t count);

}  // namespace tovik
