#include "tools/common/source_options.h"

#include "input/linux_input_reader_limits.h"

namespace quarlo::tools {
namespace {

void parsePath(const std::string& text, SourcePath& source) {
  if (text.empty()) throw ArgumentError("the path is empty: expected a path, or \"none\"");
  source = text;
}

void parseLircPath(const std::string& text, SourcePath& source) {
  constexpr std::size_t kMaxLength = components::input::kLongestLircPath;
  if (text.size() > kMaxLength) {
    throw ArgumentError("the path has " + std::to_string(text.size()) + " characters, and a socket's can have " +
                        std::to_string(kMaxLength) + "; use a shorter one, such as a link");
  }
  parsePath(text, source);
}

}  // namespace

void addSourceOptions(CommandLine& line, SourcePaths& sources) {
  line.addOption("--mouse", "PATH", "The mouse's evdev node, or \"none\"; default: searched for",
                 [&](const std::string& text) { parsePath(text, sources.mouse); });
  line.addOption("--keyboard", "PATH", "The same for the keyboard",
                 [&](const std::string& text) { parsePath(text, sources.keyboard); });
  line.addOption("--lirc", "PATH", "The LIRC daemon's socket, or \"none\"; default: searched for",
                 [&](const std::string& text) { parseLircPath(text, sources.lirc); });
  line.setHintForArguments("name a node with --mouse or --keyboard, and a socket with --lirc");
}

}  // namespace quarlo::tools
