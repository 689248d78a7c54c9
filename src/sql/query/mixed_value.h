// Values of a result column whose class is known per row only (value_mixed), in the form in which a sort
// store keeps bytes: a column of type blob. Equal values of one class give equal bytes.
#pragma once

#include "data/value/value.h"
#include "frame/memory_pool.h"

namespace tovik {

// A value that is not NULL: 32-bit length and bytes, from pool. 110002.
const void *mixed_form(MemoryPool &pool, const Value &value);

// Texts stay where form is.
Value value_of_mixed_form(const void *form);

}  // namespace tovik
