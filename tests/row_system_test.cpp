// Pages, descriptors and counters of row systems byte by byte; their edge cases, transaction levels, and
// damaged pages.
#include "data/row_system.h"

#include <vector>

#include "data_support.h"

namespace tovik::test {
namespace {

constexpr uint32_t B = 1024;         // block size
constexpr uint32_t stream = B - 8;   // stream bytes of a page
constexpr BlockNo system_block = 3;  // first page of the system ROW

class RowSystemTest : public testing::Test, public StorageFixture {
 protected:
  RowSystem *create(RowKind kind, int data_size, int64_t init = 0, int step = 0, int64_t next = 0) {
    RowSystem *rows = row_system_create(*sm, kind, data_size, init, step, next);
    EXPECT_NE(rows, nullptr) << errors();
    return rows;
  }
  RowSystem *reopened(RowNo number) {
    reopen();
    RowSystem *rows = row_system_open(number, *sm);
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
  static std::string read_variable(RowSystem &rows, RowNo row, size_t length) {
    std::string data(length, '?');
    return row_read_variable(rows, row, data.data(), static_cast<int>(length)) ? data : "failed";
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

TEST_F(RowSystemTest, NewDatabaseHoldsTheSystemRowAndItsCounters) {
  // Two descriptors: the row systems that support the indices, whose pages are blocks 4 and 5.
  EXPECT_EQ(bytes(2, 0, 32), u32s({3, 3, 1, 3 * B + 8 + 2 * 41, 0, 2, 0, 0}));
  EXPECT_EQ(bytes(system_block, 0, 8 + 21), u32s({0, 0}) + "A" + u32s({0, 1, 101, 4, 4}));
  EXPECT_EQ(bytes(system_block, 8 + 41, 21), "A" + u32s({0, 1, 13, 5, 5}));
  EXPECT_EQ(bytes(system_block, 8 + 82, 41), filled(41));
}

TEST_F(RowSystemTest, FixedRowsAndTheirDescriptorByteByByte) {
  RowSystem *rows = create(RowKind::fixed, 6);
  const uint32_t page = rows->counters[0].page_top;
  const RowNo first = page * B + 8;
  EXPECT_EQ(rows->number, 3 * B + 8 + 2 * 41u);
  EXPECT_EQ(insert(*rows, "aaaaaa"), first);
  EXPECT_EQ(insert(*rows, "bbbbbb"), first + 7);
  EXPECT_EQ(insert(*rows, "cccccc"), first + 14);
  EXPECT_EQ(bytes(page, 0, 36), u32s({0, 0}) + "AaaaaaaAbbbbbbAcccccc" + filled(7));

  EXPECT_EQ(row_delete(*rows, first), RowRead::active);
  EXPECT_EQ(row_delete(*rows, first + 14), RowRead::active);
  EXPECT_EQ(row_delete(*rows, first), RowRead::deleted);
  EXPECT_EQ(bytes(page, 8, 21), "D" + u32s({0}) + filled(2) + "Abbbbbb" + "D" + u32s({first}) + filled(2));
  EXPECT_EQ(read(*rows, first), "deleted");

  ASSERT_TRUE(row_systems_write_counters(*sm));
  EXPECT_EQ(bytes(system_block, 8 + 82, 41),
            "A" + u32s({0, 1, 7, page, page, 1, first + 21, first + 14, 3, 2}));
  EXPECT_EQ(bytes(2, 0, 28), u32s({3, 3, 1, 3 * B + 8 + 3 * 41, 0, 3, 0}));

  EXPECT_EQ(insert(*rows, "dddddd"), first + 14) << "last in, first out";
  EXPECT_EQ(insert(*rows, "eeeeee"), first);
  EXPECT_EQ(insert(*rows, "ffffff"), first + 21);
  EXPECT_EQ(rows->counters[0].total_count, 4u);
}

TEST_F(RowSystemTest, PageLinksOfASlotThatCrosses) {
  RowSystem *rows = create(RowKind::fixed, 599);
  const uint32_t first = rows->counters[0].page_top;
  insert(*rows, filled(599, 'x'));
  insert(*rows, filled(415, 'y') + filled(184, 'z'));
  const uint32_t second = rows->counters[0].page_last;
  EXPECT_EQ(bytes(first, 0, 8), u32s({0, second}));
  EXPECT_EQ(bytes(second, 0, 8), u32s({first, 0}));
  EXPECT_EQ(bytes(first, 8 + 600, 416), "A" + filled(415, 'y'));
  EXPECT_EQ(bytes(second, 8, 185), filled(184, 'z') + filled(1));
}

TEST_F(RowSystemTest, VariableValuesInPieces) {
  RowSystem *rows = create(RowKind::variable, 14);  // pieces of 10 bytes in slots of 15
  const uint32_t page = rows->counters[0].page_top;
  const RowNo first = page * B + 8;
  EXPECT_EQ(insert(*rows, "0123456789"), first);
  EXPECT_EQ(insert(*rows, "abcdefghijK"), first + 30) << "the last piece is written first";
  EXPECT_EQ(bytes(page, 8, 45), "A" + u32s({0}) + "0123456789" + "A" + u32s({0}) + "K" + filled(9) + "A" +
                                    u32s({first + 15}) + "abcdefghij");
  EXPECT_EQ(read_variable(*rows, first + 30, 11), "abcdefghijK");
  EXPECT_EQ(read_variable(*rows, first + 30, 21), "failed") << "longer than its chain";
  EXPECT_EQ(first_status(), status::row_get);

  EXPECT_EQ(row_delete(*rows, first + 30), RowRead::active);
  EXPECT_EQ(bytes(page, 8 + 15, 30), "D" + u32s({first + 30}) + filled(10) + "D" + u32s({0}) + filled(10));
  EXPECT_EQ(rows->counters[0].free_list, first + 15);
  EXPECT_EQ(read_variable(*rows, first + 30, 4), "failed");
  EXPECT_EQ(first_status(), status::row_variable_piece);
  EXPECT_EQ(row_delete(*rows, first + 30), RowRead::failed);
  EXPECT_EQ(error_record().last_code, status::row_delete);
  EXPECT_EQ(first_status(), status::row_flag);
}

TEST_F(RowSystemTest, AutoIncrementRecordLiesBehindTheDescriptor) {
  RowSystem *rows = create(RowKind::fixed_auto, 8, 0, 0, 0);
  EXPECT_EQ(rows->autoinc_number, rows->number + 41);
  EXPECT_EQ(bytes(system_block, rows->autoinc_number % B, 41), "A" + u32s({3, 3, 0, 1, 0, 1, 0, 1, 0, 0}));
  ASSERT_TRUE(row_autoinc_set(*rows, 100, 5, 0) && row_autoinc_advance(*rows));
  ASSERT_TRUE(row_systems_write_counters(*sm));
  EXPECT_EQ(bytes(system_block, rows->autoinc_number % B, 41),
            "A" + u32s({3, 3, 0, 5, 0, 100, 0, 105, 0, 0}));
  rows = reopened(rows->number);
  EXPECT_EQ(row_autoinc_get(*rows).next, 105);

  ASSERT_TRUE(row_autoinc_set(*rows, 1, 2, INT64_MAX - 2) && row_autoinc_advance(*rows));
  EXPECT_FALSE(row_autoinc_advance(*rows));
  EXPECT_EQ(first_status(), status::input_number_range);
  EXPECT_EQ(row_autoinc_get(*rows).next, INT64_MAX);
  RowSystem *plain = create(RowKind::fixed, 8);
  EXPECT_FALSE(row_autoinc_advance(*plain));
  EXPECT_EQ(first_status(), status::row_no_auto_increment);
}

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
  EXPECT_EQ(memcmp(&before, &rows->counters[0], sizeof before), 0);
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
  EXPECT_EQ(memcmp(&before, &rows->counters[0], sizeof before), 0);
  EXPECT_EQ(used_blocks(), used + 1);
  EXPECT_EQ(scan(*rows).size(), 6u);
}

// Damage that a walk along links or a use of the free list must notice; counters stay as they were.
TEST_F(RowSystemTest, DamagedChainsAreRefused) {
  const auto rows_of_300 = [&] {
    RowSystem *rows = create(RowKind::fixed, 299);
    for (int i = 0; i < 10; ++i) insert(*rows, filled(299, 'f'));
    return rows;
  };
  for (const uint32_t target : {0u, 0xFFFFFFFFu, static_cast<uint32_t>(system_block)}) {
    RowSystem *rows = rows_of_300();
    overwrite(rows->counters[0].page_top, 4, u32s({target}));
    EXPECT_EQ(scan(*rows).back(), "failed") << target;
    EXPECT_NE(first_status(), 0);
  }
  for (const bool loop : {true, false}) {
    RowSystem *rows = create(RowKind::variable, 299);
    RowNo row = insert(*rows, filled(10 * 295, 'v'));
    const RowNo end = row_position(*rows, RowPosition::first);
    overwrite(end / B, end % B, loop ? "A" + u32s({end}) : "D");
    const RowCounters before = rows->counters[0];
    EXPECT_EQ(row_delete(*rows, row), RowRead::failed);
    EXPECT_FALSE(row_update(*rows, &row, "new", 3));
    EXPECT_EQ(read_variable(*rows, row, 3000), "failed");
    EXPECT_NE(first_status(), 0);
    EXPECT_EQ(memcmp(&before, &rows->counters[0], sizeof before), 0);
  }

  RowSystem *rows = create(RowKind::fixed, 8);
  insert(*rows, "01234567");
  const RowNo freed = insert(*rows, "76543210");
  EXPECT_EQ(row_delete(*rows, freed), RowRead::active);
  for (const std::string &slot :
       {"D" + u32s({1}), "D" + u32s({7 * B}), "D" + u32s({~1023u}), "A" + u32s({0})}) {
    overwrite(freed / B, freed % B, slot);
    RowNo row = 0;
    EXPECT_FALSE(row_insert(*rows, "01234567", 8, &row));
    EXPECT_EQ(first_status(), status::row_flag);
  }
  EXPECT_EQ(rows->counters[0].free_count, 1u);
}

TEST_F(RowSystemTest, DamagedDescriptorsAreRefused) {
  RowSystem *rows = create(RowKind::fixed_auto, 8);
  insert(*rows, "01234567");
  const RowNo number = rows->number;
  save();
  row_system_close(rows);  // no handle is left
  const std::pair<uint32_t, std::vector<uint32_t>> damages[] = {
      // offset, values
      {0, {1}},
      {4, {0, 5, 4}},
      {8, {4, 0x80000000, 10}},
      {12, {0, 0xFFFFFFFF}},
      {16, {0}},
      {20, {0, 0xFFFFFFFF}},
      {24, {0, 6 * B + 8}},
      {28, {3}},
      {32, {0, 2}},
      {36, {2}},
      {41, {0}},
      {45, {4}},
      {53, {0, 65536}},
  };
  for (const auto &[offset, values] : damages)
    for (const uint32_t value : values) {
      SCOPED_TRACE("offset " + std::to_string(offset) + " value " + std::to_string(value));
      const uint32_t at = number % B + 1 + offset;
      const std::string was = bytes(system_block, at, 4);
      overwrite(system_block, at, u32s({value}));
      EXPECT_EQ(row_system_open(number, *sm), nullptr);
      EXPECT_EQ(first_status(), status::row_no_counters);
      overwrite(system_block, at, was);
    }
  EXPECT_EQ(row_system_open(number + 41, *sm), nullptr) << "an auto-increment record is no descriptor";
  EXPECT_EQ(first_status(), status::row_system_deleted);
}

}  // namespace
}  // namespace tovik::test
