// Index handles: the two support ROW systems, creating, opening and dropping, and how handles follow
// transaction levels.
//
// Invariants
//   1. At most one handle of a descriptor is visible at a level; a row number that is dropped and given out
//      again in one transaction has two handles, one visible to the owner and one to everybody else.
//   2. While a transaction is open every handle stays on the list, held or not: opening an index anew would
//      take the transaction's counters for committed ones. So does a handle with unwritten counters.
//   3. Counters that differ from their record are marked at their level, and are written before that level's
//      pages (btrees_write_counters).
#include <cassert>

#include "data/index/btree_tree.h"
#include "data/row/data_systems.h"

namespace tovik {

namespace {

// Blocks of the DAT part as the calling thread sees it: no chain is longer.
BlockNo block_count(const StorageManager &sm) {
  return sm_level(sm) > 0 ? shadow_counters(*sm.tm).bcnt : bm_counters(*sm.bm, part_dat).bcnt;
}

// ---- records ----

BtreeName stored_name(const char *name) {
  BtreeName stored = {};
  strncpy(stored.text, name, sizeof stored.text - 1);
  return stored;
}

bool counter_read(const Btree &index, BtreePages *pages) {
  uint8_t record[btree_counter_size];
  if (row_read(*data_systems(*index.sm).index_counters, index.counter_row, record, btree_counter_size) !=
      Found::yes)
    return fail(status::btree_counter_read);
  *pages = btree_counter_decode(record);
  const uint32_t limit = static_cast<uint32_t>(block_count(*index.sm));
  if (pages->first == 0 || pages->last == 0 || pages->count == 0 || pages->count > limit)
    return fail(status::btree_counter_read);
  return true;
}

bool counter_write(Btree &index, int level) {
  uint8_t record[btree_counter_size];
  btree_counter_encode(index.pages[level], record);
  if (!row_update(*data_systems(*index.sm).index_counters, &index.counter_row, record, btree_counter_size))
    return false;
  index.pages_changed[level] = false;
  return true;
}

// Definition and counters from their records into level 0.
bool handle_read(Btree &index) {
  uint8_t record[btree_descriptor_size];
  if (row_read(*data_systems(*index.sm).index_descriptors, index.number, record, btree_descriptor_size) !=
      Found::yes)
    return fail(status::btree_open);
  if (!btree_descriptor_decode(record, bm_block_size(*index.sm->bm), index)) return fail(status::btree_open);
  BtreePages pages;
  if (!counter_read(index, &pages)) return false;
  index.pages[0] = pages;
  index.pages_changed[0] = false;
  return true;
}

bool same_tree(const Btree &a, const Btree &b) {
  return a.root == b.root && a.counter_row == b.counter_row && a.definition.flags == b.definition.flags &&
         a.definition.master_count == b.definition.master_count &&
         a.definition.value_size == b.definition.value_size &&
         a.definition.part_count == b.definition.part_count &&
         memcmp(a.definition.parts, b.definition.parts, sizeof(a.definition.parts)) == 0;
}

// ---- the list ----

bool unwritten(const Btree &index) {
  return index.pages_changed[0];
}

void list_sweep(StorageManager &sm) {
  data_systems(sm).btrees.sweep(data_systems(sm).open_levels, unwritten);
}

// ---- creation ----

// Gives the definition its normal form; the statuses of the caller's mistakes.
bool definition_normalise(BtreeDefinition &definition) {
  if (definition.part_count < 1 || definition.part_count > btree_part_limit)
    return fail(status::btree_key_parts);
  if ((definition.flags & btree_unique) != 0)
    definition.master_count = 1;
  else if (definition.master_count < 0 || definition.master_count > btree_slot_limit)
    return fail(status::btree_master_count);
  if ((definition.flags & btree_payload) != 0)
    return definition.value_size >= 1 || fail(status::btree_value_size);
  if (definition.value_size < 1 || definition.value_size > btree_row_value_limit)
    definition.value_size = btree_row_value_limit;
  return true;
}

// Root page, page-counter record and descriptor. What a failure leaves behind is taken back.
bool storage_create(Btree &index) {
  DataSystems &systems = data_systems(*index.sm);
  Page root;
  if (!sm_page_new(*index.sm, root)) return fail(status::btree_new_page);
  index.root = static_cast<uint32_t>(root.block());
  index.pages[0] = {index.root, index.root, 1};
  uint8_t record[btree_descriptor_size];
  btree_counter_encode(index.pages[0], record);
  if (!row_insert(*systems.index_counters, record, btree_counter_size, &index.counter_row)) {
    (void)sm_page_delete(root);
    return fail(status::btree_counter_create);
  }
  btree_descriptor_encode(index, index.table_names[0].text, record);
  if (!row_insert(*systems.index_descriptors, record, btree_descriptor_size, &index.number)) {
    (void)row_delete(*systems.index_counters, index.counter_row);
    (void)sm_page_delete(root);
    return fail(status::btree_create);
  }
  return btree_page_write(index, root);
}

// The pages, linked backwards through their first four bytes as the free list wants them.
bool storage_free(Btree &index) {
  const BtreePages &pages = btree_pages(index);
  Page page;
  if (!btree_page_get(index, pages.first, page)) return false;
  const bool starts = bpage::link(page.data(), bpage::chain_previous) == 0;
  if (!btree_page_release(page) || !btree_page_get(index, pages.last, page)) return false;
  const bool ends = bpage::link(page.data(), bpage::chain_next) == 0;
  if (!btree_page_release(page)) return false;
  if (!starts || !ends) return fail(status::btree_page_fetch);
  return sm_chain_free(*index.sm, static_cast<BlockNo>(pages.last), static_cast<BlockNo>(pages.first),
                       static_cast<int32_t>(pages.count));
}

bool support_sizes_fit(const DataSystems &systems) {
  return systems.index_descriptors->row_size == btree_descriptor_size + 1 &&
         systems.index_counters->row_size == btree_counter_size + 1;
}

}  // namespace

// ---- the support rows: the first two systems of the database ----

bool btree_create_system(StorageManager &sm) {
  DataSystems &systems = data_systems(sm);
  systems.index_descriptors = row_system_create(sm, RowKind::fixed, btree_descriptor_size, 0, 0, 0);
  if (systems.index_descriptors == nullptr) return fail(status::btree_system_create);
  systems.index_counters = row_system_create(sm, RowKind::fixed, btree_counter_size, 0, 0, 0);
  if (systems.index_counters == nullptr) return fail(status::btree_system_create);
  return true;
}

bool btree_open_system(StorageManager &sm) {
  DataSystems &systems = data_systems(sm);
  const RowNo first = row_position(*systems.system_rows, RowPosition::first);
  RowNo second;
  if (!row_next_position(*systems.system_rows, first, &second)) return fail(status::btree_support_open);
  systems.index_descriptors = row_system_open(first, sm);
  if (systems.index_descriptors == nullptr) return fail(status::btree_support_open);
  systems.index_counters = row_system_open(second, sm);
  if (systems.index_counters == nullptr) return fail(status::btree_support_open);
  return support_sizes_fit(systems) || fail(status::btree_support_open);
}

// ---- handles ----

Btree *btree_create(StorageManager &sm, const BtreeDefinition &definition, const char *table_name) {
  Btree *index = mem_new<Btree>();
  if (index == nullptr) return fail_null(status::out_of_memory);
  index->sm = &sm;
  index->definition = definition;
  index->table_names[0] = stored_name(table_name);
  bool made = definition_normalise(index->definition);
  if (made && !btree_derive(*index, bm_block_size(*sm.bm))) made = fail(status::btree_create);
  if (!made || !storage_create(*index)) {
    mem_delete(index);
    return nullptr;
  }
  index->state.created_level = static_cast<int8_t>(sm_level(sm));
  const LockGuard guard(sm.lock);
  data_systems(sm).btrees.enter(*index);
  btree_touch(*index);
  return index;
}

Btree *btree_open(StorageManager &sm, RowNo number) {
  const LockGuard guard(sm.lock);
  const int level = sm_level(sm);
  HandleList<Btree> &btrees = data_systems(sm).btrees;
  for (Btree *index = btrees.first; index != nullptr; index = index->next) {
    if (index->number != number || !index->state.visible(level)) continue;
    btrees.hold(*index);
    return index;
  }
  Btree *index = mem_new<Btree>();
  if (index == nullptr) return fail_null(status::out_of_memory);
  index->sm = &sm;
  index->number = number;
  if (!handle_read(*index)) {
    mem_delete(index);
    return nullptr;
  }
  btrees.enter(*index);
  return index;
}

bool btree_drop(Btree *index) {
  StorageManager &sm = *index->sm;
  DataSystems &systems = data_systems(sm);
  if (!storage_free(*index)) return fail(status::btree_counter_drop);
  if (row_delete(*systems.index_counters, index->counter_row) != Found::yes)
    return fail(status::btree_page_counter_drop);
  if (row_delete(*systems.index_descriptors, index->number) != Found::yes)
    return fail(status::btree_descriptor_drop);
  const LockGuard guard(sm.lock);
  index->state.set_dropped(btree_touch(*index));
  btree_close(index);
  return true;
}

void btree_close(Btree *index) {
  if (index == nullptr) return;
  StorageManager &sm = *index->sm;
  const LockGuard guard(sm.lock);
  assert(index->state.references > 0);
  data_systems(sm).btrees.give_back(*index, data_systems(sm).open_levels, unwritten);
}

void btrees_close(StorageManager &sm) {
  data_systems(sm).btrees.free_all();
}

const char *btree_table_name(const Btree &index) {
  return index.table_names[handle_level(index)].text;
}

bool btree_rename_table(Btree &index, const char *name) {
  uint8_t record[btree_descriptor_size];
  btree_descriptor_encode(index, name, record);
  if (!row_update(*data_systems(*index.sm).index_descriptors, &index.number, record, btree_descriptor_size))
    return false;
  const LockGuard guard(index.sm->lock);
  index.table_names[btree_touch(index)] = stored_name(name);
  return true;
}

// ---- counters and levels ----

bool btrees_write_counters(StorageManager &sm) {
  const LockGuard guard(sm.lock);
  const int level = sm_level(sm);
  return data_systems(sm).btrees.each_touched(level, [&](Btree &index) {
    return !index.pages_changed[level] || !index.state.visible(level) || counter_write(index, level);
  });
}

bool btrees_reload_all(StorageManager &sm) {
  const LockGuard guard(sm.lock);
  for (Btree *index = data_systems(sm).btrees.first; index != nullptr; index = index->next) {
    if (index->state.gone()) continue;
    const ErrorScope scope;
    // Dropped by the other process, replaced, or damaged: whoever opens the number anew finds out.
    Btree fresh = *index;
    if (handle_read(fresh) && same_tree(fresh, *index))
      *index = fresh;
    else
      index->state.set_gone();
  }
  list_sweep(sm);
  return true;
}

int btree_touch(Btree &index) {
  const int level = sm_level(*index.sm);
  data_systems(*index.sm).btrees.touch(index, level);
  return level;
}

void btrees_level_merged(StorageManager &sm, int level) {
  data_systems(sm).btrees.level_merged(level);
  list_sweep(sm);
}

void btrees_level_dropped(StorageManager &sm, int level) {
  data_systems(sm).btrees.level_dropped(level);
  list_sweep(sm);
}

}  // namespace tovik
