#include "data/table/catalog_change.h"

namespace tovik {

bool catalog_whole_begin(Catalog &catalog, int *level) {
  const int outer = sm_level(*catalog.storage);
  *level = 0;
  if (outer == 0 || outer == tran_level_limit) return true;
  if (!tm_start(*catalog.storage->tm, current_thread())) return false;
  *level = outer + 1;
  return true;
}

bool catalog_whole_end(Catalog &catalog, int level, bool done) {
  if (level == 0) return done;
  TransactionManager &tm = *catalog.storage->tm;
  const ThreadId thread = current_thread();
  if (done && tm_commit(tm, thread) && tm_apply(tm, thread)) {
    tables_level_merged(catalog, level);
    return true;
  }
  (void)tm_rollback(tm, thread);  // of an inner level: cannot fail
  tables_level_dropped(catalog, level);
  return false;
}

}  // namespace tovik
