#include "tools/common/help_facts.h"

#include "input/linux_input_reader_limits.h"
#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::tools {

using namespace components::input;

void addNodes(CommandLine& line) {
  line.addFile("/dev/input/event*", "The evdev nodes. Searched for a mouse and a keyboard: event" +
                                        std::to_string(kHighestScannedNode) + " to event0");
  line.addFile("/dev/input/by-id/*", "Names of them that stay the same (udev)");
}

void addLircSockets(CommandLine& line) {
  std::string others;
  for (const char* path : kLircSocketPaths) {
    if (path != kLircSocketPaths[0]) others += (others.empty() ? "" : ", ") + std::string(path);
  }
  line.addFile(kLircSocketPaths[0], "The LIRC daemon's socket. Searched for after it: " + others);
}

void addTimeoutVariables(CommandLine& line) {
  line.addVariable(kReleaseTimeoutVariable,
                   "Of the remote, in ms: repeats that come sooner after the first key-down are skipped; default: " +
                       std::to_string(kDefaultReleaseTimeoutMs));
  line.addVariable(kRepeatTimeoutVariable,
                   "Once it repeats, in ms: those that come sooner after the last key-down are skipped; default: " +
                       std::to_string(kDefaultRepeatTimeoutMs));
}

void addSessionFiles(CommandLine& line) {
  line.addFile(recording::kMouseFile, "In a session: the mouse's records, as evemu writes them");
  line.addFile(recording::kKeyboardFile, "The keyboard's");
  line.addFile(recording::furtherNodeFile(0),
               "The first further node's; up to " + recording::furtherNodeFile(recording::kMostFurtherNodes - 1));
  line.addFile(recording::kRemoteFile, "The lines of the LIRC daemon, each as \"<seconds>.<microseconds> <line>\"");
}

}  // namespace quarlo::tools
