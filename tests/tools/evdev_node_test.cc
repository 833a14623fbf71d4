#include "tools/common/evdev_node.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace quarlo::tools {
namespace {

// What a service does by accident that is given the path of a terminal.
TEST(OpenForReading, TakesNoTerminalForItsOwn) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master == -1) GTEST_SKIP() << "no pseudo-terminals here: /dev/pts is not mounted";
  ASSERT_EQ(unlockpt(master), 0);
  const std::string terminal = ptsname(master);
  const auto hasTerminalAfter = [&](const auto& openIt) {
    const pid_t service = fork();
    if (service == 0) {
      setsid();
      if (openIt() == -1) _exit(2);
      _exit(open("/dev/tty", O_RDONLY) == -1 ? 0 : 1);
    }
    int status = 0;
    waitpid(service, &status, 0);
    return WEXITSTATUS(status);
  };
  EXPECT_EQ(hasTerminalAfter([&] { return open(terminal.c_str(), O_RDONLY | O_NONBLOCK); }), 1);
  EXPECT_EQ(hasTerminalAfter([&] { return openForReading(terminal); }), 0);
  close(master);
}

}  // namespace
}  // namespace quarlo::tools
