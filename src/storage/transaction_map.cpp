// The maps of the levels, in memory, and the page map of the commit record, on disk.
//
// A page map takes consecutive TRN blocks. Each holds up to block size / 8 entries in ascending order of dno;
// the rest of the last block is zero.
//
//   offset  size  field
//   0       4     dno   DAT block, unsigned
//   4       4     tno   TRN block with its new content, unsigned

#include <algorithm>

#include "frame/error.h"
#include "storage/transaction_internal.h"

namespace tovik {
namespace {

constexpr int map_entry_size = 8;
constexpr int map_dno = 0;
constexpr int map_tno = 4;

int32_t &chain_of(TranLevel &level, uint32_t dno) {
  return level.chains[dno & static_cast<uint32_t>(level.hash_size - 1)];
}

void clear_chains(TranLevel &level) {
  for (int32_t i = 0; i < level.hash_size; ++i) level.chains[i] = -1;
}

void link_entry(TranLevel &level, int32_t index) {
  MapEntry &entry = level.entries[index];
  int32_t &head = chain_of(level, entry.dno);
  entry.next = head;
  head = index;
}

// Doubles the table. Without memory for it the chains only get longer.
void grow(TranLevel &level) {
  if (level.hash_size > INT32_MAX / 4) return;
  int32_t size = 1;
  while (size < level.hash_size * 2) size *= 2;
  void *chains = mem_realloc(level.chains, sizeof(int32_t) * static_cast<size_t>(size));
  if (chains == nullptr) return;
  level.chains = static_cast<int32_t *>(chains);
  level.hash_size = size;
  clear_chains(level);
  for (int32_t i = 0; i < level.entries.size(); ++i) link_entry(level, i);
}

MapEntry *find_entry(const TranLevel &level, uint32_t dno) {
  TranLevel &inner = const_cast<TranLevel &>(level);
  for (int32_t i = chain_of(inner, dno); i >= 0; i = inner.entries[i].next)
    if (inner.entries[i].dno == dno) return &inner.entries[i];
  return nullptr;
}

// Everything in the record that the map or the DAT counters will be taken from.
bool record_is_sound(const BlockManager &bm) {
  const CommitRecord &record = bm.header.commit;
  const Counters &after = record.after;
  if (record.map_bno < 2 || record.map_icnt < 1) return false;
  if (int64_t{after.bcnt} - record.before.bcnt > record.map_icnt) return false;  // new blocks are in the map
  const int64_t per_block = map_entries_per_block(bm);
  const int64_t last_map_block = record.map_bno + (record.map_icnt + per_block - 1) / per_block - 1;
  if (last_map_block > bm.header.parts[part_trn].counters.bcnt) return false;
  if (after.bcnt < 1 || after.fcnt < 0 || after.fcnt > after.bcnt) return false;
  if (after.flst < 0 || after.flst > after.bcnt || (after.fcnt == 0) != (after.flst == 0)) return false;
  return bm_block_valid(bm, part_dat, after.bcnt);
}

bool entry_is_sound(const BlockManager &bm, const MapEntry &entry, uint32_t previous_dno) {
  return entry.dno > previous_dno && entry.dno <= static_cast<uint32_t>(bm.header.commit.after.bcnt) &&
         entry.tno >= 1 && entry.tno < static_cast<uint32_t>(bm.header.commit.map_bno);
}

}  // namespace

bool level_map_init(TranLevel &level, int32_t hash_size) {
  level.chains = static_cast<int32_t *>(mem_alloc(sizeof(int32_t) * static_cast<size_t>(hash_size)));
  if (level.chains == nullptr) return fail(status::out_of_memory);
  level.hash_size = hash_size;
  clear_chains(level);
  return true;
}

void level_map_release(TranLevel &level) {
  mem_free(level.chains);
  level.chains = nullptr;
}

BlockNo level_map_find(const TranLevel &level, BlockNo dno) {
  const MapEntry *entry = find_entry(level, static_cast<uint32_t>(dno));
  return entry == nullptr ? 0 : static_cast<BlockNo>(entry->tno);
}

bool level_map_set(TranLevel &level, uint32_t dno, uint32_t tno) {
  if (MapEntry *entry = find_entry(level, dno); entry != nullptr) {
    entry->tno = tno;
    return true;
  }
  if (!level.entries.push({dno, tno, -1})) return fail(status::out_of_memory);
  link_entry(level, level.entries.size() - 1);
  if (level.entries.size() / 2 > level.hash_size) grow(level);
  return true;
}

bool page_map_sort(TransactionManager &tm) {
  const Array<MapEntry> &entries = tm.levels[0]->entries;
  tm.sorted.clear();
  if (!tm.sorted.resize(entries.size())) {
    err_set(status::out_of_memory);
    return fail(status::tran_map_sort);
  }
  std::copy(entries.begin(), entries.end(), tm.sorted.begin());
  std::sort(tm.sorted.begin(), tm.sorted.end(),
            [](const MapEntry &a, const MapEntry &b) { return a.dno < b.dno; });
  return true;
}

bool page_map_write(TransactionManager &tm, BlockNo *first) {
  Counters &trn = bm_counters(*tm.bm, part_trn);
  const int32_t per_block = map_entries_per_block(*tm.bm);
  *first = trn.bcnt + 1;
  for (int32_t done = 0; done < tm.sorted.size(); done += per_block) {
    if (trn.bcnt == INT32_MAX) {
      err_set(status::storage_size_limit);
      return fail(status::tran_map_write);
    }
    memset(tm.buffer, 0, static_cast<size_t>(bm_block_size(*tm.bm)));
    const int32_t count = std::min(per_block, tm.sorted.size() - done);
    for (int32_t i = 0; i < count; ++i) {
      uint8_t *at = tm.buffer + i * map_entry_size;
      store_u32(at + map_dno, tm.sorted[done + i].dno);
      store_u32(at + map_tno, tm.sorted[done + i].tno);
    }
    if (!bm_write_block(*tm.bm, part_trn, trn.bcnt + 1, tm.buffer)) return fail(status::tran_map_write);
    ++trn.bcnt;
  }
  return true;
}

MapRead page_map_read(TransactionManager &tm) {
  const BlockManager &bm = *tm.bm;
  tm.sorted.clear();
  if (!record_is_sound(bm)) return MapRead::damaged;
  const int32_t per_block = map_entries_per_block(bm);
  const int32_t total = bm.header.commit.map_icnt;
  uint32_t previous = 0;
  for (int32_t done = 0; done < total; done += std::min(per_block, total - done)) {
    if (!bm_read_block(*tm.bm, part_trn, bm.header.commit.map_bno + done / per_block, tm.buffer))
      return MapRead::failed;
    for (int32_t i = 0; i < std::min(per_block, total - done); ++i) {
      const uint8_t *at = tm.buffer + i * map_entry_size;
      const MapEntry entry = {load_u32(at + map_dno), load_u32(at + map_tno), -1};
      if (!entry_is_sound(bm, entry, previous)) return MapRead::damaged;
      previous = entry.dno;
      if (!tm.sorted.push(entry)) {
        err_set(status::out_of_memory);
        return MapRead::failed;
      }
    }
  }
  return MapRead::complete;
}

bool tm_map_add(TransactionManager &tm, BlockNo dno, BlockNo tno) {
  return level_map_set(*tm.levels[tm.level - 1], static_cast<uint32_t>(dno), static_cast<uint32_t>(tno));
}

BlockNo tm_map_find_level(const TransactionManager &tm, BlockNo dno) {
  return level_map_find(*tm.levels[tm.level - 1], dno);
}

BlockNo tm_map_find(const TransactionManager &tm, BlockNo dno) {
  for (int32_t level = tm.level; level > 0; --level)
    if (const BlockNo tno = level_map_find(*tm.levels[level - 1], dno); tno != 0) return tno;
  return 0;
}

}  // namespace tovik
