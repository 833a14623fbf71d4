#include "tools/report/command.h"

#include "tools/common/reader_options.h"

namespace quarlo::tools::report {
namespace {

constexpr char kHelp[] =
    R"(The page is one file of HTML. It needs no network and no other file, so a copy in
an e-mail opens. It shows on one time line what each device sent and what the
reader made of it, and says what is wrong: taps that count twice, records that
gave nothing and why, keys that stay down. SESSION is what replay takes, or the
recording of any one node.

The page shows what was typed if the recording does, and says so.

Example: what someone did with a remote
  quarlo-input report sessions/sofa -o sofa.html

Exit status: 0 when the page was written; 1 if it was not, or if the session is
damaged and the page shows what is whole; 2 for wrong arguments.)";

}  // namespace

void addOptions(CommandLine& line, ReportOptions& options) {
  line.addRequiredArgument("SESSION", "A directory or a file",
                           [&](const std::string& text) { options.session = text; });
  line.addArgument("EVENTS", "The file with the records, if SESSION is one with a description alone",
                   [&](const std::string& text) { options.events = text; });
  line.addRequiredOption("-o,--output", "FILE", "The page to write, such as page.html",
                         [&](const std::string& text) { options.output = text; });
  addSizeOption(line, options.maxX, options.maxY);
  line.setHintForArguments("a page is of one session");
  line.setHelp(kHelp);
}

Command command() {
  return makeCommand("report", "Write a recorded session as a page that shows what happened.", addOptions, run);
}

}  // namespace quarlo::tools::report
