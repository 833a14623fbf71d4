#include "tools/tune/kernel_remote.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <algorithm>
#include <vector>

#include "tools/common/output.h"
#include "tools/tune/study.h"

namespace quarlo::tools::tune {
namespace {

using namespace std::chrono_literals;
using recording::DeviceRecording;
using recording::Record;

constexpr microseconds kFrame = 108ms;
constexpr microseconds kKeyUp = 126ms;

DeviceRecording receiver() {
  DeviceRecording node;
  node.codes = {{EV_KEY, {KEY_UP, KEY_OK}}, {EV_MSC, {MSC_SCAN}}, {EV_REP, {REP_DELAY, REP_PERIOD}}};
  return node;
}

void add(DeviceRecording& node, microseconds time, int type, int code, int value) {
  node.records.push_back(
      {time, static_cast<std::uint16_t>(type), static_cast<std::uint16_t>(code), static_cast<std::int32_t>(value)});
}

void addKey(DeviceRecording& node, microseconds time, int key, int value) {
  add(node, time, EV_KEY, key, value);
  add(node, time, EV_SYN, SYN_REPORT, 0);
}

// A press as rc-core tells it: each frame with its scan code, and the key-up some time after the last.
void addPress(DeviceRecording& node, microseconds start, int frames, int key = KEY_UP) {
  for (int i = 0; i < frames; ++i) {
    add(node, start + i * kFrame, EV_MSC, MSC_SCAN, 7);
    if (i == 0) add(node, start, EV_KEY, key, 1);
    add(node, start + i * kFrame, EV_SYN, SYN_REPORT, 0);
  }
  addKey(node, start + (frames - 1) * kFrame + kKeyUp, key, 0);
}

DeviceRecording tapAndHold() {
  DeviceRecording node = receiver();
  addPress(node, 1s, 3);
  addPress(node, 10s, 12, KEY_OK);
  return node;
}

Remote recorded(const DeviceRecording& node) { return recordedKernelRemote(node, "sofa", {}); }

std::string errorOf(const DeviceRecording& node) {
  try {
    recorded(node);
    return "no error";
  } catch (const recording::Error& error) {
    return error.what();
  }
}

class KernelRemoteTest : public testing::Test {
 protected:
  KernelRemoteTest() { silenceReader(); }
};

// ---- Recordings ---------------------------------------------------------------------------------

TEST_F(KernelRemoteTest, APressIsFromItsKeyDownToItsKeyUp) {
  const Remote remote = recorded(tapAndHold());
  ASSERT_EQ(remote.presses.size(), 2U);
  EXPECT_EQ(remote.presses[0].key, KEY_UP);
  EXPECT_FALSE(remote.presses[0].held);
  EXPECT_EQ(remote.presses[0].up, 2 * kFrame + kKeyUp);
  EXPECT_EQ(remote.presses[1].key, KEY_OK);
  EXPECT_TRUE(remote.presses[1].held);
  EXPECT_EQ(remote.presses[1].end - remote.presses[1].first, 12U);
  EXPECT_EQ(remote.period, kFrame);
  EXPECT_EQ(remote.keyUp, kKeyUp);
  EXPECT_EQ(remote.leftOut, 0U);
}

TEST_F(KernelRemoteTest, PausesAreCutToASecond) {
  const Remote remote = recorded(tapAndHold());
  EXPECT_EQ(remote.lines[3].time - remote.presses[0].up, 1s);
}

TEST_F(KernelRemoteTest, AHoldIsStudiedForItsFirstFiveSeconds) {
  DeviceRecording node = receiver();
  addPress(node, 1s, 3);
  addPress(node, 10s, 1000);
  const Remote remote = recorded(node);
  const Press& hold = remote.presses[1];
  EXPECT_EQ(hold.up - remote.lines[hold.first].time, 5s);
  EXPECT_EQ(hold.end - hold.first, 47U);
}

TEST_F(KernelRemoteTest, KeysThatAreDownTogetherAreLeftOut) {
  DeviceRecording node = receiver();
  addKey(node, 100ms, KEY_UP, 1);
  addKey(node, 200ms, KEY_OK, 1);
  addKey(node, 300ms, KEY_UP, 0);
  addKey(node, 400ms, KEY_OK, 0);
  addPress(node, 1s, 3);
  addPress(node, 10s, 12);
  addKey(node, 20s, KEY_UP, 1);  // until after the end
  const Remote remote = recorded(node);
  EXPECT_EQ(remote.presses.size(), 2U);
  EXPECT_EQ(remote.leftOut, 3U);
}

TEST_F(KernelRemoteTest, APressOfWhichRecordsWereLostIsLeftOut) {
  DeviceRecording node = tapAndHold();
  addKey(node, 20s, KEY_UP, 1);
  add(node, 20500ms, EV_SYN, SYN_DROPPED, 0);
  addKey(node, 21s, KEY_UP, 0);
  const Remote remote = recorded(node);
  EXPECT_EQ(remote.presses.size(), 2U);
  EXPECT_EQ(remote.leftOut, 1U);
}

TEST_F(KernelRemoteTest, ButtonsAreNoKeys) {
  DeviceRecording node = receiver();
  addKey(node, 1s, BTN_LEFT, 1);
  addKey(node, 2s, BTN_LEFT, 0);
  EXPECT_FALSE(hasKeyPress(node));
  EXPECT_TRUE(hasKeyPress(tapAndHold()));
  EXPECT_EQ(errorOf(node), "sofa: no key was pressed and released, one at a time: there is nothing to study");
}

TEST_F(KernelRemoteTest, WhereFramesAreNotToldTheKeyUpEndsAPress) {
  DeviceRecording node = receiver();
  addKey(node, 1s, KEY_UP, 1);
  addKey(node, 1400ms, KEY_UP, 0);
  addKey(node, 3s, KEY_UP, 1);
  addKey(node, 4s, KEY_UP, 0);
  const Remote remote = recorded(node);
  EXPECT_FALSE(remote.presses[0].held);
  EXPECT_TRUE(remote.presses[1].held);
  EXPECT_EQ(remote.period, 0us);
  EXPECT_EQ(remote.keyUp, 0us);
  EXPECT_EQ(remote.lines.back().time, remote.presses[1].up);
}

TEST_F(KernelRemoteTest, WhereFramesAreNotToldALongHoldEndsWhereItsStudyEnds) {
  DeviceRecording node = receiver();
  addKey(node, 1s, KEY_UP, 1);
  addKey(node, 1100ms, KEY_UP, 0);
  addKey(node, 3s, KEY_UP, 1);
  addKey(node, 13s, KEY_UP, 0);
  const Remote remote = recorded(node);
  const Press& hold = remote.presses[1];
  ASSERT_EQ(hold.end - hold.first, 2U);
  EXPECT_EQ(hold.up - remote.lines[hold.first].time, 5s);
  EXPECT_EQ(remote.lines[hold.first + 1].time, hold.up);
  const Study study = studyTiming(remote, {LoopKind::kWait, {125}, {500}, {}});
  EXPECT_LT(study.findings[0].lastAfterMs->maximum, 50);
}

TEST_F(KernelRemoteTest, ARecordingWithNothingToStudyIsAnErrorThatSaysWhatToDo) {
  DeviceRecording node = receiver();
  addPress(node, 1s, 3);
  EXPECT_EQ(errorOf(node), "sofa: no button is held for 500 ms or more: record some taps and one that is");
  node = receiver();
  addPress(node, 1s, 12);
  EXPECT_EQ(errorOf(node), "sofa: no button is tapped (for less than 500 ms): record some taps, too");
  node = tapAndHold();
  node.codes.erase(EV_REP);
  EXPECT_EQ(errorOf(node), "sofa: the node has no auto-repeat (EV_REP): it has neither a delay nor a period");
}

TEST_F(KernelRemoteTest, OfALongRecordingSomePressesAreStudied) {
  DeviceRecording node = receiver();
  for (int i = 0; i < 1000; ++i) addPress(node, i * 10s, i % 4 == 0 ? 20 : 1 + i % 3);
  const Remote remote = recorded(node);
  EXPECT_EQ(remote.holds, 250U);
  EXPECT_EQ(remote.taps, 750U);
  microseconds studied{0};
  for (const Press& press : remote.presses) studied += press.up - remote.lines[press.first].time;
  EXPECT_LE(studied, kMostStudiedTime);
  EXPECT_GT(studied, kMostStudiedTime * 3 / 4);
}

// ---- How it repeats now -------------------------------------------------------------------------

// A hold of 2 s whose key repeats so.
NodeRepeat repeatOf(microseconds delay, microseconds period) {
  DeviceRecording node = receiver();
  addPress(node, 1s, 3);
  addKey(node, 5s, KEY_UP, 1);
  for (microseconds time = delay; time < 2s; time += period) addKey(node, 5s + time, KEY_UP, 2);
  addKey(node, 7s, KEY_UP, 0);
  addPress(node, 9s, 12);
  return recorded(node).repeat;
}

void expectRepeat(const NodeRepeat& repeat, int delayMs, int periodMs) {
  EXPECT_EQ(repeat.delayMs, delayMs);
  EXPECT_EQ(repeat.periodMs, periodMs);
}

TEST_F(KernelRemoteTest, TheRecordingShowsHowTheNodeRepeats) {
  expectRepeat(repeatOf(531ms, 132ms), 500, 125);
  expectRepeat(repeatOf(254ms, 40ms), 250, 33);
  expectRepeat(repeatOf(405ms, 104ms), 405, 104);
}

TEST_F(KernelRemoteTest, RepeatsAtOneTimeDoNotMeanThatRepeatingIsOff) {
  DeviceRecording node = receiver();
  addPress(node, 1s, 3);
  addKey(node, 5s, KEY_UP, 1);
  for (int i = 0; i < 3; ++i) addKey(node, 5s, KEY_UP, 2);
  addKey(node, 7s, KEY_UP, 0);
  addPress(node, 9s, 12);
  expectRepeat(recorded(node).repeat, 1, 1);
}

TEST_F(KernelRemoteTest, WithoutRepeatsItIsTakenForARemotesUsualOnes) {
  expectRepeat(recorded(tapAndHold()).repeat, 500, 125);
  expectRepeat(recordedKernelRemote(tapAndHold(), "sofa", NodeRepeat{250, 33}).repeat, 250, 33);
}

// ---- One run ------------------------------------------------------------------------------------

// In ms since the first frame, of a hold of 12 frames: 1188 ms, and 126 ms until the key-up.
std::vector<long> keyDownsOfHold(const Setting& setting, const Circumstances& circumstances) {
  DeviceRecording node = receiver();
  addPress(node, 1s, 12);
  addPress(node, 10s, 1);
  const Remote remote = recorded(node);
  std::vector<long> times;
  for (const KeyDown& keyDown : runReader(remote, setting, circumstances).keyDowns) {
    if (keyDown.line < remote.presses[0].end) times.push_back(static_cast<long>(keyDown.time / 1ms));
  }
  return times;
}

TEST_F(KernelRemoteTest, AHeldKeyRepeatsAfterTheDelayThenEachPeriodUntilItsKeyUp) {
  EXPECT_EQ(keyDownsOfHold({200, 500, {}}, {0us, 0us}), (std::vector<long>{0, 500, 700, 900, 1100, 1300}));
  EXPECT_EQ(keyDownsOfHold({400, 300, {}}, {0us, 0us}), (std::vector<long>{0, 300, 700, 1100}));
}

TEST_F(KernelRemoteTest, LateTimersMakeThatLater) {
  EXPECT_EQ(keyDownsOfHold({200, 500, {}}, {0us, 0us, true}), (std::vector<long>{0, 532, 736, 940, 1144}));
}

TEST_F(KernelRemoteTest, WithADelayOrAPeriodOfZeroItDoesNotRepeat) {
  EXPECT_EQ(keyDownsOfHold({200, 0, {}}, {0us, 0us, true}), std::vector<long>{0});
  EXPECT_EQ(keyDownsOfHold({0, 500, {}}, {0us, 0us, true}), std::vector<long>{0});
}

TEST_F(KernelRemoteTest, ALoopThatPollsSeesThemAtItsPolls) {
  EXPECT_EQ(keyDownsOfHold({125, 500, 30}, {0us, 0us}), (std::vector<long>{30, 510, 630, 750, 900, 1020, 1140, 1260}));
}

// As measured with uinput on a kernel of 250 ticks a second: delays of up to 279 ms for 250 and 531 for 500, periods of
// 40 ms for 33, 132 for 125, 104 for 100, 80 for 75, 156 for 150, 56 for 50.
TEST_F(KernelRemoteTest, TimersAreLateByTheirTicks) {
  for (const auto& [set, made] : {std::pair(33, 40), {50, 56}, {75, 80}, {100, 104}, {125, 132}, {150, 156}}) {
    EXPECT_EQ(latest(std::chrono::milliseconds(set)).count(), made);
  }
  EXPECT_EQ(latest(248ms), 252ms);
  EXPECT_EQ(latest(250ms), 284ms);
  EXPECT_EQ(latest(500ms), 532ms);
  EXPECT_EQ(latest(3s), 3256ms);
}

TEST_F(KernelRemoteTest, EveryPressHasItsOwnKeyDownsAlsoForALoopThatPollsRarely) {
  DeviceRecording node = receiver();
  for (int i = 0; i < 10; ++i) addPress(node, 1s + i * 250ms, 1);
  addPress(node, 10s, 12);
  const Remote remote = recorded(node);
  const Timeline timeline = runReader(remote, {125, 500, 400}, {0us, 1ms});
  for (std::size_t i = 0; i < 10; ++i) {
    const auto isOfPress = [&](const KeyDown& keyDown) { return keyDown.line == remote.presses[i].first; };
    EXPECT_EQ(std::count_if(timeline.keyDowns.begin(), timeline.keyDowns.end(), isOfPress), 1) << i;
  }
}

// ---- The study ----------------------------------------------------------------------------------

TEST_F(KernelRemoteTest, HowTheNodeRepeatsNowStaysIfItHasNoFault) {
  const Remote remote = imagineKernelRemote({"", 108ms, 3, 126ms}, 2s, {450, 110});
  const Study study = studyTiming(remote, {LoopKind::kWait, {125}, {500}, {}});
  ASSERT_EQ(study.findings.size(), 2U);
  EXPECT_TRUE(study.findings[0].faults.empty());
  EXPECT_TRUE(study.findings[1].faults.empty());
  EXPECT_EQ(study.recommended, study.byDefault);
  EXPECT_EQ(study.findings[study.byDefault].setting, (Setting{110, 450, {}}));
}

TEST_F(KernelRemoteTest, FaultsAreThoseOfTheDelayAndThePeriod) {
  const auto faults = [](int delayMs, int periodMs) {
    const Remote remote = imagineKernelRemote({"", 108ms, 3, 126ms}, 2s, {delayMs, periodMs});
    const Study study = studyTiming(remote, {LoopKind::kWait, {125}, {500}, {}});
    return toText(study.findings[study.byDefault].faults);
  };
  EXPECT_EQ(faults(250, 33), "ghosts, hasty, fast");
  EXPECT_EQ(faults(350, 125), "hasty");
  EXPECT_EQ(faults(400, 300), "slow");
  EXPECT_EQ(faults(600, 125), "slow start");
  EXPECT_EQ(faults(5000, 125), "no repeats");
  EXPECT_EQ(faults(0, 0), "off");
  EXPECT_EQ(faults(500, 0), "off");
  EXPECT_EQ(faults(0, 125), "off");
  EXPECT_EQ(faults(500, 125), "");
}

TEST_F(KernelRemoteTest, TheLimitsDependOnHowLateTheKeyUpComes) {
  const Remote remote = imagineKernelRemote({"", 108ms, 3, 126ms}, 2s, kRemotesRepeat);
  EXPECT_EQ(meaningOf(Fault::kHasty, judgementOf(remote, LoopKind::kWait)),
            "the first repeat comes within 376 ms: a slow tap would be two; take a longer delay");
  EXPECT_EQ(meaningOf(Fault::kLate, judgementOf(remote, LoopKind::kPoll)),
            "the last key-down comes more than 100 ms after the key-up: poll more often");
}

}  // namespace
}  // namespace quarlo::tools::tune
