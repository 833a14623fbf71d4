// `record` on the simulated machine, whose nodes it reads, and whose time passes only where it waits.
#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"
#include "tests/support/files.h"
#include "tools/common/output.h"
#include "tools/record/record.h"

namespace quarlo::tools::record {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr char kMouse[] = "/dev/input/event3";
constexpr char kKeyboard[] = "/dev/input/event4";
constexpr char kThird[] = "/dev/input/event5";

// A keyboard that repeats no key by itself.
sim::Device keyboard() {
  sim::Device device = sim::Device::keyboard();
  device.codes.erase(EV_REP);
  return device;
}

class RecordingTest : public testing::Test {
 protected:
  RecordingTest() {
    options_.mouse = kMouse;
    options_.keyboard = kKeyboard;
    options_.lirc = kLeaveOut;
    options_.session = folder_.path("session");
    options_.duration = 1s;
  }

  // Records until the duration is over, or no source is left. Returns the exit status.
  int record() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const microseconds start = machine_.now();
    const int dumpable = prctl(PR_GET_DUMPABLE);
    const int status = run(options_);
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), dumpable);
    took_ = machine_.now() - start;
    out_ = testing::internal::GetCapturedStdout();
    err_ = testing::internal::GetCapturedStderr();
    EXPECT_EQ(machine_.openDescriptors(), 0);
    return status;
  }

  // The records of a file, such as "0.100000 0001 001e 1" for KEY_A down.
  Lines recordsOf(const std::string& name) const {
    const std::string label = "E: ";
    std::ifstream file(folder_.path("session/" + name));
    Lines records;
    for (std::string line; std::getline(file, line);) {
      if (line.rfind(label, 0) == 0) records.push_back(line.substr(label.size(), line.find('\t') - label.size()));
    }
    return records;
  }

  // From here on to the end of what was printed.
  std::string printedFrom(const std::string& start) const {
    const std::size_t at = out_.find(start);
    return at == std::string::npos ? out_ : out_.substr(at);
  }

  // More motion than the mouse's queue has room for.
  void overflow() {
    for (int i = 0; i < 50; ++i) mouse_.move(1, 0);
    for (int i = 0; i < 50; ++i) mouse_.move(0, 1);
  }

  test::Folder folder_;
  sim::Machine machine_;
  sim::Node& mouse_ = machine_.addNode(kMouse, sim::Device::mouse());
  sim::Node& keyboard_ = machine_.addNode(kKeyboard, keyboard());
  RecordOptions options_;
  microseconds took_{0};  // on the machine's clock
  std::string out_;
  std::string err_;
};

// ---- Time ---------------------------------------------------------------------------------------

TEST_F(RecordingTest, EndsAfterItsDuration) {
  machine_.after(999ms, [&] { keyboard_.press(KEY_UP); });
  machine_.after(1010ms, [&] { keyboard_.release(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(took_ / 1ms, 1000);
  EXPECT_EQ(printedFrom("Recorded for"),
            "Recorded for 1.000 s:\n"
            "  mouse: nothing came, so there is no file\n"
            "  keyboard.evemu  2 records\n");
  EXPECT_EQ(err_, "");
}

TEST_F(RecordingTest, TakesWhatCameAtItsLastMoment) {
  machine_.after(1s, [&] { keyboard_.press(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(recordsOf("keyboard.evemu"), (Lines{"1.000000 0001 0067 0001", "1.000000 0000 0000 0000"}));
}

TEST_F(RecordingTest, CountsTheTimeThatPassesWhateverTheClockOnTheWallIsSetTo) {
  machine_.jumpClock(1h);
  machine_.after(100ms, [&] { mouse_.move(1, 0); });
  machine_.after(150ms, [&] { machine_.jumpClock(-2h); });
  machine_.after(200ms, [&] { keyboard_.press(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(recordsOf("mouse.evemu").front(), "0.100000 0002 0000 0001");
  EXPECT_EQ(recordsOf("keyboard.evemu").front(), "0.200000 0001 0067 0001");
  EXPECT_EQ(printedFrom("Recorded for").substr(0, 21), "Recorded for 1.000 s:");
}

TEST_F(RecordingTest, NeedsTheClockThatItCountsBy) {
  keyboard_.setIoctlError(EVIOCSCLOCKID, EINVAL);
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(err_, "quarlo-input: /dev/input/event4: the clock of its records cannot be set: Invalid argument\n");
}

TEST_F(RecordingTest, LastsForWeeks) {
  constexpr std::chrono::hours kLast = recording::kLongestSession - 1h;
  options_.duration = recording::kLongestSession;
  machine_.after(kLast, [&] { keyboard_.press(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(took_ / 1h, recording::kLongestSession / 1h);
  EXPECT_EQ(recordsOf("keyboard.evemu").front(), std::to_string(kLast / 1s) + ".000000 0001 0067 0001");
}

TEST_F(RecordingTest, EndsWithTheLongestSession) {
  options_.duration.reset();
  machine_.after(1h, [&] { keyboard_.press(KEY_UP); });
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(took_ / 1h, recording::kLongestSession / 1h);
  EXPECT_EQ(err_, "quarlo-input: a session has at most " + std::to_string(recording::kLongestSession / 1h) +
                      " hours: the recording ends here, and what came before is kept\n");
  EXPECT_EQ(recordsOf("keyboard.evemu").size(), 2U);
}

// ---- Files that are full ------------------------------------------------------------------------

// A file with a mouse's head takes no more than two reports of motion.
class FullFileTest : public RecordingTest {
 protected:
  FullFileTest() {
    options_.keyboard = kLeaveOut;
    recordTwoReports();
    options_.further = {kThird};
    options_.writing.mostLines = linesOf("mouse.evemu");
    options_.session = folder_.path("again");
    for (int i = 0; i < 5; ++i) machine_.after(100ms * (i + 1), [&] { mouse_.move(1, 0); });
    machine_.after(700ms, [&] { other_.move(1, 0); });
  }

  void recordTwoReports() {
    for (int i = 0; i < 2; ++i) machine_.after(100ms * (i + 1), [&] { mouse_.move(1, 0); });
    EXPECT_EQ(record(), kDone);
  }

  long linesOf(const std::string& name) const {
    std::ifstream file(options_.session + "/" + name);
    return static_cast<long>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
  }

  sim::Node& other_ = machine_.addNode(kThird, sim::Device::mouse());
};

TEST_F(FullFileTest, EndsAndTheOthersGoOn) {
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(err_, "quarlo-input: " + options_.session + "/mouse.evemu: a file of a session has at most " +
                      std::to_string(options_.writing.mostLines) +
                      " lines: it ends here, and what came before is kept (--rotate goes on in a next one); the others "
                      "go on\n");
  EXPECT_EQ(linesOf("mouse.evemu"), options_.writing.mostLines);
  EXPECT_EQ(printedFrom("  mouse.evemu"),
            "  mouse.evemu     4 records\n"
            "  node-1.evemu    2 records\n");
}

TEST_F(FullFileTest, OfTheOnlySourceEndsTheRecording) {
  options_.further.clear();
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(took_ / 1ms, 300);
  EXPECT_NE(err_.find("; no source is left\n"), std::string::npos) << err_;
}

TEST_F(FullFileTest, GoesOnInANextOneWhenAskedTo) {
  options_.writing.rotates = true;
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(err_, "");
  EXPECT_EQ(linesOf("mouse.evemu"), options_.writing.mostLines);
  EXPECT_EQ(linesOf("mouse.0002.evemu"), options_.writing.mostLines);
  EXPECT_EQ(linesOf("mouse.0003.evemu"), options_.writing.mostLines - 2);
  EXPECT_EQ(printedFrom("  mouse.evemu"),
            "  mouse.evemu     10 records in 3 files\n"
            "  node-1.evemu    2 records\n");
}

// ---- What is lost -------------------------------------------------------------------------------

TEST_F(RecordingTest, SaysOfEachSourceHowOftenTheKernelLostRecords) {
  machine_.after(100ms, [&] { overflow(); });
  machine_.after(200ms, [&] { overflow(); });
  machine_.after(300ms, [&] {
    for (int i = 0; i < 32; ++i) {
      keyboard_.press(KEY_UP);
      keyboard_.release(KEY_UP);
    }
  });
  EXPECT_EQ(record(), kDone);
  const std::string lost = ": records before each SYN_DROPPED are missing\n";
  const std::string summary = printedFrom("Recorded for");
  EXPECT_NE(summary.find("  mouse: the kernel's queue overflowed 2 times" + lost), std::string::npos) << summary;
  EXPECT_NE(summary.find("  keyboard: the kernel's queue overflowed 1 time" + lost), std::string::npos) << summary;
  EXPECT_EQ(recordsOf("mouse.evemu").front(), "0.100000 0000 0003 0000");
}

TEST_F(RecordingTest, TellsOfAKeyWhoseReleaseWasLostThatItCameUp) {
  machine_.after(100ms, [&] { keyboard_.press(KEY_UP); });
  machine_.after(200ms, [&] {
    keyboard_.release(KEY_UP);
    for (int i = 0; i < 31; ++i) {
      keyboard_.press(KEY_ENTER);
      keyboard_.release(KEY_ENTER);
    }
  });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(recordsOf("keyboard.evemu"),
            (Lines{"0.100000 0001 0067 0001", "0.100000 0000 0000 0000", "0.200000 0000 0003 0000",
                   "0.200000 0000 0000 0000", "0.200000 0001 0067 0000", "0.200000 0000 0000 0000"}));
}

// ---- Sources that go ----------------------------------------------------------------------------

TEST_F(RecordingTest, OfANodeThatIsUnpluggedAllComesUpAndTheOthersGoOn) {
  machine_.after(100ms, [&] { mouse_.press(BTN_LEFT); });
  machine_.after(200ms, [&] { mouse_.unplug(); });
  machine_.after(300ms, [&] { keyboard_.press(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(err_, "quarlo-input: the mouse is gone: it was unplugged; the others go on\n");
  EXPECT_EQ(recordsOf("mouse.evemu"), (Lines{"0.100000 0001 0110 0001", "0.100000 0000 0000 0000",
                                             "0.200000 0001 0110 0000", "0.200000 0000 0000 0000"}));
  EXPECT_EQ(recordsOf("keyboard.evemu").size(), 2U);
}

TEST_F(RecordingTest, EndsWithItsLastSource) {
  options_.duration.reset();
  machine_.after(100ms, [&] { mouse_.move(1, 0); });
  machine_.after(200ms, [&] { mouse_.unplug(); });
  machine_.after(300ms, [&] { keyboard_.unplug(); });
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(took_ / 1ms, 300);
  EXPECT_EQ(err_,
            "quarlo-input: the mouse is gone: it was unplugged; the others go on\n"
            "quarlo-input: the keyboard is gone: it was unplugged; no source is left\n");
  EXPECT_EQ(recordsOf("mouse.evemu").size(), 2U);
}

TEST_F(RecordingTest, SaysWhyANodeCannotBeReadAnyMore) {
  machine_.after(100ms, [&] {
    keyboard_.press(KEY_UP);
    machine_.fail(sim::Call::kRead, 1, EIO);
  });
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(err_,
            "quarlo-input: the keyboard cannot be read any more: Input/output error; the others go on\n"
            "quarlo-input: nothing came from the mouse and the keyboard, so there is no session\n");
}

TEST_F(RecordingTest, ANodeThatEndsIsGone) {
  machine_.after(100ms, [&] {
    keyboard_.press(KEY_UP);
    machine_.truncateRead(1, 0);
  });
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(err_.substr(0, err_.find('\n')), "quarlo-input: the keyboard is gone: it was unplugged; the others go on");
}

TEST_F(RecordingTest, TheDaemonsLinesHaveTheTimeAtWhichTheyCame) {
  sim::LircDaemon& daemon = machine_.addLircDaemon("/dev/lircd");
  options_.lirc = "/dev/lircd";
  machine_.after(300ms, [&] { daemon.sendText("1 00 KEY_OK tv\n1 01 KEY_"); });
  machine_.after(350ms, [&] { daemon.sendText("O"); });
  machine_.after(400ms, [&] { daemon.sendText("K tv\n1 02 KEY_OK tv"); });
  EXPECT_EQ(record(), kDone);
  std::ifstream file(folder_.path("session/remote.lirc"));
  Lines lines;
  for (std::string line; std::getline(file, line);) {
    if (line.front() != '#') lines.push_back(line);
  }
  EXPECT_EQ(lines, (Lines{"0.300000 1 00 KEY_OK tv", "0.400000 1 01 KEY_OK tv", "0.400000 1 02 KEY_OK tv"}));
}

TEST_F(RecordingTest, SaysWhyTheRemoteCannotBeReadAnyMore) {
  sim::LircDaemon& daemon = machine_.addLircDaemon("/dev/lircd");
  options_.lirc = "/dev/lircd";
  machine_.after(100ms, [&] {
    daemon.send("KEY_OK");
    machine_.fail(sim::Call::kRead, 1, EIO);
  });
  record();
  EXPECT_EQ(err_.substr(0, err_.find('\n')),
            "quarlo-input: the remote cannot be read any more: Input/output error; the others go on");
}

TEST_F(RecordingTest, ReadsAgainWhatASignalKeptItFromReading) {
  machine_.after(100ms, [&] {
    keyboard_.press(KEY_UP);
    machine_.fail(sim::Call::kRead, 1, EINTR);
    machine_.fail(sim::Call::kRead, 2, EAGAIN);
  });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(err_, "");
  EXPECT_EQ(recordsOf("keyboard.evemu").size(), 2U);
}

// ---- What is hidden -----------------------------------------------------------------------------

TEST_F(RecordingTest, LeavesOutAReportOfWhichNothingMayBeTold) {
  machine_.after(100ms, [&] {
    keyboard_.report(EV_LED, LED_CAPSL, 1);
    keyboard_.report(EV_SYN, SYN_REPORT, 0);
  });
  machine_.after(200ms, [&] {
    keyboard_.report(EV_KEY, KEY_5, 1);
    keyboard_.report(EV_LED, LED_CAPSL, 0);
    keyboard_.report(EV_SYN, SYN_REPORT, 0);
  });
  machine_.after(300ms, [&] {
    keyboard_.report(EV_LED, LED_CAPSL, 1);
    keyboard_.report(EV_KEY, KEY_5, 0);
    keyboard_.report(EV_SYN, SYN_REPORT, 0);
  });
  machine_.after(400ms, [&] {
    keyboard_.report(EV_LED, LED_CAPSL, 0);
    keyboard_.report(EV_SYN, SYN_REPORT, 0);
  });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(recordsOf("keyboard.evemu"), (Lines{"0.200000 0001 001e 0001", "0.200000 0000 0000 0000",
                                                "0.300000 0001 001e 0000", "0.300000 0000 0000 0000"}));
}

TEST_F(RecordingTest, KeepsWhatComesBehindWhatMayNotBeTold) {
  sim::Device withTrackball = keyboard();
  withTrackball.codes[EV_REL] = {REL_X};
  sim::Node& third = machine_.addNode(kThird, withTrackball);
  options_.further = {kThird};
  machine_.after(100ms, [&] {
    third.report(EV_LED, LED_CAPSL, 1);
    third.report(EV_REL, REL_X, 5);  // it has the number of SYN_REPORT
    third.report(EV_SYN, SYN_REPORT, 0);
  });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(recordsOf("node-1.evemu"), (Lines{"0.100000 0002 0000 0005", "0.100000 0000 0000 0000"}));
}

// ---- Where sources are found ---------------------------------------------------------------------

TEST_F(RecordingTest, SearchesForSourcesThatItIsNotGiven) {
  options_.mouse = options_.keyboard = options_.lirc = {};
  sim::LircDaemon& daemon = machine_.addLircDaemon(*std::rbegin(components::input::kLircSocketPaths));
  machine_.after(100ms, [&] { mouse_.move(1, 0); });
  machine_.after(200ms, [&] { keyboard_.press(KEY_UP); });
  machine_.after(300ms, [&] { daemon.send("KEY_OK"); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(printedFrom("  mouse.evemu"),
            "  mouse.evemu     2 records\n"
            "  keyboard.evemu  2 records\n"
            "  remote.lirc     1 line\n");
}

TEST_F(RecordingTest, GoesOnWithoutWhatASearchDoesNotFind) {
  options_.mouse = options_.keyboard = options_.lirc = {};
  mouse_.unplug();
  machine_.after(200ms, [&] { keyboard_.press(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(printedFrom("Recorded for"),
            "Recorded for 1.000 s:\n"
            "  keyboard.evemu  2 records\n");
  EXPECT_EQ(err_, "");
}

// ---- Further nodes ------------------------------------------------------------------------------

TEST_F(RecordingTest, HasAFileForAFurtherNode) {
  sim::Node& third = machine_.addNode(kThird, keyboard());
  options_.further = {"/dev/input/event9", kThird};
  machine_.after(100ms, [&] { third.press(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_EQ(recordsOf("node-2.evemu").size(), 2U);
  EXPECT_EQ(printedFrom("  node-2"), "  node-2.evemu    2 records\n");
  EXPECT_NE(out_.find("  node 2    /dev/input/event5  Simulated Keyboard\n"), std::string::npos) << out_;
}

TEST_F(RecordingTest, SaysOfWhichFurtherNodeNothingCame) {
  machine_.addNode(kThird, keyboard());
  options_.further = {"/dev/input/event9", kThird};
  machine_.after(100ms, [&] { keyboard_.press(KEY_UP); });
  EXPECT_EQ(record(), kDone);
  EXPECT_NE(out_.find("  node 2: nothing came, so there is no file\n"), std::string::npos) << out_;
  EXPECT_EQ(out_.find("  node 1: "), std::string::npos) << out_;
}

TEST_F(RecordingTest, RefusesANodeThatIsASourceAlready) {
  machine_.addLink("/dev/input/by-id/mouse", kMouse);
  options_.further = {"/dev/input/by-id/mouse"};
  EXPECT_EQ(record(), kFailed);
  EXPECT_EQ(err_, "quarlo-input: " + whySourceTwice("/dev/input/by-id/mouse") + "\n");
}

}  // namespace
}  // namespace quarlo::tools::record
