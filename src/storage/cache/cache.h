// A cache manager: a bounded set of in-memory pages of one part, each holding one block, found through a hash
// table and replaced in least-recently-used order. It also allocates and frees blocks on the counters in use
// and keeps the DAT header up to date.
//
// The TRN cache serves the thread that owns the open transaction: a changed page is written to its shadow
// block in the TRN part, never to its home block. The DAT cache serves everybody else.
//
// Not locked: the storage manager's page interface holds that manager's lock around every call.
#pragma once

#include "storage/cache/shadow_map.h"

namespace tovik {

struct CacheManager;

inline constexpr uint16_t page_magic = 0xABCD;
inline constexpr uint16_t page_dirty = 1;
inline constexpr uint16_t page_in_use = 2;  // holds a block and is in the hash table

// In front of every page's data.
struct alignas(8) CachePage {
  uint16_t magic;
  uint16_t status;
  int32_t references;
  BlockNo block;
  BlockNo tran_block;        // shadow block of this page's changes, 0 = none
  CachePage *newer, *older;  // recency ring
  CachePage *hash_previous, *hash_next;
  CachePage *release_next;
  CachePage *all_next;
  CacheManager *cache;
};

struct CacheManager {
  int32_t max_count, hash_size;
  int32_t retry_count, retry_sleep;  // rescans of a full cache, milliseconds between them
  PartNo part;
  uint32_t mode;  // cache_immediate_write
  int32_t cur_count, lock_count, release_count;
  int32_t dirty_count;  // pages in use that wait to be written
  CachePage **hash;
  CachePage *mru;       // ring head; mru->newer is the least recently used page
  CachePage *all;       // every allocated page, newest first
  CachePage *released;  // pages holding no block
  uint32_t state;       // cache_header_changed
  BlockManager *bm;
  CacheManager *home;  // TRN cache: the DAT cache, whose clean pages spare a read; else null
};

inline constexpr uint32_t cache_immediate_write = 1;
inline constexpr uint32_t cache_header_changed = 1;

// Sizes come from params; those of a temporary database from HVI_CACHE_SIZE_TMP and HVI_HASH_SIZE_TMP. Null
// with 21001 when a size is below 1 or memory is short (1).
CacheManager *cm_create(BlockManager &bm, const Params &params, PartNo part);

// Dirty pages of the DAT cache are written first. Null is ignored.
void cm_destroy(CacheManager *cm);

// shadows is the open transaction for the TRN cache and null for the DAT cache. A page is handed out held;
// its data pointer identifies it. When every page is held, a call sleeps CACHE_RTS milliseconds up to
// CACHE_RTC times and then fails with 21008. Statuses of a page that cannot be had: 21010, 21003 (block not
// between 1 and bcnt), 21014, 21015; 121001 when a shadow block passes the size of the TRN part. cm_new_page:
// 21001 (size of the DAT part reached, counters that disagree), 21002 (damaged free list). A call that fails
// changes no counter.
[[nodiscard]] bool cm_new_page(CacheManager &cm, ShadowMap *shadows, BlockNo *block, uint8_t **data);
[[nodiscard]] bool cm_get_page(CacheManager &cm, BlockNo block, ShadowMap *shadows, uint8_t **data);

// Give back one reference. cm_release_write marks the page dirty; with immediate write it is on disk when the
// call returns, and a failed write (21016, 21018) leaves it dirty, with the reference given back all the
// same.
[[nodiscard]] bool cm_release(uint8_t *data);                            // 21004, 21009, 21006
[[nodiscard]] bool cm_release_write(uint8_t *data, ShadowMap *shadows);  // 21004, 21009, 21005

// Puts the page's block on the free list. The caller's must be the only reference, else 21007 and nothing
// changes.
[[nodiscard]] bool cm_delete_page(uint8_t *data, ShadowMap *shadows);

// Frees count blocks linked from head to tail through their first four bytes. Pages of the chain that are in
// the cache keep their contents: the links in them are part of the free list from now on, so a dirty one
// still has to reach its block. Statuses 21001, 21010, 21014, 21016.
[[nodiscard]] bool cm_free_chain(CacheManager &cm, BlockNo head, BlockNo tail, int32_t count,
                                 ShadowMap *shadows);

// Writes dirty pages, then the DAT header if changed (DAT cache outside a transaction). Statuses 21016,
// 21018.
[[nodiscard]] bool cm_flush(CacheManager &cm, ShadowMap *shadows);

void cm_drop(CacheManager &cm);                             // every page, without writing; nobody holds them
void cm_drop_block(CacheManager &cm, BlockNo block);        // one page, if cached
[[nodiscard]] bool cm_clear(CacheManager &cm, bool write);  // frees every page; write: dirty ones first

CachePage *cm_find(CacheManager &cm, BlockNo block);  // the cached page of block, or null; no recency change
CachePage *cm_check(uint8_t *data);                   // 21004, 21009

inline uint8_t *page_data(CachePage *page) {
  return reinterpret_cast<uint8_t *>(page + 1);
}

// An inner level opens: clean pages stay, but their next change goes to a shadow block of that level.
void cm_forget_shadows(CacheManager &cm);

// Copies source's clean pages, most recent first, into target while it has room without evicting. Blocks that
// target already holds are left out.
void cm_adopt(CacheManager &target, CacheManager &source);

void cm_dump(CacheManager &cm, const char *title);  // inside the storage manager's lock too

}  // namespace tovik
