// What a survey finds of an evdev node. All texts are as devices have them: escape them before they reach a terminal.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tools/common/node_class.h"
#include "tools/common/node_facts.h"

namespace quarlo::tools {

enum class Verdict { kMouse, kKeyboard, kNotTaken };

// The reader's own tests of a node.
struct ReaderTests {
  bool relative = false;       // relative axes x and y
  bool absolute = false;       // absolute axes x and y
  bool pointerButton = false;  // a left button, or one of touch
  bool arrows = false;         // all four arrow keys
};

// What is wrong with a node although it is taken.
struct NodeWarning {
  std::string id;      // stable, for programs: "no-letters", "touch-half", "remote-as-mouse"
  std::string text;    // about the node, without a full stop
  std::string remedy;  // what to do, as a sentence without its full stop
};

struct NodeReport {
  int number = 0;
  std::string path;                 // /dev/input/event<number>
  std::vector<std::string> byId;    // links to the node in /dev/input/by-id, with their paths
  std::vector<std::string> byPath;  // the same in /dev/input/by-path
  bool readable = false;            // whether it could be opened and is an evdev node; if not, what follows down to
                                    // `delivers` is not known
  bool grabbed = false;             // whether another process has grabbed it
  NodeFacts facts;
  NodeClass nodeClass = NodeClass::kOther;
  ReaderTests tests;
  std::vector<std::string> delivers;  // what the reader gives of it if its path is passed: "keys", "unknown keys"
                                      // (all of them key 0), "motion", "left button", "right button", "middle button"
  Verdict verdict = Verdict::kNotTaken;
  std::string reason;  // why it is not taken
  std::string remedy;  // what to do if it should be; empty if there is nothing
  std::vector<NodeWarning> warnings;
};

// The path that it keeps when it is plugged in again, if it has one.
std::string lastingPathOf(const NodeReport& report);

// "usb", "bluetooth", "cec", ...; "0x1f" for one that has no name here.
std::string busName(int bus);

// An object with these fields, in this order:
//
//   "node":"/dev/input/event3"
//   "byId":[...], "byPath":[...]        links to it
//   "readable":true                     whether it could be opened and is an evdev node; if not, it goes on with the
//                                       verdict
//   "name":"USB Mouse"                  as the device has it
//   "class":"mouse"                     as node_class.h names them
//   "bus":"usb"                         as busName() gives it
//   "vendor":"046d", "product":"c077", "version":"0111"   hexadecimal
//   "phys":"usb-0000:00:14.0-2/input0", "uniq":""         how it is connected, and its serial number
//   "grabbed":false                     whether another process has grabbed it
//   "relative":true, "absolute":false, "pointerButton":true, "arrows":false   the reader's own tests (ReaderTests)
//   "letters":false                     whether it has all letters
//   "repeat":{"delayMs":500,"periodMs":125}   NodeRepeat; null if the kernel repeats none of its keys
//   "rc":{"device":"rc0","driver":"rc-loopback","keyMap":"rc-empty","protocols":["nec","lirc"],"active":["nec"],
//         "lirc":"/dev/lirc0"}          the kernel's receiver that it belongs to (RcFacts), or null
//   "delivers":["motion","left button"] what the reader gives of it if its path is passed (NodeReport::delivers)
//   "verdict":"mouse"                   or "keyboard" or "not taken"
//   "reason":"", "remedy":""            why it is not taken, and what to do if it should be
//   "warnings":[{"id":"touch-half","text":...,"remedy":...}]   what is wrong although it is taken (NodeWarning)
nlohmann::ordered_json toJson(const NodeReport& report);

// A list of objects, as above.
nlohmann::ordered_json toJson(const std::vector<NodeWarning>& warnings);

}  // namespace quarlo::tools
