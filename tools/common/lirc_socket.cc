#include "tools/common/lirc_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

namespace quarlo::tools {

int connectWithoutWaiting(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  const int error = errno;
  close(fd);
  errno = error;
  return -1;
}

int errnoOfConnecting(const std::string& path) {
  const int fd = connectWithoutWaiting(path);
  if (fd == -1) return errno;
  close(fd);
  return 0;
}

}  // namespace quarlo::tools
