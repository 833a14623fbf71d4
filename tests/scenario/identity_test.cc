// What a node says about itself beside its codes: who it is, where it is, what its axes are like.
#include <linux/input.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "tests/scenario/node_client.h"
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

using IdentityTest = ScenarioTest;

// What a request with room for `size` bytes answers: the count and the text, or the error.
std::string textOf(const NodeClient& client, unsigned long request) {
  char text[64];
  std::memset(text, '#', sizeof text);
  const int length = ioctl(client.fd(), request, text);
  if (length == -1) return std::strerror(errno);
  EXPECT_EQ(text[length], '#');
  return std::to_string(length) + " " + std::string(text, static_cast<std::size_t>(length));
}

std::string withNul(const std::string& text) { return text + '\0'; }

// "delay period", in ms, or the error.
std::string autoRepeatOf(const NodeClient& client) {
  unsigned times[2];
  if (ioctl(client.fd(), EVIOCGREP, times) == -1) return std::strerror(errno);
  return std::to_string(times[0]) + " " + std::to_string(times[1]);
}

// "value minimum maximum fuzz flat resolution", or the error.
std::string axisOf(const NodeClient& client, unsigned axis) {
  input_absinfo info;
  if (ioctl(client.fd(), EVIOCGABS(axis), &info) == -1) return std::strerror(errno);
  std::string text = std::to_string(info.value);
  for (const int number : {info.minimum, info.maximum, info.fuzz, info.flat, info.resolution}) {
    text += " " + std::to_string(number);
  }
  return text;
}

TEST_F(IdentityTest, ADeviceHasABusAVendorAProductAndAVersion) {
  Description device = mouse();
  device.id = {BUS_USB, 0x046d, 0xc52b, 0x0111};
  const NodeClient client(world->plug(device).path());
  input_id id = {};
  EXPECT_EQ(ioctl(client.fd(), EVIOCGID, &id), 0);
  EXPECT_EQ(id.bustype, BUS_USB);
  EXPECT_EQ(id.vendor, 0x046d);
  EXPECT_EQ(id.product, 0xc52b);
  EXPECT_EQ(id.version, 0x0111);
}

TEST_F(IdentityTest, APlaceIsToldAsATextThatIsCutWithoutANul) {
  Description device = mouse();
  device.phys = "usb-1/input1";
  const NodeClient client(world->plug(device).path());
  EXPECT_EQ(textOf(client, EVIOCGPHYS(63)), withNul("13 usb-1/input1"));
  EXPECT_EQ(textOf(client, EVIOCGPHYS(13)), withNul("13 usb-1/input1"));
  EXPECT_EQ(textOf(client, EVIOCGPHYS(5)), "5 usb-1");
  EXPECT_EQ(textOf(client, EVIOCGPHYS(0)), "0 ");
}

TEST_F(IdentityTest, WithoutAPlaceAndANumberThereIsNoSuchEntry) {
  const NodeClient client(world->plug(mouse()).path());
  EXPECT_EQ(textOf(client, EVIOCGPHYS(63)), std::strerror(ENOENT));
  EXPECT_EQ(textOf(client, EVIOCGUNIQ(63)), std::strerror(ENOENT));
  EXPECT_EQ(textOf(client, EVIOCGPHYS(0)), std::strerror(ENOENT));
}

TEST_F(IdentityTest, PropertiesAreAnsweredInALongButNeverMoreThanAsked) {
  Description device = touchscreen();
  device.properties = {INPUT_PROP_DIRECT, INPUT_PROP_ACCELEROMETER};
  const NodeClient client(world->plug(device).path());
  unsigned char bits[16];
  std::memset(bits, 0xEE, sizeof bits);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGPROP(sizeof bits), bits), static_cast<int>(sizeof(long)));
  EXPECT_EQ(bits[0], 1 << INPUT_PROP_DIRECT | 1 << INPUT_PROP_ACCELEROMETER);
  EXPECT_EQ(bits[1], 0);
  EXPECT_EQ(bits[sizeof(long)], 0xEE);
  std::memset(bits, 0xEE, sizeof bits);
  EXPECT_EQ(ioctl(client.fd(), EVIOCGPROP(1), bits), 1);
  EXPECT_EQ(bits[1], 0xEE);
}

// ---- Auto-repeat --------------------------------------------------------------------------------

TEST_F(IdentityTest, AKeyboardRepeatsAfter250MsAndThenEach33) {
  EXPECT_EQ(autoRepeatOf(NodeClient(world->plug(keyboard()).path())), "250 33");
}

TEST_F(IdentityTest, WhatDoesNotRepeatHasNoSuchFunction) {
  EXPECT_EQ(autoRepeatOf(NodeClient(world->plug(mouse()).path())), std::strerror(ENOSYS));
}

TEST_F(IdentityTest, TheTimesOfTheRepeatAreTheDevices) {
  Description device = keyboard();
  device.repeatDelay = 500ms;
  device.repeatPeriod = 125ms;
  Plugged& plugged = world->plug(device);
  const NodeClient client(plugged.path());
  EXPECT_EQ(autoRepeatOf(client), "500 125");
  plugged.press(KEY_A);
  world->pass(490ms);
  EXPECT_EQ(client.all(), Lines({kPressA, kReport}));
  world->pass(1060ms);  // up to 50 ms before the tenth
  EXPECT_GE(client.all().size() / 2, 8U);
  world->pass(1250ms);
  const std::size_t repeats = client.all().size() / 2;
  EXPECT_GE(repeats, 9U);
  EXPECT_LE(repeats, 11U);
}

TEST_F(IdentityTest, TheTimesOfTheRepeatCanBeChangedAndThatIsARecord) {
  Plugged& plugged = world->plug(keyboard());
  const NodeClient client(plugged.path());
  plugged.report(EV_REP, REP_DELAY, 400);
  plugged.report(EV_REP, REP_DELAY, 400);  // as it is already
  plugged.report(EV_REP, REP_PERIOD, 100);
  plugged.report(EV_REP, REP_PERIOD, -1);
  plugged.report(EV_REP, REP_MAX + 1, 100);
  EXPECT_EQ(autoRepeatOf(client), "400 100");
  plugged.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({"20 0 400", "20 1 100", kReport}));
}

TEST_F(IdentityTest, WithoutADelayOrAPeriodNothingRepeats) {
  for (const auto& [delay, period] : {std::pair(0ms, 33ms), std::pair(250ms, 0ms)}) {
    Description device = keyboard();
    device.repeatDelay = delay;
    device.repeatPeriod = period;
    Plugged& plugged = world->plug(device);
    const NodeClient client(plugged.path());
    plugged.press(KEY_A);
    world->pass(600ms);
    EXPECT_EQ(client.all(), Lines({kPressA, kReport})) << delay.count() << " " << period.count();
  }
}

TEST_F(IdentityTest, APeriodThatBecomes0EndsTheRepeatWithTheNextOne) {
  Plugged& plugged = world->plug(keyboard());
  const NodeClient client(plugged.path());
  plugged.press(KEY_A);
  world->pass(300ms);
  plugged.report(EV_REP, REP_PERIOD, 0);
  plugged.report(EV_SYN, SYN_REPORT, 0);
  const Lines before = client.all();
  EXPECT_EQ(before[before.size() - 2], "20 1 0");
  world->pass(500ms);
  EXPECT_EQ(client.all(), Lines({"1 30 2", "0 0 1"}));
}

// ---- Axes ---------------------------------------------------------------------------------------

TEST_F(IdentityTest, AnAxisHasARangeAndAPosition) {
  Description device = touchscreen();
  device.axes[ABS_X] = {100, -50, 1920, 0, 3, 12};
  Plugged& plugged = world->plug(device);
  const NodeClient client(plugged.path());
  EXPECT_EQ(axisOf(client, ABS_X), "100 -50 1920 0 3 12");
  EXPECT_EQ(axisOf(client, ABS_Y), "0 0 4095 0 0 0");
  plugged.report(EV_ABS, ABS_X, 100);  // where it is already
  plugged.report(EV_ABS, ABS_Y, 7000);
  EXPECT_EQ(axisOf(client, ABS_Y), "7000 0 4095 0 0 0");
  plugged.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(client.all(), Lines({"3 1 7000", kReport}));
}

TEST_F(IdentityTest, AnAxisThatADeviceDoesNotHaveIsZeroesButOnlyWhereThereIsAny) {
  EXPECT_EQ(axisOf(NodeClient(world->plug(touchscreen()).path()), ABS_WHEEL), "0 0 0 0 0 0");
  EXPECT_EQ(axisOf(NodeClient(world->plug(mouse()).path()), ABS_X), std::strerror(EINVAL));
}

TEST_F(IdentityTest, TheAnswerAboutAnAxisIsCutToWhatIsAskedFor) {
  Description device = touchscreen();
  device.axes[ABS_X] = {1, 2, 30, 0, 0, 0};
  const NodeClient client(world->plug(device).path());
  int numbers[3] = {-7, -7, -7};
  EXPECT_EQ(ioctl(client.fd(), _IOC(_IOC_READ, 'E', _IOC_NR(EVIOCGABS(ABS_X)), 2 * sizeof(int)), numbers), 0);
  EXPECT_EQ(numbers[0], 1);
  EXPECT_EQ(numbers[1], 2);
  EXPECT_EQ(numbers[2], -7);
}

TEST_F(IdentityTest, AnAxisWithFuzzStaysOrFollowsSlowly) {
  Description device = touchscreen();
  device.axes[ABS_X] = {1000, 0, 4095, 16, 0, 0};
  Plugged& plugged = world->plug(device);
  const NodeClient client(plugged.path());
  for (const int position : {1007, 993, 1008, 1020, 1060, 1037, 1000, 968}) {
    plugged.report(EV_ABS, ABS_X, position);
    plugged.report(EV_SYN, SYN_REPORT, 0);
  }
  EXPECT_EQ(client.all(), Lines({"3 0 1002", kReport, "3 0 1011", kReport, "3 0 1060", kReport, "3 0 1048", kReport,
                                 "3 0 1000", kReport, "3 0 968", kReport}));
}

TEST_F(IdentityTest, AnUnpluggedDeviceTellsNothing) {
  Plugged& device = world->plug(keyboard());
  const NodeClient client(device.path());
  device.unplug();
  EXPECT_EQ(autoRepeatOf(client), std::strerror(ENODEV));
  EXPECT_EQ(axisOf(client, ABS_X), std::strerror(ENODEV));
  EXPECT_EQ(textOf(client, EVIOCGPHYS(63)), std::strerror(ENODEV));
}

}  // namespace
}  // namespace quarlo::test
