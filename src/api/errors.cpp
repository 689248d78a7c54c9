// The error queries of both interfaces. None of them empties the record.
#include "frame/error.h"
#include "kld_api.h"
#include "tovik.h"

using namespace tovik;

int kld_api_get_error(int32_t *category, int32_t *code, int32_t *sys_errno, const char **text) {
  const ErrorRecord &record = error_record();
  if (record.count == 0) return 0;
  const ErrorEntry &entry = record.entries[0];
  if (category != nullptr) *category = entry.category;
  if (code != nullptr) *code = entry.code;
  if (sys_errno != nullptr) *sys_errno = entry.sys_errno;
  if (text != nullptr) *text = entry.text;
  return 1;
}

void kld_api_print_error(const char *title) {
  err_format(nullptr, 0, title);
}

void kld_api_clear_error(void) {
  err_clear();
}

int32_t tovik_geterr(void) {
  return error_record().snapshot.primary.code;
}

void tovik_geterrinfo(char *buffer, int size) {
  err_format(buffer, size, "[UXA error information]");
}
