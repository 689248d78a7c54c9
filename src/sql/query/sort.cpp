// The temporary store, and the order of its rows.
//
// Area: blocks taken from the front, rounded up to a multiple of 4, or of 8 in a store of groups; a request
// that would reach the end of the area fails. Addresses in it are offsets of 4 bytes.
//
// Row
//   head        4 bytes per table, or the state of a group
//   slots       per column: the value itself where the type has a size, else 4 bytes: where the value lies, 0
//               for NULL
//   NULL bits   one per column, if any has its value in its slot
// followed by the values that do not lie in slots.
//
// Distinct rows and groups are found through an open hash table beside the area, at most half full.
#include "sql/query/sort.h"

#include <algorithm>
#include <cstddef>

#include "frame/env.h"
#include "frame/error.h"
#include "sql/query/quicksort.h"

namespace tovik {

namespace {

constexpr int first_row_capacity = 1000;
constexpr int32_t row_unit = 4, group_unit = 8;

// The offset of a block of the area; false without a status.
bool area_take(SortStore &store, int64_t size, uint32_t *offset) {
  const int64_t rounded = (size + store.unit - 1) / store.unit * store.unit;
  store.exhausted = store.area_used + rounded >= store.area_size;
  if (store.exhausted) return false;
  *offset = static_cast<uint32_t>(store.area_used);
  store.area_used += static_cast<int32_t>(rounded);
  return true;
}

bool is_character(const SortColumn &column) {
  return (column.type & TYPE_CHARACTER) != 0;
}
bool is_binary(const SortColumn &column) {
  return (column.type & TYPE_BINARY) != 0;
}

// Bytes of a value in exchange form; -1 for a length that cannot be.
int64_t value_size(const SortSlot &slot, const void *value) {
  if (slot.size > 0) return slot.size;
  if (is_character(slot.column)) return static_cast<int64_t>(strlen(static_cast<const char *>(value))) + 1;
  const int32_t length = load_i32(value);
  return length < 0 ? -1 : int64_t{length} + 4;
}

// A type that has no size is refused when a value of it is stored.
SortSlot slot_of(const SortColumn &column, int32_t offset) {
  const TypeRow *row = type_row(column.type);
  if (row == nullptr || is_character(column) || is_binary(column)) return {column, offset, 0};
  return {column, offset, row->exchange_size > 0 ? row->exchange_size : column.p1};
}

int32_t slot_room(const SortSlot &slot) {
  return slot.size > 0 ? (slot.size + 3) / 4 * 4 : static_cast<int32_t>(sizeof(uint32_t));
}

bool copy_value(SortStore &store, const SortSlot &slot, const void *value, uint32_t row) {
  const int64_t size = type_row(slot.column.type) == nullptr ? -1 : value_size(slot, value);
  if (size < 0) return fail(status::sort_argument);
  uint32_t at = row + static_cast<uint32_t>(slot.offset);
  if (slot.size == 0) {
    uint8_t *place = store.area + at;
    if (!area_take(store, size, &at)) return fail(status::sort_memory_limit);
    memcpy(place, &at, sizeof at);
  }
  memcpy(store.area + at, value, static_cast<size_t>(size));
  return true;
}

bool copy_row(SortStore &store, const void *const *values, const void *head, uint32_t *row) {
  if (!area_take(store, store.row_size, row)) return fail(status::sort_memory_limit);
  uint8_t *bytes = store.area + *row;
  memset(bytes, 0, static_cast<size_t>(store.row_size));
  if (head != nullptr) memcpy(bytes, head, static_cast<size_t>(store.head_size));
  for (int column = 0; column < store.columns.size(); ++column) {
    const SortSlot &slot = store.columns[column];
    if (values[column] != nullptr) {
      if (!copy_value(store, slot, values[column], *row)) return false;
    } else if (slot.size > 0) {
      bytes[store.nulls + column / 8] |= static_cast<uint8_t>(1 << column % 8);
    }
  }
  return true;
}

const void *value_at(const SortStore &store, uint32_t row, int column) {
  const uint8_t *bytes = store.area + row;
  const SortSlot &slot = store.columns[column];
  if (slot.size > 0)
    return (bytes[store.nulls + column / 8] >> column % 8 & 1) != 0 ? nullptr : bytes + slot.offset;
  uint32_t at;
  memcpy(&at, bytes + slot.offset, sizeof at);
  return at == 0 ? nullptr : store.area + at;
}

bool append_row(SortStore &store, const void *const *values, const void *head) {
  const int32_t mark = store.area_used;
  uint32_t row;
  const bool copied = copy_row(store, values, head, &row);
  if (copied && store.rows.push(row)) return true;
  store.area_used = mark;
  return copied && fail(status::out_of_memory);
}

// Compares values. A comparison that fails makes every later one 0 and is told at the end.
struct RowOrder {
  const SortStore &store;
  const SortDirection *directions;  // of the first count columns
  int count;
  bool failed = false;

  int compare_column(int column, const void *a, const void *b) {
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    const SortColumn &key = store.columns[column].column;
    // Only values of raw bytes do not tell their own length.
    const int length = (key.type & ~type_index_mask) == 0 ? key.p1 : 0;
    int result = 0;
    if (!compare_values(key.type, a, length, key.type, b, &result)) failed = true;
    return result;
  }

  int compare(uint32_t a, uint32_t b) {
    for (int column = 0; column < count && !failed; ++column) {
      const int result = compare_column(column, value_at(store, a, column), value_at(store, b, column));
      if (result != 0) return directions[column] == SortDirection::descending ? -result : result;
    }
    return 0;
  }
};

// ---- distinct rows and groups ----

constexpr int first_places = 1024;

uint64_t hash_bytes(uint64_t hash, const void *bytes, int64_t size) {
  for (const uint8_t *at = static_cast<const uint8_t *>(bytes); size > 0; ++at, --size)
    hash = (hash ^ *at) * 0x100000001b3;
  return hash;
}

// Values that compare equal have one hash: both zeros, every not-a-number, dates that differ in what their
// type does not keep.
uint64_t hash_value(uint64_t hash, const SortSlot &slot, const void *value) {
  const TypeCode type = slot.column.type;
  if ((type & TYPE_FLOAT) != 0) {
    double real;
    memcpy(&real, value, sizeof real);
    if (real == 0 || real != real) real = real == 0 ? 0.0 : 1.0;
    return hash_bytes(hash, &real, sizeof real);
  }
  if ((type & TYPE_DATETIME) == 0) return hash_bytes(hash, value, value_size(slot, value));
  const uint8_t *fields = static_cast<const uint8_t *>(value);
  hash = hash_bytes(hash, fields,
                    type == type::date ? offsetof(DateTimeRec, hour) : offsetof(DateTimeRec, zero));
  if (type == type::date || type == type::time) return hash;
  return hash_bytes(hash, fields + offsetof(DateTimeRec, microseconds), sizeof(int32_t));
}

template <class ValueOf>
uint64_t hash_row(const SortStore &store, ValueOf value_of) {
  uint64_t hash = 0xcbf29ce484222325;
  for (int column = 0; column < store.columns.size(); ++column) {
    const void *value = value_of(column);
    hash = value == nullptr ? hash_bytes(hash, "", 1) : hash_value(hash, store.columns[column], value);
  }
  return hash ^ hash >> 32;
}

// The place that same, a bool(row index), takes, or the free one where the row belongs.
template <class Same>
uint32_t &place_of(SortStore &store, uint64_t hash, Same same) {
  const uint32_t mask = static_cast<uint32_t>(store.places.size()) - 1;
  for (uint32_t at = static_cast<uint32_t>(hash) & mask;; at = (at + 1) & mask) {
    uint32_t &place = store.places[static_cast<int>(at)];
    if (place == 0 || same(static_cast<int>(place) - 1)) return place;
  }
}

bool grow_places(SortStore &store) {
  const int rows = store.rows.size();
  if (2 * (rows + 1) <= store.places.size()) return true;
  Array<uint32_t> larger;
  if (!larger.resize(std::max(first_places, 2 * store.places.size()))) return fail(status::out_of_memory);
  store.places.swap(larger);
  for (int row = 0; row < rows; ++row) {
    const uint64_t hash =
        hash_row(store, [&](int column) { return value_at(store, store.rows[row], column); });
    place_of(store, hash, [](int) { return false; }) = static_cast<uint32_t>(row) + 1;
  }
  return true;
}

bool directions_right(const SortDirection *directions, int count) {
  for (int index = 0; index < count; ++index) {
    if (directions[index] != SortDirection::ascending && directions[index] != SortDirection::descending)
      return false;
  }
  return true;
}

SortStore *create(const SortColumn *columns, int column_count, int32_t head_size, int32_t unit) {
  SortStore *store = mem_new<SortStore>();
  if (store == nullptr) return fail_null(status::out_of_memory);
  store->head_size = store->nulls = head_size;
  store->unit = unit;
  store->area_size = std::max(env_number(Env::tmp_buf_size), 0);
  store->area = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(store->area_size) + 1));
  bool complete = store->area != nullptr && store->rows.reserve(first_row_capacity);
  bool in_slots = false;
  for (int index = 0; complete && index < column_count; ++index) {
    const SortSlot slot = slot_of(columns[index], store->nulls);
    complete = store->columns.push(slot);
    store->nulls += slot_room(slot);
    in_slots |= slot.size > 0;
  }
  store->row_size = store->nulls + (in_slots ? (column_count + 7) / 8 : 0);
  if (complete) return store;
  sort_store_destroy(store);
  return fail_null(status::out_of_memory);
}

}  // namespace

bool sort_add_key(OrderKey *keys, int *count, const OrderKey &key) {
  for (int i = 0; i < *count; ++i)
    if (keys[i].column == key.column) return fail(status::sort_column_twice);
  keys[(*count)++] = key;
  return true;
}

SortStore *sort_store_create(const SortColumn *columns, int column_count, int position_count) {
  return create(columns, column_count, position_count * static_cast<int32_t>(sizeof(RowNo)), row_unit);
}

SortStore *sort_store_create_groups(const SortColumn *columns, int column_count, int32_t state_size) {
  return create(columns, column_count, state_size, group_unit);
}

void sort_store_destroy(SortStore *store) {
  if (store == nullptr) return;
  mem_free(store->area);
  mem_delete(store);
}

bool sort_store_row(SortStore &store, const void *const *values, const RowNo *positions) {
  return append_row(store, values, positions);
}

bool sort_store_distinct(SortStore &store, const void *const *values) {
  int row;
  return sort_store_group(store, values, nullptr, &row);
}

bool sort_store_group(SortStore &store, const void *const *values, const void *start, int *group) {
  if (!grow_places(store)) return false;
  RowOrder order{store, nullptr, 0};
  const uint64_t hash = hash_row(store, [&](int column) { return values[column]; });
  uint32_t &place = place_of(store, hash, [&](int row) {
    int column = 0;
    while (column < store.columns.size() &&
           order.compare_column(column, values[column], value_at(store, store.rows[row], column)) == 0)
      ++column;
    return column == store.columns.size();
  });
  if (order.failed) return false;
  if (place == 0) {
    if (!append_row(store, values, start)) return false;
    place = static_cast<uint32_t>(store.rows.size());
  }
  *group = static_cast<int>(place) - 1;
  return true;
}

bool sort_execute(SortStore &store, const SortDirection *directions, int count) {
  if (count < 0 || count > store.columns.size() || (count > 0 && directions == nullptr) ||
      !directions_right(directions, count))
    return fail(status::sort_argument);
  RowOrder order{store, directions, count};
  auto compare = [&order](uint32_t a, uint32_t b) { return order.compare(a, b); };
  quicksort(store.rows.data(), store.rows.size(), compare);
  return !order.failed;
}

const void *sort_value(const SortStore &store, int row, int column) {
  return value_at(store, store.rows[row], column);
}

RowNo sort_position(const SortStore &store, int row, int table) {
  RowNo position;
  memcpy(&position, store.area + store.rows[row] + sizeof position * static_cast<size_t>(table),
         sizeof position);
  return position;
}

void *sort_state(SortStore &store, int group) {
  return store.area + store.rows[group];
}

}  // namespace tovik
