// A menu for the arrow keys of a keyboard or a remote. Enter chooses.
#pragma once

#include "input/input_loop.h"

namespace example {

class Menu {
 public:
  // REQUIRES: entries > 0
  explicit Menu(int entries) : entries_(entries) {}

  // One round of the application's loop: waits for input, at most `timeoutMs` ms, and then takes what came.
  void readInput(quarlo::components::input::InputLoop& loop, int timeoutMs);

  int selected() const { return selected_; }  // 0 is the first entry
  bool isChosen() const { return chosen_; }

 private:
  void handle(const quarlo::components::input::InputLoop::InputEvent& event);
  void select(int entry);

  int entries_;
  int selected_ = 0;
  bool chosen_ = false;
};

}  // namespace example
