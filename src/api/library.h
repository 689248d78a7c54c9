// Start and end of the library, shared by both interfaces.
#pragma once

namespace tovik {

// Memory allocator, environment parameters, data layer, I/O layer, in this order. True at once when the
// library is already started; params is then ignored. 2, 14, 11103, 110, 10.
//
// The library belongs to the process that started it. In a process that fork made it is not started: what the
// parent had open is out of reach there, and a start, or an end, first lets go of the parent's files.
[[nodiscard]] bool library_start(const char *params);
void library_end();  // closes the databases that are still open
bool library_started();
bool library_left_by_fork();  // started by this process's parent

// Closes the databases of each interface; for the library's end.
void statement_databases_close();
void record_databases_close();

}  // namespace tovik
