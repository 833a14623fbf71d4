#include "tools/monitor/command.h"

#include "tools/common/numbers.h"
#include "tools/common/source_options.h"

namespace quarlo::tools::monitor {
namespace {

constexpr long kMaxCount = 2147483647;

constexpr char kHelp[] =
    R"(First says which of mouse, keyboard and remote are open, why each other one is
not, and what to do about it. Then prints one line per event until Ctrl-C: the
time since the start, the source, what it is, the key by the reader's name for
it. A key that the reader does not know is key 0, with its name and code in
Linux. A remote's button that it does not know gives no event, and is shown by
its name. With --loop poll, such a button is not shown, and the source of what
the remote did not send is "unknown" if both mouse and keyboard are open. While
it runs in the foreground, what is typed at its terminal does not show, and
reaches no shell.

Where the output is not a terminal, only keys that are known not to type are
shown; all others, modifiers and editing keys are shown as A, and names of
buttons that the reader does not know as (hidden). Not hidden are:
how many keys were pressed, and when; arrows, OK and clicks, which type on an
on-screen keyboard; the remote's lines, which -v writes to standard error.

--tui shows the pointer in its bounds, what is held, the remote's timing and the
last events on the whole terminal, of at least 60x16, and a row more for each
further node. Only Ctrl-C ends it.

Example: watch two keyboards and nothing else
  quarlo-input monitor --keyboard /dev/input/event3 --also /dev/input/event4 \
    --mouse none --lirc none

Exit status: 0 after Ctrl-C or N events; 1 if no source could be opened, a path
is neither an evdev node nor a FIFO, a further node is a FIFO or a source
already, a source (with --tui: the last one) went away, or the output was closed
or, for --tui, is not a terminal; 2 for wrong arguments.

See also: quarlo-input list, quarlo-input doctor, quarlo-input record,
evtest(1), irw(1), docs/monitor.md, docs/behaviour.md)";

}  // namespace

void addOptions(CommandLine& line, MonitorOptions& options) {
  addSourceOptions(line, options);
  addReaderOptions(line, options);
  line.addOption("--count", "N", "End after N events", [&options](const std::string& text) {
    options.count = parseNumber<long>(text, {"number of events", 1, kMaxCount, 10});
  });
  line.addFlag("--show-keycodes", options.shown.showKeycodes,
               "Show what is typed, also where the output is not a terminal");
  line.addFlag("--show-modifiers", options.shown.showModifiers,
               "There, show modifiers and editing keys, but not what is typed");
  line.addFlag("--clock", options.clock,
               "Print the time of day here, with the date, instead of the time since the start");
  line.addFlag("--tui", options.tui, "Show a screen that follows the devices, instead of lines");
  line.exclude("--tui", "--json");
  line.exclude("--tui", "--clock");
  line.addVariable("TERM", "With --tui: what the terminal is");
  line.addCheck([&options] {
    if (!options.pollTimeout || options.further.empty()) return;
    throw ArgumentError("--also is for the loop that waits: leave out --loop poll, or the further nodes");
  });
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("monitor", "Print the events of this machine's input devices as they come.", addOptions, run);
}

}  // namespace quarlo::tools::monitor
