#include "tools/tune/remote_lines.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "sim/machine.h"
#include "tools/common/describe.h"

namespace quarlo::tools::tune {

using namespace std::chrono_literals;
using recording::RemoteLine;

// ---- Protocols ----------------------------------------------------------------------------------

const std::vector<Protocol>& knownProtocols() {
  static const auto known = [](const char* name, microseconds period) {
    return Protocol{name, period, linesOfATap(period)};
  };
  static const std::vector<Protocol> protocols = {
      known("nec", 108000us),
      known("rc-5", 113778us),
      known("rc-6", 106667us),
      known("sirc", 45000us),
  };
  return protocols;
}

int linesOfATap(microseconds period) { return static_cast<int>(kSlowTap / period) + 1; }

// ---- Remotes ------------------------------------------------------------------------------------

namespace {

std::string inMs(std::chrono::milliseconds time) { return std::to_string(time.count()) + " ms"; }

// As the daemon writes it; a line has no newline here.
std::string lineText(unsigned repeat) {
  char text[64];
  std::snprintf(text, sizeof text, "0000000000000001 %02x KEY_OK remote", repeat);
  return text;
}

// Whether a line begins a press, by the reader's rule: the field after the first space has nothing but zeroes.
bool beginsPress(std::string_view text) {
  const std::size_t start = text.find(' ') + 1;
  return text.substr(start, text.find(' ', start) - start).find_first_not_of('0') == std::string_view::npos;
}

// Whether a line is a key-down if nothing is held.
bool isUnderstood(const std::string& text) {
  sim::Machine machine;
  machine.setTracing(false);
  sim::LircDaemon& daemon = machine.addLircDaemon(kStudiedSocket);
  LinuxInputReader reader;
  reader.init(nullptr, nullptr, kStudiedSocket, 0, 0);
  daemon.sendText(text + "\n");
  InputEvent event = {};
  return reader.readInput(event, 0);
}

// The lines of presses alone.
std::vector<RemoteLine> linesOfPresses(const std::vector<RemoteLine>& lines) {
  std::vector<RemoteLine> kept;
  for (const RemoteLine& line : lines) {
    if ((!kept.empty() || beginsPress(line.text)) && isUnderstood(line.text)) kept.push_back(line);
  }
  return kept;
}

// Moves presses closer to each other. Nothing that the reader does is lost: it forgets a key, or a new press makes it.
void cutPauses(std::vector<RemoteLine>& lines) {
  microseconds cut{0};
  microseconds previous = lines.front().time;
  for (RemoteLine& line : lines) {
    const microseconds pause = line.time - std::exchange(previous, line.time);
    if (beginsPress(line.text) && pause > kPauseBetweenPresses) cut += pause - kPauseBetweenPresses;
    line.time -= cut;
  }
}

std::vector<Press> pressesOf(const std::vector<RemoteLine>& lines) {
  std::vector<Press> presses;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (beginsPress(lines[i].text)) presses.push_back({i, i, false});
    Press& press = presses.back();
    press.end = i + 1;
    press.held = lines[i].time - lines[press.first].time >= kShortestHold;
  }
  return presses;
}

microseconds medianPeriod(const Remote& remote) {
  std::vector<microseconds> periods;
  for (const Press& press : remote.presses) {
    for (std::size_t i = press.first + 1; press.held && i < press.end; ++i) {
      periods.push_back(remote.lines[i].time - remote.lines[i - 1].time);
    }
  }
  const auto middle = periods.begin() + static_cast<std::ptrdiff_t>(periods.size() / 2);
  std::nth_element(periods.begin(), middle, periods.end());
  return *middle;
}

Remote remoteOf(std::vector<RemoteLine> lines) {
  Remote remote;
  remote.presses = pressesOf(lines);
  remote.lines = std::move(lines);
  return remote;
}

}  // namespace

Remote imagineRemote(const Protocol& protocol, microseconds hold) {
  std::vector<RemoteLine> lines;
  const auto press = [&](microseconds start, long count) {
    for (long i = 0; i < count; ++i) lines.push_back({start + i * protocol.period, lineText(static_cast<unsigned>(i))});
  };
  press(0us, protocol.tapLines);
  press(lines.back().time + kPauseBetweenPresses, static_cast<long>(hold / protocol.period) + 1);
  Remote remote = remoteOf(std::move(lines));
  remote.presses.back().held = true;  // until after its last line
  remote.period = protocol.period;
  return remote;
}

Remote recordedRemote(const std::vector<RemoteLine>& lines, const std::string& name) {
  if (lines.size() > kMaxStudiedLines) {
    throw recording::Error(name + ": the remote sent " + std::to_string(lines.size()) + " lines, and at most " +
                           std::to_string(kMaxStudiedLines) + " can be studied; record some taps and one held button");
  }
  std::vector<RemoteLine> kept = linesOfPresses(lines);
  if (kept.empty()) {
    throw recording::Error(name +
                           ": no line begins a press (repeat count 0, and a button that the reader knows): there is "
                           "nothing to study; see it with `quarlo-input replay -v`");
  }
  cutPauses(kept);
  Remote remote = remoteOf(std::move(kept));
  remote.leftOut = lines.size() - remote.lines.size();
  const auto isHeld = [](const Press& press) { return press.held; };
  if (std::none_of(remote.presses.begin(), remote.presses.end(), isHeld)) {
    throw recording::Error(name + ": no button is held for " + inMs(kShortestHold) +
                           " or more: record some taps and one that is. If one was, "
                           "the daemon does not count its lines: correct the remote's file for lircd");
  }
  if (std::all_of(remote.presses.begin(), remote.presses.end(), isHeld)) {
    throw recording::Error(name + ": no button is tapped (for less than " + inMs(kShortestHold) +
                           "): record some taps, too");
  }
  remote.period = medianPeriod(remote);
  return remote;
}

}  // namespace quarlo::tools::tune
