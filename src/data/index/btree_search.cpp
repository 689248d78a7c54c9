// Descent and search.
//
// Cost of a descent: per level one page fetch, a binary search over keys in their place, one release. The
// comparison is part of the search chosen for the index: integer keys are loaded and compared as integers
// (the stored NULL, the type's minimum, is lowest by itself), any other single part goes through its type's
// comparison, two parts through both. Overflow values compare as byte strings; the usual four bytes are
// compared as one big-endian number.
#include "data/index/btree_tree.h"

namespace tovik {

namespace {

template <class Order>
BtreePosition bisect(const uint8_t *keys, int count, int stride, const Order &order) {
  int low = 0, high = count - 1;
  while (low <= high) {
    const int middle = (low + high) / 2;
    const int sign = order(keys + middle * stride);
    if (sign == 0) return {middle, true};
    if (sign < 0)
      high = middle - 1;
    else
      low = middle + 1;
  }
  return {low, false};
}

template <class T>
int sign_of(T a, T b) {
  return (a > b) - (a < b);
}

int8_t load_int8(const void *at) {
  return *static_cast<const int8_t *>(at);
}
uint32_t load_big_endian(const void *at) {
  const uint8_t *b = static_cast<const uint8_t *>(at);
  return static_cast<uint32_t>(b[0]) << 24 | static_cast<uint32_t>(b[1]) << 16 |
         static_cast<uint32_t>(b[2]) << 8 | static_cast<uint32_t>(b[3]);
}

template <auto load>
BtreePosition search_number(const Btree &, const uint8_t *keys, int count, int stride, const uint8_t *key) {
  const auto wanted = load(key);
  return bisect(keys, count, stride, [&](const uint8_t *at) { return sign_of(wanted, load(at)); });
}

BtreePosition search_part(const Btree &index, const uint8_t *keys, int count, int stride,
                          const uint8_t *key) {
  const StoredCompare compare = index.compare[0];
  const int size = index.definition.parts[0].size;
  return bisect(keys, count, stride, [&](const uint8_t *at) { return compare(key, at, size); });
}

BtreePosition search_pair(const Btree &index, const uint8_t *keys, int count, int stride,
                          const uint8_t *key) {
  return bisect(keys, count, stride,
                [&](const uint8_t *at) { return btree_key_compare(index, key, at, btree_part_limit); });
}

BtreePosition search_bytes(const Btree &index, const uint8_t *keys, int count, int stride,
                           const uint8_t *key) {
  const size_t size = static_cast<size_t>(index.definition.value_size);
  return bisect(keys, count, stride, [&](const uint8_t *at) { return memcmp(key, at, size); });
}

BtreeSearch key_search(const BtreeDefinition &definition) {
  if (definition.part_count != 1) return search_pair;
  switch (definition.parts[0].type) {
    case type::tinyint:
      return search_number<load_int8>;
    case type::smallint:
      return search_number<load_i16>;
    case type::int32:
      return search_number<load_i32>;
    case type::bigint:
      return search_number<load_i64>;
    default:
      return search_part;
  }
}

// Never a hit: equal keys count as below or above the wanted place.
BtreePosition search_bound(const Btree &index, const uint8_t *keys, int count, int stride,
                           const TreeSeek &seek) {
  const int at_tie = seek.tie == Tie::before ? -1 : 1;
  return bisect(keys, count, stride, [&](const uint8_t *at) {
    const int sign = btree_key_compare(index, seek.key, at, seek.part_count);
    return sign != 0 ? sign : at_tie;
  });
}

BtreePosition page_position(const Tree &tree, uint8_t *page, const BtreeItemKind &kind,
                            const TreeSeek &seek) {
  if (seek.key == nullptr) return {0, false};
  const uint8_t *keys = bpage::key(page, kind, 0);
  const int count = bpage::item_count(page);
  if (seek.tie == Tie::hit) return tree.search(*tree.index, keys, count, kind.item_size, seek.key);
  return search_bound(*tree.index, keys, count, kind.item_size, seek);
}

}  // namespace

void btree_choose_search(Btree &index) {
  index.search_master = key_search(index.definition);
  index.search_overflow = index.definition.value_size == 4 ? search_number<load_big_endian> : search_bytes;
}

int btree_key_compare(const Btree &index, const uint8_t *a, const uint8_t *b, int part_count) {
  const int size = index.definition.parts[0].size;
  const int sign = index.compare[0](a, b, size);
  if (sign != 0 || part_count == 1) return sign;
  return index.compare[1](a + size, b + size, index.definition.parts[1].size);
}

BtreePosition btree_value_position(const Btree &index, const uint8_t *values, int count,
                                   const uint8_t *value) {
  return index.search_overflow(index, values, count, index.definition.value_size, value);
}

Tree tree_master(Btree &index) {
  return {.index = &index,
          .leaf = &index.master_leaf,
          .node = &index.master_node,
          .search = index.search_master,
          .root = index.root,
          .split_ratio = index.sm->params->btree_split_ratio,
          .fill_at_end = (index.definition.flags & btree_timeseries) != 0};
}

Tree tree_overflow(Btree &index, uint32_t root) {
  return {.index = &index,
          .leaf = &index.overflow_leaf,
          .node = &index.overflow_node,
          .search = index.search_overflow,
          .root = root,
          .split_ratio = index.sm->params->btree_split_overflow,
          .fill_at_end = true};
}

bool tree_page_get(const Tree &tree, uint32_t block, Page &page) {
  if (!btree_page_get(*tree.index, block, page)) return false;
  if (bpage::sound(page.data(), *tree.leaf, *tree.node)) return true;
  (void)btree_page_release(page);
  return fail(status::btree_page_fetch);
}

bool tree_descend(const Tree &tree, const TreeSeek &seek, TreePath &path, Page &leaf) {
  uint32_t block = tree.root;
  path.depth = 0;
  while (path.depth < btree_depth_limit) {
    if (!tree_page_get(tree, block, leaf)) return false;
    uint8_t *page = leaf.data();
    const BtreeItemKind &kind = tree_kind(tree, page);
    const BtreePosition found = page_position(tree, page, kind, seek);
    path.steps[path.depth++] = {block, found.item, bpage::item_count(page) == kind.per_page};
    if (bpage::is_leaf(page)) {
      path.hit = found.hit;
      return true;
    }
    block = bpage::child(page, kind, found.item);
    if (!btree_page_release(leaf)) return false;
  }
  return fail(status::btree_depth);
}

bool tree_step_get(const Tree &tree, const TreeStep &step, Page &page) {
  if (!tree_page_get(tree, step.page, page)) return false;
  const int count = bpage::item_count(page.data());
  if (!bpage::is_leaf(page.data()) && step.position <= count && (count == tree.node->per_page) == step.full)
    return true;
  return fail(status::btree_page_fetch);
}

Found tree_next_leaf(const Tree &tree, Page &leaf, uint32_t &pages_left) {
  const uint32_t block = static_cast<uint32_t>(leaf.block());
  const uint32_t next = bpage::link(leaf.data(), bpage::right);
  if (!btree_page_release(leaf)) return Found::failed;
  if (next == 0) return Found::no;
  if (pages_left == 0) return fail_found(status::btree_page_fetch);
  --pages_left;
  if (!tree_page_get(tree, next, leaf)) return Found::failed;
  if (bpage::is_leaf(leaf.data()) && bpage::link(leaf.data(), bpage::left) == block) return Found::yes;
  (void)btree_page_release(leaf);
  return fail_found(status::btree_page_fetch);
}

namespace {

// Descends to the key; yes leaves the leaf held and *item in it.
Found find_item(Btree &index, const uint8_t *key, Page &leaf, uint8_t **item) {
  const Tree tree = tree_master(index);
  TreePath path;
  if (!tree_descend(tree, {key, index.definition.part_count, Tie::hit}, path, leaf)) return Found::failed;
  if (!path.hit) return btree_page_release(leaf) ? Found::no : Found::failed;
  *item = bpage::item(leaf.data(), *tree.leaf, path.position());
  return Found::yes;
}

}  // namespace

Found btree_search(Btree &index, const uint8_t *key, RowSet *rows) {
  Page leaf;
  uint8_t *item;
  const Found found = find_item(index, key, leaf, &item);
  if (found != Found::yes) return found;
  if (rows != nullptr && !item_collect(index, item, *rows)) return Found::failed;
  return btree_page_release(leaf) ? Found::yes : Found::failed;
}

Found btree_find_value(Btree &index, const uint8_t *key, void *value) {
  if (!btree_is_unique(index)) return fail_found(status::btree_not_unique);
  Page leaf;
  uint8_t *item;
  const Found found = find_item(index, key, leaf, &item);
  if (found != Found::yes) return found;
  btree_give_value(index, item, value);
  return btree_page_release(leaf) ? Found::yes : Found::failed;
}

}  // namespace tovik
