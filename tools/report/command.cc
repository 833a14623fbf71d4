#include "tools/report/command.h"

#include "tools/common/duration.h"
#include "tools/common/help_facts.h"
#include "tools/common/reader_options.h"
#include "tools/common/source_options.h"

namespace quarlo::tools::report {
namespace {

constexpr char kHelp[] =
    R"(The page is one file of HTML. It needs no network and no other file, so a copy
in an e-mail opens. It shows on one time line what each device sent and what the
reader made of it, and says what is wrong: taps that count twice, records that
gave nothing and why, keys that stay down. SESSION is what replay takes, or the
recording of any one node.

The page shows what was typed if the recording does, and says so; only you can
then read it.

With --live, what comes is recorded as record does it, and hidden as record
hides it, in a directory that is removed at the end.

Example: what someone did with a remote, and what someone does now
  quarlo-input report sessions/sofa -o sofa.html
  quarlo-input report --live 30 -o now.html

Exit status: 0 when the page was written; 1 if it was not, if the session is
damaged and the page shows what is whole, or as record has it of --live; 2 for
wrong arguments.

See also: quarlo-input record, quarlo-input replay, quarlo-input tune,
docs/report.md)";

bool asksForSources(const LiveOptions& live) {
  return live.mouse || live.keyboard || live.lirc || !live.further.empty() || live.shown.mask() != MaskOptions().mask();
}

void checkWhatIsShown(const ReportOptions& options) {
  const bool isLive = options.live.duration.count() != 0;
  if (isLive && !options.session.empty()) {
    throw ArgumentError("--live records a session of its own: expected it, or a SESSION");
  }
  if (!isLive && options.session.empty()) {
    throw ArgumentError("there is no SESSION: expected a directory or a file, or --live, such as --live 30");
  }
  if (!isLive && asksForSources(options.live)) {
    throw ArgumentError("sources, and what of them is shown, are for --live: expected --live, such as --live 30");
  }
}

}  // namespace

void addOptions(CommandLine& line, ReportOptions& options) {
  line.addArgument("SESSION", "A directory or a file", [&](const std::string& text) { options.session = text; });
  line.addArgument("EVENTS", "The file with the records, if SESSION is one with a description alone",
                   [&](const std::string& text) { options.events = text; });
  line.addRequiredOption("-o,--output", "FILE", "The page to write, such as page.html",
                         [&](const std::string& text) { options.output = text; });
  addSizeOption(line, options.maxX, options.maxY);
  line.addOption("--live", "SECONDS", "In place of SESSION: record what comes in so many seconds, or until Ctrl-C",
                 [&](const std::string& text) { options.live.duration = parseDuration(text); });
  addSourceOptions(line, options.live);
  line.addFlag("--show-keycodes", options.live.shown.showKeycodes, "With --live: show what is typed, too");
  line.addFlag("--show-modifiers", options.live.shown.showModifiers,
               "With --live: show modifiers and editing keys, but not what is typed");
  line.addCheck([&options] { checkWhatIsShown(options); });
  line.setHintForArguments("a page is of one session");
  line.addVariable("TMPDIR", "With --live: where the recording is kept meanwhile; default: /tmp");
  addSessionFiles(line);
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("report", "Write a recorded session as a page that shows what happened.", addOptions, run);
}

}  // namespace quarlo::tools::report
