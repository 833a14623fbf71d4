#include "tools/stop_request.h"

#include <unistd.h>

#include <csignal>

namespace quarlo::tools {
namespace {

volatile std::sig_atomic_t requested = 0;

// A request that comes after the loop has asked stopRequested(), but before it waits in select(), would be noticed only
// at the end of that wait. The alarm comes here again, and interrupts it.
void requestStop(int /*signal*/) {
  constexpr unsigned kSecondsToNextAlarm = 1;
  requested = 1;
  alarm(kSecondsToNextAlarm);
}

// SA_RESTART is for output; select() and sleeps return in any case.
void catchOne(int signal, unsigned moreFlags) {
  struct sigaction action = {};
  action.sa_handler = requestStop;
  action.sa_flags = static_cast<int>(SA_RESTART | moreFlags);
  sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

}  // namespace

// A second request ends the program at once; but of a terminal that is closed, the shell and the kernel both tell.
void catchStopRequests() {
  catchOne(SIGINT, SA_RESETHAND);
  catchOne(SIGTERM, SA_RESETHAND);
  if (!isIgnored(SIGHUP)) catchOne(SIGHUP, 0);  // under nohup it is
  catchOne(SIGALRM, 0);
}

bool stopRequested() { return requested != 0; }

}  // namespace quarlo::tools
