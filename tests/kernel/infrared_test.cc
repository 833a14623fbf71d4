// The whole way of a remote's light: pulses, a receiver of the kernel's, what decodes them, the reader. The LIRC daemon
// decodes them, with its driver for the kernel's receivers, or the kernel itself does, or both.
#include "tests/support/infrared.h"

#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "tests/kernel/remote_witness.h"
#include "tests/scenario/node_client.h"
#include "tests/support/files.h"
#include "tests/support/lircd.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;

constexpr char kNowhere[] = "/nowhere";

// The remotes: "myremote", and "other" (tests/support/lircd.h).
constexpr unsigned kNecAddress = 4;
constexpr unsigned kNecUp = 1;
constexpr unsigned kNec1 = 2;
constexpr unsigned kNecSubtitle = 3;
constexpr unsigned kRc5Address = 0;
constexpr unsigned kRc5Up = 16;
constexpr unsigned kRc5Right = 17;

const std::string kUp = keyDown(38);
const std::string kRight = keyDown(39);

class InfraredTest : public testing::Test {
 protected:
  InfraredTest() { resetLog(); }

  // How long it takes after the last frame until a button is forgotten, and until the kernel has sent its key-up.
  static constexpr milliseconds kAfter = 700ms;

  // No receiver makes anything of the first frame: the darkness before it has no beginning.
  void sendFirstFrame() {
    constexpr unsigned kNobody = 0x55;
    receiver.send(Thumbs().holdNec(kNobody, 0, 0ms));
  }

  // Does this while thumbs press.
  void whilePressing(const Thumbs& thumbs, const std::function<void()>& beside) {
    std::thread light([&] { receiver.send(thumbs); });
    beside();
    light.join();
  }

  // Makes an application of the daemon, whose keyboard is this node.
  void connect(const std::string& node = kNowhere) {
    witness.emplace(daemon.socketPath(), node);
    ASSERT_TRUE(daemon.simulate("NO_BUTTON", "00"));  // by now the daemon has noticed its clients
    witness->watch(10ms);
    witness->forget();
    takeLog();
  }

  // Its life while thumbs press, and after that.
  void press(const Thumbs& thumbs) {
    whilePressing(thumbs, [&] { witness->watch(thumbs.length() + kAfter); });
  }

  InfraredReceiver receiver;
  Folder folder;
  Lircd daemon{folder.path()};
  std::optional<RemoteWitness> witness;
};

// ---- The LIRC daemon decodes ------------------------------------------------------------------------

class LircInfraredTest : public InfraredTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(daemon.startOnReceiver(receiver.device()));
    connect();
    sendFirstFrame();
  }

  // How many of the log's messages are of this kind.
  static std::ptrdiff_t count(const Lines& log, const std::string& beginning) {
    return std::count_if(log.begin(), log.end(),
                         [&](const std::string& message) { return message.rfind(beginning, 0) == 0; });
  }
};

TEST_F(LircInfraredTest, ATapIsOneKeyDown) {
  press(Thumbs().holdNec(kNecAddress, kNecUp, 0ms).holdRc5(kRc5Address, kRc5Right, 0ms));
  EXPECT_EQ(witness->heard(), Lines({"00 KEY_UP myremote", "00 KEY_RIGHT other"}));
  EXPECT_EQ(witness->given(), Lines({kUp, kRight}));
}

TEST_F(LircInfraredTest, AHeldButtonIsCountedInHexadecimalAndRepeats) {
  press(Thumbs().holdNec(kNecAddress, kNecUp, 2s));
  const Lines heard = witness->heard();
  ASSERT_EQ(heard.size(), 19U);
  EXPECT_EQ(heard[1], "01 KEY_UP myremote");
  EXPECT_EQ(heard[10], "0a KEY_UP myremote");
  EXPECT_EQ(heard[16], "10 KEY_UP myremote");
  EXPECT_EQ(witness->given().size(), 17U);
  witness->expectWhatTheRulesSay();
}

TEST_F(LircInfraredTest, ARemoteThatSendsWholeFramesRepeatsToo) {
  press(Thumbs().holdRc5(kRc5Address, kRc5Right, 1100ms).holdRc5(kRc5Address, kRc5Right, 500ms));
  const Lines heard = witness->heard();
  ASSERT_EQ(heard.size(), 15U);
  EXPECT_EQ(heard[9], "09 KEY_RIGHT other");
  EXPECT_EQ(heard[10], "00 KEY_RIGHT other");
  EXPECT_EQ(witness->given().size(), 11U);
  witness->expectWhatTheRulesSay();
}

TEST_F(LircInfraredTest, TwoRemotesInTurn) {
  press(Thumbs()
            .holdNec(kNecAddress, kNecUp, 0ms)
            .holdRc5(kRc5Address, kRc5Up, 0ms)
            .holdNec(kNecAddress, kNecUp, 800ms)
            .holdRc5(kRc5Address, kRc5Up, 800ms)
            .holdNec(kNecAddress, kNec1, 0ms)
            .holdRc5(kRc5Address, kRc5Right, 0ms));
  EXPECT_EQ(witness->heard().size(), 20U);
  EXPECT_EQ(witness->heard().back(), "00 KEY_RIGHT other");
  EXPECT_EQ(witness->given().back(), kRight);
  witness->expectWhatTheRulesSay();
}

TEST_F(LircInfraredTest, AButtonThatTheReaderDoesNotKnowGivesNothing) {
  press(Thumbs()
            .holdNec(kNecAddress, kNecUp, 500ms)
            .rest(200ms)
            .holdNec(kNecAddress, kNecSubtitle, 500ms)
            .rest(200ms)
            .holdNec(kNecAddress, kNecUp, 0ms));
  EXPECT_EQ(count(takeLog(), "VERBOSE2 LIRC unknown: SUBTITLE"), 5);
  EXPECT_EQ(witness->heard().size(), 11U);
  EXPECT_EQ(witness->given(), Lines({kUp, kUp, kUp, kUp}));
  witness->expectWhatTheRulesSay();
}

TEST_F(LircInfraredTest, ADaemonThatReadsItsConfigurationAgainGoesOn) {
  const Thumbs thumbs = Thumbs().holdNec(kNecAddress, kNecUp, 2s);
  whilePressing(thumbs, [&] {
    witness->watch(750ms);
    daemon.reload();
    witness->watch(thumbs.length() + kAfter - 750ms);
  });
  const Lines heard = witness->heard();
  const auto message = std::find(heard.begin(), heard.end(), "BEGIN");
  ASSERT_GE(heard.end() - message, 3);
  EXPECT_EQ(Lines(message, message + 3), Lines({"BEGIN", "SIGHUP", "END"}));
  EXPECT_GT(witness->given().size(), 10U);
  witness->expectWhatTheRulesSay();
}

TEST_F(LircInfraredTest, AfterARestartANewReaderHearsTheDaemonAndTheOldOneDoesNot) {
  daemon.stop();
  ASSERT_TRUE(daemon.startOnReceiver(receiver.device()));
  sendFirstFrame();
  press(Thumbs().holdNec(kNecAddress, kNecUp, 500ms));
  EXPECT_EQ(witness->heard(), Lines());
  EXPECT_EQ(witness->given(), Lines());
  connect();
  press(Thumbs().holdNec(kNecAddress, kNecUp, 500ms));
  EXPECT_EQ(witness->heard().size(), 5U);
  EXPECT_EQ(witness->given(), Lines({kUp, kUp, kUp}));
  witness->expectWhatTheRulesSay();
}

// What the daemon sends meanwhile waits in the socket.
TEST_F(LircInfraredTest, AnApplicationThatIsBusyWithTheLoopGetsEachLine) {
  const Thumbs thumbs = Thumbs().holdNec(kNecAddress, kNecUp, 4s);
  whilePressing(thumbs, [&] {
    witness->watch(500ms);
    std::this_thread::sleep_for(3s);
    witness->watch(thumbs.length() + kAfter - 3500ms);
  });
  const Lines log = takeLog();
  EXPECT_EQ(witness->heard().size(), 38U);
  EXPECT_EQ(count(log, "VERBOSE2 LIRC string: "), 38);
  EXPECT_EQ(count(log, "VERBOSE2 LIRC unknown: "), 0);
  EXPECT_EQ(witness->given().size(), 8U);
  witness->expectWhatTheRulesSay();
}

// Of the 28 lines, a read takes three and a half, and the next one begins in the middle of a line.
TEST_F(LircInfraredTest, AnApplicationThatIsBusyWithoutTheLoopLosesLinesAndTakesPartsOfOthersForButtons) {
  LinuxInputReader reader;
  ASSERT_TRUE(reader.init(kNowhere, kNowhere, daemon.socketPath().c_str(), 1919, 1079));
  whilePressing(Thumbs().holdNec(kNecAddress, kNecUp, 3s), [] { std::this_thread::sleep_for(3s + kAfter); });
  takeLog();
  Lines events;
  constexpr int kReads = 8;
  for (int i = 0; i < kReads; ++i) {
    const std::string event = readOne(reader);
    if (event != kNone) events.push_back(event);
  }
  EXPECT_EQ(events, Lines({kUp}));
  const std::string unknown = "VERBOSE2 LIRC unknown: ";
  Lines names;
  for (const std::string& message : takeLog()) {
    if (message.rfind(unknown, 0) == 0) names.push_back(message.substr(unknown.size()));
  }
  EXPECT_EQ(names, Lines({"myremote\n0000000020df807f", "0b", "12", "19"}));
}

// ---- The kernel decodes -----------------------------------------------------------------------------

class KernelInfraredTest : public InfraredTest {
 protected:
  KernelInfraredTest() {
    receiver.decode("nec");
    receiver.decode("+rc-5");
    receiver.setKey(256 * kNecAddress + kNecUp, KEY_UP);
    receiver.setKey(256 * kNecAddress + kNec1, KEY_OK);
    receiver.setKey(256 * kRc5Address + kRc5Right, KEY_RIGHT);
    sendFirstFrame();
  }

  // What an application is given by the node while thumbs press.
  Lines eventsOf(const Thumbs& thumbs) {
    LinuxInputReader reader;
    EXPECT_TRUE(reader.init(kNowhere, receiver.node().c_str(), kNowhere, 1919, 1079));
    Lines events;
    whilePressing(thumbs, [&] {
      const auto end = std::chrono::steady_clock::now() + thumbs.length() + kAfter;
      while (std::chrono::steady_clock::now() < end) {
        const std::string event = readOne(reader, 10);
        if (event != kNone) events.push_back(event);
      }
    });
    return events;
  }

  // The keys of a usual remote: the kernel makes them of codes that nobody sends here.
  void addArrows() const {
    unsigned code = 0xff00;
    for (const int key : {KEY_DOWN, KEY_LEFT, KEY_BACK, KEY_POWER}) receiver.setKey(code++, key);
  }

  // As the kernel's key maps cinergy, imon_pad and imon_rsc have one.
  void addLeftButton() const { receiver.setKey(0xfeff, BTN_LEFT); }
};

TEST_F(KernelInfraredTest, ATapIsAKeyDownAndAKeyUp) {
  EXPECT_EQ(eventsOf(Thumbs()
                         .holdNec(kNecAddress, kNecUp, 0ms)
                         .rest(500ms)
                         .holdRc5(kRc5Address, kRc5Right, 0ms)
                         .rest(500ms)
                         .holdNec(kNecAddress, kNecSubtitle, 0ms)),
            Lines({kUp, keyUp(38), kRight, keyUp(39)}));
}

TEST_F(KernelInfraredTest, AButtonOfAnotherRemoteEndsTheFirst) {
  EXPECT_EQ(eventsOf(Thumbs().holdNec(kNecAddress, kNecUp, 400ms).holdRc5(kRc5Address, kRc5Right, 400ms)),
            Lines({kUp, keyUp(38), kRight, keyUp(39)}));
}

TEST_F(KernelInfraredTest, AHeldButtonRepeatsByTheNodesDelayAndPeriod) {
  const NodeClient node(receiver.node());
  unsigned repeat[] = {0, 0};  // ms: delay, period
  ASSERT_EQ(ioctl(node.fd(), EVIOCGREP, repeat), 0);
  EXPECT_EQ(repeat[0], 500U);
  EXPECT_EQ(repeat[1], 125U);

  Lines thirteen(13, kUp);
  thirteen.push_back(keyUp(38));
  EXPECT_EQ(eventsOf(Thumbs().holdNec(kNecAddress, kNecUp, 2s)), thirteen);

  repeat[0] = 1000;
  repeat[1] = 500;
  ASSERT_EQ(ioctl(node.fd(), EVIOCSREP, repeat), 0);
  EXPECT_EQ(eventsOf(Thumbs().holdNec(kNecAddress, kNecUp, 2s)), Lines({kUp, kUp, kUp, kUp, keyUp(38)}));
}

TEST_F(KernelInfraredTest, AutodetectionTakesNoRemoteThatTheKernelDecodesThoughItHasAllArrows) {
  addArrows();
  LinuxInputReader reader;
  EXPECT_FALSE(reader.init(nullptr, nullptr, kNowhere, 1919, 1079));
  EXPECT_TRUE(reader.init(kNowhere, receiver.node().c_str(), kNowhere, 1919, 1079));
  EXPECT_TRUE(reader.hasKeyEvent(reader.keyboardFd, false));
  EXPECT_TRUE(reader.hasRelEvent(reader.keyboardFd));  // this is why
}

TEST_F(KernelInfraredTest, AutodetectionTakesARemoteThatTheKernelDecodesForTheMouseIfItHasALeftButton) {
  addArrows();
  addLeftButton();
  LinuxInputReader reader;
  EXPECT_TRUE(reader.init(nullptr, nullptr, kNowhere, 1919, 1079));
  const Lines log = takeLog();
  EXPECT_EQ(log[0], "INFO Found a mouse: " + receiver.node() + " - rc-core loopback device");
  EXPECT_EQ(log[1], "INFO Could not autodetect a suitable keyboard device");
}

// ---- Both ---------------------------------------------------------------------------------------

class BothInfraredTest : public KernelInfraredTest {};

TEST_F(BothInfraredTest, ADaemonSwitchesTheKernelsDecodersOff) {
  EXPECT_TRUE(receiver.decodes("nec"));
  ASSERT_TRUE(daemon.startOnReceiver(receiver.device()));
  EXPECT_FALSE(receiver.decodes("nec"));
}

TEST_F(BothInfraredTest, EachPressComesTwiceIfTheyAreSwitchedOnAgain) {
  ASSERT_TRUE(daemon.startOnReceiver(receiver.device()));
  connect(receiver.node());
  receiver.decode("nec");
  sendFirstFrame();
  press(Thumbs().holdNec(kNecAddress, kNecUp, 0ms));
  EXPECT_EQ(witness->heard(), Lines({"00 KEY_UP myremote"}));
  EXPECT_EQ(witness->given(), Lines({kUp}));
  EXPECT_EQ(witness->givenByNode(), Lines({kUp, keyUp(38)}));
  press(Thumbs().holdNec(kNecAddress, kNecUp, 1100ms));
  witness->expectWhatTheRulesSay();
  EXPECT_GT(witness->givenByNode().size(), 4U);
}

TEST_F(BothInfraredTest, ADaemonMakesCountedLinesOfTheNodesRepeats) {
  ASSERT_TRUE(daemon.startOnNode(receiver.node()));
  connect();
  press(Thumbs().holdNec(kNecAddress, kNec1, 2s));
  const Lines heard = witness->heard();
  ASSERT_EQ(heard.size(), 13U);
  EXPECT_EQ(heard[0], "00 KEY_OK devinput");
  EXPECT_EQ(heard[12], "0c KEY_OK devinput");
  witness->expectWhatTheRulesSay();
}

TEST_F(BothInfraredTest, ADaemonGrabsTheNodeThatItReadsWhileItHasAClient) {
  ASSERT_TRUE(daemon.startOnNode(receiver.node()));
  connect();
  const NodeClient node(receiver.node());
  EXPECT_EQ(ioctl(node.fd(), EVIOCGRAB, kGrab), -1);
  EXPECT_EQ(errno, EBUSY);
}

// The daemon makes a node for what it does not use: motion and buttons.
TEST_F(BothInfraredTest, ThatDaemonsOwnNodeIsTakenForTheMouseIfTheRemoteHasALeftButton) {
  const auto detect = [this](bool expected) {
    ASSERT_TRUE(daemon.startOnNode(receiver.node()));
    connect();
    LinuxInputReader other;
    EXPECT_EQ(other.init(nullptr, nullptr, kNowhere, 1919, 1079), expected);
    witness.reset();
    daemon.stop();
  };
  detect(false);
  EXPECT_EQ(takeLog()[0], "INFO Could not autodetect a suitable mouse device");
  addLeftButton();
  detect(true);
  EXPECT_EQ(takeLog()[0], "INFO Found a mouse: /dev/input/event1 - rc-core loopback device (lircd bypass)");
}

}  // namespace
}  // namespace quarlo::test
