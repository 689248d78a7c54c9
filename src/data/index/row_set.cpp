#include "data/index/row_set.h"

#include <algorithm>

#include "frame/error.h"

namespace tovik {

namespace {

void ensure_sorted(RowSet &set) {
  if (!set.sorted) rowset_sort(set);
}

// The first position from from on whose row is not below row; looks in growing steps, because it is usually
// near.
int gallop(const RowSet &set, int from, RowNo row) {
  const int size = set.rows.size();
  int step = 1;
  while (from + step < size && set.rows[from + step] < row) {
    from += step;
    if (step < size / 2) step *= 2;
  }
  const RowNo *begin = set.rows.begin() + from;
  const RowNo *end = set.rows.begin() + std::min(from + step + 1, size);
  return static_cast<int>(std::lower_bound(begin, end, row) - set.rows.begin());
}

void cut(RowSet &set, int size) {
  while (set.rows.size() > size) set.rows.pop();
}

void remove_repeats(RowSet &set) {
  cut(set, static_cast<int>(std::unique(set.rows.begin(), set.rows.end()) - set.rows.begin()));
}

}  // namespace

RowSet *rowset_new() {
  RowSet *set = mem_new<RowSet>();
  if (set == nullptr) return fail_null(status::out_of_memory);
  return set;
}

void rowset_free(RowSet *set) {
  mem_delete(set);
}

bool rowset_add(RowSet &set, RowNo row) {
  if (!set.rows.push(row)) return fail(status::out_of_memory);
  set.sorted = false;
  return true;
}

void rowset_sort(RowSet &set) {
  if (!std::is_sorted(set.rows.begin(), set.rows.end())) std::sort(set.rows.begin(), set.rows.end());
  set.sorted = true;
}

RowSet *rowset_intersect(RowSet *a, RowSet *b) {
  if (a == nullptr || b == nullptr) {
    rowset_free(a != nullptr ? a : b);
    return nullptr;
  }
  RowSet *small = a->rows.size() <= b->rows.size() ? a : b;
  RowSet *large = small == a ? b : a;
  ensure_sorted(*small);
  ensure_sorted(*large);
  int kept = 0;
  int position = 0;
  for (int index = 0; index < small->rows.size() && position < large->rows.size(); ++index) {
    const RowNo row = small->rows[index];
    position = gallop(*large, position, row);
    if (position < large->rows.size() && large->rows[position] == row) small->rows[kept++] = row;
  }
  rowset_free(large);
  cut(*small, kept);
  if (kept > 0) return small;
  rowset_free(small);
  return nullptr;
}

bool rowset_union(RowSet *a, RowSet *b, RowSet **result) {
  *result = a != nullptr ? a : b;
  if (*result == nullptr) return true;
  ensure_sorted(**result);
  remove_repeats(**result);
  if (a == nullptr || b == nullptr) return true;
  ensure_sorted(*b);
  Array<RowNo> merged;
  if (b->rows.size() > INT32_MAX - a->rows.size() || !merged.resize(a->rows.size() + b->rows.size())) {
    rowset_free(a);
    rowset_free(b);
    *result = nullptr;
    return fail(status::out_of_memory);
  }
  std::merge(a->rows.begin(), a->rows.end(), b->rows.begin(), b->rows.end(), merged.begin());
  a->rows.swap(merged);
  remove_repeats(*a);
  rowset_free(b);
  return true;
}

}  // namespace tovik
