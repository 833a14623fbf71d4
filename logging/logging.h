// The interface of the application's logging facility. The application defines these three functions, or links
// quarlo::stderr_logging (logging/stderr_logging.h), which defines them.
#pragma once

#include <cstddef>

namespace quarlo::logging {

// Severities. A verbose level n (1, 2, ...) is the severity -n.
constexpr int kInfo = 0;
constexpr int kError = 2;

// Writes one message. `file` and `line` say where it comes from; `severity` is kInfo, kError or -n for verbose level n;
// `format` and what follows are as for printf, and make one line (text that was read can end it with a newline, and can
// contain any other character). Callers ask the two functions below first, so a message that is not wanted costs no
// formatting.
void LogMessage(const char* file, int line, int severity, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// The lowest severity that is wanted: kInfo messages are sent only while this is <= kInfo, kError messages only while
// it is <= kError. It does not govern verbose messages.
int GetMinLogLevel();

// The highest verbose level wanted from the source file `file`; `size` is the size of that name with its terminating
// NUL. Messages of verbose level n are sent only while this is >= n.
int GetVlogLevelHelper(const char* file, std::size_t size);

}  // namespace quarlo::logging
