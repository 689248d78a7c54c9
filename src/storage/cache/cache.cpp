// Invariants
//   1. Every page is on the list of all pages. A page with page_in_use is in one hash chain and in the
//      recency ring; any other is on the release list and in neither.
//   2. At most one page of a cache holds a given block.
//   3. lock_count is the sum of the reference counts, dirty_count the number of dirty pages. A page with a
//      reference is never evicted.
//   4. A page in use holds the content that its block has for the cache's reader: a page whose read failed
//      leaves the cache at once.
//   5. tran_block is 0, or the block to which the innermost level's map sends this page's block. It is always
//      0 in the DAT cache.
//   6. While a transaction is open the DAT cache has no dirty page and no changed header, so a page of home
//      equals its block on disk and spares the TRN cache a read.
//   7. Counters and free list come from disk. fcnt is 0 exactly when flst is 0; flst and every link lie
//      between 1 and bcnt. What breaks this ends in a status before a counter changes. The first four bytes
//      of a free block are its link, so its page is written like any other.
//
// Cost: cm_get_page on a cached block is one chain walk (hash size about the page count, so one or two
// steps), at most one move in the ring and two counters; nothing is allocated and no clock or lock is
// touched. A miss adds one read, and one write when the victim is dirty.

#include "storage/cache/cache.h"

#include "frame/env.h"
#include "frame/error.h"

namespace tovik {
namespace {

// The recency ring and the hash chains.

void ring_insert_newest(CacheManager &cm, CachePage *page) {
  if (cm.mru == nullptr) {
    page->newer = page->older = page;
  } else {
    page->older = cm.mru;
    page->newer = cm.mru->newer;
    page->newer->older = page;
    cm.mru->newer = page;
  }
  cm.mru = page;
}

void ring_insert_after(CachePage *page, CachePage *newer) {
  page->newer = newer;
  page->older = newer->older;
  page->older->newer = page;
  newer->older = page;
}

void ring_remove(CacheManager &cm, CachePage *page) {
  if (page->older == page) {
    cm.mru = nullptr;
  } else {
    page->older->newer = page->newer;
    page->newer->older = page->older;
    if (cm.mru == page) cm.mru = page->older;
  }
  page->newer = page->older = page;
}

void ring_touch(CacheManager &cm, CachePage *page) {
  if (cm.mru == page) return;
  if (cm.mru->newer == page) {
    cm.mru = page;  // the oldest stands in front of the newest: turning the ring is enough
    return;
  }
  ring_remove(cm, page);
  ring_insert_newest(cm, page);
}

CachePage *&chain_of(CacheManager &cm, BlockNo block) {
  return cm.hash[block & (cm.hash_size - 1)];
}

void chain_insert(CacheManager &cm, CachePage *page) {
  CachePage *&head = chain_of(cm, page->block);
  page->hash_previous = nullptr;
  page->hash_next = head;
  if (head != nullptr) head->hash_previous = page;
  head = page;
}

void chain_remove(CacheManager &cm, CachePage *page) {
  if (page->hash_next != nullptr) page->hash_next->hash_previous = page->hash_previous;
  if (page->hash_previous != nullptr)
    page->hash_previous->hash_next = page->hash_next;
  else
    chain_of(cm, page->block) = page->hash_next;
  page->hash_previous = page->hash_next = nullptr;
}

void mark_dirty(CacheManager &cm, CachePage *page) {
  if ((page->status & page_dirty) == 0) ++cm.dirty_count;
  page->status |= page_dirty;
}

void mark_clean(CacheManager &cm, CachePage *page) {
  if ((page->status & page_dirty) != 0) --cm.dirty_count;
  page->status &= static_cast<uint16_t>(~page_dirty);
}

// Moves a page in use to the release list.
void retire(CacheManager &cm, CachePage *page) {
  mark_clean(cm, page);
  chain_remove(cm, page);
  ring_remove(cm, page);
  cm.lock_count -= page->references;
  page->block = 0;
  page->references = 0;
  page->tran_block = 0;
  page->status = 0;
  page->release_next = cm.released;
  cm.released = page;
  ++cm.release_count;
}

int32_t pages_in_use(const CacheManager &cm) {
  return cm.cur_count - cm.release_count;
}

// Calls visit for every page in use, least recent first; visit may retire the page it is given.
template <class Visit>
bool for_each_page(CacheManager &cm, Visit visit) {
  CachePage *page = cm.mru == nullptr ? nullptr : cm.mru->newer;
  for (int32_t left = pages_in_use(cm); left > 0; --left) {
    CachePage *next = page->newer;
    if (!visit(page)) return false;
    page = next;
  }
  return true;
}

void hold(CacheManager &cm, CachePage *page) {
  ++page->references;
  ++cm.lock_count;
}

void unhold(CacheManager &cm, CachePage *page) {
  --page->references;
  --cm.lock_count;
}

// Transfers.

bool read_page(CacheManager &cm, CachePage *page, ShadowMap *shadows) {
  uint8_t *data = page_data(page);
  if (shadows == nullptr)
    return bm_read_block(*cm.bm, cm.part, page->block, data) || fail(status::cache_read);
  if (const BlockNo shadow = shadow_find(*shadows, page->block); shadow != 0)
    return bm_read_block(*cm.bm, part_trn, shadow, data) || fail(status::cache_read);
  CachePage *home = cm.home == nullptr ? nullptr : cm_find(*cm.home, page->block);
  if (home != nullptr && (home->status & page_dirty) == 0) {  // invariant 6
    memcpy(data, page_data(home), static_cast<size_t>(bm_block_size(*cm.bm)));
    return true;
  }
  return bm_read_block(*cm.bm, part_dat, page->block, data) || fail(status::cache_read);
}

// Settles where the page's changes go: the block that the level's map has for it, one that an ended level
// left, or the next of the part.
bool assign_shadow(CacheManager &cm, CachePage *page, ShadowMap &shadows) {
  page->tran_block = shadow_find_level(shadows, page->block);
  if (page->tran_block != 0) return true;
  Counters &trn = bm_counters(*cm.bm, part_trn);
  Array<BlockNo> &left = shadows.left_blocks;
  const BlockNo next = trn.bcnt == INT32_MAX ? 0 : trn.bcnt + 1;
  const BlockNo shadow = left.empty() ? next : left.back();
  if (!bm_block_valid(*cm.bm, part_trn, shadow)) return fail_at_block(status::storage_size_limit, shadow);
  if (!shadow_add(shadows, page->block, shadow)) return fail(status::cache_map_add);
  if (shadow == next)
    trn.bcnt = shadow;
  else
    left.pop();
  page->tran_block = shadow;
  return true;
}

// Writes the page if it is dirty. A page that could not be written stays dirty.
bool write_page(CacheManager &cm, CachePage *page, ShadowMap *shadows) {
  if ((page->status & page_dirty) == 0) return true;
  BlockNo target = page->block;
  if (shadows != nullptr) {
    if (!shadows->before_write(*shadows)) return fail(status::cache_write);
    if (page->tran_block == 0 && !assign_shadow(cm, page, *shadows)) return false;
    target = page->tran_block;
  }
  if (!bm_write_block(*cm.bm, cm.part, target, page_data(page))) return fail(status::cache_write);
  mark_clean(cm, page);
  return true;
}

bool write_header(CacheManager &cm, ShadowMap *shadows) {
  if (cm.part != part_dat || shadows != nullptr || (cm.state & cache_header_changed) == 0) return true;
  if (!bm_write_header(*cm.bm, part_dat)) return fail(status::cache_write_header);
  cm.state &= ~cache_header_changed;
  return true;
}

bool writes_through(const CacheManager &cm, const ShadowMap *shadows) {
  return shadows == nullptr && (cm.mode & cache_immediate_write) != 0;
}

bool write_through(CacheManager &cm, CachePage *page) {
  if (!write_page(cm, page, nullptr)) return fail(status::cache_write_page);
  return write_header(cm, nullptr);
}

// Lookup and replacement.

CachePage *allocate_page(CacheManager &cm) {
  void *memory = mem_alloc(sizeof(CachePage) + static_cast<size_t>(bm_block_size(*cm.bm)));
  if (memory == nullptr) return fail_null(status::out_of_memory);
  CachePage *page = ::new (memory) CachePage();
  page->magic = page_magic;
  page->newer = page->older = page;
  page->cache = &cm;
  page->all_next = cm.all;
  cm.all = page;
  ++cm.cur_count;
  return page;
}

CachePage *least_recent_unheld(const CacheManager &cm) {
  if (cm.mru == nullptr) return nullptr;
  CachePage *page = cm.mru;
  do {
    page = page->newer;
    if (page->references == 0) return page;
  } while (page != cm.mru);
  return nullptr;
}

CachePage *evict(CacheManager &cm, ShadowMap *shadows) {
  CachePage *victim = nullptr;
  for (int32_t scan = 0; victim == nullptr && scan < cm.retry_count; ++scan) {
    victim = least_recent_unheld(cm);
    if (victim == nullptr) system_driver.sleep_ms(cm.retry_sleep);
  }
  if (victim == nullptr) return fail_null(status::cache_full);
  if (!write_page(cm, victim, shadows) || !write_header(cm, shadows)) return nullptr;
  retire(cm, victim);
  return victim;
}

// A page that holds no block and is on no list but that of all pages.
CachePage *take_page(CacheManager &cm, ShadowMap *shadows) {
  if (cm.released == nullptr) {
    if (cm.cur_count < cm.max_count) return allocate_page(cm);
    if (evict(cm, shadows) == nullptr) return nullptr;
  }
  CachePage *page = cm.released;
  cm.released = page->release_next;
  page->release_next = nullptr;
  --cm.release_count;
  return page;
}

void adopt_block(CacheManager &cm, CachePage *page, BlockNo block) {
  page->block = block;
  page->tran_block = 0;
  page->references = 0;
  page->status = page_in_use;
  chain_insert(cm, page);
}

// The page of block, most recent from now on; not read when *hit is false. Null with the cause recorded.
CachePage *lookup(CacheManager &cm, BlockNo block, ShadowMap *shadows, bool *hit) {
  CachePage *page = cm_find(cm, block);
  *hit = page != nullptr;
  if (*hit) {
    ring_touch(cm, page);
    return page;
  }
  page = take_page(cm, shadows);
  if (page == nullptr) return nullptr;
  adopt_block(cm, page, block);
  ring_insert_newest(cm, page);
  return page;
}

// The same with the block's content.
CachePage *fetch(CacheManager &cm, BlockNo block, ShadowMap *shadows) {
  bool hit;
  CachePage *page = lookup(cm, block, shadows, &hit);
  if (page == nullptr) return fail_null(status::cache_get_page);
  if (!hit && !read_page(cm, page, shadows)) {
    retire(cm, page);  // invariant 4
    (void)fail_at_block(status::cache_read_page, block);
    return nullptr;
  }
  return page;
}

// Allocation.

Counters *counters_in_use(CacheManager &cm, ShadowMap *shadows) {
  if (shadows == nullptr) return &bm_counters(*cm.bm, cm.part);
  return shadows->level > 0 ? &shadow_counters(*shadows) : nullptr;
}

bool counters_agree(const Counters &counters) {
  return counters.bcnt >= 0 && counters.fcnt >= 0 && counters.fcnt <= counters.bcnt &&
         (counters.fcnt == 0) == (counters.flst == 0);
}

// May block be on the free list? A transaction's blocks are those of the DAT part.
bool block_in_part(const CacheManager &cm, const Counters &counters, BlockNo block) {
  return block >= 1 && block <= counters.bcnt && bm_block_valid(*cm.bm, part_dat, block);
}

CachePage *page_past_end(CacheManager &cm, ShadowMap *shadows, Counters *counters) {
  if (counters->bcnt >= INT32_MAX - 1 || !bm_block_valid(*cm.bm, part_dat, counters->bcnt + 1))
    return fail_null(status::cache_argument);
  ++counters->bcnt;
  bool hit;
  CachePage *page = lookup(cm, counters->bcnt, shadows, &hit);
  if (page == nullptr) return fail_null(status::cache_get_page);
  return page;
}

CachePage *page_from_free_list(CacheManager &cm, ShadowMap *shadows, Counters *counters) {
  const BlockNo block = counters->flst;
  if (!block_in_part(cm, *counters, block)) return fail_null(status::cache_free_list);
  CachePage *page = fetch(cm, block, shadows);
  if (page == nullptr) return nullptr;
  if (page->references != 0) return fail_null(status::cache_free_list);
  const BlockNo link = counters->fcnt == 1 ? 0 : load_i32(page_data(page));
  if (counters->fcnt > 1 && link == 0) return fail_null(status::cache_argument);
  if (link != 0 && (link == block || !block_in_part(cm, *counters, link)))
    return fail_null(status::cache_free_list);
  counters->flst = link;
  --counters->fcnt;
  return page;
}

// A page just taken could not be written through: its block goes back to where it came from.
void give_back(CacheManager &cm, CachePage *page, Counters *counters, const Counters &before, BlockNo link) {
  *counters = before;
  unhold(cm, page);
  if (before.fcnt == 0)
    retire(cm, page);
  else
    store_i32(page_data(page), link);
}

void header_changed(CacheManager &cm, const ShadowMap *shadows) {
  if (shadows == nullptr) cm.state |= cache_header_changed;
}

}  // namespace

CacheManager *cm_create(BlockManager &bm, const Params &params, PartNo part) {
  CacheManager *cm = mem_new<CacheManager>();
  if (cm == nullptr) return fail_null(status::out_of_memory);
  if (bm_temporary(bm)) {
    cm->max_count = env_number(Env::cache_size_tmp);
    cm->hash_size = env_number(Env::hash_size_tmp);
  } else {
    cm->max_count = part == part_dat ? params.cache_size_dat : params.cache_size_trn;
    cm->hash_size = part == part_dat ? params.hash_size_dat : params.hash_size_trn;
  }
  cm->retry_count = params.cache_retry;
  cm->retry_sleep = params.cache_sleep > 0 ? params.cache_sleep : 0;
  cm->part = part;
  if (part == part_dat && params.immediate_write) cm->mode |= cache_immediate_write;
  cm->bm = &bm;
  if (cm->max_count >= 1 && cm->hash_size >= 1) {
    const size_t size = sizeof(CachePage *) * static_cast<size_t>(cm->hash_size);
    cm->hash = static_cast<CachePage **>(mem_alloc(size));
    if (cm->hash != nullptr) {
      memset(cm->hash, 0, size);
      return cm;
    }
    err_set(status::out_of_memory);
  }
  mem_delete(cm);
  return fail_null(status::cache_argument);
}

void cm_destroy(CacheManager *cm) {
  if (cm == nullptr) return;
  (void)cm_clear(*cm, cm->part == part_dat && !bm_temporary(*cm->bm));
  mem_free(cm->hash);
  mem_delete(cm);
}

CachePage *cm_find(CacheManager &cm, BlockNo block) {
  CachePage *page = chain_of(cm, block);
  while (page != nullptr && page->block != block) page = page->hash_next;
  return page;
}

CachePage *cm_check(uint8_t *data) {
  if (data == nullptr) return fail_null(status::cache_argument);
  CachePage *page = reinterpret_cast<CachePage *>(data) - 1;
  if (page->magic != page_magic) return fail_null(status::cache_page_magic);
  if (page->cache == nullptr) return fail_null(status::cache_page_orphan);
  return page;
}

bool cm_get_page(CacheManager &cm, BlockNo block, ShadowMap *shadows, uint8_t **data) {
  const Counters *counters = counters_in_use(cm, shadows);
  if (counters == nullptr) return fail(status::cache_no_counters);
  if (block < 1 || block > counters->bcnt)
    return fail_at_block(status::cache_block_no, block, counters->bcnt);
  CachePage *page = fetch(cm, block, shadows);
  if (page == nullptr) return false;
  hold(cm, page);
  *data = page_data(page);
  return true;
}

bool cm_new_page(CacheManager &cm, ShadowMap *shadows, BlockNo *block, uint8_t **data) {
  Counters *counters = counters_in_use(cm, shadows);
  if (counters == nullptr) return fail(status::cache_no_counters);
  if (!counters_agree(*counters)) return fail(status::cache_argument);
  const Counters before = *counters;
  Counters after = before;
  CachePage *page =
      before.fcnt == 0 ? page_past_end(cm, shadows, &after) : page_from_free_list(cm, shadows, &after);
  if (page == nullptr) return false;
  const BlockNo link = before.fcnt == 0 ? 0 : load_i32(page_data(page));
  memset(page_data(page), 0, static_cast<size_t>(bm_block_size(*cm.bm)));
  mark_dirty(cm, page);
  *counters = after;
  hold(cm, page);
  header_changed(cm, shadows);
  if (writes_through(cm, shadows) && !write_through(cm, page)) {
    mark_dirty(cm, page);
    give_back(cm, page, counters, before, link);
    return false;
  }
  *block = page->block;
  *data = page_data(page);
  return true;
}

bool cm_release(uint8_t *data) {
  CachePage *page = cm_check(data);
  if (page == nullptr) return false;
  if (page->references < 1) return fail(status::cache_release_unreferenced);
  unhold(*page->cache, page);
  return true;
}

bool cm_release_write(uint8_t *data, ShadowMap *shadows) {
  CachePage *page = cm_check(data);
  if (page == nullptr) return false;
  if (page->references < 1) return fail(status::cache_write_unreferenced);
  CacheManager &cm = *page->cache;
  mark_dirty(cm, page);
  const bool written = !writes_through(cm, shadows) || write_through(cm, page);
  unhold(cm, page);
  return written;
}

bool cm_delete_page(uint8_t *data, ShadowMap *shadows) {
  CachePage *page = cm_check(data);
  if (page == nullptr) return false;
  CacheManager &cm = *page->cache;
  Counters *counters = counters_in_use(cm, shadows);
  if (counters == nullptr) return fail(status::cache_no_counters);
  if (page->references != 1) return fail(status::cache_delete_referenced);
  if (!counters_agree(*counters) || counters->fcnt == counters->bcnt) return fail(status::cache_free_list);
  unhold(cm, page);
  memset(data, 0, static_cast<size_t>(bm_block_size(*cm.bm)));
  store_i32(data, counters->flst);
  counters->flst = page->block;
  ++counters->fcnt;
  mark_dirty(cm, page);
  header_changed(cm, shadows);
  if (!writes_through(cm, shadows)) return true;
  if (!write_page(cm, page, shadows)) return fail(status::cache_write_page);
  retire(cm, page);
  return write_header(cm, shadows);
}

bool cm_free_chain(CacheManager &cm, BlockNo head, BlockNo tail, int32_t count, ShadowMap *shadows) {
  Counters *counters = counters_in_use(cm, shadows);
  if (counters == nullptr) return fail(status::cache_no_counters);
  if (!counters_agree(*counters) || count < 1 || count > counters->bcnt - counters->fcnt ||
      !block_in_part(cm, *counters, head) || !block_in_part(cm, *counters, tail))
    return fail(status::cache_argument);
  CachePage *page = fetch(cm, tail, shadows);
  if (page == nullptr) return fail(status::cache_get_page);
  store_i32(page_data(page), counters->flst);
  counters->flst = head;
  counters->fcnt += count;
  mark_dirty(cm, page);
  header_changed(cm, shadows);
  return !writes_through(cm, shadows) || write_through(cm, page);
}

bool cm_flush(CacheManager &cm, ShadowMap *shadows) {
  const bool written = cm.dirty_count == 0 || for_each_page(cm, [&](CachePage *page) {
                         return write_page(cm, page, shadows) || fail(status::cache_write_page);
                       });
  return written && write_header(cm, shadows);
}

void cm_drop(CacheManager &cm) {
  for_each_page(cm, [&](CachePage *page) {
    retire(cm, page);
    return true;
  });
}

void cm_drop_block(CacheManager &cm, BlockNo block) {
  CachePage *page = cm_find(cm, block);
  if (page != nullptr) retire(cm, page);
}

void cm_forget_shadows(CacheManager &cm) {
  for_each_page(cm, [](CachePage *page) {
    page->tran_block = 0;
    return true;
  });
}

bool cm_clear(CacheManager &cm, bool write) {
  const bool written = !write || cm_flush(cm, nullptr);
  while (cm.all != nullptr) {
    CachePage *page = cm.all;
    cm.all = page->all_next;
    mem_delete(page);
  }
  cm.mru = nullptr;
  cm.released = nullptr;
  cm.cur_count = cm.lock_count = cm.release_count = cm.dirty_count = 0;
  memset(cm.hash, 0, sizeof(CachePage *) * static_cast<size_t>(cm.hash_size));
  return written;
}

void cm_adopt(CacheManager &target, CacheManager &source) {
  int32_t room = target.max_count - pages_in_use(target);
  CachePage *adopted = nullptr;
  CachePage *page = source.mru;
  for (int32_t left = pages_in_use(source); left > 0 && room > 0; --left, page = page->older) {
    if ((page->status & page_dirty) != 0 || cm_find(target, page->block) != nullptr) continue;
    CachePage *copy = take_page(target, nullptr);
    if (copy == nullptr) return;
    adopt_block(target, copy, page->block);
    memcpy(page_data(copy), page_data(page), static_cast<size_t>(bm_block_size(*target.bm)));
    if (adopted == nullptr)
      ring_insert_newest(target, copy);
    else
      ring_insert_after(copy, adopted);
    adopted = copy;
    --room;
  }
}

}  // namespace tovik
