#include "tools/common/new_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/files.h"

namespace quarlo::tools {
namespace {

class NewFileTest : public testing::Test {
 protected:
  // What is wrong with a new file, before it is made and when it is; empty if nothing is.
  static std::string problemOf(const std::string& path) {
    const std::string before = errorOf([&] { checkNewFile(path, "the picture"); });
    EXPECT_EQ(errorOf([&] { NewFile(path, "the picture"); }), before);
    return before;
  }

  template <typename Action>
  static std::string errorOf(Action action) {
    try {
      action();
      return "";
    } catch (const NewFileError& error) {
      return error.what();
    }
  }

  // Another file in the place of the one of this path, which has these permissions. What the status is of that.
  struct stat replaced(mode_t permissions) const {
    EXPECT_EQ(chmod(path_.c_str(), permissions), 0);
    NewFile file(path_, "the picture");
    file.write("new");
    file.finish();
    struct stat status = {};
    EXPECT_EQ(stat(path_.c_str(), &status), 0);
    return status;
  }

  std::string content() const { return test::contentOf(path_); }

  auto filesInTheFolder() const { return std::distance(std::filesystem::directory_iterator(folder_.path()), {}); }

  test::Folder folder_;
  std::string path_ = folder_.write("picture", "old");
};

TEST_F(NewFileTest, ComesInThePlaceOfTheOldOneWhenItIsFinished) {
  NewFile file(path_, "the picture");
  file.write("new");
  EXPECT_EQ(content(), "old");
  EXPECT_EQ(access((path_ + "." + std::to_string(getpid())).c_str(), F_OK), 0);
  file.finish();
  EXPECT_EQ(content(), "new");
  EXPECT_EQ(filesInTheFolder(), 1);
}

TEST_F(NewFileTest, LeavesTheOldOneUnlessItIsFinished) {
  NewFile(path_, "the picture").write("new");
  EXPECT_EQ(content(), "old");
  EXPECT_EQ(filesInTheFolder(), 1);
}

TEST_F(NewFileTest, IsForThoseForWhomTheOldOneWas) {
  for (const mode_t permissions : {0600U, 0751U, 0666U}) {
    const struct stat status = replaced(permissions);
    EXPECT_EQ(status.st_mode & 07777, permissions);
    EXPECT_EQ(status.st_uid, geteuid());
  }
}

TEST_F(NewFileTest, IsForNoOtherGroupThanTheOldOneWas) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a file of another group";
  ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
  ASSERT_EQ(chmod(path_.c_str(), 0777), 0);
  NewFile(path_, "the picture").finish();
  ASSERT_EQ(chown(path_.c_str(), 65534, 0), 0);
  ASSERT_EQ(setegid(65534), 0);
  {
    const test::NoRoot user;
    EXPECT_EQ(replaced(0777).st_mode & 07777, 0707);
  }
  EXPECT_EQ(setegid(0), 0);
}

TEST_F(NewFileTest, NeedsADirectoryInWhichOneCanBeMade) {
  EXPECT_EQ(problemOf(folder_.path("no/picture")),
            folder_.path("no/picture") + ": the picture cannot be written: No such file or directory");
  const std::string place = std::filesystem::current_path();
  {
    const test::NoRoot user;
    std::filesystem::current_path("/");
    for (const std::string path : {"picture", "/picture"}) {
      EXPECT_EQ(problemOf(path), path + ": the picture cannot be written: Permission denied");
    }
    std::filesystem::current_path("/tmp");
    EXPECT_EQ(problemOf("picture"), "");
  }
  std::filesystem::current_path(place);  // into which only root may go, if it is below /root
}

TEST_F(NewFileTest, TakesThePlaceOfAFileAlone) {
  EXPECT_EQ(errorOf([&] { checkNewFile(folder_.path(), "the picture"); }),
            folder_.path() + ": the picture cannot be written: not a regular file");
}

}  // namespace
}  // namespace quarlo::tools
