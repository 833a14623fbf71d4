// How long a recording lasts, among the arguments.
#pragma once

#include <chrono>
#include <string>

namespace quarlo::tools {

// Throws ArgumentError if `text` is not a number of seconds that a session can have.
std::chrono::microseconds parseDuration(const std::string& text);

}  // namespace quarlo::tools
