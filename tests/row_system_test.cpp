// Row systems at their edges: numbers of no row, what other processes changed, and the end of addresses.
#include "data/row/row_system.h"

#include <vector>

#include "data_support.h"

namespace tovik::test {
namespace {

constexpr uint32_t B = 1024;         // block size
constexpr BlockNo system_block = 3;  // first page of the system ROW

class RowSystemTest : public testing::Test, public StorageFixture {
 protected:
  RowSystem *create(RowKind kind, int data_size, int64_t init = 0, int step = 0, int64_t next = 0) {
    RowSystem *rows = row_system_create(*sm, kind, data_size, init, step, next);
    EXPECT_NE(rows, nullptr) << errors();
    return rows;
  }
  static RowNo insert(RowSystem &rows, const std::string &data) {
    RowNo row = 0;
    EXPECT_TRUE(row_insert(rows, data.data(), static_cast<int>(data.size()), &row)) << errors();
    return row;
  }
  // The data of a fixed row, "deleted", or "failed".
  static std::string read(RowSystem &rows, RowNo row) {
    std::string data(static_cast<size_t>(rows.row_size - 1), '?');
    const RowRead found = row_read(rows, row, data.data(), rows.row_size - 1, nullptr);
    return found == RowRead::active ? data : found == RowRead::deleted ? "deleted" : "failed";
  }
  static std::vector<std::string> scan(RowSystem &rows) {
    std::vector<std::string> found;
    RowScan scan;
    RowNo row = 0;
    std::string data(static_cast<size_t>(rows.row_size - 1), '?');
    row_scan_start(scan, rows);
    RowFetch fetch;
    while ((fetch = row_scan_next(scan, data.data(), rows.row_size - 1, &row)) == RowFetch::row)
      found.push_back(data);
    if (fetch == RowFetch::failed) found.push_back("failed");
    return found;
  }
};

// Descriptor and auto-increment record need two slots side by side, of which the free list has none.
TEST_F(RowSystemTest, PairsAreFoundBehindIsolatedFreeSlots) {
  std::vector<RowSystem *> made;
  for (int i = 0; i < 540; ++i) made.push_back(create(RowKind::fixed, 8));
  for (size_t i = 0; i < made.size(); i += 2) ASSERT_TRUE(row_system_drop(made[i])) << errors();
  RowSystem &system = *data_systems(*sm).system_rows;
  const uint32_t active = row_active_count(system);
  for (uint32_t i = 1; i <= 30; ++i) {
    RowSystem *rows = create(RowKind::fixed_auto, 8, 5);
    ASSERT_NE(rows, nullptr);
    EXPECT_EQ(rows->autoinc_number, rows->number + 41);
    EXPECT_EQ(row_active_count(system), active + 2 * i) << "what was tried is free again";
  }
}

// Row numbers that come from a caller or a damaged link.
TEST_F(RowSystemTest, NumbersOfNoRowAreRefused) {
  RowSystem *rows = create(RowKind::fixed, 8);
  const RowNo row = insert(*rows, "12345678");
  const RowCounters before = rows->counters[0];
  const struct {
    const char *what;
    RowNo number;
    StatusCode expected;
  } cases[] = {
      {"never used", row + 9, status::row_flag},
      {"page header", row - 4, status::row_page_fetch},
      {"block 0", 100, status::row_page_fetch},
      {"behind the file", 0xFFFFFF00u, status::cache_block_no},
  };
  for (const auto &test : cases) {
    RowNo number = test.number;
    EXPECT_EQ(read(*rows, number), "failed") << test.what;
    EXPECT_EQ(first_status(), test.expected) << test.what;
    EXPECT_EQ(row_delete(*rows, number), RowRead::failed) << test.what;
    EXPECT_FALSE(row_update(*rows, &number, "87654321", 8)) << test.what;
    err_clear();
  }
  RowNo none = 0;
  EXPECT_FALSE(row_update(*rows, &none, "87654321", 8));
  EXPECT_EQ(first_status(), status::row_number_null);
  EXPECT_EQ(memcmp(&before, &rows->counters[0], offsetof(RowCounters, version)), 0);
}

// Another process's work as it is seen from here: the records of counters and auto-increment have changed.
TEST_F(RowSystemTest, ReloadFollowsTheRecords) {
  RowSystem *rows = create(RowKind::fixed_auto, 600), *doomed = create(RowKind::fixed, 8);
  const RowNo row = insert(*rows, filled(600, 'a'));
  ASSERT_TRUE(row_systems_write_counters(*sm));
  const std::string old = bytes(system_block, rows->number % B, 82);
  const RowNo second = insert(*rows, filled(600, 'b'));
  ASSERT_TRUE(row_autoinc_advance(*rows) && row_systems_write_counters(*sm));
  const std::string now = bytes(system_block, rows->number % B, 82);
  bool names = false;
  EXPECT_TRUE(row_names_slot(*rows, second, &names) && names) << errors();
  overwrite(system_block, rows->number % B, old);
  ASSERT_TRUE(row_systems_reload_all(*sm)) << errors();
  EXPECT_EQ(row_active_count(*rows), 1u);
  EXPECT_EQ(row_autoinc_get(*rows).next, 1);
  EXPECT_TRUE(row_names_slot(*rows, row, &names) && names) << errors();
  EXPECT_EQ(rows->directory.pages.size(), 1) << "the pages are learnt anew";
  overwrite(system_block, rows->number % B, now);
  overwrite(system_block, doomed->number % B, "D");
  ASSERT_TRUE(row_systems_reload_all(*sm)) << errors();
  EXPECT_EQ(row_active_count(*rows), 2u);
  EXPECT_EQ(row_autoinc_get(*rows).next, 2);
  EXPECT_TRUE(!rows->state.gone() && doomed->state.gone());
}

// The last block whose bytes have 32-bit addresses is used, the next is refused before anything is written.
TEST_F(RowSystemTest, RowNumbersNeverWrap) {
  RowSystem *rows = create(RowKind::fixed, 299);
  bm_counters(*sm->bm, part_dat).bcnt = static_cast<BlockNo>((uint64_t{1} << 32) / B) - 2;
  const int used = used_blocks();
  for (int i = 0; i < 6; ++i) insert(*rows, filled(299, 'x'));
  EXPECT_EQ(rows->counters[0].page_last, 0xFFFFFFFFu / B);
  const RowCounters before = rows->counters[0];
  RowNo row = 0;
  EXPECT_FALSE(row_insert(*rows, filled(299, 'y').data(), 299, &row));
  EXPECT_EQ(first_status(), status::storage_size_limit);
  EXPECT_EQ(memcmp(&before, &rows->counters[0], offsetof(RowCounters, version)), 0);
  EXPECT_EQ(used_blocks(), used + 1);
  EXPECT_EQ(scan(*rows).size(), 6u);
}

}  // namespace
}  // namespace tovik::test
