// The memory of a program that hides what was typed still holds the last of it.
#pragma once

namespace quarlo::tools {

// While this exists, the kernel writes no core dump of the program, and no other process of its user can trace it or
// read its memory; root can.
class Undumpable {
 public:
  Undumpable();
  ~Undumpable();
  Undumpable(const Undumpable&) = delete;
  Undumpable& operator=(const Undumpable&) = delete;

 private:
  int before_;
};

}  // namespace quarlo::tools
