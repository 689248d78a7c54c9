// Which pages a row system has, each with its place in the chain: what tells a row number from any other
// number without reading the table.
//
// Invariants
//   1. The directory knows the first pages.size() pages of the committed chain. A chain grows at its end, and
//      its pages leave it all together.
//   2. Pages that the open transaction added are never entered: a rollback takes them away again. They are
//      few and are walked when asked for.
//   3. After another process's commit the chain is the one that was known when it has grown from it: as many
//      pages and slots as before or more, the same first page, the former last page where it was, counted
//      from the end, and the links between some of the known pages. Otherwise everything is forgotten.
//
// Cost: a question about a page that is not known reads the chain on from the last known one until the page
// is met; a scan enters the pages that it passes. 8 bytes of memory per page. The storage manager's lock
// guards the directory.
#include <algorithm>

#include "data/row/row_slots.h"
#include "frame/error.h"

namespace tovik {

namespace {

RowPage *position_of(RowDirectory &directory, BlockNo block) {
  return std::lower_bound(directory.pages.begin(), directory.pages.end(), block,
                          [](const RowPage &page, BlockNo wanted) { return page.block < wanted; });
}

bool enter(RowDirectory &directory, BlockNo block) {
  const int ordinal = directory.pages.size();
  const int at = static_cast<int>(position_of(directory, block) - directory.pages.begin());
  if (at < ordinal && directory.pages[at].block == block)
    return fail(status::row_next_page);  // the chain turns back
  if (!directory.pages.push({block, static_cast<uint32_t>(ordinal)})) return fail(status::out_of_memory);
  std::rotate(directory.pages.begin() + at, directory.pages.end() - 1, directory.pages.end());
  directory.last = block;
  return true;
}

BlockNo link(RowSystem &rows, BlockNo block, int which, bool *read) {
  Page page;
  *read = sm_page_get(*rows.sm, block, page) || fail(status::row_page_fetch);
  return *read ? load_i32(page.data() + which) : 0;
}

bool next_page(RowSystem &rows, BlockNo block, BlockNo *next) {
  bool read;
  *next = link(rows, block, row_page_next, &read);
  return read && (*next != 0 || fail(status::row_next_page));
}

// ---- after another process's commit ----

constexpr int samples = 8;

// The page that many places before the last one is the former last one.
bool grew_from(RowSystem &rows, const RowCounters &former, bool *read) {
  const RowCounters &now = rows.counters[0];
  *read = true;
  if (now.page_top != former.page_top || now.page_count < former.page_count ||
      now.total_count < former.total_count)
    return false;
  BlockNo block = static_cast<BlockNo>(now.page_last);
  for (uint32_t more = now.page_count - former.page_count; *read && more > 0; --more) {
    block = link(rows, block, row_page_previous, read);
    if (!row_block_addressable(rows.block_size, static_cast<uint32_t>(block))) return false;
  }
  return *read && block == static_cast<BlockNo>(former.page_last);
}

bool links_stand(RowSystem &rows, bool *read) {
  RowDirectory &directory = rows.directory;
  const int step = directory.pages.size() / samples + 1;
  for (int at = 0; *read && at < directory.pages.size(); at += step) {
    const RowPage &page = directory.pages[at];
    if (page.block == directory.last) continue;
    const BlockNo next = link(rows, page.block, row_page_next, read);
    const RowPage *following = position_of(directory, next);
    if (following == directory.pages.end() || following->block != next ||
        following->ordinal != page.ordinal + 1)
      return false;
  }
  return *read;
}

// Invariant 3.
bool confirm(RowSystem &rows) {
  RowDirectory &directory = rows.directory;
  if (directory.confirmed) return true;
  bool read = true;
  if (!directory.pages.empty() && (!grew_from(rows, directory.former, &read) || !links_stand(rows, &read)))
    directory.pages.clear();
  directory.confirmed = read;
  return read;
}

// ---- asking ----

const RowPage *find_known(RowDirectory &directory, BlockNo block) {
  const RowPage *found = position_of(directory, block);
  return found != directory.pages.end() && found->block == block ? found : nullptr;
}

// The place of block in the chain, -1 when it is not in it.
bool ordinal_of(RowSystem &rows, const RowCounters &counters, BlockNo block, int64_t *ordinal) {
  RowDirectory &directory = rows.directory;
  const uint32_t committed = rows.counters[0].page_count;
  if (directory.pages.empty() && !enter(directory, static_cast<BlockNo>(counters.page_top))) return false;
  const RowPage *found = find_known(directory, block);
  BlockNo tail = directory.last;
  *ordinal = found != nullptr ? int64_t{found->ordinal} : -1;
  for (uint32_t at = static_cast<uint32_t>(directory.pages.size()); *ordinal < 0 && at < counters.page_count;
       ++at) {
    if (!next_page(rows, tail, &tail)) return false;
    if (at < committed && !enter(directory, tail)) return false;
    if (tail == block) *ordinal = at;
  }
  return true;
}

}  // namespace

bool row_names_slot(RowSystem &rows, RowNo row, bool *names) {
  *names = false;
  if (!row_number_plausible(rows.block_size, row)) return true;
  const LockGuard guard(rows.sm->lock);
  if (!confirm(rows)) return false;
  const RowCounters &counters = row_counters(rows);
  int64_t ordinal;
  if (!ordinal_of(rows, counters, static_cast<BlockNo>(row / rows.block_size), &ordinal)) return false;
  if (ordinal < 0) return true;
  const int64_t stream = ordinal * row_stream_per_page(rows) + row % rows.block_size - row_page_stream;
  *names = stream % rows.row_size == 0 && stream / rows.row_size < counters.total_count;
  return true;
}

void row_directory_reloads(RowSystem &rows) {
  RowDirectory &directory = rows.directory;
  if (directory.confirmed) directory.former = rows.counters[0];
  directory.confirmed = false;
}

bool row_directory_expects(RowSystem &rows) {
  const LockGuard guard(rows.sm->lock);
  RowDirectory &directory = rows.directory;
  const uint32_t count = rows.counters[0].page_count;
  if (directory.pages.empty()) {
    if (!directory.pages.reserve(static_cast<int>(count))) return false;
    directory.confirmed = enter(directory, static_cast<BlockNo>(rows.counters[0].page_top));
  }
  return directory.confirmed && static_cast<uint32_t>(directory.pages.size()) < count &&
         directory.pages.reserve(static_cast<int>(count));
}

void row_directory_passes(RowSystem &rows, uint32_t ordinal, BlockNo block) {
  const LockGuard guard(rows.sm->lock);
  RowDirectory &directory = rows.directory;
  if (!directory.confirmed || static_cast<uint32_t>(directory.pages.size()) != ordinal ||
      ordinal >= rows.counters[0].page_count)
    return;
  const ErrorScope of_no_interest_to_the_scan;
  (void)enter(directory, block);
}

bool row_still_slot(RowSystem &rows, RowNo row, const RowState &earlier, bool *still) {
  *still = row_system_visible(rows);
  return !*still || row_state(rows).cuts == earlier.cuts || row_names_slot(rows, row, still);
}

}  // namespace tovik
