// The pages of an index: fetching, releasing, and the allocation chain with its counters.
#include "data/index/btree_tree.h"
#include "data/row/data_systems.h"

namespace tovik {

namespace {

// Changes the link of a neighbour that must lead to block so that it leads to target.
bool redirect(Btree &index, uint32_t neighbour, int field, uint32_t block, uint32_t target) {
  if (neighbour == 0) return true;
  Page page;
  if (!btree_page_get(index, neighbour, page)) return false;
  if (bpage::link(page.data(), field) != block) return fail(status::btree_page_fetch);
  bpage::set_link(page.data(), field, target);
  return btree_page_write(index, page);
}

// Takes block out from between two neighbours.
bool unlink(Btree &index, uint32_t before, uint32_t after, int to_next, int to_previous, uint32_t block) {
  return redirect(index, before, to_next, block, after) && redirect(index, after, to_previous, block, before);
}

}  // namespace

bool btree_page_get(Btree &index, uint32_t block, Page &page) {
  if (block == 0 || !sm_page_get(*index.sm, static_cast<BlockNo>(block), page))
    return fail(status::btree_page_fetch);
  return true;
}

bool btree_page_release(Page &page) {
  return sm_page_release(page) || fail(status::btree_page_release);
}

bool btree_page_write(Btree &index, Page &page) {
  if (sm_page_release_write(page)) return true;
  data_torn(*index.sm);
  return fail(status::btree_page_write);
}

bool btree_page_new(Btree &index, Page &page) {
  const int level = btree_touch(index);
  BtreePages &pages = index.pages[level];
  if (!sm_page_new(*index.sm, page)) return fail(status::btree_new_page);
  const uint32_t block = static_cast<uint32_t>(page.block());
  if (!redirect(index, pages.last, bpage::chain_next, 0, block)) {
    (void)sm_page_delete(page);
    return fail(status::btree_new_page);
  }
  bpage::set_link(page.data(), bpage::chain_previous, pages.last);
  pages.last = block;
  ++pages.count;
  index.pages_changed[level] = true;
  return true;
}

namespace {

bool page_free(Btree &index, Page &page) {
  const int level = btree_touch(index);
  BtreePages &pages = index.pages[level];
  const uint32_t block = static_cast<uint32_t>(page.block());
  const uint32_t previous = bpage::link(page.data(), bpage::chain_previous);
  const uint32_t next = bpage::link(page.data(), bpage::chain_next);
  if ((previous == 0) != (pages.first == block) || (next == 0) != (pages.last == block) || pages.count == 0)
    return fail(status::btree_page_fetch);
  const uint32_t left = bpage::link(page.data(), bpage::left);
  const uint32_t right = bpage::link(page.data(), bpage::right);
  if (!unlink(index, left, right, bpage::right, bpage::left, block)) return false;
  if (!unlink(index, previous, next, bpage::chain_next, bpage::chain_previous, block)) return false;
  if (!sm_page_delete(page)) return fail(status::btree_page_release);
  if (previous == 0) pages.first = next;
  if (next == 0) pages.last = previous;
  --pages.count;
  index.pages_changed[level] = true;
  return true;
}

}  // namespace

bool btree_page_free(Btree &index, Page &page) {
  if (page_free(index, page)) return true;
  data_torn(*index.sm);
  return false;
}

bool btree_page_free(Btree &index, uint32_t block) {
  Page page;
  if (btree_page_get(index, block, page)) return btree_page_free(index, page);
  data_torn(*index.sm);
  return false;
}

}  // namespace tovik
