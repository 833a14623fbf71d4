#include "tools/replay/command.h"

#include "tools/common/help_facts.h"

namespace quarlo::tools::replay {
namespace {

constexpr char kHelp[] =
    R"(The records go through the real reader, on a simulated machine with a clock of
its own: a replay gives the same events (with the same --loop and --timeout). A
session is a directory with any of these files, or one such file. A long
recording goes on in mouse.0002.evemu, of each file, and so on. Times count from
the start of the recording; those of a directory may also all count from 1970 or
from a machine's start. Of a recording whose description and records are apart,
as evemu once wrote them, give both files.

Of a session that is damaged, all is played that is whole: each file up to its
first line that is wrong, and the files beside one of which nothing can be used.
Warnings say what is missing.

Example: see someone use a remote
  quarlo-input replay --realtime sessions/sofa

Exit status: 0 when all was played, or after Ctrl-C; 1 if the session is damaged
(the message names the file and the line), has further nodes for --loop poll, or
the output was closed; 2 for wrong arguments.

See also: quarlo-input record, quarlo-input report, quarlo-input tune,
evemu-play(1), docs/behaviour.md)";

void checkRecords(const ReplayOptions& options) {
  if (!options.records) return;
  if (!options.json) throw ArgumentError("--records is for JSON: expected --json beside it");
  if (options.pollTimeout) {
    throw ArgumentError("--records is for the loop that waits: one that polls does not know what an event came of");
  }
}

}  // namespace

void addOptions(CommandLine& line, ReplayOptions& options) {
  line.addRequiredArgument("SESSION", "A directory or a file",
                           [&](const std::string& text) { options.session = text; });
  line.addArgument("EVENTS", "The file with the records, if SESSION is one with a description alone",
                   [&](const std::string& text) { options.events = text; });
  addReaderOptions(line, options);
  line.addFlag("--records", options.records,
               "With --json: print each record and each line of the remote, too, and which event came of it");
  line.addCheck([&options] { checkRecords(options); });
  line.addFlag("--realtime", options.realtime, "Play as fast as it was recorded, not as fast as possible");
  line.addFlag("--lirc-environment", options.lircEnvironment,
               "Let LIRC_REPEAT_TIMEOUT and LIRC_RELEASE_TIMEOUT count; default: ignored");
  line.setHintForArguments("one session is played at a time");
  addSessionFiles(line);
  line.setHelp(kHelp);
}

Command command() { return makeCommand("replay", "Play a recorded session, and print its events.", addOptions, run); }

}  // namespace quarlo::tools::replay
