// The page docs/keymap.md.
#pragma once

#include <vector>

#include "tools/keymap/mapping.h"

namespace quarlo::tools::keymap {

void printMarkdown(const std::vector<Mapping>& mappings);

}  // namespace quarlo::tools::keymap
