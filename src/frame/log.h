// The log file named by HVI_LOG_FILE, opened and closed for every line. Logging never fails a caller.
#pragma once

namespace tovik {

enum class LogLevel { error = 0, warn = 1, info = 2, message = 3, debug = 4 };

// Appends one line of at most 511 bytes; tag is the database name. An error line carries the thread's error
// record. Does nothing while HVI_LOG_FILE is unset.
void log_write(LogLevel level, const char *tag, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace tovik
