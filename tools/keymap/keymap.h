// The command `keymap`.
#pragma once

namespace quarlo::tools::keymap {

// In text, unless one of them is set.
struct KeymapOptions {
  bool json = false;
  bool markdown = false;
};

// Returns the exit status.
int run(const KeymapOptions& options);

}  // namespace quarlo::tools::keymap
