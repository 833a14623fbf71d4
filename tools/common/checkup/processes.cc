#include "tools/common/checkup/processes.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "tools/common/checkup/files.h"
#include "tools/common/numbers.h"

namespace quarlo::tools::checkup {
namespace {

constexpr int kConsoleMajor = 4;
constexpr int kMostConsoles = 63;

// What any user's processes can have without an end is kept up to here: far more than a daemon has.
constexpr std::size_t kMostArguments = 256;
constexpr std::size_t kMostBytesOfArguments = 1 << 16;
constexpr std::size_t kMostOpenFiles = 1024;
constexpr std::size_t kLongestOpenFile = 64;

// The command line has a NUL behind each argument.
std::vector<std::string> argumentsIn(const std::string& commandLine) {
  std::vector<std::string> arguments;
  for (std::size_t start = 0; start < commandLine.size() && arguments.size() < kMostArguments;) {
    const std::size_t end = std::min(commandLine.find('\0', start), commandLine.size());
    arguments.push_back(commandLine.substr(start, end - start));
    start = end + 1;
  }
  return arguments;
}

// The name stands between the first and the last parenthesis, whatever is in it.
std::string nameIn(const std::string& stat) {
  const std::size_t start = stat.find('(');
  const std::size_t end = stat.rfind(')');
  return start == std::string::npos || end == std::string::npos ? "" : stat.substr(start + 1, end - start - 1);
}

// Behind the name: state, parent, group, session, number of the terminal.
int consoleIn(const std::string& stat) {
  constexpr std::size_t kTerminal = 4;
  const std::vector<std::string> fields = wordsIn(stat.substr(std::min(stat.rfind(')'), stat.size() - 1) + 1));
  int number = 0;
  if (fields.size() <= kTerminal || !isNumber(fields[kTerminal], 0, 0x7fffffff, number)) return 0;
  const int major = number >> 8 & 0xfff;
  const int minor = number & 0xff;
  return major == kConsoleMajor && minor <= kMostConsoles ? minor : 0;
}

// Its parent has not asked yet how it ended.
bool hasEnded(const std::string& stat) { return stat.find(") Z ") != std::string::npos; }

bool isInputOrSocket(const std::string& file) {
  return file.size() <= kLongestOpenFile && (file.rfind("/dev/input/", 0) == 0 || file.rfind("socket:[", 0) == 0);
}

bool readOpenFiles(const std::string& folder, Process& process) {
  for (const std::string& number : namesIn(folder)) {
    std::string file = targetOf(folder + "/" + number);
    if (isInputOrSocket(file)) process.openFiles.push_back(std::move(file));
    if (process.openFiles.size() == kMostOpenFiles) break;
  }
  return access(folder.c_str(), R_OK | X_OK) == 0;
}

bool readProcess(const std::string& folder, Process& process) {
  const std::string stat = contentOf(folder + "/stat");
  if (stat.empty() || hasEnded(stat)) return false;
  process.name = nameIn(stat);
  process.console = consoleIn(stat);
  process.openFilesAreKnown = readOpenFiles(folder + "/fd", process);
  return true;
}

}  // namespace

std::vector<Process> findProcesses(const std::string& root) {
  std::vector<Process> processes;
  for (const std::string& name : namesIn(root + "/proc")) {
    Process process;
    if (!isNumber(name, 1, 0x7fffffff, process.pid) || process.pid == getpid()) continue;
    if (readProcess(root + "/proc/" + name, process)) processes.push_back(std::move(process));
  }
  std::sort(processes.begin(), processes.end(), [](const Process& a, const Process& b) { return a.pid < b.pid; });
  return processes;
}

std::vector<std::string> argumentsOf(const Process& process, const std::string& root) {
  const std::string commandLine = contentOf(root + "/proc/" + std::to_string(process.pid) + "/cmdline");
  return argumentsIn(commandLine.substr(0, kMostBytesOfArguments));
}

std::string describe(const Process& process) { return process.name + " (process " + std::to_string(process.pid) + ")"; }

}  // namespace quarlo::tools::checkup
