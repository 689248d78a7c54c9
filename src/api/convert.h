// Conversion of a column value into the buffer type that the caller names; shared by both interfaces.
#pragma once

#include "data/value/value.h"
#include "platform/held.h"
#include "platform/platform.h"

namespace tovik {

// A caller's buffer and where the length goes (may be null).
struct TargetBuffer {
  void *data;
  int size;  // bytes
  int32_t *length;
};

// value (not NULL) of a column of type code into target as API data type api_type. 190016, 190017, 301.
[[nodiscard]] bool convert_value(const Value &value, TypeCode code, int api_type, const TargetBuffer &target);

// UTF-16LE to UTF-8. Null with 1 or 301.
using Utf8Text = Held<char, mem_free>;
Utf8Text utf8_from_wide(const uint16_t *text);

}  // namespace tovik
