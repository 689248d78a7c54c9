#include "api/library.h"

#include <cstdio>
#include <cstring>

#include "api/handle.h"
#include "data/data_layer.h"
#include "frame/env.h"
#include "frame/error.h"
#include "frame/param_text.h"
#include "kld_api.h"
#include "storage/io/io.h"
#include "tovik.h"

namespace tovik {

static int owner = 0;  // the process that started the library; 0 when it is not started

// The limit must be known before anything is allocated, so it is read from the text alone.
static int32_t memory_limit(const char *params) {
  char key[64], value[64];
  while ((params = next_pair(params, key, sizeof key, value, sizeof value)) != nullptr) {
    if (strcmp(key, "HVI_MEM_LIMIT_SIZE") == 0 && value[0] != 0) return text_number(value, 10);
  }
  return 0;
}

// A start that failed keeps what it had set up; the next one begins by giving that back.
static void forget_failed_start() {
  env_release();
  memory_table.mem_end();
}

// What the parent allocated stays as it is, in pages that the two processes share until one writes to them; a
// thread that is missing here may have been changing any of it.
static void forget_parent() {
  io_forget();
  handles_forget();
  env_forget();
  memory_table.mem_end();
  owner = 0;
}

bool library_start(const char *params) {
  if (library_started()) return true;
  if (library_left_by_fork()) forget_parent();
  forget_failed_start();
  if (memory_table.mem_start(memory_limit(params)) != 0) return fail(status::memory_start);
  env_start(params);
  data_layer_register();
  if (!io_init()) return false;
  if (!handles_start()) {
    io_term();
    return false;
  }
  owner = system_driver.process_id();
  return true;
}

void library_end() {
  if (library_left_by_fork()) forget_parent();
  if (!library_started()) return;
  statement_databases_close();
  record_databases_close();
  handles_end();
  io_term();
  env_release();
  memory_table.mem_end();
  owner = 0;
}

bool library_started() {
  return owner != 0 && owner == system_driver.process_id();
}

bool library_left_by_fork() {
  return owner != 0 && owner != system_driver.process_id();
}

}  // namespace tovik

using namespace tovik;

int kld_api_init(const char *params) {
  return library_start(params) ? 0 : -1;
}

void kld_api_end(void) {
  library_end();
}

static bool record_interface_start(const char *params) {
  static constexpr char fixed[] = "HVI_TRAN_FILE_REUSE=ON;";
  if (params == nullptr || params[0] == 0) return library_start(fixed);
  char text[512];
  if (snprintf(text, sizeof text, "%s;%s", fixed, params) >= static_cast<int>(sizeof text))
    return fail(status::param_text_length);
  return library_start(text);
}

int tovik_init(const char *params) {
  if (record_interface_start(params)) return 0;
  err_save();
  return -1;
}

void tovik_end(void) {
  library_end();
}
