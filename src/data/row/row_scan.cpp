// Forward scans. A step inside a page costs a flag check and one copy; the next page is fetched when a slot
// ends at or crosses the page's end, so that a whole scan fetches each page once.
#include "data/row/data_systems.h"
#include "data/row/row_slots.h"
#include "frame/error.h"

namespace tovik {

namespace {

Found scan_failed(RowScan &scan) {
  row_scan_pause(scan);
  return Found::failed;
}

// Pages may have left the chain since the place was found, and others may have taken theirs: the place is the
// same byte of the stream, wherever that lies now. no: behind the last slot.
Found scan_relocate(RowScan &scan) {
  RowSystem &rows = *scan.rows;
  const uint64_t passed =
      uint64_t{scan.pages_passed} * row_stream_per_page(rows) + scan.offset - row_page_stream;
  if (passed / static_cast<uint64_t>(rows.row_size) >= scan.counters->total_count) return Found::no;
  SlotCursor at;
  bool found = slot_seek(rows, scan.counters->page_top * rows.block_size + row_page_stream, at);
  for (uint32_t page = 0; found && page < scan.pages_passed; ++page) {
    at.offset = rows.block_size;
    found = slot_enter_page(rows, at);
  }
  if (!found) return Found::failed;
  scan.block = at.page.block();
  return Found::yes;
}

// Takes the page of the place again; no when there is no slot at it.
Found scan_resume(RowScan &scan) {
  RowSystem &rows = *scan.rows;
  scan.counters = &rows.counters[row_touch(rows)];
  if (const uint64_t cuts = data_systems(*rows.sm).chain_cuts; scan.cuts != cuts) {
    const Found relocated = scan_relocate(scan);
    if (relocated != Found::yes) return relocated;
    scan.cuts = cuts;
  }
  if (static_cast<uint32_t>(scan.block) * rows.block_size + scan.offset == scan.counters->new_offset)
    return Found::no;
  if (sm_page_get(*rows.sm, scan.block, scan.page)) return Found::yes;
  return fail_found(status::row_page_fetch);
}

// Copies from a slot that reaches its page's end and moves on to the slot behind it.
bool scan_across(RowScan &scan, bool active, void *buffer, int length) {
  RowSystem &rows = *scan.rows;
  const int skip = slot_data_offset(rows);
  SlotCursor at{std::move(scan.page), scan.offset};
  const uint32_t per_page = row_stream_per_page(rows);
  const uint32_t end = scan.offset - row_page_stream + static_cast<uint32_t>(rows.row_size);
  scan.pages_passed += end / per_page;
  if (scan.pages_passed >= scan.counters->page_count) return fail(status::row_next_page);
  if (!slot_read(rows, at, nullptr, skip) || !slot_read(rows, at, active ? buffer : nullptr, length) ||
      !slot_read(rows, at, nullptr, rows.row_size - skip - length) || !slot_enter_page(rows, at))
    return false;
  scan.page = std::move(at.page);
  scan.block = scan.page.block();
  scan.offset = at.offset;
  if (scan.learns) row_directory_passes(rows, scan.pages_passed, scan.block);
  return true;
}

}  // namespace

void row_scan_start(RowScan &scan, RowSystem &rows) {
  row_scan_pause(scan);
  scan.rows = &rows;
  scan.block = static_cast<BlockNo>(row_counters(rows).page_top);
  scan.offset = row_page_stream;
  scan.pages_passed = 0;
  scan.cuts = data_systems(*rows.sm).chain_cuts;
  scan.learns = row_directory_expects(rows);
}

Found row_scan_next(RowScan &scan, void *buffer, int length, RowNo *row) {
  RowSystem &rows = *scan.rows;
  if (length < 0 || length > slot_data_size(rows)) {
    err_set(status::row_length);
    return scan_failed(scan);
  }
  if (!scan.page.held()) {
    const Found resumed = scan_resume(scan);
    if (resumed != Found::yes) return resumed;
  }
  for (;;) {
    const RowNo number = static_cast<uint32_t>(scan.block) * rows.block_size + scan.offset;
    if (number == scan.counters->new_offset) {
      row_scan_pause(scan);
      return Found::no;
    }
    const uint8_t *slot = scan.page.data() + scan.offset;
    const uint8_t flag = slot[0];
    if (flag != slot_active && flag != slot_deleted) {
      err_set(status::row_flag);
      return scan_failed(scan);
    }
    const bool active = flag == slot_active;
    if (scan.offset + static_cast<uint32_t>(rows.row_size) < rows.block_size) {
      if (active && length > 0) memcpy(buffer, slot + slot_data_offset(rows), static_cast<size_t>(length));
      scan.offset += static_cast<uint32_t>(rows.row_size);
    } else if (!scan_across(scan, active, buffer, length)) {
      return scan_failed(scan);
    }
    if (!active) continue;
    *row = number;
    return Found::yes;
  }
}

void row_scan_pause(RowScan &scan) {
  scan.page = Page();
  scan.counters = nullptr;
}

}  // namespace tovik
