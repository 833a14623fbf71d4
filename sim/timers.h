// Timers and counters as descriptors: timerfd and eventfd.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

#include "sim/files.h"

namespace quarlo::sim {

// A timer's first expiry and the interval of those that follow; 0 for none. With a negative time, a call is invalid.
struct TimerSetting {
  microseconds value{0};
  microseconds interval{0};
};

// As fs/timerfd.c of the kernel: what has expired is counted at the read, and only that starts an interval again.
class TimerFile final : public File {
 public:
  TimerFile(bool isBlocking, clockid_t clock, Timers& timers) : File(isBlocking), clock_(clock), timers_(timers) {}
  ~TimerFile() override;

  // Starts it, or ends it with a value of 0. `isAbsolute` is of the clock that it was made with.
  void set(const TimerSetting& setting, bool isAbsolute);

  // What is left until the next expiry.
  TimerSetting setting();

  short state() const override;
  ssize_t read(void* buffer, std::size_t size) override;
  ssize_t write(const void* data, std::size_t size) override;
  WaitQueue* waitQueue() override { return &changed_; }
  void clockWasSet() override;
  TimerFile* timer() override { return this; }

 private:
  microseconds clockTime() const { return followsTheWall_ ? timers_.now() : timers_.monotonic(); }
  void start();
  void stop();
  void countExpiries();

  clockid_t clock_;
  Timers& timers_;
  bool followsTheWall_ = false;
  bool isRunning_ = false;
  microseconds expiry_{0};  // the next one, on its clock
  microseconds interval_{0};
  bool hasExpired_ = false;  // since the last read
  std::uint64_t count_ = 0;
  std::optional<Timers::Happenings::iterator> scheduled_;  // the next expiry
  WaitQueue changed_;
};

class EventFile final : public File {
 public:
  EventFile(bool isBlocking, bool isSemaphore, unsigned count)
      : File(isBlocking), isSemaphore_(isSemaphore), count_(count) {}

  short state() const override;
  ssize_t read(void* buffer, std::size_t size) override;
  ssize_t write(const void* data, std::size_t size) override;
  WaitQueue* waitQueue() override { return &changed_; }

 private:
  bool isSemaphore_;
  std::uint64_t count_;
  WaitQueue changed_;
};

}  // namespace quarlo::sim
