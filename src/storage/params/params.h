// The parameter block: a parsed database parameter string ("NAME=orders;PATH=...;SIZE_DAT=10M"), owned by the
// database object. Keys match without regard to case; items without a value are ignored; unknown keys stay in
// the raw list for look-ups by name and are otherwise ignored; the last of repeated keys wins, except PATH,
// where the first does. A NAME with a directory sets both.
#pragma once

#include <cstdint>

#include "platform/array.h"
#include "storage/io/io.h"

namespace tovik {

// How the two parts of a database lie in storages.
enum class ManageType : int32_t {
  unset = 0,
  raw = 1,         // one named storage for both parts
  raw_device = 2,  // one storage, named by PATH
  separate = 3,    // a storage per part
  device = 4,      // one storage, opened by unit number
  sqlite = 5       // a storage per part, names without suffix
};

struct ParamPair {
  char *key;  // one memory block with the value behind it
  const char *value;
};

struct Params {
  Array<ParamPair> raw;  // the default suffixes, then every item with a value, in order; owns the texts
  char *name_directory;  // the directory that NAME gave, owned, null when none
  int32_t use_type;
  ManageType manage_type;
  IoParams io;
  int32_t driver_no;
  const char *path;  // "" when not given
  const char *name;  // "" when not given
  bool overwrite;
  int32_t size_dat;  // blocks, 0 = no limit; settled by param_check
  int32_t size_trn;
  const char *size_dat_text;  // null when not given
  const char *size_trn_text;
  const char *suffix_dat;
  const char *suffix_trn;
  bool check_ignore;
  bool immediate_write;
  int32_t cache_retry;
  int32_t cache_sleep;     // milliseconds
  int32_t cache_size_dat;  // pages
  int32_t cache_size_trn;
  int32_t hash_size_dat;  // chains
  int32_t hash_size_trn;
  int32_t btree_split_ratio;     // 80
  int32_t btree_split_overflow;  // 65
  int32_t tran_hash;
  bool warm_restart;
  int32_t lock_retry;
  int32_t lock_sleep;  // milliseconds
  int32_t language;    // 0 SJIS, 1 EUC, 2 UTF-8
  int32_t orl_cblk_cnt;
  bool orl_cblk_set;
  int32_t ftio_master, ftio_ngram, ftio_ovfl;
  int32_t zorder_master, zorder_ovfl;
  int32_t begin_retry;
  int32_t begin_sleep;      // milliseconds
  const char *encrypt_key;  // null when not given
  int32_t endian;           // from the header at open
  int32_t format;
};

// Parses text over the defaults. Null with 12001 (no text), 11001 (library not initialised), 10201 (empty
// text) or 1.
Params *param_create(const char *text);

void param_destroy(Params *params);  // null is ignored

// Checks the block, settles manage type and driver number and, for creation, the sizes in blocks. Beyond the
// checks of a single value it refuses what could not work: cache, hash and map sizes below 1, hash and map
// sizes above 1,048,576, a negative CACHE_RTS or BEGIN_RETRY (112017), size texts out of range (112013) or in
// sectors without a sector size (112017), suffixes that name one file (112019), storage names over 255
// characters, 31 in memory (112012). Statuses 112xxx.
enum class CheckFor { opening, creation };
[[nodiscard]] bool param_check(Params &params, CheckFor use);

// The value of the last raw item with that key (any case), or null.
const char *param_lookup(const Params &params, const char *key);

// LOCK_RETRY and LOCK_SLEEP as every wait for a lock uses them: 100 and 10 milliseconds when not above 0.
inline int32_t param_lock_retry(const Params &params) {
  return params.lock_retry > 0 ? params.lock_retry : 100;
}
inline int32_t param_lock_sleep(const Params &params) {
  return params.lock_sleep > 0 ? params.lock_sleep : 10;
}

// The listing of every field, through dump_line to standard output.
void param_dump(const Params &params);

}  // namespace tovik
