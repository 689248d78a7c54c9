// Conversion between UTF-8 and UTF-16LE, independent of the system: the text_convert slot of a platform that
// has no such service of its own (see SystemDriver for the contract). Malformed input is a failure:
// truncated, overlong or surrogate UTF-8 sequences, code points above 0x10FFFF, unpaired UTF-16 surrogates.
#pragma once

namespace tovik {

int text_convert(int target_set, int source_set, const void *source, int source_length, void *target,
                 int target_size, int flag);

}  // namespace tovik
