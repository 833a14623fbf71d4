// The command `list`.
#pragma once

namespace quarlo::tools::list {

struct ListOptions {
  bool json = false;
};

// Returns the exit status: kFailed if there is no event node at all.
int run(const ListOptions& options);

}  // namespace quarlo::tools::list
