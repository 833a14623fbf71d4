// A line on the terminal that says how much has come: it is written again as more comes.
#pragma once

#include <cstddef>
#include <string>

#include "tools/common/describe.h"

namespace quarlo::tools::record {

// Does nothing where standard output is not a terminal. Writes nothing while the program is in the background, where
// the terminal is the shell's, and while the terminal takes nothing (Ctrl-S): what comes meanwhile must be recorded.
class CounterLine {
 public:
  CounterLine();

  // Shows `text` in place of what was shown before, as much of it as fits, or will do so later: the line is written at
  // most ten times a second. `now` never goes back.
  void show(const std::string& text, microseconds now);

  // For how long to wait at most, in ms, of `timeoutMs` (-1: without a limit), until show() is called again.
  int limited(int timeoutMs, microseconds now) const;

  // Makes room for what is printed next. The next show() writes the line again, below it.
  void clear();

 private:
  void write(const std::string& text);

  bool isTerminal_;
  std::string wanted_;
  std::string shown_;
  std::size_t used_ = 0;      // columns of the line
  microseconds earliest_{0};  // when it may be written next
};

}  // namespace quarlo::tools::record
