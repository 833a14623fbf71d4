// A device's name and a daemon's line can hold any byte, and a session is a text that people look at: what would change
// how a terminal shows it, or would be lost in a line, stands there as an escape.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quarlo::recording {

// The maximum number of characters that escaping makes of one byte.
constexpr std::size_t kLongestEscape = 4;

// `text` with \\ for a backslash, and \xHH for each byte of: a control character (also those of U+0080 to U+009F), a
// character that changes the direction of text, U+2028 and U+2029, a blank at the start, and what is not UTF-8.
std::string escaped(std::string_view text);

// The text of which escaped() made `text`. None if a backslash begins no escape.
std::optional<std::string> unescaped(std::string_view text);

}  // namespace quarlo::recording
