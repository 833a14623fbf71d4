#include "tools/common/duration.h"

#include <charconv>
#include <cmath>
#include <cstdint>

#include "recording/session.h"
#include "tools/common/command_line.h"

namespace quarlo::tools {

std::chrono::microseconds parseDuration(const std::string& text) {
  constexpr double kMinimum = 0.1;
  constexpr std::int64_t kMaximum = std::chrono::seconds(recording::kLongestSession).count();
  double seconds;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, seconds, std::chars_format::fixed);
  if (error != std::errc() || rest != end || !(seconds >= kMinimum && seconds <= static_cast<double>(kMaximum))) {
    throw ArgumentError("\"" + text + "\" is not a number of seconds: expected 0.1 to " + std::to_string(kMaximum) +
                        ", such as 10");
  }
  return std::chrono::microseconds(std::llround(seconds * 1e6));
}

}  // namespace quarlo::tools
