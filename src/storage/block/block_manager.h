// The block manager owns the storages of one database: creates, opens, closes and removes them, keeps the
// header record of both parts, reads and writes blocks by part and number. The cache is the only reader and
// writer of ordinary blocks; the counters in the header record are those from which the cache allocates.
//
// The storage of the TRN part is open only while trn_storage.h needs it; of a database in a single storage
// both parts are always there. A temporary database has a DAT part only, never writes its header, and its
// storage goes with the block manager.
//
// Not locked: it belongs to one storage manager, whose lock keeps two threads out.
#pragma once

#include "platform/found.h"
#include "storage/block/block_format.h"
#include "storage/io/io.h"

namespace tovik {

struct BlockManager {
  HeaderRecord header;
  CommonHeader common;     // header.common decoded once at create and open
  Params *params;          // the database's, not owned
  IoObject *io[2];         // DAT, TRN; a single storage uses the DAT slot for both
  void *cipher;            // handle, null when not encrypted
  uint8_t *cipher_buffer;  // one block, only with a cipher
  StorageName temporary_name;
  BlockNo reserved;       // the DAT part has real room up to this block, or further
  uint8_t *block_buffer;  // one block of scratch for headers
  bool discard;           // the storages go when this is closed: temporary, or a creation that failed
};

inline int bm_block_size(const BlockManager &bm) {
  return bm.params->io.block_size;
}
inline Counters &bm_counters(BlockManager &bm, PartNo part) {
  return bm.header.parts[part].counters;
}
inline int bm_driver(const BlockManager &bm) {
  return bm.params->driver_no;
}
inline bool bm_single(const BlockManager &bm) {
  return layout_single(bm.params->manage_type);
}
inline bool bm_temporary(const BlockManager &bm) {
  return bm.common.database_type == static_cast<uint8_t>(DatabaseType::temporary);
}
inline bool bm_read_only(const BlockManager &bm) {
  return (bm.params->io.open_option & open_read_only) != 0;
}
inline int32_t bm_part_size(const BlockManager &bm, PartNo part) {  // blocks, 0 = no limit
  return part == part_dat ? bm.common.size_dat : bm.common.size_trn;
}
inline IoObject *bm_io(const BlockManager &bm, PartNo part) {  // null while the storage is not open
  return bm.io[bm_single(bm) ? part_dat : part];
}

// Creates the storages, replacing existing ones with OVERWRITE and those marked deleted or empty, and writes
// the DAT header; opens them for writing whatever OPT says, for nobody else until bm_end_creation. A failure
// leaves no storage behind. params must outlive the object. Statuses 112xxx, 120101, 20006 (also when
// somebody has the old one open), 20007; single storages 120102, 120103, 120104, 20008, 20015; 20009.
BlockManager *bm_create(Params &params, DatabaseType type);

// Opens the DAT storage, checks its header and hands language, byte order and format to params. The history,
// saved TRN storages, is pruned, unless OPT opens read-only. Statuses 112xxx, 120102, 20008, 20015, 140003
// (it is being created or removed), 20010, those of header_validate, 120106.
enum class History { kept, pruned };
BlockManager *bm_open(Params &params, History history);

void bm_close(BlockManager *bm);  // null is ignored; removes the storage of a temporary database

// Removes every storage of a database that nobody has open, also of one whose removal was interrupted; a
// RAW_DEV or DEVICE storage is marked deleted. 108 when somebody has it open, and the statuses of bm_open.
[[nodiscard]] bool bm_remove(Params &params);

// What was created is whole, and may be opened by others. 140003, 111.
[[nodiscard]] bool bm_end_creation(BlockManager &bm);

// A creation has failed after bm_create: closing removes the storages, or marks them deleted.
void bm_discard(BlockManager &bm);

// Whether this is still the database that its name stands for; otherwise 120106, and nothing may be changed
// under that name. A single storage without a name of its own is asked by its header.
[[nodiscard]] bool bm_check_current(BlockManager &bm);

// Transfers of one block; block 0 is refused with 20001. Statuses 20002, 120105, 20017/20018, 20012/20011.
[[nodiscard]] bool bm_read_block(BlockManager &bm, PartNo part, BlockNo block, void *buffer);
[[nodiscard]] bool bm_write_block(BlockManager &bm, PartNo part, BlockNo block, const void *buffer);

[[nodiscard]] bool bm_read_header(BlockManager &bm, PartNo part);   // 20002, I/O layer's, header_decode's
[[nodiscard]] bool bm_write_header(BlockManager &bm, PartNo part);  // 20009; nothing for a temporary database

// Reads a header as bm_read_header does, into a copy of the in-memory one instead of it.
[[nodiscard]] bool bm_peek_header(BlockManager &bm, PartNo part, HeaderRecord &into);

enum class ProbeMode { magic, whole };  // magic only, or all 208 common bytes against the in-memory header

// Is there a valid header on disk? With found it is decoded there, into a copy of the in-memory record;
// impossible values make it invalid then. failed with 20011.
Found bm_probe_header(BlockManager &bm, PartNo part, ProbeMode mode, HeaderRecord *found = nullptr);

// Makes sure that the DAT part has real room for every block up to last, so that none of them fails to be
// written later; a file ends with that block. Nothing is done, and no system call made, when it has. 20002,
// 120103 (with the system's error number) when there is no room: the part is as long as before.
[[nodiscard]] bool bm_reserve(BlockManager &bm, BlockNo last);

bool bm_block_valid(const BlockManager &bm, PartNo part, BlockNo block);
[[nodiscard]] bool bm_sync(BlockManager &bm, PartNo part);

// Closes the storage of a part, if open, inside the I/O lock. 103.
[[nodiscard]] bool bm_close_storage(BlockManager &bm, PartNo part);

// The listing of the header; free_list adds the chain of free DAT blocks as it is stored. Through dump_line
// to standard output; records nothing. The caller holds the storage manager's lock.
void bm_dump(BlockManager &bm, bool free_list);

}  // namespace tovik
