// The header block of each part. Block 0 of a part is its header block; the
// layout table stands above the offsets in block_format.cpp. The in-memory record holds the headers of both
// parts.
#pragma once

#include "platform/bytes.h"
#include "storage/params/storage_names.h"

namespace tovik {

inline constexpr uint32_t pstat_deleted = 1;

inline constexpr int common_header_size = 0xD0;
inline constexpr char header_magic[4] = {'K', 'L', 'D', '\0'};
inline constexpr int header_version = 3;
inline constexpr int header_minor = 2;
inline constexpr int header_format = 2;

// Block counters of a part; a transaction level keeps its own copy of the DAT part's.
struct Counters {
  BlockNo bcnt;   // highest block number ever allocated
  int32_t fcnt;   // blocks on the free list
  BlockNo flst;   // head of the free list, 0 when empty
  uint32_t ucnt;  // update counter: commits applied to the DAT part
};

// The transaction fields of the TRN header: the commit record.
struct CommitRecord {
  uint32_t tstat;  // TranState
  BlockNo map_bno;
  int32_t map_icnt;
  Counters after;  // ucnt unused
  DateTimeRec ctime;
  Counters before;
  int64_t iid;   // creation time of the DAT part
  int64_t lcto;  // last transaction applied before this commit
  int64_t lctn;  // this transaction's number
};

enum TranState : uint32_t { tran_none = 0, tran_open = 1, tran_committed = 3 };

struct HeaderRecord {
  uint8_t common[common_header_size];  // exactly as on disk; read and written through the functions below
  struct {
    int32_t part;
    uint32_t pstat;
    Counters counters;
  } parts[2];
  int64_t creation_time;  // microseconds since 1970: identifies the database instance
  int64_t last_applied;   // number of the last transaction written into the DAT part
  CommitRecord commit;
};

// Fields of the common header.
struct CommonHeader {
  char magic[4];
  uint8_t endian, format, version, use_type, storage_type, manage_type, lang, wstas, encrypted, database_type,
      minor;
  uint8_t appver_major, appver_minor, appver_rev;
  int32_t block_size;
  int32_t size_dat, size_trn;  // blocks, 0 = no limit
  int32_t start_dat, end_dat, end_trn;
  char name[32];
  char cipher_name[32];
  uint8_t key_check[32];
};

CommonHeader header_common(const HeaderRecord &header);                    // decodes
void header_set_common(HeaderRecord &header, const CommonHeader &fields);  // encodes

// Fills block (zeroed by the callee, block_size bytes) with the header of part.
void header_encode(const HeaderRecord &header, PartNo part, uint8_t *block, int block_size);

// Takes the part's header from block. While the in-memory magic is empty the common header is taken too, for
// DAT only, and header_validate must follow. Otherwise the block's magic must be the in-memory one, a DAT
// part must still be the one that was opened and not marked deleted, and the values must be possible (part
// number, counters, a committed map); header is changed only on success. Statuses 20001 (TRN first), 20003
// (magic differs), 120106 (the database is gone), 20019 (impossible values).
[[nodiscard]] bool header_decode(HeaderRecord &header, PartNo part, const uint8_t *block);

// The checks at open, in order: magic, byte order, version, format, use type, storage type, block size,
// language, then that the layout is the one asked for (20013) and that the values are possible (20019).
// CHECK_IGNORE skips version, use type, storage type and language. Statuses 20003, 20020, 20004, 20019,
// 20005, 20013, 20014, 120111.
[[nodiscard]] bool header_validate(const HeaderRecord &header, const Params &params);

// Whether block holds a header of part that is not marked deleted: of any database, or with expected of the
// one whose common header is exactly that.
bool header_is(const uint8_t *block, PartNo part, const HeaderRecord *expected);

}  // namespace tovik
