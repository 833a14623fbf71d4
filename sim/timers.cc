#include "sim/timers.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace quarlo::sim {

// ---- timerfd ------------------------------------------------------------------------------------

TimerFile::~TimerFile() { stop(); }

void TimerFile::set(const TimerSetting& setting, bool isAbsolute) {
  // A time from now on passes, whatever becomes of the clock on the wall.
  followsTheWall_ = isAbsolute && clock_ == CLOCK_REALTIME;
  hasExpired_ = false;
  count_ = 0;
  interval_ = setting.interval;
  expiry_ = isAbsolute ? setting.value : clockTime() + setting.value;
  isRunning_ = setting.value.count() != 0;
  start();
}

TimerSetting TimerFile::setting() {
  countExpiries();
  if (!isRunning_) return {microseconds(0), interval_};
  return {std::max(expiry_ - clockTime(), microseconds(1)), interval_};
}

void TimerFile::stop() {
  if (scheduled_) timers_.cancelInBackground(*scheduled_);
  scheduled_.reset();
}

// Has the next expiry scheduled, instead of what was.
void TimerFile::start() {
  stop();
  if (!isRunning_) return;
  const microseconds delay = expiry_ - clockTime();
  if (delay.count() <= 0) {
    isRunning_ = false;
    hasExpired_ = true;
    ++count_;
    changed_.wake(POLLIN);
    return;
  }
  scheduled_ = timers_.afterInBackground(delay, [this] {
    scheduled_.reset();
    start();
  });
}

void TimerFile::countExpiries() {
  if (!std::exchange(hasExpired_, false) || interval_.count() == 0) return;
  const auto missed = std::max<std::int64_t>((clockTime() - expiry_) / interval_, 0);
  count_ += static_cast<std::uint64_t>(missed);
  expiry_ += (missed + 1) * interval_;
  isRunning_ = true;
  start();
}

void TimerFile::clockWasSet() {
  if (followsTheWall_) start();
}

short TimerFile::state() const { return count_ > 0 ? short{POLLIN} : short{0}; }

ssize_t TimerFile::read(void* buffer, std::size_t size) {
  if (size < sizeof count_) return -EINVAL;
  if (count_ == 0) return -EAGAIN;
  countExpiries();
  const std::uint64_t count = std::exchange(count_, 0);
  std::memcpy(buffer, &count, sizeof count);
  return sizeof count;
}

ssize_t TimerFile::write(const void* /*data*/, std::size_t /*size*/) { return -EINVAL; }

// ---- eventfd ------------------------------------------------------------------------------------

namespace {

constexpr std::uint64_t kHighestCount = std::numeric_limits<std::uint64_t>::max() - 1;

}  // namespace

short EventFile::state() const {
  return static_cast<short>((count_ > 0 ? POLLIN : 0) | (count_ < kHighestCount ? POLLOUT : 0));
}

ssize_t EventFile::read(void* buffer, std::size_t size) {
  if (size < sizeof count_) return -EINVAL;
  if (count_ == 0) return -EAGAIN;
  const std::uint64_t taken = isSemaphore_ ? 1 : count_;
  count_ -= taken;
  std::memcpy(buffer, &taken, sizeof taken);
  changed_.wake(POLLOUT);
  return sizeof taken;
}

ssize_t EventFile::write(const void* data, std::size_t size) {
  if (size < sizeof count_) return -EINVAL;
  std::uint64_t added;
  std::memcpy(&added, data, sizeof added);
  if (added > kHighestCount) return -EINVAL;
  if (added > kHighestCount - count_) return -EAGAIN;
  count_ += added;
  changed_.wake(POLLIN);
  return sizeof added;
}

}  // namespace quarlo::sim
