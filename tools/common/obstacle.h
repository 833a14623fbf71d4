// Why a source cannot be used, and what to do about it: the reader itself only says that it could not open it.
#pragma once

#include <string>

namespace quarlo::tools {

struct Obstacle {
  std::string reason;  // "Permission denied (owner root, group input, mode 0660)"
  std::string remedy;  // what a person can do, as a sentence without its full stop; empty if there is nothing
};

// Why open() of the evdev node or FIFO `path` gave the errno `error`.
Obstacle whyNotOpened(const std::string& path, int error);

// Why connect() to the LIRC socket `path` gave the errno `error`.
Obstacle whyNotConnected(const std::string& path, int error);

}  // namespace quarlo::tools
