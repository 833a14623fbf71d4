#include "tools/common/obstacle.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace quarlo::tools {
namespace {

// Only root can make a file that belongs to a group of choice.
class ObstacleTest : public testing::Test {
 protected:
  ~ObstacleTest() override { unlink(path_.c_str()); }

  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
  }

  // Makes the test's file, of root's and with this group and mode.
  void make(mode_t mode, const char* group) {
    close(mkstemp(path_.data()));
    const struct group* entry = getgrnam(group);
    ASSERT_NE(entry, nullptr) << group;
    ASSERT_EQ(chown(path_.c_str(), 0, entry->gr_gid), 0);
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
  }

  std::string path_ = "/tmp/quarlo-XXXXXX";
};

std::string text(const Obstacle& obstacle) { return obstacle.reason + ". " + obstacle.remedy; }

TEST_F(ObstacleTest, SendsOneIntoTheGroupThatMayReadTheNode) {
  make(0640, "tty");
  EXPECT_EQ(text(whyNotOpened(path_, EACCES)),
            "Permission denied (owner root, group tty, mode 0640). "
            "Add yourself to group tty: sudo usermod -aG tty $USER, then log in again");
}

TEST_F(ObstacleTest, SendsOneIntoTheGroupThatMayConnect) {
  make(0620, "tty");
  EXPECT_EQ(text(whyNotConnected(path_, EACCES)),
            "Permission denied (owner root, group tty, mode 0620). "
            "Add yourself to group tty: sudo usermod -aG tty $USER, then log in again");
}

TEST_F(ObstacleTest, DoesNotSendOneIntoAGroupThatMayNotEither) {
  make(0620, "tty");
  EXPECT_EQ(text(whyNotOpened(path_, EACCES)),
            "Permission denied (owner root, group tty, mode 0620). "
            "Run this with sudo, or let a group of yours use it (chgrp, chmod g+rw)");
}

TEST_F(ObstacleTest, SendsNobodyIntoRootsGroup) {
  make(0660, "root");
  EXPECT_EQ(text(whyNotOpened(path_, EACCES)),
            "Permission denied (owner root, group root, mode 0660). "
            "Run this with sudo, or let a group of yours use it (chgrp, chmod g+rw)");
}

TEST(Obstacle, OfAFolderThatCannotBeSearched) {
  EXPECT_EQ(text(whyNotOpened("/nowhere/event0", EACCES)),
            "Permission denied. "
            "Look at the permissions of the directories above it (namei -l /nowhere/event0), or run this with sudo");
}

TEST(Obstacle, OfANodeThatIsMissing) {
  EXPECT_EQ(text(whyNotOpened("/dev/input/event99", ENOENT)),
            "No such file or directory. `quarlo-input list` shows the nodes that exist");
}

TEST(Obstacle, OfADaemonThatDoesNotRun) {
  EXPECT_EQ(text(whyNotConnected("/run/lircd", ECONNREFUSED)),
            "Connection refused. "
            "Is lircd running (systemctl status lircd)? Is this the socket that it writes to?");
}

TEST(Obstacle, WithoutARemedyIsNamed) {
  EXPECT_EQ(text(whyNotOpened("/x", EMFILE)), "Too many open files. ");
  EXPECT_EQ(text(whyNotConnected("/x", EAGAIN)), "Resource temporarily unavailable. ");
}

}  // namespace
}  // namespace quarlo::tools
