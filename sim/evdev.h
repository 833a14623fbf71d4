// The kernel's side of an evdev node: what the input core lets through, and the buffer that each open descriptor has.
#pragma once

#include <linux/input.h>
#include <linux/ioctl.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sim/machine.h"
#include "sim/wait_queue.h"

namespace quarlo::sim {

// The machine's clocks, and timers that do not count as something that the machine's user has scheduled.
class Timers {
 public:
  using Happenings = std::multimap<microseconds, std::function<void()>>;  // by time

  virtual microseconds now() const = 0;
  virtual microseconds monotonic() const = 0;
  virtual Happenings::iterator afterInBackground(microseconds delay, std::function<void()> happening) = 0;

  // REQUIRES: it has not happened.
  virtual void cancelInBackground(Happenings::iterator happening) = 0;

 protected:
  ~Timers() = default;
};

// An ioctl's request with a size of 0.
inline unsigned withoutSize(unsigned request) { return request & ~(unsigned{_IOC_SIZEMASK} << _IOC_SIZESHIFT); }

// A record of this time.
input_event makeRecord(microseconds time, int type, int code, int value);

// The ring of records of one open descriptor (struct evdev_client of the kernel's drivers/input/evdev.c).
class EvdevClient {
 public:
  // `size` is a power of two.
  explicit EvdevClient(std::size_t size) : buffer_(size) {}

  // Queues a record. Nothing is readable before the next SYN_REPORT. When the ring is full, everything but the newest
  // record is dropped, and a SYN_DROPPED is put before that.
  void push(const input_event& record);

  bool readable() const { return tail_ != packetHead_; }

  // Whether nothing was queued since the last SYN_REPORT.
  bool packetIsEmpty() const { return packetHead_ == head_; }

  // REQUIRES: readable()
  const input_event& front() const { return buffer_[tail_].record; }
  void pop() { tail_ = next(tail_); }

  // Which one that is of all that push() was given, counted from 1; 0: a SYN_DROPPED that was put there.
  // REQUIRES: readable()
  std::uint64_t frontNumber() const { return buffer_[tail_].number; }

  // Drops the records of a type, and the SYN_REPORTs that then follow another one at once. As in the kernel, a
  // SYN_REPORT at the front stays. What is not readable yet is dropped, too.
  void dropRecords(int type);

  // Queues a SYN_DROPPED of this time, which is not readable before the next SYN_REPORT. When that fills the ring, it
  // is all that stays.
  void pushDropped(microseconds time);

  bool isEmpty() const { return head_ == tail_; }
  void clear() { packetHead_ = head_ = tail_; }

  clockid_t clock = CLOCK_REALTIME;  // whose time the records have
  WaitQueue changed;

 private:
  std::size_t next(std::size_t index) const { return (index + 1) & (buffer_.size() - 1); }

  struct Queued {
    input_event record;
    std::uint64_t number;
  };

  std::vector<Queued> buffer_;
  std::uint64_t pushed_ = 0;
  std::size_t head_ = 0;
  std::size_t tail_ = 0;
  std::size_t packetHead_ = 0;
};

struct NodeState : std::enable_shared_from_this<NodeState> {
  NodeState(Device what, Timers& machineTimers);

  // A new descriptor's buffer: 64 records for a plain keyboard, 128 for a mouse, more for multi-touch, as the kernel
  // estimates it.
  std::shared_ptr<EvdevClient> connect();
  void disconnect(const std::shared_ptr<EvdevClient>& client);

  // What a driver reports, which the input core filters, and what reaches the buffers as it is; both now.
  void report(int type, int code, int value);
  void deliver(int type, int code, int value);

  // What states() tells of a code from now on.
  void setState(int type, int code, bool isOn) { lastValue_[{type, code}] = isOn ? 1 : 0; }

  void unplug();

  // EVIOCGRAB and the queries; the results are the ioctl's: a count or 0, or a negative errno. states() is EVIOCGKEY
  // and its sisters: of this event type, the codes that are down, lit or on. It drops the records of the type that the
  // client has queued, since the answer is newer.
  int grab(const std::shared_ptr<EvdevClient>& client, bool on);
  int bits(int type, unsigned char* buffer, std::size_t size) const;
  int properties(unsigned char* buffer, std::size_t size) const;
  int axis(int code, void* buffer, std::size_t size) const;
  int autoRepeat(unsigned* delayAndPeriod) const;
  int states(EvdevClient& client, int type, unsigned char* buffer, std::size_t size) const;

  // EVIOCSCLOCKID. What is queued has times of another clock, and is dropped.
  int setClock(EvdevClient& client, clockid_t clock) const;

  Device device;
  Timers& timers;
  dev_t number = 0;  // as fstat() tells it
  bool present = true;
  bool grabbedElsewhere = false;
  std::shared_ptr<EvdevClient> grabber;
  int openError = 0;
  std::map<unsigned, int> ioctlErrors;  // by request, without its size
  std::size_t mostStates = SIZE_MAX;    // bytes of an answer
  std::function<void(std::uint64_t)> onRead;

 private:
  bool passes(input_event& record);
  bool positionPasses(input_event& record);
  bool setAutoRepeat(const input_event& record);
  void reportSlotIfNew(const input_event& record);
  void passPacket();
  microseconds timeFor(const EvdevClient& client) const;
  void startOrStopAutoRepeat(const input_event& record);
  void autoRepeatAfter(microseconds delay);

  const int slots_;               // how many contacts a multi-touch device tells apart, 0 if it has no slots
  const std::size_t packetSize_;  // how many records between two SYN_REPORTs are expected of it
  std::vector<std::shared_ptr<EvdevClient>> clients_;
  std::vector<input_event> packet_;               // reported since the last SYN_REPORT, without a time
  std::map<std::pair<int, int>, int> lastValue_;  // by type and code; of an axis it is in the device
  std::map<std::pair<int, int>, int> slotValue_;  // of multi-touch axes, by slot and code
  int slot_ = 0;                                  // the one that ABS_MT_SLOT has chosen
  int repeatKey_ = 0;                             // what auto-repeat repeats, 0: nothing
  int repeatTimer_ = 0;                           // the number of its timer: earlier ones have been stopped
};

}  // namespace quarlo::sim
