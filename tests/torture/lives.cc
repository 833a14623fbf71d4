#include "tests/torture/lives.h"

#include <cstdio>

#include "tests/unit/events.h"

namespace quarlo::test::torture {

using namespace std::chrono_literals;

namespace {

struct Step {
  int type;
  int code;
  int value;
};

void report(std::vector<Record>& records, milliseconds at, const std::vector<Step>& steps) {
  for (const Step& step : steps) records.push_back({at, makeEvdevRecord(step.type, step.code, step.value)});
  records.push_back({at, makeEvdevRecord(EV_SYN, SYN_REPORT, 0)});
}

Life setUp(const std::string& name, bool search) {
  Life life = {name, search, {}, {}, 200ms};
  report(life.records[kMouse], 100ms, {{EV_REL, REL_X, 5}});
  report(life.records[kKeyboard], 100ms, {{EV_KEY, KEY_A, 1}});
  life.lines.push_back({100ms, "KEY_MUTE", 449});
  return life;
}

}  // namespace

std::string textOf(const RemoteLine& line) {
  char repeat[16];
  std::snprintf(repeat, sizeof repeat, "%02x", line.repeat);
  return "0000000000f40bf0 " + std::string(repeat) + " " + line.button + " myremote\n";
}

Life withoutSources() { return {"nothing", false, {}, {}, 0ms}; }

Life typing() {
  Life life = {"typing", false, {}, {}, 800ms};
  std::vector<Record>& keyboard = life.records[kKeyboard];
  report(keyboard, 100ms, {{EV_MSC, MSC_SCAN, 42}, {EV_KEY, KEY_LEFTSHIFT, 1}});
  report(keyboard, 200ms, {{EV_MSC, MSC_SCAN, 30}, {EV_KEY, KEY_A, 1}});
  report(keyboard, 300ms, {{EV_KEY, KEY_A, 2}});
  report(keyboard, 400ms, {{EV_MSC, MSC_SCAN, 30}, {EV_KEY, KEY_A, 0}});
  report(keyboard, 500ms, {{EV_KEY, KEY_LEFTSHIFT, 0}});
  report(keyboard, 600ms, {{EV_KEY, KEY_B, 1}, {EV_KEY, KEY_C, 1}});
  report(keyboard, 700ms, {{EV_KEY, KEY_B, 0}, {EV_KEY, KEY_C, 0}});
  return life;
}

Life pointing() {
  Life life = {"pointing", false, {}, {}, 1500ms};
  std::vector<Record>& mouse = life.records[kMouse];
  report(mouse, 100ms, {{EV_REL, REL_X, 100}, {EV_REL, REL_Y, 50}});
  report(mouse, 200ms, {{EV_KEY, BTN_LEFT, 1}});
  report(mouse, 300ms, {{EV_KEY, BTN_LEFT, 0}});
  report(mouse, 400ms, {{EV_REL, REL_X, 7}, {EV_KEY, BTN_LEFT, 1}});
  report(mouse, 500ms, {{EV_REL, REL_Y, -3}});
  report(mouse, 600ms, {{EV_REL, REL_X, -9}, {EV_REL, REL_X, 4}, {EV_KEY, BTN_LEFT, 0}});
  report(mouse, 700ms, {{EV_KEY, BTN_RIGHT, 1}});
  report(mouse, 800ms, {{EV_KEY, BTN_RIGHT, 0}});
  report(mouse, 900ms, {{EV_REL, REL_X, -2000}, {EV_REL, REL_Y, 5}});
  report(mouse, 1200ms, {{EV_KEY, BTN_LEFT, 1}});
  report(mouse, 1300ms, {{EV_KEY, BTN_LEFT, 0}});
  report(mouse, 1400ms, {{EV_REL, REL_X, 11}, {EV_REL, REL_Y, 2000}});
  return life;
}

// The times are far from all thresholds, see kReleaseTimeout.
Life remote() {
  Life life = {"remote", false, {}, {}, 3000ms};
  for (unsigned i = 0; i < 4; ++i) life.lines.push_back({100ms + 420ms * i, "KEY_VOLUMEUP", 447, i});
  life.lines.push_back({2600ms, "KEY_CHANNELUP", 427});
  life.lines.push_back({2700ms, "KEY_CHANNELUP", 427});
  life.lines.push_back({2800ms, "KEY_MUTE", 449, 1});
  return life;
}

Life linesInPairs() {
  Life life = {"lines in pairs", false, {}, {}, 3000ms};
  for (const milliseconds at : {100ms, 1800ms, 1900ms}) {
    life.lines.push_back({at, "KEY_VOLUMEUP", 447});
    life.lines.push_back({at, "KEY_MUTE", 449});
  }
  return life;
}

Life allSources() {
  Life life = {"all sources", false, {}, {}, 800ms};
  report(life.records[kMouse], 100ms, {{EV_REL, REL_X, 100}, {EV_REL, REL_Y, 50}, {EV_KEY, BTN_LEFT, 1}});
  report(life.records[kMouse], 600ms, {{EV_REL, REL_X, 20}, {EV_KEY, BTN_LEFT, 0}});
  report(life.records[kKeyboard], 100ms, {{EV_KEY, KEY_LEFTSHIFT, 1}, {EV_KEY, KEY_A, 1}});
  report(life.records[kKeyboard], 600ms, {{EV_KEY, KEY_A, 0}, {EV_KEY, KEY_LEFTSHIFT, 0}});
  life.lines.push_back({100ms, "KEY_VOLUMEUP", 447});
  life.lines.push_back({600ms, "KEY_MUTE", 449});
  return life;
}

Life setUpByPath() { return setUp("set-up by path", false); }

Life setUpBySearch() { return setUp("set-up by autodetection", true); }

}  // namespace quarlo::test::torture
