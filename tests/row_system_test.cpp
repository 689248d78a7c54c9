// Row systems of every kind beside a map: rows come, change and go, row systems are created and dropped,
// levels open, merge and are given up, and the database is opened anew; changes of which every call of the
// storage driver fails; and the edges: numbers of no row, slots that lie apart, and the end of addresses.
#include "data/row/row_system.h"

#include <map>
#include <set>

#include "data_support.h"
#include "platform/held.h"

namespace tovik::test {
namespace {

struct ModelSystem {
  RowKind kind;
  int data_size;
  int64_t next;
  std::map<RowNo, std::string> rows;
};
using ModelState = std::map<RowNo, ModelSystem>;  // by number

using OpenRows = Held<RowSystem, row_system_close>;

class RowSystemModel {
 public:
  explicit RowSystemModel(const std::string &options) : store_(options) {}

  void run(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      const int kind = random_.below(100);
      if (kind < 6)
        begin();
      else if (kind < 13)
        end(kind < 10);
      else if (kind < 14)
        reopen();
      else if (kind < 18)
        check_all();
      else
        change();
    }
    while (states_.size() > 1) end(true);
    reopen();
    check_all();
  }

  int run_failures(FaultDriver &driver, int steps) {
    int failures = 0;
    for (int i = 0; i < 8; ++i) create();
    store_.begin();
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      auto &[number, system] = one_of(now());
      const OpenRows rows(row_system_open(number, *store_.sm));
      const Change change = any_change(system);
      RowNo row = 0;
      const auto unchanged = [&, &values = system.rows] {
        // First the row, before other pages drive those out that the failed step changed.
        if (change.old != 0) check_row(*rows, change.old, values[change.old]);
        check(now());
      };
      failures += fail_each_call(
          store_, driver, [&] { return apply(*rows, change, &row); }, unchanged);
      note(system, change, row);
    }
    store_.commit();
    check_all();
    return failures;
  }

 private:
  ModelState &now() { return states_.back(); }
  template <class Map>
  typename Map::reference one_of(Map &map) {
    return *std::next(map.begin(), random_.below(static_cast<int>(map.size())));
  }

  void begin() {
    if (states_.size() > tran_level_limit) return;
    store_.begin();
    states_.push_back(now());
  }
  void end(bool commit) {
    if (states_.size() == 1) return;
    commit ? store_.commit() : store_.rollback();
    if (commit) states_[states_.size() - 2] = now();
    states_.pop_back();
    if (random_.one_in(3)) reopen();
    check_all();
  }
  void reopen() {
    if (states_.size() == 1) store_.reopen();
  }

  void change() {
    const bool direct = states_.size() == 1;
    ASSERT_TRUE(!direct || sm_direct_begin(*store_.sm)) << errors();
    if (now().size() < 2 || random_.one_in(30)) {
      create();
    } else {
      auto &[number, system] = one_of(now());
      if (now().size() > 5 && random_.one_in(30))
        drop(number);
      else
        for (int i = random_.below(8); i >= 0; --i) change_row(number, system);
    }
    EXPECT_TRUE(!random_.one_in(4) || row_systems_write_counters(*store_.sm)) << errors();  // as a flush does
    if (direct) store_.save();
  }

  void create() {
    static constexpr RowKind kinds[] = {RowKind::fixed, RowKind::variable, RowKind::fixed_auto,
                                        RowKind::variable_auto};
    const RowKind kind = kinds[random_.below(4)];
    const int size = random_.one_in(4) ? 5 + random_.below(3000) : 5 + random_.below(60);
    RowSystem *rows = row_system_create(*store_.sm, kind, size, 7, 3, 0);
    ASSERT_NE(rows, nullptr) << errors();
    EXPECT_TRUE(now().emplace(rows->number, ModelSystem{kind, size, row_kind_auto(kind) ? 7 : 0, {}}).second);
    numbers_.insert(rows->number);
    row_system_close(rows);
  }
  void drop(RowNo number) {
    RowSystem *rows = row_system_open(number, *store_.sm);
    ASSERT_TRUE(rows != nullptr && row_system_drop(rows)) << errors();
    now().erase(number);
  }

  // An insertion changes no old row; a deletion has no value.
  struct Change {
    RowNo old;
    std::string value;
  };
  Change any_change(ModelSystem &system) {
    const RowNo old = system.rows.empty() || random_.one_in(2) ? 0 : one_of(system.rows).first;
    if (old != 0 && random_.one_in(2)) return {old, ""};
    int size = system.data_size;
    if (row_kind_variable(system.kind)) size = 1 + random_.below(std::min(6 * size, 4000));
    std::string value(static_cast<size_t>(size), '\0');
    for (char &byte : value) byte = static_cast<char>(random_.below(256));
    return {old, value};
  }
  static bool apply(RowSystem &rows, const Change &change, RowNo *row) {
    *row = change.old;
    const int size = static_cast<int>(change.value.size());
    if (change.old == 0) return row_insert(rows, change.value.data(), size, row);
    if (size == 0) return row_delete(rows, change.old) == RowRead::active;
    return row_update(rows, row, change.value.data(), size);
  }
  static void note(ModelSystem &system, const Change &change, RowNo row) {
    system.rows.erase(change.old);
    if (!change.value.empty()) {
      EXPECT_TRUE(system.rows.emplace(row, change.value).second) << "row number " << row << " is in use";
    }
  }
  void change_row(RowNo number, ModelSystem &system) {
    const OpenRows rows(row_system_open(number, *store_.sm));
    ASSERT_NE(rows.get(), nullptr) << errors();
    const Change change = any_change(system);
    RowNo row = 0;
    ASSERT_TRUE(apply(*rows, change, &row)) << errors();
    note(system, change, row);
    if (change.old != 0 || !row_kind_auto(system.kind)) return;
    EXPECT_TRUE(row_autoinc_advance(*rows));
    system.next += 3;
  }

  // What this thread sees, and what every other thread sees of the committed state.
  void check_all() {
    check(now());
    if (states_.size() > 1) on_other_thread([this] { check(states_.front()); });
  }
  void check(const ModelState &state) {
    for (const auto &[number, system] : state) {
      SCOPED_TRACE("row system " + std::to_string(number));
      const OpenRows rows(row_system_open(number, *store_.sm));
      ASSERT_NE(rows.get(), nullptr) << errors();
      EXPECT_EQ(row_autoinc_get(*rows).next, system.next);
      row_kind_variable(system.kind) ? check_values(*rows, system) : check_scan(*rows, system);
    }
    for (const RowNo number : numbers_) {
      const bool there = state.count(number) != 0;
      EXPECT_TRUE(there || row_system_open(number, *store_.sm) == nullptr) << number << " is no more";
    }
    err_clear();
  }
  void check_row(RowSystem &rows, RowNo row, const std::string &value) {
    std::string copy(value.size(), '\0');
    const int size = static_cast<int>(copy.size());
    EXPECT_TRUE(row_kind_variable(rows.kind)
                    ? row_read_variable(rows, row, copy.data(), size)
                    : row_read(rows, row, copy.data(), size, nullptr) == RowRead::active)
        << errors();
    EXPECT_TRUE(copy == value) << "row " << row;
  }
  void check_values(RowSystem &rows, const ModelSystem &system) {
    uint32_t pieces = 0;
    for (const auto &[row, value] : system.rows) {
      check_row(rows, row, value);
      const size_t piece = static_cast<size_t>(system.data_size - 4);
      pieces += static_cast<uint32_t>((value.size() + piece - 1) / piece);
    }
    EXPECT_EQ(row_active_count(rows), pieces);
  }
  void check_scan(RowSystem &rows, const ModelSystem &system) {
    RowScan scan;
    RowFetch fetch;
    RowNo row = 0;
    std::map<RowNo, std::string> found;
    std::string data(static_cast<size_t>(system.data_size), '\0');
    row_scan_start(scan, rows);
    while ((fetch = row_scan_next(scan, data.data(), system.data_size, &row)) == RowFetch::row)
      EXPECT_TRUE(found.emplace(row, data).second);
    EXPECT_EQ(fetch, RowFetch::end) << errors();
    EXPECT_TRUE(found == system.rows);
    EXPECT_EQ(row_active_count(rows), system.rows.size());
  }

  StorageFixture store_;
  Random random_;
  std::vector<ModelState> states_ = {{}};
  std::set<RowNo> numbers_;  // that row systems ever had
};

TEST(RowSystemModelTest, RandomWorkAgreesWithAMap) {
  for (const char *options : {"BLOCK_SIZE=1024;CACHE_SIZE_DAT=8;CACHE_SIZE_TRN=6", "BLOCK_SIZE=1024",
                              "BLOCK_SIZE=4096;CACHE_SIZE_TRN=12;CACHE_IMM_WRITE=true", "BLOCK_SIZE=32768"}) {
    SCOPED_TRACE(options);
    RowSystemModel model(options);
    model.run(600);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(RowSystemModelTest, WhatFailsLeavesTheLevelAsItWasOrTorn) {
  FaultDriver driver;
  RowSystemModel model("DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=4;CACHE_SIZE_TRN=6;CACHE_RTS=0");
  EXPECT_GT(model.run_failures(driver, 600), 50);
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
    EXPECT_EQ(row_read(rows, number, data, 8, nullptr), RowRead::failed) << number;
    EXPECT_EQ(first_status(), expected) << number;
    EXPECT_EQ(row_delete(rows, number), RowRead::failed) << number;
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
    ASSERT_TRUE(sm_page_get(*sm, 3, 0, page)) << errors();
    std::swap_ranges(record.begin(), record.end(), page.data() + rows.number % 1024);
    ASSERT_TRUE(sm_page_release_write(page) && row_systems_reload_all(*sm)) << errors();
  };
  RowNo row = 0, second = 0;
  bool names = false;
  ASSERT_TRUE(insert(rows, &row) && row_systems_write_counters(*sm)) << errors();
  {
    Page page;
    ASSERT_TRUE(sm_page_get(*sm, 3, 0, page));
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
  const int used = used_blocks();
  RowNo row = 0;
  for (int i = 0; i < 6; ++i) EXPECT_TRUE(insert(rows, &row)) << errors();
  EXPECT_EQ(rows.counters[0].page_last, 0xFFFFFFFFu / block_size);
  const RowCounters before = rows.counters[0];
  EXPECT_FALSE(insert(rows, &row));
  EXPECT_EQ(first_status(), status::storage_size_limit);
  EXPECT_EQ(memcmp(&before, &rows.counters[0], offsetof(RowCounters, version)), 0);
  EXPECT_EQ(used_blocks(), used + 1);
}

}  // namespace
}  // namespace tovik::test
