#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "sim/machine.h"
#include "tools/common/output.h"
#include "tools/tune/study.h"
#include "tools/tune/timing_plot.h"

namespace quarlo::tools::tune {
namespace {

using namespace std::chrono_literals;
using recording::RemoteLine;

// The first line comes just after a poll, and the application does nothing but read.
constexpr Circumstances kIdle{0us, 0us};

const Setting kPolledDefault = defaultSetting({}, LoopKind::kPoll);

// A tap of three lines and a button held for 1.1 s: eleven lines.
Remote remoteOf108Ms() { return imagineRemote({"test", 108ms, 3, 0us}, 1100ms); }

// When key-downs came of a press, in ms since its first line.
std::vector<long> keyDownsOf(const Remote& remote, const Timeline& timeline, const Press& press) {
  std::vector<long> times;
  for (const KeyDown& keyDown : timeline.keyDowns) {
    if (keyDown.line < press.first || keyDown.line >= press.end) continue;
    times.push_back(static_cast<long>((keyDown.time - remote.lines[press.first].time).count() / 1000));
  }
  return times;
}

std::vector<long> keyDownsOfTap(const Setting& setting) {
  const Remote remote = remoteOf108Ms();
  return keyDownsOf(remote, runReader(remote, setting, kIdle), remote.presses[0]);
}

// Of a button that is held from the start.
std::vector<long> keyDownsOfHold(const Setting& setting, microseconds work = 0us) {
  const Remote both = remoteOf108Ms();
  const std::size_t first = both.presses[1].first;
  Remote remote;
  remote.lines.assign(both.lines.begin() + static_cast<std::ptrdiff_t>(first), both.lines.end());
  for (RemoteLine& line : remote.lines) line.time -= both.lines[first].time;
  remote.presses = {{0, remote.lines.size(), true}};
  return keyDownsOf(remote, runReader(remote, setting, {0us, work}), remote.presses[0]);
}

// One letter a line: Key-down, skipped, lost.
std::string fatesOf(const Timeline& timeline) {
  std::string text;
  for (const TimedLine& line : timeline.lines) text += "Ksl"[static_cast<int>(line.fate)];
  return text;
}

Grid gridOf(const Setting& setting) {
  return {setting.pollMs ? LoopKind::kPoll : LoopKind::kWait,
          {setting.repeatMs},
          {setting.startMs},
          {setting.pollMs.value_or(0)}};
}

Finding findingOf(const Remote& remote, const Setting& setting) {
  const Study study = studyTiming(remote, gridOf(setting));
  return study.findings[study.recommended];
}

// The simulated machine has no devices but the remote: the reader would log that it found none.
class TimingTest : public testing::Test {
 protected:
  TimingTest() { silenceReader(); }
};

// ---- One run ------------------------------------------------------------------------------------

// A line is read by the poll that follows it, at most 10 ms later: the one at 0 at 10. Those at 108 and 216 are less
// than 300 ms after that. From 310 on, a poll without a line starts the repeat mode, and there are no waits until the
// next line, so that the one at 324 is read at once; then each of those that follow.
TEST_F(TimingTest, AHeldButtonRepeatsWithTheFirstLineAfterTheReleaseTimeout) {
  EXPECT_EQ(keyDownsOfHold({100, 300, 10}), (std::vector<long>{10, 324, 434, 544, 654, 764, 864, 974, 1084}));
}

// 108 ms between lines are seen as 110 or 100, which is less than 105: then it takes one more line.
TEST_F(TimingTest, ARepeatTimeoutCloseToThePeriodSkipsLinesThatThePollsSeeCloser) {
  EXPECT_EQ(keyDownsOfHold({105, 300, 10}), (std::vector<long>{10, 324, 434, 544, 654, 764, 974, 1084}));
}

// After the line at 324, the key is forgotten twice 50 ms later; the one at 432 is taken for a new press,
// after which lines within 300 ms are skipped. It goes on like that.
TEST_F(TimingTest, ARepeatTimeoutOfLessThanHalfThePeriodForgetsTheKeyBetweenLines) {
  EXPECT_EQ(keyDownsOfHold({50, 300, 10}), (std::vector<long>{10, 324, 434, 756, 866}));
}

TEST_F(TimingTest, ATapThatLastsLongerThanTheReleaseTimeoutGivesTwoKeyDowns) {
  EXPECT_EQ(keyDownsOfTap({100, 300, 10}), (std::vector<long>{10}));
  EXPECT_EQ(keyDownsOfTap({100, 200, 10}), (std::vector<long>{10, 216}));
}

TEST_F(TimingTest, ThePhaseIsTheTimeFromAPollToTheFirstLine) {
  const Remote remote = remoteOf108Ms();
  const Timeline timeline = runReader(remote, {100, 300, 10}, {4ms, 0us});
  EXPECT_EQ(keyDownsOf(remote, timeline, remote.presses[0]), (std::vector<long>{6}));
}

// Polled at 10, 45, and so on to 290, and after its release timeout without a wait, at 315 and 340.
TEST_F(TimingTest, TheApplicationsWorkDelaysItsPolls) { EXPECT_EQ(keyDownsOfHold({100, 300, 10}, 25ms).at(1), 340); }

// 34 bytes a line, 127 bytes a read: of the lines at 0, 45 and 90, the poll at 100 takes the first.
TEST_F(TimingTest, LinesThatAreReadTogetherAreLostButForTheFirst) {
  const Remote remote = imagineRemote({"test", 45ms, 3, 0us}, 500ms);
  EXPECT_EQ(fatesOf(runReader(remote, {100, 300, 100}, kIdle)).substr(0, 3), "Kll");
}

TEST_F(TimingTest, ALoopThatWaitsTakesEachLineAsItComes) {
  EXPECT_EQ(keyDownsOfHold({105, 300, {}}), (std::vector<long>{0, 324, 432, 540, 648, 756, 864, 972, 1080}));
}

// It wakes at 301, when the repeat mode starts, and then works.
TEST_F(TimingTest, ALoopThatWaitsTakesALineThatCameMeanwhileAfterItsWork) {
  EXPECT_EQ(keyDownsOfHold({105, 300, {}}, 25ms), (std::vector<long>{0, 326, 432, 540, 648, 756, 864, 972, 1080}));
}

// Most of the lines come while the application works, two or three at a time.
TEST_F(TimingTest, ALoopThatWaitsLosesNoLineOfThoseThatCameTogether) {
  const Remote remote = imagineRemote({"test", 45ms, 3, 0us}, 500ms);
  const Timeline timeline = runReader(remote, {100, 300, {}}, {0us, 120ms});
  EXPECT_EQ(fatesOf(timeline).find('l'), std::string::npos) << fatesOf(timeline);
  EXPECT_EQ(fatesOf(timeline).substr(0, 3), "Kss");
}

TEST_F(TimingTest, LinesThatFillAReadAreNotLost) {
  const std::string longest = "1 01 KEY_OK " + std::string(114, 'r');  // 127 bytes with its newline
  const Remote remote = {{{0us, "1 00" + longest.substr(4)}, {5ms, longest}}, {{0, 2, false}}, 0, 5ms};
  EXPECT_EQ(fatesOf(runReader(remote, {100, 300, 10}, kIdle)), "Ks");
}

TEST_F(TimingTest, EveryLineHasAFate) {
  EXPECT_EQ(fatesOf(runReader(remoteOf108Ms(), {100, 300, 10}, kIdle)), "KssKssKKKKKKKK");
}

TEST_F(TimingTest, StatesGoFromHeldToRepeatingToReleased) {
  const Timeline timeline = runReader(remoteOf108Ms(), {100, 300, 10}, kIdle);
  std::vector<std::pair<ButtonState, long>> states;
  for (const StateChange& change : timeline.states) states.emplace_back(change.state, change.time / 1ms);
  ASSERT_EQ(states.size(), 7U);
  EXPECT_EQ(states[0], std::pair(ButtonState::kReleased, 0L));
  EXPECT_EQ(states[1], std::pair(ButtonState::kHeld, 10L));
  EXPECT_EQ(states[2], std::pair(ButtonState::kRepeating, 310L));
  EXPECT_EQ(states[3], std::pair(ButtonState::kReleased, 410L));
  // The held button's last key-down is 1084 ms after its first line, which comes a second after the tap's last one.
  EXPECT_EQ(states[6], std::pair(ButtonState::kReleased, 216L + 1000L + 1084L + 200L));
}

// ---- Remotes ------------------------------------------------------------------------------------

RemoteLine line(microseconds time, const std::string& repeat, const std::string& button = "KEY_OK") {
  return {time, "0000000000000001 " + repeat + " " + button + " remote"};
}

std::vector<RemoteLine> tap(microseconds time) { return {line(time, "00"), line(time + 110ms, "01")}; }

std::vector<RemoteLine> hold(microseconds time) {
  std::vector<RemoteLine> lines = tap(time);
  for (int i = 2; i < 10; ++i) lines.push_back(line(time + i * 110ms, "0" + std::to_string(i)));
  return lines;
}

std::vector<RemoteLine> joined(std::vector<RemoteLine> first, const std::vector<RemoteLine>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string errorOf(const std::vector<RemoteLine>& lines) {
  try {
    recordedRemote(lines, "sofa");
    return "no error";
  } catch (const recording::Error& error) {
    return error.what();
  }
}

TEST_F(TimingTest, ATapOfAProtocolHasTheLinesOf250Ms) {
  EXPECT_EQ(linesOfATap(108ms), 3);
  EXPECT_EQ(linesOfATap(45ms), 6);
  EXPECT_EQ(linesOfATap(125ms), 3);
  EXPECT_EQ(linesOfATap(126ms), 2);
}

TEST_F(TimingTest, AnImaginedRemoteCountsItsLinesInHexadecimal) {
  const Remote remote = imagineRemote({"test", 45ms, 2, 0us}, 500ms);
  ASSERT_EQ(remote.lines.size(), 2U + 12U);
  EXPECT_EQ(remote.lines[1].text, "0000000000000001 01 KEY_OK remote");
  EXPECT_EQ(remote.lines[2].text, "0000000000000001 00 KEY_OK remote");
  EXPECT_EQ(remote.lines[13].text, "0000000000000001 0b KEY_OK remote");
  EXPECT_EQ(remote.lines[2].time - remote.lines[1].time, 1s);
  EXPECT_EQ(remote.lines[13].time - remote.lines[2].time, 495ms);
}

TEST_F(TimingTest, ARecordingIsTakenApartWhereARepeatCountIsZero) {
  const Remote remote = recordedRemote(joined(tap(0ms), joined(tap(400ms), hold(1000ms))), "sofa");
  ASSERT_EQ(remote.presses.size(), 3U);
  EXPECT_EQ(remote.presses[1].first, 2U);
  EXPECT_EQ(remote.presses[1].end, 4U);
  EXPECT_FALSE(remote.presses[1].held);
  EXPECT_EQ(remote.presses[2].end, 14U);
  EXPECT_TRUE(remote.presses[2].held);
  EXPECT_EQ(remote.period, 110ms);
  EXPECT_EQ(remote.leftOut, 0U);
}

TEST_F(TimingTest, TheMedianOfAnEvenNumberIsTheUpperOfTheTwoInTheMiddle) {
  EXPECT_EQ(medianOf({40ms, 10ms, 30ms, 20ms}), 30ms);
  EXPECT_EQ(medianOf({30ms, 10ms, 20ms}), 20ms);
  EXPECT_EQ(medianOf({}), 0ms);
}

TEST_F(TimingTest, LongPausesOfARecordingAreCut) {
  const Remote remote = recordedRemote(joined(tap(1h), hold(2h)), "sofa");
  EXPECT_EQ(remote.lines[2].time - remote.lines[1].time, 1s);
  EXPECT_EQ(remote.lines[3].time - remote.lines[2].time, 110ms);
}

TEST_F(TimingTest, PausesWithinAPressAreKept) {
  const Remote remote = recordedRemote(joined(tap(0ms), {line(1s, "00"), line(3s, "01")}), "sofa");
  EXPECT_EQ(remote.lines[3].time - remote.lines[2].time, 2s);
}

TEST_F(TimingTest, LinesThatTheReaderDoesNotUnderstandAreLeftOut) {
  std::vector<RemoteLine> lines = {line(0ms, "05"), line(10ms, "00", "KEY_UNKNOWN"), {20ms, "nonsense"}};
  const Remote remote = recordedRemote(joined(lines, joined(tap(30ms), hold(1000ms))), "sofa");
  EXPECT_EQ(remote.leftOut, 3U);
  EXPECT_EQ(remote.lines.size(), 12U);
}

TEST_F(TimingTest, ARecordingWithNothingToStudyIsAnErrorThatSaysWhatToDo) {
  EXPECT_EQ(errorOf({line(0ms, "00", "KEY_UNKNOWN")}),
            "sofa: no line begins a press (repeat count 0, and a button that the reader knows): there is nothing to "
            "study; see it with `quarlo-input replay -v`");
  EXPECT_EQ(errorOf(tap(0ms)),
            "sofa: no button is held for 500 ms or more: record some taps and one that is. If one was, the daemon does "
            "not count its lines: correct the remote's file for lircd");
  EXPECT_EQ(errorOf(hold(0ms)), "sofa: no button is tapped (for less than 500 ms): record some taps, too");
}

// A recording of 1000 presses: each third one held for 990 ms, each second one half a second after the one before.
std::vector<RemoteLine> longRecording() {
  std::vector<RemoteLine> lines;
  for (int i = 0; i < 1000; ++i) {
    const microseconds start = lines.empty() ? 1h : lines.back().time + (i % 2 == 0 ? 500ms : 700s / 10);
    lines = joined(std::move(lines), i % 3 == 0 ? hold(start) : tap(start));
  }
  return lines;
}

TEST_F(TimingTest, OfALongRecordingSomePressesAreStudiedAsTheyWere) {
  const Remote remote = recordedRemote(longRecording(), "sofa");
  EXPECT_EQ(remote.holds, 334U);
  EXPECT_EQ(remote.taps, 666U);
  EXPECT_LE(remote.lines.size(), kMostStudiedLines);
  EXPECT_GT(remote.lines.size(), kMostStudiedLines * 3 / 4);
  EXPECT_EQ(remote.period, 110ms);
  int afterHalfASecond = 0;
  for (std::size_t i = 0; i < remote.presses.size(); ++i) {
    const Press& press = remote.presses[i];
    EXPECT_EQ(press.end - press.first, press.held ? 10U : 2U);
    EXPECT_EQ(remote.lines[press.end - 1].time - remote.lines[press.first].time, press.held ? 990ms : 110ms);
    EXPECT_EQ(remote.lines[press.first].text, line(0ms, "00").text);
    if (i == 0) continue;
    const microseconds pause = remote.lines[press.first].time - remote.lines[press.first - 1].time;
    EXPECT_TRUE(pause == 500ms || pause == 1s) << pause.count();
    afterHalfASecond += pause == 500ms ? 1 : 0;
  }
  EXPECT_GT(afterHalfASecond, 20);
}

TEST_F(TimingTest, OfALongRecordingAPressIsStudiedForItsFirstLines) {
  std::vector<RemoteLine> lines = tap(0ms);
  lines.push_back(line(10s, "00"));
  for (int i = 1; i < 2000; ++i) lines.push_back(line(10s + i * 108ms, "01"));
  const Remote remote = recordedRemote(lines, "sofa");
  ASSERT_EQ(remote.presses.size(), 2U);
  EXPECT_TRUE(remote.presses[1].held);
  EXPECT_EQ(remote.lines.size(), 2 + kMostLinesOfAPress);
  EXPECT_EQ(remote.leftOut, 0U);
}

TEST_F(TimingTest, APressThatIsStudiedGivesWhatItGaveInTheWhole) {
  const auto best = [](std::vector<RemoteLine> lines) {
    const Study study = studyTiming(recordedRemote(std::move(lines), "sofa"), {});
    return describe(study.findings[study.recommended]);
  };
  std::vector<RemoteLine> part = longRecording();
  part.resize(840);  // after a press
  EXPECT_EQ(best(longRecording()), best(part));
}

TEST_F(TimingTest, ALineThatIsLongerThanAReadDoesNotSpoilTheNext) {
  std::vector<RemoteLine> lines = tap(0ms);
  lines[1].text = lines[1].text.get() + std::string(300, 'x');
  const Remote remote = recordedRemote(joined(lines, hold(1000ms)), "sofa");
  EXPECT_EQ(remote.leftOut, 0U);
}

// ---- The study ----------------------------------------------------------------------------------

TEST_F(TimingTest, CircumstancesAreEightMomentsForEachOfThreeLoads) {
  const std::vector<Circumstances> all = studiedCircumstances(Decoder::kDaemon, {100, 300, 7});
  ASSERT_EQ(all.size(), 24U);
  EXPECT_EQ(all[8].phase, 0us);
  EXPECT_EQ(all[9].phase, 1ms);
  EXPECT_EQ(all[15].phase, 7ms);
  EXPECT_EQ(all[0].work, 100us);
  EXPECT_EQ(all[8].work, 1ms);
  EXPECT_EQ(all[16].work, 3ms);
}

TEST_F(TimingTest, CircumstancesOfALoopThatWaitsAreThreeLoads) {
  const std::vector<Circumstances> all = studiedCircumstances(Decoder::kDaemon, {100, 300, {}});
  ASSERT_EQ(all.size(), 3U);
  for (const Circumstances& circumstances : all) EXPECT_EQ(circumstances.phase, 0us);
  EXPECT_EQ(all[0].work, 100us);
  EXPECT_EQ(all[1].work, 1ms);
  EXPECT_EQ(all[2].work, 3ms);
}

TEST_F(TimingTest, AFindingCoversAllCircumstances) {
  const Remote remote = remoteOf108Ms();
  const Setting setting = {75, 300, 10};
  const Finding finding = findingOf(remote, setting);
  std::vector<double> delays;
  for (const Circumstances& circumstances : studiedCircumstances(Decoder::kDaemon, setting)) {
    const Timeline timeline = runReader(remote, setting, circumstances);
    const auto first = std::find_if(timeline.keyDowns.begin(), timeline.keyDowns.end(),
                                    [&](const KeyDown& keyDown) { return keyDown.line >= remote.presses[1].first; });
    delays.push_back(static_cast<double>(((first + 1)->time - first->time).count()) / 1000);
  }
  ASSERT_TRUE(finding.firstRepeatMs);
  EXPECT_DOUBLE_EQ(finding.firstRepeatMs->minimum, *std::min_element(delays.begin(), delays.end()));
  EXPECT_DOUBLE_EQ(finding.firstRepeatMs->maximum, *std::max_element(delays.begin(), delays.end()));
  EXPECT_LT(finding.firstRepeatMs->minimum, finding.firstRepeatMs->maximum);
  EXPECT_EQ(finding.keyDownsPerTap.maximum, 1);
  EXPECT_TRUE(finding.faults.empty());
  EXPECT_EQ(finding.skipped, 4);
  EXPECT_EQ(finding.lost, 0);
}

TEST_F(TimingTest, FaultsAreNamedTheWorstFirst) {
  const Remote remote = remoteOf108Ms();
  const auto faults = [&](const Setting& setting) { return toText(findingOf(remote, setting).faults); };
  EXPECT_EQ(faults({75, 200, 10}), "ghosts, hasty");
  EXPECT_EQ(faults({50, 300, 10}), "uneven");
  EXPECT_EQ(faults({300, 300, 10}), "slow");
  EXPECT_EQ(faults({75, 600, 10}), "slow start");
  EXPECT_EQ(faults({75, 2000, 10}), "no repeats");
  EXPECT_EQ(toText(findingOf(imagineRemote({"test", 45ms, 5, 0us}, 1000ms), {25, 300, 10}).faults), "fast");
}

// A loop that waits sees the pauses as they are.
TEST_F(TimingTest, RepeatsAreUnevenFromAPauseOn175TimesTheShortest) {
  const auto faults = [](microseconds longest) {
    std::vector<RemoteLine> lines = tap(0ms);
    for (int i = 0; i < 6; ++i) lines.push_back(line(1s + i * 120ms, "0" + std::to_string(i)));
    lines.push_back(line(lines.back().time + longest, "06"));
    return toText(findingOf(recordedRemote(lines, "sofa"), {110, 300, {}}).faults);
  };
  EXPECT_EQ(faults(209ms), "");
  EXPECT_EQ(faults(210ms), "uneven");
}

TEST_F(TimingTest, AnApplicationThatPollsTooRarelyMissesPressesAndIsLate) {
  const Remote remote = recordedRemote(joined(tap(0ms), joined(tap(300ms), hold(1000ms))), "sofa");
  const Finding finding = findingOf(remote, {75, 250, 600});
  EXPECT_EQ(finding.keyDownsPerTap.minimum, 0);
  EXPECT_EQ(toText(finding.faults), "ghosts, misses, slow, late");
  EXPECT_GT(finding.lost, 0);
}

TEST_F(TimingTest, WhatHelpsDependsOnTheLoop) {
  const Judgement polls = judgementOf({}, LoopKind::kPoll);
  const Judgement waits = judgementOf({}, LoopKind::kWait);
  EXPECT_EQ(meaningOf(Fault::kMisses, polls), "a press gives no key-down: poll more often");
  EXPECT_EQ(meaningOf(Fault::kMisses, waits), "a press gives no key-down: take a shorter release timeout");
  EXPECT_EQ(meaningOf(Fault::kUneven, waits), "pauses between repeats differ 1.75-fold: take another repeat timeout");
  EXPECT_EQ(meaningOf(Fault::kLate, waits), "the last key-down comes more than 100 ms after the last line");
}

TEST_F(TimingTest, AStudyOfALoopThatWaitsHasNoPollTimeouts) {
  const Study study = studyTiming(remoteOf108Ms(), {LoopKind::kWait, {75, 100}, {300}, {10, 20}});
  ASSERT_EQ(study.findings.size(), 2U);
  EXPECT_EQ(study.findings[0].setting, (Setting{75, 300, {}}));
  EXPECT_EQ(study.findings[1].setting, defaultSetting({}, LoopKind::kWait));
  EXPECT_EQ(study.recommended, 1U);
  EXPECT_TRUE(study.findings[1].faults.empty());
}

TEST_F(TimingTest, TheStudyIsInOrderAndHasThePresentSettingOnce) {
  const Study without = studyTiming(remoteOf108Ms(), {LoopKind::kPoll, {75, 150}, {300}, {10}});
  ASSERT_EQ(without.findings.size(), 3U);
  EXPECT_EQ(without.findings[0].setting, (Setting{75, 300, 10}));
  EXPECT_EQ(without.findings[1].setting, kPolledDefault);
  EXPECT_EQ(without.byDefault, 1U);
  const Study with = studyTiming(remoteOf108Ms(), {LoopKind::kPoll, {100}, {300}, {10}});
  EXPECT_EQ(with.findings.size(), 1U);
}

TEST_F(TimingTest, OnlyASettingOfTheGridIsRecommended) {
  const Study study = studyTiming(remoteOf108Ms(), {LoopKind::kPoll, {50}, {200}, {20}});
  ASSERT_EQ(study.findings.size(), 2U);
  EXPECT_EQ(study.findings[study.recommended].setting, (Setting{50, 200, 20}));
}

TEST_F(TimingTest, TheBestHasNoFaultAndRepeatsSoonWithTheLongestReleaseTimeout) {
  const Study study = studyTiming(remoteOf108Ms(), {LoopKind::kPoll, {50, 75, 100}, {200, 250, 300, 400}, {10, 20}});
  EXPECT_EQ(study.findings[study.recommended].setting, (Setting{75, 300, 10}));
}

TEST_F(TimingTest, ThePresentSettingIsRecommendedUnlessAnotherIsBetter) {
  const Remote remote = imagineRemote({"test", 45ms, 6, 0us}, 2000ms);
  const Study study = studyTiming(remote, {LoopKind::kPoll, {100, 125}, {300}, {10}});
  EXPECT_TRUE(study.findings[0].faults.empty());
  EXPECT_TRUE(study.findings[1].faults.empty());
  EXPECT_EQ(study.recommended, study.byDefault);
}

TEST_F(TimingTest, TheWorstCircumstancesShowTheFault) {
  const Remote remote = remoteOf108Ms();
  const Timeline timeline = runReader(remote, kPolledDefault, worstCircumstances(remote, kPolledDefault));
  const std::string fates = fatesOf(timeline);
  EXPECT_NE(fates.find('s', fates.find("KK")), std::string::npos) << fates;  // a repeat is skipped after others counted
}

TEST_F(TimingTest, AFindingIsDescribedInASentence) {
  EXPECT_EQ(describe({{75, 300, 10}, {1, 1}, Range{314, 326}, Range{9.2, 9.24}, {}, {}, 4, 0, {}}),
            "A tap gives 1 key-down; a held button repeats after 314-326 ms, 9.2 times a second.");
  EXPECT_EQ(describe({{75, 300, 10}, {1, 2}, Range{314, 314}, {}, {}, {}, 4, 0, {}}),
            "A tap gives 1-2 key-downs; a held button repeats after 314 ms, once.");
  EXPECT_EQ(describe({{75, 900, 10}, {1, 1}, {}, {}, {}, {}, 4, 0, {}}),
            "A tap gives 1 key-down; a held button does not repeat.");
}

// ---- The picture's script -----------------------------------------------------------------------

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

TEST_F(TimingTest, ThePictureShowsTheRecommendedSettingBesideThePresentOneIfTheyDiffer) {
  const Remote remote = remoteOf108Ms();
  const std::string two =
      plotScript(remote, studyTiming(remote, {LoopKind::kPoll, {75, 100}, {300}, {10, 20}}), "title");
  EXPECT_EQ(count(two, "Now: repeat 100, release 300, poll 10 ms"), 1);
  EXPECT_EQ(count(two, "Recommended: repeat 75, release 300, poll 10 ms"), 1);
  EXPECT_EQ(count(two, "polled every"), 2);
  EXPECT_EQ(count(two, "set ytics ('300' 0)"), 1);  // two maps side by side share them
  const std::string one = plotScript(remote, studyTiming(remote, {LoopKind::kPoll, {100}, {300}, {10}}), "title");
  EXPECT_EQ(count(one, "Now, and recommended: repeat 100, release 300, poll 10 ms"), 1);
  EXPECT_EQ(count(one, "Recommended: "), 0);
}

TEST_F(TimingTest, ThePictureOfALoopThatWaitsHasOneMap) {
  const Remote remote = remoteOf108Ms();
  const std::string script =
      plotScript(remote, studyTiming(remote, {LoopKind::kWait, {100}, {300}, {10, 20}}), "title");
  EXPECT_EQ(count(script, "Now, and recommended: repeat 100, release 300 ms"), 1);
  EXPECT_EQ(count(script, "set title 'each line read as it comes'"), 1);
  EXPECT_EQ(count(script, "polled every"), 0);
}

TEST_F(TimingTest, MapsThatAreTooWideForARowAreDrawnInSeveral) {
  const Remote remote = remoteOf108Ms();
  const Study study = studyTiming(remote, {LoopKind::kPoll, {50, 60, 70, 80, 90, 100, 110, 120}, {300}, {10, 20}});
  EXPECT_EQ(count(plotScript(remote, study, "title"), "set ytics ('300' 0)"), 2);
}

}  // namespace
}  // namespace quarlo::tools::tune
