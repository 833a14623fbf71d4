#include "tools/common/survey.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"
#include "tools/common/evdev_node.h"
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

std::string nameOf(int fd) {
  char name[256] = {};
  if (ioctl(fd, EVIOCGNAME(sizeof name - 1), name) == -1) return "";
  return name;
}

// What the device could be taken for, by the reader's own tests. Sets the reason if it is for nothing.
void classify(const LinuxInputReader& reader, int fd, NodeReport& report) {
  report.tests = {reader.hasRelEvent(fd), reader.hasAbsEvent(fd), reader.hasKeyEvent(fd, true),
                  reader.hasKeyEvent(fd, false)};
  const auto& [relative, absolute, pointerButton, arrows] = report.tests;
  if (relative && pointerButton) {
    report.verdict = Verdict::kMouse;
  } else if (!relative && arrows) {
    report.verdict = Verdict::kKeyboard;
  } else if (relative) {
    report.reason = arrows ? "no left button, so no mouse; relative axes, so never a keyboard"
                           : "relative axes, but no left button, so no mouse";
  } else {
    report.reason = "no relative axes, so no mouse; not all four arrow keys, so no keyboard";
  }
  if (report.verdict == Verdict::kNotTaken) report.remedy = "Passed by its path, it is opened anyway";
}

// As LinuxInputReader::openDevice() probes: a node that another process has grabbed is unsuitable.
void probeOpenNode(const LinuxInputReader& reader, int fd, NodeReport& report) {
  constexpr long kGrab = 1;
  report.facts.name = nameOf(fd);
  if (ioctl(fd, EVIOCGRAB, kGrab) == -1 && errno != EINVAL) {
    const int error = errno;
    report.grabbed = error == EBUSY;
    report.reason = error == EBUSY ? "grabbed by another process" : std::strerror(error);
    if (error == EBUSY) report.remedy = "End the program that has grabbed it (sudo fuser -v " + report.path + ")";
    return;
  }
  classify(reader, fd, report);
}

// Returns false if there is no such node.
bool probeNode(const LinuxInputReader& reader, NodeReport& report) {
  const int fd = openForReading(report.path);
  if (fd != -1) {
    report.readable = true;
    probeOpenNode(reader, fd, report);
    close(fd);  // ends the grab, too
    return true;
  }
  const int error = errno;
  if (error == ENOENT || error == ENOTDIR) return false;
  const Obstacle obstacle = whyNotOpened(report.path, error);
  report.reason = obstacle.reason;
  report.remedy = obstacle.remedy;
  return true;
}

// ---- Choosing -----------------------------------------------------------------------------------

const char* optionFor(Verdict verdict) { return verdict == Verdict::kMouse ? "--mouse" : "--keyboard"; }

void passOver(NodeReport& report, const std::string& reason) {
  report.reason = reason;
  report.remedy = std::string("Pass it by its path: ") + optionFor(report.verdict) + " " + report.path;
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
  const std::string input = folders.dev + "/input";
  const std::vector<Link> byId = linksIn(input + "/by-id");
  const std::vector<Link> byPath = linksIn(input + "/by-path");
  const LinuxInputReader reader;
  std::vector<NodeReport> reports;
  for (int number = 0; number <= kHighestNode; ++number) {
    NodeReport report;
    report.number = number;
    report.path = input + "/event" + std::to_string(number);
    if (!probeNode(reader, report)) continue;
    report.byId = linksTo(report.path, byId);
    report.byPath = linksTo(report.path, byPath);
    reports.push_back(std::move(report));
  }
  choose(reports);
  return reports;
}

nlohmann::ordered_json toJson(const NodeReport& report) {
  static constexpr const char* kVerdicts[] = {"mouse", "keyboard", "not taken"};
  nlohmann::ordered_json json;
  json["node"] = report.path;
  json["name"] = report.facts.name;
  json["byId"] = report.byId;
  json["byPath"] = report.byPath;
  json["verdict"] = kVerdicts[static_cast<int>(report.verdict)];
  json["reason"] = report.reason;
  json["remedy"] = report.remedy;
  return json;
}

}  // namespace quarlo::tools
