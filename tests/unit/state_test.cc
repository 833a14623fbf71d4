// Construction, destruction, and what the environment says.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

using StateTest = MachineTest;

static_assert(!std::is_copy_constructible_v<LinuxInputReader> && !std::is_copy_assignable_v<LinuxInputReader>);
static_assert(std::is_standard_layout_v<LinuxInputReader>);
static_assert(sizeof(InputEvent) == 20);

TEST_F(StateTest, Construct_StartsWithNothingOpenNothingHeldAndThePointerAtTheOrigin) {
  const LinuxInputReader reader;
  EXPECT_FALSE(reader.pointerMoved);
  EXPECT_EQ(reader.pointerX, 0);
  EXPECT_EQ(reader.pointerY, 0);
  EXPECT_EQ(reader.mouseFd, -1);
  EXPECT_EQ(reader.pressedButton, 0);
  EXPECT_EQ(reader.keyboardFd, -1);
  EXPECT_EQ(reader.lircFd, -1);
  EXPECT_EQ(reader.lircKey, 0);
  EXPECT_EQ(reader.lircKeyTime.tv_sec, 0);
  EXPECT_EQ(reader.lircKeyTime.tv_usec, 0);
  EXPECT_FALSE(reader.lircRepeatMode);
  EXPECT_EQ(reader.lircTimeout, 0);
  EXPECT_EQ(reader.maxFd, -1);
  EXPECT_EQ(reader.modifiers, 0U);
  EXPECT_FALSE(reader.numLock);
  EXPECT_FALSE(reader.hasPendingEvent);
}

TEST_F(StateTest, Fields_LieInTheOrderThatDiagnosticsExpect) {
  const std::size_t offsets[] = {
      offsetof(LinuxInputReader, pointerMoved),
      offsetof(LinuxInputReader, pointerX),
      offsetof(LinuxInputReader, pointerY),
      offsetof(LinuxInputReader, mouseFd),
      offsetof(LinuxInputReader, maxX),
      offsetof(LinuxInputReader, maxY),
      offsetof(LinuxInputReader, pressedButton),
      offsetof(LinuxInputReader, keyboardFd),
      offsetof(LinuxInputReader, lircFd),
      offsetof(LinuxInputReader, lircKey),
      offsetof(LinuxInputReader, lircChar),
      offsetof(LinuxInputReader, lircKeyTime),
      offsetof(LinuxInputReader, lircRepeatMode),
      offsetof(LinuxInputReader, lircTimeout),
      offsetof(LinuxInputReader, readSet),
      offsetof(LinuxInputReader, maxFd),
      offsetof(LinuxInputReader, modifiers),
      offsetof(LinuxInputReader, numLock),
      offsetof(LinuxInputReader, pendingEvent),
      offsetof(LinuxInputReader, hasPendingEvent),
      offsetof(LinuxInputReader, lircRepeatTimeout),
      offsetof(LinuxInputReader, lircReleaseTimeout),
  };
  EXPECT_TRUE(std::is_sorted(std::begin(offsets), std::end(offsets)));
  EXPECT_EQ(offsetof(LinuxInputReader, pointerMoved), 0U);
}

TEST_F(StateTest, Construct_OnlyReadsTheTwoVariablesRepeatFirst) {
  const LinuxInputReader reader;
  EXPECT_EQ(machine.takeTrace(),
            Lines({"getenv(\"LIRC_REPEAT_TIMEOUT\") = null", "getenv(\"LIRC_RELEASE_TIMEOUT\") = null"}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(StateTest, Construct_ZeroesTheHoldingSlotWithItsPadding) {
  alignas(LinuxInputReader) unsigned char storage[sizeof(LinuxInputReader)];
  memset(storage, 0xEE, sizeof storage);
  auto* reader = new (storage) LinuxInputReader;
  const std::array<unsigned char, sizeof(InputEvent)> zeroes = {};
  EXPECT_EQ(bytesOf(reader->pendingEvent), zeroes);
  reader->~LinuxInputReader();
}

TEST_F(StateTest, Destroy_ClosesThreeTimesEvenIfNothingIsOpen) {
  std::optional<LinuxInputReader> reader(std::in_place);
  machine.takeTrace();
  reader.reset();
  EXPECT_EQ(machine.takeTrace(), Lines({"close(-1) = -1 EBADF", "close(-1) = -1 EBADF", "close(-1) = -1 EBADF"}));
}

TEST_F(StateTest, Destroy_ClosesMouseKeyboardAndLircInThisOrder) {
  machine.addNode("/dev/input/event0", Device::mouse());
  machine.addNode("/dev/input/event1", Device::keyboard());
  machine.addLircDaemon("/dev/lircd");
  std::optional<LinuxInputReader> reader(std::in_place);
  ASSERT_TRUE(reader->init("/dev/input/event0", "/dev/input/event1", "/dev/lircd", 1280, 720));
  machine.takeTrace();
  reader.reset();
  EXPECT_EQ(machine.takeTrace(), Lines({"close(100) = 0", "close(101) = 0", "close(102) = 0"}));
  EXPECT_EQ(machine.openDescriptors(), 0);
}

struct Timeout {
  const char* name;   // of its tests
  const char* value;  // null: not set
  int repeat;
  int release;
};

void PrintTo(const Timeout& timeout, std::ostream* out) {
  *out << (timeout.value != nullptr ? timeout.value : "not set");
}

class TimeoutTest : public MachineTest, public testing::WithParamInterface<Timeout> {};

TEST_P(TimeoutTest, TakesTheNumberOrTheDefault) {
  const Timeout& row = GetParam();
  if (row.value != nullptr) machine.setEnvironment("LIRC_REPEAT_TIMEOUT", row.value);
  EXPECT_EQ(LinuxInputReader().lircRepeatTimeout, row.repeat);
  EXPECT_EQ(LinuxInputReader().lircReleaseTimeout, 300);
}

TEST_P(TimeoutTest, TakesTheNumberOrTheDefaultForTheRelease) {
  const Timeout& row = GetParam();
  if (row.value != nullptr) machine.setEnvironment("LIRC_RELEASE_TIMEOUT", row.value);
  EXPECT_EQ(LinuxInputReader().lircReleaseTimeout, row.release);
  EXPECT_EQ(LinuxInputReader().lircRepeatTimeout, 100);
}

constexpr Timeout kTimeouts[] = {
    {"NotSet", nullptr, 100, 300},
    {"Empty", "", 100, 300},
    {"Zero", "0", 100, 300},
    {"Negative", "-5", 100, 300},
    {"One", "1", 1, 1},
    {"Number", "450", 450, 450},
    {"NumberWithUnit", "150ms", 150, 150},
    {"NumberAfterASpace", " 150", 150, 150},
    {"Hexadecimal", "0x10", 100, 300},
    {"Word", "fast", 100, 300},
    {"LargestOf32Bits", "2147483647", INT_MAX, INT_MAX},
    {"LargerThan32Bits", "2147483648", INT_MAX, INT_MAX},
    {"LargerThan64Bits", "99999999999999999999", INT_MAX, INT_MAX},
    {"SmallerThan32Bits", "-2147483649", 100, 300},
    {"SmallerThan64Bits", "-99999999999999999999", 100, 300},
    {"OneMoreThan32BitsUnsigned", "4294967297", INT_MAX, INT_MAX},
};

INSTANTIATE_TEST_SUITE_P(Values, TimeoutTest, testing::ValuesIn(kTimeouts),
                         [](const auto& timeout) { return timeout.param.name; });

}  // namespace
}  // namespace quarlo::test
