// Where an open transaction keeps the blocks that it has changed: for each level the map from blocks of the
// DAT part to their shadow blocks in the TRN part, and the block counters as they stand inside the level. The
// cache asks it for the place of a page; the transaction manager opens, merges and ends the levels.
#pragma once

#include "platform/array.h"
#include "storage/block/block_manager.h"

namespace tovik {

struct MapEntry {
  uint32_t dno;  // DAT block
  uint32_t tno;  // TRN block that holds its changes
  int32_t next;  // index of the next entry in the chain, -1 at the end
};

// One open level: counters as they stand inside it, and the map of the blocks it moved.
struct ShadowLevel {
  Counters counters;
  int32_t hash_size;  // doubles as the map grows, so that a chain stays short
  Array<MapEntry> entries;
  int32_t *chains;  // hash_size heads, index of an entry or -1
};

inline constexpr int tran_level_limit = 4;

struct ShadowMap {
  int32_t hash_size;  // TRAN_HASH: of a new level's map
  int32_t level;      // open levels, 0 to 4
  ShadowLevel *levels[tran_level_limit];
  Array<BlockNo> left_blocks;  // shadow blocks of ended levels that nothing describes any more
  // Called before a shadow block is written: a commit record written earlier describes the block's old
  // content. False with the statuses of the write.
  bool (*before_write)(ShadowMap &map);
};

inline Counters &shadow_counters(ShadowMap &map) {  // in use inside the transaction
  return map.levels[map.level - 1]->counters;
}

[[nodiscard]] bool shadow_add(ShadowMap &map, BlockNo dno, BlockNo tno);  // current level; 1
BlockNo shadow_find_level(const ShadowMap &map, BlockNo dno);             // current level only, 0 = none
BlockNo shadow_find(const ShadowMap &map, BlockNo dno);  // innermost mapping of all levels, 0 = none

// One level's map.
[[nodiscard]] bool shadow_level_init(ShadowLevel &level, int32_t hash_size);  // 1
void shadow_level_release(ShadowLevel &level);
BlockNo shadow_level_find(const ShadowLevel &level, BlockNo dno);
[[nodiscard]] bool shadow_level_set(ShadowLevel &level, uint32_t dno, uint32_t tno);  // 1

}  // namespace tovik
