#include "tools/common/source_options.h"

#include "input/input_loop.h"
#include "input/linux_input_reader_limits.h"
#include "tools/common/help_facts.h"

namespace quarlo::tools {
namespace {

constexpr std::size_t kMostFurther = components::input::InputLoop::kMostFurtherNodes;

void parsePath(const std::string& text, SourcePath& source) {
  if (text.empty()) throw ArgumentError("the path is empty: expected a path, or \"none\"");
  source = text;
}

void parseFurther(const std::string& text, std::vector<std::string>& further) {
  if (text.empty()) throw ArgumentError("the path is empty: expected that of an evdev node");
  if (further.size() == kMostFurther) {
    throw ArgumentError("\"" + text + "\" is one node too many: leave it out, for there can be " +
                        std::to_string(kMostFurther) + " further ones");
  }
  further.push_back(text);
}

void parseLircPath(const std::string& text, LongSocketPath longPath, SourcePath& source) {
  constexpr std::size_t kMaxLength = components::input::kLongestLircPath;
  if (text.size() > kMaxLength && longPath == LongSocketPath::kIsRefused) {
    throw ArgumentError("the path has " + std::to_string(text.size()) + " characters, and a socket's can have " +
                        std::to_string(kMaxLength) + "; use a shorter one, such as a link");
  }
  parsePath(text, source);
}

}  // namespace

void addSourceOptions(CommandLine& line, SourcePaths& sources, LongSocketPath longPath) {
  line.addOption("--mouse", "NODE|none", "The mouse's evdev node; default: searched for",
                 [&](const std::string& text) { parsePath(text, sources.mouse); });
  line.addOption("--keyboard", "NODE|none", "The same for the keyboard",
                 [&](const std::string& text) { parsePath(text, sources.keyboard); });
  line.addOption("--lirc", "SOCKET|none", "The LIRC daemon's socket; default: searched for",
                 [&, longPath](const std::string& text) { parseLircPath(text, longPath, sources.lirc); });
  line.addRepeatableOption(
      "--also", "NODE",
      "A further evdev node, such as a second keyboard; up to " + std::to_string(kMostFurther) + " times",
      [&](const std::string& text) { parseFurther(text, sources.further); });
  line.setHintForArguments("name a node with --mouse, --keyboard or --also, and a socket with --lirc");
  addNodes(line);
  addLircSockets(line);
}

}  // namespace quarlo::tools
