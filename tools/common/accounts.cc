#include "tools/common/accounts.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

namespace quarlo::tools {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openTable(const char* path) { return {std::fopen(path, "re"), std::fclose}; }

struct User {
  std::string name;
  gid_t group;
};

struct Group {
  std::string name;
  std::vector<std::string> members;
};

std::optional<User> findUser(uid_t user) {
  const File table = openTable("/etc/passwd");
  while (const passwd* entry = table != nullptr ? fgetpwent(table.get()) : nullptr) {
    if (entry->pw_uid == user) return User{entry->pw_name, entry->pw_gid};
  }
  return std::nullopt;
}

std::optional<Group> findGroup(gid_t group) {
  const File table = openTable("/etc/group");
  while (const struct group* entry = table != nullptr ? fgetgrent(table.get()) : nullptr) {
    if (entry->gr_gid != group) continue;
    Group found = {entry->gr_name, {}};
    for (char** member = entry->gr_mem; *member != nullptr; ++member) found.members.emplace_back(*member);
    return found;
  }
  return std::nullopt;
}

}  // namespace

std::string userName(uid_t user) {
  const std::optional<User> found = findUser(user);
  return found ? found->name : std::to_string(user);
}

std::string groupName(gid_t group) {
  const std::optional<Group> found = findGroup(group);
  return found ? found->name : std::to_string(group);
}

bool isMember(uid_t user, gid_t group) {
  const std::optional<User> account = findUser(user);
  const std::optional<Group> wanted = findGroup(group);
  if (!account || !wanted) return false;
  const auto& members = wanted->members;
  return account->group == group || std::find(members.begin(), members.end(), account->name) != members.end();
}

}  // namespace quarlo::tools
