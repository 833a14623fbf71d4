// How an application tests its own input loop: on a simulated machine, in no time, without hardware.
#include "examples/menu.h"

#include <gtest/gtest.h>

#include "input/input_loop.h"
#include "sim/machine.h"

namespace sim = quarlo::sim;
using namespace std::chrono_literals;
using quarlo::components::input::InputLoop;
using quarlo::components::input::LinuxInputReader;
using std::chrono::milliseconds;

namespace {

class MenuTest : public testing::Test {
 protected:
  // The machine's clock moves while the application waits for input.
  void runFor(milliseconds time) {
    const sim::microseconds end = machine.now() + time;
    while (machine.now() < end) {
      menu.readInput(loop, static_cast<int>(std::chrono::ceil<milliseconds>(end - machine.now()).count()));
    }
  }

  // A button that is held down: a line each 110 ms, as with many remotes.
  void holdRemoteButton(const char* button, sim::microseconds time) {
    unsigned repeat = 0;
    for (sim::microseconds at = 0ms; at < time; at += 110ms, ++repeat) {
      machine.after(at, [this, button, repeat] { daemon.send(button, repeat); });
    }
  }

  sim::Machine machine;  // before the reader, which opens its devices
  sim::Node& keyboard = machine.addNode("/dev/input/event0", sim::Device::keyboard());
  sim::LircDaemon& daemon = machine.addLircDaemon();
  LinuxInputReader reader;
  bool open = reader.init(nullptr, nullptr, nullptr, 1919, 1079);
  InputLoop loop{reader};
  example::Menu menu{100};
};

TEST_F(MenuTest, AnArrowKeyMovesTheSelectionOnce) {
  keyboard.press(KEY_DOWN);
  keyboard.release(KEY_DOWN);
  runFor(20ms);
  EXPECT_EQ(menu.selected(), 1);
}

TEST_F(MenuTest, TheSelectionStaysWithinTheMenu) {
  keyboard.press(KEY_UP);
  runFor(20ms);
  EXPECT_EQ(menu.selected(), 0);
}

TEST_F(MenuTest, OkOfTheRemoteChooses) {
  daemon.send("KEY_OK");
  runFor(20ms);
  EXPECT_TRUE(menu.isChosen());
}

TEST_F(MenuTest, AHeldRemoteButtonMovesSlowlyAtFirst) {
  holdRemoteButton("KEY_DOWN", 300ms);
  runFor(300ms);
  EXPECT_EQ(menu.selected(), 1);  // the lines at 110 and 220 ms come too early to count
}

TEST_F(MenuTest, AHeldRemoteButtonThenMovesWithEachLine) {
  holdRemoteButton("KEY_DOWN", 1000ms);
  runFor(1000ms);
  EXPECT_EQ(menu.selected(), 8);  // at 0, 330, 440, 550, 660, 770, 880 and 990 ms
}

TEST_F(MenuTest, EachTapCountsThoughTheApplicationIsBusy) {
  daemon.send("KEY_DOWN");
  daemon.send("KEY_DOWN");
  machine.advance(200ms);  // it draws
  runFor(20ms);
  EXPECT_EQ(menu.selected(), 2);
}

TEST_F(MenuTest, TheRemoteGoesOnWhenTheKeyboardIsUnplugged) {
  keyboard.unplug();
  daemon.send("KEY_DOWN");
  runFor(20ms);
  EXPECT_EQ(menu.selected(), 1);
}

}  // namespace
