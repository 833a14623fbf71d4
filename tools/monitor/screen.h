// A whole terminal to draw on. There is one implementation with ncurses, and one for builds without it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/monitor/screen_model.h"

namespace quarlo::tools::monitor {

// Has the terminal of standard output for as long as it lives (tools/monitor/terminal.h).
class Screen {
 public:
  Screen() = default;
  virtual ~Screen() = default;
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Draws, in the size that the terminal has now, and throws away what was typed.
  virtual void draw(const ScreenModel& model) = 0;

  // The lines that were written to standard error since the last call, if it is a terminal, too.
  virtual std::vector<std::string> takeErrors() = 0;
};

// Why there can be no screen here, and what to do about it; empty if there can.
std::string whyNoScreen();

// There can be one at a time. REQUIRES: whyNoScreen() is empty; catchStopRequests() was called.
std::unique_ptr<Screen> openScreen();

}  // namespace quarlo::tools::monitor
