// What a table holds, and whether its rows, indices and counters agree.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "data/index/btree_tree.h"
#include "data/table/catalog.h"
#include "frame/error.h"

namespace tovik::test {

inline std::string failed(const std::string &what) {
  return what + ": error " + std::to_string(error_record().entries[0].code) + "\n";
}

inline bool table_names(Database &db, std::vector<std::string> *names) {
  const auto visit = [](void *context, const char *name) {
    static_cast<std::vector<std::string> *>(context)->push_back(name);
    return true;
  };
  return table_walk(db, visit, names);
}

template <class Visit>  // visit(row, record)
bool each_row(RowSystem &rows, int record_size, Visit visit) {
  std::vector<uint8_t> record(static_cast<size_t>(record_size));
  RowScan scan;
  row_scan_start(scan, rows);
  RowNo row = 0;
  Found fetched;
  while ((fetched = row_scan_next(scan, record.data(), record_size, &row)) == Found::yes)
    visit(row, record.data());
  return fetched == Found::no;
}

// What stands in an index or should: keys with their row numbers.
using Entries = std::vector<std::pair<std::string, RowNo>>;

inline std::string key_text(const Btree &index, const uint8_t *key) {
  return std::string(reinterpret_cast<const char *>(key), static_cast<size_t>(btree_key_size(index)));
}

// Those of an index; keys ascend, and the row numbers of one do as bytes.
inline bool index_entries(Btree &index, Entries *entries) {
  const auto in_order = [&index](const auto &a, const auto &b) {
    const int order =
        btree_key_compare(index, reinterpret_cast<const uint8_t *>(a.first.data()),
                          reinterpret_cast<const uint8_t *>(b.first.data()), index.definition.part_count);
    return order < 0 || (order == 0 && memcmp(&a.second, &b.second, sizeof(RowNo)) < 0);
  };
  RowSet rows = {};
  BtreeCursor cursor;
  if (!btree_cursor_open(cursor, index, BtreeRange{})) return false;
  uint8_t key[btree_key_limit];
  Found fetched;
  while ((fetched = btree_cursor_fetch(cursor, key, &rows)) == Found::yes)
    for (const RowNo row : rows.rows) entries->emplace_back(key_text(index, key), row);
  btree_cursor_close(cursor);
  for (size_t i = 1; i < entries->size(); ++i)
    if (!in_order((*entries)[i - 1], (*entries)[i])) return false;
  return fetched == Found::no;
}

inline bool index_finds(Btree &index, const std::string &key, RowNo row) {
  RowSet found = {};
  return btree_search(index, reinterpret_cast<const uint8_t *>(key.data()), &found) == Found::yes &&
         std::find(found.rows.begin(), found.rows.end(), row) != found.rows.end();
}

// Counts the pages of a tree from block down, with the overflow trees of its items; false past limit.
inline bool count_pages(const Tree &tree, uint32_t block, uint32_t limit, uint32_t *count) {
  Page page;
  if (++*count > limit || !tree_page_get(tree, block, page)) return false;
  const bool leaf = bpage::is_leaf(page.data()), master = tree.leaf == &tree.index->master_leaf;
  std::vector<uint32_t> children, overflows;
  for (int i = 0; i < bpage::item_count(page.data()) + !leaf; ++i)
    if (!leaf)
      children.push_back(bpage::child(page.data(), *tree.node, i));
    else if (master && !btree_is_unique(*tree.index))
      overflows.push_back(load_u32(bpage::item(page.data(), *tree.leaf, i) + bvalues::root));
  page = Page();
  for (const uint32_t child : children)
    if (!count_pages(tree, child, limit, count)) return false;
  for (const uint32_t root : overflows)
    if (root != 0 && !count_pages(tree_overflow(*tree.index, root), root, limit, count)) return false;
  return true;
}

// The pages of an index form one chain, each of them is in a tree, and stands between siblings that know it.
inline bool pages_agree(Btree &index) {
  const auto link = [&index](uint32_t block, int field) {
    Page page;
    return btree_page_get(index, block, page) ? bpage::link(page.data(), field) : UINT32_MAX;
  };
  const BtreePages &pages = btree_pages(index);
  uint32_t count = 0, previous = 0, in_trees = 0;
  for (uint32_t block = pages.first; block != 0 && count <= pages.count; ++count) {
    const uint32_t left = link(block, bpage::left), right = link(block, bpage::right);
    if (link(block, bpage::chain_previous) != previous || (left != 0 && link(left, bpage::right) != block) ||
        (right != 0 && link(right, bpage::left) != block))
      return false;
    previous = block;
    block = link(block, bpage::chain_next);
  }
  return previous == pages.last && count == pages.count &&
         count_pages(tree_master(index), index.root, count, &in_trees) && in_trees == count;
}

inline std::string index_fault(const Table &table, Btree &index) {
  const std::string name = std::string(table.name) + "." + index.definition.index_name;
  Entries wanted, found;
  const bool scanned = each_row(*table.rows, table.record_size, [&](RowNo row, const uint8_t *record) {
    uint8_t key[btree_key_limit];
    index_key(table, index, record, key);
    wanted.emplace_back(key_text(index, key), row);
  });
  if (!scanned) return failed(name + ": reading the rows");
  if (!index_entries(index, &found)) return failed(name + ": walking the index");
  for (const auto &[key, row] : wanted)
    if (!index_finds(index, key, row)) return name + " does not find row " + std::to_string(row) + "\n";
  std::sort(wanted.begin(), wanted.end());
  std::sort(found.begin(), found.end());
  if (wanted == found) return pages_agree(index) ? "" : name + " has pages that do not agree\n";
  return name + " holds " + std::to_string(found.size()) + " entries for " + std::to_string(wanted.size()) +
         " rows, or others\n";
}

// "" or the first thing wrong.
inline std::string table_fault(Table &table) {
  uint32_t rows = 0;
  if (!each_row(*table.rows, table.record_size, [&rows](RowNo, const uint8_t *) { ++rows; }))
    return failed(std::string("reading ") + table.name);
  if (const uint32_t counted = row_active_count(*table.rows); counted != rows)
    return std::string(table.name) + " counts " + std::to_string(counted) + " rows and has " +
           std::to_string(rows) + "\n";
  std::string fault;
  for (int i = 0; i < table.index_count && fault.empty(); ++i) fault = index_fault(table, *table.indices[i]);
  return fault;
}

}  // namespace tovik::test
