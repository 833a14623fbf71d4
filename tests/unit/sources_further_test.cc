// InputSources: further nodes, whose records go through the same reader.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "tests/unit/sources_test.h"

namespace quarlo::test {
namespace {

constexpr int kMost = InputLoop::kMostFurtherNodes;

// Further nodes, each with a path and a descriptor of its own once it is plugged in.
class SourcesFurther : public SourcesTest {
 protected:
  static std::string path(int index) { return "/dev/input/event" + std::to_string(index + 2); }

  static InputLoop::Source source(int index) { return static_cast<InputLoop::Source>(InputLoop::kFurther + index); }

  sim::Node& plug(int index, const Device& device = Device::keyboard()) { return machine.addNode(path(index), device); }

  sim::Node& joinAndOpen(int index, const Device& device = Device::keyboard()) {
    sim::Node& node = plug(index, device);
    EXPECT_TRUE(sources.join(further[static_cast<std::size_t>(index)]));
    EXPECT_TRUE(sources.open(source(index), path(index).c_str()));
    return node;
  }

  std::array<InputSources::FurtherNode, kMost> further;
};

// What came in a round, each with its source.
Lines takeWithSources(InputLoop& loop) {
  loop.wait(0);
  Lines lines;
  for (InputEvent event; loop.next(event);) lines.push_back(text(loop.source()) + ": " + loopText(event));
  return lines;
}

// ---- Joining ------------------------------------------------------------------------------------

TEST_F(SourcesFurther, JoinAsOneSourceEach) {
  for (int i = 0; i < kMost; ++i) {
    EXPECT_TRUE(sources.join(further[static_cast<std::size_t>(i)]));
    EXPECT_EQ(further[static_cast<std::size_t>(i)].source(), source(i));
  }
  InputSources::FurtherNode ninth;
  EXPECT_FALSE(sources.join(ninth));
}

TEST_F(SourcesFurther, AreNotOpenYet) {
  const std::uint32_t before = loop.generation();
  ASSERT_TRUE(sources.join(further[0]));
  EXPECT_EQ(loop.generation(), before);
  pollfd fds[InputLoop::kMaxDescriptors];
  EXPECT_EQ(loop.descriptors(fds), 3);
  loop.setAllReady();
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(loop.gone(), 0U);
  EXPECT_EQ(rounds(2), Lines{});
  EXPECT_EQ(loop.gone(), 0U);
}

TEST_F(SourcesFurther, LeaveTheReadersOwnDescriptors) {
  reader.maxFd = 5;
  joinAndOpen(0);
  EXPECT_EQ(reader.keyboardFd, kKeyboardFd);
  EXPECT_EQ(reader.mouseFd, kMouseFd);
  EXPECT_EQ(reader.lircFd, kLircFd);
}

TEST_F(SourcesFurther, AreRefusedIfTheyAreSourcesAlready) {
  joinAndOpen(0);
  ASSERT_TRUE(sources.join(further[1]));
  for (const std::string& path : {std::string("/dev/input/event0"), std::string("/dev/input/event1"), path(0)}) {
    errno = 0;
    EXPECT_FALSE(sources.open(source(1), path.c_str())) << path;
    EXPECT_EQ(errno, EEXIST) << path;
  }
  plug(1);
  EXPECT_TRUE(sources.open(source(1), path(1).c_str()));
}

TEST_F(SourcesFurther, CloseTheirDescriptorsAtTheirEnd) {
  const int before = machine.openDescriptors();
  plug(0);
  LinuxInputReader empty;
  {
    InputLoop other(empty);
    InputSources::FurtherNode open;
    InputSources::FurtherNode closed;
    InputSources otherSources(other);
    ASSERT_TRUE(otherSources.join(open));
    ASSERT_TRUE(otherSources.join(closed));
    ASSERT_TRUE(otherSources.open(open.source(), path(0).c_str()));
    EXPECT_EQ(machine.openDescriptors(), before + 1);
    machine.takeTrace();
  }
  EXPECT_EQ(machine.takeTrace(), Lines{"close(103) = 0"});
}

TEST_F(MachineTest, FurtherNodeClosesDescriptor0) {
  const WithoutStandardInput without(machine);
  machine.addNode("/dev/input/event1", Device::keyboard());
  LinuxInputReader empty;
  InputLoop loop(empty);
  {
    InputSources::FurtherNode node;
    InputSources sources(loop);
    ASSERT_TRUE(sources.join(node));
    ASSERT_TRUE(sources.open(node.source(), "/dev/input/event1"));
    EXPECT_EQ(machine.openDescriptors(), 1);
  }
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(MachineTest, SourcesTakeDescriptor0ForAnOpenOne) {
  const WithoutStandardInput without(machine);
  sim::Node& keyboard = machine.addNode("/dev/input/event1", Device::keyboard());
  LinuxInputReader reader;
  InputLoop loop(reader);
  InputSources sources(loop);
  ASSERT_TRUE(sources.open(kKeyboard, "/dev/input/event1"));
  ASSERT_EQ(reader.keyboardFd, 0);
  EXPECT_FALSE(sources.open(kKeyboard, "/dev/input/event1"));
  EXPECT_EQ(errno, EBUSY);
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  EXPECT_EQ(sources.attend(-1), -1);
  keyboard.press(KEY_A);
  EXPECT_TRUE(sources.adopt(kKeyboard));
  EXPECT_TRUE(sources.isDown(kKeyboard, KEY_A));
  overflow(keyboard);
  takeNow(loop);
  sources.attend(0);
  EXPECT_EQ(takeNow(loop), Lines{});
  keyboard.release(KEY_A);
  EXPECT_EQ(takeNow(loop), Lines{keyUp('A', 'a')});
  EXPECT_TRUE(sources.grab(kKeyboard, true));
  keyboard.unplug();
  takeNow(loop);
  sources.attend(0);
  EXPECT_EQ(reader.keyboardFd, -1);
  EXPECT_EQ(machine.openDescriptors(), 0);
}

// ---- What they send -----------------------------------------------------------------------------

TEST_F(SourcesFurther, GiveWhatTheReadersOwnNodeGives) {
  sim::Node& second = joinAndOpen(0);
  Lines given[2];
  sim::Node* const nodes[] = {&keyboard, &second};
  for (int i = 0; i < 2; ++i) {
    nodes[i]->press(KEY_LEFTSHIFT);
    nodes[i]->press(KEY_A);
    nodes[i]->repeat(KEY_A);
    nodes[i]->release(KEY_A);
    nodes[i]->release(KEY_LEFTSHIFT);
    nodes[i]->press(KEY_F1);
    nodes[i]->release(KEY_F1);
    given[i] = round();
  }
  EXPECT_EQ(given[0].size(), 7U);
  EXPECT_EQ(given[1], given[0]);
}

TEST_F(SourcesFurther, AreAskedBetweenTheKeyboardAndTheMouseAsTheyHaveJoined) {
  std::vector<sim::Node*> nodes;
  nodes.reserve(kMost);
  for (int i = 0; i < kMost; ++i) nodes.push_back(&joinAndOpen(i));
  daemon.send("KEY_UP");
  mouse.press(BTN_LEFT);
  for (auto node = nodes.rbegin(); node != nodes.rend(); ++node) (*node)->press(KEY_A);
  keyboard.press(KEY_B);
  Lines expected = {"keyboard: " + keyDown('B', 'b')};
  for (int i = 0; i < kMost; ++i) expected.push_back("node " + std::to_string(i + 1) + ": " + keyDown('A', 'a'));
  expected.push_back("mouse: " + buttonDown(1, 0, 0, 1));
  expected.push_back("remote: " + keyDown(38));
  EXPECT_EQ(takeWithSources(loop), expected);
}

TEST_F(SourcesFurther, MoveTheOnePointer) {
  sim::Node& second = joinAndOpen(0, Device::mouse());
  mouse.move(5, 6);
  EXPECT_EQ(round(), Lines{moved(5, 6)});
  second.move(1, 1);
  second.press(BTN_RIGHT);
  EXPECT_EQ(round(), (Lines{moved(6, 7), buttonDown(2, 6, 7, 1)}));
}

TEST_F(SourcesFurther, GiveTheSameKeyOfTwoKeyboardsTwice) {
  sim::Node& second = joinAndOpen(0);
  sim::Node& third = joinAndOpen(1);
  second.press(KEY_A);
  third.press(KEY_A);
  EXPECT_EQ(round(), (Lines{keyDown('A', 'a'), keyDown('A', 'a')}));
  second.release(KEY_A);
  EXPECT_EQ(round(), Lines{keyUp('A', 'a')});
  EXPECT_FALSE(sources.isDown(source(0), KEY_A));
  EXPECT_TRUE(sources.isDown(source(1), KEY_A));
  EXPECT_FALSE(sources.isDown(kKeyboard, KEY_A));
}

TEST_F(SourcesFurther, KeepAModifierThatIsDownOnAnyOfThem) {
  sim::Node& second = joinAndOpen(0);
  keyboard.press(KEY_LEFTSHIFT);
  second.press(KEY_RIGHTSHIFT);
  round();
  keyboard.release(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines{keyUp(16, 0, 2)});
  keyboard.press(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'A', 2)});
  second.release(KEY_RIGHTSHIFT);
  EXPECT_EQ(round(), Lines{keyUp(16)});
}

TEST_F(SourcesFurther, HaveTheirShareOfARoundAndAttendGivesThemTheNext) {
  loop.setBound(3, 1000);
  sim::Node& second = joinAndOpen(0);
  for (int i = 0; i < 8; ++i) {
    second.inject(EV_KEY, KEY_A, 1);
    second.inject(EV_SYN, SYN_REPORT, 0);
  }
  keyboard.press(KEY_B);
  EXPECT_EQ(round().size(), 4U);
  EXPECT_EQ(loop.timeoutMs(), 0);
  EXPECT_EQ(round().size(), 3U);
  EXPECT_EQ(round().size(), 2U);
  EXPECT_EQ(loop.timeoutMs(), -1);
}

TEST_F(SourcesFurther, LetOthersOfThemGoOnWhenOneHasHadItsShare) {
  loop.setBound(1, 1000);
  sim::Node& second = joinAndOpen(0);
  sim::Node& third = joinAndOpen(1);
  for (const int key : {KEY_A, KEY_B}) {
    second.press(key);
    third.press(key);
  }
  EXPECT_EQ(round(), (Lines{keyDown('A', 'a'), keyDown('A', 'a')}));
  EXPECT_EQ(round(), (Lines{keyDown('B', 'b'), keyDown('B', 'b')}));
}

TEST_F(SourcesFurther, ShowEachRecord) {
  sim::Node& second = joinAndOpen(0, Device::mouse());
  second.move(3, 4);
  second.press(BTN_SIDE);
  loop.wait(0);
  Lines lines;
  for (InputEvent event; loop.nextRecord(event);) {
    const InputLoop::Cause& cause = loop.cause();
    lines.push_back(text(cause.source) + " " + std::to_string(cause.number) + " " + std::to_string(cause.record.type) +
                    (event.kind == InputEvent::kNoEvent ? "" : " " + text(event)));
  }
  EXPECT_EQ(lines, (Lines{"node 1 3 0", "node 1 2 2 " + moved(3, 4), "node 1 4 1", "node 1 5 0"}));
}

TEST_F(SourcesFurther, WaitWithTheOthers) {
  const std::uint32_t before = loop.generation();
  sim::Node& second = joinAndOpen(0);
  EXPECT_NE(loop.generation(), before);
  pollfd fds[InputLoop::kMaxDescriptors];
  ASSERT_EQ(loop.descriptors(fds), 4);
  EXPECT_EQ(fds[3].fd, 103);
  second.press(KEY_A);
  EXPECT_EQ(text(loop.wait(-1)), "input");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
}

TEST_F(SourcesFurther, AreReadWhereAnotherWaitNamesThem) {
  sim::Node& second = joinAndOpen(0);
  sim::Node& third = joinAndOpen(1);
  second.press(KEY_A);
  third.press(KEY_B);
  loop.setReady(104, POLLIN);
  EXPECT_EQ(takeAll(loop), Lines{keyDown('B', 'b')});
  loop.setAllReady();
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
}

TEST_F(SourcesFurther, AllWaitAtOnce) {
  for (int i = 0; i < kMost; ++i) joinAndOpen(i);
  pollfd fds[InputLoop::kMaxDescriptors];
  EXPECT_EQ(loop.descriptors(fds), InputLoop::kMaxDescriptors);
  EXPECT_EQ(text(loop.wait(5)), "timeout");
  EXPECT_EQ(text(loop.wait(5, kFirstDescriptor)), "timeout");
}

// ---- What they do not send ----------------------------------------------------------------------

TEST_F(SourcesFurther, SayThatTheyLostRecords) {
  joinAndOpen(0);
  sim::Node& third = joinAndOpen(1);
  third.press(KEY_LEFTSHIFT);
  round();
  third.release(KEY_LEFTSHIFT);
  overflow(third);
  round();
  EXPECT_EQ(round(), Lines{keyUp(16)});
  EXPECT_EQ(sources.lost(), bit(source(1)));
}

TEST_F(SourcesFurther, GoAndComeBack) {
  sim::Node& second = joinAndOpen(0);
  second.press(KEY_LEFTSHIFT);
  keyboard.press(KEY_LEFTSHIFT);
  round();
  takeLog();
  second.unplug();
  takeNow(loop);
  EXPECT_EQ(takeLog(), Lines{"loop: ERROR Lost the node, errno = 19"});
  EXPECT_EQ(text(loop.wait(sources.attend(-1))), "input, timeout, node 1 is gone");
  EXPECT_EQ(takeAll(loop), Lines{keyUp(16, 0, 2)});
  EXPECT_EQ(reader.modifiers, 2U);

  sources.keepOpen(source(0), "/dev/input/event9", 1000);
  sim::Node& back = machine.addNode("/dev/input/event9", Device::keyboard());
  sources.attend(-1);
  EXPECT_EQ(sources.opened(), bit(source(0)));
  EXPECT_EQ(loop.gone(), 0U);
  back.press(KEY_A);
  EXPECT_EQ(takeWithSources(loop), Lines{"node 1: " + keyDown('A', 'A', 2)});
}

TEST_F(SourcesFurther, GoOneByOne) {
  std::vector<sim::Node*> nodes;
  nodes.reserve(kMost);
  for (int i = 0; i < kMost; ++i) nodes.push_back(&joinAndOpen(i));
  const int open = machine.openDescriptors();
  for (int i = 0; i < kMost; ++i) {
    nodes[static_cast<std::size_t>(i)]->press(KEY_LEFTCTRL);
    round();
  }
  for (int i = 0; i < kMost; ++i) {
    nodes[static_cast<std::size_t>(i)]->unplug();
    EXPECT_EQ(rounds(2), Lines{keyUp(17, 0, i + 1 < kMost ? 1 : 0)});
  }
  EXPECT_EQ(machine.openDescriptors(), open - kMost);
}

TEST_F(SourcesFurther, AdoptWhatIsDownButNotTheirLight) {
  sim::Node& second = joinAndOpen(0);
  second.press(KEY_LEFTALT);
  second.report(EV_LED, LED_NUML, 1);
  reader.numLock = false;
  EXPECT_TRUE(sources.adopt(source(0)));
  EXPECT_EQ(reader.modifiers, 4U);
  EXPECT_FALSE(reader.numLock);
}

}  // namespace
}  // namespace quarlo::test
