// Storage managers with the data layer's systems, for the tests of row systems and B-trees, and a walk over
// every page of an index that checks the invariants of its trees without using the index's own searches.
#pragma once

#include <cstring>
#include <functional>
#include <set>

#include "data/index/btree_tree.h"
#include "engine_support.h"

namespace tovik::test {

// As the calling thread sees them.
inline BlockNo blocks_in_use(const StorageManager &sm) {
  const Counters &counters = sm_level(sm) > 0 ? shadow_counters(*sm.tm) : bm_counters(*sm.bm, part_dat);
  return counters.bcnt - counters.fcnt;
}

class StorageFixture {
 public:
  // With caches that hold a whole test's pages.
  explicit StorageFixture(
      const std::string &options = "BLOCK_SIZE=1024;CACHE_SIZE_DAT=300;CACHE_SIZE_TRN=300")
      : params_(param_create(("NAME=store;PATH=" + dir_.path() + ";" + options).c_str())) {
    EXPECT_TRUE(params_ != nullptr && param_check(*params_, true)) << errors();
    sm = sm_create(*params_);
    EXPECT_TRUE(sm != nullptr && sm_direct_end(*sm)) << errors();
    err_clear();
  }
  ~StorageFixture() {
    sm_close(sm);
    param_destroy(params_);
  }
  StorageFixture(const StorageFixture &) = delete;
  StorageFixture &operator=(const StorageFixture &) = delete;

  void save() { EXPECT_TRUE(sm_direct_end(*sm)) << errors(); }
  void reopen() {
    save();
    sm_close(sm);
    sm = sm_open(*params_);
    ASSERT_TRUE(sm != nullptr && sm_open_systems(*sm)) << errors();
  }

  void begin() { EXPECT_TRUE(tm_start(*sm->tm, current_thread())) << errors(); }
  void commit() {
    EXPECT_TRUE(tm_commit(*sm->tm, current_thread()) && tm_apply(*sm->tm, current_thread())) << errors();
  }
  void rollback() { EXPECT_TRUE(tm_rollback(*sm->tm, current_thread())) << errors(); }

  int used_blocks() const { return blocks_in_use(*sm); }

  // The bytes of a block, as the calling thread sees them.
  std::string bytes(BlockNo block, size_t from, size_t count) {
    Page page;
    EXPECT_TRUE(sm_page_get(*sm, block, 0, page)) << errors();
    return std::string(reinterpret_cast<const char *>(page.data()) + from, count);
  }
  void overwrite(BlockNo block, uint32_t from, const std::string &content) {
    Page page;
    ASSERT_TRUE(sm_page_get(*sm, block, 0, page)) << errors();
    memcpy(page.data() + from, content.data(), content.size());
    ASSERT_TRUE(sm_page_release_write(page)) << errors();
  }

  StorageManager *sm = nullptr;

 private:
  Engine engine_;
  TempDir dir_;
  Params *params_;
};

inline std::string hex(const uint8_t *bytes, int size) {
  std::string text;
  for (int i = 0; i < size; ++i) {
    char digits[3];
    snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}
// Little-endian bytes of unsigned 32-bit values, and count equal bytes.
inline std::string u32s(std::initializer_list<uint32_t> values) {
  std::string text(4 * values.size(), '\0');
  char *at = text.data();
  for (const uint32_t value : values) store_u32(std::exchange(at, at + 4), value);
  return text;
}
inline std::string filled(size_t count, char byte = '\0') {
  return std::string(count, byte);
}

inline BtreeDefinition definition(uint32_t flags, int master_count,
                                  std::initializer_list<std::pair<TypeCode, int>> parts) {
  BtreeDefinition made = {};
  made.flags = flags;
  made.master_count = master_count;
  for (const auto &[type, size] : parts)
    made.parts[made.part_count++] = {type, static_cast<uint16_t>(size), 1};
  return made;
}

// Every item of an index in page order, and the shape of its leaves.
struct Walk {
  std::vector<std::pair<std::string, std::vector<RowNo>>> items;
  std::vector<int> leaf_counts;
};

class Walker {
 public:
  explicit Walker(Btree &index) : index_(index) {}

  Walk run() {
    tree(tree_master(index_), [this](const uint8_t *item) { master_item(item); });
    walk_.leaf_counts = leaf_counts_;

    for (const auto &[item, root] : roots_) {
      std::vector<RowNo> &rows = walk_.items[item].second;
      tree(tree_overflow(index_, root),
           [&](const uint8_t *item) { rows.push_back(btree_load_row(item, index_.definition.value_size)); });
      EXPECT_EQ(rows.size(), totals_[item]);
    }
    allocation_chain();
    return walk_;
  }

 private:
  void master_item(const uint8_t *item) {
    const BtreeItemKind &kind = index_.master_leaf;
    const int size = index_.definition.value_size;
    std::vector<RowNo> rows;
    uint32_t total = 1, root = 0;
    if (btree_is_unique(index_)) {
      rows.push_back(btree_load_row(item, size));
    } else {
      total = load_u32(item + bvalues::total);
      root = load_u32(item + bvalues::root);
      const uint32_t slots = static_cast<uint32_t>(index_.definition.master_count);
      for (uint32_t i = 0; i < std::min(total, slots); ++i)
        rows.push_back(btree_load_row(item + bvalues::slots + i * static_cast<uint32_t>(size), size));
      EXPECT_TRUE(total <= slots || root != 0);
    }
    if (root != 0) roots_.emplace_back(walk_.items.size(), root);
    totals_.push_back(total);
    const char *key = reinterpret_cast<const char *>(item) + kind.value_size;
    walk_.items.emplace_back(std::string(key, static_cast<size_t>(kind.key_size)), std::move(rows));
  }

  void tree(const Tree &tree, const std::function<void(const uint8_t *)> &visit) {
    levels_.clear();
    leaf_counts_.clear();
    previous_.clear();
    depth_ = 0;
    subtree(tree, tree.root, 0, visit);
    for (const std::vector<uint32_t> &level : levels_) {
      for (size_t i = 0; i < level.size(); ++i) {
        Page page;
        ASSERT_TRUE(btree_page_get(index_, level[i], page));
        EXPECT_EQ(bpage::link(page.data(), bpage::left), i == 0 ? 0 : level[i - 1]);
        EXPECT_EQ(bpage::link(page.data(), bpage::right), i + 1 == level.size() ? 0 : level[i + 1]);
      }
    }
  }

  // Keys ascend strictly over the whole tree; a separator lies between its child's keys and the keys after.
  void key_follows(const Tree &tree, const uint8_t *key, bool separator) {
    const size_t size = static_cast<size_t>(tree.leaf->key_size);
    const uint8_t *before = reinterpret_cast<const uint8_t *>(previous_.data());
    const int sign = previous_.empty() ? -1
                     : tree.leaf == &index_.master_leaf
                         ? btree_key_compare(index_, before, key, index_.definition.part_count)
                         : memcmp(before, key, size);
    EXPECT_TRUE(sign < 0 || (sign == 0 && separator)) << "keys ascend";
    previous_.assign(reinterpret_cast<const char *>(key), size);
  }

  void subtree(const Tree &tree, uint32_t block, size_t level,
               const std::function<void(const uint8_t *)> &visit) {
    ASSERT_LT(level, static_cast<size_t>(btree_depth_limit));
    ASSERT_TRUE(pages_.insert(block).second) << "page " << block << " twice";
    Page page;
    ASSERT_TRUE(tree_page_get(tree, block, page)) << errors();
    Bytes copy(page.data(), page.data() + bm_block_size(*index_.sm->bm));
    ASSERT_TRUE(sm_page_release(page));
    uint8_t *data = copy.data();
    if (levels_.size() <= level) levels_.emplace_back();
    levels_[level].push_back(block);
    const BtreeItemKind &kind = tree_kind(tree, data);
    const int count = bpage::item_count(data);
    const bool leaf = bpage::is_leaf(data);
    if (leaf) {
      EXPECT_TRUE(depth_ == 0 || depth_ == static_cast<int>(level) + 1) << "leaves at different depths";
      EXPECT_TRUE(count > 0 || level == 0) << "empty leaf " << block;
      depth_ = static_cast<int>(level) + 1;
      leaf_counts_.push_back(count);
    }
    for (int i = 0; i < count; ++i) {
      if (!leaf) subtree(tree, bpage::child(data, kind, i), level + 1, visit);
      key_follows(tree, bpage::key(data, kind, i), !leaf);
      if (leaf) visit(bpage::item(data, kind, i));
    }
    if (!leaf) subtree(tree, bpage::child(data, kind, count), level + 1, visit);
  }

  void allocation_chain() {
    const BtreePages &pages = btree_pages(index_);
    std::set<uint32_t> chain;
    uint32_t previous = 0;
    for (uint32_t block = pages.first; block != 0;) {
      ASSERT_TRUE(chain.insert(block).second) << "allocation chain loops";
      Page page;
      ASSERT_TRUE(btree_page_get(index_, block, page));
      EXPECT_EQ(bpage::link(page.data(), bpage::chain_previous), previous);
      previous = block;
      block = bpage::link(page.data(), bpage::chain_next);
    }
    EXPECT_EQ(previous, pages.last);
    EXPECT_EQ(chain.size(), pages.count);
    EXPECT_EQ(chain, pages_) << "the chain holds the pages of the trees";
  }

  Btree &index_;
  Walk walk_;
  std::vector<std::pair<size_t, uint32_t>> roots_;
  std::vector<uint32_t> totals_;
  std::vector<std::vector<uint32_t>> levels_;
  std::vector<int> leaf_counts_;
  std::set<uint32_t> pages_;
  std::string previous_;
  int depth_ = 0;
};

inline Walk walk(Btree &index) {
  return Walker(index).run();
}

}  // namespace tovik::test
