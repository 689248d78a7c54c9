// Which pages a row system has, each with its place in the chain: what tells a row number from any other
// number without reading the table.
//
// Invariants
//   1. The directory knows the first pages.size() pages of the committed chain. A chain grows at its end, and
//      its pages leave it all together, so what is known stays true until another process has committed.
//   2. Pages that the open transaction added are never entered: a rollback takes them away again. They are
//      few and are walked when asked for.
//
// Cost: the first question reads every page of the chain once, later ones those added since; 8 bytes of
// memory per page, and only for row systems that are asked. The storage manager's lock guards the directory.
#include <algorithm>

#include "data/row_slots.h"
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

bool next_page(RowSystem &rows, BlockNo block, BlockNo *next) {
  Page page;
  if (!sm_page_get(*rows.sm, block, row_page_group, page)) return fail(status::row_page_fetch);
  *next = load_i32(page.data() + row_page_next);
  return *next != 0 || fail(status::row_next_page);
}

bool learn_committed_pages(RowSystem &rows) {
  RowDirectory &directory = rows.directory;
  const RowCounters &committed = rows.counters[0];
  BlockNo next = static_cast<BlockNo>(committed.page_top);
  if (!directory.pages.empty() && directory.first != next) directory.pages.clear();
  directory.first = next;
  while (static_cast<uint32_t>(directory.pages.size()) < committed.page_count) {
    if (!directory.pages.empty() && !next_page(rows, directory.last, &next)) return false;
    if (!enter(directory, next)) return false;
  }
  return true;
}

// The place of block in the chain, -1 when it is not in it.
bool ordinal_of(RowSystem &rows, const RowCounters &counters, BlockNo block, int64_t *ordinal) {
  RowDirectory &directory = rows.directory;
  const RowPage *found = position_of(directory, block);
  if (found != directory.pages.end() && found->block == block) {
    *ordinal = found->ordinal;
    return true;
  }
  BlockNo tail = directory.last;
  for (uint32_t at = static_cast<uint32_t>(directory.pages.size()); at < counters.page_count; ++at) {
    if (!next_page(rows, tail, &tail)) return false;
    if (tail == block) {
      *ordinal = at;
      return true;
    }
  }
  *ordinal = -1;
  return true;
}

}  // namespace

bool row_names_slot(RowSystem &rows, RowNo row, bool *names) {
  *names = false;
  if (!row_number_plausible(rows.block_size, row)) return true;
  const LockGuard guard(rows.sm->lock);
  if (!learn_committed_pages(rows)) return false;
  const RowCounters &counters = row_counters(rows);
  int64_t ordinal;
  if (!ordinal_of(rows, counters, static_cast<BlockNo>(row / rows.block_size), &ordinal)) return false;
  if (ordinal < 0) return true;
  const int64_t stream = ordinal * row_stream_per_page(rows) + row % rows.block_size - row_page_stream;
  *names = stream % rows.row_size == 0 && stream / rows.row_size < counters.total_count;
  return true;
}

bool row_still_slot(RowSystem &rows, RowNo row, const RowState &earlier, bool *still) {
  *still = row_system_visible(rows);
  return !*still || row_state(rows).cuts == earlier.cuts || row_names_slot(rows, row, still);
}

}  // namespace tovik
