#include "sim/trace.h"

#include <fcntl.h>
#include <linux/input.h>
#include <linux/ioctl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <ctime>

namespace quarlo::sim {
namespace {

// Takes `flag` out of `flags` and names it, if it is there.
std::string flagName(int& flags, int flag, const char* name) {
  if ((flags & flag) == 0) return "";
  flags &= ~flag;
  return std::string("|") + name;
}

std::string restOfFlags(int flags) {
  if (flags == 0) return "";
  char text[16];
  std::snprintf(text, sizeof text, "|0x%x", static_cast<unsigned>(flags));
  return text;
}

std::string eventType(unsigned type) {
  switch (type) {
    case EV_KEY: return "EV_KEY";
    case EV_REL: return "EV_REL";
    case EV_ABS: return "EV_ABS";
    default: return std::to_string(type);
  }
}

// Flags without the mark before the first one; "0" for none.
std::string joined(const std::string& flags) { return flags.empty() ? "0" : flags.substr(1); }

std::string pollEvents(short events) {
  int rest = events;
  std::string text = flagName(rest, POLLIN, "POLLIN");
  text += flagName(rest, POLLPRI, "POLLPRI");
  text += flagName(rest, POLLOUT, "POLLOUT");
  text += flagName(rest, POLLERR, "POLLERR");
  text += flagName(rest, POLLHUP, "POLLHUP");
  text += flagName(rest, POLLRDHUP, "POLLRDHUP");
  text += flagName(rest, POLLNVAL, "POLLNVAL");
  return joined(text + restOfFlags(rest));
}

}  // namespace

std::string quoted(const std::string& text) { return '"' + text + '"'; }

std::string openFlags(int flags) {
  static constexpr const char* kAccessModes[] = {"O_RDONLY", "O_WRONLY", "O_RDWR", "O_ACCMODE"};
  std::string text = kAccessModes[flags & O_ACCMODE];
  // What libc adds by itself with 64-bit file offsets says nothing about the caller.
  int rest = flags & ~O_ACCMODE & ~O_LARGEFILE;
  text += flagName(rest, O_NONBLOCK, "O_NONBLOCK");
  text += flagName(rest, O_CLOEXEC, "O_CLOEXEC");
  return text + restOfFlags(rest);
}

std::string socketType(int type) {
  int rest = type;
  std::string flags = flagName(rest, SOCK_NONBLOCK, "SOCK_NONBLOCK");
  flags += flagName(rest, SOCK_CLOEXEC, "SOCK_CLOEXEC");
  return (rest == SOCK_STREAM ? "SOCK_STREAM" : std::to_string(rest)) + flags;
}

std::string ioctlRequest(unsigned request, long argument) {
  const std::string size = std::to_string(_IOC_SIZE(request));
  const unsigned number = _IOC_NR(request);
  if (request == EVIOCGRAB) return "EVIOCGRAB, " + std::to_string(argument);
  if (request == EVIOCGVERSION) return "EVIOCGVERSION";
  if (request == EVIOCGID) return "EVIOCGID";
  if (request == EVIOCGREP) return "EVIOCGREP";
  if (request == EVIOCSCLOCKID) return "EVIOCSCLOCKID";
  if (request == EVIOCGNAME(_IOC_SIZE(request))) return "EVIOCGNAME(" + size + ")";
  if (request == EVIOCGPHYS(_IOC_SIZE(request))) return "EVIOCGPHYS(" + size + ")";
  if (request == EVIOCGUNIQ(_IOC_SIZE(request))) return "EVIOCGUNIQ(" + size + ")";
  if (request == EVIOCGPROP(_IOC_SIZE(request))) return "EVIOCGPROP(" + size + ")";
  if (request == EVIOCGKEY(_IOC_SIZE(request))) return "EVIOCGKEY(" + size + ")";
  if (request == EVIOCGLED(_IOC_SIZE(request))) return "EVIOCGLED(" + size + ")";
  if (request == EVIOCGSND(_IOC_SIZE(request))) return "EVIOCGSND(" + size + ")";
  if (request == EVIOCGSW(_IOC_SIZE(request))) return "EVIOCGSW(" + size + ")";
  if (_IOC_TYPE(request) == 'E' && number >= _IOC_NR(EVIOCGBIT(0, 0)) && number <= _IOC_NR(EVIOCGBIT(EV_MAX, 0))) {
    return "EVIOCGBIT(" + eventType(number - _IOC_NR(EVIOCGBIT(0, 0))) + ", " + size + ")";
  }
  if (_IOC_TYPE(request) == 'E' && number >= _IOC_NR(EVIOCGABS(0)) && number <= _IOC_NR(EVIOCGABS(ABS_MAX))) {
    return "EVIOCGABS(" + std::to_string(number - _IOC_NR(EVIOCGABS(0))) + ")";
  }
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", request);
  return text;
}

std::string byteCount(std::size_t size) {
  return size == sizeof(input_event) ? std::string("1 record") : std::to_string(size);
}

std::string descriptorSet(int count, const fd_set* set) {
  std::string text;
  for (int fd = 0; fd < count && fd < FD_SETSIZE; ++fd) {
    if (FD_ISSET(fd, set)) text += (text.empty() ? "" : " ") + std::to_string(fd);
  }
  return "[" + text + "]";
}

std::string pollEntries(const pollfd* entries, nfds_t count, short pollfd::*field) {
  std::string text;
  for (nfds_t i = 0; i < count; ++i) {
    if (field == &pollfd::revents && entries[i].revents == 0) continue;
    text += (text.empty() ? "" : ", ") + std::to_string(entries[i].fd) + " " + pollEvents(entries[i].*field);
  }
  return "[" + text + "]";
}

std::string receiveFlags(int flags) {
  int rest = flags;
  std::string text = flagName(rest, MSG_PEEK, "MSG_PEEK");
  text += flagName(rest, MSG_DONTWAIT, "MSG_DONTWAIT");
  text += flagName(rest, MSG_NOSIGNAL, "MSG_NOSIGNAL");
  return joined(text + restOfFlags(rest));
}

std::string epollEvents(unsigned events) {
  int rest = static_cast<int>(events);
  std::string text = flagName(rest, EPOLLIN, "EPOLLIN");
  text += flagName(rest, EPOLLPRI, "EPOLLPRI");
  text += flagName(rest, EPOLLOUT, "EPOLLOUT");
  text += flagName(rest, EPOLLERR, "EPOLLERR");
  text += flagName(rest, EPOLLHUP, "EPOLLHUP");
  text += flagName(rest, EPOLLRDHUP, "EPOLLRDHUP");
  text += flagName(rest, EPOLLONESHOT, "EPOLLONESHOT");
  text += flagName(rest, static_cast<int>(EPOLLET), "EPOLLET");
  return joined(text + restOfFlags(rest));
}

std::string epollOperation(int operation) {
  switch (operation) {
    case EPOLL_CTL_ADD: return "EPOLL_CTL_ADD";
    case EPOLL_CTL_MOD: return "EPOLL_CTL_MOD";
    case EPOLL_CTL_DEL: return "EPOLL_CTL_DEL";
    default: return std::to_string(operation);
  }
}

std::string descriptorFlags(int flags) {
  int rest = flags;
  std::string text = flagName(rest, O_NONBLOCK, "O_NONBLOCK");
  text += flagName(rest, O_CLOEXEC, "O_CLOEXEC");
  return joined(text + restOfFlags(rest));
}

std::string clockName(clockid_t clock) {
  switch (clock) {
    case CLOCK_REALTIME: return "CLOCK_REALTIME";
    case CLOCK_REALTIME_COARSE: return "CLOCK_REALTIME_COARSE";
    case CLOCK_TAI: return "CLOCK_TAI";
    case CLOCK_MONOTONIC: return "CLOCK_MONOTONIC";
    case CLOCK_MONOTONIC_RAW: return "CLOCK_MONOTONIC_RAW";
    case CLOCK_MONOTONIC_COARSE: return "CLOCK_MONOTONIC_COARSE";
    case CLOCK_BOOTTIME: return "CLOCK_BOOTTIME";
    default: return std::to_string(clock);
  }
}

std::string seconds(std::optional<std::chrono::microseconds> time) {
  if (!time) return "forever";
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64, static_cast<std::int64_t>(time->count() / 1000000),
                static_cast<std::int64_t>(time->count() % 1000000));
  return text;
}

std::string errorName(int error) {
  switch (error) {
#define QUARLO_ERROR(name) \
  case name:               \
    return #name;
#include "sim/error_names.inc"
#undef QUARLO_ERROR
    default: return std::to_string(error);
  }
}

std::string callResult(long result, int error) {
  if (result >= 0) return std::to_string(result);
  return std::to_string(result) + " " + errorName(error);
}

}  // namespace quarlo::sim
