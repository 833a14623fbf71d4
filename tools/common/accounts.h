// Users and groups by the files of this machine, /etc/passwd and /etc/group. No directory service is asked: a program
// that is linked statically has nobody to ask it.
#pragma once

#include <sys/types.h>

#include <string>

namespace quarlo::tools {

// Their names; as numbers if they have none here.
std::string userName(uid_t user);
std::string groupName(gid_t group);

// Whether the user's own group is this one, or the group lists the user. False if either has no name here.
bool isMember(uid_t user, gid_t group);

}  // namespace quarlo::tools
