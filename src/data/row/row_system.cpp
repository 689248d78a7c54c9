// The handles of row systems: creation, opening, dropping, and how they follow transaction levels.
//
// Invariants
//   1. At most one handle of a number is visible at a level; a number that is dropped and given out again in
//      one transaction has two handles, one visible to the owner and one to everybody else.
//   2. A handle whose level has unwritten counters, or that knows its pages, stays on the list, held or not.
//   3. The records of an auto-increment row system lie 41 apart: descriptor, then auto-increment record.
#include "data/row/row_system.h"

#include "data/row/data_systems.h"
#include "data/row/row_records.h"
#include "data/row/row_slots.h"
#include "frame/error.h"

namespace tovik {

namespace {

RowSystem *handle_new(StorageManager &sm, RowNo number) {
  RowSystem *rows = mem_new<RowSystem>();
  if (rows == nullptr) return fail_null(status::out_of_memory);
  rows->sm = &sm;
  rows->number = number;
  rows->block_size = static_cast<uint32_t>(bm_block_size(*sm.bm));
  return rows;
}

void list_enter(RowSystem *rows, int created_level) {
  rows->state.created_level = static_cast<int8_t>(created_level);
  data_systems(*rows->sm).rows.enter(*rows);
  if (created_level > 0) row_touch(*rows);
}

RowSystem *list_find(StorageManager &sm, RowNo number) {
  const int level = sm_level(sm);
  RowSystem *rows = data_systems(sm).rows.first;
  while (rows != nullptr && (rows->number != number || !rows->state.visible(level))) rows = rows->next;
  return rows;
}

// What is known of the chain outlives the table definitions, which another process's commit ends.
bool worth_keeping(const RowSystem &rows) {
  return rows.counters_changed[0] || rows.autoinc_changed[0] || !rows.directory.pages.empty();
}

void list_sweep(StorageManager &sm) {
  data_systems(sm).rows.sweep(data_systems(sm).open_levels, worth_keeping);
}

// The first page, zero-filled, and counters that describe it.
bool first_page(RowSystem &rows) {
  Page page;
  if (!sm_page_new(*rows.sm, page)) return fail(status::row_new_page);
  const uint32_t block = static_cast<uint32_t>(page.block());
  if (!row_block_addressable(rows.block_size, block)) {
    err_set(status::storage_size_limit);
    err_set(status::row_new_page);
    const ErrorScope keep;
    (void)sm_page_delete(page);
    return false;
  }
  if (!sm_page_release_write(page)) return fail(status::row_page_write);
  rows.counters[0] = RowCounters{block, block, 1, block * rows.block_size + row_page_stream, 0, 0, 0, 0};
  return true;
}

// Takes the first page of a new row system back.
void first_page_delete(const RowSystem &rows) {
  const ErrorScope keep;
  Page page;
  if (sm_page_get(*rows.sm, static_cast<BlockNo>(rows.counters[0].page_top), page))
    (void)sm_page_delete(page);
}

// What the records say now; the handle stays as it was unless they are all right.
Found records_read(RowSystem &rows) {
  RowDescriptor descriptor{};
  AutoIncrement values{};
  Found found = row_descriptor_read(*rows.sm, rows.number, &descriptor);
  if (found != Found::yes) return found;
  if (row_kind_auto(descriptor.kind)) {
    found = row_autoinc_read(*rows.sm, rows.number + system_row_size, descriptor.kind, &values);
    if (found != Found::yes) return found;
    rows.autoinc_number = rows.number + system_row_size;
  }
  rows.kind = descriptor.kind;
  rows.row_size = descriptor.row_size;
  row_directory_reloads(rows);
  rows.counters[0] = descriptor.counters;
  rows.counters[0].version = ++data_systems(*rows.sm).row_version;
  rows.autoinc[0] = values;
  rows.counters_changed[0] = rows.autoinc_changed[0] = false;
  return Found::yes;
}

// Level 0 as the records have it now. no: the number has gone to another row system, or to none.
Found reload(RowSystem &rows) {
  if (rows.number == 0) {
    if (!row_system_counters_read(rows)) return Found::failed;
    rows.counters_changed[0] = false;
    return Found::yes;
  }
  RowDescriptor now{};
  const Found found = row_descriptor_read(*rows.sm, rows.number, &now);
  if (found != Found::yes) return found;
  if (now.kind != rows.kind || now.row_size != rows.row_size ||
      now.counters.page_top != rows.counters[0].page_top)
    return Found::no;
  return records_read(rows);
}

// A chain is freed by its two ends alone; they must at least be ends.
bool chain_ends_right(RowSystem &rows, const RowCounters &counters) {
  Page top, last;
  if (!sm_page_get(*rows.sm, static_cast<BlockNo>(counters.page_top), top) ||
      !sm_page_get(*rows.sm, static_cast<BlockNo>(counters.page_last), last))
    return fail(status::row_page_fetch);
  return (load_u32(top.data() + row_page_previous) == 0 && load_u32(last.data() + row_page_next) == 0 &&
          (counters.page_top == counters.page_last) == (counters.page_count == 1)) ||
         fail(status::row_next_page);
}

RowSystem *system_handle(StorageManager &sm) {
  RowSystem *system = handle_new(sm, 0);
  if (system == nullptr) return nullptr;
  system->kind = RowKind::system;
  system->row_size = system_row_size;
  return system;
}

}  // namespace

bool row_system_create_system(StorageManager &sm) {
  RowSystem *system = system_handle(sm);
  if (system == nullptr) return false;
  if (!first_page(*system) || !row_system_counters_write(*system)) {
    mem_delete(system);
    return false;
  }
  list_enter(system, 0);
  data_systems(sm).system_rows = system;
  return true;
}

bool row_system_open_system(StorageManager &sm) {
  RowSystem *system = system_handle(sm);
  if (system == nullptr) return false;
  if (!row_system_counters_read(*system)) {
    mem_delete(system);
    return false;
  }
  list_enter(system, 0);
  data_systems(sm).system_rows = system;
  return true;
}

RowSystem *row_system_create(StorageManager &sm, RowKind kind, int data_size, int64_t init, int step,
                             int64_t next) {
  const int smallest = slot_link_size + (row_kind_variable(kind) ? 1 : 0);
  if (kind == RowKind::system || kind > RowKind::variable_auto || data_size < smallest ||
      data_size == INT32_MAX)
    return fail_null(status::row_argument);
  const LockGuard guard(sm.lock);
  RowSystem *rows = handle_new(sm, 0);
  if (rows == nullptr) return nullptr;
  rows->kind = kind;
  rows->row_size = data_size + 1;
  if (row_kind_auto(kind)) rows->autoinc[0] = row_autoinc_defaults(init, step, next);
  if (!first_page(*rows)) {
    mem_delete(rows);
    return nullptr;
  }
  if (!row_records_create(*rows)) {
    err_set(status::row_create_counter_write);
    first_page_delete(*rows);
    mem_delete(rows);
    return nullptr;
  }
  list_enter(rows, sm_level(sm));
  return rows;
}

RowSystem *row_system_open(RowNo number, StorageManager &sm) {
  if (number == 0) return fail_null(status::row_number_null);
  const LockGuard guard(sm.lock);
  if (RowSystem *open = list_find(sm, number)) {
    data_systems(sm).rows.hold(*open);
    return open;
  }
  RowSystem *rows = handle_new(sm, number);
  if (rows == nullptr) return nullptr;
  const Found found = records_read(*rows);
  if (found != Found::yes) {
    if (found == Found::no) err_set(status::row_system_deleted);
    mem_delete(rows);
    return nullptr;
  }
  list_enter(rows, 0);
  return rows;
}

bool row_system_drop(RowSystem *rows) {
  StorageManager &sm = *rows->sm;
  const LockGuard guard(sm.lock);
  RowSystem &system = *data_systems(sm).system_rows;
  const int level = row_touch(*rows);
  const RowCounters &counters = rows->counters[level];
  // The pages are linked backwards through their first four bytes.
  if (!chain_ends_right(*rows, counters) ||
      !sm_chain_free(sm, static_cast<BlockNo>(counters.page_last), static_cast<BlockNo>(counters.page_top),
                     static_cast<int32_t>(counters.page_count)))
    return fail(status::row_drop_pages);
  if (row_delete(system, rows->number) != Found::yes) return fail(status::row_drop_descriptor);
  if (row_kind_auto(rows->kind) && row_delete(system, rows->autoinc_number) != Found::yes)
    return fail(status::row_drop_descriptor);
  rows->state.set_dropped(level);
  (void)row_content_changes(*rows);
  row_system_close(rows);
  return true;
}

void row_system_close(RowSystem *rows) {
  if (rows == nullptr) return;
  StorageManager &sm = *rows->sm;
  const LockGuard guard(sm.lock);
  data_systems(sm).rows.give_back(*rows, data_systems(sm).open_levels, worth_keeping);
}

bool row_systems_reload_all(StorageManager &sm) {
  const LockGuard guard(sm.lock);
  DataSystems &systems = data_systems(sm);
  ++systems.chain_cuts;
  if (reload(*systems.system_rows) == Found::failed) return false;
  list_sweep(sm);
  for (RowSystem *rows = systems.rows.first; rows != nullptr; rows = rows->next) {
    if (rows == systems.system_rows || rows->state.gone()) continue;
    const Found found = reload(*rows);
    if (found == Found::failed) return false;
    if (found == Found::no) rows->state.set_gone();
  }
  return true;
}

int row_touch(RowSystem &rows) {
  const int level = sm_level(*rows.sm);
  data_systems(*rows.sm).rows.touch(rows, level);
  return level;
}

void row_systems_level_merged(StorageManager &sm, int level) {
  data_systems(sm).rows.level_merged(level);
  list_sweep(sm);
}

void row_systems_level_dropped(StorageManager &sm, int level) {
  data_systems(sm).rows.level_dropped(level);
  list_sweep(sm);
}

void row_systems_close(StorageManager &sm) {
  data_systems(sm).rows.free_all();
  data_systems(sm).system_rows = nullptr;
}

}  // namespace tovik
