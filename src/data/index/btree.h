// B-tree indices of fixed-size items. An index maps a key of one or two column values to a row number, or to
// a payload. UNIQUE: one value per key. NORMAL: the smallest values of a key inside its item, the rest in an
// overflow tree of values that belongs to the key.
//
// The format tables stand in btree_format.h. A search fetches one page per level; comparison is chosen once
// per index from the types of its parts; nothing is allocated per operation. Values that callers give and
// take are row numbers as four little-endian bytes, or the payload bytes of a payload index.
//
// Whatever a page or descriptor read from disk holds, an operation ends: damage gives 32002, 32009 or 32028.
#pragma once

#include "data/index/row_set.h"
#include "data/row/handle_state.h"
#include "data/value/types.h"
#include "platform/found.h"
#include "storage/storage_manager.h"

namespace tovik {

inline constexpr uint32_t btree_unique = 1;
inline constexpr uint32_t btree_timeseries = 2;
inline constexpr uint32_t btree_payload = 8;

inline constexpr int btree_key_limit = 128;  // bytes
inline constexpr int btree_part_limit = 2;
inline constexpr int btree_depth_limit = 16;
inline constexpr int btree_name_size = 32;  // stored field

struct BtreeKeyPart {
  TypeCode type;
  uint16_t size;    // bytes
  uint16_t column;  // column number in the table
};

// Fixed for the life of an index.
struct BtreeDefinition {
  uint32_t flags;
  int part_count;
  int master_count;  // values inside a key's item
  int value_size;    // payload bytes; 4 for row numbers
  BtreeKeyPart parts[btree_part_limit];
  uint32_t table_id;  // 0 for catalog indices
  char index_name[btree_name_size];
};

struct BtreeName {
  char text[btree_name_size];
};

struct BtreePages {
  uint32_t first, last, count;  // allocation chain
};

// One of the four item kinds.
struct BtreeItemKind {
  int item_size, key_size, value_size;
  int per_page;
};

struct Btree;

// Where a key stands among the items of a page: at the item that has it, or in front of the first above it.
struct BtreePosition {
  int item;
  bool hit;
};
using BtreeSearch = BtreePosition (*)(const Btree &index, const uint8_t *keys, int count, int stride,
                                      const uint8_t *key);

struct Btree {
  StorageManager *sm;
  BtreeDefinition definition;
  uint32_t root;
  uint32_t counter_row;                      // page-counter record
  RowNo number;                              // row number of the descriptor
  BtreePages pages[tran_level_limit + 1];    // of the levels that touched it, and of level 0
  bool pages_changed[tran_level_limit + 1];  // the level's counters differ from their record
  BtreeName table_names[tran_level_limit + 1];
  BtreeItemKind master_leaf, master_node, overflow_leaf, overflow_node;
  StoredCompare compare[btree_part_limit];
  BtreeSearch search_master, search_overflow;
  HandleState state;
  Btree *next;  // see HandleList
  Btree *next_touched[tran_level_limit + 1];

  void level_copy(int to, int from) {
    pages[to] = pages[from];
    pages_changed[to] = pages_changed[from];
    table_names[to] = table_names[from];
  }
};

inline bool btree_is_unique(const Btree &index) {
  return (index.definition.flags & btree_unique) != 0;
}
inline int btree_key_size(const Btree &index) {
  return index.master_leaf.key_size;
}

// The two ROW systems that hold descriptors and page counters (data-layer operations).
[[nodiscard]] bool btree_create_system(StorageManager &sm);
[[nodiscard]] bool btree_open_system(StorageManager &sm);
[[nodiscard]] bool btrees_write_counters(StorageManager &sm);
[[nodiscard]] bool btrees_reload_all(StorageManager &sm);  // after another process's commit
void btrees_level_merged(StorageManager &sm, int level);   // as row_systems_level_merged
void btrees_level_dropped(StorageManager &sm, int level);
void btrees_close(StorageManager &sm);

Btree *btree_create(StorageManager &sm, const BtreeDefinition &definition,
                    const char *table_name = "");     // 132002 to 132004, 32012
Btree *btree_open(StorageManager &sm, RowNo number);  // 32016, 32033
[[nodiscard]] bool btree_drop(Btree *index);          // 32034 to 32036; ends the hold
void btree_close(Btree *index);

// The name of the index's table, at the level that the calling thread sees.
const char *btree_table_name(const Btree &index);
[[nodiscard]] bool btree_rename_table(Btree &index, const char *name);

enum class BtreeInsert { inserted, exists, failed };
BtreeInsert btree_insert(Btree &index, const uint8_t *key, const void *value);         // exists: UNIQUE only
[[nodiscard]] bool btree_delete(Btree &index, const uint8_t *key, const void *value);  // 132001

// Is there an item of the key? Appends its row numbers to rows (null: only tells).
Found btree_search(Btree &index, const uint8_t *key, RowSet *rows);
Found btree_find_value(Btree &index, const uint8_t *key, void *value);  // UNIQUE: the value itself

enum class Bound { none, inclusive, exclusive };
struct BtreeRange {
  const uint8_t *lower;
  Bound lower_bound;
  const uint8_t *upper;
  Bound upper_bound;
  bool first_part;  // bounds are values of the first key part only
};

// Appends the row numbers of every key in the range, in key order.
[[nodiscard]] bool btree_range(Btree &index, const BtreeRange &range, RowSet &rows);

// Walks the leaves in key order. Holds one page while it runs; close before returning to the application.
struct BtreeCursor {
  Btree *index = nullptr;
  Page page;
  int item = 0;
  uint32_t end_page = 0;  // 0: to the end of the last leaf
  int end_item = 0;
  uint32_t pages_left = 0;
};
[[nodiscard]] bool btree_cursor_open(BtreeCursor &cursor, Btree &index, const BtreeRange &range);  // 32029
// key receives the key; rows (optional) the row numbers of the key, replacing its content. no: the range has
// no further key.
Found btree_cursor_fetch(BtreeCursor &cursor, uint8_t *key, RowSet *rows);
void btree_cursor_close(BtreeCursor &cursor);

void btree_dump(Btree &index, const char *title);

}  // namespace tovik
