#include "tools/common/checkup/console.h"

#include <fcntl.h>
#include <linux/kd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/common/checkup/files.h"
#include "tools/common/numbers.h"

namespace quarlo::tools::checkup {
namespace {

std::optional<int> keyboardModeOf(const std::string& console) {
  const int fd = open(console.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd == -1) return std::nullopt;
  int mode = K_OFF;
  const bool isKnown = ioctl(fd, KDGKBMODE, &mode) == 0;
  close(fd);
  return isKnown ? std::optional<int>(mode) : std::nullopt;
}

// "tty1" is 1.
int numberOf(const std::string& console) {
  constexpr std::size_t kPrefix = 3;
  int number = 0;
  return console.size() > kPrefix && isNumber(console.substr(kPrefix), 1, 63, number) ? number : 0;
}

// In the other modes, nothing becomes text.
bool makesText(int keyboardMode) { return keyboardMode == K_XLATE || keyboardMode == K_UNICODE; }

bool mayMatter(const ConsoleFacts& facts) { return facts.keysAreRead && !facts.processes.empty(); }

}  // namespace

ConsoleFacts gatherConsole(const std::vector<Process>& processes, bool keysAreRead, const std::string& root) {
  ConsoleFacts facts;
  const std::vector<std::string> active = wordsIn(contentOf(root + "/sys/class/tty/tty0/active"));
  const int number = active.empty() ? 0 : numberOf(active.front());
  if (number == 0) return facts;
  facts.console = active.front();
  facts.keyboardMode = keyboardModeOf(root + "/dev/" + facts.console);
  facts.keysAreRead = keysAreRead;
  for (const Process& process : processes) {
    if (process.console == number) facts.processes.push_back(describe(process));
  }
  return facts;
}

Findings checkConsole(const ConsoleFacts& facts) {
  constexpr std::size_t kMostProcesses = 3;
  if (!mayMatter(facts) || !facts.keyboardMode || !makesText(*facts.keyboardMode)) return {};
  return {{Problem::kConsoleTypes,
           "What is typed also reaches the console behind the screen, where " +
               enumerated(facts.processes, kMostProcesses) + " waits for it",
           "/dev/" + facts.console,
           "Have the application grab its keyboard (InputSources::grab), or take the prompt away: sudo systemctl mask "
           "--now getty@" +
               facts.console}};
}

std::string unseenOfConsole(const ConsoleFacts& facts) {
  if (!mayMatter(facts) || facts.keyboardMode) return "";
  return "whether what is typed reaches the console " + facts.console + " behind the screen: this user may not ask it";
}

}  // namespace quarlo::tools::checkup
