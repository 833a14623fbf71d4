// What every command that runs the reader lets one choose.
#pragma once

#include <cstdint>

#include "tools/common/command_line.h"
#include "tools/common/reader_loop.h"

namespace quarlo::tools {

// The first wait of a round in the loop that input/linux_input_reader.h teaches.
constexpr int kRoundTimeoutMs = 10;

// The loop that runs the reader: one that sleeps until there is something to do (input/input_loop.h), or one that
// polls.
enum class LoopKind { kWait, kPoll };

// Takes the largest coordinates of the pointer.
void addSizeOption(CommandLine& line, std::uint32_t& maxX, std::uint32_t& maxY);

void addLoopOption(CommandLine& line, LoopKind& loop);

// Throws ArgumentError if a timeout was given to a loop that has none.
void checkTimeout(LoopKind loop, bool timeoutIsGiven);

struct ReaderOptions {
  std::uint32_t maxX = 1919;  // the largest coordinates of the pointer
  std::uint32_t maxY = 1079;
  PollTimeout pollTimeout;  // none: the loop waits
  bool json = false;
  int verbosity = 0;  // how often -v was given
};

void addReaderOptions(CommandLine& line, ReaderOptions& options);

// What must be known of the log, with a remote, that only a loop that polls has; null if there is nothing.
const char* remarkOnLog(const ReaderOptions& options);

// What is shown beside events.
ReaderLoop::Empty emptyToShow(const ReaderOptions& options);

}  // namespace quarlo::tools
