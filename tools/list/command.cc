#include "tools/list/command.h"

#include "tools/common/help_facts.h"

namespace quarlo::tools::list {
namespace {

constexpr char kHelp[] =
    R"(For each node: what kind of device it is and what it says of itself, its links,
what the reader gives of it if its path is passed, and whether autodetection
takes it as the mouse or as the keyboard, or why not and what to do. A warning
says what is wrong with a node although it is taken. To find out whether another
program has grabbed a node, each one is grabbed for a moment, as autodetection
does: what is typed in that moment reaches no other program.

Example: which node is the keyboard, and which are remotes?
  quarlo-input list --json | grep -E '"verdict":"keyboard"|"class":"remote"'

Exit status: 0 if there is a node; 1 if there is none; 2 for wrong arguments.

See also: quarlo-input doctor, quarlo-input monitor, evtest(1), docs/bring-up.md)";

}  // namespace

void addOptions(CommandLine& line, ListOptions& options) {
  line.addFlag("--json", options.json, "Print one JSON object per node");
  line.addCounter("-v,--verbose", options.verbosity, "Print the reader's own listing of event0 to event9, too");
  line.exclude("--json", "--verbose");
  addNodes(line);
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("list", "List the evdev nodes: which ones autodetection takes, and why.", addOptions, run);
}

}  // namespace quarlo::tools::list
