// An event as text for a person, and as JSON.
#pragma once

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "input/input_loop.h"
#include "input/linux_input_reader.h"
#include "recording/session.h"

namespace quarlo::tools {

using components::input::InputLoop;
using components::input::LinuxInputReader;
using std::chrono::microseconds;
using InputEvent = LinuxInputReader::InputEvent;

// Where an event came from, as far as that is known.
struct Origin {
  std::optional<InputLoop::Source> source;
  std::optional<recording::Record> record;  // of a node, without its time; of several, the last one
  std::string line;                         // of the remote, without its end
};

// The constant of msg/key_input.h with this value, without its k: "A", "PageUp"; "key 200" if there is none.
std::string keyName(LinuxInputReader::Key key);

// A mouse button's name: "none", "left", "right", "middle".
const char* buttonName(std::int32_t button);

// A character in quotes if it can be printed, and otherwise its number from 0 (none) to 255.
std::string describeCharacter(char ch);

// "ctrl+shift+alt", or those of them that are held.
std::string describeModifiers(LinuxInputReader::Modifier modifiers);

// The event in aligned columns, such as
//   key down    A               'a'  shift
//   mouse move  312,40          left held
//   mouse down  left x2         312,40
//   wheel       up x3           312,40
// and with what it came of, where that says more:
//   key down    key 0           KEY_PLAYPAUSE 164
//   no event    BTN_SIDE 275    EV_KEY, value 1
//   no event    KEY_PLAYPAUSE   an unknown button
std::string describe(const InputEvent& event, const Origin& origin = {});

// The same behind its source, in an aligned column.
std::string describeWithSource(const InputEvent& event, const Origin& origin);

// "mouse", "node 1"; "unknown".
std::string describeSource(const Origin& origin);

// `time` in seconds, as the text lines have it.
std::string describeTime(microseconds time);

// The time of day here, in ISO 8601: "2026-11-22T23:15:04.120+01:00".
std::string describeClock(std::chrono::system_clock::time_point time);

// The event with all its fields, such as
//   {"kind":"key","action":"down","key":"A","code":65,"ch":97,"modifiers":["shift"]}
//   {"kind":"mouse","action":"move","button":"none","x":312,"y":40,"clicks":0}
//   {"kind":"wheel","axis":"vertical","steps":3,"x":312,"y":40}
// and of a key without a code here, with its name and code in Linux:
//   {"kind":"key","action":"down","key":"key 0","code":0,"ch":0,"modifiers":[],"linuxName":"KEY_TV","linuxCode":377}
nlohmann::ordered_json toJson(const InputEvent& event, const Origin& origin = {});

}  // namespace quarlo::tools
