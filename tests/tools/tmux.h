// A terminal of 80x24 with a shell in it, as a person has it: tmux on a server of its own.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/program.h"

namespace quarlo::tools {

// Whether there is tmux.
bool hasTmux();

class Tmux {
 public:
  // `environment` are assignments such as "TERM=vt100" for what runs in it; by default it is in UTF-8.
  explicit Tmux(const Folder& folder, const std::string& environment = "LC_ALL=C.UTF-8");
  ~Tmux();
  Tmux(const Tmux&) = delete;
  Tmux& operator=(const Tmux&) = delete;

  // Types a line into the shell.
  void enter(const std::string& line) const;

  // Presses a key by tmux's name for it, such as "C-c".
  void press(const std::string& key) const;

  void resize(int columns, int rows) const;

  // The rows of the terminal, without blanks at their ends.
  std::vector<std::string> rows() const;

  // The path of the terminal.
  std::string tty() const;

  // Waits until the terminal shows `text`, or shows it no more. False, with what it shows, if that takes half a minute.
  testing::AssertionResult waitFor(const std::string& text) const;
  testing::AssertionResult waitUntilGone(const std::string& text) const;

 private:
  std::string call(const std::vector<std::string>& arguments) const;
  testing::AssertionResult waitUntil(const std::string& text, bool shown) const;

  std::string socket_;
};

}  // namespace quarlo::tools
