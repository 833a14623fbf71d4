#include "tools/common/stop_request.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

namespace quarlo::tools {
namespace {

volatile std::sig_atomic_t requested = 0;

std::atomic<void (*)(int)> secondAction = SIG_DFL;
static_assert(std::atomic<void (*)(int)>::is_always_lock_free, "a signal handler reads it");

// A request that comes after the loop has asked stopRequested(), but before it waits in select(), would be noticed only
// at the end of that wait. The alarm comes here again, and interrupts it.
void requestStop(int signal) {
  constexpr unsigned kSecondsToNextAlarm = 1;
  requested = 1;
  // A second one ends the program at once; but of a terminal that is closed, the shell and the kernel both tell.
  if (signal == SIGINT || signal == SIGTERM) std::signal(signal, secondAction);
  alarm(kSecondsToNextAlarm);
}

// SA_RESTART is for output; select() and sleeps return in any case.
void catchOne(int signal) {
  struct sigaction action = {};
  action.sa_handler = requestStop;
  action.sa_flags = SA_RESTART;
  sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

}  // namespace

void catchStopRequests() {
  catchOne(SIGINT);
  catchOne(SIGTERM);
  if (!isIgnored(SIGHUP)) catchOne(SIGHUP);  // under nohup it is
  catchOne(SIGALRM);
}

void onSecondStopRequest(void (*handler)(int)) { secondAction = handler; }

bool stopRequested() { return requested != 0; }

}  // namespace quarlo::tools
