#include "tools/common/survey.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"
#include "tools/common/evdev_node.h"
#include "tools/common/node_advice.h"
#include "tools/common/obstacle.h"

namespace quarlo::tools {
namespace {

using components::input::kHighestScannedNode;
using components::input::LinuxInputReader;

constexpr int kHighestNode = 1023;

// ---- Links --------------------------------------------------------------------------------------

struct Link {
  std::string path;
  std::string target;
};

// Empty if there is no such directory: without udev there are no links.
std::vector<Link> linksIn(const std::string& directory) {
  std::vector<Link> links;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; entry != end; entry.increment(error)) {
    std::error_code linkError;
    links.push_back({entry->path().string(), std::filesystem::canonical(entry->path(), linkError).string()});
  }
  std::sort(links.begin(), links.end(), [](const Link& a, const Link& b) { return a.path < b.path; });
  return links;
}

std::vector<std::string> linksTo(const std::string& node, const std::vector<Link>& links) {
  std::vector<std::string> found;
  for (const Link& link : links) {
    if (link.target == node) found.push_back(link.path);
  }
  return found;
}

// ---- Probing ------------------------------------------------------------------------------------

void lookAt(int fd, const SystemFolders& folders, NodeReport& report) {
  report.readable = true;
  report.facts = readNodeFacts(fd, folders);
  report.nodeClass = classOf(report.facts);
  report.delivers = deliveriesOf(report.facts);
}

void runTests(const LinuxInputReader& reader, int fd, NodeReport& report) {
  report.tests = {reader.hasRelEvent(fd), reader.hasAbsEvent(fd), reader.hasKeyEvent(fd, true),
                  reader.hasKeyEvent(fd, false)};
}

void explainObstacle(NodeReport& report, const Obstacle& obstacle) {
  report.reason = obstacle.reason;
  report.remedy = obstacle.remedy;
}

// As LinuxInputReader::openDevice() does: what another process has grabbed is unsuitable, and so is what has gone.
void tryGrab(int fd, NodeReport& report) {
  constexpr long kGrab = 1;
  if (ioctl(fd, EVIOCGRAB, kGrab) != -1 || errno == EINVAL) return;
  const int error = errno;
  report.grabbed = error == EBUSY;
  explainObstacle(report, report.grabbed
                              ? Obstacle{"grabbed by another process",
                                         "End the program that has grabbed it (sudo fuser -v " + report.path + ")"}
                              : whyNotOpened(report.path, error));
}

// Why what could be opened cannot be asked. `error` is the errno that isEvdevNode() left; 0: not even a device.
Obstacle whyNotAsked(const std::string& path, int error) {
  if (error == ENODEV) return whyNotOpened(path, error);
  return {"not an evdev node",
          "Look what it is (ls -ld " + path + ") and remove it: the kernel or udev makes the node of a device"};
}

// Asks all that exist, in the order of their numbers. `ask` is given the open descriptor of an evdev node; where there
// is none, the report says why.
template <typename Ask>
std::vector<NodeReport> askNodes(const SystemFolders& folders, const Ask& ask) {
  const std::string input = folders.dev + "/input";
  const std::vector<Link> byId = linksIn(input + "/by-id");
  const std::vector<Link> byPath = linksIn(input + "/by-path");
  std::vector<NodeReport> reports;
  for (int number = 0; number <= kHighestNode; ++number) {
    NodeReport report;
    report.number = number;
    report.path = input + "/event" + std::to_string(number);
    const int fd = openForReading(report.path);
    const int error = fd == -1 ? errno : 0;
    if (error == ENOENT || error == ENOTDIR) continue;
    report.byId = linksTo(report.path, byId);
    report.byPath = linksTo(report.path, byPath);
    if (error != 0) {
      explainObstacle(report, whyNotOpened(report.path, error));
    } else {
      errno = 0;
      if (isEvdevNode(fd)) {
        ask(fd, report);
      } else {
        explainObstacle(report, whyNotAsked(report.path, errno));
      }
      close(fd);  // ends a grab, too
    }
    reports.push_back(std::move(report));
  }
  return reports;
}

// ---- Judging ------------------------------------------------------------------------------------

// What the device could be taken for, by the reader's own tests. Sets the reason if it is for nothing.
void judge(NodeReport& report) {
  const ReaderTests& tests = report.tests;
  if (tests.relative && tests.pointerButton) {
    report.verdict = Verdict::kMouse;
  } else if (!tests.relative && tests.arrows) {
    report.verdict = Verdict::kKeyboard;
  } else {
    explainUnsuitable(report);
  }
}

const char* optionFor(Verdict verdict) { return verdict == Verdict::kMouse ? "--mouse" : "--keyboard"; }

void passOver(NodeReport& report, const std::string& reason) {
  report.reason = reason;
  report.remedy = std::string("Pass it by its path: ") + optionFor(report.verdict) + " " + lastingPathOf(report);
  report.verdict = Verdict::kNotTaken;
}

// The scan goes down and takes the first mouse and the first keyboard.
void choose(std::vector<NodeReport>& reports) {
  std::map<Verdict, std::string> taken;
  for (auto report = reports.rbegin(); report != reports.rend(); ++report) {
    if (report->verdict == Verdict::kNotTaken) continue;
    if (report->number > kHighestScannedNode) {
      passOver(*report, "above event" + std::to_string(kHighestScannedNode) + ", where autodetection does not look");
    } else if (const auto [higher, first] = taken.emplace(report->verdict, report->path); !first) {
      passOver(*report, higher->second + " fits too, and the highest number is taken");
    }
  }
}

}  // namespace

std::vector<NodeReport> surveyNodes(const SystemFolders& folders) {
  const LinuxInputReader reader;
  std::vector<NodeReport> reports = askNodes(folders, [&](int fd, NodeReport& report) {
    lookAt(fd, folders, report);
    tryGrab(fd, report);
    const bool isGone = !report.reason.empty() && !report.grabbed;
    if (!isGone) runTests(reader, fd, report);  // of what has gone, each would log an error
    if (report.reason.empty()) judge(report);
  });
  choose(reports);
  for (NodeReport& report : reports) report.warnings = warningsOf(report, reports);
  return reports;
}

TakenWarnings warningsOfTaken(const std::string& mouse, const std::string& keyboard, const SystemFolders& folders) {
  const LinuxInputReader reader;
  const std::vector<NodeReport> reports = askNodes(folders, [&](int fd, NodeReport& report) {
    runTests(reader, fd, report);  // first: of what goes meanwhile, each would log an error
    lookAt(fd, folders, report);
    if (report.path == mouse) report.verdict = Verdict::kMouse;
    if (report.path == keyboard) report.verdict = Verdict::kKeyboard;
  });
  TakenWarnings warnings;
  for (const NodeReport& report : reports) {
    if (report.path == mouse) warnings.mouse = warningsOf(report, reports);
    if (report.path == keyboard) warnings.keyboard = warningsOf(report, reports);
  }
  return warnings;
}

}  // namespace quarlo::tools
