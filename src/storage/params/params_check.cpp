#include <climits>
#include <cstring>

#include "frame/error.h"
#include "frame/param_text.h"
#include "storage/io/io.h"
#include "storage/params/params.h"
#include "storage/params/storage_names.h"

namespace tovik {

namespace {

constexpr size_t database_name_limit = 20;
constexpr int block_size_unit = 1024;
constexpr int block_size_limit = 32768;
constexpr int size_digit_limit = 67;
constexpr int size_dat_minimum = 30;  // blocks
constexpr int size_trn_minimum = 10;
constexpr int sqlite_driver_no = 101;
constexpr int32_t hash_size_limit = 1 << 20;  // chains: 8 MiB, for the maps of each transaction

bool check_name(const Params &params) {
  if (params.name[0] == '\0') return fail(status::param_no_name);
  return strlen(params.name) <= database_name_limit || fail(status::param_name_length);
}

bool check_block_size(const IoParams &io) {
  if (io.block_size <= 0 || io.block_size % block_size_unit != 0) return fail(status::param_block_size);
  return io.block_size <= block_size_limit || fail(status::param_block_size_limit);
}

bool check_sectors(const IoParams &io) {
  if (io.sector_size < 1) return fail(status::param_no_sector_size);
  if (io.start_sector <= 0) return fail(status::param_no_start_sector);
  if (io.start_sector > INT64_MAX / 2) return fail(status::param_number_range);
  if (io.block_size < io.sector_size) return fail(status::param_sector_above_block);
  return io.block_size % io.sector_size == 0 || fail(status::param_block_not_sectors);
}

// Settles manage type and driver number.
bool settle_layout(Params &params) {
  switch (params.io.storage_type) {
    case StorageType::file:
      if (params.manage_type != ManageType::raw && params.manage_type != ManageType::raw_device)
        params.manage_type = ManageType::separate;
      break;
    case StorageType::memory:
      params.manage_type = ManageType::separate;
      params.driver_no = memory_driver_no;
      break;
    case StorageType::device:
      params.manage_type = ManageType::device;
      if (!check_sectors(params.io)) return false;
      break;
    case StorageType::sqlite:
      params.manage_type = ManageType::sqlite;
      params.driver_no = sqlite_driver_no;
      break;
    case StorageType::network:
      break;
  }
  return io_driver_kind_is(params.driver_no, static_cast<int32_t>(params.io.storage_type)) ||
         fail(status::param_no_driver);
}

// Both parts in one file, whatever the suffixes' spelling, would destroy each other.
bool check_suffixes(const Params &params) {
  if (params.manage_type != ManageType::unset && params.manage_type != ManageType::separate) return true;
  const char *dat = params.suffix_dat[0] == '\0' ? default_suffix_dat : params.suffix_dat;
  const char *trn = params.suffix_trn[0] == '\0' ? default_suffix_trn : params.suffix_trn;
  dat += dat[0] == '.';
  trn += trn[0] == '.';
  return !text_equal_nocase(dat, trn) || fail(status::param_same_suffix);
}

bool check_numbers(const Params &params) {
  bool work = params.cache_size_dat >= 1 && params.cache_size_trn >= 1 && params.cache_sleep >= 0 &&
              params.begin_retry >= 0;
  for (const int32_t chains : {params.hash_size_dat, params.hash_size_trn, params.tran_hash})
    work = work && chains >= 1 && chains <= hash_size_limit;
  return work || fail(status::param_value);
}

// The saved TRN storages have the longest names.
bool check_storage_names(const Params &params) {
  StorageName name, saved;
  return storage_name(params, DatabaseType::ordinary, part_dat, name) &&
         storage_name(params, DatabaseType::ordinary, part_trn, name) &&
         (!io_can_rename(params.driver_no) || saved_storage_name(name, UINT32_MAX, saved));
}

// Blocks for count units of the given letter. Statuses 112013, 112017.
bool convert_size(int64_t count, char unit, const IoParams &io, int32_t *blocks) {
  const int64_t block_size = io.block_size;
  int64_t result = count / block_size;
  switch (unit) {
    case 'G':
    case 'g':
      result = (1 << 30) / block_size * count;
      break;
    case 'M':
    case 'm':
      result = (1 << 20) / block_size * count;
      break;
    case 'K':
    case 'k':
      result = count / (block_size / 1024);
      break;
    case 'S':
    case 's':
      if (io.sector_size < 1 || io.sector_size > block_size) return fail(status::param_value);
      result = count / (block_size / io.sector_size);
      break;
    case 'B':
    case 'b':
      result = count;
      break;
  }
  if (result > INT32_MAX) return fail(status::param_number_range);
  *blocks = static_cast<int32_t>(result);
  return true;
}

// Reads a size text into blocks; given is false for a missing text and for one that names no size.
bool read_size(const char *text, const IoParams &io, bool *given, int32_t *blocks) {
  *given = false;
  *blocks = 0;
  if (text == nullptr) return true;
  int64_t count = 0;
  int digits = 0;
  for (; text[digits] >= '0' && text[digits] <= '9'; ++digits) {
    count = count * 10 + (text[digits] - '0');
    if (count > INT32_MAX) count = INT32_MAX;
  }
  if (digits > size_digit_limit) return fail(status::param_number_range);
  *given = count > 0;
  return count == 0 || convert_size(count, text[digits], io, blocks);
}

bool settle_sizes(Params &params) {
  bool dat_given, trn_given;
  if (!read_size(params.size_dat_text, params.io, &dat_given, &params.size_dat) ||
      !read_size(params.size_trn_text, params.io, &trn_given, &params.size_trn))
    return false;
  if (dat_given && params.size_dat < size_dat_minimum) return fail(status::param_dat_too_small);
  if (trn_given && params.size_trn < size_trn_minimum) return fail(status::param_trn_too_small);
  if (!layout_single(params.manage_type)) return true;
  if (!dat_given || !trn_given) return fail(status::param_no_size);
  return params.size_dat <= INT32_MAX - params.size_trn || fail(status::param_number_range);
}

}  // namespace

bool param_check(Params &params, CheckFor use) {
  return check_name(params) && check_block_size(params.io) && settle_layout(params) &&
         check_suffixes(params) && check_numbers(params) && check_storage_names(params) &&
         (use == CheckFor::opening || settle_sizes(params));
}

}  // namespace tovik
