// What most tests start from: a simulated machine, a log, and a reader on a keyboard and a mouse.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <initializer_list>
#include <string>

#include "sim/machine.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {

using namespace std::chrono_literals;
using sim::Call;
using sim::Device;

// The descriptors in the order in which a machine hands them out.
constexpr int kFirstDescriptor = 100;

// While it lives, the process has no standard input, and a machine can hand out descriptor 0.
class WithoutStandardInput {
 public:
  explicit WithoutStandardInput(sim::Machine& machine) : kept_(dup(STDIN_FILENO)) {
    close(STDIN_FILENO);
    machine.setFirstDescriptor(STDIN_FILENO);
  }
  ~WithoutStandardInput() {
    dup2(kept_, STDIN_FILENO);
    close(kept_);
  }
  WithoutStandardInput(const WithoutStandardInput&) = delete;
  WithoutStandardInput& operator=(const WithoutStandardInput&) = delete;

 private:
  int kept_;
};

// Clicks are counted for as long as the process lives. This has one of each button, long before the machine of a test
// starts: where none is remembered, or one from before a clock jumped, the next press can count as a double click.
class RememberedClicks {
 public:
  RememberedClicks() {
    sim::Machine machine;
    LinuxInputReader reader;
    for (const int button : {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE}) {
      input_event press = makeEvdevRecord(EV_KEY, button, 1);
      InputEvent event = untouched();
      reader.handleKeyEvent(&press, event);
    }
  }
};

// A machine without anything on it, in a process whose clicks are long ago.
class MachineTest : public testing::Test {
 protected:
  MachineTest() { resetLog(); }

  RememberedClicks rememberedClicks;
  sim::Machine machine;
};

// A reader that has a mouse, a keyboard and a remote, opened by path, with a clean log and trace. The pointer's bounds
// are those of a screen of 1281x721.
class ReaderTest : public MachineTest {
 protected:
  static constexpr int kMouseFd = kFirstDescriptor;
  static constexpr int kKeyboardFd = kFirstDescriptor + 1;
  static constexpr int kLircFd = kFirstDescriptor + 2;
  static constexpr int kMaxX = 1280;
  static constexpr int kMaxY = 720;

  ReaderTest() {
    reader.init("/dev/input/event0", "/dev/input/event1", "/run/lircd", kMaxX, kMaxY);
    takeLog();
    machine.takeTrace();
  }

  sim::Node& mouse = machine.addNode("/dev/input/event0", Device::mouse());
  sim::Node& keyboard = machine.addNode("/dev/input/event1", Device::keyboard());
  sim::LircDaemon& daemon = machine.addLircDaemon("/run/lircd");
  LinuxInputReader reader;
};

}  // namespace quarlo::test
