#include "tools/tune/remote_lines.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "sim/machine.h"
#include "tools/common/describe.h"
#include "tools/tune/sample.h"

namespace quarlo::tools::tune {

using namespace std::chrono_literals;
using recording::RemoteLine;

// ---- Protocols ----------------------------------------------------------------------------------

const std::vector<Protocol>& knownProtocols() {
  static const auto known = [](const char* name, microseconds period, microseconds keyUp) {
    return Protocol{name, period, linesOfATap(period), keyUp};
  };
  static const std::vector<Protocol> protocols = {
      known("nec", 108000us, 126ms),
      known("rc-5", 113778us, 129ms),
      known("rc-6", 106667us, 127ms),
      known("sirc", 45000us, 116ms),
  };
  return protocols;
}

int linesOfATap(microseconds period) { return static_cast<int>(kSlowTap / period) + 1; }

microseconds keyUpOf(microseconds period) {
  constexpr microseconds kDecodersPatience = 16ms;
  return period + kDecodersPatience;
}

// ---- Remotes ------------------------------------------------------------------------------------

namespace {

std::string inMs(std::chrono::milliseconds time) { return std::to_string(time.count()) + " ms"; }

// As the daemon writes it; a line has no newline here.
std::string lineText(unsigned repeat) {
  char text[64];
  std::snprintf(text, sizeof text, "0000000000000001 %02x KEY_OK remote", repeat);
  return text;
}

// Tells the lines that are key-downs if nothing is held.
class Judge {
 public:
  Judge() : daemon_(machine_.addLircDaemon(kStudiedSocket)) {
    machine_.setTracing(false);
    reader_.init(nullptr, nullptr, kStudiedSocket, 0, 0);
  }

  bool understands(const std::string& text) {
    daemon_.sendText(text + "\n");
    const bool understood = readOnce();
    while (machine_.hasUnread()) readOnce();
    return understood;
  }

 private:
  bool readOnce() {
    reader_.lircKey = msg::KeyInput::kNone;
    InputEvent event = {};
    return reader_.readInput(event, 0);
  }

  sim::Machine machine_;
  sim::LircDaemon& daemon_;
  LinuxInputReader reader_;
};

// Keeps the lines of presses alone.
void keepPresses(std::vector<RemoteLine>& lines) {
  Judge judge;
  bool begun = false;
  const auto isOfNoPress = [&](const RemoteLine& line) {
    if ((!begun && !beginsPress(line.text.get())) || !judge.understands(line.text)) return true;
    begun = true;
    return false;
  };
  std::size_t kept = 0;
  for (RemoteLine& line : lines) {
    if (!isOfNoPress(line)) std::swap(lines[kept++], line);
  }
  lines.resize(kept);
}

// Moves presses closer to each other. Nothing that the reader does is lost: it forgets a key, or a new press makes it.
void cutPauses(std::vector<RemoteLine>& lines) {
  microseconds cut{0};
  microseconds previous = lines.front().time;
  for (RemoteLine& line : lines) {
    const microseconds pause = line.time - std::exchange(previous, line.time);
    if (beginsPress(line.text.get()) && pause > kPauseBetweenPresses) cut += pause - kPauseBetweenPresses;
    line.time -= cut;
  }
}

std::vector<Press> pressesOf(const std::vector<RemoteLine>& lines) {
  std::vector<Press> presses;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (beginsPress(lines[i].text.get())) presses.push_back({i, i, false});
    Press& press = presses.back();
    press.end = i + 1;
    press.held = lines[i].time - lines[press.first].time >= kShortestHold;
  }
  return presses;
}

Remote remoteOf(std::vector<RemoteLine> lines) {
  Remote remote;
  remote.presses = pressesOf(lines);
  remote.lines = std::move(lines);
  return remote;
}

std::vector<Candidate> candidatesOf(const Remote& remote) {
  std::vector<Candidate> candidates;
  candidates.reserve(remote.presses.size());
  microseconds previous = remote.lines.front().time;
  for (const Press& press : remote.presses) {
    const microseconds start = remote.lines[press.first].time;
    const microseconds pause = start - std::exchange(previous, remote.lines[press.end - 1].time);
    candidates.push_back({press.held, previous - start, pause, pause < kPauseBetweenPresses, press.end - press.first});
  }
  return candidates;
}

// Has some presses stand for all of them. Pauses stay what they were.
void keepSome(Remote& remote) {
  std::vector<Candidate> candidates = candidatesOf(remote);
  for (Candidate& candidate : candidates) candidate.cost = std::min(candidate.cost, kMostLinesOfAPress);
  std::vector<RemoteLine> lines;
  std::vector<Press> presses;
  microseconds end{0};
  for (const std::size_t number : choosePresses(candidates, kMostStudiedLines)) {
    const Press& press = remote.presses[number];
    const microseconds shift = end + candidates[number].pause - remote.lines[press.first].time;
    presses.push_back({lines.size(), lines.size() + candidates[number].cost, press.held});
    for (std::size_t i = press.first; i < press.first + candidates[number].cost; ++i) {
      lines.push_back({remote.lines[i].time + shift, std::move(remote.lines[i].text)});
    }
    end = lines.back().time;
  }
  remote.lines = std::move(lines);
  remote.presses = std::move(presses);
}

}  // namespace

microseconds medianOf(std::vector<microseconds> times) {
  if (times.empty()) return 0us;
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

microseconds periodOf(const Remote& remote) {
  std::vector<microseconds> periods;
  for (const Press& press : remote.presses) {
    for (std::size_t i = press.first + 1; press.held && i < press.end; ++i) {
      periods.push_back(remote.lines[i].time - remote.lines[i - 1].time);
    }
  }
  return medianOf(std::move(periods));
}

void checkPresses(const Remote& remote, const std::string& name, const std::string& hint) {
  if (remote.holds == 0) {
    throw recording::Error(name + ": no button is held for " + inMs(kShortestHold) +
                           " or more: record some taps and one that is" + hint);
  }
  if (remote.taps == 0) {
    throw recording::Error(name + ": no button is tapped (for less than " + inMs(kShortestHold) +
                           "): record some taps, too");
  }
}

Remote imagineRemote(const Protocol& protocol, microseconds hold) {
  std::vector<RemoteLine> lines;
  const auto press = [&](microseconds start, long count) {
    for (long i = 0; i < count; ++i) lines.push_back({start + i * protocol.period, lineText(static_cast<unsigned>(i))});
  };
  press(0us, protocol.tapLines);
  press(lines.back().time + kPauseBetweenPresses, static_cast<long>(hold / protocol.period) + 1);
  Remote remote = remoteOf(std::move(lines));
  remote.presses.back().held = true;  // until after its last line
  remote.taps = remote.holds = 1;
  remote.period = protocol.period;
  return remote;
}

Remote recordedRemote(std::vector<RemoteLine> lines, const std::string& name) {
  const std::size_t count = lines.size();
  keepPresses(lines);
  if (lines.empty()) {
    throw recording::Error(name +
                           ": no line begins a press (repeat count 0, and a button that the reader knows): there is "
                           "nothing to study; see it with `quarlo-input replay -v`");
  }
  cutPauses(lines);
  Remote remote = remoteOf(std::move(lines));
  remote.leftOut = count - remote.lines.size();
  for (const Press& press : remote.presses) ++(press.held ? remote.holds : remote.taps);
  checkPresses(remote, name, ". If one was, the daemon does not count its lines: correct the remote's file for lircd");
  if (remote.lines.size() > kMostStudiedLines) keepSome(remote);
  remote.period = periodOf(remote);
  return remote;
}

}  // namespace quarlo::tools::tune
