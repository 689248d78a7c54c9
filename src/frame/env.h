// The 48 environment parameters HVI_*: process-wide settings, read as plain values without a lock.
#pragma once

#include <array>
#include <cstdint>

namespace tovik {

// In table order, which is the byte order of the names.
// clang-format off
enum class Env : int {
  auto_commit,
  auto_del_debug,
  block_size,
  cache_imm_write,
  cache_size_dat,
  cache_size_tmp,
  cache_size_trn,
  error_abort,
  file_mode,
  file_sfx_dat,
  file_sfx_tmp,
  file_sfx_trn,
  ftio_master,
  ftio_ngram,
  ftio_ovfl,
  gmt_time,
  hash_size_dat,
  hash_size_tmp,
  hash_size_trn,
  lang,
  lock_debug,
  lock_disable,
  lock_retry,
  lock_sleep,
  log_file,
  mem_limit_size,
  orl_cblk_cnt,
  query_plan,
  size_dat,
  size_tmp,
  size_trn,
  sql_buf_size,
  sql_debug_print,
  sql_sel_hdr,
  sql_sel_nul_str,
  sql_sel_sep,
  sql_time_watch,
  test_debug,
  tmp_buf_size,
  tmp_dir,
  tran_file_reuse,
  tran_hash,
  tran_history,
  tran_history_save,
  tran_sync,
  warm_restart,
  zorder_master,
  zorder_ovfl,
  count
};
// clang-format on

// Flags of a parameter.
inline constexpr uint32_t env_flag_number = 0x01;
inline constexpr uint32_t env_flag_text = 0x02;
inline constexpr uint32_t env_flag_switch = 0x04;     // ON or OFF, held as 1 or 0
inline constexpr uint32_t env_flag_fixed = 0x08;      // not changed after start-up; status "P "
inline constexpr uint32_t env_flag_database = 0x10;   // status "DB"
inline constexpr uint32_t env_flag_owned = 0x20;      // the text is the engine's own copy
inline constexpr uint32_t env_flag_mode = 0x40;       // read with a base prefix, listed in octal
inline constexpr uint32_t env_flag_language = 0x100;  // a character set chosen by name

struct EnvRow {
  const char *name;
  const char *type_unit;  // as listings show it
  uint32_t flags;
  int32_t number;    // value of every kind but text
  const char *text;  // value of a text parameter, null when unset
};

using EnvTable = std::array<EnvRow, static_cast<int>(Env::count)>;
extern EnvTable env_table;

inline int32_t env_number(Env parameter) {
  return env_table[static_cast<int>(parameter)].number;
}
inline bool env_on(Env parameter) {
  return env_table[static_cast<int>(parameter)].number != 0;
}
inline const char *env_text(Env parameter) {
  return env_table[static_cast<int>(parameter)].text;
}  // may be null

// Sets every parameter: defaults, then the process environment, then text. Malformed items are ignored.
void env_start(const char *text);

// Releases text values that the engine copied and sets all of those to null.
void env_release();

// Every parameter its default, without releasing anything.
void env_forget();

EnvRow *env_find(const char *name);  // exact name, or null

// The run-time setter: a parameter fixed after start-up (flag P) and an unknown name are left alone.
void env_set(const char *name, const char *value);

// Prints the listing of one parameter, or of all when name is null or empty.
void env_show(const char *name);

// Character-set names "SJIS" to "UTF-16BE": the number as stored (0, 1 or 2), or -1 for no match.
int language_number(const char *name);

}  // namespace tovik
