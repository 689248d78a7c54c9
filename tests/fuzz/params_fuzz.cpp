// Parameter strings: of a database, and of the library's start.
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine.h"
#include "frame/env.h"
#include "platform/platform.h"
#include "storage/params/params.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool prepared = [] {
    static const tovik::test::Silence silence;
    static const tovik::test::Engine engine("");
    return true;
  }();
  (void)prepared;
  const std::string text(reinterpret_cast<const char *>(data), size);
  for (const tovik::CheckFor use : {tovik::CheckFor::opening, tovik::CheckFor::creation}) {
    tovik::Params *params = tovik::param_create(text.c_str());
    if (params == nullptr) continue;
    (void)tovik::param_check(*params, use);
    (void)tovik::param_lookup(*params, "name");
    tovik::param_dump(*params);
    tovik::param_destroy(params);
  }
  tovik::env_start(text.c_str());
  tovik::env_show("");
  tovik::env_start("");
  return 0;
}
