// The subcommand `list`.
#pragma once

namespace quarlo::tools {

struct ListOptions {
  bool json = false;
};

// Returns the exit status: kFailed if there is no event node at all.
int list(const ListOptions& options);

}  // namespace quarlo::tools
