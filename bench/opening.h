// How those contestants open the sources that have no library to do it.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "bench/fail.h"

namespace quarlo::bench {

inline int openNode(const std::string& path) { return checked(open(path.c_str(), O_RDONLY | O_NONBLOCK), path); }

inline int connectTo(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0), "socket");
  checked(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), path);
  return fd;
}

}  // namespace quarlo::bench
