// A quicksort whose pivot is the middle item of seven, the median of three from 8 items and the median of
// three medians above 40; fewer than 7 items are sorted by insertion. It allocates nothing and recurses into
// the smaller part, so that its depth is logarithmic. Not stable. compare(a, b) is below, equal to or above
// zero; it need not be an order: the items are permuted in any case.
#pragma once

#include <algorithm>
#include <utility>

namespace tovik {

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

}  // namespace tovik
