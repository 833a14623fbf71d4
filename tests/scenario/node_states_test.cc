// What a node says is down, lit or on, and what that takes away of the records that are queued.
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "tests/scenario/node_client.h"
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

using NodeStatesTest = ScenarioTest;

using Codes = std::vector<int>;

constexpr std::size_t kBytes = (KEY_MAX / 8) + 1;

// The codes whose bits a request with room for kBytes bytes sets, in rising order.
Codes ask(const NodeClient& client, unsigned long request) {
  unsigned char bits[kBytes] = {};
  EXPECT_NE(ioctl(client.fd(), request, bits), -1) << std::strerror(errno);
  Codes codes;
  for (int code = 0; code <= KEY_MAX; ++code) {
    if ((bits[code / 8] >> (code % 8) & 1) != 0) codes.push_back(code);
  }
  return codes;
}

Codes keysDown(const NodeClient& client) { return ask(client, EVIOCGKEY(kBytes)); }

// A keyboard with two lights that a console leaves alone.
Description keyboardWithLights() {
  Description device = keyboard();
  device.codes[EV_LED] = {LED_MAIL, LED_CHARGING};
  return device;
}

// ---- The answer ---------------------------------------------------------------------------------

TEST_F(NodeStatesTest, KeysThatWereDownBeforeTheOpeningAreTold) {
  Plugged& device = world->plug(keyboard());
  device.press(KEY_LEFTSHIFT);
  device.press(KEY_A);
  device.tap(KEY_B);
  const NodeClient client(device.path());
  EXPECT_EQ(keysDown(client), Codes({KEY_A, KEY_LEFTSHIFT}));
  EXPECT_EQ(client.all(), Lines({}));
  device.release(KEY_A);
  EXPECT_EQ(client.all(), Lines({kReleaseA, kReport}));
  EXPECT_EQ(keysDown(client), Codes({KEY_LEFTSHIFT}));
}

TEST_F(NodeStatesTest, ButtonsAreKeys) {
  Plugged& device = world->plug(mouse());
  device.press(BTN_LEFT);
  device.press(BTN_EXTRA);
  EXPECT_EQ(keysDown(NodeClient(device.path())), Codes({BTN_LEFT, BTN_EXTRA}));
}

TEST_F(NodeStatesTest, AKeyThatRepeatsIsDown) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path(), 0);
  device.press(KEY_A);
  while (client.next() != "1 30 2") continue;
  EXPECT_EQ(keysDown(client), Codes({KEY_A}));
}

TEST_F(NodeStatesTest, WhatADeviceDoesNotHaveOrRepeatsIsNotDown) {
  Plugged& device = world->plug(mouse());
  device.report(EV_KEY, KEY_A, 1);
  device.report(EV_KEY, BTN_LEFT, 2);
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(keysDown(NodeClient(device.path())), Codes({}));
}

TEST_F(NodeStatesTest, AKeyIsDownBeforeItsReportAndItsRecordStillComes) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.report(EV_KEY, KEY_A, 1);
  EXPECT_EQ(keysDown(client), Codes({KEY_A}));
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({kPressA, kReport}));
}

TEST_F(NodeStatesTest, LightsSoundsAndSwitchesAreToldApartFromKeys) {
  Plugged& device = world->plug(
      {"All",
       {{EV_KEY, {KEY_A}}, {EV_LED, {LED_MAIL, LED_CHARGING}}, {EV_SND, {SND_TONE}}, {EV_SW, {SW_LID, SW_DOCK}}}});
  const NodeClient client(device.path());
  device.press(KEY_A);
  device.report(EV_LED, LED_MAIL, 1);
  device.report(EV_LED, LED_CHARGING, 1);
  device.report(EV_LED, LED_MAIL, 0);
  device.report(EV_SND, SND_TONE, 440);
  device.report(EV_SW, SW_DOCK, 1);
  EXPECT_EQ(keysDown(client), Codes({KEY_A}));
  EXPECT_EQ(ask(client, EVIOCGLED(kBytes)), Codes({LED_CHARGING}));
  EXPECT_EQ(ask(client, EVIOCGSND(kBytes)), Codes({SND_TONE}));
  EXPECT_EQ(ask(client, EVIOCGSW(kBytes)), Codes({SW_DOCK}));
}

TEST_F(NodeStatesTest, TheAnswerIsInWholeLongsButNeverMoreThanAsked) {
  Plugged& device = world->plug(keyboardWithLights());
  device.press(KEY_A);
  const NodeClient client(device.path());
  unsigned char bits[128];
  const auto answer = [&](unsigned long request) {
    std::memset(bits, 0xEE, sizeof bits);
    return ioctl(client.fd(), request, bits);
  };
  EXPECT_EQ(answer(EVIOCGKEY(128)), 96);
  EXPECT_EQ(bits[96], 0xEE);
  EXPECT_EQ(answer(EVIOCGKEY(4)), 4);
  EXPECT_EQ(bits[3], 1 << (KEY_A % 8));
  EXPECT_EQ(bits[4], 0xEE);
  EXPECT_EQ(answer(EVIOCGKEY(0)), 0);
  EXPECT_EQ(bits[0], 0xEE);
  for (const unsigned long request : {EVIOCGLED(16), EVIOCGSND(16), EVIOCGSW(16)}) {
    EXPECT_EQ(answer(request), static_cast<int>(sizeof(long)));
    EXPECT_EQ(bits[0], 0);
    EXPECT_EQ(bits[sizeof(long)], 0xEE);
  }
  EXPECT_EQ(answer(EVIOCGLED(1)), 1);
}

TEST_F(NodeStatesTest, AnUnpluggedDeviceTellsNothing) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_A);
  device.unplug();
  unsigned char bits[kBytes];
  EXPECT_EQ(ioctl(client.fd(), EVIOCGKEY(kBytes), bits), -1);
  EXPECT_EQ(errno, ENODEV);
}

TEST_F(NodeStatesTest, ADeviceThatIsPluggedInAgainHasNothingDown) {
  Plugged& device = world->plug(keyboard());
  device.press(KEY_A);
  device.unplug();
  EXPECT_EQ(keysDown(NodeClient(world->plug(keyboard()).path())), Codes({}));
}

// ---- The records that are queued ----------------------------------------------------------------

TEST_F(NodeStatesTest, TapsThatAreQueuedAreTakenAwayAndTheirFirstReportIsLeft) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  for (int i = 0; i < 3; ++i) device.tap(KEY_A);
  device.press(KEY_B);
  EXPECT_EQ(keysDown(client), Codes({KEY_B}));
  EXPECT_EQ(client.all(), Lines({kReport}));
  device.release(KEY_B);
  EXPECT_EQ(client.all(), Lines({"1 48 0", kReport}));
}

TEST_F(NodeStatesTest, WhatIsReadBeforeIsNotTakenAway) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.tap(KEY_A);
  EXPECT_EQ(client.next(), kPressA);
  EXPECT_EQ(keysDown(client), Codes({}));
  EXPECT_EQ(client.all(), Lines({kReport}));
  EXPECT_EQ(keysDown(client), Codes({}));
  EXPECT_EQ(client.all(), Lines({}));
}

TEST_F(NodeStatesTest, MotionAndItsReportsStay) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  device.press(BTN_LEFT);
  device.move(1, 2);
  device.release(BTN_LEFT);
  device.report(EV_KEY, BTN_RIGHT, 1);
  device.report(EV_REL, REL_X, 3);
  device.report(EV_SYN, SYN_REPORT, 0);
  device.tap(BTN_MIDDLE);
  device.move(4, 5);
  EXPECT_EQ(keysDown(client), Codes({BTN_RIGHT}));
  EXPECT_EQ(client.all(), Lines({kReport, "2 0 1", "2 1 2", kReport, "2 0 3", kReport, "2 0 4", "2 1 5", kReport}));
}

TEST_F(NodeStatesTest, OnlyTheFirstReportIsLeftEmpty) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  device.move(1, 2);
  device.tap(BTN_LEFT);
  EXPECT_EQ(keysDown(client), Codes({}));
  EXPECT_EQ(client.all(), Lines({"2 0 1", "2 1 2", kReport}));
}

TEST_F(NodeStatesTest, ScanCodesStayWithTheirReports) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  for (const int value : {1, 0}) {
    device.report(EV_MSC, MSC_SCAN, 4);
    device.report(EV_KEY, KEY_A, value);
    device.report(EV_SYN, SYN_REPORT, 0);
  }
  EXPECT_EQ(keysDown(client), Codes({}));
  EXPECT_EQ(client.all(), Lines({"4 4 4", kReport, "4 4 4", kReport}));
}

TEST_F(NodeStatesTest, AReportOfARepeatIsTakenAwayToo) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_A);
  world->pass(400ms);
  device.release(KEY_A);
  EXPECT_EQ(keysDown(client), Codes({}));
  EXPECT_EQ(client.all(), Lines({kReport}));
}

TEST_F(NodeStatesTest, OnlyTheTypeThatIsAskedForIsTakenAway) {
  Plugged& device = world->plug(keyboardWithLights());
  const NodeClient client(device.path());
  const auto report = [&] {
    device.tap(KEY_A);
    device.report(EV_LED, LED_MAIL, 1);
    device.report(EV_SYN, SYN_REPORT, 0);
    device.report(EV_LED, LED_MAIL, 0);
    device.report(EV_SYN, SYN_REPORT, 0);
  };
  report();
  EXPECT_EQ(ask(client, EVIOCGLED(kBytes)), Codes({}));
  EXPECT_EQ(client.all(), Lines({kPressA, kReport, kReleaseA, kReport}));
  report();
  EXPECT_EQ(keysDown(client), Codes({}));
  EXPECT_EQ(client.all(), Lines({kReport, "17 9 1", kReport, "17 9 0", kReport}));
  report();
  EXPECT_EQ(ask(client, EVIOCGSW(kBytes)), Codes({}));
  EXPECT_EQ(ask(client, EVIOCGSND(kBytes)), Codes({}));
  EXPECT_EQ(client.all(), Lines({kPressA, kReport, kReleaseA, kReport, "17 9 1", kReport, "17 9 0", kReport}));
}

TEST_F(NodeStatesTest, AnAnswerOfNoBytesTakesThemAwayAsWell) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.tap(KEY_A);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGKEY(0), nullptr), 0);
  EXPECT_EQ(client.all(), Lines({kReport}));
}

TEST_F(NodeStatesTest, OtherDescriptorsKeepTheirRecords) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  const NodeClient other(device.path());
  device.press(KEY_A);
  EXPECT_EQ(keysDown(client), Codes({KEY_A}));
  EXPECT_EQ(client.all(), Lines({kReport}));
  EXPECT_EQ(other.all(), Lines({kPressA, kReport}));
}

TEST_F(NodeStatesTest, AShiftThatIsReleasedInWhatWasLostIsNotDown) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.press(KEY_LEFTSHIFT);
  EXPECT_EQ(client.all(), Lines({"1 42 1", kReport}));
  device.press(KEY_B);
  device.release(KEY_LEFTSHIFT);
  for (int i = 0; i < 15; ++i) device.tap(KEY_A);  // the 64th record is the last one's SYN_REPORT
  device.press(KEY_C);
  EXPECT_EQ(client.all(), Lines({kDropped, kReport, "1 46 1", kReport}));
  EXPECT_EQ(keysDown(client), Codes({KEY_C, KEY_B}));
}

TEST_F(NodeStatesTest, SynDroppedStays) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  for (int i = 0; i < 32; ++i) device.tap(BTN_LEFT);
  device.tap(BTN_LEFT);
  device.press(BTN_RIGHT);
  EXPECT_EQ(keysDown(client), Codes({BTN_RIGHT}));
  EXPECT_EQ(client.all(), Lines({kDropped, kReport}));
}

TEST_F(NodeStatesTest, SynDroppedComesFirstInWhatIsReadAfterTheQuestion) {
  constexpr std::size_t kWhole = 128;  // more than there is
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  for (const int moves : {1, 20, 40}) {
    for (int i = 0; i < moves; ++i) device.move(1, 1);
    device.tap(BTN_LEFT);
    EXPECT_EQ(keysDown(client), Codes({}));
    EXPECT_EQ(client.read(2), Lines({"2 0 1", "2 1 1"}));
    for (int i = moves; i <= 43; ++i) device.move(1, 1);
    const Lines overflown = client.read(kWhole);
    EXPECT_EQ(overflown.front(), kDropped);
    EXPECT_EQ(std::count(overflown.begin(), overflown.end(), kDropped), 1);

    for (int i = 0; i < 43; ++i) device.move(1, 1);
    device.tap(BTN_LEFT);
    EXPECT_EQ(keysDown(client), Codes({}));
    const Lines asked = client.read(kWhole);
    EXPECT_EQ(asked.front(), kDropped);
    EXPECT_EQ(std::count(asked.begin(), asked.end(), kDropped), 1);
  }
}

TEST_F(NodeStatesTest, AQueueWhoseRingGoesRoundIsMovedTogether) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  for (int i = 0; i < 40; ++i) device.move(1, 1);  // 120 of 128 records
  EXPECT_EQ(client.all().size(), 120U);
  for (int step = 1; step <= 4; ++step) {
    device.tap(BTN_LEFT);
    device.move(step, 0);
  }
  EXPECT_EQ(keysDown(client), Codes({}));
  EXPECT_EQ(client.all(), Lines({kReport, "2 0 1", kReport, "2 0 2", kReport, "2 0 3", kReport, "2 0 4", kReport}));
  for (int i = 0; i < 42; ++i) device.move(1, 1);
  EXPECT_EQ(client.all().size(), 126U);
}

// ---- An answer that cannot be given -------------------------------------------------------------

TEST_F(NodeStatesTest, ABadAddressLeavesSynDroppedForTheNextReport) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  device.move(1, 2);
  device.press(BTN_LEFT);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGKEY(kBytes), nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(client.all(), Lines({"2 0 1", "2 1 2", kReport}));
  device.release(BTN_LEFT);
  EXPECT_EQ(client.all(), Lines({kDropped, "1 272 0", kReport}));
}

TEST_F(NodeStatesTest, ABadAddressWhereThereIsNoRoomLeavesNothingButSynDropped) {
  Plugged& device = world->plug(mouse());
  const NodeClient client(device.path());
  for (int i = 0; i < 41; ++i) device.move(1, 1);
  for (int i = 0; i < 2; ++i) device.move(1, 0);  // 127 records: all there is room for
  EXPECT_EQ(ioctl(client.fd(), EVIOCGKEY(kBytes), nullptr), -1);
  EXPECT_EQ(client.all(), Lines({}));
  device.press(BTN_LEFT);
  EXPECT_EQ(client.all(), Lines({kDropped, "1 272 1", kReport}));
}

// ---- Together with a grab -----------------------------------------------------------------------

TEST_F(NodeStatesTest, StatesAreToldThoughAnotherProcessHasTheGrab) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  ASSERT_TRUE(device.grabElsewhere());
  device.press(KEY_A);
  EXPECT_EQ(keysDown(client), Codes({KEY_A}));
  device.letGoElsewhere();
  device.release(KEY_A);
  EXPECT_EQ(client.all(), Lines({kReleaseA, kReport}));
}

TEST_F(NodeStatesTest, AGrabLeavesWhatOthersHaveQueuedAndTheirKeysGoUpUnseen) {
  Plugged& device = world->plug(keyboard());
  const NodeClient other(device.path());
  device.press(KEY_A);
  {
    const NodeClient holder(device.path());
    EXPECT_EQ(ioctl(holder.fd(), EVIOCGRAB, kGrab), 0);
    EXPECT_EQ(keysDown(holder), Codes({KEY_A}));
    device.release(KEY_A);
    EXPECT_EQ(holder.all(), Lines({kReleaseA, kReport}));
  }
  EXPECT_EQ(other.all(), Lines({kPressA, kReport}));
  EXPECT_EQ(keysDown(other), Codes({}));
}

}  // namespace
}  // namespace quarlo::test
