// Row-number sets against std::set, and sorting and making rows distinct against std::stable_sort.
#include "data/sort.h"

#include <algorithm>
#include <set>
#include <vector>

#include "data/row_set.h"
#include "frame/env.h"
#include "frame/error.h"
#include "support.h"

namespace tovik::test {
namespace {

using Rows = std::vector<RowNo>;

RowSet *set_of(const Rows &rows) {
  RowSet *set = rowset_new();
  for (const RowNo row : rows) EXPECT_TRUE(rowset_add(*set, row));
  rowset_sort(*set);
  return set;
}

// The rows of a set, which is freed; {0} for no set.
Rows take(RowSet *set) {
  if (set == nullptr) return {0};
  EXPECT_TRUE(set->sorted);
  Rows rows(set->rows.begin(), set->rows.end());
  rowset_free(set);
  return rows;
}

Rows united(RowSet *a, RowSet *b) {
  RowSet *result = nullptr;
  EXPECT_TRUE(rowset_union(a, b, &result));
  return take(result);
}

TEST(RowSetTest, IntersectAndUnite) {
  const struct {
    Rows a, b, common, all;
  } cases[] = {
      {{1, 5, 9}, {5, 9, 12}, {5, 9}, {1, 5, 9, 12}},
      {{1, 5}, {2, 5, 7}, {5}, {1, 2, 5, 7}},
      {{1, 3}, {2, 4}, {0}, {1, 2, 3, 4}},
      {{}, {2, 1}, {0}, {1, 2}},
      {{}, {}, {0}, {}},
      {{4, 4, 4}, {}, {0}, {4}},
      {{0xFFFFFFFF, 1}, {0xFFFFFFFF}, {0xFFFFFFFF}, {1, 0xFFFFFFFF}},
  };
  for (const auto &test : cases) {
    EXPECT_EQ(take(rowset_intersect(set_of(test.a), set_of(test.b))), test.common);
    EXPECT_EQ(take(rowset_intersect(set_of(test.b), set_of(test.a))), test.common);
    EXPECT_EQ(united(set_of(test.a), set_of(test.b)), test.all);
    EXPECT_EQ(united(set_of(test.b), set_of(test.a)), test.all);
  }
  EXPECT_EQ(take(rowset_intersect(set_of({1}), nullptr)), Rows{0});
  EXPECT_EQ(united(nullptr, set_of({3, 1, 3})), (Rows{1, 3}));
  EXPECT_EQ(united(nullptr, nullptr), Rows{0});
}

TEST(RowSetTest, RandomSetsAgreeWithStdSet) {
  Random random;
  for (int round = 0; round < 300; ++round) {
    const int limit = 1 << random.below(12);
    std::set<RowNo> a, b, common, all;
    for (int i = random.below(random.one_in(3) ? 1000 : 10); i > 0; --i) a.insert(1 + random.below(limit));
    for (int i = random.below(random.one_in(3) ? 1000 : 10); i > 0; --i) b.insert(1 + random.below(limit));
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::inserter(common, common.end()));
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::inserter(all, all.end()));
    const Rows first(a.begin(), a.end()), second(b.begin(), b.end());
    EXPECT_EQ(take(rowset_intersect(set_of(first), set_of(second))),
              common.empty() ? Rows{0} : Rows(common.begin(), common.end()));
    EXPECT_EQ(united(set_of(first), set_of(second)), Rows(all.begin(), all.end()));
  }
}

class SortTest : public testing::Test {
 protected:
  SortTest() {
    env_start(nullptr);
    err_clear();
  }
  ~SortTest() override { env_release(); }
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

TEST_F(SortTest, KeysAreDistinctColumns) {
  SortKeyList list;
  int a = 0, b = 0;
  EXPECT_TRUE(sort_add_key(list, &a, 1, up) && sort_add_key(list, &a, 2, down) &&
              sort_add_key(list, &b, 1, up));
  EXPECT_FALSE(sort_add_key(list, &a, 2, up));
  EXPECT_FALSE(sort_add_key(list, &a, 3, static_cast<SortDirection>(2)));
  EXPECT_EQ(error_record().entries[0].code, status::sort_column_twice);
  EXPECT_EQ(error_record().entries[1].code, status::sort_argument);
  EXPECT_EQ(list.keys.size(), 3);
}

// A value of each exchange form is copied whole and stays where it is.
TEST_F(SortTest, ValuesAreCopied) {
  Store store({{type::int32, 0},
               {type::varchar, 20},
               {type::float64, 0},
               {type::date, 0},
               {type::blob, 0},
               {type::byte, 3},
               {type::text, 0}},
              2);
  int64_t integer = -5;
  char text[] = "text", large[] = "large text";
  double real = 2.5;
  DateTimeRec date = {2020, 2, 29, 0, 0, 0, 0, 0};
  uint8_t blob[] = {2, 0, 0, 0, 7, 8}, raw[] = {1, 2, 3};
  RowNo positions[] = {11, 22};
  const void *values[] = {&integer, text, &real, &date, blob, raw, large};
  const void *nothing[7] = {};
  ASSERT_TRUE(sort_store_row(*store, values, positions) && sort_store_row(*store, nothing, nullptr));
  integer = 0, real = 0, text[0] = large[0] = 0, date.year = 0, positions[1] = 0;
  memset(blob, 0, sizeof blob), memset(raw, 0, sizeof raw);
  const SortRow &row = *store->rows[0];
  EXPECT_EQ(*static_cast<const int64_t *>(row.values[0]), -5);
  EXPECT_STREQ(static_cast<const char *>(row.values[1]), "text");
  EXPECT_EQ(*static_cast<const double *>(row.values[2]), 2.5);
  EXPECT_EQ(static_cast<const DateTimeRec *>(row.values[3])->year, 2020);
  EXPECT_EQ(memcmp(row.values[4], "\2\0\0\0\7\10", 6), 0);
  EXPECT_EQ(memcmp(row.values[5], "\1\2\3", 3), 0);
  EXPECT_STREQ(static_cast<const char *>(row.values[6]), "large text");
  EXPECT_EQ(row.positions[1], 22u);
  for (const void *value : {store->rows[1]->values[0], store->rows[1]->values[6]}) EXPECT_EQ(value, nullptr);
  EXPECT_EQ(store->rows[1]->positions, nullptr);
}

TEST_F(SortTest, ExhaustedAreaRefusesTheRowAndKeepsTheOthers) {
  env_start("HVI_TMP_BUF_SIZE=1000");
  Store store({{type::varchar, 100}});
  const std::string text(100, 'x');
  const void *values[] = {text.c_str()};
  int stored = 0;
  while (stored < 100 && sort_store_row(*store, values, nullptr)) ++stored;
  EXPECT_EQ(stored, 7);
  EXPECT_EQ(error_record().entries[0].code, status::sort_memory_limit);
  EXPECT_EQ(store->rows.size(), 7);
  const int32_t used = store->area_used;
  EXPECT_FALSE(sort_store_row(*store, values, nullptr));
  EXPECT_EQ(store->area_used, used) << "a refused row takes nothing";
  EXPECT_TRUE(sort_execute(*store, &up, 1));
  EXPECT_FALSE(sort_execute(*store, &up, 2));
}

struct Pair {
  bool null;
  int64_t number;
  std::string text;
  bool operator==(const Pair &) const = default;
};

int compare_keys(const Pair &a, const Pair &b, SortDirection first, SortDirection second, int count) {
  int order = a.null || b.null ? b.null - a.null : (a.number > b.number) - (a.number < b.number);
  if (order != 0) return first == down ? -order : order;
  order = count < 2 ? 0 : a.text.compare(b.text);
  return second == down ? -order : order;
}

std::vector<Pair> content(const SortStore &store) {
  std::vector<Pair> rows;
  for (const SortRow *row : store.rows) {
    const int64_t *number = static_cast<const int64_t *>(row->values[0]);
    rows.push_back(
        {number == nullptr, number == nullptr ? 0 : *number, static_cast<const char *>(row->values[1])});
  }
  return rows;
}

// Every size around the pivot rules, many equal keys, ordered and reversed input.
TEST_F(SortTest, RandomRowsSortAndBecomeDistinct) {
  Random random;
  const SortDirection directions[][2] = {{up, up}, {up, down}, {down, up}, {down, down}};
  for (int round = 0; round < 400; ++round) {
    const int size = round < 60 ? round : random.below(2000);
    const int range = 1 + random.below(random.one_in(2) ? 8 : 3000);
    std::vector<Pair> rows;
    for (int i = 0; i < size; ++i)
      rows.push_back({random.one_in(10), random.below(range), std::string(1, 'a' + random.below(3))});
    for (Pair &row : rows) row.number = row.null ? 0 : row.number;
    const auto &[first, second] = directions[random.below(4)];
    const int count = 1 + random.below(2);
    auto less = [&](const Pair &a, const Pair &b) { return compare_keys(a, b, first, second, count) < 0; };
    if (random.one_in(4)) std::sort(rows.begin(), rows.end(), less);
    if (random.one_in(4)) std::reverse(rows.begin(), rows.end());

    Store store({{type::bigint, 0}, {type::varchar, 10}});
    for (const Pair &row : rows) {
      const void *values[] = {row.null ? nullptr : &row.number, row.text.c_str()};
      ASSERT_TRUE(sort_store_row(*store, values, nullptr));
    }
    std::vector<Pair> distinct;
    std::set<std::pair<int64_t, std::string>> seen;
    for (const Pair &row : rows)
      if (seen.emplace(row.null ? -1 : row.number, row.text).second) distinct.push_back(row);
    if (random.one_in(2)) {
      ASSERT_TRUE(sort_remove_duplicates(*store));
      EXPECT_TRUE(content(*store) == distinct) << "the first of each, in order";
      rows = distinct;
    }
    const SortDirection both[] = {first, second};
    ASSERT_TRUE(sort_execute(*store, both, count));
    std::vector<Pair> sorted = content(*store);
    EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), less));
    auto whole = [&](const Pair &a, const Pair &b) { return compare_keys(a, b, first, second, 2) < 0; };
    std::sort(sorted.begin(), sorted.end(), whole);
    std::sort(rows.begin(), rows.end(), whole);
    EXPECT_TRUE(sorted == rows);
    if (testing::Test::HasFailure()) FAIL() << "round " << round << " size " << size;
  }
}

TEST_F(SortTest, RawBytesAndBlobsAreComparedWhole) {
  Store store({{type::byte, 2}, {type::blob, 0}});
  const uint8_t raw[][2] = {{0, 2}, {0, 1}, {0, 2}};
  const uint8_t blob[][6] = {{1, 0, 0, 0, 9}, {2, 0, 0, 0, 0, 1}, {1, 0, 0, 0, 9}};
  for (int i = 0; i < 3; ++i) {
    const void *values[] = {raw[i], blob[i]};
    ASSERT_TRUE(sort_store_row(*store, values, nullptr));
  }
  ASSERT_TRUE(sort_remove_duplicates(*store));
  ASSERT_EQ(store->rows.size(), 2);
  ASSERT_TRUE(sort_execute(*store, &up, 1));
  EXPECT_EQ(static_cast<const uint8_t *>(store->rows[0]->values[0])[1], 1);
}

}  // namespace
}  // namespace tovik::test
