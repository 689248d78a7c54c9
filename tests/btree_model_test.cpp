// Random inserts, deletions, searches, ranges and cursor walks, inside and outside nested transactions,
// against a map that is kept beside the index; and changes of which every call of the storage driver fails.
#include <compare>
#include <map>

#include "data_support.h"

namespace tovik {
namespace {

using test::definition;
using Store = test::StorageFixture;
using test::walk;

using KeyValue = std::vector<int64_t>;  // a number for each part
constexpr int64_t null_part = INT64_MIN;

struct ByteOrder {
  bool operator()(RowNo a, RowNo b) const { return memcmp(&a, &b, sizeof(RowNo)) < 0; }
};
using Items = std::vector<std::pair<std::string, std::vector<RowNo>>>;
using Model = std::map<KeyValue, std::set<RowNo, ByteOrder>>;

struct Config {
  const char *name;
  BtreeDefinition made;
  int domain;  // different values of a key part
  int rows;    // different values of a key
};

class ModelRun {
 public:
  ModelRun(Store &store, test::Random &random, const Config &config)
      : store_(store), random_(random), config_(config) {
    index_ = btree_create(*store.sm, config.made);
    EXPECT_NE(index_, nullptr) << test::errors();
    used_ = store.used_blocks();
  }
  ~ModelRun() { btree_close(index_); }

  void run(int steps) {
    const int phase = steps / 6;
    for (step_ = 0; step_ < steps && !testing::Test::HasFailure(); ++step_) {
      const bool growing = step_ / phase % 3 != 2;
      const int choice = random_.below(100);
      if (choice < (growing ? 60 : 20))
        insert();
      else if (choice < 75)
        remove();
      else if (choice < 88)
        search();
      else if (choice < 94)
        range();
      else if (choice < 96)
        transaction();
      if (step_ % 500 == 499) check();
    }
    while (!saved_.empty()) end_level(random_.one_in(2));
    check();
    drain();
  }

  // Each of steps changes meets the failure of each of its calls in turn, in a level of its own inside a
  // transaction. What fails leaves the level as it was, or torn.
  void run_failures(test::FaultDriver &driver, int steps) {
    while (model_.size() < 60 && config_.domain >= 60) insert();
    store_.begin();
    int torn = 0, whole = 0;
    for (step_ = 0; step_ < steps && !testing::Test::HasFailure(); ++step_) {
      const bool adding = model_.empty() || step_ % 80 < 40;
      const auto [key, row] = adding ? new_entry() : old_entry();
      const std::string encoded = encode(key);
      for (int call = 1;; ++call) {
        store_.begin();
        driver.fail_call(call);
        const bool done = adding ? btree_insert(*index_, bytes(encoded), &row) == BtreeInsert::inserted
                                 : btree_delete(*index_, bytes(encoded), &row);
        driver.fail_call(0);
        if (done || testing::Test::HasFailure()) break;
        const bool tears = data_systems(*store_.sm).torn_level != 0;
        ++(tears ? torn : whole);
        if (!tears) check();
        err_clear();
        EXPECT_EQ(tm_commit(*store_.sm->tm, current_thread()), !tears) << context();
        EXPECT_EQ(error_record().last_code, tears ? status::tran_bad_state : 0);
        store_.rollback();
        check();
      }
      store_.commit();
      adding ? (void)model_[key].insert(row) : erase(key, row);
    }
    store_.commit();
    check();
    drain();
    printf("%s: %d failures, %d of them tore the level\n", config_.name, torn + whole, torn);
  }

 private:
  KeyValue random_key() {
    KeyValue key;
    for (int i = 0; i < config_.made.part_count; ++i)
      key.push_back(random_.one_in(50) ? null_part : random_.below(config_.domain) - config_.domain / 2);
    return key;
  }
  KeyValue some_key() {  // rather one that is there
    const KeyValue key = random_key();
    const auto found = model_.lower_bound(key);
    return found == model_.end() || random_.one_in(10) ? key : found->first;
  }
  RowNo random_row() {
    const RowNo row = static_cast<RowNo>(random_.below(config_.rows)) * 2654435761u;  // over all bytes
    const int size = index_->definition.value_size;
    return size == 4 ? row : row >> (8 * (4 - size));
  }

  using Entry = std::pair<KeyValue, RowNo>;
  Entry new_entry() {
    for (;;) {
      const Entry entry = {random_key(), random_row()};
      const auto found = model_.find(entry.first);
      if (found == model_.end() || (!btree_is_unique(*index_) && found->second.count(entry.second) == 0))
        return entry;
    }
  }
  Entry old_entry() {
    const auto found = model_.find(some_key());
    const auto &[key, rows] = found != model_.end() ? *found : *model_.begin();
    const auto row = rows.lower_bound(random_row());
    return {key, row != rows.end() ? *row : *rows.begin()};
  }
  void erase(const KeyValue &key, RowNo row) {
    const auto found = model_.find(key);
    found->second.erase(row);
    if (found->second.empty()) model_.erase(found);
  }

  // The stored key. Texts have several lengths and the order of their numbers.
  std::string encode(const KeyValue &key) const {
    std::string bytes(static_cast<size_t>(btree_key_size(*index_)), '\0');
    uint8_t *at = reinterpret_cast<uint8_t *>(bytes.data());
    for (size_t i = 0; i < key.size(); ++i) {
      const BtreeKeyPart &part = config_.made.parts[i];
      const int64_t number = key[i] == null_part ? 0 : key[i] + 10000;
      const std::string text = std::to_string(number / 3) + std::string(static_cast<size_t>(number % 3), 'b');
      const bool integer = (part.type & TYPE_INTEGER) != 0;
      const void *source = integer ? static_cast<const void *>(&key[i]) : text.c_str();
      const ValueMode mode = key[i] == null_part ? ValueMode::null : ValueMode::binary;
      EXPECT_NE(store_value(part.type, mode, source, at, part.size, 0), Stored::failed);
      at += part.size;
    }
    return bytes;
  }
  static const uint8_t *bytes(const std::string &key) {
    return reinterpret_cast<const uint8_t *>(key.data());
  }

  void insert() {
    const KeyValue key = random_.one_in(3) ? some_key() : random_key();
    const RowNo row = random_row();
    const std::string encoded = encode(key);
    const auto found = model_.find(key);
    BtreeInsert expected = BtreeInsert::inserted;
    if (found != model_.end())
      expected = btree_is_unique(*index_)        ? BtreeInsert::exists
                 : found->second.count(row) != 0 ? BtreeInsert::failed
                                                 : BtreeInsert::inserted;
    err_clear();
    EXPECT_EQ(btree_insert(*index_, bytes(encoded), &row), expected) << context();
    if (expected == BtreeInsert::inserted) model_[key].insert(row);
  }

  void remove() {
    const KeyValue key = some_key();
    RowNo row = random_row();
    const auto found = model_.find(key);
    if (found != model_.end() && !random_.one_in(10)) {
      const auto at = found->second.lower_bound(row);
      row = at == found->second.end() ? *found->second.begin() : *at;
    }
    const bool there = found != model_.end() && found->second.count(row) != 0;
    err_clear();
    EXPECT_EQ(btree_delete(*index_, bytes(encode(key)), &row), there) << context();
    if (!there) {
      EXPECT_EQ(error_record().last_code, status::btree_key_missing) << context();
      return;
    }
    erase(key, row);
  }

  void search() {
    const KeyValue key = some_key();
    RowSet rows{};
    const auto found = model_.find(key);
    std::vector<RowNo> expected;
    if (found != model_.end()) expected.assign(found->second.begin(), found->second.end());
    EXPECT_EQ(btree_search(*index_, bytes(encode(key)), &rows),
              expected.empty() ? BtreeFind::absent : BtreeFind::found)
        << context();
    EXPECT_EQ(std::vector<RowNo>(rows.rows.begin(), rows.rows.end()), expected) << context();
  }

  bool inside(const KeyValue &key, const BtreeRange &wanted, const KeyValue &lower,
              const KeyValue &upper) const {
    const auto order = [&](const KeyValue &bound) {
      return wanted.first_part ? key[0] <=> bound[0] : key <=> bound;
    };
    const std::strong_ordering low = order(lower), high = order(upper);
    return (wanted.lower_bound == Bound::none || low > 0 ||
            (low == 0 && wanted.lower_bound == Bound::inclusive)) &&
           (wanted.upper_bound == Bound::none || high < 0 ||
            (high == 0 && wanted.upper_bound == Bound::inclusive));
  }

  void range() {
    const KeyValue lower = some_key(), upper = some_key();
    const std::string lower_bytes = encode(lower), upper_bytes = encode(upper);
    const BtreeRange wanted = {bytes(lower_bytes), static_cast<Bound>(random_.below(3)), bytes(upper_bytes),
                               static_cast<Bound>(random_.below(3)), random_.one_in(2)};
    Items expected, found;
    for (const auto &[key, rows] : model_) {
      if (!inside(key, wanted, lower, upper)) continue;
      expected.emplace_back(encode(key), std::vector<RowNo>(rows.begin(), rows.end()));
    }
    RowSet rows{};
    BtreeCursor cursor;
    EXPECT_TRUE(btree_cursor_open(cursor, *index_, wanted)) << test::errors();
    std::string key(static_cast<size_t>(btree_key_size(*index_)), '\0');
    while (btree_cursor_fetch(cursor, reinterpret_cast<uint8_t *>(key.data()), &rows, nullptr) ==
           BtreeFetch::item)
      found.emplace_back(key, std::vector<RowNo>(rows.rows.begin(), rows.rows.end()));
    EXPECT_EQ(found, expected) << context();
  }

  void transaction() {
    if (saved_.size() < 3 && (saved_.empty() || random_.one_in(3))) {
      store_.begin();
      saved_.push_back(model_);
    } else {
      end_level(random_.one_in(2));
    }
  }

  void end_level(bool keep) {
    keep ? store_.commit() : store_.rollback();
    if (!keep) model_ = saved_.back();
    saved_.pop_back();
    check();
  }

  void check() {
    Items expected;
    for (const auto &[key, rows] : model_)
      expected.emplace_back(encode(key), std::vector<RowNo>(rows.begin(), rows.end()));
    EXPECT_EQ(walk(*index_).items, expected) << context();
    EXPECT_EQ(store_.sm->dat->lock_count + store_.sm->trn->lock_count, 0) << "no page stays held";
  }

  void drain() {
    while (!model_.empty() && !testing::Test::HasFailure()) remove();
    EXPECT_EQ(walk(*index_).leaf_counts, std::vector<int>{0});
    EXPECT_EQ(btree_pages(*index_).count, 1u);
    EXPECT_EQ(store_.used_blocks(), used_);
  }

  std::string context() const {
    return std::string(config_.name) + ", step " + std::to_string(step_) + "\n" + test::errors();
  }

  Store &store_;
  test::Random &random_;
  const Config &config_;
  Btree *index_ = nullptr;
  Model model_;
  std::vector<Model> saved_;
  int used_ = 0, step_ = 0;
};

std::vector<Config> configs() {
  BtreeDefinition short_values = definition(0, 3, {{type::cbigint, 9}});
  short_values.value_size = 3;
  return {
      {"unique int", definition(btree_unique, 1, {{type::int32, 4}}), 4000, 1000},
      {"unique int, char", definition(btree_unique, 1, {{type::int32, 4}, {type::character, 124}}), 60, 1000},
      {"normal 3, values of 3 bytes", short_values, 10, 4000},
      {"normal 0, smallint", definition(btree_timeseries, 0, {{type::smallint, 2}}), 300, 20},
      {"normal 16, two chars", definition(0, 16, {{type::character, 50}, {type::character, 50}}), 12, 60},
      {"normal 16, one key", definition(0, 16, {{type::int32, 4}}), 1, 100000},
  };
}

TEST(BtreeRandomModel, AgreesWithAMap) {
  test::Random random;
  for (const Config &config : configs()) {
    Store store;
    ModelRun(store, random, config).run(6000);
    if (HasFailure()) return;
  }
}

TEST(BtreeRandomModel, WhatFailsLeavesTheLevelAsItWasOrTorn) {
  test::Random random;
  for (const Config &config : configs()) {
    test::FaultDriver driver;
    Store store("DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=4;CACHE_SIZE_TRN=6;CACHE_RTS=0");
    ModelRun(store, random, config).run_failures(driver, 160);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace tovik
