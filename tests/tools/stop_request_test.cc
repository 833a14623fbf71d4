#include "tools/common/stop_request.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>

namespace quarlo::tools {
namespace {

bool isReadable(int fd) {
  pollfd look = {fd, POLLIN, 0};
  return poll(&look, 1, 0) == 1;
}

// In a process of its own, since a request stays.
void expectInAnother(bool (*holds)()) {
  EXPECT_EXIT(
      {
        catchStopRequests();
        _exit(holds() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(StopRequest, MakesItsDescriptorReadable) {
  expectInAnother([] {
    const int fd = stopDescriptor();
    if (isReadable(fd)) return false;
    std::raise(SIGTERM);
    return isReadable(fd) && stopRequested();
  });
}

TEST(StopRequest, ThatCameBeforeItsDescriptorMakesItReadableToo) {
  expectInAnother([] {
    std::raise(SIGINT);
    return isReadable(stopDescriptor());
  });
}

TEST(StopRequest, ThatComesAgainEndsTheProgramAtOnce) {
  for (const int signal : {SIGINT, SIGTERM}) {
    EXPECT_EXIT(
        {
          catchStopRequests();
          std::raise(signal);
          if (!stopRequested()) _exit(1);
          std::raise(signal);
          _exit(2);
        },
        testing::KilledBySignal(signal), "");
  }
}

TEST(StopRequest, ThatComesAgainIsLeftToWhoWantsIt) {
  EXPECT_EXIT(
      {
        onSecondStopRequest([](int signal) { _exit(signal == SIGINT ? 7 : 1); });
        catchStopRequests();
        std::raise(SIGINT);
        std::raise(SIGINT);
        _exit(2);
      },
      testing::ExitedWithCode(7), "");
}

// The shell and the kernel both tell.
TEST(StopRequest, OfATerminalThatIsClosedMayComeTwice) {
  EXPECT_EXIT(
      {
        std::signal(SIGHUP, SIG_DFL);  // who runs the tests may ignore it
        catchStopRequests();
        std::raise(SIGHUP);
        std::raise(SIGHUP);
        _exit(stopRequested() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(StopRequest, HasOneDescriptor) {
  expectInAnother([] {
    const int fd = stopDescriptor();
    return fd != -1 && stopDescriptor() == fd;
  });
}

}  // namespace
}  // namespace quarlo::tools
