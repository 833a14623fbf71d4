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

// What is wrong with a session, without the directory's path: "mouse.evemu:3: ...; it is left out".
std::vector<std::string> damagesOf(const Session& session, const std::string& directory) {
  std::vector<std::string> texts;
  for (const Damage& damage : session.damages) {
    EXPECT_EQ(damage.problem.rfind(directory + "/", 0), 0U) << damage.problem;
    texts.push_back(damage.problem.substr(directory.size() + 1) + "; " + damage.consequence);
  }
  return texts;
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

using Texts = std::vector<std::string>;
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

TEST_F(SessionFolder, LeavesOutFilesThatAreCalledAlmostAsItsOwn) {
  const Texts names = {"keyboard.-001.evemu",
                       "keyboard.00002.evemu",
                       "keyboard.0001.evemu",
                       "keyboard.2.evemu",
                       "keyboard.2147483648.evemu",
                       "keyboard.copy.evemu",
                       "mouse..evemu",
                       "node-0.evemu",
                       "node-1.2.evemu",
                       "node-10.evemu",
                       "node-9.0002.evemu",
                       "node-9.evemu",
                       "remote.002.lirc"};
  const std::string problem =
      ": no file of a session is called this, expected one of mouse.evemu, keyboard.evemu, remote.lirc and "
      "node-1.evemu to node-8.evemu, or a part of one such as mouse.0002.evemu";
  Texts damages;
  for (auto name = names.rbegin(); name != names.rend(); ++name) write(*name, "nonsense\n");
  for (const std::string& name : names) damages.push_back(name + problem + "; it is left out");
  EXPECT_EQ(errorOf([&] { readSession(path()); }), path(names.front()) + problem);
  write("keyboard.evemu", std::string(kArrowKeys) + kRecord);
  const Session session = readSession(path());
  EXPECT_EQ(sources(session), "keyboard ");
  EXPECT_EQ(damagesOf(session, path()), damages);
}

TEST_F(SessionFolder, MayHaveFilesThatAreNotOfASession) {
  for (const char* name :
       {"keyboard.evemu~", ".keyboard.evemu.swp", "mouse.0005.evemu~", "mouse.0005.lirc", "remote.0002.evemu",
        "mouse.desc", "mouse-1.evemu", "my mouse.0001.evemu", "node.evemu", "tv.lirc", "remote-1.lirc", "notes"}) {
    write(name, "nonsense\n");
  }
  write("remote.lirc", kLine);
  EXPECT_EQ(damagesOf(readSession(path()), path()), Texts());
}

TEST_F(SessionFolder, NamesTheFurtherNodeThatIsBroken) {
  const std::string file = write("node-2.evemu", "nonsense\n");
  EXPECT_EQ(errorOf([&] { readSession(path()); }).rfind(file + ":1: ", 0), 0U);
}

TEST_F(SessionFolder, HasAllThatIsWholeBesideWhatIsNot) {
  write("mouse.evemu", "");
  write("keyboard.evemu", std::string(kArrowKeys) + kRecord + "E: 6.0\n" + kRecord);
  write("node-1.evemu", kRecord);
  write("node-1.0002.evemu", kRecord + std::string("nonsense\n"));
  write("node-2.evemu", kArrowKeys);
  write("node-3.evemu", std::string(kArrowKeys) + kRecord);
  write("remote.lirc", kLine + std::string(3, '\0'));
  const Session session = readSession(path());
  EXPECT_EQ(sources(session), "keyboard 3 remote ");
  EXPECT_EQ(session.keyboard->records.size(), 1U);
  EXPECT_EQ(session.remote->size(), 1U);
  EXPECT_EQ(
      damagesOf(session, path()),
      (Texts{"mouse.evemu: this is an empty file; expected evemu's text format, as evemu-record writes it; it is left "
             "out",
             "keyboard.evemu:4: the time is \"6.0\", expected <seconds>.<microseconds>, the latter in six digits; what "
             "comes before is played, the last 31 bytes are not",
             "node-1.evemu: no capability lines (B:), which describe the device: if they are in another file, play the "
             "two together, or put both into one; it is left out",
             "node-2.evemu: no records (lines that start with E:): there is nothing to play; it is left out",
             "remote.lirc:2: a NUL byte: this is not a text file; what comes before is played, the last 3 bytes are "
             "not"}));
}

TEST_F(SessionFolder, HasNoDamageIfItIsWhole) {
  write("remote.lirc", kLine);
  EXPECT_EQ(damagesOf(readSession(path()), path()), Texts());
}

TEST_F(SessionFolder, GoesOnInTheParts) {
  const auto part = [](const std::string& name, const std::string& seconds) {
    return kMark + "N: " + name + "\n" + kRelativeAxes + "E: " + seconds + ".000000 0002 0000 1\n";
  };
  write("mouse.evemu", part("one", "1"));
  write("mouse.0002.evemu", part("two", "2") + "cut");
  write("mouse.0003.evemu", "");
  write("mouse.0004.evemu", part("four", "200000"));
  write("remote.lirc", kMark + "1.000000 a\n");
  write("remote.0002.lirc", kMark + "2.000000 b\n");
  write("node-8.evemu", part("node", "1"));
  write("node-8.0002.evemu", part("node", "2"));
  const Session session = readSession(path());
  EXPECT_EQ(sources(session), "mouse 8 remote ");
  EXPECT_EQ(session.mouse->name, "one");
  EXPECT_EQ(session.mouse->records, (std::vector<Record>{{std::chrono::seconds(1), EV_REL, REL_X, 1},
                                                         {std::chrono::seconds(2), EV_REL, REL_X, 1},
                                                         {std::chrono::seconds(200000), EV_REL, REL_X, 1}}));
  EXPECT_EQ(*session.remote, (std::vector<RemoteLine>{{std::chrono::seconds(1), "a"}, {std::chrono::seconds(2), "b"}}));
  EXPECT_EQ(session.further[7]->records.size(), 2U);
  EXPECT_EQ(
      damagesOf(session, path()),
      (Texts{"mouse.0002.evemu:6: no newline ends this line, the last: it was cut off; what comes before is played, "
             "the last 3 bytes are not",
             "mouse.0003.evemu: this is an empty file; expected evemu's text format, as evemu-record writes it; it "
             "is left out"}));
}

TEST_F(SessionFolder, NamesThePartsThatAreMissing) {
  const std::string line = "1.000000 a\n";
  write("remote.0002.lirc", line);
  write("remote.0003.lirc", line);
  write("remote.0006.lirc", line);
  write("remote.10000.lirc", line);
  const Session session = readSession(path());
  EXPECT_EQ(session.remote->size(), 4U);
  EXPECT_EQ(damagesOf(session, path()),
            (Texts{"remote.lirc: missing; the parts after it are played",
                   "remote.0004.lirc to remote.0005.lirc: missing; the parts after it are played",
                   "remote.0007.lirc to remote.9999.lirc: missing; the parts after it are played"}));
}

TEST_F(SessionFolder, CanHaveTheLastPartThatANumberCanName) {
  write("remote.2147483646.lirc", "1.000000 a\n");
  write("remote.2147483647.lirc", "1.000000 b\n");
  const Session session = readSession(path());
  EXPECT_EQ(session.remote->size(), 2U);
  EXPECT_EQ(damagesOf(session, path()),
            (Texts{"remote.lirc to remote.2147483645.lirc: missing; the parts after it are played"}));
}

TEST_F(SessionFolder, CountsFromTheEarliestTimeOfAnyPart) {
  write("remote.0002.lirc", "1329846856.700000 a\n");
  write("remote.0003.lirc", "1329846857.700000 b\n");
  write("keyboard.evemu", std::string(kArrowKeys) + "E: 1329846857.000000 0000 0000 0\n");
  const Session session = readSession(path());
  EXPECT_EQ(session.remote->at(1).time, std::chrono::seconds(1));
  EXPECT_EQ(session.keyboard->records.at(0).time, std::chrono::milliseconds(300));
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

TEST_F(SessionFolder, OfAnyClockStartsWithItsFirstFileThatCanBeRead) {
  std::filesystem::create_directory(path("mouse.evemu"));
  write("remote.lirc", "1700000000.000000 0 00 KEY_OK remote\n");
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
  const Session session = readSession(path());
  EXPECT_EQ(session.remote->at(0).time, std::chrono::seconds(90000));
  EXPECT_EQ(damagesOf(session, path()),
            (Texts{"keyboard.evemu:3: the time \"86400.000001\" is more than 24 hours after the start of the session, "
                   "0.000000; it is left out"}));
}

TEST_F(SessionFolder, LeavesOutFilesOfAnotherVersion) {
  const std::string mark = "# quarlo-input session 3\n";
  const std::string problem =
      ":1: \"# quarlo-input session 3\" is the mark of another version of the format, this one reads \"# quarlo-input "
      "session 2\"";
  write("mouse.evemu", mark + kRelativeAxes + kRecord);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), path("mouse.evemu") + problem);
  EXPECT_EQ(errorOf([&] { readSession(path("mouse.evemu")); }), path("mouse.evemu") + problem);
  write("remote.lirc", kLine);
  write("remote.0002.lirc", mark + kLine);
  const Session session = readSession(path());
  EXPECT_EQ(sources(session), "remote ");
  EXPECT_EQ(session.remote->size(), 1U);
  EXPECT_EQ(damagesOf(session, path()),
            (Texts{"mouse.evemu" + problem + "; it is left out", "remote.0002.lirc" + problem + "; it is left out"}));
  EXPECT_EQ(errorOf([&] { readPair(write("a.desc", mark + kArrowKeys), write("a.events", kRecord)); }),
            path("a.desc") + problem);
}

TEST_F(SessionFolder, HasOneClock) {
  write("mouse.evemu", std::string(kRelativeAxes) + "E: 1329846857.000000 0000 0000 0\n");
  write("remote.lirc", kLine);
  EXPECT_EQ(
      damagesOf(readSession(path()), path()),
      (Texts{"mouse.evemu:2: the time \"1329846857.000000\" is more than 24 hours after the start of the session, "
             "0.000000; it is left out"}));
}

TEST_F(SessionFolder, NamesTheTimeThatIsBrokenAsTheFirstOfItsFile) {
  write("mouse.evemu", std::string(kRelativeAxes) + "E: soon 0000 0000 0\n");
  write("remote.lirc", "1329846856.700000 0 00 KEY_OK remote\n");
  EXPECT_EQ(
      damagesOf(readSession(path()), path()),
      (Texts{"mouse.evemu:2: the time is \"soon\", expected <seconds>.<microseconds>, the latter in six digits; it "
             "is left out"}));
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
  EXPECT_EQ(errorOf([&] { readSession(path()); }), path("mouse.evemu") + ": Too many levels of symbolic links");
  write("remote.lirc", kLine);
  EXPECT_EQ(damagesOf(readSession(path()), path()),
            (Texts{"mouse.evemu: Too many levels of symbolic links; it is left out"}));
}

TEST_F(SessionFolder, ThatMayNotBeListedIsAnError) {
  const std::string folder = path("closed");
  ASSERT_EQ(mkdir(folder.c_str(), 0311), 0);
  const test::NoRoot user;
  EXPECT_EQ(errorOf([&] { readSession(folder); }), folder + ": Permission denied");
}

TEST_F(SessionFolder, NamesALinkToNothing) {
  std::filesystem::create_symlink("nothing", path("mouse.evemu"));
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

TEST_F(SessionFile, HasWhatIsBeforeALineThatIsWrong) {
  const Session keyboard = readSession(write("a.evemu", std::string(kArrowKeys) + kRecord + "nonsense\n"));
  EXPECT_EQ(keyboard.keyboard->records.size(), 1U);
  EXPECT_EQ(
      damagesOf(keyboard, path()),
      (Texts{"a.evemu:4: the line is \"nonsense\", expected a comment (#) or N: I: P: B: A: L: S: or E:; what comes "
             "before is played, the last 9 bytes are not"}));
  EXPECT_EQ(readSession(write("tv.lirc", std::string(kLine) + "nonsense\n")).damages.size(), 1U);
  const Session pair = readPair(write("a.desc", kArrowKeys), write("a.events", std::string(kRecord) + "nonsense\n"));
  EXPECT_EQ(pair.keyboard->records.size(), 1U);
  EXPECT_EQ(pair.damages.size(), 1U);
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
TEST_F(SessionFolder, LastsUntilTheLastRecordOrLineOfAll) {
  const auto endingAt = [](microseconds last) {
    DeviceRecording device;
    device.records = {{microseconds(0), EV_SYN, SYN_REPORT, 0}, {last, EV_SYN, SYN_REPORT, 0}};
    return device;
  };
  Session session;
  EXPECT_EQ(lengthOf(session), microseconds(0));
  session.remote = std::vector<RemoteLine>(2);
  session.remote->back().time = std::chrono::seconds(1);
  EXPECT_EQ(lengthOf(session), std::chrono::seconds(1));
  session.mouse = endingAt(std::chrono::seconds(2));
  EXPECT_EQ(lengthOf(session), std::chrono::seconds(2));
  session.keyboard = endingAt(std::chrono::seconds(3));
  EXPECT_EQ(lengthOf(session), std::chrono::seconds(3));
  session.further[7] = endingAt(std::chrono::seconds(4));
  EXPECT_EQ(lengthOf(session), std::chrono::seconds(4));
  session.remote->back().time = std::chrono::seconds(5);
  EXPECT_EQ(lengthOf(session), std::chrono::seconds(5));
}

TEST_F(SessionFile, HasABoundThatKeepsItsLinesFromFillingTheMemory) {
  const std::string file = write("tv.lirc", kLine);
  std::filesystem::resize_file(file, kLargestFile + 1);
  EXPECT_EQ(errorOf([&] { readSession(file); }), file + ": the file has more than 268435456 bytes");
  std::filesystem::resize_file(file, 5'000'000'000);  // more than 32 bits can count
  EXPECT_EQ(errorOf([&] { readSession(file); }), file + ": the file has more than 268435456 bytes");
  std::filesystem::resize_file(file, kLargestFile);
  EXPECT_EQ(readSession(file).damages.at(0).consequence,
            "what comes before is played, the last 268435428 bytes are not");
}

TEST_F(SessionFile, HasABoundForItsLinesBeforeWhichAllIsPlayed) {
  const std::string file = write("tv.lirc", kLine + std::string(kMostLines - 2, '\n') + kLine + kLine);
  const Session session = readSession(file);
  EXPECT_EQ(session.remote->size(), 2U);
  EXPECT_EQ(damagesOf(session, path()),
            (Texts{"tv.lirc:5000001: the file has more than 5000000 lines; what comes before "
                   "is played, the last 28 bytes are not"}));
}

TEST_F(SessionFile, ThatIsMissingIsAnError) {
  EXPECT_EQ(errorOf([&] { readSession(path("nothing")); }), path("nothing") + ": No such file or directory");
}

}  // namespace
}  // namespace quarlo::recording
