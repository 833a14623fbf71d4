#include "tools/common/obstacle.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/common/accounts.h"

namespace quarlo::tools {
namespace {

constexpr unsigned kPermissionBits = 07777;
constexpr gid_t kRootGroup = 0;

std::string describePermissions(const struct stat& status) {
  char mode[8];
  std::snprintf(mode, sizeof mode, "%04o", status.st_mode & kPermissionBits);
  return "owner " + userName(status.st_uid) + ", group " + groupName(status.st_gid) + ", mode " + mode;
}

// `groupBits` is what a member of the group needs. Nobody is advised to join root's group.
Obstacle whyNotPermitted(const std::string& path, int error, mode_t groupBits) {
  const std::string text = std::strerror(error);
  struct stat status;
  if (stat(path.c_str(), &status) == -1) {
    return {text, "Look at the permissions of the directories above it (namei -l " + path + "), or run this with sudo"};
  }
  const std::string reason = text + " (" + describePermissions(status) + ")";
  if ((status.st_mode & groupBits) != groupBits || status.st_gid == kRootGroup) {
    return {reason, "Run this with sudo, or let a group of yours use it (chgrp, chmod g+rw)"};
  }
  const std::string group = groupName(status.st_gid);
  return {reason, "Add yourself to group " + group + ": sudo usermod -aG " + group + " $USER, then log in again"};
}

}  // namespace

Obstacle whyNotOpened(const std::string& path, int error) {
  switch (error) {
    case EACCES:
    case EPERM: return whyNotPermitted(path, error, S_IRGRP);
    case ENOENT:
    case ENOTDIR: return {std::strerror(error), "`quarlo-input list` shows the nodes that exist"};
    case ENODEV:
    case ENXIO: return {std::strerror(error), "No device is behind it: plug it in again"};
    default: return {std::strerror(error), ""};
  }
}

Obstacle whyNotConnected(const std::string& path, int error) {
  switch (error) {
    case EACCES:
    case EPERM: return whyNotPermitted(path, error, S_IWGRP);
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
      return {std::strerror(error), "Is lircd running (systemctl status lircd)? Is this the socket that it writes to?"};
    default: return {std::strerror(error), ""};
  }
}

}  // namespace quarlo::tools
