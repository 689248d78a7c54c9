// Handles of an index that is dropped, and an item whose page cannot be given back.
#include "data/index/btree_tree.h"
#include "data_support.h"

namespace tovik::test {
namespace {

Btree *create(StorageManager &sm, uint32_t flags) {
  BtreeDefinition made = {};
  made.flags = flags;
  made.part_count = made.master_count = 1;
  made.value_size = 4;
  made.parts[0] = {type::int32, 4, 1};
  Btree *index = btree_create(sm, made);
  EXPECT_NE(index, nullptr) << errors();
  return index;
}

TEST(BtreeTest, OneHandlePerIndexWhateverBecameOfIt) {
  StorageFixture store;
  Btree *index = create(*store.sm, btree_unique);
  const RowNo number = index->number;
  ASSERT_EQ(btree_open(*store.sm, number), index);
  ASSERT_TRUE(store.begin()) << errors();
  ASSERT_TRUE(btree_drop(index));
  EXPECT_EQ(btree_open(*store.sm, number), nullptr);
  on_other_thread([&] {
    EXPECT_EQ(btree_open(*store.sm, number), index) << "dropped for the owner only";
    btree_close(index);
  });
  ASSERT_TRUE(store.rollback()) << errors();
  ASSERT_EQ(btree_open(*store.sm, number), index) << "there again for the owner, too";
  btree_close(index);

  // Another process puts an index of another kind in its place.
  EXPECT_TRUE(sm_direct_end(*store.sm)) << errors();
  StorageManager *elsewhere = sm_open(*store.sm->params);
  ASSERT_TRUE(elsewhere != nullptr && sm_open_systems(*elsewhere)) << errors();
  ASSERT_TRUE(btree_drop(btree_open(*elsewhere, number)));
  Btree *other = create(*elsewhere, 0);
  EXPECT_EQ(other->number, number);
  btree_close(other);
  EXPECT_TRUE(sm_direct_end(*elsewhere)) << errors();
  sm_close(elsewhere);
  bool changed = false;
  EXPECT_TRUE(sm_refresh(*store.sm, &changed) && changed);
  EXPECT_TRUE(row_systems_reload_all(*store.sm) && btrees_reload_all(*store.sm)) << errors();
  other = btree_open(*store.sm, number);
  EXPECT_NE(other, index);
  EXPECT_FALSE(btree_is_unique(*other));
  btree_close(other);
  btree_close(index);
}

// The overflow tree of a key has changed when the page of the key itself cannot be given back.
TEST(BtreeTest, AnItemThatCannotBeRewrittenTearsTheLevel) {
  static StorageManager *sm;
  static BlockNo root;
  static decltype(system_driver.lock_enter) enter;
  StorageFixture store;
  sm = store.sm;
  Btree *tree = create(*sm, 0);
  root = static_cast<BlockNo>(tree->root);
  const uint8_t key[btree_key_limit] = {7};
  RowNo rows[] = {1, 2, 3};
  for (int i = 0; i < 2; ++i) ASSERT_EQ(btree_insert(*tree, key, &rows[i]), BtreeInsert::inserted);
  for (const bool adding : {true, false}) {
    ASSERT_TRUE(store.begin()) << errors();
    {
      const SlotGuard<decltype(enter)> guard(system_driver.lock_enter, [](Lock *lock) {
        CachePage *leaf = cm_find(*sm->trn, root), *overflow = cm_find(*sm->trn, root + 1);
        if (leaf != nullptr && overflow != nullptr && (overflow->status & page_dirty) != 0) leaf->magic = 0;
        return enter(lock);
      });
      enter = guard.saved();
      EXPECT_FALSE(adding ? btree_insert(*tree, key, &rows[2]) == BtreeInsert::inserted
                          : btree_delete(*tree, key, &rows[1]));
    }
    EXPECT_EQ(take_recorded().back(), status::btree_item_rewrite);
    cm_find(*sm->trn, root)->magic = page_magic;
    EXPECT_FALSE(tm_commit(*sm->tm, current_thread()));
    EXPECT_EQ(first_status(), status::tran_bad_state);
    ASSERT_TRUE(store.rollback()) << errors();
    RowSet found = {};
    EXPECT_EQ(btree_search(*tree, key, &found), Found::yes) << errors();
    EXPECT_EQ(std::vector<RowNo>(found.rows.begin(), found.rows.end()), (std::vector<RowNo>{1, 2}));
  }
  btree_close(tree);
}

}  // namespace
}  // namespace tovik::test
