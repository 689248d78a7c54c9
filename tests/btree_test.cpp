// Indices beside a map: random inserts, deletions, searches and ranges, inside and outside nested
// transactions; changes of which every call of the storage driver fails; and handles of an index that is
// dropped.
#include <compare>
#include <map>
#include <set>

#include "data/index/btree_tree.h"
#include "data_support.h"

namespace tovik {
namespace {

using Store = test::StorageFixture;

using KeyValue = std::vector<int64_t>;  // a number for each part
constexpr int64_t null_part = INT64_MIN;

struct ByteOrder {
  bool operator()(RowNo a, RowNo b) const { return memcmp(&a, &b, sizeof(RowNo)) < 0; }
};
using Model = std::map<KeyValue, std::set<RowNo, ByteOrder>>;
using Entry = std::pair<KeyValue, RowNo>;
using Items = std::vector<std::pair<std::string, std::vector<RowNo>>>;

struct Config {
  const char *name;
  BtreeDefinition made;
  int domain;  // different values of a key part
  int rows;    // different values of a key
};

const uint8_t *bytes_of(const std::string &key) {
  return reinterpret_cast<const uint8_t *>(key.data());
}

std::vector<RowNo> rows_of(const RowSet &set) {
  return std::vector<RowNo>(set.rows.begin(), set.rows.end());
}

Items items_of(Btree &index, const BtreeRange &range = {}) {
  Items items;
  RowSet rows{};
  BtreeCursor cursor;
  EXPECT_TRUE(btree_cursor_open(cursor, index, range)) << test::errors();
  uint8_t key[btree_key_limit];
  BtreeFetch fetched;
  while ((fetched = btree_cursor_fetch(cursor, key, &rows, nullptr)) == BtreeFetch::item)
    items.emplace_back(std::string(key, key + btree_key_size(index)), rows_of(rows));
  EXPECT_EQ(fetched, BtreeFetch::end) << test::errors();
  return items;
}

// The pages of an index form one chain, and every page stands between siblings that know it.
void check_pages(Btree &index) {
  const auto link = [&index](uint32_t block, int field) {
    Page page;
    EXPECT_TRUE(btree_page_get(index, block, page)) << test::errors();
    return bpage::link(page.data(), field);
  };
  const BtreePages &pages = btree_pages(index);
  uint32_t count = 0, previous = 0;
  for (uint32_t block = pages.first; block != 0 && count <= pages.count; ++count) {
    EXPECT_EQ(link(block, bpage::chain_previous), previous);
    const uint32_t left = link(block, bpage::left), right = link(block, bpage::right);
    EXPECT_TRUE(left == 0 || link(left, bpage::right) == block) << block;
    EXPECT_TRUE(right == 0 || link(right, bpage::left) == block) << block;
    previous = block;
    block = link(block, bpage::chain_next);
  }
  EXPECT_EQ(previous, pages.last);
  EXPECT_EQ(count, pages.count);
}

class ModelRun {
 public:
  ModelRun(Store &store, test::Random &random, const Config &config)
      : store_(store), random_(random), config_(config), index_(btree_create(*store.sm, config.made)) {
    EXPECT_NE(index_, nullptr) << test::errors();
    used_ = store.used_blocks();
  }
  ~ModelRun() { btree_close(index_); }

  void run(int steps) {
    const int phase = steps / 6;
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE(config_.name + std::string(", step ") + std::to_string(step));
      const bool growing = step / phase % 3 != 2;
      const int choice = random_.below(100);
      if (choice < (growing ? 60 : 20))
        insert({random_.one_in(3) ? some_key() : random_key(), random_row()});
      else if (choice < 75)
        remove(model_.empty() || random_.one_in(10) ? Entry{some_key(), random_row()} : old_entry());
      else if (choice < 88)
        search(some_key());
      else if (choice < 94)
        range();
      else if (choice < 96)
        transaction();
      if (step % 500 == 499) check();
    }
    while (!saved_.empty()) end_level(random_.one_in(2));
    check();
    drain();
  }

  int run_failures(test::FaultDriver &driver, int steps) {
    int failures = 0;
    while (model_.size() < 60 && config_.domain >= 60) insert({random_key(), random_row()});
    store_.begin();
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE(config_.name + std::string(", step ") + std::to_string(step));
      const bool adding = model_.empty() || step % 80 < 40;
      const Entry entry = adding ? new_entry() : old_entry();
      const std::string key = encode(entry.first);
      const auto change = [&] {
        return adding ? btree_insert(*index_, bytes_of(key), &entry.second) == BtreeInsert::inserted
                      : btree_delete(*index_, bytes_of(key), &entry.second);
      };
      const int used = store_.used_blocks();
      failures += test::fail_each_call(store_, driver, change, [&] {
        check();
        EXPECT_EQ(store_.used_blocks(), used) << "what was taken is given back";
      });
      adding ? (void)model_[entry.first].insert(entry.second) : erase(entry);
    }
    store_.commit();
    check();
    drain();
    return failures;
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
    return row >> (8 * (4 - index_->definition.value_size));
  }
  Entry new_entry() {
    Entry entry;
    do entry = {random_key(), random_row()};
    while (inserted(entry) != BtreeInsert::inserted);
    return entry;
  }
  Entry old_entry() {
    const auto found = model_.find(some_key());
    const auto &[key, rows] = found != model_.end() ? *found : *model_.begin();
    const auto row = rows.lower_bound(random_row());
    return {key, row != rows.end() ? *row : *rows.begin()};
  }

  std::vector<RowNo> rows_at(const KeyValue &key) const {
    const auto found = model_.find(key);
    if (found == model_.end()) return {};
    return std::vector<RowNo>(found->second.begin(), found->second.end());
  }
  bool holds(const Entry &entry) const {
    const auto found = model_.find(entry.first);
    return found != model_.end() && found->second.count(entry.second) != 0;
  }
  // What the insertion of an entry gives.
  BtreeInsert inserted(const Entry &entry) const {
    if (btree_is_unique(*index_) && model_.count(entry.first) != 0) return BtreeInsert::exists;
    return holds(entry) ? BtreeInsert::failed : BtreeInsert::inserted;
  }
  void erase(const Entry &entry) {
    const auto found = model_.find(entry.first);
    found->second.erase(entry.second);
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
      EXPECT_NE(store_value({part.type, static_cast<int16_t>(part.size)}, mode, source, at), Stored::failed);
      at += part.size;
    }
    return bytes;
  }

  void insert(const Entry &entry) {
    err_clear();
    const BtreeInsert expected = inserted(entry);
    EXPECT_EQ(btree_insert(*index_, bytes_of(encode(entry.first)), &entry.second), expected)
        << test::errors();
    if (expected == BtreeInsert::inserted) model_[entry.first].insert(entry.second);
  }
  void remove(const Entry &entry) {
    err_clear();
    const bool there = holds(entry);
    EXPECT_EQ(btree_delete(*index_, bytes_of(encode(entry.first)), &entry.second), there) << test::errors();
    EXPECT_EQ(error_record().last_code, there ? 0 : status::btree_key_missing);
    if (there) erase(entry);
  }
  void search(const KeyValue &key) {
    RowSet rows{};
    const std::vector<RowNo> expected = rows_at(key);
    EXPECT_EQ(btree_search(*index_, bytes_of(encode(key)), &rows),
              expected.empty() ? BtreeFind::absent : BtreeFind::found);
    EXPECT_EQ(rows_of(rows), expected) << test::errors();
  }

  void range() {
    const KeyValue lower = some_key(), upper = some_key();
    const std::string lower_bytes = encode(lower), upper_bytes = encode(upper);
    const BtreeRange wanted = {bytes_of(lower_bytes), static_cast<Bound>(random_.below(3)),
                               bytes_of(upper_bytes), static_cast<Bound>(random_.below(3)),
                               random_.one_in(2)};
    const auto order = [&](const KeyValue &key, const KeyValue &bound) {
      return wanted.first_part ? key[0] <=> bound[0] : key <=> bound;
    };
    const auto passes = [](std::strong_ordering inwards, Bound bound) {
      return bound == Bound::none || inwards > 0 || (inwards == 0 && bound == Bound::inclusive);
    };
    Items expected;
    for (const auto &[key, rows] : model_)
      if (passes(order(key, lower), wanted.lower_bound) &&
          passes(0 <=> order(key, upper), wanted.upper_bound))
        expected.emplace_back(encode(key), rows_at(key));
    EXPECT_EQ(items_of(*index_, wanted), expected);
  }

  void transaction() {
    if (saved_.size() == 3 || (!saved_.empty() && !random_.one_in(3))) return end_level(random_.one_in(2));
    store_.begin();
    saved_.push_back(model_);
  }
  void end_level(bool keep) {
    keep ? store_.commit() : store_.rollback();
    if (!keep) model_ = saved_.back();
    saved_.pop_back();
    check();
  }

  void check() {
    Items expected;
    for (const auto &[key, rows] : model_) {
      expected.emplace_back(encode(key), rows_at(key));
      EXPECT_EQ(btree_search(*index_, bytes_of(expected.back().first), nullptr), BtreeFind::found);
    }
    EXPECT_EQ(items_of(*index_), expected) << test::errors();
    check_pages(*index_);
    EXPECT_EQ(store_.sm->dat->lock_count + store_.sm->trn->lock_count, 0) << "no page stays held";
  }
  void drain() {
    while (!model_.empty() && !testing::Test::HasFailure()) remove(old_entry());
    check();
    EXPECT_EQ(btree_pages(*index_).count, 1u);
    EXPECT_EQ(store_.used_blocks(), used_);
  }

  Store &store_;
  test::Random &random_;
  const Config &config_;
  Btree *const index_;
  Model model_;
  std::vector<Model> saved_;
  int used_;
};

BtreeDefinition definition(uint32_t flags, int master_count,
                           std::initializer_list<std::pair<TypeCode, int>> parts, int value_size = 4) {
  BtreeDefinition made = {};
  made.flags = flags;
  made.master_count = master_count;
  made.value_size = value_size;
  for (const auto &[type, size] : parts)
    made.parts[made.part_count++] = {type, static_cast<uint16_t>(size), 1};
  return made;
}

const Config configs[] = {
    {"unique int", definition(btree_unique, 1, {{type::int32, 4}}), 4000, 1000},
    {"unique int, char", definition(btree_unique, 1, {{type::int32, 4}, {type::character, 124}}), 60, 1000},
    {"normal 3, values of 3 bytes", definition(0, 3, {{type::cbigint, 9}}, 3), 10, 4000},
    {"normal 0, smallint", definition(btree_timeseries, 0, {{type::smallint, 2}}), 300, 20},
    {"normal 16, two chars", definition(0, 16, {{type::character, 50}, {type::character, 50}}), 12, 60},
    {"normal 16, one key", definition(0, 16, {{type::int32, 4}}), 1, 100000},
};

TEST(BtreeRandomModel, AgreesWithAMap) {
  test::Random random;
  for (const Config &config : configs) {
    Store store;
    ModelRun(store, random, config).run(6000);
    if (HasFailure()) return;
  }
}

TEST(BtreeRandomModel, WhatFailsLeavesTheLevelAsItWasOrTorn) {
  test::Random random;
  int failures = 0;
  for (const Config &config : configs) {
    test::FaultDriver driver;
    Store store("DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=4;CACHE_SIZE_TRN=6;CACHE_RTS=0");
    failures += ModelRun(store, random, config).run_failures(driver, 160);
    if (HasFailure()) return;
  }
  EXPECT_GT(failures, 50);
}

TEST(BtreeTest, OneHandlePerIndexWhateverBecameOfIt) {
  Store store;
  Btree *index = btree_create(*store.sm, configs[0].made);
  ASSERT_NE(index, nullptr) << test::errors();
  const RowNo number = index->number;
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
  btree_close(index);

  // Another process puts an index of another kind in its place.
  store.save();
  StorageManager *elsewhere = sm_open(*store.sm->params);
  ASSERT_TRUE(elsewhere != nullptr && sm_open_systems(*elsewhere)) << test::errors();
  ASSERT_TRUE(btree_drop(btree_open(*elsewhere, number)));
  Btree *other = btree_create(*elsewhere, configs[4].made);
  EXPECT_EQ(other->number, number);
  btree_close(other);
  EXPECT_TRUE(sm_direct_end(*elsewhere)) << test::errors();
  sm_close(elsewhere);
  bool changed = false;
  EXPECT_TRUE(sm_refresh(*store.sm, &changed) && changed);
  EXPECT_TRUE(row_systems_reload_all(*store.sm) && btrees_reload_all(*store.sm)) << test::errors();
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
  Store store;
  sm = store.sm;
  Btree *tree = btree_create(*sm, definition(0, 1, {{type::int32, 4}}));
  ASSERT_NE(tree, nullptr) << test::errors();
  root = static_cast<BlockNo>(tree->root);
  const uint8_t key[btree_key_limit] = {7};
  RowNo rows[] = {1, 2, 3};
  for (int i = 0; i < 2; ++i) ASSERT_EQ(btree_insert(*tree, key, &rows[i]), BtreeInsert::inserted);
  const Items before = items_of(*tree);
  for (const bool adding : {true, false}) {
    store.begin();
    {
      const test::SlotGuard<decltype(enter)> guard(system_driver.lock_enter, [](Lock *lock) {
        CachePage *leaf = cm_find(*sm->trn, root), *overflow = cm_find(*sm->trn, root + 1);
        if (leaf != nullptr && overflow != nullptr && (overflow->status & page_dirty) != 0) leaf->magic = 0;
        return enter(lock);
      });
      enter = guard.saved();
      EXPECT_FALSE(adding ? btree_insert(*tree, key, &rows[2]) == BtreeInsert::inserted
                          : btree_delete(*tree, key, &rows[1]));
    }
    EXPECT_EQ(test::take_recorded().back(), status::btree_item_rewrite);
    cm_find(*sm->trn, root)->magic = page_magic;
    EXPECT_FALSE(tm_commit(*sm->tm, current_thread()));
    EXPECT_EQ(test::first_status(), status::tran_bad_state);
    store.rollback();
    EXPECT_EQ(items_of(*tree), before);
  }
  btree_close(tree);
}

}  // namespace
}  // namespace tovik
