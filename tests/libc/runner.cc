// What the component and its loop make of keys and of input, and each call that they make on the way, as text: the same
// with every libc. Needs nothing of C++ at run time, so that it runs where there is no library of it.
//
//   runner keys              the table of keys
//   runner loop DIRECTORY    FIFOs and a socket in an empty directory get what standard input tells, in order, each
//   line
//                            "<us> mouse|keyboard <type> <code> <value>" or "<us> remote <line>". The clock shows these
//                            times. The events are InputLoop's.
//   runner reader DIRECTORY  the same with readInput()
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "input/input_loop.h"
#include "input/linux_input_reader.h"
#include "logging/stderr_logging.h"

using quarlo::components::input::InputLoop;
using quarlo::components::input::LinuxInputReader;
using InputEvent = LinuxInputReader::InputEvent;

namespace {

long long now = 0;  // us

// ---- Calls: each is shown. The linker sends them here (CMakeLists.txt) --------------------------

// Leaves errno as the call did.
void show(const char* call, long argument, long result) {
  const int error = result == -1 ? errno : 0;
  std::printf("  %s %ld = %ld errno %d\n", call, argument, result, error);
  if (result == -1) errno = error;
}

template <typename Result>
Result shown(Result result, const char* call, long argument) {
  show(call, argument, static_cast<long>(result));
  return result;
}

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's own names
int __real_open(const char* path, int flags);
int __real_close(int fd);
int __real_ioctl(int fd, unsigned request, void* argument);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
ssize_t __real_write(int fd, const void* buffer, size_t size);
int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __real_pipe2(int* fds, int flags);
int __real_select(int count, fd_set* in, fd_set* out, fd_set* exceptions, timeval* timeout);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t size);
char* __real_getenv(const char* name);

int __wrap_open(const char* path, int flags) { return shown(__real_open(path, flags), path, flags); }
int __wrap_close(int fd) { return shown(__real_close(fd), "close", fd); }
int __wrap_ioctl(int fd, unsigned request, void* argument) {
  return shown(__real_ioctl(fd, request, argument), "ioctl", request);
}
ssize_t __wrap_read(int fd, void* buffer, size_t size) { return shown(__real_read(fd, buffer, size), "read", fd); }
ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
  return shown(__real_recv(fd, buffer, size, flags), "recv", flags);
}
ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
  return shown(__real_write(fd, buffer, size), "write", fd);
}
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
  return shown(__real_poll(fds, count, timeout), "poll", timeout);
}
int __wrap_pipe2(int* fds, int flags) { return shown(__real_pipe2(fds, flags), "pipe2", flags); }
int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* exceptions, timeval* timeout) {
  return shown(__real_select(count, in, out, exceptions, timeout), "select", count);
}
int __wrap_socket(int domain, int type, int protocol) {
  return shown(__real_socket(domain, type, protocol), "socket", type);
}
int __wrap_connect(int fd, const sockaddr* address, socklen_t size) {
  return shown(__real_connect(fd, address, size), "connect", fd);
}
char* __wrap_getenv(const char* name) {
  char* value = __real_getenv(name);
  show(name, 0, value != nullptr ? 1 : 0);
  return value;
}

// The clock is the input's.
int __wrap_gettimeofday(timeval* time, void* /*zone*/) {
  time->tv_sec = static_cast<time_t>(now / 1'000'000);
  time->tv_usec = static_cast<suseconds_t>(now % 1'000'000);
  return shown(0, "gettimeofday", 0);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

// ---- Keys ---------------------------------------------------------------------------------------

void printKeys() {
  for (int code = 0; code <= KEY_MAX; ++code) {
    std::printf("%d:", code);
    for (LinuxInputReader::Modifier modifiers = 0; modifiers < 8; ++modifiers) {
      for (const bool numLock : {false, true}) {
        LinuxInputReader::Key key = -1;
        char ch = -1;
        LinuxInputReader::translateKey(code, modifiers, numLock, key, ch);
        std::printf(" %d,%d", key, static_cast<unsigned char>(ch));
      }
    }
    std::printf(" modifier %u\n", LinuxInputReader::getModifier(code));
  }
}

// ---- Sources ------------------------------------------------------------------------------------

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

int makeFifo(const char* path) {
  const int fd = mkfifo(path, 0600) == 0 ? open(path, O_RDWR | O_NONBLOCK) : -1;
  if (fd == -1) fail(path);
  return fd;
}

int listenAt(const char* path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == -1 || listen(fd, 1) == -1) fail(path);
  return fd;
}

// ---- Input and events ---------------------------------------------------------------------------

class Application {
 public:
  explicit Application(bool hasLoop) : loop_(reader_), hasLoop_(hasLoop) {
    mouse_ = makeFifo("mouse");
    keyboard_ = makeFifo("keyboard");
    const int listener = listenAt("remote");
    if (!reader_.init("mouse", "keyboard", "remote", 1919, 1079)) fail("init");
    remote_ = accept(listener, nullptr, nullptr);
    close(listener);
  }

  // A line of the input. What has the same time comes together.
  void send(long long time, const char* source, const char* text) {
    if (time != now) passUntil(time);
    if (std::strcmp(source, "remote") == 0) {
      write(remote_, text, std::strlen(text));
    } else {
      input_event record = {};
      int value;
      if (std::sscanf(text, "%hu %hu %d", &record.type, &record.code, &value) != 3) fail(text);
      record.value = value;
      write(std::strcmp(source, "mouse") == 0 ? mouse_ : keyboard_, &record, sizeof record);
    }
  }

  // Until the remote's key is forgotten.
  void end() { passUntil(now + 10'000'000); }

 private:
  // Up to a time, with what is due for the remote on the way.
  void passUntil(long long time) {
    constexpr long long kStep = 10'000;
    take();
    while (now < time) {
      now = time - now < kStep ? time : now + kStep;
      if (reader_.lircKey != 0 || reader_.hasPendingEvent) take();
    }
  }

  void take() {
    InputEvent event;
    if (hasLoop_) {
      loop_.wait(0);
      while (loop_.next(event)) print(event);
      return;
    }
    for (event.kind = 255; reader_.readInput(event, 0); event.kind = 255) print(event);
  }

  void print(const InputEvent& event) {
    if (event.kind == InputEvent::kKeyEvent) {
      const InputEvent::KeyData& key = event.keyData;
      std::printf("%lld key %d %d %d %u\n", now, key.action, key.key, static_cast<unsigned char>(key.ch),
                  key.modifiers);
    } else if (event.kind == 255) {
      std::printf("%lld nothing\n", now);
    } else {
      const InputEvent::MouseData& data = event.mouseData;
      std::printf("%lld %d %d %d %u,%u %u\n", now, event.kind, data.action, data.button, data.x, data.y, data.clicks);
    }
  }

  LinuxInputReader reader_;
  InputLoop loop_;
  bool hasLoop_;
  int mouse_ = -1;
  int keyboard_ = -1;
  int remote_ = -1;
};

void run(bool hasLoop) {
  now = 1'000'000'000'000;
  const long long start = now;
  Application application(hasLoop);
  char line[1024];
  while (std::fgets(line, sizeof line, stdin) != nullptr) {
    long long time;
    char source[16];
    int text = 0;
    if (std::sscanf(line, "%lld %15s %n", &time, source, &text) != 2 || text == 0) fail(line);
    application.send(start + time, source, line + text);
  }
  application.end();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "keys") == 0) {
    printKeys();
  } else if (argc == 3 && chdir(argv[2]) == 0) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // in order with the log
    quarlo::logging::SetVlogLevel(10);
    run(std::strcmp(argv[1], "loop") == 0);
  } else {
    std::fputs("usage: runner keys | loop DIRECTORY | reader DIRECTORY\n", stderr);
    return 2;
  }
  return 0;
}
