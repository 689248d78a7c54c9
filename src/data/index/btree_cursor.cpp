// Ranges and cursors: two descents find the ends, then the leaves are walked from sibling to sibling.
//
// Both ends are places between items: in front of the first item not below, or above, a bound. With lower
// bound at most upper bound the start never lies behind the end, so the walk meets the end; a damaged chain
// of siblings ends the walk after as many pages as the index has.
#include "data/index/btree_tree.h"

namespace tovik {

namespace {

int bound_parts(const Btree &index, const BtreeRange &range) {
  return range.first_part ? 1 : index.definition.part_count;
}

bool range_empty(const Btree &index, const BtreeRange &range) {
  if (range.lower_bound == Bound::none || range.upper_bound == Bound::none) return false;
  const int sign = btree_key_compare(index, range.lower, range.upper, bound_parts(index, range));
  if (sign != 0) return sign > 0;
  return range.lower_bound == Bound::exclusive || range.upper_bound == Bound::exclusive;
}

bool seek_end(const Tree &tree, const BtreeRange &range, BtreeCursor &cursor) {
  cursor.end_page = 0;
  cursor.end_item = 0;
  if (range.upper_bound == Bound::none) return true;
  const Tie tie = range.upper_bound == Bound::inclusive ? Tie::after : Tie::before;
  TreePath path;
  Page leaf;
  if (!tree_descend(tree, {range.upper, bound_parts(*tree.index, range), tie}, path, leaf)) return false;
  cursor.end_page = static_cast<uint32_t>(leaf.block());
  cursor.end_item = path.position();
  return btree_page_release(leaf);
}

bool seek_start(const Tree &tree, const BtreeRange &range, BtreeCursor &cursor) {
  TreeSeek seek = {nullptr, 0, Tie::before};
  if (range.lower_bound != Bound::none)
    seek = {range.lower, bound_parts(*tree.index, range),
            range.lower_bound == Bound::inclusive ? Tie::before : Tie::after};
  TreePath path;
  if (!tree_descend(tree, seek, path, cursor.page)) return false;
  cursor.item = path.position();
  return true;
}

// The next item of the range, in the held page; the cursor stands behind it then.
Found next_item(BtreeCursor &cursor, uint8_t **item) {
  if (!cursor.page.held()) return Found::no;
  const Tree tree = tree_master(*cursor.index);
  for (;;) {
    const bool last_page = static_cast<uint32_t>(cursor.page.block()) == cursor.end_page;
    if (last_page && cursor.item >= cursor.end_item)
      return btree_page_release(cursor.page) ? Found::no : Found::failed;
    if (cursor.item < bpage::item_count(cursor.page.data())) {
      *item = bpage::item(cursor.page.data(), *tree.leaf, cursor.item++);
      return Found::yes;
    }
    const Found next = tree_next_leaf(tree, cursor.page, cursor.pages_left);
    if (next != Found::yes) return next;
    cursor.item = 0;
  }
}

}  // namespace

bool btree_cursor_open(BtreeCursor &cursor, Btree &index, const BtreeRange &range) {
  const Tree tree = tree_master(index);
  btree_cursor_close(cursor);
  cursor.index = &index;
  if (range_empty(index, range)) return true;
  cursor.pages_left = btree_pages(index).count;
  return (seek_end(tree, range, cursor) && seek_start(tree, range, cursor)) ||
         fail(status::btree_cursor_position);
}

Found btree_cursor_fetch(BtreeCursor &cursor, uint8_t *key, RowSet *rows) {
  uint8_t *item;
  const Found fetched = next_item(cursor, &item);
  if (fetched != Found::yes) return fetched;
  Btree &index = *cursor.index;
  memcpy(key, item + index.master_leaf.value_size, static_cast<size_t>(index.master_leaf.key_size));
  if (rows == nullptr) return Found::yes;
  rows->rows.clear();
  rows->sorted = false;
  return item_collect(index, item, *rows) ? Found::yes : Found::failed;
}

void btree_cursor_close(BtreeCursor &cursor) {
  if (cursor.page.held()) (void)sm_page_release(cursor.page);
}

bool btree_range(Btree &index, const BtreeRange &range, RowSet &rows) {
  BtreeCursor cursor;
  if (!btree_cursor_open(cursor, index, range)) return false;
  for (;;) {
    uint8_t *item;
    switch (next_item(cursor, &item)) {
      case Found::failed:
        return false;
      case Found::no:
        return true;
      case Found::yes:
        if (!item_collect(index, item, rows)) return false;
    }
  }
}

}  // namespace tovik
