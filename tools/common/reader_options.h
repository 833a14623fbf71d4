// What every command that runs the reader lets one choose.
#pragma once

#include <cstdint>

#include "tools/common/command_line.h"

namespace quarlo::tools {

// The first wait of a round in the loop that input/linux_input_reader.h teaches.
constexpr int kRoundTimeoutMs = 10;

struct ReaderOptions {
  std::uint32_t maxX = 1919;  // the largest coordinates of the pointer
  std::uint32_t maxY = 1079;
  int timeoutMs = kRoundTimeoutMs;  // of the first wait in each round
  bool json = false;
  int verbosity = 0;  // how often -v was given
};

void addReaderOptions(CommandLine& line, ReaderOptions& options);

}  // namespace quarlo::tools
