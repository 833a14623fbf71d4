// The processes of the machine, as far as /proc tells.
#pragma once

#include <string>
#include <vector>

namespace quarlo::tools::checkup {

// Its texts are as the process has them: escape them.
struct Process {
  int pid = 0;
  std::string name;                    // "lircd": at most 15 characters
  int console = 0;                     // 3: its terminal is /dev/tty3; 0: it has another, or none
  std::vector<std::string> openFiles;  // of input devices and sockets: "/dev/input/event3", "socket:[4711]"
  bool openFilesAreKnown = false;      // false: they belong to another user
};

// All that /proc below `root` has, but this one; `root` is "" for the machine itself. What ends meanwhile is left out.
std::vector<Process> findProcesses(const std::string& root);

// Its command line, with the name of the program; of one that no daemon has, the start. Read only when it is asked for:
// any user can start processes with megabytes of them.
std::vector<std::string> argumentsOf(const Process& process, const std::string& root);

// "lircd (process 412)".
std::string describe(const Process& process);

}  // namespace quarlo::tools::checkup
