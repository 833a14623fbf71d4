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
using Modifier = LinuxInputReader::Modifier;

static_assert(sizeof(InputLoop) <= (sizeof(long) == 4 ? 4096 : 6144), "it is meant to fit into a page");

namespace {

constexpr const char* kLogFile = "input/input_loop";

constexpr const char* kSourceNames[] = {"keyboard", "mouse", "remote"};

constexpr int kNoDescriptor = -1;

// How many bytes of the remote's lines are looked at: more than the longest line that counts.
constexpr std::size_t kLookAhead = 256;

constexpr int kEventsPerLook = 16;  // at the clock

bool isReadable(int fd) {
  pollfd look = {fd, POLLIN, 0};
  return poll(&look, 1, 0) > 0;
}

InputLoop::SourceSet bit(int source) { return InputLoop::SourceSet{1} << source; }

}  // namespace

#define LOG_ERROR(...)                                                       \
  do {                                                                       \
    if (logging::GetMinLogLevel() <= logging::kError) {                      \
      logging::LogMessage(kLogFile, __LINE__, logging::kError, __VA_ARGS__); \
    }                                                                        \
  } while (false)

// ---- Life cycle ---------------------------------------------------------------------------------

InputLoop::InputLoop(LinuxInputReader& reader) : reader_(reader) {
  for (Channel& channel : channels_) channel = {-1, -1, false, false, 0, 0};
}

InputLoop::~InputLoop() {
  for (const int fd : pipe_) {
    if (fd >= 0) close(fd);
  }
}

void InputLoop::setBound(int events, int ms) {
  boundEvents_ = events;
  boundMs_ = ms;
}

// ---- Sources ------------------------------------------------------------------------------------

// The reader's descriptors are looked at anew each time: it may have been given its sources later, or others.
void InputLoop::findSources() {
  const int fds[kSources] = {reader_.keyboardFd, reader_.mouseFd, reader_.lircFd};
  for (int i = 0; i < kSources; ++i) {
    Channel& channel = channels_[i];
    if (fds[i] == channel.readerFd) continue;
    channel.readerFd = fds[i];
    channel.fd = fds[i];
    gone_ &= ~bit(i);
    ++generation_;
  }
}

// From now on the source is neither waited for nor read. The descriptor stays the reader's.
void InputLoop::report(Source source, int error) {
  LOG_ERROR("The %s is gone, errno = %d", kSourceNames[source], error);
  channels_[source].fd = -1;
  channels_[source].isReady = false;
  gone_ |= bit(source);
  unreported_ |= bit(source);
  ++generation_;
}

// ---- Waiting ------------------------------------------------------------------------------------

InputLoop::Wake InputLoop::wait(int timeoutMs, int ownFd) {
  pollfd fds[kMaxDescriptors + 1];
  const int count = descriptors(fds);
  fds[count] = {ownFd, POLLIN, 0};

  const bool hasSomethingNow = hasSomething();
  const int dueMs = hasSomethingNow ? 0 : remoteDueMs();
  const bool isDueFirst = dueMs >= 0 && (timeoutMs < 0 || dueMs < timeoutMs);
  const int found = poll(fds, static_cast<nfds_t>(count) + 1, isDueFirst ? dueMs : timeoutMs);

  Wake wake;
  if (found == -1) {
    wake.signal = errno == EINTR;
    if (!wake.signal) {
      LOG_ERROR("Waiting failed, errno = %d", errno);
      setAllReady();
    }
  } else if (found == 0) {
    wake.remote = isDueFirst && !hasSomethingNow;
    wake.timeout = !isDueFirst;
  } else {
    for (int i = 0; i < count; ++i) setReady(fds[i].fd, fds[i].revents);
    wake.ownFd = fds[count].revents != 0;
  }
  wake.gone = std::exchange(unreported_, 0);
  wake.input = hasSomething();
  return wake;
}

int InputLoop::descriptors(pollfd* fds) {
  findSources();
  int count = 0;
  for (const Channel& channel : channels_) {
    if (channel.fd >= 0) fds[count++] = {channel.fd, POLLIN, 0};
  }
  return count;
}

std::uint32_t InputLoop::generation() {
  findSources();
  return generation_;
}

bool InputLoop::hasSomething() const {
  for (const Channel& channel : channels_) {
    if (channel.isReady) return true;
  }
  for (const Queue& queue : queues_) {
    if (!queue.isEmpty()) return true;
  }
  return reader_.hasPendingEvent || unreported_ != 0;
}

int InputLoop::timeoutMs() const { return hasSomething() ? 0 : remoteDueMs(); }

// What the reader compares in a poll without a line, and how long it takes until that comes true.
std::int32_t InputLoop::remoteDueMs() const {
  if (reader_.lircKey == KeyInput::kNone) return -1;
  std::int32_t limit = wrappingSum(reader_.lircTimeout, reader_.lircRepeatTimeout);
  if (!reader_.lircRepeatMode) limit = std::min(limit, reader_.lircTimeout);
  const std::int32_t elapsed = elapsedMs(reader_.lircKeyTime, currentTime());
  if (limit <= elapsed) return 0;
  const std::int64_t left = std::int64_t{limit} - elapsed;
  return left < INT32_MAX ? static_cast<std::int32_t>(left) : INT32_MAX;
}

void InputLoop::setReady(int fd, int revents) {
  for (int i = 0; i < kSources; ++i) {
    Channel& channel = channels_[i];
    if (fd < 0 || channel.fd != fd || revents == 0) continue;
    channel.isReady = true;
    // A hang-up or an error: what a read says decides, and the application hears of it at once.
    if (revents == POLLIN) continue;
    if (i == kRemote) {
      char first;
      look(&first, sizeof first);
    } else if (queues_[i].isEmpty()) {
      fill(static_cast<Source>(i));
    }
  }
}

void InputLoop::setAllReady() {
  findSources();
  for (Channel& channel : channels_) channel.isReady = channel.fd >= 0;
}

// ---- A round ------------------------------------------------------------------------------------

bool InputLoop::take(InputEvent& event, Cause* cause, bool everything) {
  cause_ = cause;
  everything_ = everything;
  if (!roundIsOpen_) beginRound();
  event.kind = InputEvent::kNoEvent;
  for (;;) {
    Taken taken = Taken::kNothing;
    if (budget_ == 0 && reader_.hasPendingEvent) {
      taken = takeHeld(event);
    } else {
      for (int i = 0; i < kNodes && taken == Taken::kNothing; ++i) {
        taken = drain(static_cast<Source>(i), event);
      }
      if (taken == Taken::kNothing) taken = takeLine(event);
    }
    if (taken == Taken::kEvent || (taken == Taken::kRecord && everything)) return true;
    if (taken == Taken::kNothing) break;
  }
  pollRemote(event);
  roundIsOpen_ = false;
  return false;
}

void InputLoop::beginRound() {
  findSources();
  roundIsOpen_ = true;
  lineGaveNothing_ = false;
  for (Channel& channel : channels_) {
    channel.taken = 0;
    channel.isOver = false;
  }
}

// The clock is read only at each 16th event, so a round with few does without it.
void InputLoop::count(Channel& channel) const {
  ++channel.taken;
  if (boundEvents_ == 0) return;
  if (channel.taken >= boundEvents_) channel.isOver = true;
  if (channel.taken % kEventsPerLook != 0) return;
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const std::uint32_t nowMs =
      static_cast<std::uint32_t>(now.tv_sec) * 1000U + static_cast<std::uint32_t>(now.tv_nsec) / 1000000U;
  if (channel.taken == kEventsPerLook) {
    channel.startMs = nowMs;
  } else if (nowMs - channel.startMs >= static_cast<std::uint32_t>(boundMs_)) {
    channel.isOver = true;
  }
}

// What was held back, before anything else is read.
InputLoop::Taken InputLoop::takeHeld(InputEvent& event) {
  reader_.hasPendingEvent = false;
  event = reader_.pendingEvent;
  explain(heldSource_, heldRecord_, 1);
  return event.kind == InputEvent::kNoEvent ? Taken::kRecord : Taken::kEvent;
}

void InputLoop::explain(Source source, const input_event& record, std::uint32_t records) {
  source_ = source;
  if (cause_ == nullptr) return;
  cause_->record = record;
  cause_->records = records;
  cause_->line[0] = '\0';
}

// ---- Nodes --------------------------------------------------------------------------------------

namespace {

bool isMotion(const input_event& record) { return record.type == EV_REL && record.code <= REL_Y; }

bool isWheel(const input_event& record) {
  return record.type == EV_REL && (record.code == REL_WHEEL || record.code == REL_HWHEEL) && record.value != 0;
}

constexpr int kModifierKeys[] = {KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_RIGHTALT};

}  // namespace

// As the reader's drain, of records that are read many at a time.
InputLoop::Taken InputLoop::drain(Source source, InputEvent& event) {
  Channel& channel = channels_[source];
  Queue& queue = queues_[source];
  int budget = budget_;
  if (budget == 0) {
    if (channel.isOver || (!channel.isReady && queue.isEmpty())) return Taken::kNothing;
    reader_.pointerMoved = false;
    budget = kRecordsPerDrain;
  } else if (source != heldSource_) {
    return Taken::kNothing;
  }
  budget_ = 0;

  for (; budget > 0; --budget) {
    if (queue.isEmpty()) fill(source);
    if (queue.isEmpty()) break;
    input_event& record = queue.records[queue.begin++];
    if (record.type == EV_KEY || isWheel(record)) return takeKey(source, record, event);
    if (isMotion(record)) {
      ++queue.unexplained;
      if (cause_ != nullptr) heldRecord_ = record;
      reader_.translateEvent(&record, reader_.pendingEvent);
      reader_.hasPendingEvent = true;
    } else if (everything_) {
      budget_ = budget - 1;
      heldSource_ = source;
      explain(source, record, 1);
      return Taken::kRecord;
    } else {
      ++queue.unexplained;
    }
  }
  if (!reader_.hasPendingEvent) return Taken::kNothing;
  reader_.hasPendingEvent = false;
  event = reader_.pendingEvent;
  count(channel);
  explain(source, heldRecord_, std::exchange(queue.unexplained, 0));
  return Taken::kEvent;
}

// Takes a record that ends the drain. It must not overtake the motion before it.
InputLoop::Taken InputLoop::takeKey(Source source, input_event& record, InputEvent& event) {
  const input_event asRead = record;  // the code of a touch is rewritten
  Queue& queue = queues_[source];
  count(channels_[source]);
  if (!reader_.hasPendingEvent) {
    if (translate(queue, record, event)) {
      explain(source, asRead, std::exchange(queue.unexplained, 0) + 1);
      return Taken::kEvent;
    }
    explain(source, asRead, 1);
    if (!everything_) ++queue.unexplained;
    return Taken::kRecord;
  }
  event = reader_.pendingEvent;
  explain(source, heldRecord_, std::exchange(queue.unexplained, 0));
  heldSource_ = source;
  heldRecord_ = asRead;
  reader_.hasPendingEvent = translate(queue, record, reader_.pendingEvent) || everything_;
  return Taken::kEvent;
}

// REQUIRES: all records have been taken
void InputLoop::fill(Source source) {
  Channel& channel = channels_[source];
  Queue& queue = queues_[source];
  if (!channel.isReady) return;
  char* const bytes = reinterpret_cast<char*>(queue.records);
  // The kernel gives whole records; a FIFO gives what its writer has written so far.
  memmove(bytes, queue.records + queue.end, queue.cutBytes);
  const std::size_t room = sizeof queue.records - queue.cutBytes;
  const ssize_t size = read(channel.fd, bytes + queue.cutBytes, room);
  queue.begin = 0;
  queue.end = 0;
  channel.isReady = size == static_cast<ssize_t>(room);  // otherwise that was all
  if (size > 0) {
    queue.cutBytes += static_cast<std::size_t>(size);
    queue.end = static_cast<int>(queue.cutBytes / sizeof(input_event));
    queue.cutBytes %= sizeof(input_event);
  } else if (size == 0) {
    // A FIFO that nobody has opened for writing yet gives nothing, either, but is not reported as readable.
    if (isReadable(channel.fd)) report(source, 0);
  } else if (errno != EAGAIN && errno != EINTR) {
    report(source, errno);
  }
}

bool InputLoop::translate(Queue& queue, input_event& record, InputEvent& out) {
  if (record.type == EV_KEY) return translateKey(queue, record, out);
  out.kind = kWheelEvent;
  out.flags = 0;
  out.mouseData.action = record.code == REL_WHEEL ? kVertical : kHorizontal;
  out.mouseData.button = record.value;
  out.mouseData.x = static_cast<std::uint16_t>(reader_.pointerX);
  out.mouseData.y = static_cast<std::uint16_t>(reader_.pointerY);
  out.mouseData.clicks = 0;
  return true;
}

bool InputLoop::translateKey(Queue& queue, input_event& record, InputEvent& out) {
  const int code = record.code;
  const bool isDown = record.value != 0;
  queue.setDown(code, isDown);
  // A touchpad reports a touch by two codes, which the reader takes for two presses of the left button.
  if (code == BTN_TOUCH && queue.isDown(BTN_TOOL_FINGER)) return false;
  if (code == BTN_TOOL_FINGER && queue.isDown(BTN_TOUCH)) return false;

  out.kind = InputEvent::kNoEvent;
  reader_.translateEvent(&record, out);
  const Modifier modifier = LinuxInputReader::getModifier(code);
  if (modifier != KeyInput::kNoModifier && !isDown && isModifierDown(modifier)) {
    reader_.modifiers |= modifier;
    out.keyData.modifiers |= modifier;
  }
  return out.kind != InputEvent::kNoEvent;
}

// A FIFO can send codes that no kernel has.
void InputLoop::Queue::setDown(int code, bool isDown) {
  if (code > KEY_MAX) return;
  const auto mask = static_cast<std::uint8_t>(1U << (code % 8));
  if (isDown) {
    down[code / 8] |= mask;
  } else {
    down[code / 8] &= static_cast<std::uint8_t>(~mask);
  }
}

// Whether one of the modifier's two keys is down, on any node.
bool InputLoop::isModifierDown(Modifier modifier) const {
  for (const int code : kModifierKeys) {
    if (LinuxInputReader::getModifier(code) != modifier) continue;
    for (const Queue& queue : queues_) {
      if (queue.isDown(code)) return true;
    }
  }
  return false;
}

// ---- The remote ---------------------------------------------------------------------------------

// The reader reads the socket itself, takes whatever is there, and looks only at the first line in it. So only a line
// that is there alone is left to it. All others reach it one by one, through a pipe.
InputLoop::Taken InputLoop::takeLine(InputEvent& event) {
  Channel& channel = channels_[kRemote];
  if (!channel.isReady || channel.isOver) return Taken::kNothing;
  char text[kLookAhead];
  const ssize_t seen = look(text, sizeof text);
  if (seen <= 0) return Taken::kNothing;

  auto size = static_cast<std::size_t>(seen);
  const auto* end = static_cast<const char*>(memchr(text, '\n', size));
  const bool isAlone = line_.size == 0 && end == text + size - 1 && size <= kLircReadSize;
  bool isWritten;
  if (isAlone || !openPipe()) {
    channel.isReady = !isAlone;
    isWritten = reader_.getLircEvent(channel.fd, event);
    explainLine(text, size);
  } else {
    if (end != nullptr) size = static_cast<std::size_t>(end - text) + 1;
    if (!append(text, size)) return Taken::kNothing;
    isWritten = handOver(event);
    explainLine(line_.text, std::exchange(line_.size, 0));
  }
  lineGaveNothing_ = !isWritten;
  return isWritten ? Taken::kEvent : Taken::kRecord;
}

// Looks at what the daemon has sent, and leaves it there. Returns how much it is, or 0 or less if there is nothing.
ssize_t InputLoop::look(char* text, std::size_t size) {
  Channel& channel = channels_[kRemote];
  const ssize_t seen = recv(channel.fd, text, size, MSG_PEEK | MSG_DONTWAIT);
  channel.isReady = seen > 0;
  if (seen == 0) {
    report(kRemote, 0);
  } else if (seen == -1 && errno != EAGAIN && errno != EINTR) {
    report(kRemote, errno);
  }
  return seen;
}

// Takes up to `size` bytes that were looked at to what there is of a line. Returns whether the line is complete. It is
// cut where the reader would cut it.
bool InputLoop::append(char* text, std::size_t size) {
  const ssize_t taken = recv(channels_[kRemote].fd, text, size, MSG_DONTWAIT);
  if (taken <= 0) {
    channels_[kRemote].isReady = false;
    return false;
  }
  const std::size_t used = std::min(static_cast<std::size_t>(taken), sizeof line_.text - line_.size);
  memcpy(line_.text + line_.size, text, used);
  line_.size += used;
  const bool isComplete = text[taken - 1] == '\n';
  if (!isComplete) channels_[kRemote].isReady = false;
  return isComplete;
}

bool InputLoop::openPipe() {
  if (pipe_[0] >= 0 || pipe2(pipe_, O_NONBLOCK | O_CLOEXEC) == 0) return true;
  LOG_ERROR("A pipe for lines could not be made, errno = %d", errno);
  return false;
}

bool InputLoop::handOver(InputEvent& event) {
  if (write(pipe_[1], line_.text, line_.size) == -1) {
    LOG_ERROR("A line could not be handed over, errno = %d", errno);
    return false;
  }
  if (reader_.getLircEvent(pipe_[0], event)) return true;
  // Should its read have failed, the line must not stand before the next one.
  char rest[kLircReadSize];
  while (read(pipe_[0], rest, sizeof rest) > 0) {
  }
  return false;
}

void InputLoop::explainLine(const char* text, std::size_t size) {
  source_ = kRemote;
  count(channels_[kRemote]);
  if (cause_ == nullptr) return;
  cause_->record = {};
  cause_->records = 0;
  const auto* end = static_cast<const char*>(memchr(text, '\n', size));
  if (end != nullptr) size = static_cast<std::size_t>(end - text);
  size = std::min(size, kLircReadSize);
  memcpy(cause_->line, text, size);
  cause_->line[size] = '\0';
}

// A poll without a line: the repeat mode starts, or the key is forgotten.
void InputLoop::pollRemote(InputEvent& event) {
  // The reader polls only what gave it no line.
  if (channels_[kRemote].isReady || lineGaveNothing_ || remoteDueMs() != 0) return;
  char first;
  if (channels_[kRemote].fd >= 0 && look(&first, sizeof first) > 0) return;  // one has come since the wait
  // Nothing can be read from no descriptor, so no line that comes just now is taken for silence.
  reader_.getLircEvent(kNoDescriptor, event);
}

}  // namespace quarlo::components::input
