// How the storages of a database are called.
//
//   layout            DAT                              TRN
//   separate          [PATH\]NAME<DAT suffix>          [PATH\]NAME<TRN suffix>
//   temporary         [HVI_TMP_DIR\]NAME<pid>_<tid><TMP suffix>
//   RAW               [PATH\]NAME                      the same storage
//   RAW_DEV           PATH                             the same storage
//   DEVICE            NAME (opened by unit number)     the same storage
//   SQLITE            NAME                             NAME_trn

#include "storage/params/storage_names.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

// Attributes of the manage types.
constexpr uint8_t attribute_single = 1;
constexpr uint8_t attribute_named = 2;
constexpr uint8_t attribute_unnamed = 4;
constexpr uint8_t attributes[] = {
    attribute_named,                       // unset
    attribute_single | attribute_named,    // raw
    attribute_single,                      // raw_device
    attribute_named,                       // separate
    attribute_single | attribute_unnamed,  // device
    attribute_named,                       // sqlite
};

bool has_attribute(ManageType type, uint8_t attribute) {
  return (attributes[static_cast<int>(type)] & attribute) != 0;
}

__attribute__((format(printf, 3, 4))) bool compose(char *name, int size, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(name, static_cast<size_t>(size), format, arguments);
  va_end(arguments);
  return (length >= 0 && length < size) || fail(status::param_text_length);
}

// What joins directory with a name: nothing when there is no directory or it ends in a separator.
const char *joint(const char *directory) {
  if (directory[0] == '\0') return "";
  const char *separator = path_last_separator(directory);
  return separator != nullptr && separator[1] == '\0' ? "" : "\\";
}

struct Suffix {
  const char *dot;  // "." when the text lacks it
  const char *text;
};

Suffix suffix_of(const char *text, const char *fallback) {
  if (text == nullptr || text[0] == '\0') return {"", fallback};
  return {text[0] == '.' ? "" : ".", text};
}

bool file_name(const Params &params, const Suffix &suffix, StorageName name) {
  const int size = params.io.storage_type == StorageType::memory ? memory_name_size : storage_name_size;
  return compose(name, size, "%s%s%s%s%s", params.path, joint(params.path), params.name, suffix.dot,
                 suffix.text);
}

bool temporary_name(const Params &params, StorageName name) {
  const char *directory = env_text(Env::tmp_dir);
  if (directory == nullptr) directory = "";
  const Suffix suffix = suffix_of(env_text(Env::file_sfx_tmp), default_suffix_tmp);
  return compose(name, storage_name_size, "%s%s%s%d_%d%s%s", directory, joint(directory), params.name,
                 system_driver.process_id() & INT32_MAX, current_thread() & INT32_MAX, suffix.dot,
                 suffix.text);
}

}  // namespace

bool layout_single(ManageType type) {
  return has_attribute(type, attribute_single);
}

bool layout_named(ManageType type) {
  return has_attribute(type, attribute_named);
}

bool layout_unnamed(ManageType type) {
  return has_attribute(type, attribute_unnamed);
}

bool storage_name(const Params &params, DatabaseType type, PartNo part, StorageName name) {
  if (type == DatabaseType::temporary) return temporary_name(params, name);
  switch (params.manage_type) {
    case ManageType::raw:
      return file_name(params, {"", ""}, name);
    case ManageType::raw_device:
      return compose(name, storage_name_size, "%s", params.path);
    case ManageType::device:
      return compose(name, storage_name_size, "%s", params.name);
    case ManageType::sqlite:
      return compose(name, storage_name_size, "%s%s", params.name, part == part_trn ? "_trn" : "");
    case ManageType::unset:
    case ManageType::separate:
      break;
  }
  return file_name(params,
                   part == part_dat ? suffix_of(params.suffix_dat, default_suffix_dat)
                                    : suffix_of(params.suffix_trn, default_suffix_trn),
                   name);
}

bool saved_storage_name(const char *trn_name, uint32_t number, StorageName name) {
  const char *separator = path_last_separator(trn_name);
  const char *dot = strrchr(separator == nullptr ? trn_name : separator, '.');
  if (dot == nullptr) return compose(name, storage_name_size, "%s.%u", trn_name, number);
  return compose(name, storage_name_size, "%.*s.%u.%s_", static_cast<int>(dot - trn_name), trn_name, number,
                 dot + 1);
}

}  // namespace tovik
