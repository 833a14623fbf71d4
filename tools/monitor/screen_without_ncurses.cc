#include "tools/monitor/screen.h"

namespace quarlo::tools::monitor {

std::string whyNoScreen() {
  return "this quarlo-input was built without ncurses, so it has no --tui; build it where libncurses-dev is installed";
}

std::unique_ptr<Screen> openScreen() { return nullptr; }

}  // namespace quarlo::tools::monitor
