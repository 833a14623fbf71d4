// All evdev nodes, and what the reader's autodetection makes of each.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace quarlo::tools {

enum class Verdict { kMouse, kKeyboard, kNotTaken };

struct NodeReport {
  int number = 0;
  std::string path;                 // /dev/input/event<number>
  std::string name;                 // as the device has it: escape it; empty if it could not be asked
  std::vector<std::string> byId;    // links to the node in /dev/input/by-id, with their paths
  std::vector<std::string> byPath;  // the same in /dev/input/by-path
  Verdict verdict = Verdict::kNotTaken;
  std::string reason;  // why it is not taken
  std::string remedy;  // what to do if it should be; empty if there is nothing
};

// Opens /dev/input/event0 to event1023, those that exist, and grabs each for a moment, as the reader does. In the order
// of their numbers.
std::vector<NodeReport> surveyNodes();

// {"node":"/dev/input/event3","name":...,"byId":[...],"byPath":[...],"verdict":"mouse" or "keyboard" or "not taken",
//  "reason":...,"remedy":...}
nlohmann::ordered_json toJson(const NodeReport& report);

}  // namespace quarlo::tools
