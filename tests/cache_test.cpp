#include "storage/cache/cache.h"

#include <map>
#include <set>

#include "storage_support.h"

namespace tovik::test {
namespace {

const char memory_database[] = "NAME=c;TYPE=MEMORY;BLOCK_SIZE=1024;";

TEST(CacheTest, FullCacheFailsAndRecovers) {
  StorageEngine engine;
  Database db(std::string(memory_database) + "CACHE_SIZE_DAT=2;CACHE_RTC=3;CACHE_RTS=0",
              Database::Start::create);
  Page pages[3];
  ASSERT_TRUE(sm_page_get(*db, 1, 1, pages[0]) && sm_page_get(*db, 2, 1, pages[1]));
  EXPECT_FALSE(sm_page_new(*db, 1, pages[2]));
  EXPECT_EQ((Codes{status::cache_full, status::cache_get_page}), take_recorded());
  EXPECT_EQ(2, db.counters().bcnt);
  ASSERT_TRUE(sm_page_release(pages[0]));
  EXPECT_EQ(3, db.add(5));
}

TEST(CacheTest, RefusesWhatCannotBe) {
  StorageEngine engine;
  Database db(memory_database, Database::Start::create);
  ASSERT_EQ(3, db.add(1));
  Page page;
  EXPECT_FALSE(sm_page_get(*db, 4, 1, page));
  uint8_t *data;
  ASSERT_TRUE(cm_get_page(*db->dat, 3, 1, nullptr, &data) && cm_get_page(*db->dat, 3, 1, nullptr, &data));
  EXPECT_FALSE(cm_delete_page(data, nullptr));
  EXPECT_EQ(0, db.counters().fcnt);
  EXPECT_TRUE(cm_release(data) && cm_release(data));
  EXPECT_FALSE(cm_release(data));
  EXPECT_FALSE(cm_release_write(data, nullptr));
  EXPECT_EQ((Codes{status::cache_block_no, status::cache_delete_referenced,
                   status::cache_release_unreferenced, status::cache_write_unreferenced}),
            take_recorded());
}

TEST(CacheTest, ImmediateWriteReachesTheStorage) {
  StorageEngine engine;
  Database db(std::string(memory_database) + "CACHE_IMM_WRITE=true", Database::Start::create);
  const uint32_t writes = db->bm->io[part_dat]->write_count;
  ASSERT_EQ(3, db.add(8));
  EXPECT_EQ(3u, db->bm->io[part_dat]->write_count - writes);  // page twice, header
  ASSERT_TRUE(db.remove(3));
  HeaderRecord header = db->bm->header;
  ASSERT_TRUE(bm_peek_header(*db->bm, part_dat, header));
  EXPECT_EQ(3, header.parts[part_dat].counters.bcnt);
  EXPECT_EQ(1, header.parts[part_dat].counters.fcnt);
}

TEST(CacheTest, StopsAtTheSizeLimits) {
  StorageEngine engine;
  Database db(std::string(memory_database) + "SIZE_DAT=30B;SIZE_TRN=10B;CACHE_SIZE_TRN=4",
              Database::Start::create);
  for (BlockNo block = 3; block < 30; ++block) ASSERT_EQ(block, db.add(1));
  EXPECT_EQ(0, db.add(1));
  EXPECT_EQ(Codes{status::cache_argument}, take_recorded());
  ASSERT_TRUE(db.begin());
  BlockNo block = 1;
  while (block < 30 && db.put(block, 2)) ++block;
  EXPECT_EQ(14, block);  // nine shadow blocks and four pages
  ASSERT_TRUE(db.rollback());
  EXPECT_EQ(1, db.fill_of(5));
}

// Levels that end within a transaction leave their shadow blocks to the next.
TEST(CacheTest, EndedLevelsLeaveTheirShadowBlocks) {
  StorageEngine engine;
  Database db(std::string(memory_database) + "SIZE_TRN=10B", Database::Start::create);
  ASSERT_TRUE(db.begin());
  for (uint8_t fill = 0; fill < 50; ++fill) {
    ASSERT_TRUE(db.begin() && db.put(1, fill) && db.put(2, fill)) << take_recorded().size();
    ASSERT_TRUE(fill % 2 == 0 ? db.commit() : cm_flush(*db->trn, db->tm) && db.rollback());
  }
  ASSERT_TRUE(db.commit());
  EXPECT_EQ(48, db.fill_of(1));
}

// The database beside a model: for every level the blocks in use and what they hold.
class ModelRun {
 public:
  ModelRun()
      : db_("NAME=m;TYPE=MEMORY;BLOCK_SIZE=1024;CACHE_SIZE_DAT=7;CACHE_SIZE_TRN=5;HASH_SIZE_DAT=4;"
            "HASH_SIZE_TRN=3;TRAN_HASH=2",
            Database::Start::create),
        levels_(1) {
    EXPECT_TRUE(db_.put(1, fill(0)) && db_.put(2, fill(0)));
    now() = {{1, 0}, {2, 0}};
  }

  void step() {
    const int dice = random_.below(280);
    if (dice < 80) return add();
    if (dice < 140) return change();
    if (dice < 160) return remove();
    if (dice < 180 && levels_.size() <= tran_level_limit) return begin();
    if (dice < 200) return end_level();
    const BlockNo block = any_block();
    check(block, now()[block]);
  }

  void finish() {
    while (levels_.size() > 1) end_level();
    check_all();
  }

 private:
  using Blocks = std::map<BlockNo, uint32_t>;

  StorageManager &sm() { return *db_; }
  Blocks &now() { return levels_.back(); }
  uint8_t fill(uint32_t number) const { return static_cast<uint8_t>(number * 7 + 1); }

  BlockNo any_block() {
    auto at = now().begin();
    std::advance(at, random_.below(static_cast<int>(now().size())));
    return at->first;
  }

  void add() {
    ++number_;
    const BlockNo block = db_.add(fill(number_), number_);
    ASSERT_NE(0, block);
    ASSERT_TRUE(now().emplace(block, number_).second) << block << " is in use";
  }

  void change() {
    const BlockNo block = any_block();
    ++number_;
    ASSERT_TRUE(db_.put(block, fill(number_), number_));
    now()[block] = number_;
  }

  void remove() {
    if (now().size() < 3) return;
    const BlockNo block = any_block();
    ASSERT_TRUE(db_.remove(block));
    now().erase(block);
  }

  void begin() {
    ASSERT_TRUE(db_.begin());
    levels_.push_back(now());
  }

  void end_level() {
    if (levels_.size() == 1) return;
    const Blocks ended = now();
    levels_.pop_back();
    if (random_.one_in(3)) {
      ASSERT_TRUE(db_.rollback());
    } else {
      ASSERT_TRUE(db_.commit());
      now() = ended;
    }
    if (random_.one_in(8)) check_all();
  }

  void check(BlockNo block, uint32_t number) {
    Bytes expected(1024);
    db_.paint(expected.data(), fill(number), number);
    ASSERT_EQ(expected, db_.get(block)) << "block " << block << " number " << number;
  }

  void check_all() {
    for (const auto &[block, number] : now()) check(block, number);
    const Counters &counters = levels_.size() > 1 ? shadow_counters(*sm().tm) : db_.counters();
    EXPECT_EQ(counters.bcnt, static_cast<int>(now().size()) + counters.fcnt);  // every block is live or free
    std::set<BlockNo> seen;
    for (BlockNo block = counters.flst; block != 0; block = load_i32(db_.get(block).data()))
      ASSERT_TRUE(now().count(block) == 0 && seen.insert(block).second) << "free list at " << block;
    EXPECT_EQ(counters.fcnt, static_cast<int>(seen.size()));
    EXPECT_EQ(0, sm().dat->lock_count + sm().trn->lock_count);
    for (const CacheManager *cm : {sm().dat, sm().trn}) {
      int dirty = 0;
      for (const CachePage *page = cm->all; page != nullptr; page = page->all_next)
        if ((page->status & page_dirty) != 0) ++dirty;
      EXPECT_EQ(dirty, cm->dirty_count);
    }
  }

  Random random_;
  Database db_;
  std::vector<Blocks> levels_;  // committed state first
  uint32_t number_ = 0;
};

TEST(CacheTest, RandomWorkAgreesWithTheModel) {
  StorageEngine engine;
  ModelRun run;
  for (int i = 0; i < 20000 && !HasFailure(); ++i) run.step();
  run.finish();
}

}  // namespace
}  // namespace tovik::test
