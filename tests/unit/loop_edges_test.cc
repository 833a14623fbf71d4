// InputLoop at its edges: bounds, limits of time, descriptors that are the lowest, or none, and what it leaves alone.

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>

#include "tests/unit/loop_test.h"

namespace quarlo::test {
namespace {

using LoopEdges = LoopTest;

void pressOften(sim::Node& node, int code, int times) {
  for (int i = 0; i < times; ++i) {
    node.inject(EV_KEY, code, 1);
    node.inject(EV_SYN, SYN_REPORT, 0);
  }
}

// How many of the next events come before the round is over, when each takes so long.
int takeSlowly(sim::Machine& machine, InputLoop& loop, std::chrono::microseconds each) {
  int taken = 0;
  for (InputEvent event; loop.next(event); ++taken) machine.advance(each);
  return taken;
}

// ---- How much a round takes ---------------------------------------------------------------------

TEST_F(LoopEdges, EndsARoundByTimeAtThe32ndEventAtTheEarliest) {
  loop.setBound(1000, 2);
  pressOften(mouse, BTN_LEFT, 60);
  loop.wait(0);
  EXPECT_EQ(takeSlowly(machine, loop, 125us), 32);  // 2 ms after the 16th
  loop.wait(0);
  EXPECT_EQ(takeSlowly(machine, loop, 100us), 28);
}

TEST_F(LoopEdges, EndsARoundByTimeAtEach16thEventLater) {
  loop.setBound(1000, 2);
  pressOften(mouse, BTN_LEFT, 60);
  loop.wait(0);
  EXPECT_EQ(takeSlowly(machine, loop, 124us), 48);
}

TEST_F(LoopEdges, ReadsTheClockAtEach16thEventOnly) {
  pressOften(keyboard, KEY_A, 31);
  loop.wait(0);
  InputEvent event;
  for (int taken = 1; taken <= 31; ++taken) {
    ASSERT_TRUE(loop.next(event));
    EXPECT_EQ(machine.count(Call::kGettimeofday), taken / 16) << taken;
  }
}

TEST_F(LoopEdges, TakesOneEventOfASourceWhereThatIsTheBound) {
  loop.setBound(1, 1000);
  pressOften(keyboard, KEY_A, 2);
  pressOften(mouse, BTN_LEFT, 1);
  EXPECT_EQ(takeNow(loop), (Lines{keyDown('A', 'a'), buttonDown(1, 0, 0, 1)}));
  EXPECT_EQ(takeNow(loop), Lines{keyDown('A', 'a')});
}

TEST_F(LoopEdges, CountsAMoveTowardsTheBound) {
  loop.setBound(2, 1000);
  for (int i = 0; i < 60; ++i) mouse.inject(EV_REL, REL_X, 1);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(takeNow(loop), (Lines{moved(20, 0), moved(40, 0)}));
  EXPECT_EQ(takeNow(loop), Lines{moved(60, 0)});
}

TEST_F(LoopEdges, WritesEachFieldOfAWheelsEvent) {
  mouse.inject(EV_REL, REL_X, 300);
  mouse.inject(EV_REL, REL_HWHEEL, -3);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  loop.wait(0);
  InputEvent event = untouched();
  ASSERT_TRUE(loop.next(event));
  for (const bool isHeld : {true, false}) {
    event = untouched();
    ASSERT_TRUE(loop.next(event));
    EXPECT_EQ(event.kind, InputLoop::kWheelEvent);
    EXPECT_EQ(event.flags, 0);
    EXPECT_EQ(event.mouseData.action, InputLoop::kHorizontal);
    EXPECT_EQ(event.mouseData.button, isHeld ? -3 : 2);
    EXPECT_EQ(event.mouseData.x, 300);
    EXPECT_EQ(event.mouseData.y, 0);
    EXPECT_EQ(event.mouseData.clicks, 0);
    mouse.inject(EV_REL, REL_HWHEEL, 2);
    mouse.inject(EV_SYN, SYN_REPORT, 0);
    loop.wait(0);
  }
}

TEST_F(LoopEdges, TakesAsManyEventsAsTheBoundOfNewLoopsSays) {
  sim::Node& other = machine.addNode("/dev/input/event2", Device::mouse());
  LinuxInputReader otherReader;
  otherReader.init("/dev/input/event2", "/nowhere", "/run/lircd", kMaxX, kMaxY);
  InputLoop otherLoop(otherReader);
  pressOften(other, BTN_LEFT, 63);
  for (int i = 0; i < 129; ++i) daemon.send("KEY_UP");
  EXPECT_EQ(takeNow(otherLoop).size(), 63 + InputLoop::kDefaultBoundEvents);
  EXPECT_EQ(takeNow(otherLoop).size(), 1);
}

// ---- Limits of time -----------------------------------------------------------------------------

TEST_F(LoopEdges, SaysThatTheApplicationsTimeIsOverWhereTheRemotesTimeComesWithIt) {
  daemon.send("KEY_OK");
  takeNow(loop);
  EXPECT_EQ(text(loop.wait(300)), "timeout");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_TRUE(reader.lircRepeatMode);
}

TEST_F(LoopEdges, SleepsNoLongerThanAnIntSays) {
  reader.lircKey = 13;
  reader.lircRepeatMode = true;
  reader.lircTimeout = 2'000'000'000;
  reader.lircKeyTime.tv_sec = static_cast<decltype(timeval::tv_sec)>(machine.now() / 1s + 1'000'000);
  EXPECT_EQ(loop.timeoutMs(), INT_MAX);
}

TEST_F(LoopEdges, AsksNoDescriptorWhenTheRemotesTimeHasCome) {
  daemon.send("KEY_OK");
  takeNow(loop);
  machine.advance(300ms);
  loop.wait(0);
  machine.takeTrace();
  takeAll(loop);
  const Lines calls = machine.takeTrace();
  ASSERT_EQ(calls.size(), 4U);
  EXPECT_EQ(calls[1], "recv(102, 1, MSG_PEEK|MSG_DONTWAIT) = -1 EAGAIN");
  EXPECT_EQ(calls[2], "read(-1, 127) = -1 EBADF");
}

// ---- Waiting ------------------------------------------------------------------------------------

TEST_F(LoopEdges, WaitsForTheDescriptorsThatThereAre) {
  const int own = eventfd(0, EFD_NONBLOCK);
  machine.takeTrace();
  loop.wait(0);
  EXPECT_EQ(machine.takeTrace(), Lines{"poll([101 POLLIN, 100 POLLIN, 102 POLLIN], 0.000000) = 0"});
  loop.wait(0, own);
  EXPECT_EQ(machine.takeTrace(),
            Lines{"poll([101 POLLIN, 100 POLLIN, 102 POLLIN, " + std::to_string(own) + " POLLIN], 0.000000) = 0"});
  close(own);
}

TEST_F(LoopEdges, WaitsForADescriptor0OfTheApplications) {
  const WithoutStandardInput without(machine);
  const int own = eventfd(1, EFD_NONBLOCK);
  EXPECT_EQ(own, 0);
  EXPECT_EQ(text(loop.wait(1000, own)), "own descriptor");
  close(own);
}

TEST_F(LoopEdges, ReadsNoClockForAWaitThatDoesNotWait) {
  daemon.send("KEY_OK");
  takeNow(loop);
  const int before = machine.count(Call::kGettimeofday);
  EXPECT_EQ(text(loop.wait(0)), "timeout");
  EXPECT_EQ(machine.count(Call::kGettimeofday), before);
  loop.wait(1);
  EXPECT_EQ(machine.count(Call::kGettimeofday), before + 1);
}

// ---- A reader that is used directly -------------------------------------------------------------

TEST_F(LoopEdges, DoesNotSleepOnWhatTheReaderHolds) {
  mouse.inject(EV_REL, REL_X, 5);
  mouse.inject(EV_KEY, BTN_LEFT, 1);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readOne(reader), moved(5, 0));
  EXPECT_EQ(loop.timeoutMs(), 0);
  EXPECT_EQ(text(loop.wait(-1)), "input");
  EXPECT_EQ(takeAll(loop), Lines{buttonDown(1, 5, 0, 1)});
  EXPECT_EQ(loop.timeoutMs(), -1);
}

// ---- Descriptors --------------------------------------------------------------------------------

TEST_F(MachineTest, LoopReadsDescriptor0) {
  const WithoutStandardInput without(machine);
  sim::Node& keyboard = machine.addNode("/dev/input/event1", Device::keyboard());
  LinuxInputReader reader;
  reader.init("/nowhere", "/dev/input/event1", "/nowhere", 1280, 720);
  ASSERT_EQ(reader.keyboardFd, 0);
  InputLoop loop(reader);
  pollfd fds[InputLoop::kMaxDescriptors];
  ASSERT_EQ(loop.descriptors(fds), 1);
  EXPECT_EQ(fds[0].fd, 0);
  EXPECT_EQ(fds[0].events, POLLIN);
  EXPECT_EQ(fds[0].revents, 0);
  keyboard.press(KEY_A);
  loop.setReady(0, POLLIN);
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
  keyboard.press(KEY_B);
  loop.setAllReady();
  EXPECT_EQ(takeAll(loop), Lines{keyDown('B', 'b')});
}

TEST_F(MachineTest, LoopReadsADaemonAtDescriptor0) {
  const WithoutStandardInput without(machine);
  sim::LircDaemon& daemon = machine.addLircDaemon("/run/lircd");
  LinuxInputReader reader;
  reader.init("/nowhere", "/nowhere", "/run/lircd", 1280, 720);
  ASSERT_EQ(reader.lircFd, 0);
  InputLoop loop(reader);
  daemon.send("KEY_OK");
  EXPECT_EQ(takeNow(loop), Lines{keyDown(13, 13)});
  machine.advance(300ms);
  loop.wait(0);
  daemon.send("KEY_OK", 1);  // since the wait
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_FALSE(reader.lircRepeatMode);
}

TEST_F(MachineTest, LoopAsksNoSourceThatIsNotOpen) {
  machine.addNode("/dev/input/event1", Device::keyboard());
  LinuxInputReader reader;
  reader.init("/nowhere", "/dev/input/event1", "/nowhere", 1280, 720);
  InputLoop loop(reader);
  takeLog();
  loop.setAllReady();
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(loop.gone(), 0U);
  EXPECT_EQ(takeLog(), Lines{});
}

TEST_F(LoopEdges, TakesNoDescriptorForASourceThatIsGone) {
  mouse.unplug();
  takeNow(loop);
  loop.wait(0);
  loop.setReady(-1, POLLIN);
  EXPECT_EQ(loop.timeoutMs(), -1);
}

TEST_F(LoopEdges, TellsDescriptorsApartByNumbersThatDoNotComeBack) {
  std::set<std::uint32_t> generations = {loop.generation()};
  mouse.unplug();
  keyboard.unplug();
  takeNow(loop);
  EXPECT_EQ(loop.gone(), 1U << InputLoop::kKeyboard | 1U << InputLoop::kMouse);
  EXPECT_TRUE(generations.insert(loop.generation()).second);
  machine.addNode("/dev/input/event1", Device::keyboard());
  const int unplugged = reader.keyboardFd;
  reader.keyboardFd = reader.openDevice("/dev/input/event1", false);
  EXPECT_TRUE(generations.insert(loop.generation()).second);
  EXPECT_EQ(loop.gone(), 1U << InputLoop::kMouse);
  reader.mouseFd = -1;
  EXPECT_TRUE(generations.insert(loop.generation()).second);
  EXPECT_EQ(loop.gone(), 0U);
  close(unplugged);
}

TEST_F(LoopEdges, MakesNoPipeForTheEndOfADaemon) {
  daemon.stop();
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(machine.count(Call::kPipe2), 0);
  EXPECT_EQ(machine.count(Call::kRecv), 1);
}

TEST_F(LoopEdges, ClosesNothingWhereItHasMadeNoPipe) {
  ASSERT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
  {
    InputLoop other(reader);
    other.wait(0);
    machine.takeTrace();
  }
  EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
  EXPECT_EQ(machine.takeTrace(), Lines{});
}

// ---- FIFOs --------------------------------------------------------------------------------------

// A FIFO of a name of its own, opened to be read.
class Fifo {
 public:
  Fifo() {
    char folder[] = "/tmp/quarlo-fifo-XXXXXX";
    folder_ = mkdtemp(folder);
    path_ = folder_ + "/fifo";
    mkfifo(path_.c_str(), S_IRUSR | S_IWUSR);
  }
  ~Fifo() {
    unlink(path_.c_str());
    rmdir(folder_.c_str());
  }
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;

  const char* path() const { return path_.c_str(); }

 private:
  std::string folder_;
  std::string path_;
};

TEST_F(MachineTest, LoopWaitsForTheFirstWriterOfAFifoAndSeesTheLastOneGo) {
  machine.setCallTime(0us);
  const Fifo fifo;
  LinuxInputReader reader;
  reader.init("/nowhere", fifo.path(), "/nowhere", 1280, 720);
  InputLoop loop(reader);
  takeLog();
  const auto start = machine.now();
  loop.setAllReady();
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(loop.gone(), 0U);
  EXPECT_EQ(machine.now(), start);
  const int writer = open(fifo.path(), O_WRONLY | O_NONBLOCK);
  const input_event record = makeEvdevRecord(EV_KEY, KEY_A, 1);
  ASSERT_EQ(write(writer, &record, sizeof record), sizeof record);
  EXPECT_EQ(takeNow(loop), Lines{keyDown('A', 'a')});
  close(writer);
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(text(loop.wait(-1)), "keyboard is gone");
  EXPECT_EQ(takeLog(), Lines{"loop: ERROR Lost the keyboard, errno = 0"});
}

// Records of keys, as bytes.
std::string keyRecords(int first, int count) {
  std::string bytes;
  for (int i = 0; i < count; ++i) {
    input_event record = makeEvdevRecord(EV_KEY, first + i % 8, i % 2);
    record.input_event_sec = 0x01020304;
    record.input_event_usec = 0x05060;
    bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
  }
  return bytes;
}

Lines textOfKeys(LinuxInputReader& reader, const std::string& bytes) {
  Lines lines;
  for (std::size_t at = 0; at < bytes.size(); at += sizeof(input_event)) {
    input_event record;
    bytes.copy(reinterpret_cast<char*>(&record), sizeof record, at);
    InputEvent event = untouched();
    reader.translateEvent(&record, event);
    lines.push_back(text(event));
  }
  return lines;
}

// In two parts, and then as many as are read at once and more.
TEST_F(MachineTest, LoopPutsRecordsOfAFifoTogetherWhereverTheyWereCut) {
  const Fifo fifo;
  LinuxInputReader reader;
  reader.init("/nowhere", fifo.path(), "/nowhere", 1280, 720);
  const int writer = open(fifo.path(), O_WRONLY | O_NONBLOCK);
  InputLoop loop(reader);
  const std::string few = keyRecords(KEY_Q, 3);
  const std::string many = keyRecords(KEY_A, 100);
  for (std::size_t cut = 1; cut < few.size(); ++cut) {
    Lines taken;
    const auto send = [&](const std::string& bytes) {
      ASSERT_EQ(write(writer, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
      for (const std::string& line : takeNow(loop)) taken.push_back(line);
    };
    send(few.substr(0, cut));
    send(few.substr(cut) + many);
    EXPECT_EQ(taken, textOfKeys(reader, few + many)) << cut;
  }
  close(writer);
}

// ---- The log ------------------------------------------------------------------------------------

TEST_F(LoopEdges, LogsWhereErrorsAreWanted) {
  setMinLogLevel(2);
  keyboard.unplug();
  takeNow(loop);
  EXPECT_EQ(takeLog(), Lines{"loop: ERROR Lost the keyboard, errno = 19"});
  setMinLogLevel(3);
  mouse.unplug();
  takeNow(loop);
  EXPECT_EQ(takeLog(), Lines{});
  EXPECT_EQ(text(loop.wait(-1)), "mouse is gone");
}

}  // namespace
}  // namespace quarlo::test
