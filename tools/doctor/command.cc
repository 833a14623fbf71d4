#include "tools/doctor/command.h"

#include "tools/common/help_facts.h"
#include "tools/common/source_options.h"

namespace quarlo::tools::doctor {
namespace {

constexpr char kHelp[] =
    R"(Looks at the nodes, who may read them and who has grabbed them; at the LIRC
daemon, its socket, its receiver and its buttons; at the two LIRC_... variables,
the console behind the screen, the clock and the kernel. Each finding says what
is wrong, where, and what to do, worst first. Give it the paths that the
application is given, and run it as the application's user and in its
environment; with sudo it can name the processes of others, too.

It changes nothing. To find out whether another program has grabbed a node,
each one is grabbed for a moment, as autodetection does: what is typed in that
moment reaches no other program. lircd is asked for its remotes and buttons.

Example: what is wrong with the application's keyboard and remote?
  quarlo-input doctor --mouse none --lirc /run/lirc/lircd

Exit status: 0 if nothing was found; 1 if something was; 2 for wrong arguments.

See also: quarlo-input list, quarlo-input monitor, lircd(8), docs/doctor.md,
docs/permissions.md)";

}  // namespace

void addOptions(CommandLine& line, DoctorOptions& options) {
  addSourceOptions(line, options, LongSocketPath::kIsTaken);
  line.addFlag("--json", options.json, "Print one JSON object per finding; all else goes to standard error");
  addTimeoutVariables(line);
  line.addCheck([&options] {
    if (!isLeftOut(options.mouse) || !isLeftOut(options.keyboard) || !isLeftOut(options.lirc)) return;
    if (!options.further.empty()) return;
    throw ArgumentError("all sources are left out: leave out one \"none\", or name a node with --also");
  });
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("doctor", "Find what is wrong with a machine, and say what to do about it.", addOptions, run);
}

}  // namespace quarlo::tools::doctor
