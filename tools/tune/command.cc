#include "tools/tune/command.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include "input/linux_input_reader_limits.h"
#include "tools/common/letter_case.h"
#include "tools/common/numbers.h"

namespace quarlo::tools::tune {
namespace {

constexpr int kMaxLircTimeoutMs = 2147483647;
constexpr std::size_t kMaxValues = 8;  // of each timeout
constexpr std::size_t kMaxSettings = 200;

// %HOLD% stands for kShortestHold.
constexpr char kHelp[] =
    R"(The lines of a tap and of a held button go through the real reader, on a
simulated machine, with each setting, while the application's own work takes
0.1, 1 and 3 ms a round; the worst counts. A loop that waits reads each line as
it comes. One that polls reads it at its next poll, so that the press comes at
eight moments between two polls. In a session, a press begins with a line whose
repeat count is 0; it is a held button from %HOLD% ms on, and a tap otherwise. Both
must be there. --plot needs gnuplot (package gnuplot-nox).

Example: a remote of which a tap sends three lines
  quarlo-input tune --period 108 --hold 2000 --tap 3

Exit status: 0 when done; 1 if the session cannot be used, or the picture cannot
be made; 2 for wrong arguments.)";

// What the command line says of an imagined remote; the rest follows from its protocol.
struct ImaginedRemote {
  std::optional<std::string> protocol;
  std::optional<int> periodMs;
  std::optional<int> tapLines;
  std::optional<int> holdMs;
};

// ---- One argument -------------------------------------------------------------------------------

void parseTimeouts(const std::string& text, int maximum, std::vector<int>& values) {
  values.clear();
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    int value;
    if (!isNumber(text.substr(start, end - start), 1, maximum, value)) {
      throw ArgumentError("\"" + text + "\" is not a list of milliseconds: expected numbers from 1 to " +
                          std::to_string(maximum) + " with commas between them, such as 50,100");
    }
    values.push_back(value);
    start = end + 1;
  }
  std::sort(values.begin(), values.end());
  values.erase(std::unique(values.begin(), values.end()), values.end());
  if (values.size() > kMaxValues) {
    throw ArgumentError("at most " + std::to_string(kMaxValues) + " values can be tried at once");
  }
}

std::string listed(const std::vector<int>& values) {
  std::string text;
  for (const int value : values) text += (text.empty() ? "" : ",") + std::to_string(value);
  return text;
}

std::string protocolNames() {
  std::string names;
  for (const Protocol& protocol : knownProtocols()) names += (names.empty() ? "" : ", ") + protocol.name;
  return names;
}

// Small and capital letters are the same.
const Protocol* findProtocol(const std::string& name) {
  const std::vector<Protocol>& known = knownProtocols();
  const auto found = std::find_if(known.begin(), known.end(),
                                  [&](const Protocol& protocol) { return isSameText(protocol.name, name); });
  return found == known.end() ? nullptr : &*found;
}

void parseProtocol(const std::string& text, ImaginedRemote& remote) {
  if (findProtocol(text) == nullptr) {
    throw ArgumentError("\"" + text + "\" is not a known protocol: expected one of " + protocolNames() +
                        "; describe another one by --period, --tap and --hold");
  }
  remote.protocol = text;
}

void parseSession(const std::string& text, TuneOptions& options) {
  if (text.empty()) throw ArgumentError("the name is empty: expected a directory or a file, such as evening");
  options.session = text;
}

void parsePlot(const std::string& text, TuneOptions& options) {
  constexpr std::string_view kEnding = ".svg";
  if (text.size() <= kEnding.size() || text.substr(text.size() - kEnding.size()) != kEnding) {
    throw ArgumentError("\"" + text + "\" is not a name that ends in .svg: pictures are SVG, such as remote.svg");
  }
  options.plot = text;
}

// ---- All of them --------------------------------------------------------------------------------

// What a remote's description lacks is taken from its protocol, or follows from the rest.
void completeRemote(const ImaginedRemote& remote, TuneOptions& options) {
  options.protocol = *findProtocol(remote.protocol.value_or(knownProtocols().front().name));
  if (remote.periodMs) {
    options.protocol.name.clear();
    options.protocol.period = std::chrono::milliseconds(*remote.periodMs);
    options.protocol.tapLines = linesOfATap(options.protocol.period);
  }
  if (remote.tapLines) options.protocol.tapLines = *remote.tapLines;
  if (remote.holdMs) options.hold = std::chrono::milliseconds(*remote.holdMs);
  const std::chrono::microseconds tap = (options.protocol.tapLines - 1) * options.protocol.period;
  if (tap >= kShortestHold) {
    throw ArgumentError("--tap: " + std::to_string(options.protocol.tapLines) + " lines take " +
                        std::to_string(tap.count() / 1000) + " ms: that is a held button, a tap takes less than " +
                        std::to_string(kShortestHold.count()) + " ms");
  }
}

void check(const ImaginedRemote& remote, TuneOptions& options) {
  if (!options.session.empty() && (remote.protocol || remote.periodMs || remote.tapLines || remote.holdMs)) {
    throw ArgumentError("the session \"" + options.session +
                        "\" has a remote of its own: leave out --protocol, --period, --tap and --hold, or the session");
  }
  const Grid& grid = options.grid;
  if (grid.size() > kMaxSettings) {
    throw ArgumentError("the lists make " + std::to_string(grid.size()) + " settings, and at most " +
                        std::to_string(kMaxSettings) + " can be tried at once");
  }
  completeRemote(remote, options);
}

// ---- Options ------------------------------------------------------------------------------------

void addImaginedRemote(CommandLine& line, const std::shared_ptr<ImaginedRemote>& remote) {
  line.addOption("--protocol", "NAME",
                 "The remote's protocol: " + protocolNames() + "; default: " + knownProtocols().front().name,
                 [=](const std::string& text) { parseProtocol(text, *remote); });
  const auto addNumber = [&](const char* name, const char* type, const std::string& description,
                             std::optional<int> ImaginedRemote::*number, const Expected<int>& expected) {
    line.addOption(name, type, description,
                   [=](const std::string& text) { remote.get()->*number = parseNumber(text, expected); });
  };
  constexpr int kShortestHoldMs = kShortestHold.count();
  addNumber("--period", "MS", "How long from line to line while a button is held", &ImaginedRemote::periodMs,
            {"number of milliseconds", 10, kShortestHoldMs - 1, 108});
  addNumber("--tap", "LINES",
            "How many lines come of a tap; default: those of " + std::to_string(kSlowTap.count()) + " ms",
            &ImaginedRemote::tapLines, {"number of lines", 1, 50, 3});
  addNumber("--hold", "MS", "How long a button is held; default: " + std::to_string(TuneOptions().hold.count()),
            &ImaginedRemote::holdMs, {"number of milliseconds", kShortestHoldMs, 10000, 2000});
}

void addGrid(CommandLine& line, Grid& grid, const std::shared_ptr<bool>& timeoutIsGiven) {
  const auto addList = [&](const char* name, const std::string& description, int maximum, std::vector<int>& values) {
    line.addOption(name, "LIST", description + "; default: " + listed(values),
                   [maximum, &values](const std::string& text) { parseTimeouts(text, maximum, values); });
  };
  addList("--repeat-timeout", "Values of LIRC_REPEAT_TIMEOUT to try", kMaxLircTimeoutMs, grid.repeatMs);
  addList("--release-timeout", "Values of LIRC_RELEASE_TIMEOUT to try", kMaxLircTimeoutMs, grid.releaseMs);
  addLoopOption(line, grid.loop);
  line.addOption(
      "--timeout", "LIST",
      "With --loop poll: how long each round of the application may wait for input; default: " + listed(grid.pollMs),
      [=, &grid](const std::string& text) {
        parseTimeouts(text, components::input::kLongestTimeoutMs, grid.pollMs);
        *timeoutIsGiven = true;
      });
}

std::string helpText() {
  std::string text = kHelp;
  const std::string placeholder = "%HOLD%";
  return text.replace(text.find(placeholder), placeholder.size(), std::to_string(kShortestHold.count()));
}

}  // namespace

void addOptions(CommandLine& line, TuneOptions& options) {
  line.addArgument("SESSION", "A directory or a file with a remote's lines; default: imagined ones",
                   [&](const std::string& text) { parseSession(text, options); });
  const auto remote = std::make_shared<ImaginedRemote>();
  addImaginedRemote(line, remote);
  const auto timeoutIsGiven = std::make_shared<bool>(false);
  addGrid(line, options.grid, timeoutIsGiven);
  line.addFlag("--json", options.json, "Print one JSON object per setting, then the recommendation");
  line.addOption("--plot", "FILE.svg", "Draw the current and the recommended setting, and all of them, with gnuplot",
                 [&](const std::string& text) { parsePlot(text, options); });
  line.addCheck([=, &options] {
    checkTimeout(options.grid.loop, *timeoutIsGiven);
    check(*remote, options);
  });
  line.setHintForArguments("one session is studied at a time; the values of a list have commas between them");
  line.setHelp(helpText());
}

Command command() {
  return makeCommand("tune", "Find the remote's two timeouts: try settings, and recommend one.", addOptions, run);
}

}  // namespace quarlo::tools::tune
