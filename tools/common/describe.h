// An event as text for a person, and as JSON.
#pragma once

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "input/input_loop.h"
#include "input/linux_input_reader.h"

namespace quarlo::tools {

using components::input::InputLoop;
using components::input::LinuxInputReader;
using std::chrono::microseconds;
using InputEvent = LinuxInputReader::InputEvent;

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
std::string describe(const InputEvent& event);

// `time` in seconds, as the text lines have it.
std::string describeTime(microseconds time);

// The event with all its fields, such as
//   {"time":0.512,"kind":"key","action":"down","key":"A","code":65,"ch":97,"modifiers":["shift"]}
//   {"time":0.513,"kind":"mouse","action":"move","button":"none","x":312,"y":40,"clicks":0}
//   {"time":0.514,"kind":"wheel","axis":"vertical","steps":3,"x":312,"y":40}
// `time` is in seconds.
nlohmann::ordered_json toJson(microseconds time, const InputEvent& event);

}  // namespace quarlo::tools
