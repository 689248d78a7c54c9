#include "platform/charset/handlers.h"

namespace tovik {

const Charset *const charset_table[charset_count + 1] = {
    &sjis_charset, &euc_charset, &utf8_charset, &utf16le_charset, &utf16be_charset, nullptr,
};

}  // namespace tovik
