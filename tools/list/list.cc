#include "tools/list/list.h"

#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"
#include "logging/stderr_logging.h"
#include "tools/common/output.h"
#include "tools/common/survey.h"

namespace quarlo::tools::list {
namespace {

void printRow(const char* label, const std::string& text) {
  if (!text.empty()) std::printf("    %-9s %s\n", label, printable(text).c_str());
}

void printReport(const NodeReport& report) {
  std::printf("%s  %s\n", report.path.c_str(), printable(report.facts.name).c_str());
  for (const std::string& link : report.byId) printRow("by id", link);
  for (const std::string& link : report.byPath) printRow("by path", link);
  switch (report.verdict) {
    case Verdict::kMouse: printRow("taken", "as the mouse"); break;
    case Verdict::kKeyboard: printRow("taken", "as the keyboard"); break;
    case Verdict::kNotTaken:
      printRow("not taken", report.reason);
      printRow("remedy", report.remedy);
      break;
  }
}

void printJson(const NodeReport& report) {
  using nlohmann::ordered_json;
  constexpr bool kAsciiOnly = true;
  const std::string line = toJson(report).dump(-1, ' ', kAsciiOnly, ordered_json::error_handler_t::replace);
  std::printf("%s\n", line.c_str());
}

// The reader prints half of its listing and logs the other half. The two come out as one stream, in their order, also
// where standard output goes to a file.
void printReadersListing() {
  std::printf("\nThe reader's own listing (event0 to event%d):\n", components::input::kHighestListedNode);
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  std::fflush(stdout);
  const int savedError = dup(STDERR_FILENO);
  dup2(STDOUT_FILENO, STDERR_FILENO);
  logging::SetMinLogLevel(logging::kInfo);
  components::input::LinuxInputReader().listLinuxInputReader();
  std::fflush(stdout);
  dup2(savedError, STDERR_FILENO);
  close(savedError);
}

}  // namespace

int run(const ListOptions& options) {
  const std::vector<NodeReport> reports = surveyNodes();
  if (reports.empty()) {
    return fail("there is no event node in /dev/input: plug in a device; in a container, pass /dev/input into it");
  }
  for (const NodeReport& report : reports) {
    if (options.json) {
      printJson(report);
    } else {
      printReport(report);
    }
  }
  if (!options.json) printReadersListing();
  return kDone;
}

}  // namespace quarlo::tools::list
