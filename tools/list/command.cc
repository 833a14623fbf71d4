#include "tools/list/command.h"

namespace quarlo::tools::list {
namespace {

constexpr char kHelp[] =
    R"(For each node: its name, its links, and whether autodetection takes it as the
mouse or as the keyboard, or why not and what to do. The reader's own listing of
event0 to event9 follows. To find out whether another program has grabbed a
node, each one is grabbed for a moment, as autodetection does: what is typed in
that moment reaches no other program.

Example: which node is the keyboard?
  quarlo-input list --json | grep '"verdict":"keyboard"'

Exit status: 0 if there is a node; 1 if there is none; 2 for wrong arguments.)";

}  // namespace

void addOptions(CommandLine& line, ListOptions& options) {
  line.addFlag("--json", options.json, "Print one JSON object per node, without the reader's own listing");
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("list", "List the evdev nodes: which ones autodetection takes, and why.", addOptions, run);
}

}  // namespace quarlo::tools::list
