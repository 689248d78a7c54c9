// What the B-tree's sources share: one tree of fixed-size items, be it the master tree of an index or the
// overflow tree of one of its keys, with the descent, the insertion and the removal that serve both; the
// pages of an index; and the values of a NORMAL key.
//
// Invariants
//   1. Keys ascend in a page, and along the siblings of a level. A separator is not below any key of its
//      child, and below every key to the right of that child.
//   2. All leaves of a tree lie at one depth, at most btree_depth_limit.
//   3. A tree's root keeps its page number. Only a root may be an empty leaf.
//   4. Every page of every tree of an index is in the index's allocation chain.
//   5. A NORMAL key with more values than slots has its largest values in the overflow tree and every slot
//      full; a key whose overflow tree went empty keeps the empty root until its last value goes.
//   6. An insertion takes its new pages before it changes any item, so that running out of space leaves the
//      tree as it was.
#pragma once

#include "data/index/btree_format.h"
#include "frame/error.h"

namespace tovik {

// ---- pages of an index ----

// A page of any kind; 32002.
[[nodiscard]] bool btree_page_get(Btree &index, uint32_t block, Page &page);
[[nodiscard]] bool btree_page_release(Page &page);  // 32003
// Releases a changed page; a failure tears the level. 32004.
[[nodiscard]] bool btree_page_write(Btree &index, Page &page);
[[nodiscard]] bool btree_page_new(Btree &index, Page &page);  // an empty leaf at the end of the chain; 32007
// Out of both chains, then back to the file. A failure tears the level.
[[nodiscard]] bool btree_page_free(Btree &index, Page &page);
[[nodiscard]] bool btree_page_free(Btree &index, uint32_t block);

// As the calling thread sees them.
inline const BtreePages &btree_pages(const Btree &index) {
  return index.pages[handle_level(index)];
}
// Comes before every change of them, and of the table name: the calling thread's level.
int btree_touch(Btree &index);

// ---- one tree ----

struct Tree {
  Btree *index;
  const BtreeItemKind *leaf, *node;
  BtreeSearch search;
  uint32_t root;
  int split_ratio;   // percent of a full page's items that move to the new lower page
  bool fill_at_end;  // a split behind the last item moves all of them: ascending keys fill their pages
};

Tree tree_master(Btree &index);
Tree tree_overflow(Btree &index, uint32_t root);

inline const BtreeItemKind &tree_kind(const Tree &tree, const uint8_t *page) {
  return bpage::is_leaf(page) ? *tree.leaf : *tree.node;
}

enum class Tie { hit, before, after };  // where a seek goes when the item's key equals its own

struct TreeSeek {
  const uint8_t *key;  // null: in front of the first item
  int part_count;      // key parts that take part; only with before and after
  Tie tie;
};

struct TreeStep {
  uint32_t page;
  int position;
  bool full;
};

// The way from the root to a leaf.
struct TreePath {
  TreeStep steps[btree_depth_limit];
  int depth;
  bool hit;  // the leaf's item at its position has the key

  int position() const { return steps[depth - 1].position; }
};

// A page of the tree, checked; 32002.
[[nodiscard]] bool tree_page_get(const Tree &tree, uint32_t block, Page &page);
// Leaves the leaf held. 32002, 32009.
[[nodiscard]] bool tree_descend(const Tree &tree, const TreeSeek &seek, TreePath &path, Page &leaf);

// The inner page of a step, as the descent left it; 32002.
[[nodiscard]] bool tree_step_get(const Tree &tree, const TreeStep &step, Page &page);

// Inserts at the path's position, splitting upwards. The leaf is released, also on failure. A failure leaves
// the tree as it was or tears the level. 32006 to 32017.
[[nodiscard]] bool tree_insert(const Tree &tree, const TreePath &path, Page &leaf, const uint8_t *value,
                               const uint8_t *key);
// Removes the item at the path's position and the pages that this empties. Releases the leaf likewise.
[[nodiscard]] bool tree_remove(const Tree &tree, const TreePath &path, Page &leaf);

// Steps to the right sibling of a leaf; no: there is none. pages_left falls by one; at 0 the chain of
// siblings is damaged.
Found tree_next_leaf(const Tree &tree, Page &leaf, uint32_t &pages_left);

// ---- page searches ----

void btree_choose_search(Btree &index);
// The sign of a against b over the first part_count key parts.
int btree_key_compare(const Btree &index, const uint8_t *a, const uint8_t *b, int part_count);
// Position of value among count ascending values.
BtreePosition btree_value_position(const Btree &index, const uint8_t *values, int count,
                                   const uint8_t *value);

// ---- values of a NORMAL key; item is the key's master leaf item in its held page ----

// The value part for a new key with one value; may make its overflow tree. 32019.
[[nodiscard]] bool values_build(Btree &index, const uint8_t *value, uint8_t *part);
[[nodiscard]] bool values_add(Btree &index, uint8_t *item, const uint8_t *value);  // 32018, 32020

// emptied: the last value went, and the overflow root with it; the item is the caller's to remove.
enum class ValueRemove { removed, emptied, failed };
ValueRemove values_remove(Btree &index, uint8_t *item, const uint8_t *value);  // 132001, 32022, 32023

// Writes the page of an item whose value part was changed. 32021.
[[nodiscard]] inline bool item_rewrite(Btree &index, Page &leaf) {
  return btree_page_write(index, leaf) || fail(status::btree_item_rewrite);
}

// Appends the row numbers of a master leaf item of any index; a payload gives none. 32028.
[[nodiscard]] bool item_collect(Btree &index, uint8_t *item, RowSet &rows);

// ---- a caller's value and its stored bytes ----

inline RowNo btree_load_row(const uint8_t *value, int size) {
  RowNo row = 0;
  for (int i = 0; i < size; ++i) row |= static_cast<RowNo>(value[i]) << (8 * i);
  return row;
}
// The stored bytes of a caller's value: in row for a row number, else the payload itself. Null with 32001.
const uint8_t *btree_take_value(const Btree &index, const void *value, uint8_t row[btree_row_value_limit]);
void btree_give_value(const Btree &index, const uint8_t *stored, void *value);

}  // namespace tovik
