// The processes of the machine, as far as /proc tells.
#pragma once

#include <string>
#include <vector>

namespace quarlo::tools::checkup {

// Its texts are as the process has them: escape them.
struct Process {
  int pid = 0;
  std::string name;                    // "lircd": at most 15 characters
  std::vector<std::string> arguments;  // its command line, with the name of the program
  int console = 0;                     // 3: its terminal is /dev/tty3; 0: it has another, or none
  std::vector<std::string> openFiles;  // "/dev/input/event3", "socket:[4711]"
  bool openFilesAreKnown = false;      // false: they belong to another user
};

// All that /proc below `root` has, but this one; `root` is "" for the machine itself. What ends meanwhile is left out.
std::vector<Process> findProcesses(const std::string& root);

// "lircd (process 412)".
std::string describe(const Process& process);

}  // namespace quarlo::tools::checkup
