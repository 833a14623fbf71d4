#include "tools/common/sources.h"

#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <nlohmann/json.hpp>

#include "input/linux_input_reader_limits.h"
#include "tools/common/evdev_node.h"
#include "tools/common/lirc_socket.h"
#include "tools/common/obstacle.h"
#include "tools/common/output.h"
#include "tools/common/survey.h"

namespace quarlo::tools {
namespace {

using components::input::InputLoop;
using components::input::kHighestScannedNode;
using components::input::kLircSocketPaths;

// ---- What is open -------------------------------------------------------------------------------

// The path of an open descriptor: the reader does not tell which node it found.
std::string pathOf(int fd) {
  char path[PATH_MAX];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : "descriptor " + std::to_string(fd);
}

std::string nameOfNode(int fd) {
  char name[256] = {};
  return ioctl(fd, EVIOCGNAME(sizeof name - 1), name) != -1 ? name : "";
}

SourceReport reportOpen(const std::string& what, const std::string& path, const std::string& name) {
  return {what, SourceState::kOpen, path + (name.empty() ? "" : "  " + name), "", path, name};
}

std::string describeSocket(int fd) {
  sockaddr_un address = {};
  socklen_t length = sizeof address;
  getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return {address.sun_path, strnlen(address.sun_path, sizeof address.sun_path)};
}

// ---- Why something is not open ------------------------------------------------------------------

int errnoOfOpening(const std::string& path) {
  const int fd = openForReading(path);
  if (fd == -1) return errno;
  close(fd);
  return 0;
}

Obstacle whyNoNodeFits() {
  std::string existing;
  for (int number = 0; number <= kHighestScannedNode; ++number) {
    const std::string path = "/dev/input/event" + std::to_string(number);
    if (access(path.c_str(), F_OK) == 0) existing += (existing.empty() ? "" : ", ") + path;
  }
  if (existing.empty()) {
    return {"there is no /dev/input/event0 to event" + std::to_string(kHighestScannedNode),
            "Plug one in, or pass a path"};
  }
  return {"none fits among " + existing, "`quarlo-input list` says why each was not taken"};
}

Obstacle whyNoDaemonFound() {
  Obstacle found = {"there is no socket at", ""};
  for (const char* path : kLircSocketPaths) {
    const int error = errnoOfConnecting(path);
    if (error != ENOENT && error != ENOTDIR) {
      const Obstacle obstacle = whyNotConnected(path, error);
      return {std::string(path) + ": " + obstacle.reason, obstacle.remedy};
    }
    found.reason += std::string(path == kLircSocketPaths[0] ? " " : ", ") + path;
  }
  found.remedy = "Is lircd running (systemctl status lircd)? Pass another socket with --lirc";
  return found;
}

Obstacle whyNodeIsNotOpen(const SourcePath& source) {
  if (!source) return whyNoNodeFits();
  Obstacle obstacle = whyNotOpened(*source, errnoOfOpening(*source));
  obstacle.reason = *source + ": " + obstacle.reason;
  return obstacle;
}

Obstacle whySocketIsNotOpen(const SourcePath& source) {
  if (!source) return whyNoDaemonFound();
  Obstacle obstacle = whyNotConnected(*source, errnoOfConnecting(*source));
  obstacle.reason = *source + ": " + obstacle.reason;
  return obstacle;
}

// ---- The report of the sources ------------------------------------------------------------------

std::string describeRequest(const SourcePath& source) { return source ? *source : "autodetected"; }

// ", also /dev/input/event5, /dev/input/event6".
std::string describeFurtherRequests(const std::vector<std::string>& paths) {
  std::string text;
  for (const std::string& path : paths) text += (text.empty() ? ", also " : ", ") + path;
  return text;
}

SourceReport reportLeftOut(const std::string& what) { return {what, SourceState::kLeftOut, "", "", "", ""}; }

SourceReport reportObstacle(const std::string& what, const SourcePath& source, const Obstacle& obstacle) {
  return {what, SourceState::kNotOpen, obstacle.reason, obstacle.remedy, source.value_or(""), ""};
}

SourceReport reportNode(const std::string& what, const SourcePath& source, int fd) {
  if (isLeftOut(source)) return reportLeftOut(what);
  if (fd != -1) return reportOpen(what, source ? *source : pathOf(fd), nameOfNode(fd));
  return reportObstacle(what, source, whyNodeIsNotOpen(source));
}

SourceReport reportSocket(const std::string& what, const SourcePath& source, int fd) {
  if (isLeftOut(source)) return reportLeftOut(what);
  if (fd != -1) return reportOpen(what, describeSocket(fd), "");
  return reportObstacle(what, source, whySocketIsNotOpen(source));
}

std::string pathIfOpen(int fd) { return fd == -1 ? "" : pathOf(fd); }

void warnOfFound(const SourcePaths& paths, const SourceDescriptors& descriptors, std::vector<SourceReport>& reports) {
  const bool foundMouse = !paths.mouse && descriptors.mouse != -1;
  const bool foundKeyboard = !paths.keyboard && descriptors.keyboard != -1;
  if (!foundMouse && !foundKeyboard) return;
  const TakenWarnings warnings = warningsOfTaken(pathIfOpen(descriptors.mouse), pathIfOpen(descriptors.keyboard));
  if (foundMouse) reports[0].warnings = warnings.mouse;
  if (foundKeyboard) reports[1].warnings = warnings.keyboard;
}

std::string describeReport(const SourceReport& report) {
  switch (report.state) {
    case SourceState::kLeftOut: return nameOf(report.state);
    case SourceState::kNotOpen: return nameOf(report.state) + (": " + report.text);
    default: return report.text;
  }
}

void printLine(std::FILE* stream, const std::string& what, const std::string& text) {
  std::fprintf(stream, "  %-8s  %s\n", what.c_str(), printable(text).c_str());
}

}  // namespace

std::string sourceName(InputLoop::Source source) {
  switch (source) {
    case InputLoop::kMouse: return "mouse";
    case InputLoop::kKeyboard: return "keyboard";
    case InputLoop::kRemote: return "remote";
    default: return "node " + std::to_string(source - InputLoop::kFurther + 1);
  }
}

InputLoop::Source furtherSource(std::size_t index) {
  return static_cast<InputLoop::Source>(InputLoop::kFurther + index);
}

const char* nameOf(SourceState state) {
  switch (state) {
    case SourceState::kLeftOut: return "left out";
    case SourceState::kNotOpen: return "not open";
    case SourceState::kOpen: return "open";
    default: return "gone";
  }
}

nlohmann::ordered_json toJson(const SourceReport& report) {
  nlohmann::ordered_json json;
  json["source"] = report.what;
  json["state"] = nameOf(report.state);
  if (!report.path.empty()) json["path"] = report.path;
  if (!report.name.empty()) json["name"] = report.name;
  if (report.state == SourceState::kNotOpen) json["problem"] = report.text;
  if (!report.remedy.empty()) json["remedy"] = report.remedy;
  if (!report.warnings.empty()) json["warnings"] = toJson(report.warnings);
  return json;
}

bool isLeftOut(const SourcePath& source) { return source == kLeaveOut; }

void printRequests(std::FILE* stream, const SourcePaths& paths) {
  const std::string requests = "mouse " + describeRequest(paths.mouse) + ", keyboard " +
                               describeRequest(paths.keyboard) + ", remote " + describeRequest(paths.lirc) +
                               describeFurtherRequests(paths.further);
  std::fprintf(stream, "Sources: %s\n", printable(requests).c_str());
  std::fflush(stream);
}

std::vector<SourceReport> reportSources(const SourcePaths& paths, const SourceDescriptors& descriptors) {
  std::vector<SourceReport> reports = {
      reportNode(sourceName(InputLoop::kMouse), paths.mouse, descriptors.mouse),
      reportNode(sourceName(InputLoop::kKeyboard), paths.keyboard, descriptors.keyboard),
      reportSocket(sourceName(InputLoop::kRemote), paths.lirc, descriptors.lirc)};
  warnOfFound(paths, descriptors, reports);
  return reports;
}

SourceReport reportFurtherNode(const SourcePaths& paths, std::size_t index, int error) {
  const std::string what = sourceName(furtherSource(index));
  const std::string& path = paths.further[index];
  if (error != 0) {
    const Obstacle obstacle = whyNotOpened(path, error);
    return {what, SourceState::kNotOpen, path + ": " + obstacle.reason, obstacle.remedy, path, ""};
  }
  const int fd = openForReading(path);
  SourceReport report = reportOpen(what, path, nameOfNode(fd));
  close(fd);
  return report;
}

std::string problemWithFurtherNodes(const SourcePaths& paths) {
  for (const std::string& path : paths.further) {
    const int fd = openForReading(path);
    if (fd == -1) continue;
    const bool isNode = isEvdevNode(fd);
    close(fd);
    if (!isNode) return whyNoNode(path);
  }
  return "";
}

std::string whySourceTwice(const std::string& path) {
  return path +
         " is a source already: name each node once, and the mouse and the keyboard with --mouse and --keyboard if "
         "they "
         "must not be searched for";
}

std::string whyNoNode(const std::string& path) {
  return path + " is not an evdev node; `quarlo-input list` shows the nodes that exist";
}

bool anyIsOpen(const std::vector<SourceReport>& reports) {
  return std::any_of(reports.begin(), reports.end(),
                     [](const SourceReport& report) { return report.state == SourceState::kOpen; });
}

void printSources(std::FILE* stream, const std::vector<SourceReport>& reports) {
  for (const SourceReport& report : reports) {
    printLine(stream, report.what, describeReport(report));
    if (!report.remedy.empty()) printLine(stream, "", report.remedy);
    for (const NodeWarning& warning : report.warnings) {
      printLine(stream, "", "Warning: " + warning.text + ". " + warning.remedy);
    }
  }
}

}  // namespace quarlo::tools
