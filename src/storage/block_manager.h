// The block manager owns the storages of one database: creates, opens, closes and removes them, keeps the
// header record of both parts, reads and writes blocks by part and number. The cache is the only reader and
// writer of ordinary blocks; the counters in the header record are those from which the cache allocates.
//
// Not locked: it belongs to one storage manager, whose lock keeps two threads out.
#pragma once

#include "storage/block_format.h"
#include "storage/io.h"

namespace tovik {

struct BlockManager {
  HeaderRecord header;
  CommonHeader common;     // header.common decoded once at create and open
  Params *params;          // the database's, not owned
  IoObject *io[2];         // DAT, TRN; a single storage uses the DAT slot for both
  void *cipher;            // handle, null when not encrypted
  uint8_t *cipher_buffer;  // one block, only with a cipher
  StorageName temporary_name;
  uint8_t *block_buffer;  // one block of scratch for headers
};

inline int bm_block_size(const BlockManager &bm) {
  return bm.params->io.block_size;
}
inline Counters &bm_counters(BlockManager &bm, PartNo part) {
  return bm.header.parts[part].counters;
}

BlockManager *bm_create(Params &params, DatabaseType type);  // 112xxx, 120101, 20006, 20007, 20009 ...
BlockManager *bm_open(Params &params, bool clean_history);   // 120102, 20008, 20010, header checks
void bm_close(BlockManager *bm);                             // removes the storage of a temporary database
[[nodiscard]] bool bm_remove(Params &params);

// Transfers of one block; block 0 is refused with 20001. Statuses 20002, 120105, 20017/20018, 20012/20011.
[[nodiscard]] bool bm_read_block(BlockManager &bm, PartNo part, BlockNo block, void *buffer);
[[nodiscard]] bool bm_write_block(BlockManager &bm, PartNo part, BlockNo block, const void *buffer);

[[nodiscard]] bool bm_read_header(BlockManager &bm, PartNo part);   // I/O layer's status; 20001, 20003
[[nodiscard]] bool bm_write_header(BlockManager &bm, PartNo part);  // 20009; nothing for a temporary database

enum class HeaderProbe { valid, invalid, failed };
enum class ProbeMode { magic, whole };  // magic only, or all 208 common bytes against the in-memory header

HeaderProbe bm_probe_header(BlockManager &bm, PartNo part, ProbeMode mode);  // failed with 20011

bool bm_block_valid(const BlockManager &bm, PartNo part, BlockNo block);
[[nodiscard]] bool bm_sync(BlockManager &bm, PartNo part);

// Listings, through dump_line to standard output.
void bm_dump(BlockManager &bm, bool free_list, bool transaction);

}  // namespace tovik
