// The command `list`.
#pragma once

#include "tools/common/node_facts.h"

namespace quarlo::tools::list {

struct ListOptions {
  bool json = false;
  int verbosity = 0;  // how often -v was given
};

// Returns the exit status: kFailed if there is no event node at all.
int run(const ListOptions& options);

// The same, where the system's files are elsewhere.
int list(const ListOptions& options, const SystemFolders& folders);

}  // namespace quarlo::tools::list
