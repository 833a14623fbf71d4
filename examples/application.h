// What the loops of this directory serve: an application that prints a line for all that happens, until Escape is
// pressed. Such as:
//
//   sources: mouse yes, keyboard yes, remote yes
//   key down 65 char 97
//   pointer 10,20
//   button down 1
//   wheel up 1
//   no longer held on the remote: 38
//   gone: mouse
#pragma once

#include "input/input_loop.h"
#include "input/linux_input_reader.h"

namespace example {

using quarlo::components::input::InputLoop;
using quarlo::components::input::LinuxInputReader;
using InputEvent = InputLoop::InputEvent;

// Opens the mouse, the keyboard and LIRC's socket whose paths are a program's three arguments, or searches for them if
// there are none, and prints which are open. Returns whether one is.
bool open(LinuxInputReader& reader, int argc, char** argv);

class Application {
 public:
  explicit Application(const LinuxInputReader& reader) : reader_(reader) {}

  void handle(const InputEvent& event);

  // Takes note of the sources that are gone.
  void lose(InputLoop::SourceSet gone);

  // Draws a frame. All that there is to see is whether a button of the remote is held.
  void draw();

  // Whether Escape has been pressed.
  bool isOver() const { return isOver_; }

  // Prints how many frames there were. Returns the program's exit status.
  int end() const;

 private:
  const LinuxInputReader& reader_;
  InputLoop::SourceSet gone_ = 0;
  LinuxInputReader::Key held_ = 0;
  int frames_ = 0;
  bool isOver_ = false;
};

}  // namespace example
