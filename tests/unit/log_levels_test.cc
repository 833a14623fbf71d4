// Every message of the reader: the level at which it appears, and the level at which it no longer does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <ostream>
#include <string>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

struct Message {
  const char* name;
  std::string text;  // with its severity
  std::function<void(sim::Machine&)> cause;
};

// How GoogleTest shows it: not byte by byte.
void PrintTo(const Message& message, std::ostream* out) { *out << message.text; }

// A reader on what the machine has, at the usual paths.
void initialise(LinuxInputReader& reader) { reader.init(nullptr, nullptr, nullptr, 1280, 720); }

void openAll(sim::Machine& /*machine*/) {
  LinuxInputReader reader;
  initialise(reader);
}

void list(sim::Machine& /*machine*/) {
  testing::internal::CaptureStdout();
  LinuxInputReader().listLinuxInputReader();
  std::fflush(stdout);
  testing::internal::GetCapturedStdout();
}

void askAClosedDescriptor(bool (LinuxInputReader::*question)(int) const) {
  const LinuxInputReader reader;
  EXPECT_FALSE((reader.*question)(-1));
}

// A held remote key that two polls find quiet.
void holdARemoteKey(sim::Machine& machine) {
  sim::LircDaemon& daemon = machine.addLircDaemon();
  LinuxInputReader reader;
  initialise(reader);
  reader.lircKeyTime.tv_sec = static_cast<decltype(reader.lircKeyTime.tv_sec)>(machine.now() / 1s) - 1;
  daemon.send("KEY_OK");
  readOne(reader);
  daemon.send("KEY_OK", 1);
  readOne(reader);
  daemon.send("KEY_FOO");
  readOne(reader);
  machine.advance(300ms);
  readOne(reader);
  machine.advance(100ms);
  readOne(reader);
}

std::vector<Message> messages() {
  return {
      {"FoundAMouse", "INFO Found a mouse: /dev/input/event1 - Mouse",
       [](sim::Machine& machine) {
         machine.addNode("/dev/input/event1", Device::mouse("Mouse"));
         openAll(machine);
       }},
      {"FoundAKeyboard", "INFO Found a keyboard: /dev/input/event1 - Keyboard",
       [](sim::Machine& machine) {
         machine.addNode("/dev/input/event1", Device::keyboard("Keyboard"));
         openAll(machine);
       }},
      {"FoundALircDevice", "INFO Found a LIRC device: /var/lircd",
       [](sim::Machine& machine) {
         machine.addLircDaemon("/var/lircd");
         openAll(machine);
       }},
      {"NoMouse", "INFO Could not autodetect a suitable mouse device", openAll},
      {"NoKeyboard", "INFO Could not autodetect a suitable keyboard device", openAll},
      {"NoLirc", "INFO Could not autodetect a LIRC device", openAll},
      {"NotOpenMouse", "ERROR Could not open mouse device /dev/input/event7",
       [](sim::Machine&) { LinuxInputReader().init("/dev/input/event7", nullptr, nullptr, 1280, 720); }},
      {"NotOpenKeyboard", "ERROR Could not open keyboard device /dev/input/event7",
       [](sim::Machine&) { LinuxInputReader().init(nullptr, "/dev/input/event7", nullptr, 1280, 720); }},
      {"NotOpenLirc", "ERROR Could not open LIRC socket /run/lircd",
       [](sim::Machine&) { LinuxInputReader().init(nullptr, nullptr, "/run/lircd", 1280, 720); }},
      {"TestRel", "ERROR evdev ioctl failed in testRel",
       [](sim::Machine&) { askAClosedDescriptor(&LinuxInputReader::hasRelEvent); }},
      {"TestAbs", "ERROR evdev ioctl failed in testAbs",
       [](sim::Machine&) { askAClosedDescriptor(&LinuxInputReader::hasAbsEvent); }},
      {"TestKey", "ERROR evdev ioctl failed in testKey",
       [](sim::Machine&) { EXPECT_FALSE(LinuxInputReader().hasKeyEvent(-1, true)); }},
      {"ReadFailed", "ERROR Reading from input device failed, errno = " + std::to_string(EBADF),
       [](sim::Machine&) {
         InputEvent event = untouched();
         EXPECT_FALSE(LinuxInputReader().getInputEvent(-1, event));
       }},
      {"LircString", "VERBOSE2 LIRC string: 0000000000f40bf0 00 KEY_OK myremote\n", holdARemoteKey},
      {"LircUnknown", "VERBOSE2 LIRC unknown: FOO", holdARemoteKey},
      {"LircKeydown", "VERBOSE10 LIRC KEYDOWN 1000ms.",
       [](sim::Machine& machine) {
         machine.advance(1s - machine.now() % 1s);
         holdARemoteKey(machine);
       }},
      {"LircTimeout", "VERBOSE10 LIRC timeout 300ms.", holdARemoteKey},
      {"LircSkipped", "VERBOSE10 LIRC keypress skipped - too close.", holdARemoteKey},
      {"LircRepeatStarted", "VERBOSE10 LIRC key repeat mode started.", holdARemoteKey},
      {"LircRepeatStopped", "VERBOSE10 LIRC key repeat mode stopped.", holdARemoteKey},
      {"ListName", "INFO /dev/input/event1: Mouse",
       [](sim::Machine& machine) {
         machine.addNode("/dev/input/event1", Device::mouse("Mouse"));
         list(machine);
       }},
      {"ListMouse", "INFO Probably a mouse",
       [](sim::Machine& machine) {
         machine.addNode("/dev/input/event1", Device::mouse());
         list(machine);
       }},
      {"ListTouchscreen", "INFO Probably a touchscreen",
       [](sim::Machine& machine) {
         machine.addNode("/dev/input/event1", Device::touchscreen());
         list(machine);
       }},
      {"ListKeyboard", "INFO Probably a keyboard",
       [](sim::Machine& machine) {
         machine.addNode("/dev/input/event1", Device::keyboard());
         list(machine);
       }},
      {"ListTypes", "ERROR evdev ioctl",
       [](sim::Machine& machine) {
         machine.addNode("/dev/input/event1", Device::mouse()).setIoctlError(EVIOCGBIT(0, 0), EIO);
         list(machine);
       }},
  };
}

class LogLevelsTest : public MachineTest, public testing::WithParamInterface<Message> {
 protected:
  bool appears() {
    GetParam().cause(machine);
    const Lines log = takeLog();
    return std::find(log.begin(), log.end(), GetParam().text) != log.end();
  }

  // Sets the level that governs the message so that it is just wanted, or just not; the other is the opposite.
  void setLevel(bool wanted) {
    const std::string severity = GetParam().text.substr(0, GetParam().text.find(' '));
    if (severity.rfind("VERBOSE", 0) == 0) {
      const int level = std::stoi(severity.substr(7));
      setMinLogLevel(wanted ? 1000 : -1000);
      setVlogLevel(wanted ? level : level - 1);
    } else {
      const int level = severity == "INFO" ? 0 : 2;
      setVlogLevel(wanted ? -1000 : 1000);
      setMinLogLevel(wanted ? level : level + 1);
    }
  }
};

TEST_P(LogLevelsTest, AppearsAtItsLevel) {
  setLevel(true);
  EXPECT_TRUE(appears());
}

TEST_P(LogLevelsTest, IsSilentAtTheNext) {
  setLevel(false);
  EXPECT_FALSE(appears());
}

INSTANTIATE_TEST_SUITE_P(Messages, LogLevelsTest, testing::ValuesIn(messages()),
                         [](const testing::TestParamInfo<Message>& row) { return row.param.name; });

}  // namespace
}  // namespace quarlo::test
