// The current character set, chosen by HVI_LANG; fetched anew by every caller.
#pragma once

#include "platform/charset/charset.h"

namespace tovik {

const Charset &charset_current();

}  // namespace tovik
