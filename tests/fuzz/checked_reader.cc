#include "tests/fuzz/checked_reader.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <utility>

#include "input/linux_input_reader_limits.h"
#include "tests/fuzz/rules.h"

namespace quarlo::fuzz {
namespace {

using namespace std::chrono_literals;
using msg::KeyInput;
using sim::Call;
using sim::microseconds;
using InputEvent = LinuxInputReader::InputEvent;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;
using Bytes = std::array<std::uint8_t, sizeof(InputEvent)>;

constexpr microseconds kShortestSelect(10);  // the simulated machine's
constexpr microseconds kSignalDelay = 1s;

// What the reader has not written.
constexpr std::uint8_t kUntouched = 0xEE;

Bytes bytesOf(const InputEvent& event) {
  Bytes bytes;
  std::memcpy(bytes.data(), &event, bytes.size());
  return bytes;
}

bool areAll(const Bytes& bytes, std::size_t first, std::size_t end, std::uint8_t value) {
  return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(first),
                     bytes.begin() + static_cast<std::ptrdiff_t>(end),
                     [value](std::uint8_t byte) { return byte == value; });
}

bool isUntouched(const InputEvent& event) { return areAll(bytesOf(event), 0, sizeof(InputEvent), kUntouched); }

bool isBetween(std::int64_t value, std::int64_t least, std::int64_t most) { return value >= least && value <= most; }

// An event either comes whole from the holding slot, whose padding was zeroed, or leaves what it does not name alone.
void checkPadding(const InputEvent& event) {
  constexpr std::size_t kPayload = offsetof(InputEvent, keyData);
  constexpr std::size_t kAfterCharacter = kPayload + offsetof(KeyData, ch) + sizeof(KeyData::ch);
  constexpr std::size_t kAfterClicks = kPayload + offsetof(MouseData, clicks) + sizeof(MouseData::clicks);
  constexpr std::size_t kAfterFlags = offsetof(InputEvent, flags) + sizeof(InputEvent::flags);
  const Bytes bytes = bytesOf(event);
  if (areAll(bytes, kAfterFlags, kPayload, 0)) return;
  const bool isKey = event.kind == InputEvent::kKeyEvent;
  const bool untouched = areAll(bytes, kAfterFlags, kPayload, kUntouched) &&
                         (isKey ? areAll(bytes, kAfterCharacter, kPayload + offsetof(KeyData, modifiers), kUntouched)
                                : areAll(bytes, kAfterClicks, sizeof event, kUntouched));
  require(untouched, "bytes between the fields of the caller's event keep what they held");
}

}  // namespace

// ---- Calls --------------------------------------------------------------------------------------

CheckedReader::CheckedReader(sim::Machine& machine) : machine_(machine), reader_(std::in_place) { checkState(); }

CheckedReader::~CheckedReader() {
  reader_.reset();
  require(machine_.openDescriptors() == 0, "a destroyed reader has closed its descriptors");
}

void CheckedReader::init(const char* mouseDevice, const char* keyboardDevice, const char* lircSocket,
                         std::uint32_t width, std::uint32_t height) {
  const bool open = reader_->init(mouseDevice, keyboardDevice, lircSocket, width, height);
  require(open == (openSources() != 0), "init() returns whether a source is open");
  checkState();
}

bool CheckedReader::readInput(int timeoutMs) {
  const bool wasHeld = reader_->hasPendingEvent;
  const Bytes held = bytesOf(reader_->pendingEvent);
  const Counts before = counts();
  const microseconds start = machine_.now();
  if (timeoutMs == -1) machine_.signalAfter(kSignalDelay);

  InputEvent event;
  std::memset(static_cast<void*>(&event), kUntouched, sizeof event);
  const bool result = reader_->readInput(event, timeoutMs);

  checkCalls(before, wasHeld);
  checkWait(timeoutMs, machine_.now() - start);
  if (wasHeld) {
    require(result && bytesOf(event) == held, "a held event is delivered as it is");
    require(!reader_->hasPendingEvent, "a held event is delivered once");
  }
  require(result || isUntouched(event), "false means that nothing was written");
  if (!isUntouched(event)) checkEvent(event);
  if (result && !hasDevice()) checkRemote(event);
  checkState();
  return result;
}

void CheckedReader::listLinuxInputReader() {
  reader_->listLinuxInputReader();
  checkState();
}

// ---- Rules of a call ----------------------------------------------------------------------------

CheckedReader::Counts CheckedReader::counts() const {
  Counts result = {};
  for (std::size_t i = 0; i < result.size(); ++i) result[i] = machine_.count(static_cast<Call>(i));
  return result;
}

void CheckedReader::checkCalls(const Counts& before, bool wasHeld) const {
  const Counts after = counts();
  const auto made = [&](Call call) {
    return after[static_cast<std::size_t>(call)] - before[static_cast<std::size_t>(call)];
  };
  if (wasHeld || openSources() == 0) {
    require(after == before, "a held event, or no source, needs no system call");
    return;
  }
  const int drains = static_cast<int>(reader_->keyboardFd >= 0) + static_cast<int>(reader_->mouseFd >= 0);
  const int reads = components::input::kRecordsPerDrain * drains + static_cast<int>(reader_->lircFd >= 0);
  require(made(Call::kRead) <= reads, "a drain reads at most 20 records, and the remote is read once");
  require(made(Call::kSelect) == 1, "a call waits once");
  require(made(Call::kGettimeofday) <= 3, "the clock is read for the wait and twice for a remote's line at most");
  for (const Call call : {Call::kOpen, Call::kClose, Call::kIoctl, Call::kSocket, Call::kConnect, Call::kGetenv}) {
    require(made(call) == 0, "reading opens, closes and asks nothing");
  }
}

void CheckedReader::checkWait(int timeoutMs, microseconds waited) const {
  if (timeoutMs == -1) {
    require(waited <= kSignalDelay + kShortestSelect, "a signal ends the wait");
  } else if (isBetween(timeoutMs, 0, components::input::kLongestTimeoutMs)) {
    require(waited <= std::chrono::milliseconds(timeoutMs) + kShortestSelect, "the wait ends at the timeout");
  }
}

// ---- Rules of an event --------------------------------------------------------------------------

void CheckedReader::checkEvent(const InputEvent& event) const {
  require(event.kind == InputEvent::kKeyEvent || event.kind == InputEvent::kMouseEvent, "an event has a kind");
  require(event.flags == 0, "an event's flags are 0");
  checkPadding(event);
  if (event.kind == InputEvent::kKeyEvent) {
    checkKey(event.keyData);
  } else {
    checkMouse(event.mouseData);
  }
}

namespace {

constexpr KeyInput::Key kKeys[] = {
#define KEY_NAME(name) KeyInput::k##name,
#include "key_names.inc"  // from msg/key_input.h
#undef KEY_NAME
};

// A remote's button whose name is a single byte has that byte's code.
bool isKeyCode(KeyInput::Key key) {
  return isBetween(key, KeyInput::kNone, UINT8_MAX) ||
         std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

}  // namespace

void CheckedReader::checkKey(const KeyData& key) const {
  require(key.action == KeyData::kDown || key.action == KeyData::kUp, "a key goes down or up");
  require(isKeyCode(key.key), "a key's code is one of the message types'");
  require(key.modifiers <= (KeyInput::kControlModifier | KeyInput::kShiftModifier | KeyInput::kAltModifier),
          "the modifiers are Control, Shift and Alt");
}

void CheckedReader::checkMouse(const MouseData& mouse) const {
  const bool moved = mouse.action == MouseData::kMove;
  require(isBetween(mouse.action, MouseData::kMove, MouseData::kButtonUp),
          "a mouse moves, or a button goes down or up");
  require(isBetween(mouse.button, moved ? MouseData::kNoButton : MouseData::kLeft, MouseData::kMiddle),
          "a button is the left, the right or the middle one");
  require(!moved || mouse.clicks == 0, "a move has no clicks");
  if (isBetween(reader_->maxX, 0, UINT16_MAX)) require(mouse.x <= reader_->maxX, "an event's x is within the bounds");
  if (isBetween(reader_->maxY, 0, UINT16_MAX)) require(mouse.y <= reader_->maxY, "an event's y is within the bounds");
}

// Only a device's records can give true without an event.
void CheckedReader::checkRemote(const InputEvent& event) const {
  require(event.kind == InputEvent::kKeyEvent && event.keyData.action == KeyData::kDown, "a remote's key goes down");
  require(event.keyData.modifiers == KeyInput::kNoModifier, "a remote has no modifiers");
  require(event.keyData.key == reader_->lircKey, "a remote's key that was delivered is held");
  require(static_cast<std::uint8_t>(event.keyData.ch) == static_cast<std::uint8_t>(reader_->lircChar),
          "a remote's character is the low byte of the held one");
}

// ---- Rules of the state -------------------------------------------------------------------------

void CheckedReader::checkState() const {
  require(machine_.openDescriptors() == openSources(), "what is open on the machine is the reader's sources");
  checkPosition(reader_->pointerX, reader_->maxX);
  checkPosition(reader_->pointerY, reader_->maxY);
  require(isBetween(reader_->pressedButton, MouseData::kNoButton, MouseData::kMiddle),
          "the pressed button is none, the left, the right or the middle one");
  require(reader_->lircRepeatTimeout > 0 && reader_->lircReleaseTimeout > 0, "the remote's timeouts are positive");
  require(reader_->lircTimeout == 0 || reader_->lircTimeout == reader_->lircRepeatTimeout ||
              reader_->lircTimeout == reader_->lircReleaseTimeout,
          "the remote's present timeout is one of the two");
  require(isBetween(reader_->lircKey, KeyInput::kNone, KeyInput::kMenu), "the remote's key is one of its buttons'");
  require(!reader_->lircRepeatMode || reader_->lircKey != KeyInput::kNone, "the repeat mode is that of a held key");
  checkWaitSet();
}

// The pointer starts at 0, also where no position is within the bounds.
void CheckedReader::checkPosition(std::int32_t position, std::int32_t max) const {
  require(isBetween(position, 0, max) || (max < 0 && (position == 0 || position == max)),
          "the pointer is within the bounds");
}

void CheckedReader::checkWaitSet() const {
  if (reader_->maxFd == -1) return;
  const std::array<int, 3> sources = {reader_->mouseFd, reader_->keyboardFd, reader_->lircFd};
  const int highest = *std::max_element(sources.begin(), sources.end());
  require(reader_->maxFd == std::min(highest, FD_SETSIZE - 1), "the highest descriptor is that of a source");
  fd_set others = reader_->readSet;
  for (const int fd : sources) {
    if (isBetween(fd, 0, FD_SETSIZE - 1)) FD_CLR(fd, &others);
  }
  constexpr fd_set kNone = {};
  require(std::memcmp(&others, &kNone, sizeof others) == 0, "the set to wait on holds nothing but sources");
}

bool CheckedReader::hasDevice() const { return reader_->mouseFd >= 0 || reader_->keyboardFd >= 0; }

int CheckedReader::openSources() const {
  return static_cast<int>(reader_->mouseFd >= 0) + static_cast<int>(reader_->keyboardFd >= 0) +
         static_cast<int>(reader_->lircFd >= 0);
}

}  // namespace quarlo::fuzz
