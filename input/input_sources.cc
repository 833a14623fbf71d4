#include "input/input_sources.h"

#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

#include "input/input_loop.h"
#include "input/ioctl_request.h"
#include "input/linux_input_reader.h"

namespace quarlo::components::input {

using msg::KeyInput;

// Members that are called from one place are part of it: some 50 bytes less.
#define CALLED_ONCE [[gnu::always_inline]] inline

// ---- In each round ------------------------------------------------------------------------------

int InputSources::attend(int timeoutMs) {
  lost_ = std::exchange(loop_.state_.lost, 0);
  behind_ |= lost_;
  opened_ = 0;
  loop_.findSources();
  Path* path = paths_;
  for (Channel* channel : loop_.state_.channels) {
    channel->taken = 0;
    if (channel->readerFd < 0) {
      timeoutMs = retry(*channel, *path, timeoutMs);
    } else if (channel->fd < 0) {
      letGo(*channel);
      timeoutMs = 0;
    }
    if (((behind_ | (wanted_ ^ grabbed_)) & channel->bit) != 0) settle(static_cast<Node&>(*channel));
    ++path;
  }
  return timeoutMs;
}

// Makes records of the difference between what was given of a node and what is down on it (on a closed one: nothing),
// as many as there is room for, and takes or gives back a grab if nothing is. Not before all is taken that the node has
// sent: it drops what it has of keys when it answers.
void InputSources::settle(Node& node) {
  errno = EAGAIN;
  if (node.begin != node.end) return;
  std::uint32_t down[(KEY_MAX + 1) / 32] = {};
  if (node.fd >= 0) {
    pollfd unread = {node.fd, POLLIN, 0};
    if (poll(&unread, 1, 0) != 0) return;
    memcpy(down, node.rest.down, sizeof down);  // an older kernel's answer is shorter
    if (ioctl(node.fd, asRequest(EVIOCGKEY(sizeof down)), down) == -1) return;
  }

  node.before += static_cast<std::uint32_t>(node.end);
  node.begin = 0;
  node.end = 0;
  std::uint32_t any = 0;
  const std::uint32_t* from = node.rest.down;
  const std::uint32_t* to = down;
  for (int value = 0; value <= 1; ++value) {
    for (unsigned i = 0; i < std::size(down); ++i) {
      any |= from[i];
      for (std::uint32_t changed = from[i] & ~to[i]; changed != 0 && node.end != InputLoop::kReadAhead;
           changed &= changed - 1) {
        input_event& record = node.records[node.end++];
        record.input_event_sec = 0;
        record.input_event_usec = 0;
        record.type = EV_KEY;
        record.code = static_cast<std::uint16_t>(i * 32 + static_cast<unsigned>(__builtin_ctz(changed)));
        record.value = value;
      }
    }
    std::swap(from, to);
  }
  if (node.end != InputLoop::kReadAhead) behind_ &= ~node.bit;
  if (node.end != 0) loop_.state_.ready |= node.bit;
  const SourceSet change = (wanted_ ^ grabbed_) & node.bit;
  if (any == 0 && change != 0 && ioctl(node.fd, EVIOCGRAB, static_cast<long>(wanted_ & change)) == 0)
    grabbed_ ^= change;
}

// ---- Opening and closing ------------------------------------------------------------------------

void InputSources::use(Channel& channel, int fd) {
  switch (channel.source) {
    case InputLoop::kKeyboard: reader_.keyboardFd = fd; break;
    case InputLoop::kMouse: reader_.mouseFd = fd; break;
    case InputLoop::kRemote: reader_.lircFd = fd; break;
    default: break;
  }
  reader_.maxFd = -1;
  channel.readerFd = fd;
  channel.fd = fd;
  channel.rest.bytes = 0;
  channel.rest.isCut = false;
  ++loop_.state_.generation;
}

CALLED_ONCE void InputSources::letGo(Channel& channel) {
  // Of a descriptor that somebody else has closed, the number can be in use again.
  if (channel.fd != ~EBADF) close(channel.readerFd);
  use(channel, -1);
  grabbed_ &= ~channel.bit;
  if (channel.source != InputLoop::kRemote) {
    behind_ |= channel.bit;
  } else {
    // The key would be due forever.
    reader_.lircKey = KeyInput::kNone;
    reader_.lircChar = 0;
    reader_.lircRepeatMode = false;
  }
}

bool InputSources::open(Source source, const char* path) {
  Channel& channel = find(source);
  const bool isRemote = source == InputLoop::kRemote;
  errno = EBUSY;
  if (channel.readerFd >= 0 || (loop_.state_.ready & channel.bit) != 0) return false;

  // A search grabs the other nodes for a moment: what came up in it was not told.
  if (path == nullptr) behind_ |= ~(SourceSet{1} << InputLoop::kRemote);
  const int fd = isRemote ? reader_.openLircSocket(path) : reader_.openDevice(path, source == InputLoop::kMouse);
  if (fd < 0) return false;
  if (!isRemote && !isNewNode(fd)) {
    close(fd);
    return false;
  }
  use(channel, fd);
  behind_ &= ~channel.bit;
  loop_.state_.gone &= ~channel.bit;
  return true;
}

// Returns the shorter one of `timeoutMs` and the time until the next try.
CALLED_ONCE int InputSources::retry(Channel& channel, Path& path, int timeoutMs) {
  if (path.path == nullptr) return timeoutMs;
  unsigned leftMs = path.everyMs - static_cast<unsigned>(InputLoop::msSince(path.tried));
  if (leftMs - 1 >= path.everyMs) {
    gettimeofday(&path.tried, nullptr);
    if (open(channel.source, path.path)) opened_ |= channel.bit;
    leftMs = path.everyMs;
  }
  return static_cast<int>(std::min(leftMs, static_cast<unsigned>(timeoutMs)));
}

// Whether it is an evdev node that is not a source yet.
CALLED_ONCE bool InputSources::isNewNode(int fd) const {
  struct stat node;
  int version;
  if (fstat(fd, &node) == -1 || ioctl(fd, asRequest(EVIOCGVERSION), &version) == -1) return false;
  const auto number = static_cast<std::uint32_t>(node.st_rdev);  // the kernel's have 32 bits
  for (const Channel* channel : loop_.state_.channels) {
    if (fstat(channel->readerFd, &node) == 0 && static_cast<std::uint32_t>(node.st_rdev) == number) {
      errno = EEXIST;
      return false;
    }
  }
  return true;
}

InputSources::Channel& InputSources::find(Source source) const {
  loop_.findSources();
  return *loop_.state_.channels.all[source];
}

bool InputSources::adopt(Source source) {
  Channel& node = find(source);
  if (ioctl(node.fd, asRequest(EVIOCGKEY(sizeof node.rest.down)), node.rest.down) == -1) return false;
  for (int code = 0; code <= KEY_RIGHTALT; ++code) {
    if (node.isDown(static_cast<unsigned>(code))) reader_.modifiers |= LinuxInputReader::getModifier(code);
  }
  std::uint8_t lit;
  if (source == InputLoop::kKeyboard && ioctl(node.fd, asRequest(EVIOCGLED(sizeof lit)), &lit) > 0)
    reader_.numLock = (lit >> LED_NUML & 1) != 0;
  return true;
}

bool InputSources::join(FurtherNode& node) {
  int place = InputLoop::kFurther;
  while (loop_.state_.channels.all[place] != nullptr) ++place;
  if (place == InputLoop::kSources) return false;
  node.node_.source = static_cast<Source>(place);
  node.node_.bit = SourceSet{1} << place;
  loop_.state_.channels.all[place] = &node.node_;
  return true;
}

bool InputLoop::drainFurther(InputEvent& event) {
  for (Channel* const* further = state_.channels.all + kFurther; *further != nullptr; ++further) {
    const bool isWanted = (state_.ready & ~state_.over & (*further)->bit) != 0;
    if (isWanted && drain(static_cast<Node&>(**further), event)) return true;
  }
  return false;
}

// ---- Who gets it --------------------------------------------------------------------------------

bool InputSources::grab(Source source, bool on) {
  Channel& node = find(source);
  wanted_ = on ? wanted_ | node.bit : wanted_ & ~node.bit;
  settle(static_cast<Node&>(node));
  return isGrabbed(source) == on;
}

}  // namespace quarlo::components::input
