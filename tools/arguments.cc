#include "tools/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "input/linux_input_reader_limits.h"

namespace quarlo::tools {
namespace {

using components::input::kLongestLircPath;
using components::input::kLongestTimeoutMs;

constexpr std::uint32_t kLargestSize = 65536;  // an event's coordinates have 16 bits
constexpr long kMostEvents = 2147483647;
constexpr int kLongestLircTimeoutMs = 2147483647;
constexpr std::size_t kMostValues = 8;  // of each timeout that `tune` tries
constexpr std::size_t kMostSettings = 200;
constexpr int kShortestHoldMs = kShortestHold.count();

template <typename Number>
bool parse(const std::string& text, Number least, Number most, Number& value) {
  const char* last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, value);
  return error == std::errc() && end == last && value >= least && value <= most;
}

void parseSize(const std::string& text, ReaderOptions& options) {
  const std::size_t x = text.find('x');
  std::uint32_t width;
  std::uint32_t height;
  if (x == std::string::npos || !parse(text.substr(0, x), 1U, kLargestSize, width) ||
      !parse(text.substr(x + 1), 1U, kLargestSize, height)) {
    throw CLI::ValidationError(
        "--size", text + " is no size such as 1920x1080, of numbers from 1 to " + std::to_string(kLargestSize));
  }
  options.maxX = width - 1;
  options.maxY = height - 1;
}

void parseTimeout(const std::string& text, ReaderOptions& options) {
  if (text == "-1") {
    throw CLI::ValidationError("--timeout",
                               "-1 is refused: without a limit, the reader can sleep through input once a wait has "
                               "ended; use a short time such as 10");
  }
  if (!parse(text, 1, kLongestTimeoutMs, options.timeoutMs)) {
    throw CLI::ValidationError("--timeout",
                               text + " is no number of milliseconds from 1 to " + std::to_string(kLongestTimeoutMs));
  }
}

void parseCount(const std::string& text, MonitorOptions& options) {
  if (parse(text, 1L, kMostEvents, options.count)) return;
  throw CLI::ValidationError("--count", text + " is no number of events from 1 to " + std::to_string(kMostEvents));
}

void parseDuration(const std::string& text, RecordOptions& options) {
  constexpr double kShortest = 0.1;
  constexpr double kLongest = 86400;
  double seconds;
  const char* last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, seconds, std::chars_format::fixed);
  if (error != std::errc() || end != last || !(seconds >= kShortest && seconds <= kLongest)) {
    throw CLI::ValidationError("--duration", text + " is no number of seconds from 0.1 to 86400");
  }
  options.duration = std::chrono::microseconds(std::llround(seconds * 1e6));
}

// What the command line says of an imagined remote; the rest follows from its protocol.
struct ImaginedRemote {
  std::optional<std::string> protocol;
  std::optional<int> periodMs;
  std::optional<int> tapLines;
  std::optional<int> holdMs;
};

void parseNumber(const std::string& option, const std::string& text, const std::string& what, int least, int most,
                 std::optional<int>& number) {
  int value;
  if (!parse(text, least, most, value)) {
    throw CLI::ValidationError(
        option, text + " is no number of " + what + " from " + std::to_string(least) + " to " + std::to_string(most));
  }
  number = value;
}

void parseTimeouts(const std::string& option, const std::string& text, int most, std::vector<int>& values) {
  values.clear();
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    int value;
    if (!parse(text.substr(start, end - start), 1, most, value)) {
      throw CLI::ValidationError(
          option, text + " is no list such as 50,100 of numbers of milliseconds from 1 to " + std::to_string(most));
    }
    values.push_back(value);
    start = end + 1;
  }
  std::sort(values.begin(), values.end());
  values.erase(std::unique(values.begin(), values.end()), values.end());
  if (values.size() > kMostValues) {
    throw CLI::ValidationError(option, "at most " + std::to_string(kMostValues) + " values can be tried at once");
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

void parseProtocol(const std::string& text, ImaginedRemote& remote) {
  const std::vector<Protocol>& known = knownProtocols();
  if (std::none_of(known.begin(), known.end(), [&](const Protocol& protocol) { return protocol.name == text; })) {
    throw CLI::ValidationError(
        "--protocol", text + " is none of " + protocolNames() + "; describe it by --period, --tap and --hold instead");
  }
  remote.protocol = text;
}

// What a remote's description lacks is taken from its protocol, or follows from the rest.
void completeRemote(const ImaginedRemote& remote, TuneOptions& options) {
  const std::vector<Protocol>& known = knownProtocols();
  const std::string name = remote.protocol.value_or(known.front().name);
  options.protocol =
      *std::find_if(known.begin(), known.end(), [&](const Protocol& protocol) { return protocol.name == name; });
  if (remote.periodMs) {
    options.protocol.name.clear();
    options.protocol.period = std::chrono::milliseconds(*remote.periodMs);
    options.protocol.tapLines = linesOfATap(options.protocol.period);
  }
  if (remote.tapLines) options.protocol.tapLines = *remote.tapLines;
  if (remote.holdMs) options.hold = std::chrono::milliseconds(*remote.holdMs);
  const std::chrono::microseconds tap = (options.protocol.tapLines - 1) * options.protocol.period;
  if (tap >= kShortestHold) {
    throw CLI::ValidationError("--tap", std::to_string(options.protocol.tapLines) + " lines take " +
                                            std::to_string(tap.count() / 1000) +
                                            " ms: that is a held button, a tap takes less than " +
                                            std::to_string(kShortestHold.count()) + " ms");
  }
}

void parseSession(const std::string& text, TuneOptions& options) {
  if (text.empty()) throw CLI::ValidationError("session", "the name is empty");
  options.session = text;
}

void parsePlot(const std::string& text, TuneOptions& options) {
  constexpr std::string_view kEnding = ".svg";
  if (text.size() <= kEnding.size() || text.substr(text.size() - kEnding.size()) != kEnding) {
    throw CLI::ValidationError("--plot", "\"" + text + "\" does not end in .svg: pictures are SVG, such as remote.svg");
  }
  options.plot = text;
}

void checkTune(const ImaginedRemote& remote, TuneOptions& options) {
  if (!options.session.empty() && (remote.protocol || remote.periodMs || remote.tapLines || remote.holdMs)) {
    throw CLI::ValidationError(
        "a session has a remote of its own: leave out --protocol, --period, --tap and --hold, or the session");
  }
  const Grid& grid = options.grid;
  const std::size_t settings = grid.repeatMs.size() * grid.releaseMs.size() * grid.pollMs.size();
  if (settings > kMostSettings) {
    throw CLI::ValidationError("the lists make " + std::to_string(settings) + " settings, and at most " +
                               std::to_string(kMostSettings) + " can be tried at once");
  }
  completeRemote(remote, options);
}

void parseSession(const std::string& text, RecordOptions& options) {
  if (text.empty()) throw CLI::ValidationError("--output", "the name is empty");
  options.session = text;
}

void checkLircPath(const std::string& path) {
  if (path.size() <= kLongestLircPath) return;
  throw CLI::ValidationError("--lirc", "the path has " + std::to_string(path.size()) +
                                           " characters, and a socket's can have " + std::to_string(kLongestLircPath) +
                                           "; use a shorter one, such as a link");
}

// A flag takes no value: it is there or not, or counts how often it is there.
template <typename Value>
void addFlag(CLI::App& command, const std::string& name, Value& value, const std::string& description) {
  command.add_flag(name, value, description)->disable_flag_override();
}

void addReaderOptions(CLI::App& command, ReaderOptions& options) {
  command
      .add_option_function<std::string>(
          "--size", [&](const std::string& text) { parseSize(text, options); },
          "The screen that the pointer moves on; default: 1920x1080")
      ->type_name("WxH");
  command
      .add_option_function<std::string>(
          "--timeout", [&](const std::string& text) { parseTimeout(text, options); },
          "How long each round may wait for input, in milliseconds; default: 10")
      ->type_name("MS");
  addFlag(command, "--json", options.json, "Print one JSON object per event; all else goes to standard error");
  addFlag(command, "-v,--verbose", options.verbosity,
          "Show the reader's log, and records without an event; -vv: the remote's timing, too");
}

void addSource(CLI::App& command, const std::string& option, SourcePath& source, const std::string& description,
               const std::function<void(const std::string&)>& check) {
  command
      .add_option_function<std::string>(
          option,
          [&source, check](const std::string& path) {
            check(path);
            source = path;
          },
          description)
      ->type_name("PATH");
}

void addSources(CLI::App& command, SourcePaths& sources) {
  const auto anyPath = [](const std::string&) {};
  addSource(command, "--mouse", sources.mouse, "The mouse's evdev node, or \"none\"; default: searched for", anyPath);
  addSource(command, "--keyboard", sources.keyboard, "The same for the keyboard", anyPath);
  addSource(command, "--lirc", sources.lirc, "The LIRC daemon's socket, or \"none\"; default: searched for",
            checkLircPath);
}

CLI::App* addMonitor(CLI::App& app, MonitorOptions& options) {
  CLI::App* command = app.add_subcommand("monitor", "Print the events of this machine's input devices as they come.");
  addSources(*command, options);
  addReaderOptions(*command, options);
  command
      ->add_option_function<std::string>(
          "--count", [&options](const std::string& text) { parseCount(text, options); }, "End after N events")
      ->type_name("N");
  addFlag(*command, "--show-keycodes", options.shown.showKeycodes,
          "Show what is typed where the output is no terminal, too");
  addFlag(*command, "--show-modifiers", options.shown.showModifiers,
          "There, show modifiers and editing keys, but not what is typed");
  command->add_flag("--tui", options.tui, "Show a screen that follows the devices, instead of lines")
      ->disable_flag_override()
      ->excludes("--json");
  command->footer(
      "Says first which of mouse, keyboard and remote are open, and why each other one is not and what\n"
      "to do. Then prints one line per event, with the time since the start in seconds, until Ctrl-C.\n"
      "Where the output is no terminal, only keys that are known not to type are shown; all others, modifiers\n"
      "and editing keys are shown as A. Not hidden are: how many keys were pressed, and when; arrows, OK and\n"
      "clicks, which type on an on-screen keyboard; the remote's lines, which -v writes to standard error.\n"
      "--tui shows the pointer in its bounds, what is held, the remote's timing and the last events on the\n"
      "whole terminal, of at least 60x16. What is typed does not reach the shell; only Ctrl-C ends it.\n\n"
      "Example: watch one keyboard and nothing else\n"
      "  quarlo-input monitor --keyboard /dev/input/event3 --mouse none --lirc none\n\n"
      "Exit status: 0 after Ctrl-C or N events; 1 if no source could be opened, a path is no evdev node\n"
      "and no FIFO, a source (with --tui: the last one) went away, or the output was closed or, for --tui,\n"
      "is no terminal; 2 for wrong arguments.");
  return command;
}

CLI::App* addList(CLI::App& app, ListOptions& options) {
  CLI::App* command = app.add_subcommand("list", "List the evdev nodes, and which ones autodetection takes and why.");
  addFlag(*command, "--json", options.json, "Print one JSON object per node, without the reader's own listing");
  command->footer(
      "For each node: its name, its links, and whether autodetection takes it as the mouse or as the\n"
      "keyboard, or why not and what to do. The reader's own listing of event0 to event" +
      std::to_string(components::input::kHighestListedNode) +
      " follows.\n"
      "To find out whether another program holds a node, each one is grabbed for a moment, as\n"
      "autodetection does: what is typed in that moment reaches no other program.\n\n"
      "Example: which node is the keyboard?\n"
      "  quarlo-input list --json | grep '\"verdict\":\"keyboard\"'\n\n"
      "Exit status: 0 if there is a node; 1 if there is none; 2 for wrong arguments.");
  return command;
}

CLI::App* addKeymap(CLI::App& app, KeymapOptions& options) {
  CLI::App* command = app.add_subcommand("keymap", "Print what each key, mouse button and remote button gives.");
  addFlag(*command, "--json", options.json, "Print one JSON object per key or button");
  addFlag(*command, "--markdown", options.markdown, "Print docs/keymap.md: only what gives something");
  command->get_option("--json")->excludes("--markdown");
  command->footer(
      "For every key code that Linux has a name for, and every remote button: the application's key and\n"
      "its code, and the character that it types (or its number, if it cannot be shown). \"key 0\" is a key\n"
      "event without a code, \"no event\" none at all.\n"
      "The reader itself is asked, on a simulated machine. evtest tells the Linux name of what a device\n"
      "sends, irw the name of a remote's button.\n\n"
      "Example: which keys change the volume?\n"
      "  quarlo-input keymap | grep -i volume\n\n"
      "Exit status: 0 if all was printed; 1 if the output was closed; 2 for wrong arguments.");
  return command;
}

CLI::App* addRecord(CLI::App& app, RecordOptions& options) {
  CLI::App* command = app.add_subcommand("record", "Record what this machine's input devices send, as a session.");
  addSources(*command, options);
  command
      ->add_option_function<std::string>(
          "-o,--output", [&options](const std::string& text) { parseSession(text, options); },
          "The folder to make, which must not exist yet")
      ->required()
      ->type_name("SESSION");
  command
      ->add_option_function<std::string>(
          "--duration", [&options](const std::string& text) { parseDuration(text, options); },
          "End after so many seconds; default: with Ctrl-C")
      ->type_name("SECONDS");
  addFlag(*command, "--show-keycodes", options.shown.showKeycodes,
          "Record what is typed, too; only the owner can then read the session");
  addFlag(*command, "--show-modifiers", options.shown.showModifiers,
          "Record modifiers and editing keys, but not what is typed");
  command->footer(
      "Says first which of mouse, keyboard and remote are open, and why each other one is not and what\n"
      "to do. Then records until Ctrl-C; other programs get the input as well. What came is in the files at\n"
      "once, and stays there when the disk gets full, a device is unplugged, or the daemon ends. A source\n"
      "that sent nothing has no file.\n"
      "Only keys and remote buttons that are known not to type are recorded as they are. All others, modifiers\n"
      "and editing keys are recorded as A, a remote's as 1, and their codes as 0. Not hidden are: how many keys\n"
      "were pressed, and when; arrows, OK and clicks, which type on an on-screen keyboard.\n\n"
      "Example: record for ten seconds what a remote sends, and play it\n"
      "  quarlo-input record --mouse none --keyboard none --duration 10 -o sofa && quarlo-input replay sofa\n\n"
      "Exit status: 0 after Ctrl-C or the duration; 1 if SESSION exists, no source could be opened, a path\n"
      "is no evdev node, nothing came, no source was left, or not all could be written; 2 for wrong\n"
      "arguments.");
  return command;
}

CLI::App* addReplay(CLI::App& app, ReplayOptions& options) {
  CLI::App* command = app.add_subcommand("replay", "Play a recorded session, and print its events.");
  command->add_option("session", options.session, "A folder or a file")->required()->type_name("SESSION");
  addReaderOptions(*command, options);
  addFlag(*command, "--realtime", options.realtime, "Play as fast as it was recorded, not as fast as possible");
  addFlag(*command, "--lirc-environment", options.lircEnvironment,
          "Let LIRC_REPEAT_TIMEOUT and LIRC_RELEASE_TIMEOUT count; default: ignored");
  command->footer(
      "The records go through the real reader, on a simulated machine with a clock of its own: a replay\n"
      "gives the same events (with the same --timeout). A session is a folder with any of mouse.evemu and\n"
      "keyboard.evemu (as evemu-record writes them) and remote.lirc (lines of \"<seconds>.<microseconds> <what\n"
      "lircd sent>\"), or one such file.\n\n"
      "Example: see someone use a remote\n"
      "  quarlo-input replay --realtime sessions/sofa\n\n"
      "Exit status: 0 when all was played, or after Ctrl-C; 1 if the session cannot be used (the message\n"
      "names the file and the line) or the output was closed; 2 for wrong arguments.");
  return command;
}

void addTextOption(CLI::App& command, const std::string& option, const char* type,
                   const std::function<void(const std::string&)>& take, const std::string& description) {
  command.add_option_function<std::string>(option, take, description)->type_name(type);
}

void addImaginedRemote(CLI::App& command, ImaginedRemote& remote) {
  addTextOption(
      command, "--protocol", "NAME", [&](const std::string& text) { parseProtocol(text, remote); },
      "The remote's protocol: " + protocolNames() + "; default: " + knownProtocols().front().name);
  addTextOption(
      command, "--period", "MS",
      [&](const std::string& text) {
        parseNumber("--period", text, "milliseconds", 10, kShortestHoldMs - 1, remote.periodMs);
      },
      "How long from line to line while a button is held");
  addTextOption(
      command, "--tap", "LINES",
      [&](const std::string& text) { parseNumber("--tap", text, "lines", 1, 50, remote.tapLines); },
      "How many lines come of a tap; default: those of " + std::to_string(kSlowTap.count()) + " ms");
  addTextOption(
      command, "--hold", "MS",
      [&](const std::string& text) {
        parseNumber("--hold", text, "milliseconds", kShortestHoldMs, 10000, remote.holdMs);
      },
      "How long a button is held; default: " + std::to_string(TuneOptions().hold.count()));
}

void addGrid(CLI::App& command, Grid& grid) {
  addTextOption(
      command, "--repeat-timeout", "LIST",
      [&](const std::string& text) { parseTimeouts("--repeat-timeout", text, kLongestLircTimeoutMs, grid.repeatMs); },
      "Values of LIRC_REPEAT_TIMEOUT to try; default: " + listed(grid.repeatMs));
  addTextOption(
      command, "--release-timeout", "LIST",
      [&](const std::string& text) { parseTimeouts("--release-timeout", text, kLongestLircTimeoutMs, grid.releaseMs); },
      "Values of LIRC_RELEASE_TIMEOUT to try; default: " + listed(grid.releaseMs));
  addTextOption(
      command, "--timeout", "LIST",
      [&](const std::string& text) { parseTimeouts("--timeout", text, kLongestTimeoutMs, grid.pollMs); },
      "How long each round of the application may wait for input; default: " + listed(grid.pollMs));
}

CLI::App* addTune(CLI::App& app, TuneOptions& options, ImaginedRemote& remote) {
  CLI::App* command = app.add_subcommand("tune", "Find the remote's two timeouts: try settings, and recommend one.");
  addTextOption(
      *command, "session", "SESSION", [&options](const std::string& text) { parseSession(text, options); },
      "A folder or a file with a remote's lines; default: imagined ones");
  addImaginedRemote(*command, remote);
  addGrid(*command, options.grid);
  addFlag(*command, "--json", options.json, "Print one JSON object per setting, then the recommendation");
  addTextOption(
      *command, "--plot", "FILE.svg", [&options](const std::string& text) { parsePlot(text, options); },
      "Draw the present and the recommended setting, and all of them, with gnuplot");
  command->callback([&remote, &options] { checkTune(remote, options); });
  command->footer(
      "The lines of a tap and of a held button go through the real reader, on a simulated machine, with each\n"
      "setting. When the reader gets a line depends on when the application polls: the press comes at eight\n"
      "moments between two polls, while the application's own work takes 0.1, 1 and 3 ms a round, and the\n"
      "worst counts. In a session, a press begins with a line whose repeat count is 0; it is a held button\n"
      "from " +
      std::to_string(kShortestHoldMs) +
      " ms on, and a tap otherwise. Both must be there. --plot needs gnuplot (package gnuplot-nox).\n\n"
      "Example: a remote of which a tap sends three lines\n"
      "  quarlo-input tune --period 108 --hold 2000 --tap 3\n\n"
      "Exit status: 0 when done; 1 if the session cannot be used, or the picture not be made; 2 for wrong\n"
      "arguments.");
  return command;
}

}  // namespace

Request parseArguments(int argc, const char* const* argv) {
  CLI::App app("Mouse, keyboard and infrared remote on Linux, as one stream of events.", "quarlo-input");
  app.require_subcommand(0, 1);  // so that a word that is none gets named
  app.set_version_flag("--version", QUARLO_VERSION, "Print the version and exit");
  app.footer("Each command has its own --help. Exit status: 0 done, 1 failed, 2 wrong arguments.");
  MonitorOptions monitorOptions;
  ListOptions listOptions;
  KeymapOptions keymapOptions;
  RecordOptions recordOptions;
  ReplayOptions replayOptions;
  TuneOptions tuneOptions;
  ImaginedRemote imaginedRemote;
  const CLI::App* monitorCommand = addMonitor(app, monitorOptions);
  const CLI::App* listCommand = addList(app, listOptions);
  const CLI::App* keymapCommand = addKeymap(app, keymapOptions);
  const CLI::App* recordCommand = addRecord(app, recordOptions);
  const CLI::App* replayCommand = addReplay(app, replayOptions);
  const CLI::App* tuneCommand = addTune(app, tuneOptions, imaginedRemote);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return Information{app.help()};
  } catch (const CLI::CallForVersion& version) {
    return Information{std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return UsageError{error.what()};
  }
  if (monitorCommand->parsed()) return monitorOptions;
  if (listCommand->parsed()) return listOptions;
  if (keymapCommand->parsed()) return keymapOptions;
  if (recordCommand->parsed()) return recordOptions;
  if (replayCommand->parsed()) return replayOptions;
  if (tuneCommand->parsed()) return tuneOptions;
  return UsageError{"a command is required: monitor, list, keymap, record, replay or tune"};
}

}  // namespace quarlo::tools
