#include "tools/report/report.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "recording/lines.h"
#include "tools/common/damages.h"
#include "tools/common/html_page.h"
#include "tools/common/output.h"
#include "tools/common/stop_request.h"
#include "tools/report/findings.h"
#include "tools/report/happened.h"
#include "tools/report/page_data.h"

namespace quarlo::tools::report {
namespace {

using namespace std::string_view_literals;
using recording::Session;

constexpr HtmlPage kPage = {
#include "report_page.inc"
};

// ---- Where it comes from ------------------------------------------------------------------------

bool isDirectory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string lastPartOf(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path.substr(path.rfind('/') + 1);
}

// What a file says at its top of what it hides.
std::optional<Mask> maskOf(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  for (std::size_t length = 0; std::getline(file, line) && line[0] == '#' && length < recording::kLongestLine;
       length += line.size()) {
    for (const Mask mask : {Mask::kNothing, Mask::kTyping, Mask::kTypingAndModifiers}) {
      if (line == "# " + std::string(remarkOn(mask))) return mask;
    }
  }
  return std::nullopt;
}

// In the order in which the page has them.
std::vector<SourceAbout> sourcesOf(const Session& session, const std::string& place) {
  std::vector<SourceAbout> sources;
  const auto add = [&](InputLoop::Source source, const std::string& file) {
    const std::string path = isDirectory(place) ? recording::pathIn(place, file) : place;
    sources.push_back({source, lastPartOf(path), maskOf(path)});
  };
  if (session.mouse) add(InputLoop::kMouse, recording::kMouseFile);
  if (session.keyboard) add(InputLoop::kKeyboard, recording::kKeyboardFile);
  if (session.remote) add(InputLoop::kRemote, recording::kRemoteFile);
  for (std::size_t i = 0; i < session.further.size(); ++i) {
    if (session.further[i]) add(furtherSource(i), recording::furtherNodeFile(i));
  }
  return sources;
}

// ---- The page -----------------------------------------------------------------------------------

// As of a recording that does, only the owner may then read the page.
bool showsTyping(const std::vector<SourceAbout>& sources) {
  return std::any_of(sources.begin(), sources.end(),
                     [](const SourceAbout& source) { return source.mask == Mask::kNothing; });
}

PlayOptions playOptions(const ReportOptions& options) {
  PlayOptions result;
  result.maxX = options.maxX;
  result.maxY = options.maxY;
  return result;
}

// Returns the exit status.
int writePage(const Session& session, const std::string& name, const std::vector<SourceAbout>& sources,
              const ReportOptions& options) {
  silenceReader();
  const PlayOptions playing = playOptions(options);
  const Happened happened = play(session, playing);
  const Findings findings = findAll(session, happened, playing);
  if (showsTyping(sources)) umask(S_IRWXG | S_IRWXO);
  HtmlFile file(options.output, kPage);
  JsonWriter writer([&file](std::string_view json) { file.add(json); });
  writePageData({name, session, happened, findings, playing, sources}, writer);
  file.finish();
  std::printf("%s: %s, %s\n", printable(options.output).c_str(),
              counted(static_cast<std::int64_t>(happened.events.size()), "event").c_str(),
              counted(static_cast<std::int64_t>(findings.size()), "finding").c_str());
  if (happened.isWhole) return kDone;
  return fail(name + ": the remote's lines come faster than the reader takes them; the rest is not in the page");
}

int reportRecorded(const ReportOptions& options) {
  const Session session = options.events ? recording::readPair(options.session, *options.events)
                                         : recording::readSession(options.session, recording::SingleNode::kAny);
  const int status = sayDamages(session);
  const int written = writePage(session, lastPartOf(options.session), sourcesOf(session, options.session), options);
  return std::max(status, written);
}

int reportLive(const ReportOptions& options) {
  catchStopRequests();
  const LiveSession live;
  const int status = live.record(options.live);
  if (!isDirectory(live.path())) return status;
  const Session session = recording::readSession(live.path());
  return std::max(status, writePage(session, "live", sourcesOf(session, live.path()), options));
}

}  // namespace

int run(const ReportOptions& options) {
  try {
    checkNewFile(options.output, kHtmlPage);
    return options.session.empty() ? reportLive(options) : reportRecorded(options);
  } catch (const recording::Error& error) {
    return fail(error.what());
  } catch (const NewFileError& error) {
    return fail(error.what());
  } catch (const std::bad_alloc&) {
    return fail(options.session + ": there is not enough memory for this session");
  }
}

}  // namespace quarlo::tools::report
