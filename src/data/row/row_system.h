// ROW systems: records in equal-sized slots that form one byte stream over a chain of pages. A row is
// addressed by its row number, the 32-bit byte address of its slot (page number x block size + offset). The
// system ROW holds the descriptor of every other ROW system.
//
// Counters exist once per transaction level; the owner of the open transaction works on its level, every
// other thread on level 0. Changed counters reach their pages lazily: before every commit record, every flush
// and every close (row_systems_write_counters), so that no committed or flushed page ever shows stale ones.
#pragma once

#include "data/row/handle_state.h"
#include "platform/array.h"
#include "platform/found.h"
#include "storage/storage_manager.h"

namespace tovik {

using RowNo = uint32_t;  // 0 names no row

enum class RowKind : uint32_t {
  system = 0,
  fixed = 1,
  variable = 2,
  fixed_auto = 3,  // with an auto-increment counter
  variable_auto = 4
};

struct RowCounters {
  uint32_t page_top, page_last, page_count;
  uint32_t new_offset;   // position of the next never-used slot
  uint32_t free_list;    // row number of the first deleted slot, 0 when none
  uint32_t total_count;  // slots ever allocated
  uint32_t free_count;   // slots on the free list
  uint64_t version;      // in memory only: of the rows' content, another one after every change
};

// What a thread sees of a row system at one time: while the state is the same, so are the rows.
struct RowState {
  uint64_t version;
  uint64_t cuts;  // how often chains of the database may have lost pages
  bool operator==(const RowState &) const = default;
};

inline constexpr int autoinc_step_limit = 65535;
inline constexpr int64_t autoinc_exhausted = INT64_MIN;  // the last value of 64 bits was given

struct AutoIncrement {
  int64_t init;
  int64_t next;  // the value that the next row receives, or autoinc_exhausted
  int32_t step;  // 1 to autoinc_step_limit
};

// The pages known so far, ascending by block (row_directory.cpp).
struct RowPage {
  BlockNo block;
  uint32_t ordinal;  // place in the chain, from 0
};
struct RowDirectory {
  Array<RowPage> pages;
  BlockNo last;        // of the pages known, in chain order
  bool confirmed;      // no other process has committed since they were known to be the chain's
  RowCounters former;  // unless confirmed: the committed ones when they were
};

struct RowSystem {
  StorageManager *sm;
  RowNo number;          // row number of the descriptor
  RowNo autoinc_number;  // of the auto-increment record, kinds with one
  RowKind kind;
  int32_t row_size;                            // slot size: flag byte and data
  uint32_t block_size;                         // of the database
  RowCounters counters[tran_level_limit + 1];  // of the levels that touched it, and of level 0
  AutoIncrement autoinc[tran_level_limit + 1];
  bool counters_changed[tran_level_limit + 1];  // the level's set differs from its record
  bool autoinc_changed[tran_level_limit + 1];
  RowDirectory directory;
  HandleState state;
  RowSystem *next;  // see HandleList
  RowSystem *next_touched[tran_level_limit + 1];

  void level_copy(int to, int from) {
    counters[to] = counters[from];
    autoinc[to] = autoinc[from];
    counters_changed[to] = counters_changed[from];
    autoinc_changed[to] = autoinc_changed[from];
  }
};

inline bool row_kind_variable(RowKind kind) {
  return kind == RowKind::variable || kind == RowKind::variable_auto;
}
inline bool row_kind_auto(RowKind kind) {
  return kind == RowKind::fixed_auto || kind == RowKind::variable_auto;
}
// As the calling thread sees them.
inline const RowCounters &row_counters(const RowSystem &rows) {
  return rows.counters[handle_level(rows)];
}
inline uint32_t row_active_count(const RowSystem &rows) {
  return row_counters(rows).total_count - row_counters(rows).free_count;
}

// Data-layer operations of a storage manager (see DataLayerOps).
[[nodiscard]] bool row_system_create_system(StorageManager &sm);
[[nodiscard]] bool row_system_open_system(StorageManager &sm);

// data_size bytes per slot: 4 and up; for variable kinds link and piece together, 5 and up. init, step, next:
// defaults 1, 1, init when not positive. Returned handles are held: row_system_close gives them back. 30001,
// 30003, 30024, 121001, 1.
RowSystem *row_system_create(StorageManager &sm, RowKind kind, int data_size, int64_t init, int step,
                             int64_t next);
RowSystem *row_system_open(RowNo number, StorageManager &sm);  // 30021, 30019 and read failures
// Frees pages and descriptor and ends the hold; a failure leaves the hold with the caller. 30032, 30034.
[[nodiscard]] bool row_system_drop(RowSystem *rows);
void row_system_close(RowSystem *rows);  // null is ignored

// Reads every record again into level 0, after another process's commit. Handles of row systems that are no
// more become HandleState::gone.
[[nodiscard]] bool row_systems_reload_all(StorageManager &sm);
[[nodiscard]] bool row_systems_write_counters(StorageManager &sm);  // 30022, 30023

// The end of a transaction level, called with the storage manager's lock held. Values of the level replace
// those of the level below, or are forgotten. Handles created or dropped inside the level follow (see
// HandleState).
void row_systems_level_merged(StorageManager &sm, int level);
void row_systems_level_dropped(StorageManager &sm, int level);
void row_systems_close(StorageManager &sm);  // releases every handle, held or not

// Comes before every change of a row system: its level, which is the calling thread's, gets values of its
// own.
int row_touch(RowSystem &rows);

// length: exactly row size - 1 for fixed kinds, 1 and up for variable ones. A failure leaves nothing behind.
// 30010, 30015, 30028, 121001.
[[nodiscard]] bool row_insert(RowSystem &rows, const void *data, int length, RowNo *row);
// The same for fixed kinds, into a slot that was never used, whatever is on the free list.
[[nodiscard]] bool row_insert_new(RowSystem &rows, const void *data, int length, RowNo *row);
// Fixed kinds rewrite in place; variable kinds replace the chain, and *row becomes the new number. 30010,
// 30015, 30020, 30031.
[[nodiscard]] bool row_update(RowSystem &rows, RowNo *row, const void *data, int length);
// A variable value goes with every piece. no: the slot was deleted before. 30015, 30026, 30031.
Found row_delete(RowSystem &rows, RowNo row);
// The first length bytes of a slot's data; no: it is deleted. 30010, 30015.
Found row_read(RowSystem &rows, RowNo row, void *buffer, int length);
// The first length bytes of a variable value, following the links from row. 30010, 30014, 30031.
[[nodiscard]] bool row_read_variable(RowSystem &rows, RowNo row, void *buffer, int length);

// Is row the number of a slot that was ever allocated? For numbers that come from outside: every other
// operation trusts its row number. 30007, 30009, 1.
[[nodiscard]] bool row_names_slot(RowSystem &rows, RowNo row, bool *names);

// For the scans and for the reading of counters anew. expects: are there pages to be told of? passes: block
// is the chain's page with that ordinal. reloads: the committed counters are about to be another process's.
bool row_directory_expects(RowSystem &rows);
void row_directory_passes(RowSystem &rows, uint32_t ordinal, BlockNo block);
void row_directory_reloads(RowSystem &rows);

inline bool row_system_visible(const RowSystem &rows) {  // is there for the calling thread
  return rows.state.visible(sm_level(*rows.sm));
}
RowState row_state(const RowSystem &rows);
// Is row, which was the number of a slot in an earlier state, one still? Not when the row system was dropped
// or the transaction that added its page was rolled back. 30007, 30009, 1.
[[nodiscard]] bool row_still_slot(RowSystem &rows, RowNo row, const RowState &earlier, bool *still);

// 1 when row is the first slot of the stream. 30008.
[[nodiscard]] bool row_previous(RowSystem &rows, RowNo row, RowNo *previous);

// last: the last slot ever allocated, 0 when there is none (or, with a status, when it cannot be found).
enum class RowPosition { first, last, new_offset, free_head, insert };
RowNo row_position(RowSystem &rows, RowPosition which);

// The slot position after row, along the stream (0 when the stream does not continue).
[[nodiscard]] bool row_next_position(RowSystem &rows, RowNo row, RowNo *next);

// The calling thread's level. Without an auto-increment counter: zeros, and 30035 from the other two. advance
// refuses an exhausted counter with 113002.
AutoIncrement row_autoinc_get(const RowSystem &rows);
[[nodiscard]] bool row_autoinc_set(RowSystem &rows, int64_t init, int step, int64_t next);
[[nodiscard]] bool row_autoinc_advance(RowSystem &rows);

// A forward scan of the active rows, in stream order, that keeps its place: while it runs it holds the page
// of its slot; row_scan_pause lets the page go (the place stays), which callers do before they return to the
// application or begin or end a transaction. Rows inserted meanwhile behind the place are delivered too; a
// place whose pages a rollback took away is where the chain goes on, or its end.
struct RowScan {
  RowSystem *rows = nullptr;
  Page page;
  const RowCounters *counters = nullptr;  // while the page is held: of a touched level, for they may change
  BlockNo block = 0;                      // page of the next slot
  uint32_t offset = 0;                    // of the next slot in it
  uint32_t pages_passed = 0;              // place of block in the chain; a damaged one cannot loop for ever
  uint64_t cuts = 0;                      // when block was found
  bool learns = false;                    // tells the directory of the pages that it passes
};

// Calls take for every row that fetch gives, up to the end; false when either fails.
template <class Fetch, class Take>
[[nodiscard]] bool each_row(Fetch fetch, Take take) {
  for (;;) {
    const Found fetched = fetch();
    if (fetched != Found::yes) return fetched == Found::no;
    if (!take()) return false;
  }
}

void row_scan_start(RowScan &scan, RowSystem &rows);
// The first length bytes of the next active row. 30007, 30009, 30010, 30015.
Found row_scan_next(RowScan &scan, void *buffer, int length, RowNo *row);
void row_scan_pause(RowScan &scan);

void row_system_dump(RowSystem &rows, const char *title);

}  // namespace tovik
