#include "tools/list/list.h"

#include <unistd.h>

#include <algorithm>
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

// "usb 046d:c077 version 0111, usb-0000:00:14.0-2/input0, serial number 42".
std::string describeDevice(const NodeFacts& facts) {
  char ids[40];
  std::snprintf(ids, sizeof ids, " %04x:%04x version %04x", facts.ids.vendor, facts.ids.product, facts.ids.version);
  return busName(facts.ids.bus) + ids + (facts.phys.empty() ? "" : ", " + facts.phys) +
         (facts.uniq.empty() ? "" : ", serial number " + facts.uniq);
}

// "rc-5 [nec] [lirc]", each with a space before it.
std::string describeProtocols(const RcFacts& rc) {
  std::string text;
  for (const std::string& protocol : rc.protocols) {
    const bool isActive = std::find(rc.active.begin(), rc.active.end(), protocol) != rc.active.end();
    text += isActive ? " [" + protocol + "]" : " " + protocol;
  }
  return text;
}

// "rc0 (rc-loopback, rc-empty), protocols rc-5 [nec] [lirc], /dev/lirc0", without what is not known.
std::string describeReceiver(const RcFacts& rc) {
  const std::string separator = rc.driver.empty() || rc.keyMap.empty() ? "" : ", ";
  const std::string names = rc.driver + separator + rc.keyMap;
  const std::string protocols = describeProtocols(rc);
  return rc.device + (names.empty() ? "" : " (" + names + ")") + (protocols.empty() ? "" : ", protocols" + protocols) +
         (rc.lirc.empty() ? "" : ", " + rc.lirc);
}

std::string describeRepeat(const NodeRepeat& repeat) {
  if (!repeat.isOn()) return "switched off";
  return "after " + std::to_string(repeat.delayMs) + " ms, then each " + std::to_string(repeat.periodMs) + " ms";
}

// That a keyboard has keys that the reader does not know goes without saying.
std::string describeDeliveries(std::vector<std::string> delivers) {
  if (delivers.empty()) return "nothing";
  if (delivers.size() > 1 && delivers[0] == "keys" && delivers[1] == "unknown keys")
    delivers.erase(delivers.begin() + 1);
  return joined(delivers, ", ");
}

void printFacts(const NodeReport& report) {
  printRow("class", nameOf(report.nodeClass));
  printRow("device", describeDevice(report.facts));
  if (report.facts.rc) printRow("receiver", describeReceiver(*report.facts.rc));
  if (report.facts.repeat) printRow("repeat", describeRepeat(*report.facts.repeat));
  printRow("gives", describeDeliveries(report.delivers));
}

void printVerdict(const NodeReport& report) {
  switch (report.verdict) {
    case Verdict::kMouse: printRow("taken", "as the mouse"); break;
    case Verdict::kKeyboard: printRow("taken", "as the keyboard"); break;
    case Verdict::kNotTaken: printRow("not taken", report.reason); break;
  }
  printRow("remedy", report.remedy);
  for (const NodeWarning& warning : report.warnings) {
    printRow("warning", warning.text);
    printRow("remedy", warning.remedy);
  }
}

void printReport(const NodeReport& report) {
  const std::string name = report.readable ? "  " + report.facts.name : "";
  std::printf("%s%s\n", report.path.c_str(), printable(name).c_str());
  for (const std::string& link : report.byId) printRow("by id", link);
  for (const std::string& link : report.byPath) printRow("by path", link);
  if (report.readable) printFacts(report);
  printVerdict(report);
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

int list(const ListOptions& options, const SystemFolders& folders) {
  const std::vector<NodeReport> reports = surveyNodes(folders);
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
  if (options.verbosity > 0) printReadersListing();
  return kDone;
}

int run(const ListOptions& options) { return list(options, {}); }

}  // namespace quarlo::tools::list
