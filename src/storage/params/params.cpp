#include "storage/params/params.h"

#include <climits>
#include <cstddef>
#include <cstring>

#include "frame/env.h"
#include "frame/error.h"
#include "frame/param_text.h"
#include "platform/ascii.h"
#include "storage/io/io.h"

namespace tovik {

namespace {

constexpr int item_text_size = 512;  // of a key or value, with the terminator

// The number at the start of text, clamped to its range; 0 without digits.
int64_t read_number(const char *text, int base, int64_t minimum, int64_t maximum) {
  text = skip_blanks(text);
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  int64_t value = 0;  // kept negative: the range reaches further down than up
  for (; *text >= '0' && *text < '0' + base; ++text) {
    const int digit = *text - '0';
    if (value < (INT64_MIN + digit) / base) {
      value = INT64_MIN;
      break;
    }
    value = value * base - digit;
  }
  if (!negative) value = value == INT64_MIN ? INT64_MAX : -value;
  return value < minimum ? minimum : value > maximum ? maximum : value;
}

int32_t read_int32(const char *text, int base = 10) {
  return static_cast<int32_t>(read_number(text, base, INT32_MIN, INT32_MAX));
}

// Setters of one key's field, false with status 1.

template <auto Field>
bool set_number(Params &params, const char *value) {
  params.*Field = read_int32(value);
  return true;
}

template <auto Field>
bool set_io_number(Params &params, const char *value) {
  params.io.*Field = read_int32(value);
  return true;
}

template <auto Field>
bool set_io_octal(Params &params, const char *value) {
  params.io.*Field = read_int32(value, 8);
  return true;
}

template <auto Field>
bool set_flag(Params &params, const char *value) {
  params.*Field = text_equal_nocase(value, "true");
  return true;
}

template <auto Field>
bool set_text(Params &params, const char *value) {
  params.*Field = value;
  return true;
}

bool ignore(Params &, const char *) {
  return true;
}

bool set_start_sector(Params &params, const char *value) {
  params.io.start_sector = read_number(value, 10, INT64_MIN, INT64_MAX);
  return true;
}

bool set_chunk_blocks(Params &params, const char *value) {
  params.orl_cblk_cnt = read_int32(value);
  params.orl_cblk_set = true;
  return true;
}

bool set_language(Params &params, const char *value) {
  const int language = language_number(value);
  if (language >= 0) params.language = language;
  return true;
}

// The first three letters tell a storage type.
bool set_storage_type(Params &params, const char *value) {
  static const char *const prefixes[] = {"FIL", "MEM", "DEV", "SQL", "NET"};
  char prefix[4] = {};
  strncpy(prefix, value, 3);
  for (int type = 0; type < 5; ++type) {
    if (!text_equal_nocase(prefix, prefixes[type])) continue;
    params.io.storage_type = static_cast<StorageType>(type);
    break;
  }
  return true;
}

bool set_manage_type(Params &params, const char *value) {
  if (text_equal_nocase(value, "RAW")) params.manage_type = ManageType::raw;
  if (text_equal_nocase(value, "RAW_DEV")) params.manage_type = ManageType::raw_device;
  return true;
}

bool set_path(Params &params, const char *value) {
  if (params.path[0] == '\0') params.path = value;
  return true;
}

bool set_name(Params &params, const char *value) {
  const char *separator = path_last_separator(value);
  if (separator == nullptr || separator[1] == '\0') {
    params.name = value;
    return true;
  }
  char *directory = text_dup(value);
  if (directory == nullptr) return fail(status::out_of_memory);
  directory[separator > value ? separator - value : 1] = '\0';  // the root is its separator
  mem_free(params.name_directory);
  params.name_directory = directory;
  params.path = directory;
  params.name = separator + 1;
  return true;
}

struct Key {
  const char *name;
  bool (*set)(Params &params, const char *value);
};

constexpr Key keys[] = {
    {"BEGIN_RETRY", set_number<&Params::begin_retry>},
    {"BEGIN_SLEEP", set_number<&Params::begin_sleep>},
    {"BLOCK_SIZE", set_io_number<&IoParams::block_size>},
    {"CACHE_IMM_WRITE", set_flag<&Params::immediate_write>},
    {"CACHE_RTC", set_number<&Params::cache_retry>},
    {"CACHE_RTS", set_number<&Params::cache_sleep>},
    {"CACHE_SIZE_DAT", set_number<&Params::cache_size_dat>},
    {"CACHE_SIZE_TRN", set_number<&Params::cache_size_trn>},
    {"CHECK_IGNORE", set_flag<&Params::check_ignore>},
    {"DRV_NO", set_number<&Params::driver_no>},
    {"ENCRYPT_KEY", set_text<&Params::encrypt_key>},
    {"ENDIAN", ignore},
    {"FILE_MODE", set_io_octal<&IoParams::file_mode>},
    {"FILE_SFX_DAT", set_text<&Params::suffix_dat>},
    {"FILE_SFX_TRN", set_text<&Params::suffix_trn>},
    {"FORMAT", ignore},
    {"FTIO_MASTER", set_number<&Params::ftio_master>},
    {"FTIO_NGRAM", set_number<&Params::ftio_ngram>},
    {"FTIO_OVFL", set_number<&Params::ftio_ovfl>},
    {"HASH_SIZE_DAT", set_number<&Params::hash_size_dat>},
    {"HASH_SIZE_TRN", set_number<&Params::hash_size_trn>},
    {"HDD_NO", set_io_number<&IoParams::unit_number>},
    {"LANG", set_language},
    {"LOCK_RETRY", set_number<&Params::lock_retry>},
    {"LOCK_SLEEP", set_number<&Params::lock_sleep>},
    {"NAME", set_name},
    {"OPT", set_io_octal<&IoParams::open_option>},
    {"ORL_CBLK_CNT", set_chunk_blocks},
    {"OVERWRITE", set_flag<&Params::overwrite>},
    {"PATH", set_path},
    {"SECTOR_SIZE", set_io_number<&IoParams::sector_size>},
    {"SIZE_DAT", set_text<&Params::size_dat_text>},
    {"SIZE_TRN", set_text<&Params::size_trn_text>},
    {"START_SECTOR", set_start_sector},
    {"TRAN_HASH", set_number<&Params::tran_hash>},
    {"TYPE", set_storage_type},
    {"TYPE2", set_manage_type},
    {"UTYPE", ignore},
    {"WARM_RESTART", set_flag<&Params::warm_restart>},
    {"ZORDER_MASTER", set_number<&Params::zorder_master>},
    {"ZORDER_OVFL", set_number<&Params::zorder_ovfl>},
};
constexpr int key_count = sizeof(keys) / sizeof(keys[0]);

constexpr int compare_names(const char *a, const char *b) {
  for (; *a == *b && *a != '\0'; ++a) ++b;
  return *a < *b ? -1 : *a > *b;
}

constexpr bool keys_ascend() {
  for (int i = 1; i < key_count; ++i)
    if (compare_names(keys[i - 1].name, keys[i].name) >= 0) return false;
  return true;
}
static_assert(keys_ascend(), "find_key halves the table");

const Key *find_key(const char *name) {
  char upper[item_text_size];
  int length = 0;
  for (; name[length] != '\0'; ++length) upper[length] = ascii_upper(name[length]);
  upper[length] = '\0';
  int low = 0, high = key_count - 1;
  while (low <= high) {
    const int middle = (low + high) / 2;
    const int order = compare_names(upper, keys[middle].name);
    if (order == 0) return &keys[middle];
    if (order < 0)
      high = middle - 1;
    else
      low = middle + 1;
  }
  return nullptr;
}

// Fields without a line here start as zero, false or null.
void set_defaults(Params &params) {
  params.io.file_mode = env_number(Env::file_mode);
  params.io.open_option = 2;
  params.io.block_size = env_number(Env::block_size);
  params.path = "";
  params.name = "";
  params.suffix_dat = "";
  params.suffix_trn = "";
  params.immediate_write = env_on(Env::cache_imm_write);
  params.cache_retry = 100;
  params.cache_sleep = 10;
  params.cache_size_dat = env_number(Env::cache_size_dat);
  params.cache_size_trn = env_number(Env::cache_size_trn);
  params.hash_size_dat = env_number(Env::hash_size_dat);
  params.hash_size_trn = env_number(Env::hash_size_trn);
  params.btree_split_ratio = 80;
  params.btree_split_overflow = 65;
  params.tran_hash = env_number(Env::tran_hash);
  params.warm_restart = env_on(Env::warm_restart);
  params.lock_retry = env_number(Env::lock_retry);
  params.lock_sleep = env_number(Env::lock_sleep);
  params.language = env_number(Env::lang);
  params.orl_cblk_cnt = env_number(Env::orl_cblk_cnt);
  params.ftio_master = env_number(Env::ftio_master);
  params.ftio_ngram = env_number(Env::ftio_ngram);
  params.ftio_ovfl = env_number(Env::ftio_ovfl);
  params.zorder_master = env_number(Env::zorder_master);
  params.zorder_ovfl = env_number(Env::zorder_ovfl);
  params.begin_retry = env_number(Env::lock_retry) < 0 ? 0 : env_number(Env::lock_retry);
  params.begin_sleep = env_number(Env::lock_sleep);
  params.format = 2;
}

// Keeps a copy of the item in the raw list and gives the copy's value, or null with status 1.
const char *keep_item(Params &params, const char *key, const char *value) {
  const size_t key_length = strlen(key) + 1, value_length = strlen(value) + 1;
  char *texts = static_cast<char *>(mem_alloc(key_length + value_length));
  if (texts == nullptr) return fail_null(status::out_of_memory);
  memcpy(texts, key, key_length);
  memcpy(texts + key_length, value, value_length);
  if (!params.raw.push({texts, texts + key_length})) {
    mem_free(texts);
    return fail_null(status::out_of_memory);
  }
  return texts + key_length;
}

bool apply_item(Params &params, const char *name, const char *value) {
  const char *kept = keep_item(params, name, value);
  if (kept == nullptr) return false;
  const Key *key = find_key(name);
  return key == nullptr || key->set(params, kept);
}

// The default suffixes are items too: an environment text may change while the block lives.
bool apply_default_suffix(Params &params, const char *name, Env parameter) {
  const char *suffix = env_text(parameter);
  return suffix == nullptr || suffix[0] == '\0' || apply_item(params, name, suffix);
}

bool apply_text(Params &params, const char *text) {
  char key[item_text_size], value[item_text_size];
  while ((text = next_pair(text, key, sizeof key, value, sizeof value)) != nullptr) {
    if (key[0] == '\0' || value[0] == '\0') continue;
    if (!apply_item(params, key, value)) return false;
  }
  return true;
}

}  // namespace

Params *param_create(const char *text) {
  if (text == nullptr) return fail_null(status::params_missing_text);
  if (!io_initialised()) return fail_null(status::not_initialised);
  if (text[0] == '\0') return fail_null(status::key_values_argument);
  Params *params = mem_new<Params>();
  if (params == nullptr) return fail_null(status::out_of_memory);
  set_defaults(*params);
  if (apply_default_suffix(*params, "FILE_SFX_DAT", Env::file_sfx_dat) &&
      apply_default_suffix(*params, "FILE_SFX_TRN", Env::file_sfx_trn) && apply_text(*params, text))
    return params;
  param_destroy(params);
  return nullptr;
}

void param_destroy(Params *params) {
  if (params == nullptr) return;
  for (ParamPair &item : params->raw) mem_free(item.key);
  mem_free(params->name_directory);
  mem_delete(params);
}

const char *param_lookup(const Params &params, const char *key) {
  for (int i = params.raw.size() - 1; i >= 0; --i)
    if (text_equal_nocase(params.raw[i].key, key)) return params.raw[i].value;
  return nullptr;
}

}  // namespace tovik
