// Command lines of the program: any arguments.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "input/input_loop.h"
#include "input/linux_input_reader_limits.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"
#include "tools/common/command_line.h"
#include "tools/doctor/command.h"
#include "tools/keymap/command.h"
#include "tools/list/command.h"
#include "tools/monitor/command.h"
#include "tools/record/command.h"
#include "tools/replay/command.h"
#include "tools/report/command.h"
#include "tools/tune/command.h"

namespace quarlo::fuzz {
namespace {

using namespace tools;

void checkSources(const SourcePaths& sources) {
  require(!sources.lirc || sources.lirc->size() <= components::input::kLongestLircPath,
          "a socket's path is not too long");
  require(sources.further.size() <= components::input::InputLoop::kMostFurtherNodes,
          "there are not too many further nodes");
}

void checkReader(const ReaderOptions& options) {
  require(options.maxX <= 65535 && options.maxY <= 65535, "a size has at most 65536 pixels a side");
  const int timeoutMs = options.pollTimeout.value_or(kRoundTimeoutMs);
  require(timeoutMs >= 1 && timeoutMs <= components::input::kLongestTimeoutMs,
          "a timeout is one that the reader waits for");
}

void check(const WrongUsage& usage) { require(!usage.message.empty(), "a usage error says what is wrong"); }

void check(const Information& information) {
  require(!information.text.empty() && information.text.back() == '\n', "an information is a text of whole lines");
}

// Checks the options of the command that is asked for.
void check(const Run& run) { run(); }

int check(const monitor::MonitorOptions& options) {
  checkSources(options);
  checkReader(options);
  require(options.count >= 0, "a count is not negative");
  require(!options.pollTimeout || options.further.empty(), "a loop that polls has no further nodes");
  return 0;
}

int check(const list::ListOptions& /*options*/) { return 0; }

int check(const doctor::DoctorOptions& options) {
  for (const SourcePath& path : {options.mouse, options.keyboard, options.lirc}) {
    require(!path || !path->empty(), "a path is not empty");
  }
  return 0;
}

int check(const keymap::KeymapOptions& options) {
  require(!options.json || !options.markdown, "a key map has one format");
  return 0;
}

int check(const record::RecordOptions& options) {
  using namespace std::chrono_literals;
  checkSources(options);
  require(!options.session.empty(), "a recording has a name");
  require(!options.duration || (*options.duration >= 100ms && *options.duration <= recording::kLongestSession),
          "a duration has from 0.1 s to the longest session");
  return 0;
}

int check(const replay::ReplayOptions& options) {
  checkReader(options);
  return 0;
}

int check(const report::ReportOptions& options) {
  const bool isLive = options.live.duration.count() != 0;
  require(isLive == options.session.empty(), "a page is of a session, or of what comes");
  require(options.maxX < 65536 && options.maxY < 65536, "a coordinate has 16 bits");
  return 0;
}

void checkValues(const std::vector<int>& values, int most) {
  require(!values.empty() && values.size() <= 8, "a setting has from 1 to 8 values");
  require(std::is_sorted(values.begin(), values.end()) && values.front() >= 1 && values.back() <= most,
          "values are in order and within their limits");
}

int check(const tune::TuneOptions& options) {
  using namespace std::chrono_literals;
  checkValues(options.grid.repeatMs, 2147483647);
  checkValues(options.grid.startMs, 2147483647);
  checkValues(options.delayMs, 10000);
  checkValues(options.periodMs, 10000);
  checkValues(options.grid.pollMs, 2147483);
  require(options.protocol.period >= 10ms && options.protocol.period < kShortestHold, "a remote repeats its lines");
  require(options.protocol.tapLines >= 1 && (options.protocol.tapLines - 1) * options.protocol.period < kShortestHold,
          "a tap is not a held button");
  require(options.hold >= kShortestHold && options.hold <= 10s, "a hold has from 0.5 to 10 s");
  return 0;
}

// The program's commands, with checks in the place of what they do.
std::vector<Command> checkedCommands() {
  return {makeCommand("monitor", "", monitor::addOptions, check), makeCommand("list", "", list::addOptions, check),
          makeCommand("doctor", "", doctor::addOptions, check),   makeCommand("keymap", "", keymap::addOptions, check),
          makeCommand("record", "", record::addOptions, check),   makeCommand("replay", "", replay::addOptions, check),
          makeCommand("report", "", report::addOptions, check),   makeCommand("tune", "", tune::addOptions, check)};
}

// One argument a line: the input can hold every argument that main() can get, but for newlines.
std::vector<std::string> argumentsOf(const std::string& text) {
  std::vector<std::string> arguments = {"quarlo-input"};
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    arguments.emplace_back(text.substr(start, end - start).c_str());
    start = end + 1;
  }
  return arguments;
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo;
  const std::vector<std::string> arguments = fuzz::argumentsOf(fuzz::InputBytes(data, size).takeRest());
  std::vector<const char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  argv.push_back(nullptr);
  const tools::Request request =
      tools::parseArguments(fuzz::checkedCommands(), static_cast<int>(arguments.size()), argv.data());
  std::visit([](const auto& asked) { fuzz::check(asked); }, request);
  return 0;
}
