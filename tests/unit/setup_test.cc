// init(): the three sources in their order, each failure logged and none in the way of the others.
#include <gtest/gtest.h>

#include <climits>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

class SetupTest : public MachineTest {
 protected:
  SetupTest() { machine.takeTrace(); }

  // The paths that were connected to, in order.
  Lines connectedPaths() {
    Lines paths;
    for (const std::string& call : machine.takeTrace()) {
      if (call.rfind("connect(", 0) != 0) continue;
      const std::size_t begin = call.find('"') + 1;
      paths.push_back(call.substr(begin, call.find('"', begin) - begin));
    }
    return paths;
  }

  LinuxInputReader reader;
};

TEST_F(SetupTest, Init_OnAnEmptyMachineTriesEverythingAndReturnsFalse) {
  EXPECT_FALSE(reader.init(nullptr, nullptr, nullptr, 1280, 720));
  EXPECT_EQ(takeLog(),
            Lines({"INFO Could not autodetect a suitable mouse device",
                   "INFO Could not autodetect a suitable keyboard device", "INFO Could not autodetect a LIRC device"}));
  EXPECT_EQ(machine.count(Call::kOpen), 22);
  EXPECT_EQ(connectedPaths(), Lines({"/var/run/lirc/lircd", "/var/lircd", "/dev/lircd", "/dev/lirc/lircd"}));
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(SetupTest, Init_KeepsTheBounds) {
  reader.init(nullptr, nullptr, nullptr, 1280, 720);
  EXPECT_EQ(reader.maxX, 1280);
  EXPECT_EQ(reader.maxY, 720);
}

TEST_F(SetupTest, Init_BoundsBeyondTheSignedRangeBecomeNegative) {
  reader.init(nullptr, nullptr, nullptr, 0xFFFFFFFF, 0x80000000);
  EXPECT_EQ(reader.maxX, -1);
  EXPECT_EQ(reader.maxY, INT_MIN);
}

TEST_F(SetupTest, Init_OpensMouseThenKeyboardThenLirc) {
  machine.addNode("/dev/input/event5", Device::mouse());
  machine.addNode("/dev/input/event6", Device::keyboard());
  machine.addLircDaemon("/dev/lircd");
  EXPECT_TRUE(reader.init("/dev/input/event5", "/dev/input/event6", "/dev/lircd", 1280, 720));
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "open(\"/dev/input/event5\", O_RDONLY|O_NONBLOCK) = 100",
                                     "open(\"/dev/input/event6\", O_RDONLY|O_NONBLOCK) = 101",
                                     "socket(AF_UNIX, SOCK_STREAM|SOCK_NONBLOCK, 0) = 102",
                                     "connect(102, \"/dev/lircd\", 110) = 0",
                                 }));
  EXPECT_EQ(reader.mouseFd, 100);
  EXPECT_EQ(reader.keyboardFd, 101);
  EXPECT_EQ(reader.lircFd, 102);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a LIRC device: /dev/lircd"}));
}

TEST_F(SetupTest, Init_FindsAllThreeByItself) {
  machine.addNode("/dev/input/event1", Device::mouse("Mouse"));
  machine.addNode("/dev/input/event2", Device::keyboard("Keyboard"));
  machine.addLircDaemon("/var/run/lirc/lircd");
  EXPECT_TRUE(reader.init(nullptr, nullptr, nullptr, 1280, 720));
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event1 - Mouse",
                              "INFO Found a keyboard: /dev/input/event2 - Keyboard",
                              "INFO Found a LIRC device: /var/run/lirc/lircd"}));
}

TEST_F(SetupTest, Init_NamesEachPathThatDoesNotOpenAndTriesNoOther) {
  machine.addNode("/dev/input/event1", Device::mouse());
  machine.addNode("/dev/input/event2", Device::keyboard());
  machine.addLircDaemon("/dev/lircd");
  EXPECT_FALSE(reader.init("/dev/input/event5", "/dev/input/event6", "/run/lircd", 1280, 720));
  EXPECT_EQ(takeLog(), Lines({"ERROR Could not open mouse device /dev/input/event5",
                              "ERROR Could not open keyboard device /dev/input/event6",
                              "ERROR Could not open LIRC socket /run/lircd"}));
  EXPECT_EQ(connectedPaths(), Lines({"/run/lircd"}));
}

TEST_F(SetupTest, Init_AWrongLircPathIsAnErrorWhileTheKeyboardWorks) {
  machine.addNode("/dev/input/event2", Device::keyboard("Keyboard"));
  EXPECT_TRUE(reader.init(nullptr, nullptr, "/run/lircd", 1280, 720));
  EXPECT_EQ(takeLog(), Lines({"INFO Could not autodetect a suitable mouse device",
                              "INFO Found a keyboard: /dev/input/event2 - Keyboard",
                              "ERROR Could not open LIRC socket /run/lircd"}));
  EXPECT_EQ(reader.lircFd, -1);
}

TEST_F(SetupTest, Init_AMouseAloneIsEnough) {
  machine.addNode("/dev/input/event2", Device::mouse());
  EXPECT_TRUE(reader.init(nullptr, nullptr, nullptr, 1280, 720));
  EXPECT_EQ(reader.mouseFd, 100);
  EXPECT_EQ(reader.keyboardFd, -1);
  EXPECT_EQ(reader.lircFd, -1);
}

TEST_F(SetupTest, Init_ASourceWithDescriptorZeroIsOpen) {
  const WithoutStandardInput without(machine);
  machine.addNode("/dev/input/event5", Device::mouse());
  machine.addNode("/dev/input/event6", Device::keyboard());
  machine.addLircDaemon("/var/lircd");
  const auto logOf = [](const char* mousePath, const char* keyboardPath, const char* lircPath) {
    EXPECT_TRUE(LinuxInputReader().init(mousePath, keyboardPath, lircPath, 1280, 720));
    return takeLog();
  };
  const std::string noMouse = "ERROR Could not open mouse device /none";
  const std::string noKeyboard = "ERROR Could not open keyboard device /none";
  const std::string noLirc = "ERROR Could not open LIRC socket /none";
  const std::string foundLirc = "INFO Found a LIRC device: /var/lircd";
  EXPECT_EQ(logOf("/dev/input/event5", "/none", "/none"), Lines({noKeyboard, noLirc}));
  EXPECT_EQ(logOf("/none", "/dev/input/event6", "/none"), Lines({noMouse, noLirc}));
  EXPECT_EQ(logOf("/none", "/none", "/var/lircd"), Lines({noMouse, noKeyboard, foundLirc}));
  EXPECT_EQ(logOf("/none", "/none", nullptr), Lines({noMouse, noKeyboard, foundLirc}));
}

TEST_F(SetupTest, Init_FindsADaemonAtEachOfItsPlacesAndStopsThere) {
  const Lines places = {"/var/run/lirc/lircd", "/var/lircd", "/dev/lircd", "/dev/lirc/lircd"};
  for (std::size_t i = places.size(); i-- > 0;) {
    machine.addLircDaemon(places[i]);
    EXPECT_TRUE(reader.init(nullptr, nullptr, nullptr, 1280, 720));
    EXPECT_EQ(takeLog().back(), "INFO Found a LIRC device: " + places[i]);
    EXPECT_EQ(connectedPaths(), Lines(places.begin(), places.begin() + static_cast<std::ptrdiff_t>(i) + 1));
  }
}

}  // namespace
}  // namespace quarlo::test
