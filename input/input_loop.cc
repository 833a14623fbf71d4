#include "input/input_loop.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
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

// Members that are called from one place, and small ones, stand by themselves to be read. As functions of their own,
// which the compiler has to keep, they would take 250 bytes more.
#define CALLED_ONCE [[gnu::always_inline]] inline

// Where size does not matter, all that next() calls becomes part of it: a fifth fewer instructions for a key.
#ifdef __OPTIMIZE_SIZE__
#define FLATTENED
#else
#define FLATTENED [[gnu::flatten]]
#endif

static_assert(sizeof(InputLoop) <= (sizeof(long) == 4 ? 4096 : 6144), "two nodes with their queues, on the stack");

namespace {

constexpr char kSourceNames[][9] = {"keyboard", "mouse", "remote", "node"};

constexpr int kNoDescriptor = -1;

constexpr int kEventsPerLook = 16;  // at the clock

InputLoop::SourceSet bit(InputLoop::Source source) { return InputLoop::SourceSet{1} << source; }

void logLoss(const char* what, int error) {
  if (logging::GetMinLogLevel() > logging::kError) return;
  logging::LogMessage("input/input_loop", __LINE__, logging::kError, "Lost the %s, errno = %d", what, error);
}

}  // namespace

std::int32_t InputLoop::msSince(const timeval& then) {
  timeval now;
  return elapsedMs(then, now);
}

// ---- Life cycle ---------------------------------------------------------------------------------

InputLoop::InputLoop(LinuxInputReader& reader) : reader_(reader) {
  state_.channels.all[kKeyboard] = &state_.keyboard;
  state_.channels.all[kMouse] = &state_.mouse;
  state_.channels.all[kRemote] = &state_.remote;
  state_.mouse.source = kMouse;
  state_.remote.source = kRemote;
  state_.keyboard.bit = bit(kKeyboard);
  state_.mouse.bit = bit(kMouse);
  state_.remote.bit = bit(kRemote);
  findSources();
}

InputLoop::~InputLoop() {
  if (!state_.hasPipe) return;
  for (const int fd : state_.pipe) close(fd);
}

void InputLoop::setBound(int events, int ms) {
  boundEvents_ = events > 0 ? events : INT_MAX;
  boundMs_ = events > 0 ? ms : INT_MAX;
}

// ---- Sources ------------------------------------------------------------------------------------

// The reader's descriptors are looked at before each wait: it may have been given its sources later, or others.
void InputLoop::findSources() {
  const int fds[kFurther] = {reader_.keyboardFd, reader_.mouseFd, reader_.lircFd};
  for (int i = 0; i < kFurther; ++i) {
    Channel& channel = *state_.channels.all[i];
    if (fds[i] == channel.readerFd) continue;
    channel.readerFd = fds[i];
    channel.fd = fds[i];
    channel.rest = {};
    state_.gone &= ~channel.bit;
    ++state_.generation;
  }
}

// From now on the source is neither waited for nor read. The descriptor stays the reader's.
void InputLoop::report(Channel& channel, int error) {
  logLoss(kSourceNames[std::min(channel.source, kFurther)], error);
  channel.fd = ~error;
  state_.gone |= channel.bit;
  ++state_.generation;
}

// REQUIRES: a call on the source's descriptor has failed
CALLED_ONCE void InputLoop::checkError(Channel& channel) {
  if (errno != EAGAIN && errno != EINTR) report(channel, errno);
}

// ---- Waiting ------------------------------------------------------------------------------------

InputLoop::Wake InputLoop::wait(int timeoutMs, int ownFd) {
  pollfd fds[kSources + 1];
  pollfd* const own = fds + descriptors(fds);
  *own = {ownFd, POLLIN, 0};

  const SourceSet unreported = state_.gone & ~state_.reported;
  const int dueMs = unreported != 0 || timeoutMs == 0 ? 0 : this->timeoutMs();
  const bool isDueFirst = dueMs >= 0 && (timeoutMs < 0 || dueMs < timeoutMs);
  const int found = poll(fds, static_cast<nfds_t>(own - fds + (ownFd < 0 ? 0 : 1)), isDueFirst ? dueMs : timeoutMs);

  Wake wake = {};
  wake.signal = found == -1;
  if (wake.signal) setAllReady();
  const pollfd* answer = fds;
  for (Channel* channel : state_.channels) {
    if (channel->fd >= 0 && answer++->revents != 0) makeReady(*channel, MayRead::kIsNamed);
  }
  wake.ownFd = own->revents != 0;
  wake.gone = unreported;
  state_.reported = state_.gone;
  wake.input = hasSomething();
  if (found == 0) {
    wake.timeout = !isDueFirst;
    wake.remote = isDueFirst && !wake.input && wake.gone == 0;
  }
  return wake;
}

int InputLoop::descriptors(pollfd* fds) {
  findSources();
  int used = 0;
  for (const Channel* channel : state_.channels) {
    if (channel->fd >= 0) fds[used++] = {channel->fd, POLLIN, 0};
  }
  return used;
}

std::uint32_t InputLoop::generation() {
  findSources();
  return state_.generation;
}

CALLED_ONCE bool InputLoop::isWanted(SourceSet source) const { return (state_.ready & ~state_.over & source) != 0; }

bool InputLoop::hasSomething() const { return state_.ready != 0 || reader_.hasPendingEvent; }

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
  for (Channel* channel : state_.channels) {
    if (channel->fd == fd && fd >= 0 && revents != 0) makeReady(*channel, MayRead::kIsNamed);
  }
}

void InputLoop::setAllReady() {
  findSources();
  for (Channel* channel : state_.channels) {
    if (channel->fd >= 0) makeReady(*channel, MayRead::kIsAsked);
  }
}

CALLED_ONCE void InputLoop::makeReady(Channel& channel, MayRead mayRead) {
  channel.rest.mayRead = mayRead;
  state_.ready |= channel.bit;
}

// ---- A round ------------------------------------------------------------------------------------

FLATTENED bool InputLoop::take(InputEvent& event, bool everything) {
  state_.everything = everything;
  if (!state_.roundIsOpen) beginRound();
  event.kind = InputEvent::kNoEvent;
  while (takeHeld(event) || takeReady(event)) {
    if (everything || event.kind != InputEvent::kNoEvent) return true;
  }
  pollRemote(event);
  state_.roundIsOpen = false;
  return false;
}

CALLED_ONCE void InputLoop::beginRound() {
  state_.roundIsOpen = true;
  state_.over = 0;
  for (int i = 0; i < kFurther; ++i) state_.channels.all[i]->taken = 0;
  state_.lastLine = LastLine::kNone;
}

// The functions that take something return whether they did. Whether it gave an event is said by the event's kind.
CALLED_ONCE bool InputLoop::takeReady(InputEvent& event) {
  // As with the reader, a line that gives nothing ends the round.
  if (state_.lastLine == LastLine::kNothing && !isWanted(bit(kRemote))) return false;
  return (isWanted(bit(kKeyboard)) && drain(state_.keyboard, event)) ||
         ((state_.ready & ~state_.over) >> kFurther != 0 && drainFurther(event)) ||
         (isWanted(bit(kMouse)) && drain(state_.mouse, event)) || (isWanted(bit(kRemote)) && takeLine(event));
}

// The clock is read only at each 16th event, so a round with few does without it. Should it be set meanwhile, the
// number of events is still a bound.
void InputLoop::count(Channel& channel) {
  ++channel.taken;
  bool isOver = channel.taken >= boundEvents_;
  if (channel.taken == kEventsPerLook) {
    readClock(channel.start);
  } else if (channel.taken % kEventsPerLook == 0) {
    isOver |= msSince(channel.start) >= boundMs_;
  }
  if (isOver) state_.over |= channel.bit;
}

// What was held back, before anything else is read.
bool InputLoop::takeHeld(InputEvent& event) {
  if (!reader_.hasPendingEvent || state_.isInDrain) return false;
  reader_.hasPendingEvent = false;
  event = reader_.pendingEvent;
  state_.cause = state_.held;
  return true;
}

// ---- Nodes --------------------------------------------------------------------------------------

namespace {

bool isWheel(const input_event& record) {
  return (record.code == REL_WHEEL || record.code == REL_HWHEEL) && record.value != 0;
}

constexpr std::uint8_t kModifierKeys[] = {KEY_LEFTCTRL,   KEY_RIGHTCTRL, KEY_LEFTSHIFT,
                                          KEY_RIGHTSHIFT, KEY_LEFTALT,   KEY_RIGHTALT};

}  // namespace

// As the reader's drain, of records that are read many at a time.
bool InputLoop::drain(Node& node, InputEvent& event) {
  int budget = kRecordsPerDrain;
  if (state_.isInDrain) {
    if (state_.held.source != node.source) return false;
    budget = state_.budget;
    state_.isInDrain = false;
  }

  for (; budget > 0; --budget) {
    if (node.begin == node.end && !fill(node)) {
      state_.ready &= ~node.bit;
      break;
    }
    input_event& record = node.records[node.begin++];
    if (record.type == EV_REL && record.code <= REL_Y) {
      remember(state_.held, node, record);
      reader_.translateEvent(&record, reader_.pendingEvent);
      reader_.hasPendingEvent = true;
    } else if (record.type == EV_KEY || (record.type == EV_REL && isWheel(record))) {
      takeKey(node, record, event);
      return true;
    } else {
      if (record.type == EV_SYN && record.code == SYN_DROPPED) state_.lost |= node.bit;
      if (!state_.everything) continue;
      state_.isInDrain = true;
      state_.budget = budget - 1;
      state_.held.source = node.source;
      remember(state_.cause, node, record);
      return true;
    }
  }
  if (!takeHeld(event)) return false;
  count(node);
  return true;
}

// Takes a record that ends the drain. It must not overtake the motion before it.
CALLED_ONCE void InputLoop::takeKey(Node& node, input_event& record, InputEvent& event) {
  count(node);
  if (takeHeld(event)) {
    count(node);
    remember(state_.held, node, record);
    translate(node, record, reader_.pendingEvent);
    reader_.hasPendingEvent = state_.everything || reader_.pendingEvent.kind != InputEvent::kNoEvent;
  } else {
    remember(state_.cause, node, record);
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
CALLED_ONCE bool InputLoop::fill(Node& node) {
  if (node.rest.mayRead == MayRead::kNo) return false;
  char* const bytes = reinterpret_cast<char*>(node.records);
  // The kernel gives whole records; a FIFO gives what its writer has written so far.
  if (node.rest.bytes != 0) memmove(bytes, node.records + node.end, node.rest.bytes);
  const std::size_t room = sizeof node.records - node.rest.bytes;
  const ssize_t size = read(node.fd, bytes + node.rest.bytes, room);
  node.before += static_cast<std::uint32_t>(node.end);
  node.begin = 0;
  node.end = 0;
  if (size > 0) {
    node.rest.bytes += static_cast<std::size_t>(size);
    node.end = static_cast<int>(node.rest.bytes / sizeof(input_event));
    node.rest.bytes %= sizeof(input_event);
  } else if (size == -1) {
    checkError(node);
  } else if (node.rest.mayRead == MayRead::kIsNamed) {
    report(node, 0);
  }
  if (size != static_cast<ssize_t>(room)) node.rest.mayRead = MayRead::kNo;  // that was all
  return node.end != 0;
}

void InputLoop::translate(Node& node, input_event& record, InputEvent& out) {
  if (record.type != EV_KEY) return writeWheel(record, out);
  out.kind = InputEvent::kNoEvent;
  const unsigned code = record.code;
  const bool isDown = record.value != 0;
  node.setDown(code, isDown);
  // A touchpad reports a touch by two codes, which the reader takes for two presses of the left button.
  if ((code == BTN_TOUCH || code == BTN_TOOL_FINGER) && node.isDown(code ^ BTN_TOUCH ^ BTN_TOOL_FINGER)) return;

  reader_.translateEvent(&record, out);
  if (!isDown) keepTwin(code, out);
}

// A modifier stays while its other key is down, on any node.
CALLED_ONCE void InputLoop::keepTwin(unsigned released, InputEvent& out) {
  const Modifier modifier = LinuxInputReader::getModifier(static_cast<int>(released));
  if (modifier == KeyInput::kNoModifier) return;
  for (const unsigned code : kModifierKeys) {
    if (LinuxInputReader::getModifier(static_cast<int>(code)) != modifier) continue;
    for (const Channel* channel : state_.channels) {
      if (!channel->isDown(code)) continue;
      reader_.modifiers |= modifier;
      out.keyData.modifiers |= modifier;
    }
  }
}

CALLED_ONCE void InputLoop::writeWheel(const input_event& record, InputEvent& out) const {
  out.kind = kWheelEvent;
  out.flags = 0;
  out.mouseData.action = record.code;
  out.mouseData.button = record.value;
  out.mouseData.x = static_cast<std::uint16_t>(reader_.pointerX);
  out.mouseData.y = static_cast<std::uint16_t>(reader_.pointerY);
  out.mouseData.clicks = 0;
}

// A FIFO can send codes that no kernel has.
CALLED_ONCE void InputLoop::Node::setDown(unsigned code, bool isDown) {
  if (code > KEY_MAX) return;
  std::uint32_t& word = rest.down[code / 32];
  const std::uint32_t mask = std::uint32_t{1} << (code % 32);
  word = isDown ? word | mask : word & ~mask;
}

// ---- The remote ---------------------------------------------------------------------------------

// The reader reads the socket itself, takes whatever is there, and looks only at the first line in it. So only a line
// that is there alone is left to it. All others reach it one by one, through a pipe.
bool InputLoop::takeLine(InputEvent& event) {
  char* const text = state_.lineText + state_.remote.rest.bytes;
  const std::size_t room = kLircReadSize - state_.remote.rest.bytes;
  const ssize_t seen = look(text, room + 1);  // one more, to see whether something follows
  if (seen <= 0) return false;

  const auto* end = static_cast<const char*>(memchr(text, '\n', static_cast<std::size_t>(seen)));
  auto size = static_cast<std::size_t>(end != nullptr ? end - text + 1 : seen);
  if (size > room) {
    size = room;
    end = nullptr;
  }
  const bool isAlone = end != nullptr && size == static_cast<std::size_t>(seen) && state_.remote.rest.bytes == 0 &&
                       !state_.remote.rest.isCut;
  if (isAlone || !openPipe()) {
    if (isAlone) state_.ready &= ~bit(kRemote);
    state_.remote.rest.bytes = size;
    reader_.getLircEvent(state_.remote.fd, event);
  } else {
    if (!append(size, end != nullptr)) return false;
    const bool isRest = std::exchange(state_.remote.rest.isCut, end == nullptr);
    if (!isRest) handOver(event);
  }
  finishLine(event.kind != InputEvent::kNoEvent);
  return true;
}

// Looks at what the daemon has sent, and leaves it there. Returns how much it is, or 0 or less if there is nothing.
ssize_t InputLoop::look(char* text, std::size_t size) {
  const ssize_t seen = recv(state_.remote.fd, text, size, MSG_PEEK | MSG_DONTWAIT);
  if (seen > 0) {
    state_.ready |= bit(kRemote);
    return seen;
  }
  state_.ready &= ~bit(kRemote);
  if (seen == 0) errno = 0;
  checkError(state_.remote);
  return seen;
}

// Takes `size` bytes that were looked at to what there is of a line. Returns whether it is complete, or as long as a
// line that the reader cuts.
CALLED_ONCE bool InputLoop::append(std::size_t size, bool hasEnd) {
  const ssize_t taken = recv(state_.remote.fd, state_.lineText + state_.remote.rest.bytes, size, MSG_DONTWAIT);
  if (taken > 0) state_.remote.rest.bytes += static_cast<std::size_t>(taken);
  if (taken == static_cast<ssize_t>(size) && (hasEnd || state_.remote.rest.bytes == kLircReadSize)) return true;
  state_.ready &= ~bit(kRemote);
  return false;
}

CALLED_ONCE bool InputLoop::openPipe() {
  if (!state_.hasPipe) state_.hasPipe = pipe2(state_.pipe, O_NONBLOCK | O_CLOEXEC) == 0;
  if (!state_.hasPipe) logLoss("LIRC lines", errno);
  return state_.hasPipe;
}

CALLED_ONCE void InputLoop::handOver(InputEvent& event) {
  if (write(state_.pipe[1], state_.lineText, state_.remote.rest.bytes) != -1)
    reader_.getLircEvent(state_.pipe[0], event);
  // Should the reader have failed to read it, the line must not stand before the next one.
  while (read(state_.pipe[0], state_.lineText, kLircReadSize) > 0) {
  }
}

CALLED_ONCE void InputLoop::finishLine(bool gaveKey) {
  state_.lastLine = gaveKey ? LastLine::kKey : LastLine::kNothing;
  count(state_.remote);
  state_.cause.source = kRemote;
  state_.cause.number = ++state_.lines;
  state_.lineText[state_.remote.rest.bytes] = '\0';
  state_.remote.rest.bytes = 0;
}

// The time since the key's last key-down from which on a poll without a line changes something, as the reader reckons:
// the repeat mode starts, or the key is forgotten.
CALLED_ONCE std::int32_t InputLoop::remoteLimitMs() const {
  const std::int32_t limit = wrappingSum(reader_.lircTimeout, reader_.lircRepeatTimeout);
  return reader_.lircRepeatMode ? limit : std::min(limit, reader_.lircTimeout);
}

// Makes a poll without a line, if it is due. The reader makes none in a round whose last line gave nothing.
CALLED_ONCE void InputLoop::pollRemote(InputEvent& event) {
  if (reader_.lircKey == KeyInput::kNone || state_.lastLine == LastLine::kNothing || (state_.ready & bit(kRemote)) != 0)
    return;
  // Right after a key-down, the clock need not be asked.
  if (remoteLimitMs() > (state_.lastLine == LastLine::kKey ? 0 : msSince(reader_.lircKeyTime))) return;
  char first;
  if (state_.remote.fd >= 0 && look(&first, sizeof first) > 0) return;  // a line has come since the wait
  // Nothing can be read from no descriptor, so no line that comes just now is taken for silence.
  reader_.getLircEvent(kNoDescriptor, event);
}

}  // namespace quarlo::components::input
