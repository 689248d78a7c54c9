// The names of all status codes: status::unique_violation is 143001.
//
// Codes are grouped by thousands per module; the category of a code follows from its range
// (error.h). The table itself, with the message texts, is status_table.inc.
#pragma once

#include <cstdint>

namespace tovik {

using StatusCode = int32_t;  // 0 is no error; negative codes come only from storage drivers

namespace status {
#define STATUS(code, name, text) inline constexpr StatusCode name = code;
#define STATUS_WITHOUT_TEXT(code, name) inline constexpr StatusCode name = code;
#include "frame/status_table.inc"
#undef STATUS
#undef STATUS_WITHOUT_TEXT
}  // namespace status

// One row of the message catalogue; text is Shift-JIS.
struct StatusText {
  StatusCode code;
  const char *text;
};

inline constexpr int status_text_count = 501;
extern const StatusText status_texts[status_text_count];  // ascending by code

}  // namespace tovik
