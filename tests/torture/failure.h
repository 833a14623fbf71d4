// What a failure does to a life.
#pragma once

#include <array>
#include <cstddef>

#include "tests/torture/faults.h"
#include "tests/torture/model.h"

namespace quarlo::test::torture {

// The course of a life with the fault, from the calls of the same life without it and the descriptors of its sources.
// `index` is that of the first call that fails.
Course courseWith(const Fault& fault, const Life& life, const Calls& calls, const std::array<int, kSources>& fds,
                  std::size_t index);

}  // namespace quarlo::test::torture
