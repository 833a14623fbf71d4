// What the terminal of standard output can do, by its type: TERM, looked up in terminfo.
#pragma once

#include <string>

namespace quarlo::tools::monitor {

// Why nothing can be drawn on it, and what to do about it; empty if it can be drawn on.
std::string whyNotDrawable();

// What brings it back from drawing to the shell's lines. `height` is its number of rows.
// REQUIRES: it is drawn on, by ncurses.
std::string restoringText(int height);

}  // namespace quarlo::tools::monitor
