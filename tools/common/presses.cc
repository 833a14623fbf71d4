#include "tools/common/presses.h"

namespace quarlo::tools {

bool beginsPress(std::string_view line) {
  const std::size_t start = line.find(' ') + 1;
  return line.substr(start, line.find(' ', start) - start).find_first_not_of('0') == std::string_view::npos;
}

}  // namespace quarlo::tools
