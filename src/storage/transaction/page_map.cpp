// The page map of the commit record, on disk.
//
// A page map takes consecutive TRN blocks. Each holds up to block size / 8 entries in ascending order of dno;
// the rest of the last block is zero.
//
//   offset  size  field
//   0       4     dno   DAT block, unsigned
//   4       4     tno   TRN block with its new content, unsigned

#include <algorithm>

#include "frame/error.h"
#include "storage/transaction/transaction_internal.h"

namespace tovik {
namespace {

constexpr int map_entry_size = 8;
constexpr int map_dno = 0;
constexpr int map_tno = 4;

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

}  // namespace tovik
