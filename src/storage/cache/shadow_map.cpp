#include "storage/cache/shadow_map.h"

#include "frame/error.h"

namespace tovik {

namespace {

int32_t &chain_of(ShadowLevel &level, uint32_t dno) {
  return level.chains[dno & static_cast<uint32_t>(level.hash_size - 1)];
}

void clear_chains(ShadowLevel &level) {
  for (int32_t i = 0; i < level.hash_size; ++i) level.chains[i] = -1;
}

void link_entry(ShadowLevel &level, int32_t index) {
  MapEntry &entry = level.entries[index];
  int32_t &head = chain_of(level, entry.dno);
  entry.next = head;
  head = index;
}

// Doubles the table. Without memory for it the chains only get longer.
void grow(ShadowLevel &level) {
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

MapEntry *find_entry(const ShadowLevel &level, uint32_t dno) {
  ShadowLevel &inner = const_cast<ShadowLevel &>(level);
  for (int32_t i = chain_of(inner, dno); i >= 0; i = inner.entries[i].next)
    if (inner.entries[i].dno == dno) return &inner.entries[i];
  return nullptr;
}

}  // namespace

bool shadow_level_init(ShadowLevel &level, int32_t hash_size) {
  level.chains = static_cast<int32_t *>(mem_alloc(sizeof(int32_t) * static_cast<size_t>(hash_size)));
  if (level.chains == nullptr) return fail(status::out_of_memory);
  level.hash_size = hash_size;
  clear_chains(level);
  return true;
}

void shadow_level_release(ShadowLevel &level) {
  mem_free(level.chains);
  level.chains = nullptr;
}

BlockNo shadow_level_find(const ShadowLevel &level, BlockNo dno) {
  const MapEntry *entry = find_entry(level, static_cast<uint32_t>(dno));
  return entry == nullptr ? 0 : static_cast<BlockNo>(entry->tno);
}

bool shadow_level_set(ShadowLevel &level, uint32_t dno, uint32_t tno) {
  if (MapEntry *entry = find_entry(level, dno); entry != nullptr) {
    entry->tno = tno;
    return true;
  }
  if (!level.entries.push({dno, tno, -1})) return fail(status::out_of_memory);
  link_entry(level, level.entries.size() - 1);
  if (level.entries.size() / 2 > level.hash_size) grow(level);
  return true;
}

bool shadow_add(ShadowMap &map, BlockNo dno, BlockNo tno) {
  return shadow_level_set(*map.levels[map.level - 1], static_cast<uint32_t>(dno), static_cast<uint32_t>(tno));
}

BlockNo shadow_find_level(const ShadowMap &map, BlockNo dno) {
  return shadow_level_find(*map.levels[map.level - 1], dno);
}

BlockNo shadow_find(const ShadowMap &map, BlockNo dno) {
  for (int32_t level = map.level; level > 0; --level)
    if (const BlockNo tno = shadow_level_find(*map.levels[level - 1], dno); tno != 0) return tno;
  return 0;
}

}  // namespace tovik
