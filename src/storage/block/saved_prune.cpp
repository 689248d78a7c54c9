#include "storage/block/saved_prune.h"

#include <cstring>

#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

constexpr char pruned_end[] = ".trn_";  // other suffixes are left alone until the database is removed

const char *last_part(const char *name) {
  const char *separator = path_last_separator(name);
  return separator == nullptr ? name : separator + 1;
}

// What pruning goes by. Names are those of directory entries, without the directory. An entry is a saved
// storage of this database when only digits stand between stem and end: what another database has put there
// ("t.old.7.trn_" beside "t.7.trn_") is not ours.
struct PruneRule {
  StorageName trn;  // the full name
  const char *stem;
  int stem_length;    // up to and including the last "."
  StorageName end;    // "." and the suffix as saved storages have it
  bool keep_current;  // storages that a restart could apply
  uint32_t ucnt;
};

bool make_rule(const BlockManager &bm, Prune which, PruneRule &rule) {
  rule.keep_current = which == Prune::stale;
  rule.ucnt = bm.header.parts[part_dat].counters.ucnt;
  if (!storage_name(*bm.params, DatabaseType::ordinary, part_trn, rule.trn)) return false;
  rule.stem = last_part(rule.trn);
  const char *dot = strrchr(rule.stem, '.');
  if (dot == nullptr) return false;
  rule.stem_length = static_cast<int>(dot - rule.stem) + 1;
  const size_t length = strlen(dot);
  if (length + 2 > sizeof rule.end) return false;
  memcpy(rule.end, dot, length);
  strcpy(rule.end + length, "_");
  return true;
}

bool is_prunable(const PruneRule &rule, const char *entry) {
  if (strncmp(entry, rule.stem, static_cast<size_t>(rule.stem_length)) != 0) return false;
  const char *digits = entry + rule.stem_length, *text = digits;
  uint64_t number = 0;
  for (; *text >= '0' && *text <= '9' && number <= UINT32_MAX; ++text)
    number = number * 10 + static_cast<uint64_t>(*text - '0');
  if (text == digits || strcmp(text, rule.end) != 0) return false;
  return !rule.keep_current || (number != rule.ucnt && number != static_cast<uint32_t>(rule.ucnt + 1));
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

void saved_prune(BlockManager &bm, Prune which) {
  if (bm_single(bm) || !io_can_rename(bm_driver(bm))) return;
  if (which == Prune::all && env_on(Env::tran_history_save)) return;
  ErrorScope failures_stay_here;
  PruneRule rule;
  if (bm_check_current(bm) && make_rule(bm, which, rule) && strcmp(rule.end, pruned_end) == 0)
    prune_directory(bm, rule);
}

void saved_remove_all(BlockManager &bm) {
  if (bm_single(bm) || !io_can_rename(bm_driver(bm)) || env_on(Env::tran_history_save)) return;
  ErrorScope failures_stay_here;
  PruneRule rule;
  if (make_rule(bm, Prune::all, rule)) prune_directory(bm, rule);
}

}  // namespace tovik
