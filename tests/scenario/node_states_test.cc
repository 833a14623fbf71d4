// What a node says is down, lit or on, and what that takes away of the records that are queued.
#include <sys/ioctl.h>

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

}  // namespace
}  // namespace quarlo::test
