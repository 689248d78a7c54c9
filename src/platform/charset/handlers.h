// The handlers that charset_table lists.
#pragma once

#include "platform/charset/charset.h"

namespace tovik {

extern const Charset sjis_charset;
extern const Charset euc_charset;
extern const Charset utf8_charset;
extern const Charset utf16le_charset;
extern const Charset utf16be_charset;

}  // namespace tovik
