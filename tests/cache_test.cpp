#include "storage/cache/cache.h"

#include "storage_support.h"

namespace tovik::test {
namespace {

class CacheTest : public testing::Test, protected StorageEngine {
 protected:
  static Storage create(const std::string &options) {
    return Storage("NAME=c;TYPE=MEMORY;BLOCK_SIZE=1024;" + options, Storage::Start::create);
  }
};

TEST_F(CacheTest, FullCacheFailsAndRecovers) {
  Storage db = create("CACHE_SIZE_DAT=2;CACHE_RTC=3;CACHE_RTS=0");
  Page pages[3];
  ASSERT_TRUE(sm_page_get(*db, 1, pages[0]) && sm_page_get(*db, 2, pages[1]));
  EXPECT_FALSE(sm_page_new(*db, pages[2]));
  EXPECT_EQ((Codes{status::cache_full, status::cache_get_page}), take_recorded());
  EXPECT_EQ(2, db.counters().bcnt);
  ASSERT_TRUE(sm_page_release(pages[0]));
  EXPECT_EQ(3, db.add(5));
}

TEST_F(CacheTest, ImmediateWriteReachesTheStorage) {
  Storage db = create("CACHE_IMM_WRITE=true");
  const uint32_t writes = db->bm->io[part_dat]->write_count;
  ASSERT_EQ(3, db.add(8));
  EXPECT_EQ(3u, db->bm->io[part_dat]->write_count - writes);  // page twice, header
  ASSERT_TRUE(db.remove(3));
  HeaderRecord header = db->bm->header;
  ASSERT_TRUE(bm_peek_header(*db->bm, part_dat, header));
  EXPECT_EQ(3, header.parts[part_dat].counters.bcnt);
  EXPECT_EQ(1, header.parts[part_dat].counters.fcnt);
}

TEST_F(CacheTest, StopsAtTheSizeLimits) {
  Storage db = create("SIZE_DAT=30B;SIZE_TRN=10B;CACHE_SIZE_TRN=4");
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
TEST_F(CacheTest, EndedLevelsLeaveTheirShadowBlocks) {
  Storage db = create("SIZE_TRN=10B");
  ASSERT_TRUE(db.begin());
  for (uint8_t fill = 0; fill < 50; ++fill) {
    ASSERT_TRUE(db.begin() && db.put(1, fill) && db.put(2, fill)) << take_recorded().size();
    ASSERT_TRUE(fill % 2 == 0 ? db.commit() : cm_flush(*db->trn, db->tm) && db.rollback());
  }
  ASSERT_TRUE(db.commit());
  EXPECT_EQ(48, db.fill_of(1));
}

}  // namespace
}  // namespace tovik::test
