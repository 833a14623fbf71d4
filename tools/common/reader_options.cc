#include "tools/common/reader_options.h"

#include "input/linux_input_reader_limits.h"
#include "tools/common/numbers.h"

namespace quarlo::tools {
namespace {

constexpr std::uint32_t kMaxSize = 65536;  // an event's coordinates have 16 bits

void parseSize(const std::string& text, ReaderOptions& options) {
  const std::size_t x = text.find('x');
  std::uint32_t width;
  std::uint32_t height;
  if (x == std::string::npos || !isNumber(text.substr(0, x), 1U, kMaxSize, width) ||
      !isNumber(text.substr(x + 1), 1U, kMaxSize, height)) {
    throw ArgumentError("\"" + text + "\" is not a size: expected WIDTHxHEIGHT, each from 1 to " +
                        std::to_string(kMaxSize) + ", such as 1920x1080");
  }
  options.maxX = width - 1;
  options.maxY = height - 1;
}

void parseTimeout(const std::string& text, ReaderOptions& options) {
  if (text == "-1") {
    throw ArgumentError(
        "-1 is refused: without a limit, the reader can sleep through input once a wait has ended; use a short time "
        "such as 10");
  }
  options.timeoutMs =
      parseNumber<int>(text, {"number of milliseconds", 1, components::input::kLongestTimeoutMs, kRoundTimeoutMs});
}

}  // namespace

void addReaderOptions(CommandLine& line, ReaderOptions& options) {
  line.addOption("--size", "WxH", "The screen that the pointer moves on; default: 1920x1080",
                 [&](const std::string& text) { parseSize(text, options); });
  line.addOption("--timeout", "MS",
                 "How long each round may wait for input, in milliseconds; default: " + std::to_string(kRoundTimeoutMs),
                 [&](const std::string& text) { parseTimeout(text, options); });
  line.addFlag("--json", options.json, "Print one JSON object per event; all else goes to standard error");
  line.addCounter("-v,--verbose", options.verbosity,
                  "Show the reader's log, and records without an event; -vv: the remote's timing, too");
}

}  // namespace quarlo::tools
