#include "recording/session.h"

#include <sys/stat.h>

#include "tests/recording/recording_test.h"

namespace quarlo::recording {
namespace {

// Capability lines: REL_X and REL_Y; BTN_LEFT; BTN_TOUCH; the four arrow keys.
constexpr char kRelativeAxes[] = "B: 02 03\n";
constexpr char kLeftButton[] =
    "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 01\n";
constexpr char kTouch[] =
    "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 04\n";
constexpr char kArrowKeys[] = "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 80 16\n";
constexpr char kThreeArrowKeys[] = "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 80 06\n";
constexpr char kRecord[] = "E: 5.000000 0000 0000 0\n";
constexpr char kLine[] = "5.000000 0 00 KEY_OK remote\n";

// Which of the three a session has: "mouse keyboard remote".
std::string sources(const Session& session) {
  std::string text;
  if (session.mouse) text += "mouse ";
  if (session.keyboard) text += "keyboard ";
  if (session.remote) text += "remote ";
  return text;
}

class SessionTest : public FolderTest {
 protected:
  std::string sourcesOfFile(const std::string& capabilities) const {
    return sources(readSession(write("device.evemu", capabilities + kRecord)));
  }
};

using SessionFolder = SessionTest;
using SessionFile = SessionTest;

TEST_F(SessionFolder, HasAnyOfTheThree) {
  write("remote.lirc", kLine);
  EXPECT_EQ(sources(readSession(path())), "remote ");
  write("mouse.evemu", std::string(kRelativeAxes) + kRecord);
  EXPECT_EQ(sources(readSession(path())), "mouse remote ");
  write("keyboard.evemu", std::string(kArrowKeys) + kRecord);
  EXPECT_EQ(sources(readSession(path() + "/")), "mouse keyboard remote ");
}

TEST_F(SessionFolder, CountsFromZero) {
  write("keyboard.evemu", std::string(kArrowKeys) + kRecord);
  write("remote.lirc", kLine);
  const Session session = readSession(path());
  EXPECT_EQ(session.keyboard->records[0].time, std::chrono::seconds(5));
  EXPECT_EQ(session.remote->at(0).time, std::chrono::seconds(5));
}

TEST_F(SessionFolder, TakesADeviceForWhatItsFileIsCalled) {
  write("mouse.evemu", std::string(kArrowKeys) + kRecord);
  EXPECT_EQ(sources(readSession(path())), "mouse ");
}

TEST_F(SessionFolder, WithNoneOfTheThreeIsAnError) {
  write("notes.txt", "");
  EXPECT_EQ(errorOf([&] { readSession(path()); }),
            path() + ": the folder has none of mouse.evemu, keyboard.evemu and remote.lirc");
}

TEST_F(SessionFolder, NamesTheFileThatIsBroken) {
  const std::string file = write("mouse.evemu", "B: 02 03\nnonsense\n");
  EXPECT_EQ(errorOf([&] { readSession(path()); }),
            file + ":2: the line is \"nonsense\", expected a comment (#) or N: I: P: B: A: L: S: or E:");
}

TEST_F(SessionFolder, NamesAFileThatCannotBeOpened) {
  std::filesystem::create_symlink("mouse.evemu", path("mouse.evemu"));
  write("remote.lirc", kLine);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), path("mouse.evemu") + ": Too many levels of symbolic links");
}

TEST_F(SessionFolder, NamesAFileThatCannotBeRead) {
  std::filesystem::create_directory(path("mouse.evemu"));
  EXPECT_EQ(errorOf([&] { readSession(path()); }), path("mouse.evemu") + ": Is a directory");
}

TEST_F(SessionFile, IsAMouseOrAKeyboardByTheReadersTests) {
  EXPECT_EQ(sourcesOfFile(std::string(kRelativeAxes) + kLeftButton), "mouse ");
  EXPECT_EQ(sourcesOfFile(std::string(kRelativeAxes) + kTouch), "mouse ");
  EXPECT_EQ(sourcesOfFile(kArrowKeys), "keyboard ");
  EXPECT_EQ(sourcesOfFile(std::string("B: 02 01\n") + kArrowKeys), "keyboard ");
}

TEST_F(SessionFile, OfAnotherDeviceIsAnError) {
  for (const std::string& capabilities : {std::string(kThreeArrowKeys), std::string(kLeftButton), std::string(kTouch),
                                          std::string(kRelativeAxes) + kArrowKeys, std::string("B: 02 03\n")}) {
    EXPECT_EQ(errorOf([&] { sourcesOfFile(capabilities); }),
              path("device.evemu") +
                  ": neither a mouse (REL_X, REL_Y, and BTN_LEFT or BTN_TOUCH) nor a keyboard (the four arrow keys, "
                  "without REL_X and REL_Y); as mouse.evemu or keyboard.evemu in a folder it is taken anyway");
  }
}

TEST_F(SessionFile, IsARemoteByItsName) { EXPECT_EQ(sources(readSession(write("tv.lirc", kLine))), "remote "); }

TEST_F(SessionFile, StartsWithItsFirstRecord) {
  EXPECT_EQ(readSession(write("tv.lirc", kLine)).remote->at(0).time, microseconds(0));
  EXPECT_EQ(readSession(write("a.evemu", std::string(kArrowKeys) + kRecord)).keyboard->records[0].time,
            microseconds(0));
}

TEST_F(SessionFile, ThatIsMissingIsAnError) {
  EXPECT_EQ(errorOf([&] { readSession(path("nothing")); }), path("nothing") + ": No such file or directory");
}

}  // namespace
}  // namespace quarlo::recording
