// The LIRC daemon's socket, for those who only look at it.
#pragma once

#include <string>

namespace quarlo::tools {

// Returns a descriptor that never waits, or -1, with errno: EAGAIN if the daemon takes no more connections. REQUIRES:
// at most kLongestLircPath characters.
int connectWithoutWaiting(const std::string& path);

// The errno of doing so; 0: the daemon takes connections.
int errnoOfConnecting(const std::string& path);

}  // namespace quarlo::tools
