// The listing of the commit record.
#include <cstdio>

#include "frame/dump.h"
#include "frame/error.h"
#include "storage/transaction/trn_storage.h"

namespace tovik {

namespace {

void dump_commit(const CommitRecord &commit) {
  char ctime[64];
  const DateTimeRec &at = commit.ctime;
  snprintf(ctime, sizeof ctime, "%04d/%02d/%02d %02d:%02d:%02d.%06d", at.year, at.month, at.day, at.hour,
           at.minute, at.second, at.microseconds);
  const auto number = [](const char *label, int64_t value) {
    print_line("  %-13s: %lld", label, static_cast<long long>(value));
  };
  const auto key = [](const char *label, int64_t value) {
    print_line("  %-12s: %lld", label, static_cast<long long>(value));
  };
  print_line(" -- transaction information  -- ");
  number("tstat", static_cast<int32_t>(commit.tstat));
  number("map bno", commit.map_bno);
  number("map icnt", commit.map_icnt);
  number("fcnt", commit.after.fcnt);
  number("flst", commit.after.flst);
  print_line("  %-13s: %s", "ctime", ctime);
  key("iid", commit.iid);
  key("lcto", commit.lcto);
  key("lctn", commit.lctn);
}

// From a copy of the header: the one in memory may belong to an open transaction.
bool read_stored_commit(BlockManager &bm, CommitRecord *commit) {
  if (bm_temporary(bm) || trn_exists(bm) != Found::yes) return false;
  const bool was_open = bm.io[part_trn] != nullptr;
  HeaderRecord stored;
  const bool read = trn_reopen(bm) && bm_peek_header(bm, part_trn, stored);
  if (!was_open) (void)bm_close_storage(bm, part_trn);
  if (read) *commit = stored.commit;
  return read;
}

}  // namespace

void trn_dump(BlockManager &bm) {
  ErrorScope listing_records_nothing;
  CommitRecord commit;
  if (read_stored_commit(bm, &commit))
    dump_commit(commit);
  else
    print_line(" -- transaction information  -- not found.");
}

}  // namespace tovik
