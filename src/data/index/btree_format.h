// B-tree pages, items and the two records of an index as they lie in the data file, with inline accessors and
// the check that every page passes after it is read. Only the B-tree's own sources include it.
//
// Page (one block)
//   OFFSET  SIZE  DESCRIPTION
//   0       4     previous page in the index's allocation chain, 0 = none
//   4       4     next page in the allocation chain
//   8       4     left sibling on the same level, 0 = none
//   12      4     right sibling
//   16      4     0 in a leaf; in a node the right-most child, whose keys lie above every separator
//   20      4     item count
//   24            items, ascending by key: value part, then key part
//
// Items
//   KIND           USED BY   VALUE PART                 KEY PART
//   master leaf    UNIQUE    value                      key
//   master leaf    NORMAL    key's values, see below    key
//   master node    all       child page (4)             key: the child's keys are not above it
//   overflow leaf  NORMAL    none                       value
//   overflow node  NORMAL    child page (4)             value
//
// A NORMAL key's values (value part of its master leaf item)
//   0       4     number of values
//   4       4     root page of the key's overflow tree, 0 = none
//   8       n     slots: the smallest values of the key, ascending as byte strings
//
// Descriptor (100 bytes)
//   0       4     flags: 1 UNIQUE, 2 TIMESERIES, 8 payload
//   4       2     number of key parts, 1 or 2
//   6       2     slots of an item (1 in a UNIQUE index)
//   8       2     value size
//   10      2     zero
//   12      4     type code of each part (2 each)
//   16      4     size of each part
//   20      4     column number of each part
//   24      4     root page
//   28      4     row number of the page-counter record
//   32      4     table id, 0 for catalog indices
//   36      32    table name
//   68      32    index name
//
// Page-counter record (12 bytes): first page, last page, page count of the allocation chain (4 each).
#pragma once

#include "data/index/btree.h"

namespace tovik {

inline constexpr int btree_descriptor_size = 100;
inline constexpr int btree_counter_size = 12;
inline constexpr int btree_slot_limit = 16;
inline constexpr int btree_row_value_limit = 4;                 // bytes of a row number as a value
inline constexpr uint32_t btree_value_total_limit = INT32_MAX;  // values of one key

namespace bpage {

inline constexpr int chain_previous = 0, chain_next = 4, left = 8, right = 12, rightmost = 16, count = 20,
                     items = 24;

inline uint32_t link(const uint8_t *page, int field) {
  return load_u32(page + field);
}
inline void set_link(uint8_t *page, int field, uint32_t target) {
  store_u32(page + field, target);
}
inline bool is_leaf(const uint8_t *page) {
  return load_u32(page + rightmost) == 0;
}
inline int item_count(const uint8_t *page) {
  return static_cast<int>(load_u32(page + count));
}
inline void set_item_count(uint8_t *page, int value) {
  store_u32(page + count, static_cast<uint32_t>(value));
}
inline uint8_t *item(uint8_t *page, const BtreeItemKind &kind, int at) {
  return page + items + at * kind.item_size;
}
inline uint8_t *key(uint8_t *page, const BtreeItemKind &kind, int at) {
  return item(page, kind, at) + kind.value_size;
}
// The child to the left of the separator at a position; the right-most child at position count.
inline uint32_t child(const uint8_t *page, const BtreeItemKind &kind, int at) {
  return at == item_count(page) ? link(page, rightmost) : load_u32(page + items + at * kind.item_size);
}
// After a read: the items lie inside the page.
inline bool sound(const uint8_t *page, const BtreeItemKind &leaf, const BtreeItemKind &node) {
  const int limit = is_leaf(page) ? leaf.per_page : node.per_page;
  return load_u32(page + count) <= static_cast<uint32_t>(limit);
}

}  // namespace bpage

namespace bvalues {  // value part of a NORMAL item

inline constexpr int total = 0, root = 4, slots = 8;

}  // namespace bvalues

// Derives the item kinds, the comparison and the page searches from the definition. False when the definition
// cannot be had with this block size: a key above 128 bytes, a type without an order, a part size that is not
// its type's, fewer than two items in a page. Records nothing.
[[nodiscard]] bool btree_derive(Btree &index, int block_size);

void btree_descriptor_encode(const Btree &index, const char *table_name, uint8_t *at);
// Takes definition, root, counter record and, for the first level, the table name, and derives the rest.
// False when the descriptor is damaged; records nothing.
[[nodiscard]] bool btree_descriptor_decode(const uint8_t *at, int block_size, Btree &index);

inline void btree_counter_encode(const BtreePages &pages, uint8_t *at) {
  store_u32(at, pages.first);
  store_u32(at + 4, pages.last);
  store_u32(at + 8, pages.count);
}
inline BtreePages btree_counter_decode(const uint8_t *at) {
  return {load_u32(at), load_u32(at + 4), load_u32(at + 8)};
}

}  // namespace tovik
