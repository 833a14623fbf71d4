// The machine's calls that wait, and how time moves in them.
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "sim/epoll.h"
#include "sim/kernel.h"
#include "sim/real.h"
#include "sim/trace.h"

namespace quarlo::sim {
namespace {

using std::chrono::milliseconds;

constexpr microseconds kShortestWait(10);

// What select() takes for readable: an error or the end of a stream, too, so that the reader finds out.
constexpr int kReadable = POLLIN | POLLHUP | POLLERR;

std::string timeoutText(std::optional<microseconds> timeout) {
  return timeout && timeout->count() < 0 ? "negative" : sim::seconds(timeout);
}

// The timeout of a call that gives milliseconds.
std::optional<microseconds> toTimeout(int timeoutMs) {
  if (timeoutMs < 0) return std::nullopt;
  return milliseconds(timeoutMs);
}

// Whether a signal of this program's own comes as soon as `mask` is the mask of signals. Then it has come.
bool takesSignal(const sigset_t* mask) {
  sigset_t pending;
  if (mask == nullptr || sigpending(&pending) != 0) return false;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(&pending, signal) != 1 || sigismember(mask, signal) == 1) continue;
    sigset_t old;
    pthread_sigmask(SIG_SETMASK, mask, &old);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    return true;
  }
  return false;
}

// A select() as a trace shows it.
std::string selectCall(int count, const fd_set* readSet, const fd_set* writeSet, const fd_set* exceptSet,
                       std::optional<microseconds> timeout) {
  std::string text = "select(" + std::to_string(count) + ", ";
  text += readSet != nullptr ? descriptorSet(count, readSet) : "null";
  if (writeSet != nullptr) text += ", to write";
  if (exceptSet != nullptr) text += ", exceptions";
  text += ", " + timeoutText(timeout);
  return text + ")";
}

}  // namespace

// ---- select and poll ----------------------------------------------------------------------------

int Kernel::readyDescriptors(int count, const fd_set* readSet, fd_set& ready) const {
  FD_ZERO(&ready);
  int found = 0;
  for (int fd = 0; readSet != nullptr && fd < std::min<int>(count, FD_SETSIZE); ++fd) {
    if (!FD_ISSET(fd, readSet)) continue;
    const auto descriptor = descriptors_.find(fd);
    const short state = descriptor != descriptors_.end() ? descriptor->second->state() : realState(fd, POLLIN);
    if ((state & POLLNVAL) != 0) return -EBADF;
    if ((state & kReadable) == 0) continue;
    FD_SET(fd, &ready);
    ++found;
  }
  return found;
}

microseconds Kernel::lastScheduled() const { return happenings_.empty() ? time_ : happenings_.rbegin()->first; }

// Moves time to what is scheduled next, or to the deadline if that is earlier. Returns false if there is neither. The
// background goes on forever: if nothing else is left, background timers after `horizon` do not count.
bool Kernel::waitForNext(std::optional<microseconds> deadline, microseconds horizon) {
  const bool nothingComes = happenings_.empty() || (!hasScheduled() && happenings_.begin()->first > horizon);
  if (nothingComes && !deadline) return false;
  microseconds next = happenings_.empty() ? *deadline : std::max(time_, happenings_.begin()->first);
  if (deadline) next = std::min(next, *deadline);
  if (pace_) {
    const Outside outside;
    pace_(next - time_);
  }
  runUntil(next);
  return true;
}

void Kernel::passShortWait(microseconds start) {
  if (!callTime_ && time_ == start) advance(kShortestWait);
}

long Kernel::selectUntil(int count, fd_set* readSet, std::optional<microseconds> timeout) {
  fd_set ready;
  const auto look = [&]() -> std::optional<long> {
    const int found = readyDescriptors(count, readSet, ready);
    if (found == 0) return std::nullopt;
    return found;
  };
  const long result = waitUntil(
      timeout, look, [&] { return "select() on " + (readSet != nullptr ? descriptorSet(count, readSet) : "nothing"); });
  if (result >= 0 && readSet != nullptr) *readSet = ready;
  return result;
}

int Kernel::select(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet,
                   std::optional<microseconds>& timeout) {
  const auto fault = countCall(Call::kSelect);
  const std::string call = tracing_ ? selectCall(count, readSet, writeSet, exceptSet, timeout) : "";
  const microseconds start = time_;
  long result = -EINVAL;
  if (fault) {
    result = -fault->error;
  } else if (count >= 0 && (!timeout || timeout->count() >= 0)) {
    result = selectUntil(count, readSet, timeout);
    if (result >= 0 && writeSet != nullptr) FD_ZERO(writeSet);
    if (result >= 0 && exceptSet != nullptr) FD_ZERO(exceptSet);
    if (timeout) *timeout = std::max(*timeout - (time_ - start), microseconds(0));
  }
  result = finish(result);
  if (tracing_) trace(call, callResult(result, errno) + (result > 0 ? " " + descriptorSet(count, readSet) : ""));
  passShortWait(start);
  return static_cast<int>(result);
}

int Kernel::lookAt(pollfd* entries, nfds_t count) const {
  int found = 0;
  for (nfds_t i = 0; i < count; ++i) {
    pollfd& entry = entries[i];
    entry.revents = 0;
    if (entry.fd < 0) continue;
    const auto descriptor = descriptors_.find(entry.fd);
    entry.revents = descriptor != descriptors_.end()
                        ? static_cast<short>(descriptor->second->state() & (entry.events | POLLERR | POLLHUP))
                        : realState(entry.fd, entry.events);
    if (entry.revents != 0) ++found;
  }
  return found;
}

long Kernel::pollUntil(pollfd* entries, nfds_t count, std::optional<microseconds> timeout, const char* name) {
  const auto look = [&]() -> std::optional<long> {
    const int found = lookAt(entries, count);
    if (found == 0) return std::nullopt;
    return found;
  };
  return waitUntil(timeout, look,
                   [&] { return std::string(name) + "() on " + pollEntries(entries, count, &pollfd::events); });
}

int Kernel::poll(pollfd* entries, nfds_t count, int timeoutMs) {
  const auto fault = countCall(Call::kPoll);
  const microseconds start = time_;
  const std::optional<microseconds> timeout = toTimeout(timeoutMs);
  const long result = finish(fault ? -fault->error : pollUntil(entries, count, timeout, "poll"));
  if (tracing_) {
    trace("poll(" + pollEntries(entries, count, &pollfd::events) + ", " + timeoutText(timeout) + ")",
          callResult(result, errno) + (result > 0 ? " " + pollEntries(entries, count, &pollfd::revents) : ""));
  }
  passShortWait(start);
  return static_cast<int>(result);
}

int Kernel::ppoll(pollfd* entries, nfds_t count, std::optional<microseconds> timeout, const sigset_t* mask) {
  const auto fault = countCall(Call::kPpoll);
  const microseconds start = time_;
  long result = -EINVAL;
  if (fault) {
    result = -fault->error;
  } else if (!timeout || timeout->count() >= 0) {
    result = takesSignal(mask) ? -EINTR : pollUntil(entries, count, timeout, "ppoll");
  }
  result = finish(result);
  if (tracing_) {
    trace("ppoll(" + pollEntries(entries, count, &pollfd::events) + ", " + timeoutText(timeout) + ")",
          callResult(result, errno) + (result > 0 ? " " + pollEntries(entries, count, &pollfd::revents) : ""));
  }
  passShortWait(start);
  return static_cast<int>(result);
}

// ---- epoll --------------------------------------------------------------------------------------

int Kernel::epollCreate1(int flags) {
  const auto fault = countCall(Call::kEpollCreate1);
  const bool isValid = (flags & ~EPOLL_CLOEXEC) == 0;
  const long result = finish(fault ? -fault->error : isValid ? addFile(std::make_shared<EpollFile>()) : -EINVAL);
  if (tracing_) trace("epoll_create1(" + descriptorFlags(flags) + ")", callResult(result, errno));
  return static_cast<int>(result);
}

int Kernel::epollControl(int epoll, int operation, int fd, const epoll_event* event) {
  const std::shared_ptr<File> file = fileOf(epoll);
  if (file == nullptr) return -EBADF;
  if (file->epoll() == nullptr || epoll == fd) return -EINVAL;
  return file->epoll()->control(operation, fd, fileOf(fd), event);
}

int Kernel::epollCtl(int epoll, int operation, int fd, const epoll_event* event) {
  const auto fault = countCall(Call::kEpollCtl);
  const long result = finish(fault ? -fault->error : epollControl(epoll, operation, fd, event));
  if (tracing_) {
    trace("epoll_ctl(" + std::to_string(epoll) + ", " + epollOperation(operation) + ", " + std::to_string(fd) +
              (operation == EPOLL_CTL_DEL ? "" : ", " + epollEvents(event->events)) + ")",
          callResult(result, errno));
  }
  return static_cast<int>(result);
}

long Kernel::epollUntil(int epoll, epoll_event* events, int room, std::optional<microseconds> timeout) {
  const std::shared_ptr<File> file = fileOf(epoll);
  if (file == nullptr) return -EBADF;
  if (room <= 0 || file->epoll() == nullptr) return -EINVAL;
  const auto look = [&]() -> std::optional<long> {
    const int found = file->epoll()->take(events, room);
    if (found == 0) return std::nullopt;
    return found;
  };
  return waitUntil(timeout, look, [&] { return "epoll_wait() on " + file->epoll()->text(); });
}

int Kernel::epollWait(int epoll, epoll_event* events, int room, int timeoutMs, const sigset_t* mask) {
  const auto fault = countCall(Call::kEpollWait);
  const microseconds start = time_;
  const std::optional<microseconds> timeout = toTimeout(timeoutMs);
  const long result = finish(fault               ? -fault->error
                             : takesSignal(mask) ? -EINTR
                                                 : epollUntil(epoll, events, room, timeout));
  if (tracing_) {
    std::string found;
    for (int i = 0; i < result; ++i) {
      const int fd = fileOf(epoll)->epoll()->takenDescriptors()[static_cast<std::size_t>(i)];
      found += (found.empty() ? "" : ", ") + std::to_string(fd) + " " + epollEvents(events[i].events);
    }
    trace("epoll_wait(" + std::to_string(epoll) + ", " + std::to_string(room) + ", " + timeoutText(timeout) + ")",
          callResult(result, errno) + (result > 0 ? " [" + found + "]" : ""));
  }
  passShortWait(start);
  return static_cast<int>(result);
}

// ---- Timers and counters ------------------------------------------------------------------------

int Kernel::addCounter(unsigned count, int flags) {
  if ((flags & ~(EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC)) != 0) return -EINVAL;
  return addFile(std::make_shared<EventFile>((flags & EFD_NONBLOCK) == 0, (flags & EFD_SEMAPHORE) != 0, count));
}

int Kernel::eventfd(unsigned count, int flags) {
  const auto fault = countCall(Call::kEventfd);
  const long result = finish(fault ? -fault->error : addCounter(count, flags));
  if (tracing_) {
    const std::string semaphore = (flags & EFD_SEMAPHORE) != 0 ? "EFD_SEMAPHORE|" : "";
    trace("eventfd(" + std::to_string(count) + ", " + semaphore + descriptorFlags(flags & ~EFD_SEMAPHORE) + ")",
          callResult(result, errno));
  }
  return static_cast<int>(result);
}

int Kernel::addTimer(clockid_t clock, int flags) {
  if (clock == CLOCK_REALTIME_ALARM || clock == CLOCK_BOOTTIME_ALARM) notSimulated("timerfd_create() of an alarm");
  if ((flags & ~(TFD_NONBLOCK | TFD_CLOEXEC)) != 0) return -EINVAL;
  if (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC && clock != CLOCK_BOOTTIME) return -EINVAL;
  return addFile(std::make_shared<TimerFile>((flags & TFD_NONBLOCK) == 0, clock, *this));
}

int Kernel::timerfdCreate(clockid_t clock, int flags) {
  const auto fault = countCall(Call::kTimerfdCreate);
  const long result = finish(fault ? -fault->error : addTimer(clock, flags));
  if (tracing_) {
    trace("timerfd_create(" + clockName(clock) + ", " + descriptorFlags(flags) + ")", callResult(result, errno));
  }
  return static_cast<int>(result);
}

int Kernel::setTimer(int fd, int flags, const TimerSetting& setting, TimerSetting& old) {
  if ((flags & TFD_TIMER_CANCEL_ON_SET) != 0) notSimulated("timerfd_settime() with TFD_TIMER_CANCEL_ON_SET");
  if ((flags & ~TFD_TIMER_ABSTIME) != 0 || setting.value.count() < 0 || setting.interval.count() < 0) return -EINVAL;
  if (const int error = timerSetting(fd, old)) return error;
  fileOf(fd)->timer()->set(setting, (flags & TFD_TIMER_ABSTIME) != 0);
  return 0;
}

int Kernel::timerfdSettime(int fd, int flags, const TimerSetting& setting, TimerSetting& old) {
  const auto fault = countCall(Call::kTimerfdSettime);
  const long result = finish(fault ? -fault->error : setTimer(fd, flags, setting, old));
  if (tracing_) {
    const std::string absolute = (flags & TFD_TIMER_ABSTIME) != 0 ? ", TFD_TIMER_ABSTIME" : "";
    trace("timerfd_settime(" + std::to_string(fd) + absolute + ", " + timeoutText(setting.value) + ", " +
              timeoutText(setting.interval) + ")",
          callResult(result, errno));
  }
  return static_cast<int>(result);
}

int Kernel::timerSetting(int fd, TimerSetting& setting) {
  const std::shared_ptr<File> file = fileOf(fd);
  if (file == nullptr) return -EBADF;
  if (file->timer() == nullptr) return -EINVAL;
  setting = file->timer()->setting();
  return 0;
}

int Kernel::timerfdGettime(int fd, TimerSetting& setting) {
  const auto fault = countCall(Call::kTimerfdGettime);
  const long result = finish(fault ? -fault->error : timerSetting(fd, setting));
  if (tracing_) {
    trace("timerfd_gettime(" + std::to_string(fd) + ")",
          callResult(result, errno) +
              (result == 0 ? " [" + sim::seconds(setting.value) + ", " + sim::seconds(setting.interval) + "]" : ""));
  }
  return static_cast<int>(result);
}

// ---- Sleeping -----------------------------------------------------------------------------------

long Kernel::sleepFor(microseconds time, microseconds& left) {
  if (time.count() < 0) return -EINVAL;
  const microseconds start = time_;
  const auto look = []() -> std::optional<long> { return std::nullopt; };
  const long result = waitUntil(time, look, [] { return "a sleep"; });
  left = std::max(time - (time_ - start), microseconds(0));
  return result;
}

// A clock that is set meanwhile ends the sleep earlier or later.
long Kernel::sleepUntil(clockid_t clock, microseconds time) {
  if (time.count() < 0) return -EINVAL;
  constexpr long kWasSet = 1;
  for (;;) {
    const microseconds offset = isWallClock(clock) ? clockOffset_ : microseconds(0);
    const auto look = [&]() -> std::optional<long> {
      if (isWallClock(clock) && clockOffset_ != offset) return kWasSet;
      return std::nullopt;
    };
    const long result = waitUntil(std::max(time - offset - time_, microseconds(0)), look, [] { return "a sleep"; });
    if (result != kWasSet) return result;
  }
}

int Kernel::nanosleep(microseconds time, microseconds& left) {
  const auto fault = countCall(Call::kNanosleep);
  const microseconds start = time_;
  const long result = finish(fault ? -fault->error : sleepFor(time, left));
  if (tracing_) trace("nanosleep(" + timeoutText(time) + ")", callResult(result, errno));
  passShortWait(start);
  return static_cast<int>(result);
}

int Kernel::clockNanosleep(clockid_t clock, int flags, microseconds time, microseconds& left) {
  const auto fault = countCall(Call::kClockNanosleep);
  const microseconds start = time_;
  const bool isAbsolute = (flags & TIMER_ABSTIME) != 0;
  const long result = fault ? fault->error : -(isAbsolute ? sleepUntil(clock, time) : sleepFor(time, left));
  if (tracing_) {
    trace("clock_nanosleep(" + clockName(clock) + (isAbsolute ? ", TIMER_ABSTIME, " : ", ") + timeoutText(time) + ")",
          result == 0 ? "0" : errorName(static_cast<int>(result)));
  }
  passShortWait(start);
  return static_cast<int>(result);
}

int Kernel::usleep(microseconds time) {
  const auto fault = countCall(Call::kUsleep);
  const microseconds start = time_;
  microseconds left(0);
  const long result = finish(fault ? -fault->error : sleepFor(time, left));
  if (tracing_) trace("usleep(" + std::to_string(time.count()) + ")", callResult(result, errno));
  passShortWait(start);
  return static_cast<int>(result);
}

void Kernel::deadlock(const std::string& wait) {
  std::fprintf(stderr,
               "sim: deadlock: %s would wait forever, since nothing is scheduled any more.\n"
               "Schedule input (after), a signal (signalAfter), or wait with a timeout.\n",
               wait.c_str());
  std::abort();
}

}  // namespace quarlo::sim
