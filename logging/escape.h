// Text from a device, a socket or a file can contain anything. This makes it harmless to a terminal and to a log file.
#pragma once

#include <cstddef>

namespace quarlo::logging {

// The maximum number of characters that escaping makes of one byte.
constexpr std::size_t kLongestEscape = 4;

// Writes the `length` bytes of `text` to `out`, and escapes the backslash and everything but printable ASCII: \n \r \t
// \\ and \xNN. Stops before the first byte whose escape does not fit, and ends with a NUL. Returns how many characters
// are before that NUL.
// REQUIRES: size > 0
std::size_t Escape(const char* text, std::size_t length, char* out, std::size_t size);

}  // namespace quarlo::logging
