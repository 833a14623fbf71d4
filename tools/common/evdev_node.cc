#include "tools/common/evdev_node.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace quarlo::tools {

int openForReading(const std::string& path) { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }

bool isEvdevNode(int fd) {
  struct stat status;
  int version;
  return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && ioctl(fd, EVIOCGVERSION, &version) != -1;
}

}  // namespace quarlo::tools
