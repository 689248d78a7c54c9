// Random work on row systems of every kind beside a plain map: rows come, change and go, row systems are
// created and dropped, levels open, merge and are given up, and the database is opened anew. And changes of
// which every call of the storage driver fails.
#include <map>
#include <set>
#include <vector>

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

  // Each of steps changes meets the failure of each of its calls in turn, in a level of its own inside a
  // transaction. What fails leaves the level as it was, or torn.
  void run_failures(FaultDriver &driver, int steps) {
    for (int i = 0; i < 8; ++i) create();
    store_.begin();
    int torn = 0, whole = 0;
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      auto chosen = now().begin();
      std::advance(chosen, random_.below(8));
      auto &[number, system] = *chosen;
      const OpenRows rows(row_system_open(number, *store_.sm));
      const int kind = system.rows.empty() ? 0 : random_.below(3);  // insert, update, delete
      const RowNo old =
          kind == 0
              ? 0
              : std::next(system.rows.begin(), random_.below(static_cast<int>(system.rows.size())))->first;
      const std::string value = new_value(system);
      const int size = static_cast<int>(value.size());
      RowNo row = old;
      for (int call = 1;; ++call) {
        row = old;
        store_.begin();
        driver.fail_call(call);
        const bool done = kind == 0   ? row_insert(*rows, value.data(), size, &row)
                          : kind == 1 ? row_update(*rows, &row, value.data(), size)
                                      : row_delete(*rows, row) == RowRead::active;
        driver.fail_call(0);
        if (done || testing::Test::HasFailure()) break;
        const bool tears = data_systems(*store_.sm).torn_level != 0;
        ++(tears ? torn : whole);
        // First the row, before other pages drive those out that the failed step changed.
        if (!tears && old != 0) check_row(*rows, old, system.rows[old]);
        if (!tears) row_kind_variable(system.kind) ? check_values(*rows, system) : check_scan(*rows, system);
        EXPECT_EQ(tm_commit(*store_.sm->tm, current_thread()), !tears) << errors();
        store_.rollback();
        check(now());
      }
      store_.commit();
      system.rows.erase(old);
      if (kind != 2) system.rows[row] = value;
    }
    store_.commit();
    check_all();
    printf("%d failures, %d of them tore the level\n", torn + whole, torn);
  }

 private:
  ModelState &now() { return states_.back(); }

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
      auto chosen = now().begin();
      std::advance(chosen, random_.below(static_cast<int>(now().size())));
      if (now().size() > 5 && random_.one_in(30))
        drop(chosen);
      else
        for (int i = random_.below(8); i >= 0; --i) change_row(chosen->first, chosen->second);
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
  void drop(ModelState::iterator chosen) {
    RowSystem *rows = row_system_open(chosen->first, *store_.sm);
    ASSERT_TRUE(rows != nullptr && row_system_drop(rows)) << errors();
    now().erase(chosen);
  }

  std::string new_value(const ModelSystem &system) {
    int size = system.data_size;
    if (row_kind_variable(system.kind)) size = 1 + random_.below(std::min(6 * size, 4000));
    std::string value(static_cast<size_t>(size), '\0');
    for (char &byte : value) byte = static_cast<char>(random_.below(256));
    return value;
  }

  void change_row(RowNo number, ModelSystem &system) {
    const OpenRows rows(row_system_open(number, *store_.sm));
    ASSERT_NE(rows.get(), nullptr) << errors();
    RowNo row = 0;
    if (system.rows.empty() || random_.below(10) < 5) {
      const std::string value = new_value(system);
      ASSERT_TRUE(row_insert(*rows, value.data(), static_cast<int>(value.size()), &row)) << errors();
      EXPECT_TRUE(system.rows.emplace(row, value).second) << "row number " << row << " is in use";
      if (row_kind_auto(system.kind)) {
        EXPECT_TRUE(row_autoinc_advance(*rows));
        system.next += 3;
      }
      return;
    }
    auto chosen =
        system.rows.lower_bound(static_cast<RowNo>(random_.next()) % (system.rows.rbegin()->first + 1));
    row = chosen->first;
    if (random_.one_in(2)) {
      const std::string value = new_value(system);
      ASSERT_TRUE(row_update(*rows, &row, value.data(), static_cast<int>(value.size()))) << errors();
      system.rows.erase(chosen);
      EXPECT_TRUE(system.rows.emplace(row, value).second);
    } else {
      ASSERT_EQ(row_delete(*rows, row), RowRead::active) << errors();
      system.rows.erase(chosen);
    }
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
  RowSystemModel("DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=4;CACHE_SIZE_TRN=6;CACHE_RTS=0")
      .run_failures(driver, 600);
}

}  // namespace
}  // namespace tovik::test
