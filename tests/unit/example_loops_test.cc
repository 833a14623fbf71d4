// The loops of examples/, each with its main(), on the simulated machine.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <cerrno>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "logging/stderr_logging.h"
#include "sim/machine.h"

int drawingLoop(int argc, char** argv);
int epollLoop(int argc, char** argv);
int lastingLoop(int argc, char** argv);
int pollingLoop(int argc, char** argv);

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using sim::microseconds;

class ExampleLoop : public testing::Test {
 protected:
  ExampleLoop() { logging::SetMinLogLevel(logging::kError + 1); }

  // What a loop prints, after the sources, until Escape is pressed.
  Lines run(int (*loop)(int, char**), microseconds time) {
    machine.after(time, [this] { keyboard.press(KEY_ESC); });
    const microseconds start = machine.now();
    testing::internal::CaptureStdout();
    EXPECT_EQ(loop(1, nullptr), 0);
    std::istringstream out(testing::internal::GetCapturedStdout());
    lateness = machine.now() - start - time;
    std::string line;
    std::getline(out, line);
    EXPECT_EQ(line, "sources: mouse yes, keyboard yes, remote yes");
    Lines lines;
    while (std::getline(out, line)) lines.push_back(line);
    return lines;
  }

  // Calls a function again and again.
  template <typename Function>
  void each(microseconds period, Function happening) {
    machine.after(period, [this, period, happening] {
      happening();
      each(period, happening);
    });
  }

  sim::Machine machine;
  sim::Node& keyboard = machine.addNode("/dev/input/event0", sim::Device::keyboard());
  sim::Node& mouse = machine.addNode("/dev/input/event1", sim::Device::mouse());
  sim::LircDaemon& daemon = machine.addLircDaemon();
  microseconds lateness;  // of Escape
};

const std::string kEscape = "key down 27 char 27";

// ---- epoll --------------------------------------------------------------------------------------

using EpollLoop = ExampleLoop;

TEST_F(EpollLoop, SleepsButForItsClockAndForInput) {
  EXPECT_EQ(run(epollLoop, 10500ms), Lines({kEscape, "11 frames"}));
  EXPECT_EQ(lateness, 0ms);
}

TEST_F(EpollLoop, WakesForTheTimesOfTheRemote) {
  machine.after(100ms, [this] { daemon.send("KEY_UP"); });
  const Lines lines = run(epollLoop, 900ms);
  EXPECT_EQ(lines, Lines({"key down 38 char 0", "no longer held on the remote: 38", kEscape, "4 frames"}));
}

TEST_F(EpollLoop, SleepsAfterASourceIsGone) {
  machine.after(100ms, [this] { mouse.unplug(); });
  EXPECT_EQ(run(epollLoop, 900ms), Lines({"gone: mouse", kEscape, "2 frames"}));
}

// Edge-triggered, it would sleep on the line.
TEST_F(EpollLoop, IsToldAgainOfWhatItCouldNotRead) {
  machine.after(100ms, [this] {
    machine.fail(sim::Call::kRecv, 1, EINTR);
    daemon.send("KEY_UP");
  });
  EXPECT_EQ(run(epollLoop, 200ms).front(), "key down 38 char 0");
}

// ---- Drawing ------------------------------------------------------------------------------------

using DrawingLoop = ExampleLoop;

TEST_F(DrawingLoop, Draws60TimesASecond) {
  EXPECT_EQ(run(drawingLoop, 1010ms), Lines({kEscape, "60 frames"}));
  EXPECT_EQ(lateness, 0ms);
}

TEST_F(DrawingLoop, Draws60TimesASecondThoughTheMouseAndTheDaemonFlood) {
  machine.setTracing(false);
  machine.setCallTime(20us);
  each(125us, [this] { mouse.move(1, 1); });
  each(50us, [this] { daemon.sendText(std::string(126, 'x') + "\n"); });
  EXPECT_EQ(run(drawingLoop, 1010ms).back(), "60 frames");
  EXPECT_LT(lateness, 33ms);
}

// ---- Polling ------------------------------------------------------------------------------------

using PollingLoop = ExampleLoop;

TEST_F(PollingLoop, Wakes100TimesASecondForNothing) {
  EXPECT_EQ(run(pollingLoop, 10s), Lines({kEscape, "1000 frames"}));
}

TEST_F(PollingLoop, TakesNoWheelForAnEvent) {
  machine.after(100ms, [this] { mouse.move(5, 0); });
  machine.after(200ms, [this] {
    mouse.report(EV_REL, REL_WHEEL, 1);
    mouse.report(EV_SYN, SYN_REPORT, 0);
  });
  machine.after(300ms, [this] {
    mouse.press(BTN_SIDE);
    mouse.release(BTN_SIDE);
  });
  const Lines lines = run(pollingLoop, 400ms);
  EXPECT_EQ(Lines(lines.begin(), lines.end() - 1), Lines({"pointer 5,0", kEscape}));
}

// ---- Devices that come and go -------------------------------------------------------------------

class LastingLoop : public testing::Test {
 protected:
  LastingLoop() { logging::SetMinLogLevel(logging::kError + 1); }

  // What the loop prints until Escape is pressed on the keyboard that is then there.
  Lines run(microseconds time) {
    machine.after(time, [this] { keyboard->press(KEY_ESC); });
    const char* arguments[] = {"lasting_loop", "/dev/input/event1", "/dev/input/event0", "/var/run/lirc/lircd",
                               "/dev/input/event2"};
    testing::internal::CaptureStdout();
    EXPECT_EQ(lastingLoop(static_cast<int>(std::size(arguments)), const_cast<char**>(arguments)), 0);
    std::istringstream out(testing::internal::GetCapturedStdout());
    Lines lines;
    for (std::string line; std::getline(out, line);) lines.push_back(line);
    lines.pop_back();  // how many frames
    return lines;
  }

  sim::Machine machine;
  sim::Node* keyboard = &machine.addNode("/dev/input/event0", sim::Device::keyboard());
  sim::Node& mouse = machine.addNode("/dev/input/event1", sim::Device::mouse());
};

TEST_F(LastingLoop, GivesTheKeyUpsOfAnUnpluggedKeyboardAndTakesItBack) {
  machine.after(100ms, [this] { keyboard->press(KEY_LEFTSHIFT); });
  machine.after(200ms, [this] { keyboard->unplug(); });
  machine.after(900ms, [this] { keyboard = &machine.addNode("/dev/input/event0", sim::Device::keyboard()); });
  machine.after(2500ms, [this] { keyboard->press(KEY_A); });
  EXPECT_EQ(run(2600ms), Lines({"key down 16 char 0", "key up 16", "key down 65 char 97", kEscape}));
}

TEST_F(LastingLoop, HearsTheRemoteAgainAfterTheDaemonsRestart) {
  sim::LircDaemon* daemon = &machine.addLircDaemon();
  machine.after(100ms, [&] { daemon->send("KEY_UP"); });
  machine.after(600ms, [&] { daemon->stop(); });
  machine.after(800ms, [&] { daemon = &machine.addLircDaemon(); });
  machine.after(2500ms, [&] { daemon->send("KEY_DOWN"); });
  EXPECT_EQ(run(3500ms), Lines({"key down 38 char 0", "no longer held on the remote: 38", "key down 40 char 0",
                                "no longer held on the remote: 40", kEscape}));
}

TEST_F(LastingLoop, HasARemoteThatTheKernelDecodesBesideTheKeyboard) {
  sim::Node* receiver = nullptr;
  machine.after(100ms, [&] { receiver = &machine.addNode("/dev/input/event2", sim::Device::keyboard("Receiver")); });
  machine.after(1500ms, [this] { keyboard->press(KEY_LEFTSHIFT); });
  machine.after(1600ms, [&] { receiver->press(KEY_A); });
  EXPECT_EQ(run(1700ms), Lines({"key down 16 char 0", "key down 65 char 65", kEscape}));
}

TEST_F(LastingLoop, KnowsWhatIsDownAtItsStartAndOnWhatComesBack) {
  sim::Device device = sim::Device::keyboard();
  device.codes.erase(EV_REP);
  keyboard->unplug();
  keyboard = &machine.addNode("/dev/input/event0", device);
  keyboard->press(KEY_LEFTSHIFT);
  keyboard->report(EV_LED, LED_NUML, 1);
  keyboard->report(EV_SYN, SYN_REPORT, 0);
  machine.after(100ms, [this] { keyboard->press(KEY_KP1); });
  machine.after(200ms, [this] { keyboard->unplug(); });
  machine.after(300ms, [&] {
    keyboard = &machine.addNode("/dev/input/event0", device);
    keyboard->press(KEY_LEFTSHIFT);
  });
  machine.after(2500ms, [this] { keyboard->press(KEY_A); });
  EXPECT_EQ(run(2600ms), Lines({"key down 97 char 49", "key up 16", "key up 97", "key down 65 char 65", kEscape}));
}

}  // namespace
}  // namespace quarlo::test
