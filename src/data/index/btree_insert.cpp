// Inserting an item and splitting full pages.
//
// Cost of an insertion: the descent; one memmove in the leaf and one write of it. A split fetches its new
// page and the left sibling besides, and goes on in the parent.
//
// A split of a full page of m items, with the new item at position p and a left share of L items:
//
//   before   [0 ........................ m-1]                       new item at p
//   after    new page [0 .. L-1]   old page [L .. m-1]              the item on the side where p lies
//
// The new page is the lower one, so the parent keeps its reference to the old page and receives one in front
// of it: the last key of the new page as separator. A node gives that last item away altogether: its child
// becomes the new page's right-most child. The root splits by moving into a fresh upper page first.
#include <cassert>

#include "data/index/btree_tree.h"
#include "data/row/data_systems.h"

namespace tovik {

namespace {

struct Item {
  const uint8_t *value, *key;
};

// What a split hands to the parent: the new lower page as child, and its separator.
struct Separator {
  uint8_t child[4];
  uint8_t key[btree_key_limit];

  Item item() const { return {child, key}; }
};

size_t items_size(const BtreeItemKind &kind, int count) {
  return static_cast<size_t>(kind.item_size) * static_cast<size_t>(count);
}

void item_write(uint8_t *at, const BtreeItemKind &kind, const Item &item) {
  if (kind.value_size > 0) memcpy(at, item.value, static_cast<size_t>(kind.value_size));
  memcpy(at + kind.value_size, item.key, static_cast<size_t>(kind.key_size));
}

void item_insert(uint8_t *page, const BtreeItemKind &kind, int position, const Item &item) {
  const int count = bpage::item_count(page);
  assert(position >= 0 && position <= count && count < kind.per_page);
  uint8_t *at = bpage::item(page, kind, position);
  memmove(at + kind.item_size, at, items_size(kind, count - position));
  item_write(at, kind, item);
  bpage::set_item_count(page, count + 1);
}

int left_share(const Tree &tree, const BtreeItemKind &kind, int position) {
  const int full = kind.per_page;
  if (tree.fill_at_end && position == full) return full;
  const int share = tree.split_ratio * full / 100;
  assert(share >= 1 && share < full);
  return share;
}

// Shares the items of the full page old, and the new item, between it and the empty page lower.
void split_items(uint8_t *old, uint8_t *lower, const BtreeItemKind &kind, int position, int share,
                 const Item &item) {
  const int full = kind.per_page;
  const auto at = [&](uint8_t *page, int i) { return bpage::item(page, kind, i); };
  if (position < share) {
    memcpy(at(lower, 0), at(old, 0), items_size(kind, position));
    item_write(at(lower, position), kind, item);
    memcpy(at(lower, position + 1), at(old, position), items_size(kind, share - position));
    memmove(at(old, 0), at(old, share), items_size(kind, full - share));
    bpage::set_item_count(lower, share + 1);
    bpage::set_item_count(old, full - share);
  } else {
    memcpy(at(lower, 0), at(old, 0), items_size(kind, share));
    memmove(at(old, 0), at(old, share), items_size(kind, position - share));
    memmove(at(old, position - share + 1), at(old, position), items_size(kind, full - position));
    item_write(at(old, position - share), kind, item);
    bpage::set_item_count(lower, share);
    bpage::set_item_count(old, full - share + 1);
  }
}

// Splits old into lower and itself, and takes the separator.
void split_page(const Tree &tree, Page &old, Page &lower, int position, const Item &item,
                Separator &separator) {
  const BtreeItemKind &kind = tree_kind(tree, old.data());
  const bool node = !bpage::is_leaf(old.data());
  split_items(old.data(), lower.data(), kind, position, left_share(tree, kind, position), item);
  const int last = bpage::item_count(lower.data()) - 1;
  memcpy(separator.key, bpage::key(lower.data(), kind, last), static_cast<size_t>(kind.key_size));
  store_u32(separator.child, static_cast<uint32_t>(lower.block()));
  if (node) {
    bpage::set_link(lower.data(), bpage::rightmost, load_u32(bpage::item(lower.data(), kind, last)));
    bpage::set_item_count(lower.data(), last);
  }
}

// The pages that an insertion will need, allocated before it changes any item.
struct Reserve {
  uint32_t blocks[btree_depth_limit + 1];
  int count, used;

  uint32_t take() {
    assert(used < count);
    return blocks[used++];
  }
};

// One page per full page from the leaf upwards, and one more when the root is among them.
int pages_needed(const TreePath &path) {
  int level = path.depth;
  while (level > 0 && path.steps[level - 1].full) --level;
  return path.depth - level + (level == 0 ? 1 : 0);
}

bool reserve_pages(const Tree &tree, const TreePath &path, Reserve &reserve) {
  reserve.count = reserve.used = 0;
  const int needed = pages_needed(path);
  if (needed > btree_depth_limit) return fail(status::btree_depth);
  while (reserve.count < needed) {
    Page page;
    const bool made = btree_page_new(*tree.index, page);
    if (made) reserve.blocks[reserve.count++] = static_cast<uint32_t>(page.block());
    if (made && btree_page_write(*tree.index, page)) continue;
    while (reserve.count > 0 && btree_page_free(*tree.index, reserve.blocks[reserve.count - 1]))
      --reserve.count;
    return false;
  }
  return true;
}

// Puts lower between old and its left sibling.
bool link_left(const Tree &tree, Page &old, Page &lower) {
  const uint32_t left = bpage::link(old.data(), bpage::left);
  const uint32_t old_block = static_cast<uint32_t>(old.block());
  const uint32_t lower_block = static_cast<uint32_t>(lower.block());
  bpage::set_link(lower.data(), bpage::left, left);
  bpage::set_link(lower.data(), bpage::right, old_block);
  bpage::set_link(old.data(), bpage::left, lower_block);
  if (left == 0) return true;
  Page sibling;
  if (!btree_page_get(*tree.index, left, sibling)) return false;
  if (bpage::link(sibling.data(), bpage::right) != old_block) return fail(status::btree_page_fetch);
  bpage::set_link(sibling.data(), bpage::right, lower_block);
  return btree_page_write(*tree.index, sibling);
}

bool split_inner(const Tree &tree, Page &old, int position, const Item &item, Reserve &reserve,
                 Separator &separator) {
  Page lower;
  if (!tree_page_get(tree, reserve.take(), lower)) return false;
  if (!link_left(tree, old, lower)) return false;
  split_page(tree, old, lower, position, item, separator);
  return btree_page_write(*tree.index, lower) && btree_page_write(*tree.index, old);
}

bool split_root(const Tree &tree, Page &root, int position, const Item &item, Reserve &reserve) {
  Page lower, upper;
  if (!tree_page_get(tree, reserve.take(), lower) || !tree_page_get(tree, reserve.take(), upper))
    return false;
  const BtreeItemKind &kind = tree_kind(tree, root.data());
  const uint32_t upper_block = static_cast<uint32_t>(upper.block());
  memcpy(upper.data() + bpage::rightmost, root.data() + bpage::rightmost,
         bpage::items - bpage::rightmost + items_size(kind, kind.per_page));
  Separator separator;
  split_page(tree, upper, lower, position, item, separator);
  bpage::set_link(lower.data(), bpage::right, upper_block);
  bpage::set_link(upper.data(), bpage::left, static_cast<uint32_t>(lower.block()));
  bpage::set_item_count(root.data(), 0);
  bpage::set_link(root.data(), bpage::rightmost, upper_block);
  item_insert(root.data(), *tree.node, 0, separator.item());
  return btree_page_write(*tree.index, lower) && btree_page_write(*tree.index, upper) &&
         btree_page_write(*tree.index, root);
}

// Inserts and splits upwards, with the pages that this takes at hand.
bool insert_upwards(const Tree &tree, const TreePath &path, Page &page, Item item, Reserve &reserve) {
  Separator separator;
  for (int level = path.depth - 1;; --level) {
    const TreeStep &step = path.steps[level];
    if (!step.full) {
      item_insert(page.data(), tree_kind(tree, page.data()), step.position, item);
      return btree_page_write(*tree.index, page);
    }
    if (level == 0)
      return split_root(tree, page, step.position, item, reserve) || fail(status::btree_root_split);
    if (!split_inner(tree, page, step.position, item, reserve, separator)) return fail(status::btree_split);
    item = separator.item();
    if (!tree_step_get(tree, path.steps[level - 1], page)) return fail(status::btree_split);
  }
}

}  // namespace

bool tree_insert(const Tree &tree, const TreePath &path, Page &leaf, const uint8_t *value,
                 const uint8_t *key) {
  Page page = std::move(leaf);
  Reserve reserve;
  if (!reserve_pages(tree, path, reserve)) return false;
  if (insert_upwards(tree, path, page, {value, key}, reserve)) return true;
  data_torn(*tree.index->sm);
  return false;
}

BtreeInsert btree_insert(Btree &index, const uint8_t *key, const void *value) {
  const Tree tree = tree_master(index);
  TreePath path;
  Page leaf;
  uint8_t row[btree_row_value_limit];
  const uint8_t *bytes = btree_take_value(index, value, row);
  if (bytes == nullptr || !tree_descend(tree, {key, index.definition.part_count, Tie::hit}, path, leaf))
    return BtreeInsert::failed;
  bool done;
  if (path.hit) {
    if (btree_is_unique(index)) return btree_page_release(leaf) ? BtreeInsert::exists : BtreeInsert::failed;
    done = values_add(index, bpage::item(leaf.data(), *tree.leaf, path.position()), bytes) &&
           item_rewrite(index, leaf);
  } else if (btree_is_unique(index)) {
    done = tree_insert(tree, path, leaf, bytes, key);
  } else {
    uint8_t part[bvalues::slots + btree_slot_limit * btree_row_value_limit];
    done = values_build(index, bytes, part);
    if (done && !tree_insert(tree, path, leaf, part, key)) {
      const uint32_t root = load_u32(part + bvalues::root);
      if (root != 0) (void)btree_page_free(index, root);
      done = false;
    }
  }
  return done ? BtreeInsert::inserted : BtreeInsert::failed;
}

}  // namespace tovik
