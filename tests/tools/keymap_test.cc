#include "tools/keymap/keymap.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "sim/machine.h"
#include "tools/keymap/mapping.h"

namespace quarlo::tools::keymap {
namespace {

using msg::KeyInput;
using nlohmann::json;

std::vector<std::string> linesOf(std::istream& stream) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// What `keymap` prints on standard output.
std::string printed(const KeymapOptions& options) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(run(options), 0);
  return testing::internal::GetCapturedStdout();
}

std::vector<std::string> printedLines(const KeymapOptions& options) {
  std::istringstream stream(printed(options));
  return linesOf(stream);
}

constexpr KeymapOptions kText;

constexpr KeymapOptions jsonOptions() {
  KeymapOptions options;
  options.json = true;
  return options;
}

// The objects of --json from one source.
std::vector<json> printedObjects(const std::string& source) {
  std::vector<json> objects;
  for (const std::string& line : printedLines(jsonOptions())) {
    json object = json::parse(line);
    if (object["source"] == source) objects.push_back(std::move(object));
  }
  return objects;
}

// ---- Text ---------------------------------------------------------------------------------------

TEST(Keymap, HasALineForEachKeyAndButton) {
  const std::vector<std::string> lines = printedLines(kText);
  for (const std::string line : {
           "source  Linux  names                                     gives            code  types",
           "evdev      30  KEY_A                                     A                  65  'a', Shift 'A'",
           "evdev       3  KEY_2                                     2                  50  '2', Shift '@'",
           "evdev      71  KEY_KP7                                   Keypad7           103  Num Lock '7'",
           "evdev      55  KEY_KPASTERISK                            KeypadMultiply    106  '*'",
           "evdev      42  KEY_LEFTSHIFT                             Shift              16  modifier shift",
           "evdev      14  KEY_BACKSPACE                             Backspace           8  8",
           "evdev     116  KEY_POWER                                 Power             409  153",
           "evdev     158  KEY_BACK                                  PreviousTrack     424",
           "evdev     514  KEY_NUMERIC_2                             2                  50  '2', Shift '@'",
           "evdev      58  KEY_CAPSLOCK                              key 0               0",
           "evdev     152  KEY_COFFEE, KEY_SCREENLOCK                key 0               0",
           "evdev     272  BTN_MOUSE, BTN_LEFT                       left button",
           "evdev     274  BTN_MIDDLE                                middle button",
           "evdev     275  BTN_SIDE                                  no event",
           "evdev     330  BTN_TOUCH                                 left button",
           "remote         UP, KEY_UP                                Up                 38",
           "remote         BACK, KEY_BACK                            Back              461",
           "remote         POWER, KEY_POWER                          Power             409  153",
           "remote         7, KEY_7, KEY_NUMERIC_7                   7                  55  '7'",
           "remote         A, KEY_A, KEY_NUMERIC_A                   A                  65  'A'",
       }) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
  }
}

TEST(Keymap, FitsAHundredColumns) {
  for (const std::string& line : printedLines(kText)) EXPECT_LE(line.size(), 100U) << line;
}

// That is why a line need not say what both give together.
TEST(Keymap, WithShiftAndNumLockAKeyTypesWhatTheOneThatMattersGives) {
  for (const Mapping& mapping : allMappings()) {
    if (mapping.event.kind != InputEvent::kKeyEvent) continue;
    const bool numLockMatters = mapping.withNumLock != mapping.event.keyData.ch;
    EXPECT_EQ(mapping.withBoth, numLockMatters ? mapping.withNumLock : mapping.withShift) << mapping.names.front();
  }
}

// ---- JSON: evdev devices ------------------------------------------------------------------------

std::map<int, json> objectsByLinuxCode() {
  std::map<int, json> objects;
  for (json& object : printedObjects("evdev")) {
    const int code = object["linuxCode"];
    EXPECT_TRUE(objects.emplace(code, std::move(object)).second) << code << " is there twice";
  }
  return objects;
}

int characterOf(int linuxCode, LinuxInputReader::Modifier modifiers, bool numLock) {
  LinuxInputReader::Key key;
  char ch;
  LinuxInputReader::translateKey(linuxCode, modifiers, numLock, key, ch);
  return static_cast<unsigned char>(ch);
}

LinuxInputReader::Key keyOf(int linuxCode) {
  LinuxInputReader::Key key;
  char ch;
  LinuxInputReader::translateKey(linuxCode, 0, false, key, ch);
  return key;
}

json modifiersOf(int linuxCode) {
  switch (LinuxInputReader::getModifier(linuxCode)) {
    case KeyInput::kControlModifier: return {"ctrl"};
    case KeyInput::kShiftModifier: return {"shift"};
    case KeyInput::kAltModifier: return {"alt"};
    default: return json::array();
  }
}

json expectedKey(int linuxCode, const json& names) {
  // A Shift key is held when it is pressed.
  const LinuxInputReader::Modifier own = LinuxInputReader::getModifier(linuxCode);
  return {{"source", "evdev"},
          {"names", names},
          {"linuxCode", linuxCode},
          {"kind", "key"},
          {"key", keyName(keyOf(linuxCode))},
          {"code", keyOf(linuxCode)},
          {"ch", characterOf(linuxCode, own, false)},
          {"modifiers", modifiersOf(linuxCode)},
          {"chShift", characterOf(linuxCode, KeyInput::kShiftModifier, false)},
          {"chNumLock", characterOf(linuxCode, own, true)},
          {"chNumLockShift", characterOf(linuxCode, KeyInput::kShiftModifier, true)}};
}

TEST(KeymapJson, AgreesWithTheReaderForEveryLinuxCode) {
  const std::map<int, json> objects = objectsByLinuxCode();
  int keys = 0;
  for (int code = 0; code <= KEY_MAX; ++code) {
    const auto found = objects.find(code);
    if (found == objects.end()) {
      EXPECT_EQ(keyOf(code), KeyInput::kNone) << code << " has no name";
    } else if (found->second["kind"] == "key") {
      EXPECT_EQ(found->second, expectedKey(code, found->second["names"]));
      ++keys;
    }
  }
  EXPECT_GT(keys, 500);
}

TEST(KeymapJson, TellsMouseButtonsFromKeys) {
  std::map<std::string, std::string> buttons;
  for (const auto& [code, object] : objectsByLinuxCode()) {
    if (object["kind"] == "key") continue;
    buttons[object["names"].back()] = object["kind"] == "mouse" ? object["button"] : object["kind"];
  }
  const std::map<std::string, std::string> expected = {
      {"BTN_LEFT", "left"},  {"BTN_RIGHT", "right"},     {"BTN_MIDDLE", "middle"}, {"BTN_SIDE", "none"},
      {"BTN_EXTRA", "none"}, {"BTN_BACK", "none"},       {"BTN_FORWARD", "none"},  {"BTN_TASK", "none"},
      {"BTN_TOUCH", "left"}, {"BTN_TOOL_FINGER", "left"}};
  EXPECT_EQ(buttons, expected);
}

TEST(KeymapJson, HasTheFieldsOfItsKindInOrder) {
  const std::vector<std::string> lines = printedLines(jsonOptions());
  for (const std::string line :
       {R"({"source":"evdev","names":["KEY_2"],"linuxCode":3,"kind":"key","key":"2","code":50,"ch":50,"modifiers":[],)"
        R"("chShift":64,"chNumLock":50,"chNumLockShift":64})",
        R"({"source":"evdev","names":["BTN_RIGHT"],"linuxCode":273,"kind":"mouse","button":"right"})",
        R"({"source":"evdev","names":["BTN_SIDE"],"linuxCode":275,"kind":"none"})",
        R"({"source":"remote","names":["OK","KEY_OK"],"kind":"key","key":"Enter","code":13,"ch":13,"modifiers":[]})"}) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
  }
}

TEST(KeymapJson, HasEveryNameOnceAndNoLimitAmongThem) {
  std::set<std::string> names;
  for (const json& object : printedObjects("evdev")) {
    for (const std::string name : object["names"]) EXPECT_TRUE(names.insert(name).second) << name;
  }
  EXPECT_EQ(names.count("KEY_RESERVED") + names.count("KEY_MICMUTE") + names.count("BTN_TRIGGER_HAPPY40"), 3U);
  for (const char* limit : {"KEY_MAX", "KEY_CNT", "KEY_MIN_INTERESTING"}) EXPECT_EQ(names.count(limit), 0U) << limit;
}

// ---- JSON: remotes ------------------------------------------------------------------------------

TEST(KeymapJson, HasEveryRemoteButtonThatHasAName) {
  std::vector<json> expected;
#define LIRC_BUTTON(name, key, character)              \
  expected.push_back({{"source", "remote"},            \
                      {"names", {name, "KEY_" name}},  \
                      {"kind", "key"},                 \
                      {"key", keyName(KeyInput::key)}, \
                      {"code", KeyInput::key},         \
                      {"ch", (character)&0xff},        \
                      {"modifiers", json::array()}});
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
  std::vector<json> found = printedObjects("remote");
  found.resize(expected.size());
  EXPECT_EQ(found, expected);
}

TEST(KeymapJson, HasTheDigitsAndLettersOfARemote) {
  std::string characters;
  for (const json& object : printedObjects("remote")) {
    const std::string name = object["names"].front();
    if (name.size() != 1) continue;
    characters += name;
    EXPECT_EQ(object["code"], name[0]);
    EXPECT_EQ(object["ch"], name[0]);
  }
  EXPECT_EQ(characters, "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ");
}

TEST(KeymapJson, GivesARemotesButtonOnlyNamesThatTheReaderKnows) {
  const std::vector<json> objects = printedObjects("remote");
  sim::Machine machine;
  sim::LircDaemon& daemon = machine.addLircDaemon("socket");
  LinuxInputReader reader;
  reader.lircFd = reader.openLircSocket("socket");
  for (const json& object : objects) {
    for (const std::string name : object["names"]) {
      InputEvent event = {};
      daemon.send(name);
      EXPECT_TRUE(reader.getLircEvent(reader.lircFd, event)) << name;
      EXPECT_EQ(event.keyData.key, object["code"]) << name;
    }
  }
}

// ---- The page -----------------------------------------------------------------------------------

std::string printedPage() {
  KeymapOptions options;
  options.markdown = true;
  return printed(options);
}

TEST(KeymapPage, IsCurrent) {
  std::ifstream file(QUARLO_DOCUMENTS "/keymap.md");
  std::istringstream printed(printedPage());
  const std::vector<std::string> page = linesOf(file);
  const std::vector<std::string> wanted = linesOf(printed);
  const auto [inPage, inWanted] = std::mismatch(page.begin(), page.end(), wanted.begin(), wanted.end());
  if (inPage == page.end() && inWanted == wanted.end()) return;
  ADD_FAILURE() << "docs/keymap.md differs from what the program prints, from line " << inPage - page.begin() + 1
                << " on:\n  " << (inPage == page.end() ? "(its end)" : *inPage) << "\ninstead of\n  "
                << (inWanted == wanted.end() ? "(its end)" : *inWanted)
                << "\nTo write it again: quarlo-input keymap --markdown >docs/keymap.md";
}

TEST(KeymapPage, HasARowForEachKeyAndButton) {
  const std::string text = printedPage();
  for (const std::string row : {
           "\n| `KEY_A` | 30 | A | 65 | 'a', Shift 'A' |\n",
           "\n| `KEY_BACKSLASH` | 43 | Backslash | 220 | '\\\\', Shift '\\|' |\n",
           "\n| `KEY_F1` | 59 | F1 | 112 | |\n",
           "\n| `BTN_MOUSE`, `BTN_LEFT` | 272 | left button |\n",
           "\n| `BTN_SIDE` | 275 | no event |\n",
           "\n| `OK`, `KEY_OK` | Enter | 13 | 13 |\n",
           "\n| `1`, `KEY_1`, `KEY_NUMERIC_1` | 1 | 49 | '1' |\n",
       }) {
    EXPECT_NE(text.find(row), std::string::npos) << row;
  }
}

TEST(KeymapPage, LeavesOutOnlyWhatGivesNothing) {
  const std::string text = printedPage();
  for (const Mapping& mapping : allMappings()) {
    if (text.find("`" + mapping.names.front() + "`") != std::string::npos) continue;
    const InputEvent::KeyData& key = mapping.event.keyData;
    EXPECT_EQ(mapping.event.kind, InputEvent::kKeyEvent) << mapping.names.front();
    EXPECT_EQ(std::tuple(key.key, key.ch, key.modifiers), std::tuple(0, 0, 0U)) << mapping.names.front();
    EXPECT_EQ(std::tuple(mapping.withShift, mapping.withNumLock, mapping.withBoth), std::tuple(0, 0, 0))
        << mapping.names.front();
  }
}

}  // namespace
}  // namespace quarlo::tools::keymap
