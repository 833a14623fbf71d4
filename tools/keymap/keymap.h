// The subcommand `keymap`.
#pragma once

namespace quarlo::tools {

// In text, unless one of them is set.
struct KeymapOptions {
  bool json = false;
  bool markdown = false;
};

// Returns the exit status.
int keymap(const KeymapOptions& options);

}  // namespace quarlo::tools
