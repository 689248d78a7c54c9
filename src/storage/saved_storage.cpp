// Saved TRN storages: the last committed one of a database, kept beside it under a numbered name.

#include <cstring>

#include "frame/env.h"
#include "frame/error.h"
#include "storage/trn_storage.h"

namespace tovik {

namespace {

constexpr char saved_suffix[] = ".trn_";

bool saved_name(const BlockManager &bm, uint32_t number, StorageName name) {
  StorageName trn;
  return storage_name(*bm.params, DatabaseType::ordinary, part_trn, trn) &&
         saved_storage_name(trn, number, name);
}

const char *last_part(const char *name) {
  const char *separator = path_last_separator(name);
  return separator == nullptr ? name : separator + 1;
}

// What pruning goes by. Names are those of directory entries, without the directory.
struct PruneRule {
  StorageName trn;  // the full name
  const char *stem;
  int stem_length;    // up to and including the first "."
  bool keep_current;  // storages that a restart could apply
  uint32_t ucnt;
  StorageName kept[4];  // full names that always stay: the database's own storages and the current saved ones
};

bool make_rule(const BlockManager &bm, bool at_open, PruneRule &rule) {
  const uint32_t ucnt = bm.header.parts[part_dat].counters.ucnt;
  rule.keep_current = at_open;
  rule.ucnt = ucnt;
  if (!storage_name(*bm.params, DatabaseType::ordinary, part_trn, rule.trn) ||
      !storage_name(*bm.params, DatabaseType::ordinary, part_dat, rule.kept[0]))
    return false;
  memcpy(rule.kept[1], rule.trn, sizeof rule.trn);
  rule.stem = last_part(rule.trn);
  const char *dot = strchr(rule.stem, '.');
  if (dot == nullptr) return false;
  rule.stem_length = static_cast<int>(dot - rule.stem) + 1;
  return !at_open || (saved_storage_name(rule.trn, ucnt, rule.kept[2]) &&
                      saved_storage_name(rule.trn, ucnt + 1, rule.kept[3]));
}

bool always_kept(const PruneRule &rule, const char *entry) {
  for (const StorageName &name : rule.kept)
    if (name[0] != '\0' && strcmp(last_part(name), entry) == 0) return true;
  return false;
}

uint32_t leading_number(const char *text) {
  uint64_t number = 0;
  for (; *text >= '0' && *text <= '9' && number <= UINT32_MAX; ++text)
    number = number * 10 + static_cast<uint64_t>(*text - '0');
  return number > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(number);
}

bool is_prunable(const PruneRule &rule, const char *entry) {
  if (strncmp(entry, rule.stem, static_cast<size_t>(rule.stem_length)) != 0) return false;
  if (strcmp(strrchr(entry, '.'), saved_suffix) != 0 || always_kept(rule, entry)) return false;
  const uint32_t number = leading_number(entry + rule.stem_length);
  return !rule.keep_current || (number != rule.ucnt && number != rule.ucnt + 1);
}

void remove_entry(const BlockManager &bm, const PruneRule &rule, const char *entry) {
  const size_t directory_length = static_cast<size_t>(rule.stem - rule.trn);
  StorageName name;
  if (directory_length + strlen(entry) >= sizeof name) return;
  memcpy(name, rule.trn, directory_length);
  strcpy(name + directory_length, entry);
  (void)io_remove(bm_driver(bm), name);
}

void prune_directory(const BlockManager &bm, const PruneRule &rule) {
  StorageName directory = ".";
  if (rule.stem != rule.trn) {
    const size_t length = static_cast<size_t>(rule.stem - rule.trn);
    memcpy(directory, rule.trn, length);
    directory[length > 1 ? length - 1 : length] = '\0';  // a lone separator is the root
  }
  Directory *listing = io_find_first(bm_driver(bm), directory);
  if (listing == nullptr) return;
  char entry[256];
  while (io_find_next(bm_driver(bm), listing, entry) == 1)
    if (is_prunable(rule, entry)) remove_entry(bm, rule, entry);
  (void)io_find_close(bm_driver(bm), listing);
}

}  // namespace

bool bm_saved_open(BlockManager &bm, uint32_t number) {
  StorageName name;
  if (bm_single(bm) || !bm_close_storage(bm, part_trn) || !saved_name(bm, number, name)) return false;
  if (!io_exists(bm_driver(bm), name)) return false;
  bm.io[part_trn] = io_open(bm_driver(bm), bm.params->io, name, part_trn);
  return bm.io[part_trn] != nullptr;
}

bool bm_saved_exists(BlockManager &bm, uint32_t number) {
  StorageName name;
  return !bm_single(bm) && saved_name(bm, number, name) && io_exists(bm_driver(bm), name);
}

bool bm_saved_remove(BlockManager &bm, uint32_t number) {
  StorageName name;
  if (bm_single(bm)) return true;
  return bm_close_storage(bm, part_trn) && saved_name(bm, number, name) && trn_destroy_storage(bm, name);
}

bool bm_saved_drop_stale(BlockManager &bm) {
  if (bm_temporary(bm)) return true;
  switch (trn_record(bm)) {
    case TrnRecord::waiting:
      return fail(status::tran_bad_state);
    case TrnRecord::failed:
      return false;
    case TrnRecord::none:
      break;
  }
  const uint32_t ucnt = bm_counters(bm, part_dat).ucnt;
  if (!bm_saved_remove(bm, ucnt) || !bm_saved_remove(bm, ucnt + 1)) return false;
  return bm_trn_exists(bm) == TrnPresence::absent || bm_trn_destroy(bm);
}

void bm_saved_prune(BlockManager &bm, bool at_open) {
  if (bm_single(bm) || !io_can_rename(bm_driver(bm))) return;
  if (!at_open && env_on(Env::tran_history_save)) return;
  ErrorScope failures_stay_here;
  PruneRule rule = {};
  if (make_rule(bm, at_open, rule)) prune_directory(bm, rule);
}

}  // namespace tovik
