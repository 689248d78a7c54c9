#include "frame/env.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include "frame/dump.h"
#include "frame/param_text.h"
#include "platform/charset/charset.h"
#include "platform/platform.h"

namespace tovik {

namespace {

constexpr int item_size = 64;  // of a key or a value of the init text
constexpr int value_column_width = 24;

constexpr uint32_t number = env_flag_number;
constexpr uint32_t text = env_flag_text;
constexpr uint32_t on_off = env_flag_switch;
constexpr uint32_t fixed = env_flag_fixed;
constexpr uint32_t database = env_flag_database;
constexpr uint32_t mode = env_flag_mode;
constexpr uint32_t language = env_flag_language;

// clang-format off
constexpr EnvTable defaults = {{
    {"HVI_AUTO_COMMIT", "STR  ON|OFF", on_off, 1, nullptr},
    {"HVI_AUTO_DEL_DEBUG", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_BLOCK_SIZE", "NUM  BYTE", number | fixed, 4096, nullptr},
    {"HVI_CACHE_IMM_WRITE", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_CACHE_SIZE_DAT", "NUM  BLOCK", number | fixed, 64, nullptr},
    {"HVI_CACHE_SIZE_TMP", "NUM  BLOCK", number | fixed, 64, nullptr},
    {"HVI_CACHE_SIZE_TRN", "NUM  BLOCK", number | fixed, 64, nullptr},
    {"HVI_ERROR_ABORT", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_FILE_MODE", "NUM  MODE", number | fixed | mode, 0644, nullptr},
    {"HVI_FILE_SFX_DAT", "STR", text, 0, ".dat"},
    {"HVI_FILE_SFX_TMP", "STR", text, 0, ".tmp"},
    {"HVI_FILE_SFX_TRN", "STR", text, 0, ".trn"},
    {"HVI_FTIO_MASTER", "NUM  COUNT", number, 8, nullptr},
    {"HVI_FTIO_NGRAM", "NUM  COUNT", number, 2, nullptr},
    {"HVI_FTIO_OVFL", "NUM  COUNT", number, 32, nullptr},
    {"HVI_GMT_TIME", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_HASH_SIZE_DAT", "NUM  COUNT", number | fixed, 128, nullptr},
    {"HVI_HASH_SIZE_TMP", "NUM  COUNT", number | fixed, 128, nullptr},
    {"HVI_HASH_SIZE_TRN", "NUM  COUNT", number | fixed, 128, nullptr},
    {"HVI_LANG", "STR  LANG", number | fixed | database | language, 2, nullptr},
    {"HVI_LOCK_DEBUG", "NUM  MODE NUM", number, 0, nullptr},
    {"HVI_LOCK_DISABLE", "STR  TRUE|FALSE", on_off, 0, nullptr},
    {"HVI_LOCK_RETRY", "NUM  COUNT", number, 100, nullptr},
    {"HVI_LOCK_SLEEP", "NUM  MSEC", number, 10, nullptr},
    {"HVI_LOG_FILE", "STR", text, 0, nullptr},
    {"HVI_MEM_LIMIT_SIZE", "NUM  MB", number, -1, nullptr},
    {"HVI_ORL_CBLK_CNT", "NUM  BLOCK", number, 4, nullptr},
    {"HVI_QUERY_PLAN", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_SIZE_DAT", "STR  SIZE", text | fixed | database, 0, nullptr},
    {"HVI_SIZE_TMP", "STR  SIZE", text | fixed | database, 0, nullptr},
    {"HVI_SIZE_TRN", "STR  SIZE", text | fixed | database, 0, nullptr},
    {"HVI_SQL_BUF_SIZE", "NUM  BYTE", number | fixed, 102400, nullptr},
    {"HVI_SQL_DEBUG_PRINT", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_SQL_SEL_HDR", "STR  ON|OFF", on_off, 1, nullptr},
    {"HVI_SQL_SEL_NUL_STR", "STR", text, 0, ""},
    {"HVI_SQL_SEL_SEP", "STR", text, 0, "  "},
    {"HVI_SQL_TIME_WATCH", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_TEST_DEBUG", "NUM  LEVEL", number, 0, nullptr},
    {"HVI_TMP_BUF_SIZE", "NUM  BYTE", number | fixed, 1048576, nullptr},
    {"HVI_TMP_DIR", "STR DIR", text, 0, "c:\\temp"},
    {"HVI_TRAN_FILE_REUSE", "STR  ON|OFF", on_off, 1, nullptr},
    {"HVI_TRAN_HASH", "NUM  COUNT", number, 128, nullptr},
    {"HVI_TRAN_HISTORY", "NUM  COUNT", number, 1, nullptr},
    {"HVI_TRAN_HISTORY_SAVE", "STR  ON|OFF", on_off, 0, nullptr},
    {"HVI_TRAN_SYNC", "STR  ON|OFF", on_off, 1, nullptr},
    {"HVI_WARM_RESTART", "STR  ON|OFF", on_off, 1, nullptr},
    {"HVI_ZORDER_MASTER", "NUM  COUNT", number, 2, nullptr},
    {"HVI_ZORDER_OVFL", "NUM  COUNT", number, 32, nullptr},
}};
// clang-format on

constexpr bool sorted_by_name(const EnvTable &table) {
  for (size_t i = 1; i < table.size(); ++i) {
    if (std::string_view(table[i - 1].name) >= std::string_view(table[i].name)) return false;
  }
  return true;
}
static_assert(sorted_by_name(defaults), "rows are found by binary search");
static_assert(std::string_view(defaults.back().name) == "HVI_ZORDER_OVFL", "the table is complete");

void release_text(EnvRow *row) {
  if ((row->flags & env_flag_owned) == 0) return;
  mem_free(const_cast<char *>(row->text));
  row->flags &= ~env_flag_owned;
  row->text = nullptr;
}

void apply_text(EnvRow *row, const char *value) {
  release_text(row);
  row->text = text_dup(value);
  if (row->text == nullptr) {
    errno = 0;
  } else {
    row->flags |= env_flag_owned;
  }
}

void apply(EnvRow *row, const char *value) {
  if ((row->flags & env_flag_text) != 0) {
    apply_text(row, value);
  } else if ((row->flags & env_flag_switch) != 0) {
    row->number = text_equal_nocase(value, "ON") || text_equal_nocase(value, "TRUE") ? 1 : 0;
  } else if ((row->flags & env_flag_language) != 0) {
    const int chosen = language_number(value);
    if (chosen >= 0) row->number = chosen;
  } else {
    row->number = text_number(value, (row->flags & env_flag_mode) != 0 ? 0 : 10);
  }
}

void apply_environment() {
  if (system_driver.env_get == nullptr) return;
  for (EnvRow &row : env_table) {
    const char *value = system_driver.env_get(row.name);
    if (value != nullptr) apply(&row, value);
  }
}

void apply_items(const char *items) {
  char key[item_size];
  char value[item_size];
  while ((items = next_pair(items, key, item_size, value, item_size)) != nullptr) {
    if (key[0] == '\0' || value[0] == '\0') continue;
    EnvRow *row = env_find(key);
    if (row != nullptr) apply(row, value);
  }
}

// Writes the value as listings show it; the end of the text.
char *show_value(const EnvRow &row, char *buffer, int size) {
  if ((row.flags & env_flag_text) != 0) {
    return dump_text(buffer, size, "\"%s\"", row.text == nullptr ? "" : row.text);
  }
  if ((row.flags & env_flag_switch) != 0)
    return dump_text(buffer, size, "\"%s\"", row.number != 0 ? "ON" : "OFF");
  if ((row.flags & env_flag_language) != 0)
    return dump_text(buffer, size, "\"%s\"", charset_table[row.number]->name);
  return dump_text(buffer, size, (row.flags & env_flag_mode) != 0 ? "0%o" : "%d", row.number);
}

void show_row(const EnvRow &row) {
  char value[dump_text_limit + 1];
  const int length = static_cast<int>(show_value(row, value, sizeof value) - value);
  const int padding = length < value_column_width ? value_column_width - length : 0;
  dump_text(nullptr, 0, "%-26s  ", row.name);
  dump_text(nullptr, 0, "%s", value);
  print_line("%*s%-12s  %s%s", padding, "", row.type_unit, (row.flags & env_flag_fixed) != 0 ? "P " : "",
             (row.flags & env_flag_database) != 0 ? "DB" : "");
}

void show_header() {
  print_line("%-26s  %-22s  %-12s  %-7s", "name", "value", "type / unit", "status");
  print_line("%.26s  %.22s  %.12s  %.7s", "--------------------------", "--------------------------",
             "--------------------------", "--------------------------");
}

}  // namespace

constinit EnvTable env_table = defaults;

void env_start(const char *items) {
  env_release();
  env_table = defaults;
  apply_environment();
  apply_items(items);
}

void env_release() {
  for (EnvRow &row : env_table) release_text(&row);
}

void env_forget() {
  env_table = defaults;
}

EnvRow *env_find(const char *name) {
  int low = 0;
  int high = static_cast<int>(env_table.size()) - 1;
  while (low <= high) {
    const int middle = low + (high - low) / 2;
    EnvRow &row = env_table[static_cast<size_t>(middle)];
    const int order = strcmp(row.name, name);
    if (order == 0) return &row;
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  return nullptr;
}

void env_set(const char *name, const char *value) {
  if (name == nullptr || value == nullptr) return;
  EnvRow *row = env_find(name);
  if (row != nullptr && (row->flags & env_flag_fixed) == 0) apply(row, value);
}

void env_show(const char *name) {
  if (name == nullptr || name[0] == '\0') {
    show_header();
    for (const EnvRow &row : env_table) show_row(row);
    return;
  }
  const EnvRow *row = env_find(name);
  if (row == nullptr) return;
  show_header();
  show_row(*row);
}

int language_number(const char *name) {
  for (int i = 0; i < charset_count; ++i) {
    if (text_equal_nocase(name, charset_table[i]->name)) return i > charset_utf8 ? charset_utf8 : i;
  }
  return -1;
}

}  // namespace tovik
