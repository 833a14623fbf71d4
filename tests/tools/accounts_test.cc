#include "tools/common/accounts.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

namespace quarlo::tools {
namespace {

constexpr uid_t kNobodyAtAll = 3'999'999'999;

TEST(Accounts, AreNamedAsLibcNamesThem) {
  for (const uid_t user : {0U, 1U, 65534U}) EXPECT_EQ(userName(user), getpwuid(user)->pw_name);
  for (const gid_t group : {0U, 5U, 65534U}) EXPECT_EQ(groupName(group), getgrgid(group)->gr_name);
}

TEST(Accounts, WithoutANameAreTheirNumber) {
  EXPECT_EQ(userName(kNobodyAtAll), "3999999999");
  EXPECT_EQ(groupName(kNobodyAtAll), "3999999999");
}

TEST(Accounts, AUserIsAMemberOfItsOwnGroupAndOfNoOther) {
  EXPECT_TRUE(isMember(0, 0));
  EXPECT_FALSE(isMember(0, 65534));
  EXPECT_FALSE(isMember(kNobodyAtAll, 0));
  EXPECT_FALSE(isMember(0, kNobodyAtAll));
}

}  // namespace
}  // namespace quarlo::tools
