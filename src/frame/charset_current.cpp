#include "frame/charset_current.h"

#include "frame/env.h"

namespace tovik {

const Charset &charset_current() {
  return *charset_table[env_number(Env::lang)];
}

}  // namespace tovik
