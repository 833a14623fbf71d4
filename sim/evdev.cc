#include "sim/evdev.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace quarlo::sim {
namespace {

constexpr int kAutoRepeat = 2;

// Of a record that is not delivered yet: its time is that of its report, on the clock of each client.
constexpr microseconds kNoTimeYet(0);

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
std::size_t answerLength(int highest, std::size_t size) {
  const std::size_t longs = (static_cast<std::size_t>(highest) / 8 / sizeof(long)) + 1;
  return std::min(longs * sizeof(long), size);
}

void setBit(unsigned char* bits, std::size_t size, int bit) {
  const auto byte = static_cast<std::size_t>(bit) / 8;
  if (byte < size) bits[byte] = static_cast<unsigned char>(bits[byte] | 1U << (bit % 8));
}

// Those of the axes that a multi-touch device gives of each contact.
bool isOfAContact(int axis) { return axis >= ABS_MT_TOUCH_MAJOR && axis <= ABS_MT_TOOL_Y; }

bool hasAxis(const Device& device, int axis) {
  const auto found = device.codes.find(EV_ABS);
  return found != device.codes.end() && found->second.count(axis) != 0;
}

input_absinfo axisOf(const Device& device, int axis) {
  const auto found = device.axes.find(axis);
  return found == device.axes.end() ? input_absinfo() : found->second;
}

// As input_mt_init_slots(), which refuses a device with more.
int slotsOf(const Device& device) {
  constexpr int kMost = 1024;
  if (!hasAxis(device, ABS_MT_SLOT)) return 0;
  return std::clamp(axisOf(device, ABS_MT_SLOT).maximum, -1, kMost - 1) + 1;
}

// How many contacts at once the kernel expects of a device.
std::size_t expectedContacts(const Device& device) {
  if (const int slots = slotsOf(device); slots > 0) return static_cast<std::size_t>(slots);
  if (hasAxis(device, ABS_MT_TRACKING_ID)) {
    const input_absinfo id = axisOf(device, ABS_MT_TRACKING_ID);
    const auto range = static_cast<int>(static_cast<unsigned>(id.maximum) - static_cast<unsigned>(id.minimum) + 1);
    return static_cast<std::size_t>(std::clamp(range, 2, 32));
  }
  return hasAxis(device, ABS_MT_POSITION_X) ? 2 : 0;
}

// As input_estimate_events_per_packet(). Of contacts without slots, drivers expect more than it does.
std::size_t expectedPacket(const Device& device) {
  constexpr std::size_t kKeysAndMisc = 7;
  constexpr std::size_t kWithoutSlots = 60;
  const std::size_t contacts = expectedContacts(device);
  std::size_t size = contacts + 1 + kKeysAndMisc;
  if (const auto axes = device.codes.find(EV_ABS); axes != device.codes.end()) {
    for (const int axis : axes->second) size += axis == ABS_MT_SLOT || isOfAContact(axis) ? contacts : 1;
  }
  if (const auto axes = device.codes.find(EV_REL); axes != device.codes.end()) size += axes->second.size();
  const bool isWithoutSlots = !hasAxis(device, ABS_MT_SLOT) && hasAxis(device, ABS_MT_POSITION_X);
  return isWithoutSlots ? std::max(size, kWithoutSlots) : size;
}

// As input_defuzz_abs_event(): what comes of a position that is near the one before.
int smoothed(std::int64_t value, std::int64_t before, std::int64_t fuzz) {
  const std::int64_t distance = std::abs(value - before);
  if (distance < fuzz / 2) return static_cast<int>(before);
  if (distance < fuzz) return static_cast<int>((before * 3 + value) / 4);
  if (distance < fuzz * 2) return static_cast<int>((before + value) / 2);
  return static_cast<int>(value);
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
  buffer_[head_] = {record, ++pushed_};
  head_ = next(head_);
  if (head_ == tail_) {
    tail_ = (head_ - 2) & (buffer_.size() - 1);
    buffer_[tail_] = {record, 0};
    buffer_[tail_].record.type = EV_SYN;
    buffer_[tail_].record.code = SYN_DROPPED;
    buffer_[tail_].record.value = 0;
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
    const Queued queued = buffer_[i];
    if (queued.record.type == type || (isReport(queued.record) && packetIsEmpty)) continue;
    buffer_[end] = queued;
    end = next(end);
    packetIsEmpty = isReport(queued.record);
    if (packetIsEmpty) packetHead_ = end;
  }
  head_ = end;
}

// As __evdev_queue_syn_dropped().
void EvdevClient::pushDropped(microseconds time) {
  const std::size_t index = head_;
  buffer_[index] = {makeRecord(time, EV_SYN, SYN_DROPPED, 0), 0};
  head_ = next(head_);
  if (head_ == tail_) tail_ = packetHead_ = index;
}

NodeState::NodeState(Device what, Timers& machineTimers)
    : device(std::move(what)), timers(machineTimers), slots_(slotsOf(device)), packetSize_(expectedPacket(device)) {
  for (int slot = 0; slot < slots_; ++slot) slotValue_[{slot, ABS_MT_TRACKING_ID}] = -1;
}

std::shared_ptr<EvdevClient> NodeState::connect() {
  constexpr std::size_t kSmallest = 64;
  constexpr std::size_t kPackets = 8;
  std::size_t size = kSmallest;
  while (size < kPackets * packetSize_) size *= 2;
  clients_.push_back(std::make_shared<EvdevClient>(size));
  return clients_.back();
}

void NodeState::disconnect(const std::shared_ptr<EvdevClient>& client) {
  if (grabber == client) grabber = nullptr;
  clients_.erase(std::find(clients_.begin(), clients_.end(), client));
}

// As input_get_disposition(). The value can become another one.
bool NodeState::passes(input_event& record) {
  if (record.type == EV_SYN) return true;
  const auto type = device.codes.find(record.type);
  if (type == device.codes.end()) return false;
  if (record.type == EV_REP) return setAutoRepeat(record);
  if (type->second.count(record.code) == 0) return false;
  if (record.type == EV_REL) return record.value != 0;
  if (record.type == EV_ABS) return positionPasses(record);
  if (record.type == EV_MSC) return true;
  if (record.type == EV_KEY && record.value == kAutoRepeat) return true;
  int& last = lastValue_[{record.type, record.code}];
  const bool changed = isOnOrOff(record.type) ? (last != 0) != (record.value != 0) : last != record.value;
  last = record.value;
  return changed || record.type == EV_SND;
}

// As input_handle_abs_event().
bool NodeState::positionPasses(input_event& record) {
  if (record.code == ABS_MT_SLOT) {
    if (record.value >= 0 && record.value < slots_) slot_ = record.value;
    return false;
  }
  if (isOfAContact(record.code) && slots_ == 0) return true;
  int& last = isOfAContact(record.code) ? slotValue_[{slot_, record.code}] : device.axes[record.code].value;
  record.value = smoothed(record.value, last, axisOf(device, record.code).fuzz);
  return std::exchange(last, record.value) != record.value;
}

bool NodeState::setAutoRepeat(const input_event& record) {
  if (record.code > REP_MAX || record.value < 0) return false;
  std::chrono::milliseconds& time = record.code == REP_DELAY ? device.repeatDelay : device.repeatPeriod;
  return std::exchange(time, std::chrono::milliseconds(record.value)).count() != record.value;
}

// Says which slot the record is of.
void NodeState::reportSlotIfNew(const input_event& record) {
  if (record.type != EV_ABS || !isOfAContact(record.code) || slots_ == 0) return;
  if (std::exchange(device.axes[ABS_MT_SLOT].value, slot_) == slot_) return;
  packet_.push_back(makeRecord(kNoTimeYet, EV_ABS, ABS_MT_SLOT, slot_));
}

void NodeState::report(int type, int code, int value) {
  input_event record = makeRecord(kNoTimeYet, type, code, value);
  if (!passes(record)) return;
  reportSlotIfNew(record);
  packet_.push_back(record);
  if (isReport(record)) {
    // An empty report does not get this far in the kernel either.
    if (packet_.size() > 1) passPacket();
    packet_.clear();
  } else if (packet_.size() >= packetSize_) {
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
    deliver(record.type, record.code, record.value);
    startOrStopAutoRepeat(record);
  }
}

// As input_pass_values() does: the last key that was pressed repeats, until any is released.
void NodeState::startOrStopAutoRepeat(const input_event& record) {
  if (record.type != EV_KEY || record.value == kAutoRepeat || device.codes.count(EV_REP) == 0) return;
  const bool repeats = device.repeatDelay.count() != 0 && device.repeatPeriod.count() != 0;
  if (record.value != 0 && !repeats) return;
  ++repeatTimer_;
  repeatKey_ = record.value != 0 ? record.code : 0;
  if (repeatKey_ != 0) autoRepeatAfter(device.repeatDelay);
}

void NodeState::autoRepeatAfter(microseconds delay) {
  timers.afterInBackground(delay, [node = weak_from_this(), timer = repeatTimer_] {
    const std::shared_ptr<NodeState> self = node.lock();
    if (self == nullptr || !self->present || self->repeatTimer_ != timer) return;
    self->deliver(EV_KEY, self->repeatKey_, kAutoRepeat);
    self->deliver(EV_SYN, SYN_REPORT, 1);
    if (self->device.repeatPeriod.count() != 0) self->autoRepeatAfter(self->device.repeatPeriod);
  });
}

microseconds NodeState::timeFor(const EvdevClient& client) const {
  return client.clock == CLOCK_REALTIME ? timers.now() : timers.monotonic();
}

void NodeState::deliver(int type, int code, int value) {
  if (!present || grabbedElsewhere) return;
  for (const auto& client : clients_) {
    if (grabber == nullptr || grabber == client) client->push(makeRecord(timeFor(*client), type, code, value));
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

int NodeState::properties(unsigned char* buffer, std::size_t size) const {
  const std::size_t length = answerLength(INPUT_PROP_MAX, size);
  std::memset(buffer, 0, length);
  for (const int property : device.properties) setBit(buffer, length, property);
  return static_cast<int>(length);
}

// Of axes that the device does not have, the kernel tells zeroes, if it has any.
int NodeState::axis(int code, void* buffer, std::size_t size) const {
  if (device.codes.count(EV_ABS) == 0) return -EINVAL;
  const input_absinfo answer = axisOf(device, code);
  std::memcpy(buffer, &answer, std::min(size, sizeof answer));
  return 0;
}

int NodeState::autoRepeat(unsigned* delayAndPeriod) const {
  if (device.codes.count(EV_REP) == 0) return -ENOSYS;
  delayAndPeriod[0] = static_cast<unsigned>(device.repeatDelay.count());
  delayAndPeriod[1] = static_cast<unsigned>(device.repeatPeriod.count());
  return 0;
}

int NodeState::bits(int type, unsigned char* buffer, std::size_t size) const {
  if (highestCode(type) == 0) return -EINVAL;
  const std::size_t length = answerLength(highestCode(type), size);
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
  const std::size_t length = answerLength(highestCode(type), std::min(size, mostStates));
  if (length == 0) return 0;
  if (buffer == nullptr) {
    client.pushDropped(timeFor(client));
    return -EFAULT;
  }
  std::memset(buffer, 0, length);
  for (const auto& [code, value] : lastValue_) {
    if (code.first == type && value != 0) setBit(buffer, length, code.second);
  }
  return static_cast<int>(length);
}

// As evdev_set_clk_type().
int NodeState::setClock(EvdevClient& client, clockid_t clock) const {
  if (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC && clock != CLOCK_BOOTTIME) return -EINVAL;
  if (std::exchange(client.clock, clock) == clock || client.isEmpty()) return 0;
  client.clear();
  client.pushDropped(timeFor(client));
  return 0;
}

}  // namespace quarlo::sim
