// libevdev asks a node what it can do, which a FIFO in a node's place cannot answer. This takes the place of libc's
// ioctl(), for libraries too, and answers for FIFOs: all keys, the two axes of a mouse, and no state.
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace {

bool isFifo(int fd) {
  struct stat status = {};
  return fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

void setBit(std::uint8_t* bits, int bit) {
  bits[bit / 8] = static_cast<std::uint8_t>(bits[bit / 8] | 1U << static_cast<unsigned>(bit % 8));
}

// Whether the request asks for the codes of an event type, whatever the size of the answer is.
bool asksFor(unsigned long request, unsigned type) { return _IOC_NR(request) == _IOC_NR(EVIOCGBIT(type, 0)); }

int answer(unsigned long request, void* argument) {
  if (_IOC_TYPE(request) != 'E' || (_IOC_DIR(request) & _IOC_READ) == 0) return 0;
  const std::size_t size = _IOC_SIZE(request);
  std::memset(argument, 0, size);
  auto* bits = static_cast<std::uint8_t*>(argument);
  if (asksFor(request, 0)) {
    for (const int type : {EV_SYN, EV_KEY, EV_REL, EV_MSC}) setBit(bits, type);
  } else if (asksFor(request, EV_KEY)) {
    std::memset(argument, 0xff, size);
  } else if (asksFor(request, EV_REL)) {
    for (const int axis : {REL_X, REL_Y}) setBit(bits, axis);
  } else if (asksFor(request, EV_MSC)) {
    setBit(bits, MSC_SCAN);
  }
  return static_cast<int>(size);
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (isFifo(fd)) return answer(request, argument);
  return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}
