#include "tests/tools/tmux.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace quarlo::tools {
namespace {

std::string quoted(const std::string& word) {
  std::string text = "'";
  for (const char byte : word) text += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
  return text + "'";
}

std::string outputOf(const std::string& command) {
  std::string output;
  std::FILE* pipe = popen(command.c_str(), "r");
  char bytes[4096];
  for (std::size_t size = 0; (size = std::fread(bytes, 1, sizeof bytes, pipe)) > 0;) output.append(bytes, size);
  pclose(pipe);
  return output;
}

}  // namespace

bool hasTmux() { return std::system("command -v tmux >/dev/null") == 0; }

Tmux::Tmux(const Folder& folder, const std::string& environment) : socket_(folder.path("tmux")) {
  call({"-f", "/dev/null", "new-session", "-d", "-x", "80", "-y", "24", "env " + environment + " PS1='$ ' ENV= sh"});
  EXPECT_TRUE(waitFor("$"));
}

Tmux::~Tmux() { call({"kill-server"}); }

void Tmux::enter(const std::string& line) const {
  call({"send-keys", "-l", line});
  press("Enter");
}

void Tmux::press(const std::string& key) const { call({"send-keys", key}); }

void Tmux::resize(int columns, int rows) const {
  call({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)});
}

std::vector<std::string> Tmux::rows() const { return linesOf(call({"capture-pane", "-p"})); }

std::string Tmux::tty() const { return linesOf(call({"display-message", "-p", "#{pane_tty}"})).front(); }

testing::AssertionResult Tmux::waitFor(const std::string& text) const { return waitUntil(text, true); }

testing::AssertionResult Tmux::waitUntilGone(const std::string& text) const { return waitUntil(text, false); }

// In tmux 3.3, one that has no terminal of its own takes the characters of lines for letters, unless told (-u).
std::string Tmux::call(const std::vector<std::string>& arguments) const {
  std::string command = "TMUX= LC_ALL=C.UTF-8 tmux -u -S " + quoted(socket_);
  for (const std::string& argument : arguments) command += " " + quoted(argument);
  return outputOf(command + " 2>&1");
}

testing::AssertionResult Tmux::waitUntil(const std::string& text, bool shown) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  std::string screen;
  while (std::chrono::steady_clock::now() < deadline) {
    screen = call({"capture-pane", "-p"});
    if ((screen.find(text) != std::string::npos) == shown) return testing::AssertionSuccess();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return testing::AssertionFailure() << "after half a minute the terminal " << (shown ? "does not show" : "still shows")
                                     << " \"" << text << "\":\n"
                                     << screen;
}

}  // namespace quarlo::tools
