// The B-tree page by page: formats byte for byte, the shapes that splits and deletions leave, ranges, levels
// of a transaction, a full data file and damaged pages.
#include "data_support.h"

namespace tovik {
namespace {

using test::definition;
using test::Store;
using test::walk;

const BtreeDefinition unique_int = definition(btree_unique, 1, {{type::int32, 4}});
BtreeDefinition normal_int(int slots) {
  return definition(0, slots, {{type::int32, 4}});
}

struct Key {
  uint8_t bytes[btree_key_limit] = {};
  Key(int number) { store_i32(bytes, number); }
  Key(int first, int second) {
    store_i32(bytes, first);
    store_i32(bytes + 4, second);
  }
  operator const uint8_t *() const { return bytes; }
};

bool insert(Btree &index, const Key &key, RowNo row) {
  return btree_insert(index, key, &row) == BtreeInsert::inserted;
}
bool remove(Btree &index, const Key &key, RowNo row) {
  return btree_delete(index, key, &row);
}

bool recorded(StatusCode code) {
  const ErrorRecord &record = error_record();
  for (int i = 0; i < record.count; ++i)
    if (record.entries[i].code == code) return true;
  return false;
}

// A held index with what it needs, closed at the end.
class BtreeTest : public testing::Test {
 protected:
  ~BtreeTest() override {
    if (index != nullptr) btree_close(index);
  }
  Btree &make(const BtreeDefinition &made, const char *table_name = "") {
    if (index != nullptr) btree_close(index);
    index = btree_create(*store.sm, made, table_name);
    EXPECT_NE(index, nullptr) << test::errors();
    return *index;
  }
  std::vector<int> range(const BtreeRange &wanted) {
    RowSet rows{};
    EXPECT_TRUE(btree_range(*index, wanted, rows)) << test::errors();
    return std::vector<int>(rows.rows.begin(), rows.rows.end());
  }

  Store store;
  Btree *index = nullptr;
};

std::string hex(const uint8_t *bytes, int size) {
  std::string text;
  char pair[4];
  for (int i = 0; i < size; ++i) {
    snprintf(pair, sizeof(pair), "%02x", bytes[i]);
    text += pair;
    if (i % 4 == 3 && i + 1 < size) text += ' ';
  }
  return text;
}

std::string page_hex(Btree &index, uint32_t block, int size) {
  Page page;
  EXPECT_TRUE(btree_page_get(index, block, page)) << test::errors();
  return hex(page.data(), size);
}

uint32_t number_at(Btree &index, uint32_t block, int offset) {
  Page page;
  EXPECT_TRUE(btree_page_get(index, block, page)) << test::errors();
  return load_u32(page.data() + offset);
}

TEST_F(BtreeTest, RecordsAndPagesHaveTheirLayout) {
  BtreeDefinition made = definition(btree_timeseries, 2, {{type::int32, 4}, {type::character, 3}});
  made.parts[1].column = 5;
  made.table_id = 0x01020304;
  strcpy(made.index_name, "by_time");
  Btree &tree = make(made, "table");
  const DataSystems &systems = data_systems(*store.sm);
  uint8_t record[btree_descriptor_size];
  ASSERT_EQ(row_read(*systems.index_descriptors, tree.number, record, sizeof(record), nullptr),
            RowRead::active);
  char expected[256];
  snprintf(expected, sizeof(expected),
           "02000000 02000200 04000000 43000c02 04000300 01000500 %02x000000 %02x%02x%02x%02x 04030201",
           tree.root, tree.counter_row & 255, tree.counter_row >> 8 & 255, tree.counter_row >> 16 & 255,
           tree.counter_row >> 24);
  EXPECT_EQ(hex(record, 36), expected);
  EXPECT_STREQ(reinterpret_cast<char *>(record + 36), "table");
  EXPECT_STREQ(reinterpret_cast<char *>(record + 68), "by_time");
  ASSERT_EQ(row_read(*systems.index_counters, tree.counter_row, record, btree_counter_size, nullptr),
            RowRead::active);
  EXPECT_EQ(load_u32(record), tree.root);
  EXPECT_EQ(load_u32(record + 4), tree.root);
  EXPECT_EQ(load_u32(record + 8), 1u);

  const uint8_t key[7] = {0x2a, 0, 0, 0, 'a', 'b', 0};
  for (RowNo row : {0x500u, 0x3u, 0x900u, 0x1u})
    ASSERT_EQ(btree_insert(tree, key, &row), BtreeInsert::inserted);
  const uint32_t overflow = tree.root + 1;
  EXPECT_EQ(page_hex(tree, tree.root, 48),
            "00000000 0" + std::to_string(overflow) + "000000 00000000 00000000 00000000 01000000 " +
                "04000000 0" + std::to_string(overflow) + "000000 00050000 00090000 2a000000 616200" + "00");
  EXPECT_EQ(page_hex(tree, overflow, 32), "0" + std::to_string(tree.root) +
                                              "000000 00000000 00000000 00000000 00000000 02000000 "
                                              "01000000 03000000");
}

TEST(BtreeCreate, ItemKindsFollowFromTheDefinition) {
  Store store("BLOCK_SIZE=4096");
  struct Case {
    BtreeDefinition made;
    StatusCode status;
    int item_size, per_page;
  };
  BtreeDefinition payload = definition(btree_unique | btree_payload, 1, {{type::character, 32}});
  BtreeDefinition no_payload = payload;
  payload.value_size = 36;
  BtreeDefinition normal_payload = payload;
  normal_payload.flags = btree_payload;
  BtreeDefinition three = definition(0, 0, {{type::int32, 4}, {type::int32, 4}});
  three.part_count = 3;
  const Case cases[] = {
      {unique_int, 0, 8, 509},
      {normal_int(4), 0, 28, 145},
      {normal_int(0), 0, 12, 339},
      {payload, 0, 68, 59},
      {definition(0, 16, {{type::character, 64}, {type::character, 64}}), 0, 200, 20},
      {definition(0, 16, {{type::character, 64}, {type::character, 65}}), status::btree_create, 0, 0},
      {definition(btree_unique, 1, {{type::text, 8}}), status::btree_create, 0, 0},
      {definition(btree_unique, 1, {{type::int32, 5}}), status::btree_create, 0, 0},
      {normal_payload, status::btree_create, 0, 0},
      {no_payload, status::btree_value_size, 0, 0},
      {normal_int(17), status::btree_master_count, 0, 0},
      {definition(btree_unique, 1, {}), status::btree_key_parts, 0, 0},
      {three, status::btree_key_parts, 0, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(&c - cases);
    err_clear();
    const int used = store.used_blocks();
    Btree *index = btree_create(*store.sm, c.made);
    EXPECT_EQ(error_record().last_code, c.status);
    EXPECT_EQ(index != nullptr, c.status == 0);
    EXPECT_EQ(store.used_blocks() - used, index != nullptr);
    if (index == nullptr) continue;
    EXPECT_EQ(index->master_leaf.item_size, c.item_size);
    EXPECT_EQ(index->master_leaf.per_page, c.per_page);
    ASSERT_TRUE(btree_drop(index)) << test::errors();
    EXPECT_EQ(store.used_blocks(), used);
  }
}

// A page of 1024 bytes holds 125 unique int items.
TEST_F(BtreeTest, SplitsShareTheItemsByTheirRule) {
  struct Case {
    const char *what;
    uint32_t flags;
    int extra;  // key that splits a leaf of the even keys 2 to 250
    std::vector<int> leaves;
  };
  const Case cases[] = {
      {"plain, at the end", 0, 251, {100, 26}},
      {"plain, among the lower", 0, 1, {101, 25}},
      {"plain, first of the upper", 0, 201, {100, 26}},
      {"plain, last of the lower", 0, 199, {101, 25}},
      {"time series, at the end", btree_timeseries, 251, {125, 1}},
      {"time series, elsewhere", btree_timeseries, 249, {100, 26}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    Btree &tree = make(definition(btree_unique | c.flags, 1, {{type::int32, 4}}));
    for (int i = 1; i <= 125; ++i) ASSERT_TRUE(insert(tree, 2 * i, 1));
    ASSERT_EQ(walk(tree).leaf_counts, std::vector<int>{125});
    ASSERT_TRUE(insert(tree, c.extra, 1));
    EXPECT_EQ(walk(tree).leaf_counts, c.leaves);
    // The root kept its page; the lower page came first, then the upper.
    EXPECT_EQ(number_at(tree, tree.root, bpage::items), tree.root + 1);
    EXPECT_EQ(number_at(tree, tree.root, bpage::rightmost), tree.root + 2);
    EXPECT_EQ(number_at(tree, tree.root + 2, bpage::chain_previous), tree.root + 1);
  }
}

TEST_F(BtreeTest, AscendingKeysFillTheirPages) {
  for (const bool timeseries : {false, true}) {
    Btree &tree = make(definition(btree_unique | (timeseries ? btree_timeseries : 0), 1, {{type::int32, 4}}));
    for (int i = 0; i < 20000; ++i) ASSERT_TRUE(insert(tree, i, 1));
    const test::Walk found = walk(tree);
    const int fill = timeseries ? 125 : 100;
    for (size_t i = 0; i + 1 < found.leaf_counts.size(); ++i) ASSERT_EQ(found.leaf_counts[i], fill);
    EXPECT_EQ(found.items.size(), 20000u);
    EXPECT_EQ(found.depth, 3);
  }
}

TEST_F(BtreeTest, OverflowTreesFillAtTheEndAndSplitElsewhere) {
  Btree &tree = make(normal_int(0));
  const auto row = [](int order) { return static_cast<RowNo>((order & 255) << 8 | order >> 8); };  // as bytes
  for (int i = 2; i <= 500; i += 2) ASSERT_TRUE(insert(tree, 1, row(i)));
  const uint32_t root = tree.root + 1;
  const auto shape = [&] {
    std::vector<int> counts;
    Page page;
    const Tree overflow = tree_overflow(tree, root);
    TreePath path;
    EXPECT_TRUE(tree_descend(overflow, {nullptr, 0, Tie::before}, path, page));
    uint32_t left = 100;
    do counts.push_back(bpage::item_count(page.data()));
    while (tree_next_leaf(overflow, page, left) == NextLeaf::leaf);
    return counts;
  };
  EXPECT_EQ(shape(), std::vector<int>{250});
  ASSERT_TRUE(insert(tree, 1, row(502)));
  EXPECT_EQ(shape(), (std::vector<int>{250, 1}));
  ASSERT_TRUE(insert(tree, 1, row(3)));
  EXPECT_EQ(shape(), (std::vector<int>{163, 88, 1}));
  EXPECT_EQ(walk(tree).items[0].second.size(), 252u);
}

TEST_F(BtreeTest, ValuesMoveBetweenSlotsAndOverflowTree) {
  Btree &tree = make(normal_int(2));
  const int used = store.used_blocks();
  const auto values = [&] {
    const test::Walk found = walk(tree);
    return found.items.empty() ? std::vector<RowNo>{} : found.items[0].second;
  };
  for (RowNo row : {5u, 3u, 9u, 1u}) ASSERT_TRUE(insert(tree, 7, row));
  EXPECT_EQ(values(), (std::vector<RowNo>{1, 3, 5, 9}));
  EXPECT_EQ(page_hex(tree, tree.root, 44).substr(54 + 18), "01000000 03000000 07000000");
  for (RowNo again : {3u, 9u}) EXPECT_FALSE(insert(tree, 7, again));
  EXPECT_EQ(values(), (std::vector<RowNo>{1, 3, 5, 9}));
  ASSERT_TRUE(remove(tree, 7, 1));
  EXPECT_EQ(page_hex(tree, tree.root, 44).substr(54 + 18), "03000000 05000000 07000000");
  err_clear();
  for (RowNo absent : {1u, 4u, 10u}) EXPECT_FALSE(remove(tree, 7, absent));
  EXPECT_FALSE(remove(tree, 8, 3));
  EXPECT_EQ(error_record().entries[0].code, status::btree_key_missing);
  ASSERT_TRUE(remove(tree, 7, 9));
  ASSERT_TRUE(remove(tree, 7, 3));
  EXPECT_EQ(values(), std::vector<RowNo>{5});
  EXPECT_EQ(store.used_blocks(), used + 1) << "the empty overflow root stays";
  ASSERT_TRUE(remove(tree, 7, 5));
  EXPECT_EQ(values(), std::vector<RowNo>{});
  EXPECT_EQ(store.used_blocks(), used);
}

TEST_F(BtreeTest, UniqueKeysKeepTheirFirstValue) {
  Btree &tree = make(unique_int);
  ASSERT_TRUE(insert(tree, 7, 0xfedcba98));
  const RowNo other = 5;
  EXPECT_EQ(btree_insert(tree, Key(7), &other), BtreeInsert::exists);
  RowNo found = 0;
  EXPECT_EQ(btree_find_value(tree, Key(7), &found), BtreeFind::found);
  EXPECT_EQ(found, 0xfedcba98);
  EXPECT_EQ(btree_find_value(tree, Key(8), &found), BtreeFind::absent);
  EXPECT_FALSE(remove(tree, 7, 5));
  EXPECT_TRUE(remove(tree, 7, 0xfedcba98));
}

TEST_F(BtreeTest, DeletingEverythingFreesAllButTheRoot) {
  for (const BtreeDefinition &made : {unique_int, normal_int(0), normal_int(2)}) {
    for (const int order : {1, -1, 7}) {
      Btree &tree = make(made);
      const int used = store.used_blocks();
      const int count = 3001, values = btree_is_unique(tree) ? 1 : 3;
      for (int i = 0; i < count; ++i)
        for (int v = 1; v <= values; ++v) ASSERT_TRUE(insert(tree, i, static_cast<RowNo>(v)));
      EXPECT_GT(store.used_blocks(), used + 20);
      int at = order < 0 ? count - 1 : 0;
      for (int i = 0; i < count; ++i, at = (at + order + count) % count) {
        for (int v = values; v >= 1; --v) ASSERT_TRUE(remove(tree, at, static_cast<RowNo>(v))) << at;
        if (i % 997 == 0) walk(tree);
      }
      EXPECT_EQ(store.used_blocks(), used);
      EXPECT_EQ(page_hex(tree, tree.root, 24), "00000000 00000000 00000000 00000000 00000000 00000000");
      EXPECT_EQ(btree_pages(tree).last, tree.root);
      EXPECT_EQ(btree_pages(tree).count, 1u);
      ASSERT_TRUE(insert(tree, 1, 1));
    }
  }
}

TEST_F(BtreeTest, RangesEndWhereTheirBoundsSay) {
  make(unique_int);
  for (int i = 1; i <= 300; ++i) ASSERT_TRUE(insert(*index, 10 * i, static_cast<RowNo>(i)));
  ASSERT_GT(walk(*index).leaf_counts.size(), 2u);
  const auto n = Bound::none, in = Bound::inclusive, ex = Bound::exclusive;
  struct Case {
    int lower;
    Bound lower_bound;
    int upper;
    Bound upper_bound;
    int first, last;  // rows found; first above last: none
  };
  const Case cases[] = {
      {0, n, 0, n, 1, 300},       {0, n, 30, in, 1, 3},          {0, n, 30, ex, 1, 2},
      {0, n, 5, in, 1, 0},        {2980, in, 0, n, 298, 300},    {2980, ex, 0, n, 299, 300},
      {3000, ex, 0, n, 1, 0},     {9999, in, 0, n, 1, 0},        {1000, in, 1000, in, 100, 100},
      {1000, in, 1000, ex, 1, 0}, {1000, ex, 1000, in, 1, 0},    {1000, ex, 1000, ex, 1, 0},
      {1005, in, 1005, in, 1, 0}, {1001, in, 1009, in, 1, 0},    {1000, ex, 1010, ex, 1, 0},
      {2000, in, 1000, in, 1, 0}, {995, in, 1025, ex, 100, 102}, {-5, in, 99999, in, 1, 300},
      {10, ex, 2000, in, 2, 200}, {500, in, 1500, ex, 50, 149},  {3000, in, 3000, in, 300, 300},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(&c - cases);
    std::vector<int> expected;
    for (int i = c.first; i <= c.last; ++i) expected.push_back(i);
    const Key lower(c.lower), upper(c.upper);
    EXPECT_EQ(range({lower, c.lower_bound, upper, c.upper_bound, false}), expected);
  }
}

TEST_F(BtreeTest, FirstPartRangesTakeEverySecondPart) {
  make(definition(btree_unique, 1, {{type::int32, 4}, {type::int32, 4}}));
  RowNo row = 0;
  for (int first : {10, 20, 30})
    for (int second = 0; second < 150; ++second) ASSERT_TRUE(insert(*index, Key(first, second), ++row));
  const auto in = Bound::inclusive, ex = Bound::exclusive;
  const auto rows = [&](int lower, Bound lower_bound, int upper, Bound upper_bound) {
    const std::vector<int> found = range({Key(lower), lower_bound, Key(upper), upper_bound, true});
    return found.empty() ? std::pair(0, 0) : std::pair(found.front(), found.back());
  };
  EXPECT_EQ(rows(10, in, 20, in), std::pair(1, 300));
  EXPECT_EQ(rows(10, ex, 30, ex), std::pair(151, 300));
  EXPECT_EQ(rows(20, in, 20, in), std::pair(151, 300));
  EXPECT_EQ(rows(20, ex, 20, in), std::pair(0, 0));
  EXPECT_EQ(rows(11, in, 19, in), std::pair(0, 0));
  EXPECT_EQ(rows(20, ex, 99, in), std::pair(301, 450));
}

TEST_F(BtreeTest, CursorsGiveKeysRowsAndPayloads) {
  BtreeDefinition made = definition(btree_unique | btree_payload, 1, {{type::int32, 4}});
  made.value_size = 36;
  make(made);
  for (int i = 0; i < 100; ++i) {
    const std::string payload(36, static_cast<char>('A' + i % 26));
    ASSERT_EQ(btree_insert(*index, Key(i), payload.data()), BtreeInsert::inserted);
  }
  BtreeCursor cursor;
  ASSERT_TRUE(btree_cursor_open(cursor, *index, {}));
  uint8_t key[btree_key_limit];
  char payload[36];
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(btree_cursor_fetch(cursor, key, nullptr, payload), BtreeFetch::item);
    EXPECT_EQ(load_i32(key), i);
    EXPECT_EQ(std::string(payload, 36), std::string(36, static_cast<char>('A' + i % 26)));
  }
  EXPECT_EQ(btree_cursor_fetch(cursor, key, nullptr, payload), BtreeFetch::end);
  EXPECT_EQ(btree_cursor_fetch(cursor, key, nullptr, payload), BtreeFetch::end);
  EXPECT_EQ(store.sm->dat->lock_count, 0) << "no page stays held";
}

TEST_F(BtreeTest, HandlesFollowTheLevelsOfATransaction) {
  Btree &tree = make(unique_int);
  const RowNo number = tree.number;
  ASSERT_TRUE(insert(tree, -1, 1));
  store.begin();
  ASSERT_TRUE(btree_rename_table(tree, "renamed"));
  test::on_other_thread([&] { EXPECT_STREQ(btree_table_name(tree), ""); });
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(insert(tree, i, 1));
  store.begin();
  for (int i = 300; i < 600; ++i) ASSERT_TRUE(insert(tree, i, 1));
  Btree *inner = btree_create(*store.sm, unique_int);
  ASSERT_NE(inner, nullptr);
  btree_close(inner);
  store.rollback();
  EXPECT_EQ(walk(tree).items.size(), 301u);
  EXPECT_STREQ(btree_table_name(tree), "renamed");
  store.rollback();
  EXPECT_EQ(walk(tree).items.size(), 1u);
  EXPECT_STREQ(btree_table_name(tree), "");

  store.begin();
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(insert(tree, i, 1));
  btree_close(index);
  index = btree_open(*store.sm, number);
  EXPECT_EQ(walk(*index).items.size(), 301u);
  store.begin();
  for (int i = 300; i < 600; ++i) ASSERT_TRUE(insert(*index, i, 1));
  store.commit();
  store.commit();
  EXPECT_EQ(walk(*index).items.size(), 601u);

  store.begin();
  const int used = store.used_blocks();
  const uint32_t pages = btree_pages(*index).count;
  ASSERT_TRUE(btree_drop(index)) << test::errors();
  EXPECT_EQ(store.used_blocks(), used - static_cast<int>(pages));
  EXPECT_EQ(btree_open(*store.sm, number), nullptr);
  store.rollback();
  index = btree_open(*store.sm, number);
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(walk(*index).items.size(), 601u);
  btree_close(index);

  store.reopen();
  store.begin();
  index = btree_open(*store.sm, number);
  ASSERT_NE(index, nullptr) << test::errors();
  EXPECT_EQ(walk(*index).items.size(), 601u);
}

TEST_F(BtreeTest, OneHandlePerIndexWhateverBecameOfIt) {
  const RowNo number = make(unique_int).number;
  ASSERT_EQ(btree_open(*store.sm, number), index);
  store.begin();
  ASSERT_TRUE(btree_drop(index));
  EXPECT_EQ(btree_open(*store.sm, number), nullptr);
  test::on_other_thread([&] {
    Btree *other = btree_open(*store.sm, number);
    EXPECT_EQ(other, index) << "dropped for the owner only";
    if (other != nullptr) btree_close(other);
  });
  store.rollback();
  store.begin();
  EXPECT_EQ(btree_open(*store.sm, number), index) << "there again for the owner, too";
  Btree *made = btree_create(*store.sm, unique_int);
  ASSERT_NE(made, nullptr);
  test::on_other_thread([&] { EXPECT_EQ(btree_open(*store.sm, made->number), nullptr); });
  btree_close(made);
  store.rollback();
  EXPECT_EQ(data_systems(*store.sm).btrees, index);
  EXPECT_EQ(index->next, nullptr) << "what was rolled back leaves no handle";

  store.begin();
  made = btree_create(*store.sm, unique_int);
  ASSERT_NE(made, nullptr);
  store.commit();
  EXPECT_EQ(btree_open(*store.sm, made->number), made);
  btree_close(made);
  store.begin();
  ASSERT_TRUE(btree_drop(made));
  store.commit();
  EXPECT_EQ(data_systems(*store.sm).btrees, index) << "a committed drop takes the handle along";

  // A handle outlives its last close until its counters are written.
  for (int i = 0; i < 600; ++i) ASSERT_TRUE(insert(*index, i, 1));
  btree_close(index);
  btree_close(index);
  ASSERT_EQ(btree_open(*store.sm, number), index);
  store.save();
  btree_close(index);
  EXPECT_EQ(data_systems(*store.sm).btrees, nullptr);
  index = btree_open(*store.sm, number);
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(walk(*index).items.size(), 600u);
}

TEST_F(BtreeTest, HandlesFollowAnotherProcess) {
  const RowNo number = make(unique_int).number;
  ASSERT_TRUE(insert(*index, -1, 1));
  store.save();
  const auto elsewhere = [&](auto work) {
    StorageManager *other = sm_open(*store.sm->params);
    ASSERT_NE(other, nullptr) << test::errors();
    work(*other, btree_open(*other, number));
    EXPECT_TRUE(sm_direct_end(*other)) << test::errors();
    sm_close(other);
    bool changed = false;
    EXPECT_TRUE(sm_refresh(*store.sm, &changed));
    EXPECT_TRUE(changed);
    EXPECT_TRUE(row_systems_reload_all(*store.sm) && btrees_reload_all(*store.sm)) << test::errors();
  };
  elsewhere([](StorageManager &, Btree *other) {
    for (int i = 0; i < 600; ++i) ASSERT_TRUE(insert(*other, i, 1));
    btree_close(other);
  });
  EXPECT_EQ(walk(*index).items.size(), 601u);
  EXPECT_EQ(btree_open(*store.sm, number), index);
  btree_close(index);

  elsewhere([&](StorageManager &sm, Btree *other) {
    ASSERT_TRUE(btree_drop(other));
    other = btree_create(sm, normal_int(2));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->number, number) << "the new index takes the old one's place";
    btree_close(other);
  });
  Btree *fresh = btree_open(*store.sm, number);
  ASSERT_NE(fresh, nullptr) << test::errors();
  EXPECT_NE(fresh, index);
  EXPECT_FALSE(btree_is_unique(*fresh));
  btree_close(fresh);
}

TEST_F(BtreeTest, TheDumpListsEverything) {
  Btree &tree = make(normal_int(2), "t");
  strcpy(tree.definition.index_name, "i");
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(insert(tree, i, 1));
  testing::internal::CaptureStdout();
  btree_dump(tree, "*** title ***");
  fflush(stdout);
  const std::string root = std::to_string(tree.root);
  std::string pages;
  for (char level = '0'; level <= '4'; ++level)
    pages += std::string(" [") + level + "] ptop:[" + root + "] plst:[" + root + "] pcnt:[1]\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "*** title ***\n --- name ---\n tname :[t]\n iname :[i]\n --- no ---\n rno   :[" +
                std::to_string(tree.number) +
                "]\n gno   :[0]\n --- paramater ---\n type  :[0]\n icnt  :[1]\n mcnt  :[2]\n vsz   :[4]\n"
                " root  :[" +
                root + "]\n cpos  :[" + std::to_string(tree.counter_row) +
                "]\n trno  :[0]\n [0] ktype:[67] ksize:[4] kano:[1]\n ---  page counter ---\n" + pages +
                " --- master leaf size ---\n isz:[20] ksz:[4] vszt:[16] mcnt[50]\n"
                " --- master node size ---\n isz:[8] ksz:[4] vszt:[4] mcnt[125]\n"
                " --- overflow leaf size ---\n isz:[4] ksz:[4] vszt:[0] mcnt[250]\n"
                " --- overflow node size ---\n isz:[8] ksz:[4] vszt:[4] mcnt[125]\n"
                " --- traverse ---\n item count :[3]\n");
}

TEST(BtreeFull, AFullDataFileLeavesTheTreeWhole) {
  for (const int slots : {-1, 0, 2}) {
    Store store("BLOCK_SIZE=1024;SIZE_DAT=60B");
    store.begin();
    BtreeDefinition made =
        definition(slots < 0 ? btree_unique : 0, slots, {{type::int32, 4}, {type::int32, 4}});
    if (slots == 0) made.parts[1] = {type::character, 120, 2};  // seven keys a page, and a page per key
    Btree *index = btree_create(*store.sm, made);
    ASSERT_NE(index, nullptr) << test::errors();
    test::Random random(static_cast<uint64_t>(slots + 2));
    std::set<std::pair<int, RowNo>> held;
    for (int failures = 0; failures < 40;) {
      const int key = random.below(slots > 0 ? 30 : 1 << 30);
      const RowNo row = static_cast<RowNo>(random.below(1 << 30));
      err_clear();
      if (insert(*index, key, row)) {
        held.emplace(key, row);
        continue;
      }
      ASSERT_TRUE(recorded(status::btree_new_page)) << test::errors();
      ++failures;
    }
    std::set<std::pair<int, RowNo>> found;
    for (const auto &[key, rows] : walk(*index).items)
      for (RowNo row : rows) found.emplace(load_i32(key.data()), row);
    EXPECT_EQ(found, held);
    store.commit();
    btree_close(index);
  }
}

// ---- damage

// One number of one page changed, and what an operation that meets it answers.
TEST_F(BtreeTest, DamagedPagesEndInAStatus) {
  enum Operation { search, add, take, scan, values };
  struct Case {
    const char *what;
    int page;  // 0 root, 1 first leaf, 2 last leaf, 3 overflow root of key 1
    int offset;
    uint32_t value;
    Operation operation;
    StatusCode status;
  };
  const int item = bpage::items;
  const uint32_t self = 0xfffffffe, last = 0xfffffffd;  // the page itself, the last leaf
  const Case cases[] = {
      {"too many items in a node", 0, bpage::count, 126, search, status::btree_page_fetch},
      {"too many items in a leaf", 1, bpage::count, 0x80000000u, search, status::btree_page_fetch},
      {"too many items in a leaf", 1, bpage::count, 51, add, status::btree_page_fetch},
      {"child page 0", 0, item, 0, search, status::btree_page_fetch},
      {"child page beyond the file", 0, item, 0x7fffffff, search, status::btree_page_fetch},
      {"negative child page", 0, item, 0xffffffff, search, status::btree_page_fetch},
      {"a child that is its own parent", 0, item, self, search, status::btree_depth},
      {"right sibling beyond the file", 1, bpage::right, 0x7fffffff, scan, status::btree_page_fetch},
      {"a leaf that is its own sibling", 1, bpage::right, self, scan, status::btree_page_fetch},
      {"a right sibling that does not lead back", 1, bpage::right, last, scan, status::btree_page_fetch},
      {"no values", 1, item, 0, values, status::btree_item_get},
      {"too many values", 1, item, 0xffffffff, values, status::btree_item_get},
      {"more values than the overflow tree has", 1, item, 9, values, status::btree_item_get},
      {"fewer values than the overflow tree has", 1, item, 4, values, status::btree_item_get},
      {"no overflow tree", 1, item + 4, 0, values, status::btree_item_get},
      {"no overflow tree", 1, item + 4, 0, take, status::btree_item_get},
      {"overflow root beyond the file", 1, item + 4, 0x7fffffff, values, status::btree_page_fetch},
      {"an empty overflow tree", 3, bpage::count, 0, take, status::btree_overflow_first},
      {"too many overflow values", 3, bpage::count, 251, values, status::btree_page_fetch},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    Btree &tree = make(normal_int(2));
    for (RowNo row = 1; row <= 5; ++row) ASSERT_TRUE(insert(tree, 1, row));
    const uint32_t overflow = number_at(tree, tree.root, bpage::items + bvalues::root);
    for (int i = 2; i < 100; ++i) ASSERT_TRUE(insert(tree, i, 1));
    const uint32_t pages[] = {tree.root, number_at(tree, tree.root, bpage::items),
                              number_at(tree, tree.root, bpage::rightmost), overflow};
    Page page;
    ASSERT_TRUE(btree_page_get(tree, pages[c.page], page));
    const uint32_t value = c.value == self ? pages[c.page] : c.value == last ? pages[2] : c.value;
    store_u32(page.data() + c.offset, value);
    ASSERT_TRUE(btree_page_write(page));
    err_clear();
    RowSet rows{};
    bool done = false;
    switch (c.operation) {
      case search:
        done = btree_search(tree, Key(3), nullptr) != BtreeFind::failed;
        break;
      case values:
        done = btree_search(tree, Key(1), &rows) != BtreeFind::failed;
        break;
      case add:
        done = insert(tree, 0, 1);
        break;
      case take:
        done = remove(tree, 1, 1);
        break;
      case scan:
        done = btree_range(tree, {}, rows);
        break;
    }
    EXPECT_FALSE(done);
    EXPECT_TRUE(recorded(c.status)) << test::errors();
    EXPECT_EQ(store.sm->dat->lock_count, 0) << "no page stays held";
  }
}

TEST_F(BtreeTest, ATreeEndsAtSixteenLevels) {
  Btree &tree = make(definition(btree_unique, 1, {{type::character, 120}, {type::int32, 4}}));
  const BtreeItemKind &kind = tree.master_node;
  // Fifteen full nodes over one full leaf; every child is the page below.
  Page above;
  ASSERT_TRUE(btree_page_get(tree, tree.root, above));
  for (int level = 1; level <= btree_depth_limit; ++level) {
    const bool leaf = level == btree_depth_limit;
    const BtreeItemKind &items = leaf ? tree.master_leaf : kind;
    Page below;
    uint32_t child = 1;
    if (!leaf) {
      ASSERT_TRUE(btree_page_new(tree, below));
      child = static_cast<uint32_t>(below.block());
    }
    for (int i = 0; i < items.per_page; ++i) {
      store_u32(bpage::item(above.data(), items, i), child);
      bpage::key(above.data(), items, i)[0] = static_cast<uint8_t>('a' + i);
    }
    bpage::set_item_count(above.data(), items.per_page);
    if (!leaf) bpage::set_link(above.data(), bpage::rightmost, child);
    ASSERT_TRUE(btree_page_write(above));
    above = std::move(below);
  }
  const uint8_t last[btree_key_limit] = {'z'};
  EXPECT_EQ(btree_search(tree, last, nullptr), BtreeFind::absent) << test::errors();
  const int used = store.used_blocks();
  const RowNo row = 1;
  EXPECT_EQ(btree_insert(tree, last, &row), BtreeInsert::failed);
  EXPECT_EQ(error_record().last_code, status::btree_depth);
  EXPECT_EQ(store.used_blocks(), used);
  // One level more: the leaf becomes a node that leads to the root.
  Page leaf;
  ASSERT_TRUE(btree_page_get(tree, btree_pages(tree).last, leaf));
  bpage::set_link(leaf.data(), bpage::rightmost, tree.root);
  ASSERT_TRUE(btree_page_write(leaf));
  EXPECT_EQ(btree_search(tree, last, nullptr), BtreeFind::failed);
  EXPECT_EQ(error_record().last_code, status::btree_depth);
}

// Whatever bytes a page holds, operations end and touch nothing outside their pages.
TEST(BtreeRandomDamage, NothingCrashesOrLoops) {
  test::Random random;
  for (int round = 0; round < 60; ++round) {
    Store store;
    const int slots = round % 3 - 1;
    Btree *index = btree_create(*store.sm, slots < 0 ? unique_int : normal_int(slots));
    ASSERT_NE(index, nullptr);
    const auto key = [&] { return Key(random.below(slots < 0 ? 5000 : 400)); };
    for (int i = 0; i < 3000; ++i) (void)insert(*index, key(), static_cast<RowNo>(1 + random.below(9)));
    for (int step = 0; step < 200; ++step) {
      Page page;
      const BlockNo block = 3 + random.below(bm_counters(*store.sm->bm, part_dat).bcnt - 2);
      if (step % 10 == 0 && sm_page_get(*store.sm, block, 0, page)) {
        const int offset = random.one_in(2) ? 4 * random.below(12) : random.below(1021);
        store_u32(page.data() + offset, random.one_in(2) ? static_cast<uint32_t>(random.below(60))
                                                         : static_cast<uint32_t>(random.next()));
        ASSERT_TRUE(sm_page_release_write(page));
      }
      err_clear();
      const RowNo row = static_cast<RowNo>(1 + random.below(9));
      RowSet rows{};
      switch (random.below(4)) {
        case 0:
          (void)insert(*index, key(), row);
          break;
        case 1:
          (void)remove(*index, key(), row);
          break;
        case 2:
          (void)btree_search(*index, key(), &rows);
          break;
        default:
          (void)btree_range(*index, {key(), Bound::inclusive, nullptr, Bound::none, false}, rows);
      }
      ASSERT_EQ(store.sm->dat->lock_count, 0);
    }
    btree_close(index);
    err_clear();
  }
}

}  // namespace
}  // namespace tovik
