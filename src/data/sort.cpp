// The temporary store, and the sorting of its rows.
//
// Area: blocks taken from the front, rounded up so that every value is aligned; a request that would reach
// the end of the area fails. A row is one SortRow, its array of value pointers, its positions and its values.
//
// Sorting is a quicksort whose pivot is the middle entry for small ranges, the median of three above 7
// entries and the median of three medians above 40; below 7 entries insertion sort. It moves pointers only,
// allocates nothing and recurses into the smaller part, so that its depth is logarithmic.
#include "data/sort.h"

#include <algorithm>

#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

constexpr int first_row_capacity = 1000;
constexpr int64_t area_unit = sizeof(void *) > 4 ? sizeof(void *) : 4;

// A block of the area, or null without a status.
void *area_take(SortStore &store, int64_t size) {
  const int64_t rounded = (size + area_unit - 1) / area_unit * area_unit;
  if (store.area_used + rounded >= store.area_size) return nullptr;
  void *block = store.area + store.area_used;
  store.area_used += static_cast<int32_t>(rounded);
  return block;
}

// Bytes of a value in exchange form; -1 for a type or a length that cannot be.
int64_t value_size(const SortColumn &column, const void *value) {
  if ((column.type & TYPE_CHARACTER) != 0)
    return static_cast<int64_t>(strlen(static_cast<const char *>(value))) + 1;
  if ((column.type & TYPE_BINARY) != 0) {
    const int32_t length = load_i32(value);
    return length < 0 ? -1 : int64_t{length} + 4;
  }
  const TypeRow *row = type_row(column.type);
  if (row == nullptr) return -1;
  return row->exchange_size > 0 ? row->exchange_size : column.p1;
}

bool copy_values(SortStore &store, const void *const *values, SortRow *row) {
  for (int index = 0; index < store.columns.size(); ++index) {
    row->values[index] = nullptr;
    if (values[index] == nullptr) continue;
    const int64_t size = value_size(store.columns[index], values[index]);
    if (size < 0) return fail(status::sort_argument);
    void *copy = area_take(store, size);
    if (copy == nullptr) return fail(status::sort_memory_limit);
    memcpy(copy, values[index], static_cast<size_t>(size));
    row->values[index] = copy;
  }
  return true;
}

SortRow *copy_row(SortStore &store, const void *const *values, const RowNo *positions) {
  const int64_t position_bytes = int64_t{store.position_count} * static_cast<int64_t>(sizeof(RowNo));
  const int64_t pointer_bytes = int64_t{store.columns.size()} * static_cast<int64_t>(sizeof(void *));
  void *entry = area_take(store, sizeof(SortRow));
  void *pointers = entry == nullptr ? nullptr : area_take(store, pointer_bytes);
  void *places = pointers == nullptr ? nullptr : area_take(store, position_bytes);
  if (places == nullptr) return fail_null(status::sort_memory_limit);
  SortRow *row = ::new (entry) SortRow{static_cast<const void **>(pointers), nullptr};
  if (positions != nullptr) {
    memcpy(places, positions, static_cast<size_t>(position_bytes));
    row->positions = static_cast<const RowNo *>(places);
  }
  return copy_values(store, values, row) ? row : nullptr;
}

// Compares rows by their first count columns. A comparison that fails makes every later one 0 and is told at
// the end.
struct RowOrder {
  const SortStore &store;
  const SortDirection *directions;  // null: all ascending
  int count;
  bool failed = false;

  int compare_column(int column, const void *a, const void *b) {
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    const SortColumn &key = store.columns[column];
    // Only values of raw bytes do not tell their own length.
    const int length = (key.type & ~type_index_mask) == 0 ? key.p1 : 0;
    int result = 0;
    if (!compare_values(key.type, a, length, key.type, b, &result)) failed = true;
    return result;
  }

  int compare(const SortRow &a, const SortRow &b) {
    for (int column = 0; column < count && !failed; ++column) {
      const int result = compare_column(column, a.values[column], b.values[column]);
      if (result == 0) continue;
      return directions != nullptr && directions[column] == SortDirection::descending ? -result : result;
    }
    return 0;
  }
};

template <class T, class Compare>
T *median_of_three(T *a, T *b, T *c, Compare &compare) {
  if (compare(*a, *b) < 0) return compare(*b, *c) < 0 ? b : compare(*a, *c) < 0 ? c : a;
  return compare(*b, *c) > 0 ? b : compare(*a, *c) > 0 ? c : a;
}

template <class T, class Compare>
T *choose_pivot(T *items, int count, Compare &compare) {
  T *low = items, *middle = items + count / 2, *high = items + count - 1;
  if (count == 7) return middle;
  if (count > 40) {
    const int step = count / 8;
    low = median_of_three(low, low + step, low + 2 * step, compare);
    middle = median_of_three(middle - step, middle, middle + step, compare);
    high = median_of_three(high - 2 * step, high - step, high, compare);
  }
  return median_of_three(low, middle, high, compare);
}

template <class T, class Compare>
void insertion_sort(T *items, int count, Compare &compare) {
  for (int index = 1; index < count; ++index) {
    for (int at = index; at > 0 && compare(items[at - 1], items[at]) > 0; --at)
      std::swap(items[at - 1], items[at]);
  }
}

// Entries equal to the pivot gather at both ends of the range and are then swapped into the middle, so that
// many equal keys cost one pass.
template <class T, class Compare>
void quicksort(T *items, int count, Compare &compare) {
  while (count >= 7) {
    std::swap(items[0], *choose_pivot(items, count, compare));
    const T pivot = items[0];
    int equal_left = 1, left = 1, right = count - 1, equal_right = count - 1;
    for (;;) {
      int order = 0;
      for (; left <= right && (order = compare(items[left], pivot)) <= 0; ++left)
        if (order == 0) std::swap(items[equal_left++], items[left]);
      for (; left <= right && (order = compare(items[right], pivot)) >= 0; --right)
        if (order == 0) std::swap(items[right], items[equal_right--]);
      if (left > right) break;
      std::swap(items[left++], items[right--]);
    }
    const int below = left - equal_left, above = equal_right - right;
    const int front = std::min(equal_left, below);
    std::swap_ranges(items, items + front, items + left - front);
    const int back = std::min(above, count - 1 - equal_right);
    std::swap_ranges(items + left, items + left + back, items + count - back);
    T *high = items + count - above;
    if (below < above) {
      quicksort(items, below, compare);
      items = high, count = above;
    } else {
      quicksort(high, above, compare);
      count = below;
    }
  }
  insertion_sort(items, count, compare);
}

bool directions_right(const SortDirection *directions, int count) {
  for (int index = 0; index < count; ++index) {
    if (directions[index] != SortDirection::ascending && directions[index] != SortDirection::descending)
      return false;
  }
  return true;
}

}  // namespace

bool sort_add_key(SortKeyList &list, const void *table, int column, SortDirection direction) {
  if (!directions_right(&direction, 1)) return fail(status::sort_argument);
  for (const SortKey &key : list.keys) {
    if (key.table == table && key.column == column) return fail(status::sort_column_twice);
  }
  return list.keys.push(SortKey{table, column, direction}) || fail(status::out_of_memory);
}

SortStore *sort_store_create(const SortColumn *columns, int column_count, int position_count) {
  SortStore *store = mem_new<SortStore>();
  if (store == nullptr) return fail_null(status::out_of_memory);
  store->position_count = position_count;
  store->area_size = std::max(env_number(Env::tmp_buf_size), 0);
  store->area = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(store->area_size) + 1));
  bool complete = store->area != nullptr && store->rows.reserve(first_row_capacity);
  for (int index = 0; complete && index < column_count; ++index)
    complete = store->columns.push(columns[index]);
  if (complete) return store;
  sort_store_destroy(store);
  return fail_null(status::out_of_memory);
}

void sort_store_destroy(SortStore *store) {
  if (store == nullptr) return;
  mem_free(store->area);
  mem_delete(store);
}

bool sort_store_row(SortStore &store, const void *const *values, const RowNo *positions) {
  const int32_t mark = store.area_used;
  SortRow *row = copy_row(store, values, positions);
  if (row != nullptr && store.rows.push(row)) return true;
  store.area_used = mark;
  return row != nullptr && fail(status::out_of_memory);
}

bool sort_execute(SortStore &store, const SortDirection *directions, int count) {
  if (count < 0 || count > store.columns.size() || (count > 0 && directions == nullptr) ||
      !directions_right(directions, count))
    return fail(status::sort_argument);
  RowOrder order{store, directions, count};
  auto compare = [&order](const SortRow *a, const SortRow *b) { return order.compare(*a, *b); };
  quicksort(store.rows.data(), store.rows.size(), compare);
  return !order.failed;
}

// Sorts indices by value and then by place, so that the first of each set of equal rows leads it; the others
// are cleared and the rest closes up.
bool sort_remove_duplicates(SortStore &store) {
  const int count = store.rows.size();
  Array<int32_t> sorted;
  if (!sorted.resize(count)) return fail(status::out_of_memory);
  for (int index = 0; index < count; ++index) sorted[index] = index;
  RowOrder order{store, nullptr, store.columns.size()};
  auto compare = [&](int32_t a, int32_t b) {
    const int result = order.compare(*store.rows[a], *store.rows[b]);
    return result != 0 ? result : (a > b) - (a < b);
  };
  quicksort(sorted.data(), count, compare);
  int leader = 0;
  for (int index = 1; index < count && !order.failed; ++index) {
    if (order.compare(*store.rows[sorted[leader]], *store.rows[sorted[index]]) == 0)
      store.rows[sorted[index]] = nullptr;
    else
      leader = index;
  }
  if (order.failed) return false;
  int kept = 0;
  for (SortRow *row : store.rows) {
    if (row != nullptr) store.rows[kept++] = row;
  }
  while (store.rows.size() > kept) store.rows.pop();
  return true;
}

}  // namespace tovik
