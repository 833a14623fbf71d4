#include "recording/writer.h"

#include <linux/input.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>

#include "tests/recording/recording_test.h"

// There only in a build with the address sanitizer.
extern "C" void __asan_init() __attribute__((weak));

namespace quarlo::recording {
namespace {

using namespace std::chrono_literals;

constexpr char kNothingKept[] = ": the recording ends here, and nothing of this file is kept";
constexpr char kFileTooLarge[] = ": File too large: the recording ends here, and what came before is kept";

// Of these names it shows where they come from.
std::string typeName(int type) { return "type " + std::to_string(type); }
std::string codeName(int type, int code) { return "code " + std::to_string(type) + "-" + std::to_string(code); }
constexpr CodeNames kNames = {typeName, codeName};

// What a device without any capability has in its file, before its records.
constexpr char kEmptyHead[] =
    "# EVEMU 1.3\n"
    "# quarlo-input session 2\n"
    "# comment\n"
    "N: Nothing\n"
    "I: 0000 0000 0000 0000\n"
    "P: 00 00 00 00 00 00 00 00\n"
    "B: 00 01 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 02 00 00 00 00 00 00 00 00\n"
    "B: 03 00 00 00 00 00 00 00 00\n"
    "B: 04 00 00 00 00 00 00 00 00\n"
    "B: 05 00 00 00 00 00 00 00 00\n"
    "B: 11 00 00 00 00 00 00 00 00\n"
    "B: 12 00 00 00 00 00 00 00 00\n"
    "B: 14 00 00 00 00 00 00 00 00\n"
    "B: 15 00 00 00 00 00 00 00 00\n"
    "B: 15 00 00 00 00 00 00 00 00\n";
const std::string kRemoteHead = "# quarlo-input session 2\n# comment\n";
constexpr char kRecordLine[] = "E: 0.000000 0001 001e 0001\t# type 1 / code 1-30 1\n";
constexpr Record kRecord = {0us, EV_KEY, KEY_A, 1};

DeviceDescription device(const std::string& name, const std::map<int, std::set<int>>& codes = {}) {
  DeviceDescription description;
  description.name = name;
  description.codes = codes;
  return description;
}

mode_t modeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 0777;
}

class WriterTest : public FolderTest {
 protected:
  std::string content(const std::string& file) const {
    std::ostringstream text;
    text << std::ifstream(folder_ + "/" + file).rdbuf();
    return text.str();
  }

  bool exists(const std::string& file) const { return std::filesystem::exists(folder_ + "/" + file); }

  // Until it is done: a disk can hold it up.
  static void flush(SessionWriter& writer) {
    do {
      writer.flush();
    } while (writer.isHeldUp());
  }
  void flush() { flush(writer_); }

  FileWriter& addNothing() { return writer_.addKeyboard(device("Nothing")); }

  std::string folder_ = path("session");
  SessionWriter writer_{folder_, "comment", Access::kByUmask, kNames};
};

TEST_F(WriterTest, DescribesADeviceAsEvemuDoes) {
  DeviceDescription tablet = device("Tablet", {{EV_KEY, {KEY_ESC, KEY_MAX}},
                                               {EV_ABS, {ABS_X, ABS_Y}},
                                               {EV_SW, {SW_LID}},
                                               {EV_LED, {LED_NUML}},
                                               {EV_REP, {REP_DELAY, REP_PERIOD}},
                                               {EV_FF, {FF_RUMBLE}}});
  tablet.bus = BUS_USB;
  tablet.vendor = 0x46d;
  tablet.product = 0xc077;
  tablet.version = 0x111;
  tablet.properties = {INPUT_PROP_POINTER, INPUT_PROP_BUTTONPAD};
  tablet.axes = {{ABS_X, {0, 255, 1, 2, 12}}, {ABS_Y, {-5, 255, 0, 0, 0}}};
  tablet.ledsOn = {LED_NUML};
  tablet.switchesOn = {SW_LID};
  writer_.addMouse(tablet).write({1250000us, EV_ABS, ABS_Y, -5});
  flush();
  EXPECT_EQ(content("mouse.evemu"),
            "# EVEMU 1.3\n"
            "# quarlo-input session 2\n"
            "# comment\n"
            "# Event type 1 (type 1)\n"
            "#   Event code 1 (code 1-1)\n"
            "#   Event code 767 (code 1-767)\n"
            "# Event type 3 (type 3)\n"
            "#   Event code 0 (code 3-0)\n"
            "#   Event code 1 (code 3-1)\n"
            "# Event type 5 (type 5)\n"
            "#   Event code 0 (code 5-0)\n"
            "# Event type 17 (type 17)\n"
            "#   Event code 0 (code 17-0)\n"
            "# Event type 20 (type 20)\n"
            "#   Event code 0 (code 20-0)\n"
            "#   Event code 1 (code 20-1)\n"
            "# Event type 21 (type 21)\n"
            "#   Event code 80 (code 21-80)\n"
            "N: Tablet\n"
            "I: 0003 046d c077 0111\n"
            "P: 05 00 00 00 00 00 00 00\n"
            "B: 00 2b 00 32 00 00 00 00 00\n"
            "B: 01 02 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 00\n"
            "B: 01 00 00 00 00 00 00 00 80\n"
            "B: 02 00 00 00 00 00 00 00 00\n"
            "B: 03 03 00 00 00 00 00 00 00\n"
            "B: 04 00 00 00 00 00 00 00 00\n"
            "B: 05 01 00 00 00 00 00 00 00\n"
            "B: 11 01 00 00 00 00 00 00 00\n"
            "B: 12 00 00 00 00 00 00 00 00\n"
            "B: 14 03 00 00 00 00 00 00 00\n"
            "B: 15 00 00 00 00 00 00 00 00\n"
            "B: 15 00 00 01 00 00 00 00 00\n"
            "A: 00 0 255 1 2 12\n"
            "A: 01 -5 255 0 0 0\n"
            "L: 00 1\n"
            "S: 00 1\n"
            "E: 1.250000 0003 0001 -005\t# type 3 / code 3-1 -5\n");
}

// Codes that evemu's format has no bit for are left out, and so is a type that it has no line for.
TEST_F(WriterTest, DescribesEachEventTypeUpToItsLastBit) {
  DeviceDescription all = device("All", {{EV_PWR, {1}}});
  const std::pair<int, int> lastBits[] = {{EV_KEY, 767}, {EV_REL, 63}, {EV_ABS, 63}, {EV_MSC, 63}, {EV_SW, 63},
                                          {EV_LED, 63},  {EV_SND, 63}, {EV_REP, 63}, {EV_FF, 127}};
  for (const auto& [type, last] : lastBits) all.codes[type] = {last, last + 1};
  all.properties = {63, 64};
  all.ledsOn = {LED_NUML, LED_CHARGING};
  writer_.addMouse(all).write(kRecord);
  flush();
  const std::string text = content("mouse.evemu");
  for (const auto& [type, last] : lastBits) {
    char label[8];
    std::snprintf(label, sizeof label, "B: %02x", static_cast<unsigned>(type));
    const std::size_t line = text.rfind(label);
    EXPECT_EQ(text.substr(line, text.find('\n', line) - line), label + std::string(" 00 00 00 00 00 00 00 80")) << type;
    EXPECT_NE(text.find("(" + codeName(type, last) + ")\n"), std::string::npos) << type;
    EXPECT_EQ(text.find(codeName(type, last + 1)), std::string::npos) << type;
  }
  EXPECT_NE(text.find("\nP: 00 00 00 00 00 00 00 80\n"), std::string::npos);
  EXPECT_NE(text.find("\nL: 00 1\nL: 0a 1\nE: "), std::string::npos);
  EXPECT_EQ(text.find(typeName(EV_PWR)), std::string::npos);
}

TEST_F(WriterTest, DescribesAnAxisOfWhichNothingIsKnown) {
  DeviceDescription description = device("Stick");
  description.axes[ABS_Y];
  writer_.addKeyboard(description).write(kRecord);
  flush();
  EXPECT_NE(content("keyboard.evemu").find("\nA: 01 0 0 0 0 0\n"), std::string::npos);
}

TEST_F(WriterTest, ThatGoesWithoutAnEndLeavesNothingOpen) {
  const auto before = openDescriptors();
  {
    SessionWriter writer(path("another"), "comment", Access::kByUmask, kNames);
    writer.addRemote().write({0us, "a"});
    flush(writer);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(WriterTest, ThatCannotWriteClosesItsOwnDescriptorsAlone) {
  const auto before = openDescriptors();
  {
    SessionWriter writer(path("another"), "comment", Access::kByUmask, kNames);
    writer.addRemote().write({0us, "a"});
    const FileSizeLimit limit(10);
    EXPECT_NE(errorOf([&] { writer.close(); }), "");
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(WriterTest, ShowsWhereAReportEnds) {
  FileWriter& file = addNothing();
  file.write({0us, EV_SYN, SYN_REPORT, 1});
  flush();
  EXPECT_EQ(content("keyboard.evemu"),
            std::string(kEmptyHead) + "E: 0.000000 0000 0000 0001\t# ---------- code 0-0 1\n");
}

TEST_F(WriterTest, WritesWhatTheReaderReads) {
  const DeviceDescription mouse = device("Mouse #1", {{EV_KEY, {BTN_LEFT}}, {EV_REL, {REL_X, REL_Y}}});
  const DeviceDescription keyboard = device("Keyboard", {{EV_KEY, {KEY_ESC, KEY_A}}, {EV_PWR, {}}});
  const std::vector<Record> motion = {{0us, EV_REL, REL_X, INT32_MIN}, {1us, EV_REL, REL_Y, INT32_MAX}};
  const std::vector<Record> keys = {{999999us, 0xffff, 0xffff, -1}, {24h, EV_SYN, SYN_REPORT, 0}};
  const std::vector<RemoteLine> lines = {{500ms, "0000000000f40bf0 00 KEY_OK tv"}, {500ms, " # two  blanks "}};
  FileWriter& mouseFile = writer_.addMouse(mouse);
  FileWriter& keyboardFile = writer_.addKeyboard(keyboard);
  FileWriter& remoteFile = writer_.addRemote();
  for (const Record& record : motion) mouseFile.write(record);
  for (const Record& record : keys) keyboardFile.write(record);
  for (const RemoteLine& line : lines) remoteFile.write(line);
  writer_.close();

  const Session session = readSession(folder_);
  EXPECT_EQ(session.mouse->name, mouse.name);
  EXPECT_EQ(session.mouse->codes, mouse.codes);
  EXPECT_EQ(session.mouse->records, motion);
  EXPECT_EQ(session.keyboard->name, keyboard.name);
  EXPECT_EQ(session.keyboard->codes, keyboard.codes);
  EXPECT_EQ(session.keyboard->records, keys);
  EXPECT_EQ(session.remote, lines);
}

TEST_F(WriterTest, KeepsEachByteOfANameInALine) {
  const std::string name = "  a\nE: 0.0\t\x7f\r\\\x9b\u202e";
  writer_.addMouse(device(name)).write(kRecord);
  writer_.addKeyboard(device("")).write(kRecord);
  flush();
  EXPECT_NE(content("mouse.evemu").find("\nN: \\x20 a\\x0aE: 0.0\\x09\\x7f\\x0d\\\\\\x9b\\xe2\\x80\\xae\n"),
            std::string::npos);
  const Session session = readSession(folder_);
  EXPECT_EQ(session.mouse->name, name);
  EXPECT_EQ(session.keyboard->name, "unnamed");
}

TEST_F(WriterTest, KeepsEachByteOfARemotesLines) {
  FileWriter& file = writer_.addRemote();
  std::vector<RemoteLine> lines = {{0us, ""}, {0us, " \x1b]0;x\x07\r"}, {0us, "\\x41"}};
  for (int byte = 0; byte <= 0xff; ++byte) lines.push_back({1us, std::string(2, static_cast<char>(byte))});
  lines.push_back({2us, std::string(kLongestText, '\0')});
  for (const RemoteLine& line : lines) file.write(line);
  flush();
  EXPECT_EQ(content("remote.lirc").rfind(kRemoteHead + "0.000000 \n0.000000 \\x20\\x1b]0;x\\x07\\x0d\n", 0), 0U);
  EXPECT_EQ(readSession(folder_).remote, lines);
}

TEST_F(WriterTest, CutsANameThatIsTooLongForASession) {
  writer_.addMouse(device(std::string(kLongestText + 1, '\x1b'))).write(kRecord);
  flush();
  EXPECT_EQ(readSession(folder_).mouse->name, std::string(kLongestText, '\x1b'));
}

TEST_F(WriterTest, StartsARemotesFileWithTheComment) {
  writer_.addRemote().write({1us, "a"});
  flush();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + "0.000001 a\n");
}

TEST_F(WriterTest, NeverGoesBackInTime) {
  FileWriter& remote = writer_.addRemote();
  FileWriter& keyboard = addNothing();
  for (const microseconds time : {microseconds(-1), microseconds(2), microseconds(1), microseconds(3)}) {
    remote.write({time, "a"});
    keyboard.write({time, EV_KEY, KEY_A, 1});
  }
  flush();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + "0.000000 a\n0.000002 a\n0.000002 a\n0.000003 a\n");
  std::string records;
  for (const char* const time : {"0.000000", "0.000002", "0.000002", "0.000003"}) {
    records += std::string("E: ") + time + " 0001 001e 0001\t# type 1 / code 1-30 1\n";
  }
  EXPECT_EQ(content("keyboard.evemu"), kEmptyHead + records);
}

TEST_F(WriterTest, CutsALineThatIsTooLongForASession) {
  writer_.addRemote().write({0us, std::string(kLongestText + 1, '\x1b')});
  flush();
  EXPECT_EQ(readSession(folder_).remote->at(0).text, std::string(kLongestText, '\x1b'));
}

TEST_F(WriterTest, MakesAFileWithItsFirstRecord) {
  addNothing();
  FileWriter& remote = writer_.addRemote();
  flush();
  EXPECT_FALSE(exists("remote.lirc"));
  remote.write({0us, "a"});
  writer_.close();
  EXPECT_TRUE(exists("remote.lirc"));
  EXPECT_FALSE(exists("keyboard.evemu"));
  EXPECT_EQ(remote.count(), 1);
}

TEST_F(WriterTest, HasAFileForEachFurtherNode) {
  DeviceDescription device;
  device.name = "Nothing";
  writer_.addFurtherNode(7, device).write(kRecord);
  writer_.addFurtherNode(0, device).write({1us, EV_KEY, KEY_A, 1});
  writer_.close();
  EXPECT_EQ(content("node-8.evemu"), std::string(kEmptyHead) + kRecordLine);
  EXPECT_EQ(content("node-1.evemu"), std::string(kEmptyHead) + "E: 0.000001 0001 001e 0001\t# type 1 / code 1-30 1\n");
  EXPECT_EQ(readSession(folder_).further[7]->records, std::vector<Record>{kRecord});
}

TEST_F(WriterTest, AppendsWithEachFlush) {
  FileWriter& file = addNothing();
  file.write(kRecord);
  flush();
  file.write(kRecord);
  EXPECT_EQ(content("keyboard.evemu"), std::string(kEmptyHead) + kRecordLine);
  flush();
  flush();
  EXPECT_EQ(content("keyboard.evemu"), std::string(kEmptyHead) + kRecordLine + kRecordLine);
}

// Whoever may write to the directory above could have a recording of root go where they cannot write themselves.
TEST_F(WriterTest, StaysInItsFolderWhenALinkTakesItsPlace) {
  FileWriter& file = addNothing();
  std::filesystem::rename(folder_, path("moved"));
  std::filesystem::create_directory(path("theirs"));
  std::filesystem::create_symlink(path("theirs"), folder_);
  file.write(kRecord);
  writer_.close();
  EXPECT_TRUE(std::filesystem::is_empty(path("theirs")));
  std::filesystem::remove(folder_);
  std::filesystem::rename(path("moved"), folder_);
  EXPECT_EQ(content("keyboard.evemu"), std::string(kEmptyHead) + kRecordLine);
}

TEST_F(WriterTest, RemovesOnlyTheFolderThatItHasMade) {
  std::filesystem::remove(folder_);
  std::filesystem::create_directory(folder_);
  writer_.close();
  EXPECT_TRUE(std::filesystem::exists(folder_));
}

TEST_F(WriterTest, RemovesTheFolderOfASessionWithoutFiles) {
  addNothing();
  writer_.close();
  EXPECT_FALSE(exists(""));
}

TEST_F(WriterTest, RefusesAFolderThatExists) {
  const std::string complaint = " exists already: give another name, or remove it";
  for (const std::string& existing : {folder_, write("file", "")}) {
    EXPECT_EQ(errorOf([&] { SessionWriter(existing, "", Access::kByUmask, kNames); }), existing + complaint);
  }
}

TEST_F(WriterTest, NamesAFolderThatCannotBeMade) {
  EXPECT_EQ(errorOf([&] { SessionWriter(path("no/session"), "", Access::kByUmask, kNames); }),
            path("no/session") + ": the directory cannot be made: No such file or directory");
}

TEST_F(WriterTest, NamesAFolderForWhichThereIsNoDescriptor) {
  if (__asan_init != nullptr) GTEST_SKIP() << "a sanitizer needs descriptors";
  const NoFurtherDescriptors limit;
  EXPECT_EQ(errorOf([&] { SessionWriter(path("another"), "", Access::kByUmask, kNames); }),
            path("another") + ": the directory cannot be made: Too many open files");
}

TEST_F(WriterTest, LetsTheUmaskSayWhoCanReadTheFiles) {
  const mode_t old = umask(0026);
  SessionWriter writer(path("another/"), "", Access::kByUmask, kNames);
  writer.addRemote().write({0us, "a"});
  writer.close();
  umask(old);
  EXPECT_EQ(modeOf(path("another")), 0751U);
  EXPECT_EQ(modeOf(path("another/remote.lirc")), 0640U);
}

TEST_F(WriterTest, LetsNobodyElseReadWhatIsForTheOwner) {
  const mode_t old = umask(0);
  SessionWriter writer(path("another"), "", Access::kOwnerOnly, kNames);
  writer.addRemote().write({0us, "a"});
  writer.close();
  umask(old);
  EXPECT_EQ(modeOf(path("another")), 0700U);
  EXPECT_EQ(modeOf(path("another/remote.lirc")), 0600U);
}

TEST_F(WriterTest, CutsAFileBackToItsLastWholeLineWhenTheDiskIsFull) {
  FileWriter& file = addNothing();
  const FileSizeLimit limit(sizeof kEmptyHead - 1 + 2 * (sizeof kRecordLine - 1) + 10);
  for (int i = 0; i < 4; ++i) file.write(kRecord);
  EXPECT_EQ(errorOf([&] { flush(); }), folder_ + "/keyboard.evemu" + kFileTooLarge);
  writer_.close();
  EXPECT_EQ(content("keyboard.evemu"), std::string(kEmptyHead) + kRecordLine + kRecordLine);
  EXPECT_EQ(file.count(), 2);
}

TEST_F(WriterTest, KeepsWhatWasOnDiskBeforeItWasFull) {
  FileWriter& file = writer_.addRemote();
  const FileSizeLimit limit((kRemoteHead + "0.000000 a\n0.0").size());
  file.write({0us, "a"});
  flush();
  file.write({0us, "b"});
  EXPECT_EQ(errorOf([&] { writer_.close(); }), folder_ + "/remote.lirc" + kFileTooLarge);
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + "0.000000 a\n");
  EXPECT_EQ(file.count(), 1);
}

TEST_F(WriterTest, RemovesAFileOfWhichOnlyTheHeadFits) {
  FileWriter& file = addNothing();
  const FileSizeLimit limit(sizeof kEmptyHead + 10);
  file.write(kRecord);
  EXPECT_EQ(errorOf([&] { flush(); }), folder_ + "/keyboard.evemu: File too large" + kNothingKept);
  EXPECT_FALSE(exists("keyboard.evemu"));
  EXPECT_EQ(file.count(), 0);
  writer_.close();
  EXPECT_FALSE(exists(""));
}

TEST_F(WriterTest, StillWritesTheFilesThatFit) {
  FileWriter& keyboard = addNothing();
  FileWriter& remote = writer_.addRemote();
  const FileSizeLimit limit(100);
  keyboard.write(kRecord);
  remote.write({0us, "a"});
  EXPECT_EQ(errorOf([&] { flush(); }), folder_ + "/keyboard.evemu: File too large" + kNothingKept);
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + "0.000000 a\n");
}

TEST_F(WriterTest, SaysThatAFileWasRemovedWhileItWasRecorded) {
  FileWriter& file = writer_.addRemote();
  file.write({0us, "a"});
  flush();
  std::filesystem::remove(folder_ + "/remote.lirc");
  EXPECT_EQ(errorOf([&] { writer_.close(); }),
            folder_ + "/remote.lirc: it was removed while it was recorded, and nothing of it is kept");
}

TEST_F(WriterTest, LeavesAFileAloneThatSomeoneElseHasMade) {
  write("session/remote.lirc", "theirs");
  FileWriter& file = writer_.addRemote();
  file.write({0us, "a"});
  EXPECT_EQ(errorOf([&] { flush(); }), folder_ + "/remote.lirc: File exists" + kNothingKept);
  writer_.close();
  EXPECT_EQ(content("remote.lirc"), "theirs");
  EXPECT_EQ(file.count(), 0);
}

TEST_F(WriterTest, EndsWithTheLongestSession) {
  FileWriter& file = writer_.addRemote();
  file.write({24h * 31, "a"});
  EXPECT_EQ(
      errorOf([&] {
        file.write({24h * 31 + 1us, "b"});
      }),
      folder_ + "/remote.lirc: a session has at most 744 hours: the recording ends here, and what came before is kept");
  writer_.close();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + "2678400.000000 a\n");
}

// ---- Limits -------------------------------------------------------------------------------------

constexpr char kFull[] = ": it ends here, and what came before is kept (--rotate goes on in a next one)";
const std::string kRemoteLine = "0.000000 a\n";

class LimitTest : public WriterTest {
 protected:
  LimitTest() { std::filesystem::remove(folder_); }

  void open(long mostLines, std::size_t mostBytes, bool rotates) {
    WriterOptions options;
    options.mostLines = mostLines;
    options.mostBytes = static_cast<std::int64_t>(mostBytes);
    options.rotates = rotates;
    session_.emplace(folder_, "comment", Access::kByUmask, kNames, options);
  }

  // The problem of a line that does not fit.
  static std::string problemOf(FileWriter& file, const std::string& text) {
    return errorOf([&] { file.write(RemoteLine{0us, text}); });
  }

  std::optional<SessionWriter> session_;
};

TEST_F(LimitTest, AreThoseOfTheReader) {
  const WriterOptions options;
  EXPECT_EQ(options.mostLines, kMostLines);
  EXPECT_EQ(options.mostBytes, kLargestFile);
}

TEST_F(LimitTest, ALineTooManyEndsItsFileOnly) {
  open(4, 1000, false);  // the head of a remote's file has two
  FileWriter& remote = session_->addRemote();
  FileWriter& keyboard = session_->addKeyboard(device("Nothing"));
  EXPECT_NE(errorOf([&] { keyboard.write(kRecord); }), "");
  remote.write({0us, "a"});
  remote.write({0us, "a"});
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(problemOf(remote, "b"), folder_ + "/remote.lirc: a file of a session has at most 4 lines" + kFull);
    flush(*session_);
  }
  session_->close();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + kRemoteLine + kRemoteLine);
  EXPECT_EQ(remote.count(), 2);
  EXPECT_FALSE(exists("keyboard.evemu"));
}

TEST_F(LimitTest, ALineThatIsTooLongEndsItsFile) {
  const std::size_t size = (kRemoteHead + kRemoteLine + kRemoteLine).size();
  open(100, size, false);
  FileWriter& remote = session_->addRemote();
  remote.write({0us, "a"});
  const std::string problem =
      folder_ + "/remote.lirc: a file of a session has at most " + std::to_string(size) + " bytes" + kFull;
  EXPECT_EQ(problemOf(remote, "bb"), problem);
  flush(*session_);
  EXPECT_EQ(problemOf(remote, "bb"), problem);
  remote.write({0us, "a"});
  EXPECT_EQ(problemOf(remote, ""), problem);
  session_->close();
  EXPECT_EQ(std::filesystem::file_size(folder_ + "/remote.lirc"), size);
}

TEST_F(LimitTest, ALineThatDoesNotFitTakesNoTime) {
  open(100, (kRemoteHead + kRemoteLine + kRemoteLine).size(), false);
  FileWriter& remote = session_->addRemote();
  EXPECT_NE(errorOf([&] { remote.write({1s, std::string(100, 'b')}); }), "");
  remote.write({0us, "a"});
  session_->close();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + kRemoteLine);
}

TEST_F(LimitTest, AFullFileGoesOnInANextOneWithTheSameHead) {
  const std::string head = kEmptyHead;
  open(std::count(head.begin(), head.end(), '\n') + 2, 10000, true);
  FileWriter& keyboard = session_->addKeyboard(device("Nothing"));
  for (int i = 0; i < 5; ++i) {
    keyboard.write(kRecord);
    if (i % 2 == 0) flush(*session_);
  }
  session_->close();
  EXPECT_EQ(content("keyboard.evemu"), head + kRecordLine + kRecordLine);
  EXPECT_EQ(content("keyboard.0002.evemu"), head + kRecordLine + kRecordLine);
  EXPECT_EQ(content("keyboard.0003.evemu"), head + kRecordLine);
  EXPECT_FALSE(exists("keyboard.0004.evemu"));
  EXPECT_EQ(keyboard.count(), 5);
  EXPECT_EQ(keyboard.parts(), 3);
  EXPECT_EQ(keyboard.name(), "keyboard.evemu");
}

TEST_F(LimitTest, AFileThatIsLargeEnoughGoesOnInANextOne) {
  open(100, (kRemoteHead + kRemoteLine + kRemoteLine).size(), true);
  FileWriter& remote = session_->addRemote();
  for (int i = 0; i < 3; ++i) remote.write({0us, "a"});
  session_->close();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + kRemoteLine + kRemoteLine);
  EXPECT_EQ(content("remote.0002.lirc"), kRemoteHead + kRemoteLine);
}

TEST_F(LimitTest, TimeGoesOnInTheNextFile) {
  open(3, 1000, true);
  FileWriter& remote = session_->addRemote();
  remote.write({2us, "a"});
  remote.write({1us, "a"});
  session_->close();
  EXPECT_EQ(content("remote.0002.lirc"), kRemoteHead + "0.000002 a\n");
}

TEST_F(LimitTest, WhatFitsIntoNoFileIsAProblemAlsoThen) {
  open(100, (kRemoteHead + kRemoteLine).size(), true);
  FileWriter& remote = session_->addRemote();
  EXPECT_NE(problemOf(remote, "bb"), "");
  remote.write({0us, "a"});
  EXPECT_NE(problemOf(remote, "bb"), "");
  session_->close();
  EXPECT_EQ(remote.count(), 1);
  EXPECT_FALSE(exists("remote.0002.lirc"));
}

TEST_F(LimitTest, AFullDiskTakesOnlyWhatDidNotFitOfTheNextFile) {
  open(4, 1000, true);
  FileWriter& remote = session_->addRemote();
  for (int i = 0; i < 3; ++i) remote.write({0us, "a"});  // the first part is written here
  const FileSizeLimit limit((kRemoteHead + kRemoteLine).size() - 1);
  EXPECT_EQ(errorOf([&] { flush(*session_); }), folder_ + "/remote.0002.lirc" + kFileTooLarge);
  session_->close();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + kRemoteLine + kRemoteLine);
  EXPECT_FALSE(exists("remote.0002.lirc"));
  EXPECT_EQ(remote.count(), 2);
  EXPECT_EQ(remote.parts(), 1);
}

TEST_F(LimitTest, AFullDiskCanComeBeforeTheNextFile) {
  open(4, 1000, true);
  FileWriter& remote = session_->addRemote();
  for (int i = 0; i < 2; ++i) remote.write({0us, "a"});
  const FileSizeLimit limit((kRemoteHead + kRemoteLine).size());
  EXPECT_EQ(problemOf(remote, "a"), folder_ + "/remote.lirc" + kFileTooLarge);
  session_->close();
  EXPECT_EQ(content("remote.lirc"), kRemoteHead + kRemoteLine);
  EXPECT_EQ(remote.count(), 1);
}

TEST_F(LimitTest, AFileThatSomeoneElseHasMadeIsNotTheNextOne) {
  open(4, 1000, true);
  write("session/remote.0002.lirc", "theirs");
  FileWriter& remote = session_->addRemote();
  for (int i = 0; i < 3; ++i) remote.write({0us, "a"});
  EXPECT_EQ(errorOf([&] { flush(*session_); }),
            folder_ + "/remote.0002.lirc: File exists: the recording ends here, and what came before is kept");
  session_->close();
  EXPECT_EQ(content("remote.0002.lirc"), "theirs");
  EXPECT_EQ(remote.count(), 2);
}

}  // namespace
}  // namespace quarlo::recording
