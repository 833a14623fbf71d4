#include "sim/evdev.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace quarlo::sim {
namespace {

constexpr int kAutoRepeat = 2;

// The kernel's defaults (input_enable_softrepeat() of drivers/input/input.c).
constexpr std::chrono::milliseconds kAutoRepeatDelay(250);
constexpr std::chrono::milliseconds kAutoRepeatPeriod(33);

bool isReport(const input_event& record) { return record.type == EV_SYN && record.code == SYN_REPORT; }

// The highest code of an event type whose bits can be asked for, 0 for the others.
int highestCode(int type) {
  switch (type) {
    case 0: return EV_MAX;
    case EV_KEY: return KEY_MAX;
    case EV_REL: return REL_MAX;
    case EV_ABS: return ABS_MAX;
    case EV_MSC: return MSC_MAX;
    case EV_LED: return LED_MAX;
    case EV_SND: return SND_MAX;
    case EV_FF: return FF_MAX;
    case EV_SW: return SW_MAX;
    default: return 0;
  }
}

// Whether the codes of an event type are just on or off.
bool isOnOrOff(int type) { return type == EV_KEY || type == EV_LED || type == EV_SND || type == EV_SW; }

// How many bytes of bits the kernel answers: whole longs, but never more than it is asked for.
std::size_t answerLength(int type, std::size_t size) {
  const std::size_t longs = (static_cast<std::size_t>(highestCode(type)) / 8 / sizeof(long)) + 1;
  return std::min(longs * sizeof(long), size);
}

void setBit(unsigned char* bits, std::size_t size, int bit) {
  const auto byte = static_cast<std::size_t>(bit) / 8;
  if (byte < size) bits[byte] = static_cast<unsigned char>(bits[byte] | 1U << (bit % 8));
}

}  // namespace

input_event makeRecord(microseconds time, int type, int code, int value) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  input_event record = {};
  record.input_event_sec = static_cast<decltype(record.input_event_sec)>(seconds.count());
  record.input_event_usec = static_cast<decltype(record.input_event_usec)>((time - seconds).count());
  record.type = static_cast<__u16>(type);
  record.code = static_cast<__u16>(code);
  record.value = value;
  return record;
}

void EvdevClient::push(const input_event& record) {
  buffer_[head_] = record;
  head_ = next(head_);
  if (head_ == tail_) {
    tail_ = (head_ - 2) & (buffer_.size() - 1);
    buffer_[tail_] = record;
    buffer_[tail_].type = EV_SYN;
    buffer_[tail_].code = SYN_DROPPED;
    buffer_[tail_].value = 0;
    packetHead_ = tail_;
  }
  if (!isReport(record)) return;
  packetHead_ = head_;
  changed.wake(POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM);
}

// As __evdev_flush_queue().
void EvdevClient::dropRecords(int type) {
  std::size_t end = tail_;
  bool packetIsEmpty = false;
  for (std::size_t i = tail_; i != head_; i = next(i)) {
    const input_event record = buffer_[i];
    if (record.type == type || (isReport(record) && packetIsEmpty)) continue;
    buffer_[end] = record;
    end = next(end);
    packetIsEmpty = isReport(record);
    if (packetIsEmpty) packetHead_ = end;
  }
  head_ = end;
}

// As __evdev_queue_syn_dropped().
void EvdevClient::pushDropped(microseconds time) {
  const std::size_t index = head_;
  buffer_[index] = makeRecord(time, EV_SYN, SYN_DROPPED, 0);
  head_ = next(head_);
  if (head_ == tail_) tail_ = packetHead_ = index;
}

// As input_estimate_events_per_packet() does for devices without multi-touch.
std::size_t NodeState::packetSize() const {
  constexpr std::size_t kKeysAndMisc = 7;
  std::size_t axes = 0;
  for (const int type : {EV_ABS, EV_REL}) {
    const auto found = device.codes.find(type);
    if (found != device.codes.end()) axes += found->second.size();
  }
  return 1 + axes + kKeysAndMisc;
}

std::shared_ptr<EvdevClient> NodeState::connect() {
  constexpr std::size_t kSmallest = 64;
  constexpr std::size_t kPackets = 8;
  std::size_t size = kSmallest;
  while (size < kPackets * packetSize()) size *= 2;
  clients_.push_back(std::make_shared<EvdevClient>(size));
  return clients_.back();
}

void NodeState::disconnect(const std::shared_ptr<EvdevClient>& client) {
  if (grabber == client) grabber = nullptr;
  clients_.erase(std::find(clients_.begin(), clients_.end(), client));
}

bool NodeState::passes(const input_event& record) {
  if (record.type == EV_SYN) return true;
  const auto type = device.codes.find(record.type);
  if (type == device.codes.end() || type->second.count(record.code) == 0) return false;
  if (record.type == EV_REL) return record.value != 0;
  if (record.type == EV_MSC) return true;
  if (record.type == EV_KEY && record.value == kAutoRepeat) return true;
  int& last = lastValue_[{record.type, record.code}];
  const bool changed = isOnOrOff(record.type) ? (last != 0) != (record.value != 0) : last != record.value;
  last = record.value;
  return changed || record.type == EV_SND;
}

void NodeState::report(int type, int code, int value) {
  const input_event record = makeRecord(timers.now(), type, code, value);
  if (!passes(record)) return;
  packet_.push_back(record);
  if (isReport(record)) {
    // An empty report does not get this far in the kernel either.
    if (packet_.size() > 1) passPacket();
    packet_.clear();
  } else if (packet_.size() >= packetSize()) {
    // The kernel cuts a packet that is longer than it expected, and marks that by a value of 1.
    packet_.push_back(record);
    packet_.back().type = EV_SYN;
    packet_.back().code = SYN_REPORT;
    packet_.back().value = 1;
    passPacket();
    packet_.clear();
  }
}

void NodeState::passPacket() {
  for (const input_event& record : packet_) {
    deliver(record);
    startOrStopAutoRepeat(record);
  }
}

// As input_pass_values() does: the last key that was pressed repeats, until any is released.
void NodeState::startOrStopAutoRepeat(const input_event& record) {
  if (record.type != EV_KEY || record.value == kAutoRepeat || device.codes.count(EV_REP) == 0) return;
  ++repeatTimer_;
  repeatKey_ = record.value != 0 ? record.code : 0;
  if (repeatKey_ != 0) autoRepeatAfter(kAutoRepeatDelay);
}

void NodeState::autoRepeatAfter(microseconds delay) {
  timers.afterInBackground(delay, [node = weak_from_this(), timer = repeatTimer_] {
    const std::shared_ptr<NodeState> self = node.lock();
    if (self == nullptr || !self->present || self->repeatTimer_ != timer) return;
    self->deliver(EV_KEY, self->repeatKey_, kAutoRepeat);
    self->deliver(EV_SYN, SYN_REPORT, 1);
    self->autoRepeatAfter(kAutoRepeatPeriod);
  });
}

void NodeState::deliver(int type, int code, int value) { deliver(makeRecord(timers.now(), type, code, value)); }

void NodeState::deliver(const input_event& record) {
  if (!present || grabbedElsewhere) return;
  for (const auto& client : clients_) {
    if (grabber == nullptr || grabber == client) client->push(record);
  }
}

void NodeState::unplug() {
  present = false;
  for (const auto& client : clients_) client->changed.wake(POLLHUP | POLLERR);
}

int NodeState::grab(const std::shared_ptr<EvdevClient>& client, bool on) {
  if (on) {
    if (grabber != nullptr || grabbedElsewhere) return -EBUSY;
    grabber = client;
    return 0;
  }
  if (grabber != client) return -EINVAL;
  grabber = nullptr;
  return 0;
}

int NodeState::name(char* buffer, std::size_t size) const {
  // The name, with its NUL if there is room for it.
  const std::size_t length = std::min(device.name.size() + 1, size);
  std::memcpy(buffer, device.name.c_str(), length);
  return static_cast<int>(length);
}

int NodeState::bits(int type, unsigned char* buffer, std::size_t size) const {
  if (highestCode(type) == 0) return -EINVAL;
  const std::size_t length = answerLength(type, size);
  std::memset(buffer, 0, length);
  if (type == 0) {
    setBit(buffer, length, EV_SYN);
    for (const auto& [supported, codes] : device.codes) setBit(buffer, length, supported);
  } else if (const auto found = device.codes.find(type); found != device.codes.end()) {
    for (const int code : found->second) setBit(buffer, length, code);
  }
  return static_cast<int>(length);
}

int NodeState::states(EvdevClient& client, int type, unsigned char* buffer, std::size_t size) const {
  client.dropRecords(type);
  const std::size_t length = answerLength(type, std::min(size, mostStates));
  if (length == 0) return 0;
  if (buffer == nullptr) {
    client.pushDropped(timers.now());
    return -EFAULT;
  }
  std::memset(buffer, 0, length);
  for (const auto& [code, value] : lastValue_) {
    if (code.first == type && value != 0) setBit(buffer, length, code.second);
  }
  return static_cast<int>(length);
}

}  // namespace quarlo::sim
