#include "recording/session.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

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

// What a session has: "mouse keyboard 1 2 remote", with the numbers of further nodes.
std::string sources(const Session& session) {
  std::string text;
  if (session.mouse) text += "mouse ";
  if (session.keyboard) text += "keyboard ";
  for (std::size_t i = 0; i < session.further.size(); ++i) {
    if (session.further[i]) text += std::to_string(i + 1) + " ";
  }
  if (session.remote) text += "remote ";
  return text;
}

// Makes a socket of this path. Returns its descriptor.
int listenOn(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

class SessionTest : public FolderTest {
 protected:
  std::string sourcesOfFile(const std::string& capabilities) const {
    return sources(readSession(write("device.evemu", capabilities + kRecord)));
  }
};

using SessionFolder = SessionTest;
using SessionFile = SessionTest;

TEST(SessionPart, IsAFileWithANumber) {
  EXPECT_EQ(partOf(kMouseFile, 1), "mouse.evemu");
  EXPECT_EQ(partOf(kMouseFile, 2), "mouse.0002.evemu");
  EXPECT_EQ(partOf(kRemoteFile, 12345), "remote.12345.lirc");
}

TEST_F(SessionFolder, HasAnyOfItsFiles) {
  write("remote.lirc", kLine);
  EXPECT_EQ(sources(readSession(path())), "remote ");
  write("mouse.evemu", std::string(kRelativeAxes) + kRecord);
  EXPECT_EQ(sources(readSession(path())), "mouse remote ");
  write("keyboard.evemu", std::string(kArrowKeys) + kRecord);
  EXPECT_EQ(sources(readSession(path() + "/")), "mouse keyboard remote ");
}

TEST_F(SessionFolder, HasFurtherNodesThatNeedNotBeAdjacent) {
  const std::string keys = std::string(kArrowKeys) + kRecord;
  write("node-8.evemu", keys);
  EXPECT_EQ(sources(readSession(path())), "8 ");
  write("node-1.evemu", keys);
  write("node-3.evemu", keys);
  write("keyboard.evemu", keys);
  EXPECT_EQ(sources(readSession(path())), "keyboard 1 3 8 ");
}

TEST_F(SessionFolder, RefusesOneFurtherNodeTooManyThatNobodyWouldPlay) {
  write("keyboard.evemu", std::string(kArrowKeys) + kRecord);
  const std::string ninth = write("node-9.evemu", "");
  EXPECT_EQ(errorOf([&] { readSession(path()); }),
            ninth +
                ": a session has at most 8 further nodes, node-1.evemu to node-8.evemu; give this one another name to "
                "leave it out");
}

TEST_F(SessionFolder, NamesTheFurtherNodeThatIsBroken) {
  const std::string file = write("node-2.evemu", "nonsense\n");
  EXPECT_EQ(errorOf([&] { readSession(path()); }).rfind(file + ":1: ", 0), 0U);
}

TEST_F(SessionFolder, CountsFromZero) {
  write("keyboard.evemu", std::string(kArrowKeys) + kRecord);
  write("remote.lirc", kLine);
  const Session session = readSession(path());
  EXPECT_EQ(session.keyboard->records[0].time, std::chrono::seconds(5));
  EXPECT_EQ(session.remote->at(0).time, std::chrono::seconds(5));
}

TEST_F(SessionFolder, CountsFromItsEarliestTimeIfAllAreLaterThanADay) {
  write("mouse.evemu", std::string(kRelativeAxes) + "E: 1329846857.000000 0000 0000 0\n");
  write("keyboard.evemu", std::string(kArrowKeys) + "E: 1329846858.500000 0000 0000 0\n");
  write("node-3.evemu", std::string(kArrowKeys) + "# later\nE: 1329846856.200000 0000 0000 0\n");
  write("remote.lirc", "1329846856.700000 0 00 KEY_OK remote\n");
  const Session session = readSession(path());
  EXPECT_EQ(session.mouse->records[0].time, std::chrono::milliseconds(800));
  EXPECT_EQ(session.keyboard->records[0].time, std::chrono::milliseconds(2300));
  EXPECT_EQ(session.further[2]->records[0].time, microseconds(0));
  EXPECT_EQ(session.remote->at(0).time, std::chrono::milliseconds(500));
}

TEST_F(SessionFolder, CountsFromZeroUpToADay) {
  write("remote.lirc", "86400.000000 0 00 KEY_OK remote\n");
  EXPECT_EQ(readSession(path()).remote->at(0).time, kLongestUnmarkedSession);
  write("remote.lirc", "86400.000001 0 00 KEY_OK remote\n");
  EXPECT_EQ(readSession(path()).remote->at(0).time, microseconds(0));
}

TEST_F(SessionFolder, CountsFromZeroForAMonthIfItIsMarked) {
  write("remote.lirc", kMark + "2678400.000000 0 00 KEY_OK remote\n");
  EXPECT_EQ(readSession(path()).remote->at(0).time, kLongestSession);
  write("remote.lirc", kMark + "2678400.000001 0 00 KEY_OK remote\n");
  EXPECT_EQ(errorOf([&] { readSession(path()); }),
            path("remote.lirc") +
                ":3: the time \"2678400.000001\" is more than 744 hours after the start of the session, 0.000000");
}

TEST_F(SessionFolder, CountsFromZeroIfAnyFileIsMarked) {
  write("keyboard.evemu", std::string(kArrowKeys) + "E: 86400.000001 0000 0000 0\n");
  write("remote.lirc", kMark + "90000.000000 0 00 KEY_OK remote\n");
  EXPECT_EQ(errorOf([&] { readSession(path()); }),
            path("keyboard.evemu") +
                ":3: the time \"86400.000001\" is more than 24 hours after the start of the session, 0.000000");
}

TEST_F(SessionFolder, HasOneClock) {
  write("mouse.evemu", std::string(kRelativeAxes) + "E: 1329846857.000000 0000 0000 0\n");
  write("remote.lirc", kLine);
  EXPECT_EQ(errorOf([&] { readSession(path()); }),
            path("mouse.evemu") +
                ":2: the time \"1329846857.000000\" is more than 24 hours after the start of the session, 0.000000");
}

TEST_F(SessionFolder, NamesTheTimeThatIsBrokenAsTheFirstOfItsFile) {
  write("mouse.evemu", std::string(kRelativeAxes) + "E: soon 0000 0000 0\n");
  write("remote.lirc", "1329846856.700000 0 00 KEY_OK remote\n");
  EXPECT_EQ(
      errorOf([&] { readSession(path()); }),
      path("mouse.evemu") + ":2: the time is \"soon\", expected <seconds>.<microseconds>, the latter in six digits");
}

TEST_F(SessionFolder, TakesADeviceForWhatItsFileIsCalled) {
  write("mouse.evemu", std::string(kArrowKeys) + kRecord);
  EXPECT_EQ(sources(readSession(path())), "mouse ");
}

TEST_F(SessionFolder, WithNoneOfThemIsAnError) {
  write("notes.txt", "");
  EXPECT_EQ(errorOf([&] { readSession(path()); }),
            path() +
                ": the directory has none of mouse.evemu, keyboard.evemu, remote.lirc and node-1.evemu to "
                "node-8.evemu");
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

TEST_F(SessionFolder, NamesALinkToNothing) {
  std::filesystem::create_symlink("nothing", path("mouse.evemu"));
  write("remote.lirc", kLine);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), path("mouse.evemu") + ": a link to a file that does not exist");
}

TEST_F(SessionFolder, TakesALinkForItsFile) {
  std::filesystem::create_symlink(write("keys", std::string(kArrowKeys) + kRecord), path("keyboard.evemu"));
  EXPECT_EQ(sources(readSession(path())), "keyboard ");
}

// Nobody has opened the pipe for writing: opening it for reading would take forever.
TEST_F(SessionFolder, OpensOnlyFiles) {
  const std::string file = path("mouse.evemu");
  EXPECT_EQ(mkfifo(file.c_str(), 0600), 0);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), file + ": this is a pipe, expected a file");
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), file + ": this is a directory, expected a file");
  std::filesystem::remove(file);
  std::filesystem::create_symlink("/dev/zero", file);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), file + ": this is a device, expected a file");
  std::filesystem::remove(file);
  const int listener = listenOn(file);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), file + ": this is a socket, expected a file");
  close(listener);
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
                  "without REL_X and REL_Y); as mouse.evemu or keyboard.evemu in a directory it is taken anyway");
  }
}

TEST_F(SessionFile, OfAnotherDeviceIsAFurtherNodeIfAnyIsWanted) {
  const auto anyOf = [&](const std::string& capabilities) {
    return readSession(write("device.evemu", capabilities + kRecord), SingleNode::kAny);
  };
  EXPECT_EQ(sources(anyOf(std::string(kRelativeAxes) + kArrowKeys)), "1 ");
  EXPECT_EQ(sources(anyOf(kArrowKeys)), "keyboard ");
}

TEST_F(SessionFile, IsARemoteByItsName) { EXPECT_EQ(sources(readSession(write("tv.lirc", kLine))), "remote "); }

TEST_F(SessionFile, StartsWithItsFirstRecord) {
  EXPECT_EQ(readSession(write("tv.lirc", kLine)).remote->at(0).time, microseconds(0));
  EXPECT_EQ(readSession(write("a.evemu", std::string(kArrowKeys) + kRecord)).keyboard->records[0].time,
            microseconds(0));
}

TEST_F(SessionFile, CanBeADescriptionAndARecordThatAreApart) {
  const std::string description = write("a.desc", kArrowKeys);
  const std::string events = write("a.events", std::string(kRecord) + "E: 5.250000 0000 0000 0\n");
  for (const Session& session : {readPair(description, events), readPair(events, description)}) {
    EXPECT_EQ(sources(session), "keyboard ");
    EXPECT_EQ(session.keyboard->records[0].time, microseconds(0));
    EXPECT_EQ(session.keyboard->records[1].time, std::chrono::milliseconds(250));
  }
}

TEST_F(SessionFile, OfWhichThereAreTwoHasNoDirectoryAmongThem) {
  const std::string description = write("a.desc", kArrowKeys);
  const std::string complaint = path() +
                                ": this is a directory, and a session by itself; of two files, one describes a device, "
                                "and the other has its records";
  EXPECT_EQ(errorOf([&] { readPair(description, path()); }), complaint);
  EXPECT_EQ(errorOf([&] { readPair(path(), description); }), complaint);
  EXPECT_EQ(errorOf([&] { readPair(description, path("nothing")); }), path("nothing") + ": No such file or directory");
}

TEST_F(SessionFile, ThatIsAPipeIsAnError) {
  EXPECT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(errorOf([&] { readSession(path("pipe")); }), path("pipe") + ": this is a pipe, expected a file");
}

// A file with a hole takes no room.
TEST_F(SessionFile, HasABoundThatKeepsItsLinesFromFillingTheMemory) {
  const std::string file = write("tv.lirc", kLine);
  std::filesystem::resize_file(file, kLargestFile + 1);
  EXPECT_EQ(errorOf([&] { readSession(file); }), file + ": the file has more than 268435456 bytes");
  std::filesystem::resize_file(file, 5'000'000'000);  // more than 32 bits can count
  EXPECT_EQ(errorOf([&] { readSession(file); }), file + ": the file has more than 268435456 bytes");
  std::filesystem::resize_file(file, kLargestFile);
  EXPECT_EQ(errorOf([&] { readSession(file); }), file + ":2: a NUL byte: this is not a text file");
}

TEST_F(SessionFile, ThatIsMissingIsAnError) {
  EXPECT_EQ(errorOf([&] { readSession(path("nothing")); }), path("nothing") + ": No such file or directory");
}

}  // namespace
}  // namespace quarlo::recording
