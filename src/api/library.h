// Start and end of the library, shared by both interfaces.
#pragma once

namespace tovik {

// Memory allocator, environment parameters, data layer, I/O layer, in this order. True at once when the
// library is already started; params is then ignored. 2, 14, 11103, 110, 10.
[[nodiscard]] bool library_start(const char *params);
void library_end();
bool library_started();

}  // namespace tovik
