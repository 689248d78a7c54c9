// The edges of row systems: numbers of no row, slots that lie apart, records that another process has
// changed, and the end of addresses.
#include "data/row/row_system.h"

#include <map>

#include "data_support.h"

namespace tovik::test {
namespace {

std::string read(RowSystem &rows, RowNo row, size_t size) {
  std::string value(size, '\0');
  const int length = static_cast<int>(size);
  EXPECT_TRUE(row_kind_variable(rows.kind) ? row_read_variable(rows, row, value.data(), length)
                                           : row_read(rows, row, value.data(), length) == Found::yes)
      << errors();
  return value;
}

// Rows over several pages, and of several pieces.
TEST(RowSystemFailures, WhatFailsLeavesTheLevelAsItWasOrTorn) {
  FaultDriver driver;
  StorageFixture store("DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=4;CACHE_SIZE_TRN=6;CACHE_RTS=0");
  Random random;
  int failures = 0;
  for (const RowKind kind : {RowKind::fixed, RowKind::variable}) {
    RowSystem *rows = row_system_create(*store.sm, kind, kind == RowKind::fixed ? 2900 : 300, 1, 1, 0);
    ASSERT_NE(rows, nullptr) << errors();
    std::map<RowNo, std::string> values;
    ASSERT_TRUE(store.begin()) << errors();
    for (int step = 0; step < 300 && !testing::Test::HasFailure(); ++step) {
      const bool adding = values.size() < 20 || random.one_in(3), removing = !adding && random.one_in(2);
      const RowNo old = adding ? 0 : std::next(values.begin(), random.below(20))->first;
      const int size = kind == RowKind::fixed ? 2900 : 1 + random.below(3000);
      const std::string value(static_cast<size_t>(size), static_cast<char>('a' + step % 26));
      RowNo row = old;
      const auto change = [&] {
        if (adding) return row_insert(*rows, value.data(), size, &row);
        if (removing) return row_delete(*rows, old) == Found::yes;
        return row_update(*rows, &row, value.data(), size);
      };
      const auto look = [&](bool) {  // first at the row, before other pages drive changed ones out
        if (old != 0) {
          EXPECT_EQ(read(*rows, old, values[old].size()), values[old]);
        }
        size_t slots = 0;
        for (const auto &[number, stored] : values) {
          EXPECT_EQ(read(*rows, number, stored.size()), stored);
          slots += kind == RowKind::fixed ? 1 : (stored.size() + 295) / 296;
        }
        EXPECT_EQ(row_active_count(*rows), slots);
        row = old;
      };
      failures += fail_each_call(*store.sm, driver, change, look);
      values.erase(old);
      if (!removing) values[row] = value;
    }
    ASSERT_TRUE(store.commit()) << errors();
    row_system_close(rows);
  }
  EXPECT_GT(failures, 50);
}

class RowSystemTest : public testing::Test, public StorageFixture {
 protected:
  RowSystem &create(RowKind kind, int data_size) {
    RowSystem *rows = row_system_create(*sm, kind, data_size, 1, 1, 0);
    EXPECT_NE(rows, nullptr) << errors();
    return *rows;
  }
  static bool insert(RowSystem &rows, RowNo *row) {
    const std::string data(static_cast<size_t>(rows.row_size - 1), 'x');
    return row_insert(rows, data.data(), rows.row_size - 1, row);
  }
};

// Descriptor and auto-increment record need two slots side by side, of which the free list has none.
TEST_F(RowSystemTest, PairsAreFoundBehindIsolatedFreeSlots) {
  std::vector<RowSystem *> made;
  for (int i = 0; i < 540; ++i) made.push_back(&create(RowKind::fixed, 8));
  for (size_t i = 0; i < made.size(); i += 2) ASSERT_TRUE(row_system_drop(made[i])) << errors();
  RowSystem &system = *data_systems(*sm).system_rows;
  const uint32_t active = row_active_count(system);
  for (uint32_t i = 1; i <= 30; ++i) {
    RowSystem &rows = create(RowKind::fixed_auto, 8);
    EXPECT_EQ(rows.autoinc_number, rows.number + 41);
    EXPECT_EQ(row_active_count(system), active + 2 * i) << "what was tried is free again";
  }
}

// Row numbers that come from a caller or a damaged link.
TEST_F(RowSystemTest, NumbersOfNoRowAreRefused) {
  RowSystem &rows = create(RowKind::fixed, 8);
  RowNo row = 0;
  ASSERT_TRUE(insert(rows, &row));
  const RowCounters before = rows.counters[0];
  const std::pair<RowNo, StatusCode> cases[] = {{row + 9, status::row_flag},        // never used
                                                {row - 4, status::row_page_fetch},  // the page's header
                                                {100, status::row_page_fetch},      // in block 0
                                                {0xFFFFFF00u, status::cache_block_no}};
  for (const auto &[no_row, expected] : cases) {
    RowNo number = no_row;
    char data[8];
    EXPECT_EQ(row_read(rows, number, data, 8), Found::failed) << number;
    EXPECT_EQ(first_status(), expected) << number;
    EXPECT_EQ(row_delete(rows, number), Found::failed) << number;
    EXPECT_FALSE(row_update(rows, &number, "87654321", 8)) << number;
    err_clear();
  }
  RowNo none = 0;
  EXPECT_FALSE(row_update(rows, &none, "87654321", 8));
  EXPECT_EQ(first_status(), status::row_number_null);
  EXPECT_EQ(memcmp(&before, &rows.counters[0], offsetof(RowCounters, version)), 0);
}

// Another process's work as it is seen from here: the records of counters and auto-increment have changed.
TEST_F(RowSystemTest, ReloadFollowsTheRecords) {
  RowSystem &rows = create(RowKind::fixed_auto, 1015);  // a row in a page
  Bytes record(82);
  const auto reload_other_record = [&] {
    Page page;
    ASSERT_TRUE(sm_page_get(*sm, 3, page)) << errors();
    std::swap_ranges(record.begin(), record.end(), page.data() + rows.number % 1024);
    ASSERT_TRUE(sm_page_release_write(page) && row_systems_reload_all(*sm)) << errors();
  };
  RowNo row = 0, second = 0;
  bool names = false;
  ASSERT_TRUE(insert(rows, &row) && row_systems_write_counters(*sm)) << errors();
  {
    Page page;
    ASSERT_TRUE(sm_page_get(*sm, 3, page));
    memcpy(record.data(), page.data() + rows.number % 1024, record.size());
  }
  ASSERT_TRUE(insert(rows, &second) && row_autoinc_advance(rows) && row_systems_write_counters(*sm));
  EXPECT_TRUE(row_names_slot(rows, second, &names) && names) << errors();
  reload_other_record();
  EXPECT_EQ(row_active_count(rows), 1u);
  EXPECT_EQ(row_autoinc_get(rows).next, 1);
  EXPECT_TRUE(row_names_slot(rows, row, &names) && names) << errors();
  EXPECT_EQ(rows.directory.pages.size(), 1) << "the pages are learnt anew";
  reload_other_record();
  EXPECT_EQ(row_active_count(rows), 2u);
  EXPECT_EQ(row_autoinc_get(rows).next, 2);
}

// The last block whose bytes have 32-bit addresses is used, the next is refused before anything is written.
TEST_F(RowSystemTest, RowNumbersNeverWrap) {
  constexpr uint64_t block_size = 1024;
  RowSystem &rows = create(RowKind::fixed, 299);
  bm_counters(*sm->bm, part_dat).bcnt = static_cast<BlockNo>((uint64_t{1} << 32) / block_size) - 2;
  const int used = blocks_in_use(*sm);
  RowNo row = 0;
  for (int i = 0; i < 6; ++i) EXPECT_TRUE(insert(rows, &row)) << errors();
  EXPECT_EQ(rows.counters[0].page_last, 0xFFFFFFFFu / block_size);
  const RowCounters before = rows.counters[0];
  EXPECT_FALSE(insert(rows, &row));
  EXPECT_EQ(first_status(), status::storage_size_limit);
  EXPECT_EQ(memcmp(&before, &rows.counters[0], offsetof(RowCounters, version)), 0);
  EXPECT_EQ(blocks_in_use(*sm), used + 1);
}

}  // namespace
}  // namespace tovik::test
