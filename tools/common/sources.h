// The sources that a subcommand reads from, as they were chosen, and a report of which are open and why one is not.
// Further nodes are numbered from 1 for a person, as in a session, and from 0 as an index.
#pragma once

#include <cstddef>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "input/input_loop.h"
#include "tools/common/node_report.h"

namespace quarlo::tools {

// The path of a source; none: search for it.
using SourcePath = std::optional<std::string>;

// "mouse", "keyboard", "remote", "node 1", ...
std::string sourceName(components::input::InputLoop::Source source);

// The further node with this index.
components::input::InputLoop::Source furtherSource(std::size_t index);

// In place of a path: leave this source out.
constexpr char kLeaveOut[] = "none";

struct SourcePaths {
  SourcePath mouse;
  SourcePath keyboard;
  SourcePath lirc;                   // REQUIRES: at most kLongestLircPath characters
  std::vector<std::string> further;  // further nodes. REQUIRES: at most kMostFurtherNodes
};

// -1: not open.
struct SourceDescriptors {
  int mouse = -1;
  int keyboard = -1;
  int lirc = -1;
};

enum class SourceState { kLeftOut, kNotOpen, kOpen, kGone };

// "left out", "not open", "open", "gone".
const char* nameOf(SourceState state);

// Of one source. It holds what paths and devices say, as it is: escape it before it reaches a terminal.
struct SourceReport {
  std::string what;  // its sourceName()
  SourceState state = SourceState::kLeftOut;
  std::string text;                        // which it is, or why it is not open
  std::string remedy;                      // what to do if it is not open; empty if there is nothing
  std::string path = {};                   // where it is open, or was to be opened; empty if that is not known
  std::string name = {};                   // what an open device calls itself
  std::vector<NodeWarning> warnings = {};  // what is wrong with what a search has found
};

// What is known of it, such as {"source":"mouse","state":"open","path":"/dev/input/event3","name":"USB Mouse"}, and of
// one that is not open the problem and the remedy; of one that was searched for, the warnings, if there are any.
nlohmann::ordered_json toJson(const SourceReport& report);

bool isLeftOut(const SourcePath& source);

// Prints what is asked for, one line, before anything is opened.
void printRequests(std::FILE* stream, const SourcePaths& paths);

// Finds out what is open, and of what is not, why: the mouse, the keyboard, the remote. Warns of what a search has
// found and another node fits better; to find out, it looks at all nodes.
std::vector<SourceReport> reportSources(const SourcePaths& paths, const SourceDescriptors& descriptors);

// The same of the further node with this index, which is not open because of the errno `error`; 0: it is open.
SourceReport reportFurtherNode(const SourcePaths& paths, std::size_t index, int error);

// What is wrong with the paths of further nodes, as far as they can be opened; empty if nothing is.
std::string problemWithFurtherNodes(const SourcePaths& paths);

// What is wrong with a path to a node that is a source already.
std::string whySourceTwice(const std::string& path);

// What is wrong with a path that can be opened, and does not lead to an evdev node.
std::string whyNoNode(const std::string& path);

bool anyIsOpen(const std::vector<SourceReport>& reports);

void printSources(std::FILE* stream, const std::vector<SourceReport>& reports);

}  // namespace quarlo::tools
