#include "platform/charset/handlers.h"

namespace tovik {

const Charset *const charset_table[charset_count + 1] = {nullptr, nullptr, &utf8_charset,
                                                         nullptr, nullptr, nullptr};

}  // namespace tovik
