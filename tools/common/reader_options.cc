#include "tools/common/reader_options.h"

#include <memory>

#include "input/linux_input_reader_limits.h"
#include "tools/common/help_facts.h"
#include "tools/common/numbers.h"

namespace quarlo::tools {
namespace {

constexpr std::uint32_t kMaxSize = 65536;  // an event's coordinates have 16 bits

void parseSize(const std::string& text, std::uint32_t& maxX, std::uint32_t& maxY) {
  const std::size_t x = text.find('x');
  std::uint32_t width;
  std::uint32_t height;
  if (x == std::string::npos || !isNumber(text.substr(0, x), 1U, kMaxSize, width) ||
      !isNumber(text.substr(x + 1), 1U, kMaxSize, height)) {
    throw ArgumentError("\"" + text + "\" is not a size: expected WIDTHxHEIGHT, each from 1 to " +
                        std::to_string(kMaxSize) + ", such as 1920x1080");
  }
  maxX = width - 1;
  maxY = height - 1;
}

int parseTimeout(const std::string& text) {
  if (text == "-1") {
    throw ArgumentError(
        "-1 is refused: without a limit, the reader can sleep through input once a wait has ended; use a short time "
        "such as 10");
  }
  return parseNumber<int>(text, {"number of milliseconds", 1, components::input::kLongestTimeoutMs, kRoundTimeoutMs});
}

// What the command line says of the loop.
struct LoopChoice {
  LoopKind kind = LoopKind::kWait;
  PollTimeout timeout;
};

LoopKind parseLoop(const std::string& text) {
  if (text == "wait") return LoopKind::kWait;
  if (text == "poll") return LoopKind::kPoll;
  throw ArgumentError("\"" + text + "\" is not a loop: expected wait or poll, such as poll");
}

}  // namespace

void addSizeOption(CommandLine& line, std::uint32_t& maxX, std::uint32_t& maxY) {
  line.addOption("--size", "WxH", "The screen that the pointer moves on; default: 1920x1080",
                 [&](const std::string& text) { parseSize(text, maxX, maxY); });
}

void addLoopOption(CommandLine& line, LoopKind& loop) {
  line.addOption("--loop", "wait|poll",
                 "The application's loop: wait (InputLoop's, asleep until something comes) or poll (readInput()'s, "
                 "which waits for a time); default: wait",
                 [&](const std::string& text) { loop = parseLoop(text); });
}

void checkTimeout(LoopKind loop, bool timeoutIsGiven) {
  if (loop == LoopKind::kPoll || !timeoutIsGiven) return;
  throw ArgumentError(
      "--timeout is for the loop that polls: expected --loop poll beside it, such as --loop poll --timeout " +
      std::to_string(kRoundTimeoutMs));
}

void addReaderOptions(CommandLine& line, ReaderOptions& options) {
  addSizeOption(line, options.maxX, options.maxY);
  const auto loop = std::make_shared<LoopChoice>();
  addLoopOption(line, loop->kind);
  line.addOption("--timeout", "MS",
                 "With --loop poll: how long each round may wait for input, in milliseconds; default: " +
                     std::to_string(kRoundTimeoutMs),
                 [=](const std::string& text) { loop->timeout = parseTimeout(text); });
  line.addCheck([loop, &options] {
    checkTimeout(loop->kind, loop->timeout.has_value());
    if (loop->kind == LoopKind::kPoll) options.pollTimeout = loop->timeout.value_or(kRoundTimeoutMs);
  });
  line.addFlag(
      "--json", options.json,
      "Print JSON, an object per line: what the sources are, then each event; all else goes to standard error");
  line.addCounter("-v,--verbose", options.verbosity,
                  "Show the reader's log and, in text, records without an event; -vv: the remote's timing, too");
  addTimeoutVariables(line);
}

// A read takes several lines at once if it comes late, and the next one then begins in the middle of a line.
const char* remarkOnLog(const ReaderOptions& options) {
  if (options.verbosity == 0 || !options.pollTimeout) return nullptr;
  return "\"LIRC unknown:\" with a number or the remote's name is not a button, but a line that a late poll has cut.";
}

ReaderLoop::Empty emptyToShow(const ReaderOptions& options) {
  return options.verbosity > 0 ? ReaderLoop::Empty::kAll : ReaderLoop::Empty::kUnknown;
}

}  // namespace quarlo::tools
