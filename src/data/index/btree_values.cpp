// The values of a NORMAL key: the smallest in the slots of its item, the rest in its overflow tree. The
// layout stands in btree_format.h, the rule between slots and tree is invariant 5 of btree_tree.h.
//
// What can fail comes before the item changes; the caller writes the item's page.
#include "data/index/btree_tree.h"
#include "data/row/data_systems.h"

namespace tovik {

namespace {

// A decoded value part; slots points into the item.
struct KeyValues {
  uint32_t total, root;
  uint8_t *slots;
  int used;      // slots with a value
  int capacity;  // slots
  int size;      // bytes of a value

  uint8_t *slot(int i) const { return slots + i * size; }
  bool overflows() const { return total > static_cast<uint32_t>(capacity); }
};

bool values_read(const Btree &index, uint8_t *item, KeyValues &values) {
  values.total = load_u32(item + bvalues::total);
  values.root = load_u32(item + bvalues::root);
  values.slots = item + bvalues::slots;
  values.capacity = index.definition.master_count;
  values.size = index.definition.value_size;
  values.used = values.overflows() ? values.capacity : static_cast<int>(values.total);
  const bool sound = values.total >= 1 && values.total <= btree_value_total_limit &&
                     (values.root != 0 || !values.overflows());
  return sound || fail(status::btree_item_get);
}

void values_write(uint8_t *item, const KeyValues &values) {
  store_u32(item + bvalues::total, values.total);
  store_u32(item + bvalues::root, values.root);
}

// Inserts value at a slot; the last value of full slots is pushed out.
void slot_insert(const KeyValues &values, int at, const uint8_t *value) {
  const int moved = (values.used < values.capacity ? values.used : values.capacity - 1) - at;
  memmove(values.slot(at + 1), values.slot(at), static_cast<size_t>(moved * values.size));
  memcpy(values.slot(at), value, static_cast<size_t>(values.size));
}

// Removes a slot; next, or zeros, becomes the last.
void slot_remove(const KeyValues &values, int at, const uint8_t *next) {
  const int last = values.used - 1;
  memmove(values.slot(at), values.slot(at + 1), static_cast<size_t>((last - at) * values.size));
  if (next != nullptr)
    memcpy(values.slot(last), next, static_cast<size_t>(values.size));
  else
    memset(values.slot(last), 0, static_cast<size_t>(values.size));
}

bool overflow_create(Btree &index, const uint8_t *value, uint32_t *root) {
  Page page;
  if (!btree_page_new(index, page)) return fail(status::btree_overflow_create);
  *root = static_cast<uint32_t>(page.block());
  bpage::set_item_count(page.data(), 1);
  memcpy(bpage::key(page.data(), index.overflow_leaf, 0), value,
         static_cast<size_t>(index.overflow_leaf.key_size));
  return btree_page_write(index, page);
}

bool overflow_insert(Btree &index, uint32_t *root, const uint8_t *value) {
  if (*root == 0) return overflow_create(index, value, root);
  const Tree tree = tree_overflow(index, *root);
  TreePath path;
  Page leaf;
  if (!tree_descend(tree, {value, 1, Tie::hit}, path, leaf))
    return fail(status::btree_overflow_insert_position);
  if (path.hit || !tree_insert(tree, path, leaf, nullptr, value)) return fail(status::btree_overflow_insert);
  return true;
}

bool overflow_delete(Btree &index, uint32_t root, const uint8_t *value) {
  const Tree tree = tree_overflow(index, root);
  TreePath path;
  Page leaf;
  if (!tree_descend(tree, {value, 1, Tie::hit}, path, leaf))
    return fail(status::btree_overflow_delete_position);
  if (!path.hit) return fail(status::btree_key_missing);
  return tree_remove(tree, path, leaf) || fail(status::btree_overflow_delete);
}

// Takes the smallest value out of the tree.
bool overflow_take_first(Btree &index, uint32_t root, uint8_t *value) {
  const Tree tree = tree_overflow(index, root);
  TreePath path;
  Page leaf;
  if (!tree_descend(tree, {nullptr, 0, Tie::before}, path, leaf) || bpage::item_count(leaf.data()) == 0)
    return fail(status::btree_overflow_first);
  memcpy(value, bpage::key(leaf.data(), *tree.leaf, 0), static_cast<size_t>(tree.leaf->key_size));
  return tree_remove(tree, path, leaf) || fail(status::btree_overflow_item_delete);
}

// With the last value gone the tree is its empty root.
bool overflow_free(Btree &index, uint32_t root) {
  Page page;
  if (!btree_page_get(index, root, page)) return false;
  if (!bpage::is_leaf(page.data()) || bpage::item_count(page.data()) != 0)
    return fail(status::btree_overflow_delete);
  return btree_page_free(index, page);
}

bool overflow_collect(Btree &index, uint32_t root, uint32_t expected, RowSet &rows) {
  const Tree tree = tree_overflow(index, root);
  TreePath path;
  Page leaf;
  if (!tree_descend(tree, {nullptr, 0, Tie::before}, path, leaf)) return false;
  uint32_t pages_left = btree_pages(index).count;
  for (Found next = Found::yes; next != Found::no; next = tree_next_leaf(tree, leaf, pages_left)) {
    if (next == Found::failed) return false;
    const int count = bpage::item_count(leaf.data());
    if (static_cast<uint32_t>(count) > expected) return fail(status::btree_item_get);
    expected -= static_cast<uint32_t>(count);
    for (int i = 0; i < count; ++i) {
      const uint8_t *value = bpage::key(leaf.data(), *tree.leaf, i);
      if (!rowset_add(rows, btree_load_row(value, tree.leaf->key_size))) return false;
    }
  }
  return expected == 0 || fail(status::btree_item_get);
}

}  // namespace

bool values_build(Btree &index, const uint8_t *value, uint8_t *part) {
  memset(part, 0, static_cast<size_t>(index.master_leaf.value_size));
  store_u32(part + bvalues::total, 1);
  if (index.definition.master_count > 0) {
    memcpy(part + bvalues::slots, value, static_cast<size_t>(index.definition.value_size));
    return true;
  }
  uint32_t root;
  if (!overflow_create(index, value, &root)) return false;
  store_u32(part + bvalues::root, root);
  return true;
}

bool values_add(Btree &index, uint8_t *item, const uint8_t *value) {
  KeyValues values;
  if (!values_read(index, item, values)) return false;
  const BtreePosition place = btree_value_position(index, values.slots, values.used, value);
  if (place.hit || values.total == btree_value_total_limit) return fail(status::btree_insert);
  if (values.used == values.capacity) {
    const bool pushes_out = place.item < values.capacity;
    const uint8_t *moved = pushes_out ? values.slot(values.capacity - 1) : value;
    if (!overflow_insert(index, &values.root, moved)) return false;
  }
  if (place.item < values.capacity) slot_insert(values, place.item, value);
  ++values.total;
  values_write(item, values);
  return true;
}

ValueRemove values_remove(Btree &index, uint8_t *item, const uint8_t *value) {
  KeyValues values;
  if (!values_read(index, item, values)) return ValueRemove::failed;
  const BtreePosition place = btree_value_position(index, values.slots, values.used, value);
  if (place.hit) {
    uint8_t first[btree_row_value_limit];
    const bool refill = values.overflows();
    if (refill && !overflow_take_first(index, values.root, first)) return ValueRemove::failed;
    slot_remove(values, place.item, refill ? first : nullptr);
  } else if (!values.overflows()) {
    err_set(status::btree_key_missing);
    return ValueRemove::failed;
  } else if (!overflow_delete(index, values.root, value)) {
    return ValueRemove::failed;
  }
  --values.total;
  if (values.total == 0 && values.root != 0) {
    if (!overflow_free(index, values.root)) {
      data_torn(*index.sm);
      return ValueRemove::failed;
    }
    values.root = 0;
  }
  values_write(item, values);
  return values.total == 0 ? ValueRemove::emptied : ValueRemove::removed;
}

bool item_collect(Btree &index, uint8_t *item, RowSet &rows) {
  if ((index.definition.flags & btree_payload) != 0) return true;
  if (btree_is_unique(index)) return rowset_add(rows, btree_load_row(item, index.definition.value_size));
  KeyValues values;
  if (!values_read(index, item, values)) return false;
  for (int i = 0; i < values.used; ++i)
    if (!rowset_add(rows, btree_load_row(values.slot(i), values.size))) return false;
  if (!values.overflows()) return true;
  return overflow_collect(index, values.root, values.total - static_cast<uint32_t>(values.capacity), rows);
}

const uint8_t *btree_take_value(const Btree &index, const void *value, uint8_t row[btree_row_value_limit]) {
  if (value == nullptr) return fail_null(status::btree_argument);
  if ((index.definition.flags & btree_payload) != 0) return static_cast<const uint8_t *>(value);
  memcpy(row, value, btree_row_value_limit);
  if (btree_load_row(row, index.definition.value_size) != load_u32(row))
    return fail_null(status::btree_argument);
  return row;
}

void btree_give_value(const Btree &index, const uint8_t *stored, void *value) {
  const int size = index.definition.value_size;
  if ((index.definition.flags & btree_payload) != 0)
    memcpy(value, stored, static_cast<size_t>(size));
  else
    store_u32(value, btree_load_row(stored, size));
}

}  // namespace tovik
