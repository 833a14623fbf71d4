// The application's logging facility as tests need it: levels to set, and the messages to compare.
#pragma once

#include <string>
#include <vector>

namespace quarlo::test {

// Everything is wanted, and nothing is written: for the start of a test.
void resetLog();

// The messages since the last call, such as "INFO Found a mouse: ..." or "VERBOSE10 LIRC timeout 300ms."; one of
// InputLoop has "loop: " before it.
std::vector<std::string> takeLog();

void setMinLogLevel(int level);
void setVlogLevel(int level);

}  // namespace quarlo::test
