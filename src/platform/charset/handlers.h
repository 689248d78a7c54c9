// The handlers that charset_table lists.
#pragma once

#include "platform/charset/charset.h"

namespace tovik {

extern const Charset utf8_charset;

}  // namespace tovik
