// What a fuzz target says when something that must hold does not.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace quarlo::fuzz {

// Aborts with a line that names `rule`, unless it holds.
inline void require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "broken rule: %s\n", rule);
  std::abort();
}

}  // namespace quarlo::fuzz
