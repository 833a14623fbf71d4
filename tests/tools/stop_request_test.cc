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

TEST(StopRequest, HasOneDescriptor) {
  expectInAnother([] {
    const int fd = stopDescriptor();
    return fd != -1 && stopDescriptor() == fd;
  });
}

}  // namespace
}  // namespace quarlo::tools
