// Events as text with all their fields, so that a test compares whole outcomes and reads like what happened.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "input/linux_input_reader.h"

namespace quarlo::test {

using components::input::LinuxInputReader;
using InputEvent = LinuxInputReader::InputEvent;
using Lines = std::vector<std::string>;

// An event whose bytes are all 0xEE: what a reader does not write can be told from what it does.
InputEvent untouched();
bool isUntouched(const InputEvent& event);

// An event as it lies in memory, padding included.
std::array<unsigned char, sizeof(InputEvent)> bytesOf(const InputEvent& event);

std::string text(const InputEvent& event);

// What text() gives for an event of these fields.
std::string keyDown(int key, int ch = 0, unsigned modifiers = 0);
std::string keyUp(int key, int ch = 0, unsigned modifiers = 0);
std::string moved(int x, int y, int button = 0);
std::string buttonDown(int button, int x, int y, int clicks);
std::string buttonUp(int button, int x, int y, int clicks);
// readInput() returned true and wrote nothing.
inline const std::string kNothingWritten = "nothing written";

// What one readInput() call gives: an event's text, or "none" for false.
std::string readOne(LinuxInputReader& reader, int timeoutMs = 0);
inline const std::string kNone = "none";

// What readInput() gives without waiting, until it returns false.
Lines readAll(LinuxInputReader& reader);

// Records as a driver's: translateEvent() and its handlers take them.
input_event makeEvdevRecord(int type, int code, int value);

}  // namespace quarlo::test
