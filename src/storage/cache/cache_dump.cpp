// The cache listing of the dump statement.

#include "frame/dump.h"
#include "storage/cache/cache.h"

namespace tovik {
namespace {

template <class Count>
void line(const char *label, Count value) {
  print_line(" %-25s: %d", label, static_cast<int>(value));
}

int list_length(const CachePage *head, CachePage *CachePage::*next) {
  int length = 0;
  for (const CachePage *page = head; page != nullptr; page = page->*next) ++length;
  return length;
}

int active_pages(const CacheManager &cm) {
  int count = 0;
  for (const CachePage *page = cm.all; page != nullptr; page = page->all_next)
    if ((page->status & page_in_use) != 0) ++count;
  return count;
}

int ring_length(const CacheManager &cm) {
  if (cm.mru == nullptr) return 0;
  int length = 1;
  for (const CachePage *page = cm.mru->older; page != cm.mru; page = page->older) ++length;
  return length;
}

// The groups that pages could be tagged with are not used: all are of group 0.
void page_lines(const CacheManager &cm) {
  const CachePage *page = cm.mru;
  for (int position = 1; page != nullptr; ++position) {
    print_line("%d:m[0x%x]s[%d]c[%d]b[%d]t[%d]g[0]", position, page->magic, page->status, page->references,
               page->block, page->tran_block);
    page = page->older == cm.mru ? nullptr : page->older;
  }
}

}  // namespace

void cm_dump(CacheManager &cm, const char *title) {
  print_line("%s", title);
  print_line("[Cache Manager : paramater ]");
  line("cache max count", cm.max_count);
  line("hash table size", cm.hash_size);
  line("wait retry count", cm.retry_count);
  line("wait sleep count", cm.retry_sleep);
  print_line(" cache mode               : 0x%x", cm.mode);
  line("storage area", cm.part);
  print_line("[Cache Manager : counter ]");
  line("cache cur count", cm.cur_count);
  line("cache lock count", cm.lock_count);
  line("cache release count", cm.release_count);
  line("cache active count", active_pages(cm));
  line("cache lru/mru list count", ring_length(cm));
  line("cache release list count", list_length(cm.released, &CachePage::release_next));
  line("cache list count", list_length(cm.all, &CachePage::all_next));
  print_line("[Cache Manager : current information ]");
  print_line(" statue                   : 0x%lx", static_cast<unsigned long>(cm.state));
  print_line("[Cache Manager : page - mru]");
  page_lines(cm);
}

}  // namespace tovik
