#include "input/input_loop.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <utility>

#include "input/elapsed.h"
#include "input/linux_input_reader_limits.h"
#include "logging/logging.h"

namespace quarlo::components::input {

using msg::KeyInput;

static_assert(sizeof(InputLoop) <= (sizeof(long) == 4 ? 4096 : 6144), "two nodes with their queues, on the stack");

namespace {

constexpr const char* kGoneMessages[] = {"The keyboard is gone", "The mouse is gone", "The remote is gone"};

constexpr int kNoDescriptor = -1;

constexpr int kEventsPerLook = 16;  // at the clock

InputLoop::SourceSet bit(InputLoop::Source source) { return InputLoop::SourceSet{1} << source; }

std::int32_t msSince(const timeval& then) { return elapsedMs(then, currentTime()); }

bool isReadable(int fd) {
  pollfd look = {fd, POLLIN, 0};
  return poll(&look, 1, 0) > 0;
}

void logError(const char* what, int error) {
  if (logging::GetMinLogLevel() > logging::kError) return;
  logging::LogMessage("input/input_loop", __LINE__, logging::kError, "%s, errno = %d", what, error);
}

}  // namespace

// ---- Life cycle ---------------------------------------------------------------------------------

InputLoop::InputLoop(LinuxInputReader& reader) : reader_(reader) {
  channels_[kKeyboard] = &sources_.keyboard;
  channels_[kMouse] = &sources_.mouse;
  channels_[kRemote] = &sources_.remote;
  sources_.mouse.source = kMouse;
  sources_.remote.source = kRemote;
}

InputLoop::~InputLoop() {
  if (!sources_.remote.hasPipe) return;
  for (const int fd : sources_.remote.pipe) close(fd);
}

void InputLoop::setBound(int events, int ms) {
  boundEvents_ = events > 0 ? events : INT_MAX;
  boundMs_ = events > 0 ? ms : INT_MAX;
}

// ---- Sources ------------------------------------------------------------------------------------

// The reader's descriptors are looked at before each wait: it may have been given its sources later, or others.
void InputLoop::findSources() {
  constexpr int LinuxInputReader::*kDescriptors[] = {&LinuxInputReader::keyboardFd, &LinuxInputReader::mouseFd,
                                                     &LinuxInputReader::lircFd};
  for (Channel* channel : channels_) {
    const int fd = reader_.*kDescriptors[channel->source];
    if (fd == channel->readerFd) continue;
    channel->readerFd = fd;
    channel->fd = fd;
    gone_ &= ~bit(channel->source);
    ++generation_;
  }
}

// From now on the source is neither waited for nor read. The descriptor stays the reader's.
void InputLoop::report(Channel& channel, int error) {
  logError(kGoneMessages[channel.source], error);
  channel.fd = -1;
  gone_ |= bit(channel.source);
  unreported_ |= bit(channel.source);
  ++generation_;
}

// REQUIRES: a call on the source's descriptor has failed
void InputLoop::checkError(Channel& channel) {
  if (errno != EAGAIN && errno != EINTR) report(channel, errno);
}

// ---- Waiting ------------------------------------------------------------------------------------

InputLoop::Wake InputLoop::wait(int timeoutMs, int ownFd) {
  findSources();
  pollfd fds[kSources + 1];
  for (int i = 0; i < kSources; ++i) fds[i] = {channels_[i]->fd, POLLIN, 0};
  fds[kSources] = {ownFd, POLLIN, 0};

  const int dueMs = this->timeoutMs();
  const bool isDueFirst = dueMs >= 0 && (timeoutMs < 0 || dueMs < timeoutMs);
  const int found = poll(fds, kSources + 1, isDueFirst ? dueMs : timeoutMs);

  Wake wake = {};
  if (found == -1) {
    wake.signal = errno == EINTR;
    if (!wake.signal) {
      logError("Waiting failed", errno);
      setAllReady();
    }
  } else if (found > 0) {
    for (int i = 0; i < kSources; ++i) {
      if (fds[i].revents != 0) makeReady(*channels_[i]);
    }
    wake.ownFd = fds[kSources].revents != 0;
  }
  wake.gone = std::exchange(unreported_, 0);
  wake.input = hasSomething();
  wake.timeout = found == 0 && !isDueFirst;
  wake.remote = found == 0 && isDueFirst && !wake.input && wake.gone == 0;
  return wake;
}

int InputLoop::descriptors(pollfd* fds) {
  findSources();
  int count = 0;
  for (const Channel* channel : channels_) {
    if (channel->fd >= 0) fds[count++] = {channel->fd, POLLIN, 0};
  }
  return count;
}

std::uint32_t InputLoop::generation() {
  findSources();
  return generation_;
}

bool InputLoop::hasSomething() const { return ready_ != 0 || reader_.hasPendingEvent || unreported_ != 0; }

int InputLoop::timeoutMs() const {
  if (hasSomething()) return 0;
  if (reader_.lircKey == KeyInput::kNone) return -1;
  const std::int32_t limit = remoteLimitMs();
  const std::int32_t elapsed = msSince(reader_.lircKeyTime);
  if (limit <= elapsed) return 0;
  const std::uint32_t left = static_cast<std::uint32_t>(limit) - static_cast<std::uint32_t>(elapsed);
  return left < INT_MAX ? static_cast<int>(left) : INT_MAX;
}

// A hang-up or an error, too, makes a source ready: what its read says decides.
void InputLoop::setReady(int fd, int revents) {
  for (Channel* channel : channels_) {
    if (channel->fd == fd && fd >= 0 && revents != 0) makeReady(*channel);
  }
}

void InputLoop::setAllReady() {
  findSources();
  for (Channel* channel : channels_) {
    if (channel->fd >= 0) makeReady(*channel);
  }
}

void InputLoop::makeReady(Channel& channel) {
  channel.mayRead = true;
  ready_ |= bit(channel.source);
}

// ---- A round ------------------------------------------------------------------------------------

bool InputLoop::take(InputEvent& event, bool everything) {
  everything_ = everything;
  if (!roundIsOpen_) beginRound();
  event.kind = InputEvent::kNoEvent;
  while (takeHeld(event) || takeReady(event)) {
    if (everything || event.kind != InputEvent::kNoEvent) return true;
  }
  pollRemote(event);
  roundIsOpen_ = false;
  return false;
}

void InputLoop::beginRound() {
  roundIsOpen_ = true;
  over_ = 0;
  for (Channel* channel : channels_) channel->taken = 0;
  sources_.remote.last = LastLine::kNone;
}

// The functions that take something return whether they did. Whether it gave an event is said by the event's kind.
bool InputLoop::takeReady(InputEvent& event) {
  const SourceSet wanted = ready_ & ~over_;
  // As with the reader, a line that gives nothing ends the round.
  if (wanted == 0 || (sources_.remote.last == LastLine::kNothing && (wanted & bit(kRemote)) == 0)) return false;
  return ((wanted & bit(kKeyboard)) != 0 && drain(sources_.keyboard, event)) ||
         ((wanted & bit(kMouse)) != 0 && drain(sources_.mouse, event)) ||
         ((wanted & bit(kRemote)) != 0 && takeLine(event));
}

// The clock is read only at each 16th event, so a round with few does without it. Should it be set meanwhile, the
// number of events is still a bound.
void InputLoop::count(Channel& channel) {
  ++channel.taken;
  bool isOver = channel.taken >= boundEvents_;
  if (channel.taken == kEventsPerLook) {
    channel.start = currentTime();
  } else if (channel.taken % kEventsPerLook == 0) {
    isOver |= msSince(channel.start) >= boundMs_;
  }
  if (isOver) over_ |= bit(channel.source);
}

// What was held back, before anything else is read.
bool InputLoop::takeHeld(InputEvent& event) {
  if (!reader_.hasPendingEvent || isInDrain_) return false;
  reader_.hasPendingEvent = false;
  event = reader_.pendingEvent;
  cause_ = held_;
  return true;
}

// ---- Nodes --------------------------------------------------------------------------------------

namespace {

bool isWheel(const input_event& record) {
  return (record.code == REL_WHEEL || record.code == REL_HWHEEL) && record.value != 0;
}

constexpr int kModifierKeys[] = {KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_RIGHTALT};

}  // namespace

// As the reader's drain, of records that are read many at a time.
bool InputLoop::drain(Node& node, InputEvent& event) {
  int budget = kRecordsPerDrain;
  if (isInDrain_) {
    if (held_.source != node.source) return false;
    budget = budget_;
    isInDrain_ = false;
  } else {
    reader_.pointerMoved = false;
  }

  for (; budget > 0; --budget) {
    if (node.begin == node.end && !fill(node)) {
      ready_ &= ~bit(node.source);
      break;
    }
    input_event& record = node.records[node.begin++];
    if (record.type == EV_REL && record.code <= REL_Y) {
      remember(held_, node, record);
      reader_.translateEvent(&record, reader_.pendingEvent);
      reader_.hasPendingEvent = true;
    } else if (record.type == EV_KEY || (record.type == EV_REL && isWheel(record))) {
      takeKey(node, record, event);
      return true;
    } else if (everything_) {
      isInDrain_ = true;
      budget_ = budget - 1;
      held_.source = node.source;
      remember(cause_, node, record);
      return true;
    }
  }
  if (!takeHeld(event)) return false;
  count(node);
  return true;
}

// Takes a record that ends the drain. It must not overtake the motion before it.
void InputLoop::takeKey(Node& node, input_event& record, InputEvent& event) {
  count(node);
  if (takeHeld(event)) {
    remember(held_, node, record);
    translate(node, record, reader_.pendingEvent);
    reader_.hasPendingEvent = everything_ || reader_.pendingEvent.kind != InputEvent::kNoEvent;
  } else {
    remember(cause_, node, record);
    translate(node, record, event);
  }
}

// The code of a touch is rewritten in its record, so this comes before it is translated.
void InputLoop::remember(Cause& cause, const Node& node, const input_event& record) {
  cause.source = node.source;
  cause.number = node.before + static_cast<std::uint32_t>(node.begin);
  cause.record = record;
}

// Reads what is there, after what was read before has been taken. Returns whether there is something.
bool InputLoop::fill(Node& node) {
  if (!node.mayRead) return false;
  char* const bytes = reinterpret_cast<char*>(node.records);
  // The kernel gives whole records; a FIFO gives what its writer has written so far.
  if (node.cutBytes != 0) memmove(bytes, node.records + node.end, node.cutBytes);
  const std::size_t room = sizeof node.records - node.cutBytes;
  const ssize_t size = read(node.fd, bytes + node.cutBytes, room);
  node.mayRead = size == static_cast<ssize_t>(room);  // otherwise that was all
  node.before += static_cast<std::uint32_t>(node.end);
  node.begin = 0;
  node.end = 0;
  if (size > 0) {
    node.cutBytes += static_cast<std::size_t>(size);
    node.end = static_cast<int>(node.cutBytes / sizeof(input_event));
    node.cutBytes %= sizeof(input_event);
  } else if (size == -1) {
    checkError(node);
  } else if (isReadable(node.fd)) {
    // A FIFO that nobody has opened for writing yet gives nothing, either, but is not reported as readable.
    report(node, 0);
  }
  return node.end != 0;
}

void InputLoop::translate(Node& node, input_event& record, InputEvent& out) {
  if (record.type != EV_KEY) return writeWheel(record, out);
  out.kind = InputEvent::kNoEvent;
  const int code = record.code;
  const bool isDown = record.value != 0;
  node.setDown(code, isDown);
  // A touchpad reports a touch by two codes, which the reader takes for two presses of the left button.
  if ((code == BTN_TOUCH || code == BTN_TOOL_FINGER) && node.isDown(code ^ BTN_TOUCH ^ BTN_TOOL_FINGER)) return;

  reader_.translateEvent(&record, out);
  if (!isDown) keepTwin(code, out);
}

// A modifier stays while its other key is down, on any node.
void InputLoop::keepTwin(int released, InputEvent& out) {
  const Modifier modifier = LinuxInputReader::getModifier(released);
  if (modifier == KeyInput::kNoModifier) return;
  for (const int code : kModifierKeys) {
    if (LinuxInputReader::getModifier(code) != modifier) continue;
    if (!sources_.keyboard.isDown(code) && !sources_.mouse.isDown(code)) continue;
    reader_.modifiers |= modifier;
    out.keyData.modifiers |= modifier;
  }
}

void InputLoop::writeWheel(const input_event& record, InputEvent& out) const {
  out.kind = kWheelEvent;
  out.flags = 0;
  out.mouseData.action = record.code == REL_WHEEL ? kVertical : kHorizontal;
  out.mouseData.button = record.value;
  out.mouseData.x = static_cast<std::uint16_t>(reader_.pointerX);
  out.mouseData.y = static_cast<std::uint16_t>(reader_.pointerY);
  out.mouseData.clicks = 0;
}

// A FIFO can send codes that no kernel has.
void InputLoop::Node::setDown(int code, bool isDown) {
  if (code > KEY_MAX) return;
  const unsigned mask = 1U << (code % 8);
  const unsigned others = down[code / 8] & ~mask;
  down[code / 8] = static_cast<std::uint8_t>(isDown ? others | mask : others);
}

// ---- The remote ---------------------------------------------------------------------------------

// The reader reads the socket itself, takes whatever is there, and looks only at the first line in it. So only a line
// that is there alone is left to it. All others reach it one by one, through a pipe.
bool InputLoop::takeLine(InputEvent& event) {
  Remote& remote = sources_.remote;
  char* const text = remote.text + remote.size;
  const ssize_t seen = look(text, kLircReadSize - remote.size);
  if (seen <= 0) return false;

  const auto* end = static_cast<const char*>(memchr(text, '\n', static_cast<std::size_t>(seen)));
  const auto size = static_cast<std::size_t>(end != nullptr ? end - text + 1 : seen);
  const bool isAlone = end != nullptr && size == static_cast<std::size_t>(seen) && remote.size == 0 && !remote.isCut;
  if (isAlone || !openPipe()) {
    if (isAlone) ready_ &= ~bit(kRemote);
    remote.size = size;
    reader_.getLircEvent(remote.fd, event);
  } else {
    if (!append(size, end != nullptr)) return false;
    const bool isRest = std::exchange(remote.isCut, end == nullptr);
    if (!isRest) handOver(event);
  }
  finishLine(event.kind != InputEvent::kNoEvent);
  return true;
}

// Looks at what the daemon has sent, and leaves it there. Returns how much it is, or 0 or less if there is nothing.
ssize_t InputLoop::look(char* text, std::size_t size) {
  Remote& remote = sources_.remote;
  const ssize_t seen = recv(remote.fd, text, size, MSG_PEEK | MSG_DONTWAIT);
  if (seen > 0) {
    ready_ |= bit(kRemote);
    return seen;
  }
  ready_ &= ~bit(kRemote);
  if (seen == 0) {
    report(remote, 0);
  } else {
    checkError(remote);
  }
  return seen;
}

// Takes `size` bytes that were looked at to what there is of a line. Returns whether it is complete, or as long as a
// line that the reader cuts.
bool InputLoop::append(std::size_t size, bool hasEnd) {
  Remote& remote = sources_.remote;
  const ssize_t taken = recv(remote.fd, remote.text + remote.size, size, MSG_DONTWAIT);
  if (taken > 0) remote.size += static_cast<std::size_t>(taken);
  if (taken == static_cast<ssize_t>(size) && (hasEnd || remote.size == kLircReadSize)) return true;
  ready_ &= ~bit(kRemote);
  return false;
}

bool InputLoop::openPipe() {
  Remote& remote = sources_.remote;
  if (!remote.hasPipe) remote.hasPipe = pipe2(remote.pipe, O_NONBLOCK | O_CLOEXEC) == 0;
  if (!remote.hasPipe) logError("No pipe for LIRC lines", errno);
  return remote.hasPipe;
}

void InputLoop::handOver(InputEvent& event) {
  Remote& remote = sources_.remote;
  const bool isWritten = write(remote.pipe[1], remote.text, remote.size) != -1;
  if (isWritten && reader_.getLircEvent(remote.pipe[0], event)) return;
  // Should the reader have failed to read it, the line must not stand before the next one.
  if (!isWritten || read(remote.pipe[0], remote.text, kLircReadSize) > 0) logError("LIRC line lost", errno);
}

void InputLoop::finishLine(bool gaveKey) {
  Remote& remote = sources_.remote;
  remote.last = gaveKey ? LastLine::kKey : LastLine::kNothing;
  count(remote);
  cause_ = {kRemote, ++remote.number, {}};
  if (remote.text[remote.size - 1] == '\n') --remote.size;
  remote.text[remote.size] = '\0';
  remote.size = 0;
}

// The time since the key's last key-down from which on a poll without a line changes something, as the reader reckons:
// the repeat mode starts, or the key is forgotten.
std::int32_t InputLoop::remoteLimitMs() const {
  const std::int32_t limit = wrappingSum(reader_.lircTimeout, reader_.lircRepeatTimeout);
  return reader_.lircRepeatMode ? limit : std::min(limit, reader_.lircTimeout);
}

// Makes a poll without a line, if it is due. The reader makes none in a round whose last line gave nothing.
void InputLoop::pollRemote(InputEvent& event) {
  Remote& remote = sources_.remote;
  if (reader_.lircKey == KeyInput::kNone || remote.last == LastLine::kNothing || (ready_ & bit(kRemote)) != 0) return;
  // Right after a key-down, the clock need not be asked.
  if (remoteLimitMs() > (remote.last == LastLine::kKey ? 0 : msSince(reader_.lircKeyTime))) return;
  char first;
  if (remote.fd >= 0 && look(&first, sizeof first) > 0) return;  // a line has come since the wait
  // Nothing can be read from no descriptor, so no line that comes just now is taken for silence.
  reader_.getLircEvent(kNoDescriptor, event);
}

}  // namespace quarlo::components::input
