// Invariants
//   1. The position behind the last slot always lies in a page of the chain: a slot that ends with its page
//      is written only when the next page is there. The new offset never names a byte outside the chain.
//   2. Pages behind that of the new offset hold zeros in their stream.
//   3. The page index of the new offset is total x row size / (B - 8): growing the chain needs no walk.
//   4. A page link is followed only to a block whose bytes have 32-bit addresses and whose own previous link
//      leads back; a walk inside a slot is bounded by the row size.
#include "data/row/row_slots.h"

#include <algorithm>

#include "data/row/data_systems.h"
#include "frame/error.h"

namespace tovik {

namespace {

uint8_t *stream_of(const Page &page) {
  return page.data() + row_page_stream;
}

// The page behind page in the chain. next may be page itself.
bool fetch_next_page(RowSystem &rows, const Page &page, Page &next) {
  const uint32_t link = load_u32(page.data() + row_page_next);
  if (!row_block_addressable(rows.block_size, link)) return fail(status::row_next_page);
  Page found;
  if (!sm_page_get(*rows.sm, static_cast<BlockNo>(link), found)) return fail(status::row_page_fetch);
  if (load_u32(found.data() + row_page_previous) != static_cast<uint32_t>(page.block()))
    return fail(status::row_next_page);
  next = std::move(found);
  return true;
}

// The row number of offset in page; at the page's end, the start of the next page's stream.
bool position_at(const RowSystem &rows, const Page &page, uint32_t offset, RowNo *position) {
  uint32_t block = static_cast<uint32_t>(page.block());
  if (offset == rows.block_size) {
    block = load_u32(page.data() + row_page_next);
    if (!row_block_addressable(rows.block_size, block)) return fail(status::row_next_page);
    offset = row_page_stream;
  }
  *position = block * rows.block_size + offset;
  return true;
}

// Bytes [from, from + count) of the slot that image describes.
void copy_image(const SlotImage &image, int from, int count, uint8_t *target) {
  if (from < image.header_size) {
    const int n = std::min(count, image.header_size - from);
    memcpy(target, image.header + from, static_cast<size_t>(n));
    target += n, from += n, count -= n;
  }
  const int data_from = from - image.header_size;
  if (count > 0 && data_from < image.length) {
    const int n = std::min(count, image.length - data_from);
    memcpy(target, static_cast<const uint8_t *>(image.data) + data_from, static_cast<size_t>(n));
    target += n, count -= n;
  }
  if (count > 0) memset(target, 0, static_cast<size_t>(count));
}

// A changed page that cannot be written tears the level.
bool release_changed(RowSystem &rows, Page &page) {
  if (sm_page_release_write(page)) return true;
  data_torn(*rows.sm);
  return fail(status::row_page_write);
}

// The bytes of a slot from done on, which lie in page and those behind it.
bool store_behind(RowSystem &rows, Page page, const SlotImage &image, int done, RowNo *next) {
  const int per_page = static_cast<int>(row_stream_per_page(rows));
  for (;;) {
    const int n = std::min(rows.row_size - done, per_page);
    copy_image(image, done, n, stream_of(page));
    done += n;
    Page following;
    if (done < rows.row_size) {
      if (!fetch_next_page(rows, page, following)) return false;
    } else if (next != nullptr &&
               !position_at(rows, page, row_page_stream + static_cast<uint32_t>(n), next)) {
      return false;
    }
    if (!release_changed(rows, page)) return false;
    if (done == rows.row_size) return true;
    page = std::move(following);
  }
}

bool store_across(RowSystem &rows, SlotCursor &at, const SlotImage &image, RowNo *next) {
  const int per_page = static_cast<int>(row_stream_per_page(rows));
  const int in_first = static_cast<int>(rows.block_size - at.offset);
  const int in_second = std::min(rows.row_size - in_first, per_page);
  const int done = in_first + in_second;
  Page second, third;
  if (!fetch_next_page(rows, at.page, second)) return false;
  if (done < rows.row_size) {
    if (!fetch_next_page(rows, second, third)) return false;
    if (!store_behind(rows, std::move(third), image, done, next)) {
      if (slot_flag(at) == slot_active) data_torn(*rows.sm);  // the row that it held is half gone
      return false;
    }
  } else if (next != nullptr &&
             !position_at(rows, second, row_page_stream + static_cast<uint32_t>(in_second), next)) {
    return false;
  }
  copy_image(image, in_first, in_second, stream_of(second));
  if (!release_changed(rows, second)) return false;
  copy_image(image, 0, in_first, at.page.data() + at.offset);
  return release_changed(rows, at.page);
}

// Deletes a page that was never linked; the failure that led here is recorded already.
bool give_back(Page &page) {
  const ErrorScope keep;
  (void)sm_page_delete(page);
  return false;
}

bool append_page(RowSystem &rows, int level) {
  RowCounters &counters = rows.counters[level];
  Page page, last;
  if (!sm_page_new(*rows.sm, page)) return fail(status::row_page_fetch);
  const uint32_t block = static_cast<uint32_t>(page.block());
  if (!row_block_addressable(rows.block_size, block)) {
    err_set(status::storage_size_limit);
    return give_back(page);
  }
  if (!sm_page_get(*rows.sm, static_cast<BlockNo>(counters.page_last), last)) {
    err_set(status::row_page_fetch);
    return give_back(page);
  }
  if (load_u32(last.data() + row_page_next) != 0) {
    err_set(status::row_next_page);
    return give_back(page);
  }
  store_u32(page.data() + row_page_previous, counters.page_last);
  if (!release_changed(rows, page)) return false;
  store_u32(last.data() + row_page_next, block);
  if (!release_changed(rows, last)) return false;
  counters.page_last = block;
  ++counters.page_count;
  rows.counters_changed[level] = true;
  return true;
}

// Takes the last page, which holds no slot, away from the chain.
bool remove_last_page(RowSystem &rows, int level) {
  RowCounters &counters = rows.counters[level];
  Page last, previous;
  if (!sm_page_get(*rows.sm, static_cast<BlockNo>(counters.page_last), last)) return false;
  const uint32_t link = load_u32(last.data() + row_page_previous);
  if (!row_block_addressable(rows.block_size, link)) return false;
  if (!sm_page_get(*rows.sm, static_cast<BlockNo>(link), previous)) return false;
  store_u32(previous.data() + row_page_next, 0);
  if (!release_changed(rows, previous)) return false;
  counters.page_last = link;
  --counters.page_count;
  return sm_page_delete(last);
}

}  // namespace

bool slot_seek(RowSystem &rows, RowNo row, SlotCursor &at) {
  if (!row_number_plausible(rows.block_size, row)) return fail(status::row_page_fetch);
  const BlockNo block = static_cast<BlockNo>(row / rows.block_size);
  at.offset = row % rows.block_size;
  if (at.page.held()) {
    if (at.page.block() == block) return true;
    at.page = Page();
  }
  return sm_page_get(*rows.sm, block, at.page) || fail(status::row_page_fetch);
}

bool slot_enter_page(RowSystem &rows, SlotCursor &at) {
  if (at.offset < rows.block_size) return true;
  if (!fetch_next_page(rows, at.page, at.page)) return false;
  at.offset = row_page_stream;
  return true;
}

bool slot_read(RowSystem &rows, SlotCursor &at, void *buffer, int count) {
  uint8_t *target = static_cast<uint8_t *>(buffer);
  while (count > 0) {
    if (!slot_enter_page(rows, at)) return false;
    const int n = std::min(count, static_cast<int>(rows.block_size - at.offset));
    if (target != nullptr) {
      memcpy(target, at.page.data() + at.offset, static_cast<size_t>(n));
      target += n;
    }
    at.offset += static_cast<uint32_t>(n);
    count -= n;
  }
  return true;
}

bool slot_read_link(RowSystem &rows, SlotCursor &at, RowNo *link) {
  uint8_t bytes[slot_link + slot_link_size];
  if (!slot_read(rows, at, bytes, sizeof bytes)) return false;
  *link = load_u32(bytes + slot_link);
  return *link == 0 || row_number_plausible(rows.block_size, *link) || fail(status::row_flag);
}

SlotImage slot_image(uint8_t flag, const void *data, int length) {
  return SlotImage{{flag}, slot_link, data, length};
}

SlotImage slot_image_linked(uint8_t flag, RowNo link, const void *data, int length) {
  SlotImage image{{flag}, slot_link + slot_link_size, data, length};
  store_u32(image.header + slot_link, link);
  return image;
}

bool slot_store(RowSystem &rows, SlotCursor &at, const SlotImage &image, RowNo *next) {
  const uint32_t end = at.offset + static_cast<uint32_t>(rows.row_size);
  if (end > rows.block_size) return store_across(rows, at, image, next);
  if (next != nullptr && !position_at(rows, at.page, end, next)) return false;
  copy_image(image, 0, rows.row_size, at.page.data() + at.offset);
  return release_changed(rows, at.page);
}

bool row_reserve(RowSystem &rows, int level, int64_t count) {
  RowCounters &counters = rows.counters[level];
  const int64_t slots = counters.total_count + count;
  const int64_t pages = slots * rows.row_size / row_stream_per_page(rows) + 1;
  const uint32_t before = counters.page_count;
  while (counters.page_count < pages) {
    if (append_page(rows, level)) continue;
    const ErrorScope keep;
    while (counters.page_count > before && remove_last_page(rows, level)) continue;
    return false;
  }
  return true;
}

}  // namespace tovik
