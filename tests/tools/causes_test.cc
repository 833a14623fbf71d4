// What each event of a replay came of: of the samples, of random lives, and where records are lost.
#include "tools/common/causes.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "recording/session.h"
#include "sim/machine.h"
#include "tests/lives/life.h"
#include "tests/lives/life_session.h"
#include "tools/common/describe.h"

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;
using recording::DeviceRecording;
using recording::Record;
using recording::RemoteLine;
using recording::Session;
using test::lives::sessionOf;

// ---- Who is told --------------------------------------------------------------------------------

struct ToldRecord {
  std::size_t number;
  Outcome outcome;
};

struct ToldEvent {
  std::size_t number;
  microseconds time;
  InputEvent event;
  InputLoop::Source source;
  std::size_t cause;
};

std::string text(microseconds time, const InputEvent& event, InputLoop::Source source) {
  return describeTime(time) + " " + sourceName(source) + " " + describe(event);
}

struct Told : Witness {
  void record(InputLoop::Source source, std::size_t number, const Record& /*record*/, const Outcome& outcome) override {
    records[source].push_back({number, outcome});
  }
  void line(std::size_t number, const RemoteLine& /*line*/, const Outcome& outcome) override {
    records[InputLoop::kRemote].push_back({number, outcome});
  }
  void state(const RemoteState& state) override { states.push_back(state); }
  bool event(const NumberedEvent& event) override {
    events.push_back({event.number, event.time, event.event, *event.origin.source, event.cause});
    return true;
  }

  std::map<InputLoop::Source, std::vector<ToldRecord>> records;
  std::vector<RemoteState> states;
  std::vector<ToldEvent> events;
};

// How often a button was clicked is known to all readers of a process: once, from here on.
void forgetClicks() {
  const sim::Device device = sim::Device::mouse();
  Session session;
  session.mouse = DeviceRecording{device.name, device.codes, {}};
  for (const int button : {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE}) {
    session.mouse->records.push_back({0us, EV_KEY, static_cast<std::uint16_t>(button), 1});
  }
  session.mouse->records.push_back({0us, EV_SYN, SYN_REPORT, 0});
  struct : Audience {
    bool take(microseconds /*time*/, const InputEvent& /*event*/, const Origin& /*origin*/,
              const InputLoop::Cause* /*cause*/) override {
      return true;
    }
  } nobody;
  playSession(session, {}, ReaderLoop::Empty::kUnknown, nobody);
}

Told toldOf(const Session& session) {
  forgetClicks();
  Told told;
  Causes causes(session, told);
  playSession(session, {}, ReaderLoop::Empty::kEverything, causes);
  causes.end();
  return told;
}

// What became of the records of a source: "event 3", or why nothing.
std::vector<std::string> outcomesOf(const Told& told, InputLoop::Source source) {
  std::vector<std::string> texts;
  for (const ToldRecord& record : told.records.at(source)) {
    const Outcome& outcome = record.outcome;
    texts.push_back(outcome.event != 0 ? "event " + std::to_string(outcome.event) : nameOf(outcome.why).id);
  }
  return texts;
}

using Texts = std::vector<std::string>;

// ---- What must hold of all of them --------------------------------------------------------------

struct PlainAudience : Audience {
  bool take(microseconds time, const InputEvent& event, const Origin& origin,
            const InputLoop::Cause* /*cause*/) override {
    events.push_back(text(time, event, *origin.source));
    return true;
  }

  Texts events;
};

// The events are those without records.
void checkEvents(const Session& session, const Told& told) {
  forgetClicks();
  PlainAudience plain;
  playSession(session, {}, ReaderLoop::Empty::kUnknown, plain);
  const auto isEvent = [](const std::string& line) { return line.find("no event") == std::string::npos; };
  Texts expected;
  std::copy_if(plain.events.begin(), plain.events.end(), std::back_inserter(expected), isEvent);
  Texts events;
  for (const ToldEvent& event : told.events) events.push_back(text(event.time, event.event, event.source));
  EXPECT_EQ(events, expected);
  for (std::size_t i = 0; i < told.events.size(); ++i) EXPECT_EQ(told.events[i].number, i + 1);
}

const std::vector<Record>& recordsOf(const Session& session, InputLoop::Source source) {
  return source == InputLoop::kMouse ? session.mouse->records : session.keyboard->records;
}

// Each record and line is told of once, in its order, and gives an event or has a reason.
void checkRecords(const Session& session, const Told& told) {
  std::map<InputLoop::Source, std::size_t> counts;
  if (session.mouse) counts[InputLoop::kMouse] = session.mouse->records.size();
  if (session.keyboard) counts[InputLoop::kKeyboard] = session.keyboard->records.size();
  if (session.remote) counts[InputLoop::kRemote] = session.remote->size();
  EXPECT_EQ(told.records.size(), counts.size());
  for (const auto& [source, records] : told.records) {
    EXPECT_EQ(records.size(), counts[source]);
    for (std::size_t i = 0; i < records.size(); ++i) {
      EXPECT_EQ(records[i].number, i + 1);
      EXPECT_NE(records[i].outcome.event == 0, records[i].outcome.why == Why::kNone);
    }
  }
}

// A reader of its own, for nodes: from the records that are told to be an event, the event follows.
class Model {
 public:
  explicit Model(const Session& session) : session_(session) {}

  void check(const ToldEvent& event, const std::vector<ToldRecord>& records) {
    std::vector<Record> parts;
    for (const ToldRecord& told : records) {
      if (told.outcome.event == event.number) parts.push_back(recordsOf(session_, event.source)[told.number - 1]);
    }
    ASSERT_FALSE(parts.empty()) << event.number;
    for (const Record& part : parts) EXPECT_LE(part.time, event.time);
    if (event.event.kind == InputEvent::kMouseEvent && event.event.mouseData.action == InputEvent::MouseData::kMove) {
      checkMove(event.event, parts);
    } else {
      ASSERT_EQ(parts.size(), 1U);
      checkSingle(event.event, parts[0]);
    }
  }

 private:
  static int stepped(int position, int step, int max) {
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{position} + step, 0, max));
  }

  void checkMove(const InputEvent& event, const std::vector<Record>& parts) {
    for (const Record& part : parts) {
      ASSERT_EQ(part.type, EV_REL);
      ASSERT_LE(part.code, REL_Y);
      if (part.code == REL_X) x_ = stepped(x_, part.value, 1919);
      if (part.code == REL_Y) y_ = stepped(y_, part.value, 1079);
    }
    EXPECT_EQ(event.mouseData.x, x_);
    EXPECT_EQ(event.mouseData.y, y_);
  }

  static void checkSingle(const InputEvent& event, const Record& part) {
    if (event.kind == InputLoop::kWheelEvent) {
      EXPECT_EQ(part.type, EV_REL);
      EXPECT_EQ(part.code, event.mouseData.action);
      EXPECT_EQ(part.value, event.mouseData.button);
      return;
    }
    EXPECT_EQ(part.type, EV_KEY);
    const bool isUp = event.kind == InputEvent::kKeyEvent ? event.keyData.action == InputEvent::KeyData::kUp
                                                          : event.mouseData.action == InputEvent::MouseData::kButtonUp;
    EXPECT_EQ(part.value == 0, isUp);
    if (event.kind != InputEvent::kKeyEvent) return;
    LinuxInputReader::Key key;
    char ch;
    LinuxInputReader::translateKey(part.code, 0, false, key, ch);
    EXPECT_EQ(event.keyData.key, key);
  }

  const Session& session_;
  int x_ = 0;
  int y_ = 0;
};

void checkCauses(const Session& session, const Told& told) {
  Model model(session);
  for (const ToldEvent& event : told.events) {
    if (event.cause == 0) continue;
    const std::vector<ToldRecord>& records = told.records.at(event.source);
    EXPECT_EQ(records.at(event.cause - 1).outcome.event, event.number);
    if (event.source != InputLoop::kRemote) model.check(event, records);
  }
}

Told check(const Session& session) {
  Told told = toldOf(session);
  checkEvents(session, told);
  checkRecords(session, told);
  checkCauses(session, told);
  return told;
}

TEST(Causes, OfTheSamplesAreThoseThatTheEventsShow) {
  for (const char* name : {"desk", "living-room", "sofa"}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(check(recording::readSession(std::string(QUARLO_SESSIONS) + "/" + name)).events.empty());
  }
}

TEST(Causes, OfRandomLivesAreThoseThatTheEventsShow) {
  std::size_t events = 0;
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    for (const test::lives::Life& life : {test::lives::plainLife(seed), test::lives::oddLife(seed)}) {
      SCOPED_TRACE(test::lives::text(life));
      const Session session = sessionOf(life);
      if (!session.mouse && !session.keyboard && !session.remote) continue;
      events += check(session).events.size();
      if (testing::Test::HasFailure()) return;
    }
  }
  EXPECT_GT(events, 1000U);
}

TEST(Causes, EachReasonIsInTheDocuments) {
  std::ostringstream document;
  document << std::ifstream(std::string(QUARLO_DOCUMENTS) + "/monitor.md").rdbuf();
  for (std::size_t i = 0; i < kWhyNames.size(); ++i) {
    const WhyName& name = kWhyNames[i];
    EXPECT_EQ(static_cast<std::size_t>(name.why), i + 1);
    const std::string row = "\n| `" + std::string(name.id) + "` | " + name.text + " |\n";
    EXPECT_NE(document.str().find(row), std::string::npos) << row;
  }
}

// ---- One by one ---------------------------------------------------------------------------------

constexpr Record syn(microseconds time) { return {time, EV_SYN, SYN_REPORT, 0}; }
constexpr Record key(microseconds time, std::uint16_t code, int value) { return {time, EV_KEY, code, value}; }
constexpr Record step(microseconds time, std::uint16_t axis, int value) { return {time, EV_REL, axis, value}; }

Session sessionOf(const sim::Device& device, std::vector<Record> records) {
  Session session;
  (device.codes.count(EV_REL) != 0 ? session.mouse : session.keyboard) =
      DeviceRecording{device.name, device.codes, std::move(records)};
  return session;
}

Session remoteOf(std::vector<RemoteLine> lines) {
  Session session;
  session.remote = std::move(lines);
  return session;
}

TEST(Causes, AMoveCameOfAllItsSteps) {
  const Told told =
      check(sessionOf(sim::Device::mouse(), {step(0us, REL_X, 3), step(0us, REL_Y, 4), syn(0us), step(0us, REL_X, 1),
                                             syn(0us), key(0us, BTN_LEFT, 1), syn(0us)}));
  EXPECT_EQ(outcomesOf(told, InputLoop::kMouse),
            (Texts{"event 1", "event 1", "mark", "event 1", "mark", "event 2", "mark"}));
  EXPECT_EQ(told.events[0].cause, 4U);
  EXPECT_EQ(told.events[1].cause, 6U);
}

TEST(Causes, WhatGaveNothingHasItsReason) {
  const Told told =
      toldOf(sessionOf(sim::Device::mouse(),
                       {key(0us, BTN_SIDE, 1), key(0us, BTN_LEFT, 2), Record{0us, EV_MSC, MSC_SCAN, 1},
                        Record{0us, EV_ABS, ABS_X, 1}, Record{0us, EV_LED, LED_NUML, 1},
                        step(0us, REL_WHEEL_HI_RES, 120), Record{0us, EV_SW, 0, 1}, Record{0us, EV_SYN, SYN_DROPPED, 0},
                        syn(0us), key(0us, BTN_TOUCH, 1), key(0us, BTN_TOOL_FINGER, 1), syn(0us), key(0us, KEY_A, 1)}));
  EXPECT_EQ(outcomesOf(told, InputLoop::kMouse),
            (Texts{"side-button", "button-repeat", "scan-code", "position", "light", "other-axis", "other-type",
                   "loss-mark", "mark", "event 1", "touch-twin", "mark", "unread"}));
}

// The buffer of a keyboard has room for 63 records: at the 64th, it keeps that alone.
TEST(Causes, OfWhatABufferHasLostAreToldTooAndTheRestHasItsOwnNumbers) {
  std::vector<Record> records;
  for (int i = 0; i < 32; ++i) {
    records.push_back(key(0us, KEY_A, i % 2 == 0 ? 1 : 0));
    records.push_back(syn(0us));
  }
  records.push_back(key(0us, KEY_A, 1));
  records.push_back(syn(0us));
  const Told told = check(sessionOf(sim::Device::keyboard(), records));
  Texts expected(63, "lost");
  expected.insert(expected.end(), {"mark", "event 1", "mark"});
  EXPECT_EQ(outcomesOf(told, InputLoop::kKeyboard), expected);
  EXPECT_EQ(told.events.at(0).cause, 65U);
}

TEST(Causes, OfWhatTheLoopMakesAfterALossIsNoRecord) {
  std::vector<Record> records = {key(0us, KEY_LEFTSHIFT, 1), syn(0us)};
  for (int i = 0; i < 64; ++i) records.push_back(i == 0 ? key(1s, KEY_LEFTSHIFT, 0) : syn(1s));
  const Told told = toldOf(sessionOf(sim::Device::keyboard(), records));
  ASSERT_EQ(told.events.size(), 2U);
  EXPECT_EQ(told.events[0].cause, 1U);
  EXPECT_EQ(told.events[1].cause, 0U);
  EXPECT_EQ(told.events[1].event.keyData.action, InputEvent::KeyData::kUp);
}

const std::string kLine = "0 00 KEY_OK tv";
const std::string kRepeat = "0 01 KEY_OK tv";

TEST(Causes, ALineGivesAnEventOrHasItsReason) {
  const std::string isLong = "0 00 KEY_OK " + std::string(300, 'x');
  const Told told = toldOf(remoteOf({{0us, kLine},
                                     {0us, kRepeat},
                                     {0us, "0 00 KEY_TEA tv"},
                                     {0us, "BEGIN"},
                                     {0us, ""},
                                     {0us, isLong},
                                     {0us, "0 00 KEY_UP tv\n0 00 KEY_DOWN tv"},
                                     {0us, kLine}}));
  EXPECT_EQ(outcomesOf(told, InputLoop::kRemote),
            (Texts{"event 1", "early", "unknown-button", "broadcast", "cut-line", "event 2", "event 3", "event 5"}));
  EXPECT_EQ(told.events[3].cause, 7U);
}

TEST(Causes, WhatTheRemotesKeyIsComesOfALineOrOfTime) {
  const Told told = check(remoteOf({{0us, kLine}, {310ms, kRepeat}, {350ms, kRepeat}}));
  Texts states;
  for (const RemoteState& state : told.states) {
    states.push_back(describeTime(state.time) + " " + std::to_string(static_cast<int>(state.key)) + " line " +
                     std::to_string(state.line) + " until " + describeTime(state.deadline));
  }
  EXPECT_EQ(states, (Texts{"0.000 1 line 1 until 0.300", "0.300 2 line 1 until 0.300", "0.310 2 line 2 until 0.410",
                           "0.510 0 line 3 until 0.510"}));
}

TEST(Causes, OfAFurtherNodeHaveTheNumberThatItWasRecordedWith) {
  const sim::Device device = sim::Device::keyboard();
  Session session;
  session.further[2] = DeviceRecording{device.name, device.codes, {key(0us, KEY_A, 1), syn(0us)}};
  const Told told = toldOf(session);
  EXPECT_EQ(outcomesOf(told, furtherSource(2)), (Texts{"event 1", "mark"}));
  EXPECT_EQ(told.events.at(0).source, furtherSource(2));
}

}  // namespace
}  // namespace quarlo::tools
