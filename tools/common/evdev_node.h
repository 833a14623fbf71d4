// A path that may be an evdev node.
#pragma once

#include <string>

namespace quarlo::tools {

// Opens what may be an evdev node, without waiting. A terminal that is opened by mistake does not become the program's
// own, as it would for a service without one. Returns -1, with errno, if it cannot.
int openForReading(const std::string& path);

bool isEvdevNode(int fd);

}  // namespace quarlo::tools
