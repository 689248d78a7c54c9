// The B-tree page by page: formats byte for byte, the shapes that splits leave, handles over transactions and
// processes, and damaged pages.
#include "data_support.h"

namespace tovik {
namespace {

using test::definition;
using Store = test::StorageFixture;
using test::walk;

const BtreeDefinition unique_int = definition(btree_unique, 1, {{type::int32, 4}});
BtreeDefinition normal_int(int slots) {
  return definition(0, slots, {{type::int32, 4}});
}

struct Key {
  uint8_t bytes[btree_key_limit] = {};
  Key(int number) { store_i32(bytes, number); }
  operator const uint8_t *() const { return bytes; }
};

bool insert(Btree &index, const Key &key, RowNo row) {
  return btree_insert(index, key, &row) == BtreeInsert::inserted;
}
bool remove(Btree &index, const Key &key, RowNo row) {
  return btree_delete(index, key, &row);
}

bool recorded(StatusCode code) {
  const test::Codes codes = test::recorded();
  return std::find(codes.begin(), codes.end(), code) != codes.end();
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
  Store store;
  Btree *index = nullptr;
};

std::string page_hex(Btree &index, uint32_t block, int size) {
  Page page;
  EXPECT_TRUE(btree_page_get(index, block, page)) << test::errors();
  return test::hex(page.data(), size);
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
  const auto word = [](uint32_t number) {
    uint8_t bytes[4];
    store_u32(bytes, number);
    return test::hex(bytes, 4);
  };
  const std::string root = word(tree.root), overflow = word(tree.root + 1), none = word(0);
  uint8_t record[btree_descriptor_size];
  ASSERT_EQ(row_read(*systems.index_descriptors, tree.number, record, sizeof(record), nullptr),
            RowRead::active);
  EXPECT_EQ(test::hex(record, 36),
            "02000000020002000400000043000c020400030001000500" + root + word(tree.counter_row) + "04030201");
  EXPECT_STREQ(reinterpret_cast<char *>(record + 36), "table");
  EXPECT_STREQ(reinterpret_cast<char *>(record + 68), "by_time");
  ASSERT_EQ(row_read(*systems.index_counters, tree.counter_row, record, btree_counter_size, nullptr),
            RowRead::active);
  EXPECT_EQ(test::hex(record, 12), root + root + word(1));

  const uint8_t key[7] = {0x2a, 0, 0, 0, 'a', 'b', 0};
  for (RowNo row : {0x500u, 0x3u, 0x900u, 0x1u})
    ASSERT_EQ(btree_insert(tree, key, &row), BtreeInsert::inserted);
  EXPECT_EQ(page_hex(tree, tree.root, 47), none + overflow + none + none + none + word(1) +  // one item
                                               word(4) + overflow + "00050000" + "00090000" +
                                               "2a000000616200");
  EXPECT_EQ(page_hex(tree, tree.root + 1, 32),
            root + none + none + none + none + word(2) + "01000000" + "03000000");
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
  const Case cases[] = {
      {normal_int(0), 0, 12, 339},
      {payload, 0, 68, 59},
      {definition(0, 16, {{type::character, 64}, {type::character, 64}}), 0, 200, 20},
      {definition(0, 16, {{type::character, 64}, {type::character, 65}}), status::btree_create, 0, 0},
      {definition(btree_unique, 1, {{type::text, 8}}), status::btree_create, 0, 0},
      {normal_payload, status::btree_create, 0, 0},
      {no_payload, status::btree_value_size, 0, 0},
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
      {"plain, last of the lower", 0, 199, {101, 25}},
      {"time series, at the end", btree_timeseries, 251, {125, 1}},
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

TEST_F(BtreeTest, AnEmptyOverflowTreeStaysUntilItsKeyGoes) {
  Btree &tree = make(normal_int(2));
  const int used = store.used_blocks();
  for (RowNo row : {5u, 3u, 9u, 1u}) ASSERT_TRUE(insert(tree, 7, row));
  for (RowNo row : {1u, 9u, 3u}) ASSERT_TRUE(remove(tree, 7, row));
  EXPECT_EQ(store.used_blocks(), used + 1);
  EXPECT_EQ(walk(tree).items[0].second, std::vector<RowNo>{5});
  ASSERT_TRUE(remove(tree, 7, 5));
  EXPECT_EQ(store.used_blocks(), used);
}

TEST_F(BtreeTest, OneHandlePerIndexWhateverBecameOfIt) {
  const RowNo number = make(unique_int).number;
  ASSERT_EQ(btree_open(*store.sm, number), index);
  store.begin();
  ASSERT_TRUE(btree_drop(index));
  EXPECT_EQ(btree_open(*store.sm, number), nullptr);
  test::on_other_thread([&] {
    EXPECT_EQ(btree_open(*store.sm, number), index) << "dropped for the owner only";
    btree_close(index);
  });
  store.rollback();
  ASSERT_EQ(btree_open(*store.sm, number), index) << "there again for the owner, too";
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
    EXPECT_TRUE(sm_refresh(*store.sm, &changed) && changed);
    EXPECT_TRUE(row_systems_reload_all(*store.sm) && btrees_reload_all(*store.sm)) << test::errors();
  };
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

// ---- damage

// The overflow tree of a key has changed when the page of the key itself cannot be given back.
TEST_F(BtreeTest, AnItemThatCannotBeRewrittenTearsTheLevel) {
  static StorageManager *sm;
  static BlockNo root;
  static decltype(system_driver.lock_enter) enter;
  sm = store.sm;
  Btree &tree = make(normal_int(1));
  root = static_cast<BlockNo>(tree.root);
  for (RowNo row : {1u, 2u}) ASSERT_TRUE(insert(tree, 7, row));
  for (const bool adding : {true, false}) {
    store.begin();
    {
      const test::SlotGuard<decltype(enter)> guard(system_driver.lock_enter, [](Lock *lock) {
        CachePage *leaf = cm_find(*sm->trn, root), *overflow = cm_find(*sm->trn, root + 1);
        if (leaf != nullptr && overflow != nullptr && (overflow->status & page_dirty) != 0) leaf->magic = 0;
        return enter(lock);
      });
      enter = guard.saved();
      EXPECT_FALSE(adding ? insert(tree, 7, 3) : remove(tree, 7, 2));
    }
    EXPECT_TRUE(recorded(status::btree_item_rewrite)) << test::errors();
    cm_find(*sm->trn, root)->magic = page_magic;
    EXPECT_FALSE(tm_commit(*sm->tm, current_thread()));
    EXPECT_TRUE(recorded(status::tran_bad_state)) << test::errors();
    store.rollback();
    err_clear();
    EXPECT_EQ(walk(tree).items[0].second, (std::vector<RowNo>{1, 2}));
  }
}

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
      {"too many items in a leaf", 1, bpage::count, 51, add, status::btree_page_fetch},
      {"child page 0", 0, item, 0, search, status::btree_page_fetch},
      {"a child that is its own parent", 0, item, self, search, status::btree_depth},
      {"a leaf that is its own sibling", 1, bpage::right, self, scan, status::btree_page_fetch},
      {"a right sibling that does not lead back", 1, bpage::right, last, scan, status::btree_page_fetch},
      {"no values", 1, item, 0, values, status::btree_item_get},
      {"more values than the overflow tree has", 1, item, 9, values, status::btree_item_get},
      {"fewer values than the overflow tree has", 1, item, 4, values, status::btree_item_get},
      {"no overflow tree", 1, item + 4, 0, take, status::btree_item_get},
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
    ASSERT_TRUE(btree_page_write(tree, page));
    err_clear();
    RowSet rows{};
    const bool done = c.operation == search   ? btree_search(tree, Key(3), nullptr) != BtreeFind::failed
                      : c.operation == values ? btree_search(tree, Key(1), &rows) != BtreeFind::failed
                      : c.operation == add    ? insert(tree, 0, 1)
                      : c.operation == take   ? remove(tree, 1, 1)
                                              : btree_range(tree, {}, rows);
    EXPECT_FALSE(done);
    EXPECT_TRUE(recorded(c.status)) << test::errors();
    EXPECT_EQ(store.sm->dat->lock_count, 0) << "no page stays held";
  }
}

}  // namespace
}  // namespace tovik
