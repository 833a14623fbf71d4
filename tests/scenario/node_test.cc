// What an evdev node does, by itself: the ground that the reader stands on.
#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <utility>

#include "tests/scenario/node_client.h"
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

constexpr long kReleaseGrab = 0;

using NodeTest = ScenarioTest;

// ---- What gets through --------------------------------------------------------------------------

TEST_F(NodeTest, ARecordHasTheSizeOfThisPlatform) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_A);
  char buffer[100];
  EXPECT_EQ(read(client.fd(), buffer, sizeof buffer), sizeof(long) == 4 ? 2 * 16 : 2 * 24);
}

TEST_F(NodeTest, ReadingLessThanARecordIsInvalid) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_A);
  char buffer[8];
  EXPECT_EQ(read(client.fd(), buffer, sizeof buffer), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(NodeTest, NothingIsReadableBeforeTheReport) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  device.report(EV_REL, REL_X, 5);
  EXPECT_EQ(client.all(), Lines({}));
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({"2 0 5", kReport}));
}

TEST_F(NodeTest, AReportOfNothingNewIsDropped) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  device.report(EV_REL, REL_X, 0);       // a zero step
  device.report(EV_REL, REL_HWHEEL, 1);  // a code that the device does not have
  device.report(EV_ABS, ABS_X, 1);       // a type that it does not have
  device.report(EV_KEY, BTN_LEFT, 0);    // a state that it has already
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({}));
}

TEST_F(NodeTest, ARepeatedStateIsDroppedButNotAnAutoRepeat) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  device.report(EV_KEY, BTN_LEFT, 1);
  device.report(EV_KEY, BTN_LEFT, 1);
  device.report(EV_KEY, BTN_LEFT, 2);
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({"1 272 1", "1 272 2", kReport}));
}

TEST_F(NodeTest, ARepeatedPositionIsDroppedButNotAScanCode) {
  Description description = touchscreen();
  description.codes[EV_MSC] = {MSC_SCAN};
  Plugged& device = world->plug(description);
  const NodeClient client(device.path());
  for (int i = 0; i < 2; ++i) {
    device.report(EV_ABS, ABS_X, 7);
    device.report(EV_MSC, MSC_SCAN, 4);
  }
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({"3 0 7", "4 4 4", "4 4 4", kReport}));
}

TEST_F(NodeTest, AKeyIsDownWhateverValueSaysSo) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.report(EV_KEY, KEY_A, 3);
  device.report(EV_SYN, SYN_REPORT, 0);
  device.press(KEY_A);
  device.release(KEY_A);
  EXPECT_EQ(client.all(), Lines({"1 30 3", kReport, kReleaseA, kReport}));
}

TEST_F(NodeTest, ALightAndASwitchAreOnOrOffAndASoundIsAlwaysPassedOn) {
  Plugged& device = world->plug({"Lights", {{EV_LED, {LED_MAIL}}, {EV_SW, {SW_LID}}, {EV_SND, {SND_TONE}}}});
  const NodeClient client(device.path());
  for (const int value : {1, 2}) {
    device.report(EV_LED, LED_MAIL, value);
    device.report(EV_SW, SW_LID, value);
    device.report(EV_SND, SND_TONE, value);
  }
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({"17 9 1", "5 0 1", "18 2 1", "18 2 2", kReport}));
}

TEST_F(NodeTest, APacketThatIsLongerThanExpectedIsCut) {
  Plugged& device = world->plug(keyboard());  // 8 records are expected of it
  const NodeClient client(device.path());
  for (int code = KEY_Q; code < KEY_Q + 8; ++code) device.report(EV_KEY, code, 1);
  const Lines records = client.all();
  ASSERT_EQ(records.size(), 9U);
  EXPECT_EQ(records.back(), "0 0 1");
}

TEST_F(NodeTest, EachDescriptorHasItsOwnQueueFromItsOpening) {
  Plugged& device = world->plug(keyboard());
  const NodeClient first(device.path());
  device.press(KEY_A);
  const NodeClient second(device.path());
  device.release(KEY_A);
  EXPECT_EQ(first.all(), Lines({kPressA, kReport, kReleaseA, kReport}));
  EXPECT_EQ(second.all(), Lines({kReleaseA, kReport}));
}

// ---- The time of records -----------------------------------------------------------------------

int setClock(const NodeClient& client, clockid_t clock) { return ioctl(client.fd(), EVIOCSCLOCKID, &clock); }

std::chrono::microseconds now(clockid_t clock) {
  timespec time = {};
  EXPECT_EQ(clock_gettime(clock, &time), 0);
  return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_nsec / 1000);
}

std::chrono::microseconds timeOfNext(const NodeClient& client) {
  input_event record = {};
  EXPECT_EQ(read(client.fd(), &record, sizeof record), static_cast<ssize_t>(sizeof record));
  return std::chrono::seconds(record.input_event_sec) + std::chrono::microseconds(record.input_event_usec);
}

TEST_F(NodeTest, EachDescriptorsRecordsHaveTheTimeOfTheClockThatItChose) {
  world->jumpClock(5s);
  Plugged& device = world->plug(keyboard());
  for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_MONOTONIC, CLOCK_BOOTTIME}) {
    const NodeClient client(device.path());
    EXPECT_EQ(setClock(client, clock), 0);
    const auto before = now(clock);
    device.tap(KEY_A);
    EXPECT_GE(timeOfNext(client), before);
    EXPECT_LE(timeOfNext(client), now(clock));
  }
}

TEST_F(NodeTest, UnlessItChoseAnotherItsTimeIsThatOnTheWall) {
  world->jumpClock(5s);
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  const auto before = now(CLOCK_REALTIME);
  device.tap(KEY_A);
  EXPECT_GE(timeOfNext(client), before);
}

TEST_F(NodeTest, AnotherClockTakesAwayWhatIsQueued) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  EXPECT_EQ(setClock(client, CLOCK_MONOTONIC), 0);
  device.press(KEY_A);
  EXPECT_EQ(setClock(client, CLOCK_MONOTONIC), 0);
  EXPECT_EQ(client.all(), Lines({kPressA, kReport}));
  device.release(KEY_A);
  EXPECT_EQ(setClock(client, CLOCK_REALTIME), 0);
  EXPECT_EQ(client.all(), Lines({}));
  device.press(KEY_A);
  EXPECT_EQ(client.all(), Lines({kDropped, kPressA, kReport}));
}

TEST_F(NodeTest, ItsClockIsOneOfThree) {
  const NodeClient client(world->plug(keyboard()).path());
  EXPECT_EQ(setClock(client, CLOCK_MONOTONIC_RAW), -1);
  EXPECT_EQ(errno, EINVAL);
}

// ---- Auto-repeat --------------------------------------------------------------------------------

TEST_F(NodeTest, AHeldKeyRepeatsByItselfWithReportsOfValue1) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path(), 0);
  device.press(KEY_A);
  Lines records;
  for (int i = 0; i < 6; ++i) records.push_back(client.next());
  EXPECT_EQ(records, Lines({kPressA, kReport, "1 30 2", "0 0 1", "1 30 2", "0 0 1"}));
}

TEST_F(NodeTest, TheRepeatStartsAfter250MsAtSome30ASecond) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_A);
  world->pass(240ms);
  EXPECT_EQ(client.all(), Lines({kPressA, kReport}));
  world->pass(1010ms);
  const std::size_t repeats = client.all().size() / 2;
  EXPECT_GT(repeats, 20U);
  EXPECT_LT(repeats, 32U);
}

TEST_F(NodeTest, TheLastKeyPressedRepeats) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path(), 0);
  device.press(KEY_A);
  device.press(KEY_B);
  Lines records;
  for (int i = 0; i < 6; ++i) records.push_back(client.next());
  EXPECT_EQ(records, Lines({kPressA, kReport, "1 48 1", kReport, "1 48 2", "0 0 1"}));
}

TEST_F(NodeTest, TheReleaseOfAnyKeyEndsTheRepeat) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_A);
  device.press(KEY_B);
  device.release(KEY_A);
  world->pass(500ms);
  EXPECT_EQ(client.all(), Lines({kPressA, kReport, "1 48 1", kReport, kReleaseA, kReport}));
}

TEST_F(NodeTest, ADeviceWithoutAutoRepeatDoesNotRepeat) {
  Plugged& device = world->plug(mediaKeys());
  const NodeClient client(device.path());
  device.press(KEY_MUTE);
  world->pass(500ms);
  EXPECT_EQ(client.all(), Lines({"1 113 1", kReport}));
}

// ---- A full queue -------------------------------------------------------------------------------

// The ring holds one less than its size: a full one counts as overrun.
TEST_F(NodeTest, AKeyboardsQueueHolds63Records) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  for (int i = 0; i < 31; ++i) i % 2 == 0 ? device.press(KEY_A) : device.release(KEY_A);  // 62 records
  EXPECT_EQ(client.all().size(), 62U);
}

TEST_F(NodeTest, AFullKeyboardQueueKeepsOnlyTheNewestRecordBehindSynDropped) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  for (int i = 0; i < 32; ++i) i % 2 == 0 ? device.press(KEY_A) : device.release(KEY_A);  // 64 records
  EXPECT_EQ(client.all(), Lines({kDropped, kReport}));
}

TEST_F(NodeTest, AMousesQueueHolds127Records) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  for (int i = 0; i < 42; ++i) device.move(1, 1);  // 126 records
  EXPECT_EQ(client.all().size(), 126U);
  for (int i = 0; i < 43; ++i) device.move(1, 1);  // the 128th is the second of a report
  EXPECT_EQ(client.all(), Lines({kDropped, "2 1 1", kReport}));
}

TEST_F(NodeTest, AfterSynDroppedTheRestOfTheReportFollows) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  for (int i = 0; i < 32; ++i) i % 2 == 0 ? device.press(KEY_A) : device.release(KEY_A);
  device.report(EV_KEY, KEY_B, 1);
  EXPECT_EQ(client.all(), Lines({kDropped, kReport}));
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({"1 48 1", kReport}));
}

// However much was read of the queue before it ran over.
TEST_F(NodeTest, SynDroppedComesFirstInARead) {
  constexpr std::size_t kAQueue = 63;
  constexpr int kWhole = 64;  // more than there is
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  for (std::size_t taken = 1; taken < kAQueue; ++taken) {
    for (int i = 0; i < 15; ++i) device.tap(KEY_A);
    device.press(KEY_A);  // 62 records
    EXPECT_EQ(client.read(taken).size(), taken);
    device.release(KEY_A);
    for (std::size_t i = 0; i <= taken / 4; ++i) device.tap(KEY_B);
    const Lines rest = client.read(kWhole);
    EXPECT_EQ(rest.front(), kDropped) << "after " << taken;
    EXPECT_EQ(std::count(rest.begin(), rest.end(), kDropped), 1) << "after " << taken;
    EXPECT_EQ(client.all(), Lines({}));
  }
}

// ---- Unplugging ---------------------------------------------------------------------------------

TEST_F(NodeTest, AnUnpluggedDeviceIsReadableGivesEnodevAndLosesItsQueue) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_A);
  device.unplug();
  fd_set set;
  FD_ZERO(&set);
  FD_SET(client.fd(), &set);
  timeval timeout = {1, 0};
  EXPECT_EQ(select(client.fd() + 1, &set, nullptr, nullptr, &timeout), 1);
  EXPECT_EQ(client.all(), Lines({std::strerror(ENODEV)}));
  EXPECT_EQ(ioctl(client.fd(), EVIOCGRAB, kGrab), -1);
  EXPECT_EQ(errno, ENODEV);
}

TEST_F(NodeTest, AnUnpluggedDevicesPathDoesNotOpen) {
  Plugged& device = world->plug(keyboard());
  device.unplug();
  EXPECT_EQ(NodeClient(device.path()).fd(), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(NodeTest, TheNextDeviceTakesTheNumberWhileTheOldDescriptorStaysDead) {
  Plugged& device = world->plug(keyboard());
  const NodeClient old(device.path());
  device.unplug();
  Plugged& next = world->plug(keyboard());
  EXPECT_EQ(next.path(), device.path());
  const NodeClient client(next.path());
  next.press(KEY_A);
  EXPECT_EQ(client.all(), Lines({kPressA, kReport}));
  EXPECT_EQ(old.all(), Lines({std::strerror(ENODEV)}));
}

// ---- Grabbing -----------------------------------------------------------------------------------

TEST_F(NodeTest, AGrabKeepsRecordsFromOthersAndEndsWithItsDescriptor) {
  Plugged& device = world->plug(keyboard());
  const NodeClient other(device.path());
  {
    const NodeClient holder(device.path());
    EXPECT_EQ(ioctl(holder.fd(), EVIOCGRAB, kGrab), 0);
    device.press(KEY_A);
    EXPECT_EQ(other.all(), Lines({}));
    EXPECT_EQ(holder.all(), Lines({kPressA, kReport}));
  }
  device.release(KEY_A);
  EXPECT_EQ(other.all(), Lines({kReleaseA, kReport}));
}

TEST_F(NodeTest, ASecondGrabIsBusyAlsoOfTheSameDescriptor) {
  Plugged& device = world->plug(keyboard());
  const NodeClient holder(device.path());
  const NodeClient other(device.path());
  EXPECT_EQ(ioctl(holder.fd(), EVIOCGRAB, kGrab), 0);
  for (const int fd : {holder.fd(), other.fd()}) {
    EXPECT_EQ(ioctl(fd, EVIOCGRAB, kGrab), -1);
    EXPECT_EQ(errno, EBUSY);
  }
}

TEST_F(NodeTest, OnlyTheHolderCanLetGo) {
  Plugged& device = world->plug(keyboard());
  const NodeClient holder(device.path());
  const NodeClient other(device.path());
  EXPECT_EQ(ioctl(holder.fd(), EVIOCGRAB, kReleaseGrab), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(ioctl(holder.fd(), EVIOCGRAB, kGrab), 0);
  EXPECT_EQ(ioctl(other.fd(), EVIOCGRAB, kReleaseGrab), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(ioctl(holder.fd(), EVIOCGRAB, kReleaseGrab), 0);
}

TEST_F(NodeTest, AnotherProcessCanHoldItWhileItStillOpens) {
  Plugged& device = world->plug(keyboard());
  ASSERT_TRUE(device.grabElsewhere());
  const NodeClient client(device.path());
  ASSERT_NE(client.fd(), -1);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGRAB, kGrab), -1);
  EXPECT_EQ(errno, EBUSY);
  device.press(KEY_A);
  EXPECT_EQ(client.all(), Lines({}));
  device.letGoElsewhere();
  device.release(KEY_A);
  EXPECT_EQ(client.all(), Lines({kReleaseA, kReport}));
}

// ---- What a node says about itself --------------------------------------------------------------

TEST_F(NodeTest, ANameThatDoesNotFitIsCutWithoutANul) {
  const NodeClient client(world->plug(keyboard("Keyboard")).path());
  char name[16];
  std::memset(name, '#', sizeof name);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGNAME(3), name), 3);
  EXPECT_EQ(std::string(name, 4), "Key#");
  EXPECT_EQ(ioctl(client.fd(), EVIOCGNAME(16), name), 9);
  EXPECT_STREQ(name, "Keyboard");
}

TEST_F(NodeTest, CapabilitiesAreAnsweredInWholeLongsButNeverMoreThanAsked) {
  const NodeClient client(world->plug(keyboard()).path());
  unsigned char bits[128] = {};
  EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(0, 31), bits), static_cast<int>(sizeof(long)));
  EXPECT_EQ(bits[0] | bits[1] << 8 | bits[2] << 16, 1 << EV_SYN | 1 << EV_KEY | 1 << EV_MSC | 1 << EV_REP);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(EV_REL, 2), bits), 2);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(EV_ABS, 8), bits), 8);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(EV_KEY, 96), bits), 96);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(EV_KEY, 128), bits), 96);
}

TEST_F(NodeTest, EachEventTypeIsAnsweredWithAsManyLongsAsItsCodesTake) {
  const NodeClient client(world->plug(keyboard()).path());
  const std::pair<int, int> counts[] = {{EV_SYN, EV_CNT},  {EV_KEY, KEY_CNT}, {EV_REL, REL_CNT},
                                        {EV_ABS, ABS_CNT}, {EV_MSC, MSC_CNT}, {EV_LED, LED_CNT},
                                        {EV_SND, SND_CNT}, {EV_FF, FF_CNT},   {EV_SW, SW_CNT}};
  unsigned char bits[128];
  for (const auto& [type, count] : counts) {
    constexpr int kBitsOfALong = 8 * sizeof(long);
    const int longs = (count + kBitsOfALong - 1) / kBitsOfALong;
    EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(type, sizeof bits), bits), longs * static_cast<int>(sizeof(long))) << type;
  }
  for (const int type : {EV_PWR, EV_FF_STATUS, EV_MAX}) {
    EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(type, sizeof bits), bits), -1) << type;
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST_F(NodeTest, TheCodesOfAutoRepeatCannotBeAskedFor) {
  const NodeClient client(world->plug(keyboard()).path());
  unsigned char bits[8];
  EXPECT_EQ(ioctl(client.fd(), EVIOCGBIT(EV_REP, sizeof bits), bits), -1);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
}  // namespace quarlo::test
