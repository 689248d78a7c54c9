// Removing items, and the pages that become empty by it.
//
// Cost of a deletion: the descent; one memmove in the leaf and one write of it. Pages are not merged: only an
// emptied page goes, and with it its parent's reference.
#include <cassert>

#include "data/index/btree_tree.h"
#include "data/row/data_systems.h"

namespace tovik {

namespace {

void item_remove(uint8_t *page, const BtreeItemKind &kind, int position) {
  const int count = bpage::item_count(page);
  assert(position >= 0 && position < count);
  uint8_t *at = bpage::item(page, kind, position);
  memmove(at, at + kind.item_size,
          static_cast<size_t>(kind.item_size) * static_cast<size_t>(count - position - 1));
  bpage::set_item_count(page, count - 1);
}

// Removes a node's reference to its child at position. The right-most child gives its place to the child of
// the last item.
void child_remove(uint8_t *page, const BtreeItemKind &kind, int position) {
  const int count = bpage::item_count(page);
  if (position < count) return item_remove(page, kind, position);
  bpage::set_link(page, bpage::rightmost, count == 0 ? 0 : bpage::child(page, kind, count - 1));
  if (count > 0) bpage::set_item_count(page, count - 1);
}

bool emptied(const uint8_t *page) {
  return bpage::is_leaf(page) && bpage::item_count(page) == 0;
}

bool remove_upwards(const Tree &tree, const TreePath &path, Page &page) {
  item_remove(page.data(), *tree.leaf, path.position());
  for (int level = path.depth - 1; level > 0 && emptied(page.data()); --level) {
    if (!btree_page_free(*tree.index, page)) return false;
    const TreeStep &parent = path.steps[level - 1];
    if (!tree_step_get(tree, parent, page)) return false;
    child_remove(page.data(), *tree.node, parent.position);
  }
  return btree_page_write(*tree.index, page);
}

}  // namespace

bool tree_remove(const Tree &tree, const TreePath &path, Page &leaf) {
  Page page = std::move(leaf);
  if (remove_upwards(tree, path, page)) return true;
  data_torn(*tree.index->sm);
  return false;
}

bool btree_delete(Btree &index, const uint8_t *key, const void *value) {
  const Tree tree = tree_master(index);
  TreePath path;
  Page leaf;
  uint8_t row[btree_row_value_limit];
  const uint8_t *bytes = btree_take_value(index, value, row);
  if (bytes == nullptr || !tree_descend(tree, {key, index.definition.part_count, Tie::hit}, path, leaf))
    return false;
  if (!path.hit) return fail(status::btree_key_missing);
  uint8_t *item = bpage::item(leaf.data(), *tree.leaf, path.position());
  if (btree_is_unique(index)) {
    if (memcmp(item, bytes, static_cast<size_t>(index.definition.value_size)) != 0)
      return fail(status::btree_key_missing);
    return tree_remove(tree, path, leaf);
  }
  switch (values_remove(index, item, bytes)) {
    case ValueRemove::removed:
      return item_rewrite(index, leaf);
    case ValueRemove::emptied:
      return tree_remove(tree, path, leaf);
    case ValueRemove::failed:
      return false;
  }
  return false;
}

}  // namespace tovik
