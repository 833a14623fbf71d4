#include "tools/record/command.h"

#include "recording/lines.h"
#include "tools/common/duration.h"
#include "tools/common/help_facts.h"
#include "tools/common/source_options.h"

namespace quarlo::tools::record {
namespace {

constexpr char kHelp[] =
    R"(First says which of mouse, keyboard and remote are open, why each other one is
not, and what to do about it. Then records until Ctrl-C; other programs get the
input as well. A source that sent nothing has no file; those of further nodes
are node-1.evemu and so on, in the order of --also. While it runs in the
foreground, what is typed at its terminal does not show, and reaches no shell.
There a line says how many records and lines have come; where the output is not
a terminal, nothing is printed until the end.

What came is in the files at once, and stays there when the program is killed,
the disk gets full, a device is unplugged, or the daemon ends. Every half second
it goes to the disk, beside the recording, which does not wait for that. So a
power cut takes at most the last second, as long as the disk needs less than
half a second for what comes. While the disk is busy, what comes is kept in
memory, and is lost if the program is killed. The end waits for the disk.

A file that is full ends, and the others go on. With --rotate it goes on in a
next one that can be used by itself: mouse.evemu, mouse.0002.evemu, ...

When records of a node were lost, the difference to the keys that are down then
is recorded as if the node had sent it; when a node is gone, what it held comes
up. So a replay gives what an application gets that uses InputSources.

Only keys and remote buttons that are known not to type are recorded as they
are. All others, modifiers and editing keys are recorded as A, those of a remote
as 1, and their raw codes as 0. Not hidden are: how many keys were pressed, and
when; arrows, OK and clicks, which type on an on-screen keyboard.

Example: record for ten seconds what a remote sends, and play it
  quarlo-input record --mouse none --keyboard none --duration 10 -o sofa &&
    quarlo-input replay sofa

Exit status: 0 after Ctrl-C or the duration; 1 if SESSION exists, no source
could be opened, a path is not an evdev node, a further node is a source
already, nothing came, no source was left, a file was full, or not all could be
written; 2 for wrong arguments.

See also: quarlo-input replay, quarlo-input tune, evemu-record(1),
docs/bring-up.md)";

void parseSession(const std::string& text, RecordOptions& options) {
  if (text.empty()) throw ArgumentError("the name is empty: expected a directory to make, such as evening");
  options.session = text;
}

}  // namespace

void addOptions(CommandLine& line, RecordOptions& options) {
  addSourceOptions(line, options);
  line.addRequiredOption("-o,--output", "SESSION", "The directory to make, which must not exist yet",
                         [&](const std::string& text) { parseSession(text, options); });
  line.addOption("--duration", "SECONDS", "End after so many seconds; default: with Ctrl-C",
                 [&](const std::string& text) { options.duration = parseDuration(text); });
  line.addFlag("--rotate", options.writing.rotates,
               "Go on in a next file when one has " + std::to_string(recording::kMostLines) + " lines or " +
                   std::to_string(recording::kLargestFile >> 20) + " MiB");
  line.addFlag("--sync", options.syncsAtOnce, "Write to the disk whenever something came, not only every half second");
  line.addFlag("--show-keycodes", options.shown.showKeycodes,
               "Record what is typed, too; only the owner can then read the session");
  line.addFlag("--show-modifiers", options.shown.showModifiers,
               "Record modifiers and editing keys, but not what is typed");
  addSessionFiles(line);
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("record", "Record what this machine's input devices send, as a session.", addOptions, run);
}

}  // namespace quarlo::tools::record
