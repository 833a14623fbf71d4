#include "tools/keymap/command.h"

namespace quarlo::tools::keymap {
namespace {

constexpr char kHelp[] =
    R"(For every key code that Linux has a name for, and every remote button: the
application's key and its code, and the character that it types (or its number,
if it cannot be shown). "key 0" is a key event without a code, "no event" none
at all. The reader itself is asked, on a simulated machine. evtest tells the
Linux name of what a device sends, irw the name of a remote's button.

Example: which keys change the volume?
  quarlo-input keymap | grep -i volume

Exit status: 0 if all was printed; 1 if the output was closed; 2 for wrong
arguments.

See also: quarlo-input monitor, evtest(1), irw(1), docs/keymap.md)";

}  // namespace

void addOptions(CommandLine& line, KeymapOptions& options) {
  line.addFlag("--json", options.json, "Print one JSON object per key or button");
  line.addFlag("--markdown", options.markdown, "Print docs/keymap.md: only what gives something");
  line.exclude("--json", "--markdown");
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("keymap", "Print what each key, mouse button and remote button gives.", addOptions, run);
}

}  // namespace quarlo::tools::keymap
