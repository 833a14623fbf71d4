// InputSources: nodes that are grabbed, so that nobody else gets what they send.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tests/unit/sources_test.h"

namespace quarlo::test {
namespace {

class SourcesGrab : public SourcesTest {
 protected:
  // What grab() returns, or the errno that it leaves.
  std::string grab(InputLoop::Source source, bool on = true) {
    errno = 0;
    return sources.grab(source, on) ? "done" : strerrorname_np(errno);
  }

  InputLoop::SourceSet grabbed() const {
    InputLoop::SourceSet set = 0;
    for (int source = 0; source < InputLoop::kSources; ++source) {
      if (sources.isGrabbed(static_cast<InputLoop::Source>(source))) set |= bit(source);
    }
    return set;
  }
};

// ---- Taken and given back -----------------------------------------------------------------------

TEST_F(SourcesGrab, IsOffUnlessAskedFor) {
  rounds(3);
  EXPECT_FALSE(keyboard.isGrabbed());
  EXPECT_EQ(grabbed(), 0U);
}

TEST_F(SourcesGrab, IsTakenAtOnceOfThatNodeAlone) {
  EXPECT_EQ(grab(kKeyboard), "done");
  EXPECT_TRUE(keyboard.isGrabbed());
  EXPECT_FALSE(mouse.isGrabbed());
  EXPECT_EQ(grabbed(), bit(kKeyboard));
  keyboard.press(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
}

TEST_F(SourcesGrab, IsGivenBack) {
  ASSERT_EQ(grab(kKeyboard), "done");
  ASSERT_EQ(grab(kMouse), "done");
  EXPECT_EQ(grab(kKeyboard, false), "done");
  EXPECT_FALSE(keyboard.isGrabbed());
  EXPECT_TRUE(mouse.isGrabbed());
  EXPECT_EQ(grabbed(), bit(kMouse));
}

TEST_F(SourcesGrab, AsksTheKernelForNothingThatItHas) {
  ASSERT_EQ(grab(kKeyboard), "done");
  machine.takeTrace();
  EXPECT_EQ(grab(kKeyboard), "done");
  for (const std::string& call : machine.takeTrace()) EXPECT_EQ(call.find("EVIOCGRAB"), std::string::npos) << call;
  EXPECT_EQ(grab(kMouse, false), "done");
  EXPECT_EQ(attended(), Lines{});
}

TEST_F(SourcesGrab, KeepsOthersFromWhatIsSent) {
  const int other = open("/dev/input/event1", O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(grab(kKeyboard), "done");
  keyboard.press(KEY_A);
  input_event record;
  EXPECT_EQ(read(other, &record, sizeof record), -1);
  EXPECT_EQ(errno, EAGAIN);
  close(other);
}

// ---- While a key is down ------------------------------------------------------------------------

TEST_F(SourcesGrab, IsPutOffWhileAKeyIsDown) {
  keyboard.press(KEY_ENTER);
  round();
  EXPECT_EQ(grab(kKeyboard), "EAGAIN");
  EXPECT_FALSE(keyboard.isGrabbed());
  EXPECT_EQ(rounds(2), Lines{});
  EXPECT_EQ(grabbed(), 0U);
  keyboard.release(KEY_ENTER);
  EXPECT_EQ(round(), Lines{keyUp(13, 13)});
  EXPECT_EQ(grabbed(), 0U);
  sources.attend(0);
  EXPECT_EQ(grabbed(), bit(kKeyboard));
  EXPECT_TRUE(keyboard.isGrabbed());
}

TEST_F(SourcesGrab, IsGivenBackWhenNoKeyIsDown) {
  ASSERT_EQ(grab(kKeyboard), "done");
  keyboard.press(KEY_A);
  round();
  EXPECT_EQ(grab(kKeyboard, false), "EAGAIN");
  EXPECT_TRUE(keyboard.isGrabbed());
  keyboard.release(KEY_A);
  round();
  sources.attend(0);
  EXPECT_FALSE(keyboard.isGrabbed());
  EXPECT_EQ(grabbed(), 0U);
}

TEST_F(SourcesGrab, IsPutOffWhileSomethingIsUnread) {
  keyboard.press(KEY_A);
  keyboard.release(KEY_A);
  EXPECT_EQ(grab(kKeyboard), "EAGAIN");
  EXPECT_EQ(round(), (Lines{keyDown('A', 'a'), keyUp('A', 'a')}));
  sources.attend(0);
  EXPECT_EQ(grabbed(), bit(kKeyboard));
}

TEST_F(SourcesGrab, IsPutOffWhileSomethingIsReadAhead) {
  loop.setBound(1, 1000);
  keyboard.press(KEY_A);
  keyboard.release(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
  EXPECT_EQ(grab(kKeyboard), "EAGAIN");
  EXPECT_EQ(machine.count(Call::kIoctl), 0);
  EXPECT_EQ(rounds(1), Lines{keyUp('A', 'a')});
}

TEST_F(SourcesGrab, GivesAKeyThatIsDownSinceBeforeTheNodeWasOpened) {
  keyboard.unplug();
  rounds(2);
  sim::Node& back = machine.addNode("/dev/input/event1", Device::keyboard());
  back.press(KEY_ENTER);
  ASSERT_TRUE(sources.open(kKeyboard, "/dev/input/event1"));
  EXPECT_EQ(grab(kKeyboard), "EAGAIN");
  EXPECT_EQ(round(), Lines{keyDown(13, 13)});
}

TEST_F(SourcesGrab, GivesNoKeyThatWasAdopted) {
  keyboard.press(KEY_ENTER);
  ASSERT_TRUE(sources.adopt(kKeyboard));
  EXPECT_EQ(grab(kKeyboard), "EAGAIN");
  EXPECT_EQ(round(), Lines{});
}

TEST_F(SourcesGrab, IsNoLongerWantedWhenItIsTakenBack) {
  keyboard.press(KEY_A);
  round();
  ASSERT_EQ(grab(kKeyboard), "EAGAIN");
  EXPECT_EQ(grab(kKeyboard, false), "done");
  keyboard.release(KEY_A);
  rounds(3);
  EXPECT_FALSE(keyboard.isGrabbed());
}

// The way up of a key is given first, which others see as well.
TEST_F(SourcesGrab, IsPutOffUntilAKeyUpThatWasLostIsGiven) {
  keyboard.press(KEY_A);
  round();
  keyboard.release(KEY_A);
  overflow(keyboard);
  round();
  EXPECT_EQ(grab(kKeyboard), "EAGAIN");
  EXPECT_EQ(takeNow(loop), Lines{keyUp('A', 'a')});
  EXPECT_EQ(round(), Lines{});
  EXPECT_EQ(grabbed(), bit(kKeyboard));
}

// ---- Where it cannot be had ---------------------------------------------------------------------

TEST_F(SourcesGrab, IsTakenWhenAnotherProcessLetsGo) {
  keyboard.setGrabbedElsewhere(true);
  EXPECT_EQ(grab(kKeyboard), "EBUSY");
  rounds(2);
  EXPECT_EQ(grabbed(), 0U);
  EXPECT_EQ(text(loop.wait(sources.attend(50))), "timeout");
  keyboard.setGrabbedElsewhere(false);
  sources.attend(0);
  EXPECT_EQ(grabbed(), bit(kKeyboard));
}

TEST_F(SourcesGrab, IsTakenWhenTheNodeComesBack) {
  ASSERT_EQ(grab(kKeyboard), "done");
  sources.keepOpen(kKeyboard, "/dev/input/event1", 100);
  keyboard.unplug();
  rounds(2);
  EXPECT_EQ(grabbed(), 0U);
  sim::Node& back = machine.addNode("/dev/input/event1", Device::keyboard());
  machine.advance(100ms);
  sources.attend(0);
  EXPECT_EQ(sources.opened(), bit(kKeyboard));
  EXPECT_TRUE(back.isGrabbed());
  EXPECT_EQ(grabbed(), bit(kKeyboard));
}

TEST_F(SourcesGrab, IsTakenWhenANodeOpensThatWasClosed) {
  keyboard.unplug();
  rounds(2);
  EXPECT_EQ(grab(kKeyboard), "EBADF");
  sim::Node& back = machine.addNode("/dev/input/event1", Device::keyboard());
  ASSERT_TRUE(sources.open(kKeyboard, "/dev/input/event1"));
  sources.attend(0);
  EXPECT_TRUE(back.isGrabbed());
}

TEST_F(SourcesGrab, DoesNotMakeTheWaitSpinWhereItCannotBeHad) {
  keyboard.unplug();
  mouse.setGrabbedElsewhere(true);
  rounds(3);
  grab(kKeyboard);
  grab(kMouse);
  const int timeoutMs = sources.attend(5000);
  const auto start = machine.now();
  EXPECT_EQ(text(loop.wait(timeoutMs)), "timeout");
  EXPECT_EQ(machine.now() - start, 5s);
}

TEST_F(SourcesGrab, IsNothingForAFifo) {
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
  close(kKeyboardFd);
  reader.keyboardFd = fds[0];
  loop.wait(0);
  EXPECT_EQ(grab(kKeyboard), "ENOTTY");
  close(fds[1]);
}

TEST_F(SourcesGrab, IsTakenOfAFurtherNodeToo) {
  InputSources::FurtherNode further;
  ASSERT_TRUE(sources.join(further));
  sim::Node& second = machine.addNode("/dev/input/event2", Device::keyboard());
  ASSERT_TRUE(sources.open(further.source(), "/dev/input/event2"));
  EXPECT_EQ(grab(further.source()), "done");
  EXPECT_TRUE(second.isGrabbed());
  EXPECT_EQ(grabbed(), bit(further.source()));
}

}  // namespace
}  // namespace quarlo::test
