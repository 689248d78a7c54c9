// Sorting and making rows distinct against std::sort and std::set.
#include "sql/query/sort.h"

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

#include "engine_support.h"
#include "frame/env.h"
#include "frame/error.h"

namespace tovik::test {
namespace {

class SortTest : public testing::Test {
 protected:
  SortTest() { env_start(nullptr); }
  ~SortTest() override {
    env_release();
    err_clear();
  }
};

constexpr SortDirection up = SortDirection::ascending;
constexpr SortDirection down = SortDirection::descending;

struct Store {
  explicit Store(const std::vector<SortColumn> &columns, int positions = 0)
      : store(sort_store_create(columns.data(), static_cast<int>(columns.size()), positions)) {}
  ~Store() { sort_store_destroy(store); }
  SortStore &operator*() { return *store; }
  SortStore *operator->() { return store; }
  SortStore *store;
};

// A row takes its values, 4 bytes per table, 4 more for a value without a fixed size, and NULL bits.
TEST_F(SortTest, ExhaustedAreaRefusesTheRowAndKeepsTheOthers) {
  env_start("HVI_TMP_BUF_SIZE=1000");
  const std::string text(100, 'x');
  const int64_t number = 7;
  const struct {
    std::vector<SortColumn> columns;
    std::vector<const void *> values;
    int positions, rows;
  } cases[] = {{{{type::varchar, 100}}, {text.c_str()}, 0, 9},                        // 4 + 104
               {{{type::bigint, 0}}, {&number}, 1, 62},                               // 4 + 8 + 4
               {{{type::bigint, 0}, {type::float64, 0}}, {&number, &number}, 2, 35},  // 8 + 16 + 4
               {{{type::varchar, 9}, {type::varchar, 9}}, {nullptr, ""}, 0, 83}};     // 8 + 4
  for (const auto &[columns, values, positions, rows] : cases) {
    Store store(columns, positions);
    const RowNo numbers[] = {1, 2};
    int stored = 0;
    while (stored < 100 && sort_store_row(*store, values.data(), numbers)) ++stored;
    EXPECT_EQ(stored, rows);
    EXPECT_EQ(first_status(), status::sort_memory_limit);
    const int32_t used = store->area_used;
    EXPECT_FALSE(sort_store_row(*store, values.data(), numbers));
    EXPECT_EQ(store->area_used, used) << "a refused row takes nothing";
    EXPECT_EQ(store->rows.size(), stored);
  }
  Store distinct({{type::bigint, 0}});
  int64_t value = 0;
  const void *values[] = {&value};
  while (sort_store_distinct(*distinct, values)) ++value;
  EXPECT_EQ(first_status(), status::sort_memory_limit);
  for (value = 0; value < distinct->rows.size(); ++value) EXPECT_TRUE(sort_store_distinct(*distinct, values));
}

using Pair = std::pair<std::optional<int64_t>, std::string>;  // NULL comes first

std::vector<Pair> content(const SortStore &store) {
  std::vector<Pair> rows;
  for (int row = 0; row < store.rows.size(); ++row) {
    const void *number = sort_value(store, row, 0);
    rows.emplace_back(number == nullptr ? std::nullopt : std::optional(load_i64(number)),
                      static_cast<const char *>(sort_value(store, row, 1)));
  }
  return rows;
}

// Every size around the pivot rules, many equal keys, ordered and reversed input.
TEST_F(SortTest, RandomRowsSortAndBecomeDistinct) {
  Random random;
  for (int round = 0; round < 400; ++round) {
    const int size = round < 60 ? round : random.below(2000);
    SCOPED_TRACE("round " + std::to_string(round) + " size " + std::to_string(size));
    const int range = 1 + random.below(random.one_in(2) ? 8 : 3000);
    std::vector<Pair> rows;
    for (int i = 0; i < size; ++i)
      rows.emplace_back(random.one_in(10) ? std::nullopt : std::optional<int64_t>(random.below(range)),
                        std::string(1, static_cast<char>('a' + random.below(3))));
    const SortDirection directions[] = {random.one_in(2) ? up : down, random.one_in(2) ? up : down};
    const int count = 1 + random.below(2);
    const auto less = [&](const Pair &a, const Pair &b) {
      if (a.first != b.first) return (a.first < b.first) == (directions[0] == up);
      return count == 2 && a.second != b.second && (a.second < b.second) == (directions[1] == up);
    };
    if (random.one_in(4)) std::sort(rows.begin(), rows.end(), less);
    if (random.one_in(4)) std::reverse(rows.begin(), rows.end());

    const bool distinct = random.one_in(2);
    Store store({{type::bigint, 0}, {type::varchar, 10}});
    for (const Pair &row : rows) {
      const void *values[] = {row.first.has_value() ? &*row.first : nullptr, row.second.c_str()};
      ASSERT_TRUE(distinct ? sort_store_distinct(*store, values) : sort_store_row(*store, values, nullptr));
    }
    if (distinct) {
      std::set<Pair> seen;
      std::erase_if(rows, [&seen](const Pair &row) { return !seen.insert(row).second; });
      ASSERT_EQ(content(*store), rows) << "the first of each, in order";
    }
    ASSERT_TRUE(sort_execute(*store, directions, count));
    std::vector<Pair> sorted = content(*store);
    ASSERT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), less));
    std::sort(sorted.begin(), sorted.end());
    std::sort(rows.begin(), rows.end());
    ASSERT_EQ(sorted, rows);
  }
}

}  // namespace
}  // namespace tovik::test
