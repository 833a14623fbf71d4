// All evdev nodes, and what the reader's autodetection makes of each.
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
  std::string text;    // a sentence without its full stop, about the node
  std::string remedy;  // what to do
};

struct NodeReport {
  int number = 0;
  std::string path;                 // /dev/input/event<number>
  std::vector<std::string> byId;    // links to the node in /dev/input/by-id, with their paths
  std::vector<std::string> byPath;  // the same in /dev/input/by-path
  bool readable = false;            // whether it could be opened; if not, there are no facts
  bool grabbed = false;             // whether another process has grabbed it
  NodeFacts facts;
  NodeClass nodeClass = NodeClass::kOther;
  ReaderTests tests;
  std::vector<std::string> delivers;  // what the reader gives of it if its path is passed: "keys", "unknown keys"
                                      // (key 0), "motion", "left button", "right button", "middle button"
  Verdict verdict = Verdict::kNotTaken;
  std::string reason;  // why it is not taken
  std::string remedy;  // what to do if it should be; empty if there is nothing
  std::vector<NodeWarning> warnings;
};

// Opens /dev/input/event0 to event1023, those that exist, and grabs each for a moment, as the reader does. In the order
// of their numbers.
std::vector<NodeReport> surveyNodes(const SystemFolders& folders = {});

// {"node":"/dev/input/event3","name":...,"byId":[...],"byPath":[...],"verdict":"mouse" or "keyboard" or "not taken",
//  "reason":...,"remedy":...}
nlohmann::ordered_json toJson(const NodeReport& report);

}  // namespace quarlo::tools
