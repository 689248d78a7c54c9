// Handles of B-trees over transactions and processes, and changes that stay half made.
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
    ASSERT_TRUE(other != nullptr && sm_open_systems(*other)) << test::errors();
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

}  // namespace
}  // namespace tovik
