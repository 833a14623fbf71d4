#include "tools/tune/command.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "input/linux_input_reader_limits.h"
#include "tools/common/help_facts.h"
#include "tools/common/letter_case.h"
#include "tools/common/numbers.h"
#include "tools/tune/kernel_remote.h"

namespace quarlo::tools::tune {
namespace {

constexpr int kMaxLircTimeoutMs = 2147483647;
constexpr int kMaxRepeatMs = 10000;    // of a node's delay and period
constexpr std::size_t kMaxValues = 8;  // of each timeout
constexpr std::size_t kMaxSettings = 200;

// %HOLD% stands for kShortestHold, %REMOTES% for kRemotesRepeat.
constexpr char kHelp[] =
    R"(The lines of a tap and of a held button go through the real reader, on a
simulated machine, with each setting, while the application's own work takes
0.1, 1 and 3 ms a round; the worst counts. A loop that waits reads each line as
it comes. One that polls reads it at its next poll, so that the press comes at
eight moments between two polls. In a session, a press begins with a line whose
repeat count is 0; it is a held button from %HOLD% ms on, and a tap otherwise. Both
must be there. --plot needs gnuplot (package gnuplot-nox).

A remote that the kernel decodes has no lines of the LIRC daemon: the kernel
repeats its keys, by the delay and the period of its node. A session without a
remote's lines is studied so, and any with --kernel, --repeat-delay or
--repeat-period.

Of a session that is damaged, all is studied that is whole; warnings say what is
missing.

Examples: a remote of which a tap sends three lines; and one that the kernel
decodes, whose node repeats as the kernel sets it for remotes
  quarlo-input tune --period 108 --hold 2000 --tap 3
  quarlo-input tune --kernel %REMOTES%

Exit status: 0 when done; 1 if the session is damaged or cannot be studied, or
the picture cannot be made; 2 for wrong arguments.

See also: quarlo-input record, quarlo-input replay, lircd(8), ir-keytable(1),
docs/tuning.md)";

// What the command line says of an imagined remote; the rest follows from its protocol.
struct ImaginedRemote {
  std::optional<std::string> protocol;
  std::optional<int> periodMs;
  std::optional<int> tapLines;
  std::optional<int> holdMs;
};

// ---- One argument -------------------------------------------------------------------------------

// The numbers of a text that has commas between them; none if one is wrong.
std::vector<int> parseNumbers(const std::string& text, int minimum, int maximum) {
  std::vector<int> values;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    int value;
    if (!isNumber(text.substr(start, end - start), minimum, maximum, value)) return {};
    values.push_back(value);
    start = end + 1;
  }
  return values;
}

void parseTimeouts(const std::string& text, int maximum, std::vector<int>& values) {
  values = parseNumbers(text, 1, maximum);
  if (values.empty()) {
    throw ArgumentError("\"" + text + "\" is not a list of milliseconds: expected numbers from 1 to " +
                        std::to_string(maximum) + " with commas between them, such as 50,100");
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

void parseRepeat(const std::string& text, std::optional<NodeRepeat>& repeat) {
  const std::vector<int> values = parseNumbers(text, 0, kMaxRepeatMs);
  if (values.size() != 2) {
    throw ArgumentError("\"" + text + "\" is not a delay and a period in ms: expected two numbers from 0 to " +
                        std::to_string(kMaxRepeatMs) + " with a comma between them, such as " +
                        listed({kRemotesRepeat.delayMs, kRemotesRepeat.periodMs}));
  }
  repeat = {values[0], values[1]};
}

std::string protocolNames(const std::string& separator) {
  std::string names;
  for (const Protocol& protocol : knownProtocols()) names += (names.empty() ? "" : separator) + protocol.name;
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
    throw ArgumentError("\"" + text + "\" is not a known protocol: expected one of " + protocolNames(", ") +
                        "; describe another one by --period, --tap and --hold");
  }
  remote.protocol = text;
}

void parseSession(const std::string& text, TuneOptions& options) {
  if (text.empty()) throw ArgumentError("the name is empty: expected a directory or a file, such as evening");
  options.session = text;
}

// The name of a file with this ending; `why` it must have that.
std::string parseFile(const std::string& text, const std::string& ending, const std::string& why) {
  if (text.size() <= ending.size() || text.substr(text.size() - ending.size()) != ending) {
    throw ArgumentError("\"" + text + "\" is not a name that ends in " + ending + ": " + why + ", such as remote" +
                        ending);
  }
  return text;
}

void parsePlot(const std::string& text, TuneOptions& options) {
  options.plot = parseFile(text, ".svg", "pictures are SVG");
}

void parseHtml(const std::string& text, TuneOptions& options) {
  options.html = parseFile(text, ".html", "pages are HTML");
}

// ---- All of them --------------------------------------------------------------------------------

// What a remote's description lacks is taken from its protocol, or follows from the rest.
void completeRemote(const ImaginedRemote& remote, TuneOptions& options) {
  options.protocol = *findProtocol(remote.protocol.value_or(knownProtocols().front().name));
  if (remote.periodMs) {
    options.protocol.name.clear();
    options.protocol.period = std::chrono::milliseconds(*remote.periodMs);
    options.protocol.tapLines = linesOfATap(options.protocol.period);
    options.protocol.keyUp = keyUpOf(options.protocol.period);
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
  if (options.gridIsGiven && (options.kernel || options.nodeGridIsGiven)) {
    throw ArgumentError(
        "--repeat-timeout and --release-timeout are for a remote of the LIRC daemon; one that the kernel decodes has "
        "--repeat-delay and --repeat-period");
  }
  const Grid& grid = options.grid;
  const Grid nodeGrid = {grid.loop, options.periodMs, options.delayMs, grid.pollMs};
  const std::size_t settings =
      std::max(options.gridIsGiven ? grid.size() : 0, options.nodeGridIsGiven ? nodeGrid.size() : 0);
  if (settings > kMaxSettings) {
    throw ArgumentError("the lists make " + std::to_string(settings) + " settings, and at most " +
                        std::to_string(kMaxSettings) + " can be tried at once");
  }
  completeRemote(remote, options);
}

// ---- Options ------------------------------------------------------------------------------------

void addImaginedRemote(CommandLine& line, const std::shared_ptr<ImaginedRemote>& remote) {
  line.addOption("--protocol", protocolNames("|"), "The remote's protocol; default: " + knownProtocols().front().name,
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

// A list of values to try, and whether it is given.
void addList(CommandLine& line, const char* name, const std::string& description, int maximum, std::vector<int>& values,
             bool& isGiven) {
  line.addOption(name, "LIST", description + "; default: " + listed(values),
                 [maximum, &values, &isGiven](const std::string& text) {
                   parseTimeouts(text, maximum, values);
                   isGiven = true;
                 });
}

void addGrids(CommandLine& line, TuneOptions& options, bool& timeoutIsGiven) {
  Grid& grid = options.grid;
  addList(line, "--repeat-timeout", "Values of LIRC_REPEAT_TIMEOUT to try", kMaxLircTimeoutMs, grid.repeatMs,
          options.gridIsGiven);
  addList(line, "--release-timeout", "Values of LIRC_RELEASE_TIMEOUT to try", kMaxLircTimeoutMs, grid.startMs,
          options.gridIsGiven);
  line.addOption("--kernel", "DELAY,PERIOD",
                 "Study a remote that the kernel decodes, whose node repeats after DELAY ms, then each PERIOD ms",
                 [&](const std::string& text) { parseRepeat(text, options.kernel); });
  addList(line, "--repeat-delay", "Of such a remote: values of the delay to try", kMaxRepeatMs, options.delayMs,
          options.nodeGridIsGiven);
  addList(line, "--repeat-period", "Of such a remote: values of the period to try", kMaxRepeatMs, options.periodMs,
          options.nodeGridIsGiven);
  addLoopOption(line, grid.loop);
  addList(line, "--timeout", "With --loop poll: how long each round of the application may wait for input",
          components::input::kLongestTimeoutMs, grid.pollMs, timeoutIsGiven);
}

void fill(std::string& text, const std::string& placeholder, const std::string& value) {
  text.replace(text.find(placeholder), placeholder.size(), value);
}

std::string helpText() {
  std::string text = kHelp;
  fill(text, "%HOLD%", std::to_string(kShortestHold.count()));
  fill(text, "%REMOTES%", listed({kRemotesRepeat.delayMs, kRemotesRepeat.periodMs}));
  return text;
}

}  // namespace

void addOptions(CommandLine& line, TuneOptions& options) {
  line.addArgument("SESSION", "A directory or a file of a remote, or of its node; default: an imagined one",
                   [&](const std::string& text) { parseSession(text, options); });
  const auto remote = std::make_shared<ImaginedRemote>();
  addImaginedRemote(line, remote);
  const auto timeoutIsGiven = std::make_shared<bool>(false);
  addGrids(line, options, *timeoutIsGiven);
  line.addFlag("--json", options.json, "Print one JSON object per setting, then the recommendation");
  line.addOption("--plot", "FILE.svg", "Draw the current and the recommended setting, and all of them, with gnuplot",
                 [&](const std::string& text) { parsePlot(text, options); });
  line.addOption("--html", "FILE.html", "Write a page that shows all settings, and what a tap and a held button give",
                 [&](const std::string& text) { parseHtml(text, options); });
  line.addCheck([=, &options] {
    checkTimeout(options.grid.loop, *timeoutIsGiven);
    check(*remote, options);
  });
  line.setHintForArguments(
      "one session is studied at a time: put evemu's description and events into one file; the values of a list have "
      "commas between them");
  addSessionFiles(line);
  line.setHelp(helpText());
}

Command command() {
  return makeCommand("tune", "Find the remote's two timeouts: try settings, and recommend one.", addOptions, run);
}

}  // namespace quarlo::tools::tune
