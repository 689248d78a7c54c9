// Header block: block 0 of each part. Integers are little-endian; bytes that the tables leave out are zero.
//
// Common header, the same in both parts
//   offset  size
//   0x00    4   magic "KLD", zero
//   0x04    1   endian, 0 = little
//   0x05    1   format, 2
//   0x06    1   version, 3
//   0x07    1   use type
//   0x08    1   storage type (StorageType)
//   0x09    1   manage type (ManageType)
//   0x0A    1   lang: 0 SJIS, 1 EUC, 2 UTF-8
//   0x0B    1   wstas, 0
//   0x0C    1   1 when encrypted
//   0x0D    1   database type (DatabaseType)
//   0x0E    1   minor, 2
//   0x10    3   application version: major, minor, revision
//   0x14    4   block size, bytes
//   0x18    4   size of the DAT part, blocks, 0 = no limit
//   0x1C    4   size of the TRN part
//   0x20    4   start of the DAT part, 0
//   0x24    4   end of the DAT part: its size; in a single storage the first block of the TRN part
//   0x28    4   end of the TRN part: its size; in a single storage the sum of both sizes
//   0x30    32  database name, zero-terminated
//   0x90    32  cipher driver's name, zero-terminated
//   0xB0    32  key check
//
// Part information
//   0xD0    4   part, 0 DAT, 1 TRN
//   0xD4    4   pstat, 1 = part deleted
//   0xD8    4   bcnt   0xDC 4 fcnt   0xE0 4 flst   0xE4 4 ucnt
//
// DAT only
//   0xE8    8   creation time, microseconds since 1970
//   0xF0    8   last applied transaction
//
// TRN only: the commit record
//   0xE8    4   tstat (TranState)
//   0xEC    4   map bno   0xF0 4 map icnt
//   0xF4    4   bcnt, 0xF8 fcnt, 0xFC flst after
//   0x104   12  ctime: year 2; month, day, hour, minute, second 1 each; 1 zero; microseconds 4
//   0x110   4   bcnt, 0x114 fcnt, 0x118 flst, 0x11C ucnt before
//   0x120   8   iid   0x128 8 lcto   0x130 8 lctn

#include "storage/block/block_format.h"

#include <climits>
#include <cstring>

#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

enum Offset : int {
  at_magic = 0x00,
  at_endian = 0x04,
  at_format = 0x05,
  at_version = 0x06,
  at_use_type = 0x07,
  at_storage_type = 0x08,
  at_manage_type = 0x09,
  at_lang = 0x0A,
  at_wstas = 0x0B,
  at_encrypted = 0x0C,
  at_database_type = 0x0D,
  at_minor = 0x0E,
  at_appver_major = 0x10,
  at_appver_minor = 0x11,
  at_appver_rev = 0x12,
  at_block_size = 0x14,
  at_size_dat = 0x18,
  at_size_trn = 0x1C,
  at_start_dat = 0x20,
  at_end_dat = 0x24,
  at_end_trn = 0x28,
  at_name = 0x30,
  at_cipher_name = 0x90,
  at_key_check = 0xB0,
  at_part = 0xD0,
  at_pstat = 0xD4,
  at_bcnt = 0xD8,
  at_fcnt = 0xDC,
  at_flst = 0xE0,
  at_ucnt = 0xE4,
  at_creation_time = 0xE8,
  at_last_applied = 0xF0,
  dat_header_end = 0xF8,
  at_tstat = 0xE8,
  at_map_bno = 0xEC,
  at_map_icnt = 0xF0,
  at_bcnt_after = 0xF4,
  at_fcnt_after = 0xF8,
  at_flst_after = 0xFC,
  at_ctime = 0x104,
  at_ctime_microseconds = 0x10C,
  at_bcnt_before = 0x110,
  at_fcnt_before = 0x114,
  at_flst_before = 0x118,
  at_ucnt_before = 0x11C,
  at_iid = 0x120,
  at_lcto = 0x128,
  at_lctn = 0x130,
  trn_header_end = 0x138,
};

constexpr uint8_t language_limit = 2;  // UTF-8

static_assert(at_key_check + sizeof(CommonHeader::key_check) == common_header_size);
static_assert(at_name + sizeof(CommonHeader::name) <= at_cipher_name);
static_assert(at_part == common_header_size);
static_assert(dat_header_end == 248 && trn_header_end == 312);
static_assert(trn_header_end <= 1024, "a header fits into the smallest block");

void encode_commit(const CommitRecord &commit, uint8_t *block) {
  store_u32(block + at_tstat, commit.tstat);
  store_i32(block + at_map_bno, commit.map_bno);
  store_i32(block + at_map_icnt, commit.map_icnt);
  store_i32(block + at_bcnt_after, commit.after.bcnt);
  store_i32(block + at_fcnt_after, commit.after.fcnt);
  store_i32(block + at_flst_after, commit.after.flst);
  uint8_t *ctime = block + at_ctime;
  store_i16(ctime, commit.ctime.year);
  ctime[2] = static_cast<uint8_t>(commit.ctime.month);
  ctime[3] = static_cast<uint8_t>(commit.ctime.day);
  ctime[4] = static_cast<uint8_t>(commit.ctime.hour);
  ctime[5] = static_cast<uint8_t>(commit.ctime.minute);
  ctime[6] = static_cast<uint8_t>(commit.ctime.second);
  store_i32(block + at_ctime_microseconds, commit.ctime.microseconds);
  store_i32(block + at_bcnt_before, commit.before.bcnt);
  store_i32(block + at_fcnt_before, commit.before.fcnt);
  store_i32(block + at_flst_before, commit.before.flst);
  store_u32(block + at_ucnt_before, commit.before.ucnt);
  store_i64(block + at_iid, commit.iid);
  store_i64(block + at_lcto, commit.lcto);
  store_i64(block + at_lctn, commit.lctn);
}

CommitRecord decode_commit(const uint8_t *block) {
  CommitRecord commit = {};
  commit.tstat = load_u32(block + at_tstat);
  commit.map_bno = load_i32(block + at_map_bno);
  commit.map_icnt = load_i32(block + at_map_icnt);
  commit.after = {load_i32(block + at_bcnt_after), load_i32(block + at_fcnt_after),
                  load_i32(block + at_flst_after), 0};
  const uint8_t *ctime = block + at_ctime;
  commit.ctime.year = load_i16(ctime);
  commit.ctime.month = static_cast<int8_t>(ctime[2]);
  commit.ctime.day = static_cast<int8_t>(ctime[3]);
  commit.ctime.hour = static_cast<int8_t>(ctime[4]);
  commit.ctime.minute = static_cast<int8_t>(ctime[5]);
  commit.ctime.second = static_cast<int8_t>(ctime[6]);
  commit.ctime.microseconds = load_i32(block + at_ctime_microseconds);
  commit.before = {load_i32(block + at_bcnt_before), load_i32(block + at_fcnt_before),
                   load_i32(block + at_flst_before), load_u32(block + at_ucnt_before)};
  commit.iid = load_i64(block + at_iid);
  commit.lcto = load_i64(block + at_lcto);
  commit.lctn = load_i64(block + at_lctn);
  return commit;
}

bool counters_possible(const Counters &counters, int32_t size) {
  return counters.bcnt >= 0 && counters.bcnt < (size > 0 ? size : INT32_MAX) && counters.fcnt >= 0 &&
         counters.fcnt <= counters.bcnt && counters.flst >= 0 && counters.flst <= counters.bcnt;
}

// A committed record describes a map that lies within the part, one shadow block for each entry.
bool commit_possible(const CommitRecord &commit, const Counters &trn, int32_t size_dat) {
  if (commit.tstat != tran_committed) return true;
  return commit.map_bno >= 1 && commit.map_bno <= trn.bcnt && commit.map_icnt >= 1 &&
         commit.map_icnt <= trn.bcnt && counters_possible(commit.after, size_dat);
}

bool sizes_possible(const CommonHeader &common, ManageType manage_type) {
  if (common.size_dat < 0 || common.size_trn < 0) return false;
  if (!layout_single(manage_type)) return true;
  return common.size_dat > 0 && common.size_trn > 0 && common.end_dat == common.size_dat &&
         common.end_trn == static_cast<int64_t>(common.size_dat) + common.size_trn;
}

bool values_possible(const HeaderRecord &header, PartNo part, const CommonHeader &common) {
  const int32_t size = part == part_dat ? common.size_dat : common.size_trn;
  const Counters &counters = header.parts[part].counters;
  return header.parts[part].part == part && counters_possible(counters, size) &&
         (part == part_dat || commit_possible(header.commit, counters, common.size_dat));
}

bool terminated(const uint8_t *text, int size) {
  return memchr(text, '\0', static_cast<size_t>(size)) != nullptr;
}

void copy_text(char *target, const uint8_t *source, size_t size) {
  memcpy(target, source, size);
  target[size - 1] = '\0';
}

}  // namespace

CommonHeader header_common(const HeaderRecord &header) {
  const uint8_t *from = header.common;
  CommonHeader fields = {};
  memcpy(fields.magic, from + at_magic, sizeof fields.magic);
  fields.endian = from[at_endian];
  fields.format = from[at_format];
  fields.version = from[at_version];
  fields.use_type = from[at_use_type];
  fields.storage_type = from[at_storage_type];
  fields.manage_type = from[at_manage_type];
  fields.lang = from[at_lang];
  fields.wstas = from[at_wstas];
  fields.encrypted = from[at_encrypted];
  fields.database_type = from[at_database_type];
  fields.minor = from[at_minor];
  fields.appver_major = from[at_appver_major];
  fields.appver_minor = from[at_appver_minor];
  fields.appver_rev = from[at_appver_rev];
  fields.block_size = load_i32(from + at_block_size);
  fields.size_dat = load_i32(from + at_size_dat);
  fields.size_trn = load_i32(from + at_size_trn);
  fields.start_dat = load_i32(from + at_start_dat);
  fields.end_dat = load_i32(from + at_end_dat);
  fields.end_trn = load_i32(from + at_end_trn);
  copy_text(fields.name, from + at_name, sizeof fields.name);
  copy_text(fields.cipher_name, from + at_cipher_name, sizeof fields.cipher_name);
  memcpy(fields.key_check, from + at_key_check, sizeof fields.key_check);
  return fields;
}

void header_set_common(HeaderRecord &header, const CommonHeader &fields) {
  uint8_t *to = header.common;
  memcpy(to + at_magic, fields.magic, sizeof fields.magic);
  to[at_endian] = fields.endian;
  to[at_format] = fields.format;
  to[at_version] = fields.version;
  to[at_use_type] = fields.use_type;
  to[at_storage_type] = fields.storage_type;
  to[at_manage_type] = fields.manage_type;
  to[at_lang] = fields.lang;
  to[at_wstas] = fields.wstas;
  to[at_encrypted] = fields.encrypted;
  to[at_database_type] = fields.database_type;
  to[at_minor] = fields.minor;
  to[at_appver_major] = fields.appver_major;
  to[at_appver_minor] = fields.appver_minor;
  to[at_appver_rev] = fields.appver_rev;
  store_i32(to + at_block_size, fields.block_size);
  store_i32(to + at_size_dat, fields.size_dat);
  store_i32(to + at_size_trn, fields.size_trn);
  store_i32(to + at_start_dat, fields.start_dat);
  store_i32(to + at_end_dat, fields.end_dat);
  store_i32(to + at_end_trn, fields.end_trn);
  memcpy(to + at_name, fields.name, sizeof fields.name);
  memcpy(to + at_cipher_name, fields.cipher_name, sizeof fields.cipher_name);
  memcpy(to + at_key_check, fields.key_check, sizeof fields.key_check);
}

void header_encode(const HeaderRecord &header, PartNo part, uint8_t *block, int block_size) {
  memset(block, 0, static_cast<size_t>(block_size));
  memcpy(block, header.common, common_header_size);
  const auto &information = header.parts[part];
  store_i32(block + at_part, information.part);
  store_u32(block + at_pstat, information.pstat);
  store_i32(block + at_bcnt, information.counters.bcnt);
  store_i32(block + at_fcnt, information.counters.fcnt);
  store_i32(block + at_flst, information.counters.flst);
  store_u32(block + at_ucnt, information.counters.ucnt);
  if (part == part_trn) {
    encode_commit(header.commit, block);
    return;
  }
  store_i64(block + at_creation_time, header.creation_time);
  store_i64(block + at_last_applied, header.last_applied);
}

bool header_decode(HeaderRecord &header, PartNo part, const uint8_t *block) {
  const bool opening = header.common[at_magic] == 0;
  if (opening && part != part_dat) return fail(status::block_argument);
  if (!opening && memcmp(block + at_magic, header.common + at_magic, sizeof header_magic) != 0)
    return fail(status::header_magic);

  HeaderRecord read = header;
  if (opening) memcpy(read.common, block, common_header_size);
  auto &information = read.parts[part];
  information.part = load_i32(block + at_part);
  information.pstat = load_u32(block + at_pstat);
  information.counters = {load_i32(block + at_bcnt), load_i32(block + at_fcnt), load_i32(block + at_flst),
                          load_u32(block + at_ucnt)};
  if (part == part_trn) {
    read.commit = decode_commit(block);
  } else {
    read.creation_time = load_i64(block + at_creation_time);
    read.last_applied = load_i64(block + at_last_applied);
    const bool gone = (information.pstat & pstat_deleted) != 0 || read.creation_time != header.creation_time;
    if (!opening && gone) return fail(status::storage_deleted);
  }
  if (!opening && !values_possible(read, part, header_common(read))) return fail(status::header_format);
  header = read;
  return true;
}

bool header_is(const uint8_t *block, PartNo part, const HeaderRecord *expected) {
  const bool same = expected == nullptr ? memcmp(block + at_magic, header_magic, sizeof header_magic) == 0
                                        : memcmp(block, expected->common, common_header_size) == 0;
  return same && load_i32(block + at_part) == part && (load_u32(block + at_pstat) & pstat_deleted) == 0;
}

bool header_validate(const HeaderRecord &header, const Params &params) {
  const CommonHeader common = header_common(header);
  const bool strict = !params.check_ignore;
  if (memcmp(common.magic, header_magic, sizeof header_magic) != 0) return fail(status::header_magic);
  if (common.endian != 0) return fail(status::header_endian);
  if (strict && common.version < header_version) return fail(status::header_version);
  if (common.format == 1 || common.format == 3) return fail(status::header_format);
  if (strict && common.use_type != params.use_type) return fail(status::header_use_type);
  if (strict && common.storage_type != static_cast<int32_t>(params.io.storage_type))
    return fail(status::header_storage_type);
  if (common.block_size != params.io.block_size) return fail(status::header_block_size);
  if (strict && common.lang != env_number(Env::lang)) return fail(status::language_mismatch);

  // In the wrong layout the TRN part would lie over the DAT part.
  if (common.manage_type != static_cast<int32_t>(params.manage_type))
    return fail(status::header_storage_type);
  const bool possible =
      common.database_type == static_cast<uint8_t>(DatabaseType::ordinary) && common.lang <= language_limit &&
      terminated(header.common + at_name, sizeof common.name) &&
      terminated(header.common + at_cipher_name, sizeof common.cipher_name) &&
      sizes_possible(common, params.manage_type) && values_possible(header, part_dat, common);
  return possible || fail(status::header_format);
}

}  // namespace tovik
