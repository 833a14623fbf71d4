#include "tools/common/stop_request.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace quarlo::tools {
namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGALRM};

volatile std::sig_atomic_t requested = 0;

std::atomic<int> descriptor = -1;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

std::atomic<void (*)(int)> secondAction = SIG_DFL;
static_assert(std::atomic<void (*)(int)>::is_always_lock_free, "a signal handler reads it");

void makeReadable() {
  const std::uint64_t one = 1;
  const int before = errno;
  if (descriptor != -1 && write(descriptor, &one, sizeof one) == -1) errno = before;
}

// A request that comes after the loop has asked stopRequested(), but before it waits without stopDescriptor(), would be
// noticed only at the end of that wait. The alarm comes here again, and interrupts it.
void requestStop(int signal) {
  constexpr unsigned kSecondsToNextAlarm = 1;
  requested = 1;
  makeReadable();
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
  for (const int signal : kSignals) {
    if (signal != SIGHUP || !isIgnored(signal)) catchOne(signal);  // under nohup it is
  }
}

void onSecondStopRequest(void (*handler)(int)) { secondAction = handler; }

bool stopRequested() { return requested != 0; }

int stopDescriptor() {
  if (descriptor == -1) descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (stopRequested()) makeReadable();  // it may have come before
  return descriptor;
}

bool isStopRequest(int signal) { return std::find(kSignals.begin(), kSignals.end(), signal) != kSignals.end(); }

}  // namespace quarlo::tools
