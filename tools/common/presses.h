// When lines of a remote, and the key-downs that they give, are those of a tap or of a held button.
#pragma once

#include <chrono>
#include <string_view>

namespace quarlo::tools {

// Presses that last this long are held buttons, shorter ones are taps: the kernel's remotes repeat from here on.
constexpr std::chrono::milliseconds kShortestHold{500};

// The longest pause between repeats of a held button that is still even, in shortest ones: a line that is skipped makes
// it 2.
constexpr double kMaxUneven = 1.75;

// Whether a line begins a press, by the reader's rule: the field after the first space has nothing but zeroes.
bool beginsPress(std::string_view line);

}  // namespace quarlo::tools
