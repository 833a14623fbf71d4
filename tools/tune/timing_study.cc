#include "tools/tune/timing_study.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string_view>
#include <tuple>
#include <utility>

#include "input/linux_input_reader.h"
#include "sim/machine.h"
#include "tools/common/event_printer.h"

namespace quarlo::tools::tune {
namespace {

using namespace std::chrono_literals;
using recording::RemoteLine;

constexpr char kLircPath[] = "remote.lirc";

// Long enough for a key to be forgotten with all sensible timeouts.
constexpr microseconds kPauseBetweenPresses = 1s;

std::string inMs(std::chrono::milliseconds time) { return std::to_string(time.count()) + " ms"; }

}  // namespace

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
  sim::LircDaemon& daemon = machine.addLircDaemon(kLircPath);
  LinuxInputReader reader;
  reader.init(nullptr, nullptr, kLircPath, 0, 0);
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
  if (lines.size() > kMostStudiedLines) {
    throw recording::Error(name + ": the remote sent " + std::to_string(lines.size()) + " lines, and at most " +
                           std::to_string(kMostStudiedLines) + " can be studied; record some taps and one held button");
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
                           "the daemon does not count its lines: mend the remote's file for lircd");
  }
  if (std::all_of(remote.presses.begin(), remote.presses.end(), isHeld)) {
    throw recording::Error(name + ": no button is tapped (for less than " + inMs(kShortestHold) +
                           "): record some taps, too");
  }
  remote.period = medianPeriod(remote);
  return remote;
}

// ---- One run ------------------------------------------------------------------------------------

bool operator==(const Setting& a, const Setting& b) {
  return std::tie(a.repeatMs, a.releaseMs, a.pollMs) == std::tie(b.repeatMs, b.releaseMs, b.pollMs);
}

std::vector<Circumstances> studiedCircumstances(const Setting& setting) {
  constexpr int kMoments = 8;
  std::vector<Circumstances> all;
  for (const microseconds work : {100us, 1000us, 3000us}) {
    const microseconds round = std::chrono::milliseconds(setting.pollMs) + work;
    for (int moment = 0; moment < kMoments; ++moment) all.push_back({round * moment / kMoments, work});
  }
  return all;
}

namespace {

// A machine with the daemon alone, and the application on it.
class Run {
 public:
  Run(const Remote& remote, const Setting& setting, const Circumstances& circumstances)
      : setting_(setting), work_(circumstances.work) {
    machine_.setTracing(false);
    machine_.setEnvironment(components::input::kRepeatTimeoutVariable, std::to_string(setting.repeatMs));
    machine_.setEnvironment(components::input::kReleaseTimeoutVariable, std::to_string(setting.releaseMs));
    sim::LircDaemon& daemon = machine_.addLircDaemon(kLircPath);
    reader_.emplace();
    reader_->init(nullptr, nullptr, kLircPath, 0, 0);
    // The first wait still watches the socket. An application that has run for a while sleeps through its waits.
    playRound();
    start_ = machine_.now() + circumstances.phase;
    timeline_.states.push_back({-circumstances.phase, ButtonState::kReleased});
    timeline_.lines.reserve(remote.lines.size());
    for (const RemoteLine& line : remote.lines) schedule(daemon, line.time - remote.lines.front().time, line.text);
  }

  Timeline play() {
    while (!hasEnded()) playRound();
    return std::move(timeline_);
  }

 private:
  // What the daemon has sent of a line that the application has not read.
  struct Waiting {
    std::size_t line;
    std::size_t bytes;
    bool begun;  // its first bytes were read
  };

  void schedule(sim::LircDaemon& daemon, microseconds time, const std::string& text) {
    machine_.after(start_ + time - machine_.now(), [this, &daemon, time, &text] {
      waiting_.push_back({timeline_.lines.size(), text.size() + 1, false});
      timeline_.lines.push_back({time, Fate::kLost});
      daemon.sendText(text + "\n");
    });
  }

  void playRound() {
    readRound(*reader_, setting_.pollMs, [this](const InputEvent& /*event*/) {
      noteCall(true);
      return true;
    });
    noteCall(false);
    machine_.advance(work_);
  }

  void noteCall(bool keyDown) {
    takeLines(keyDown);
    const ButtonState state = reader_->lircKey == msg::KeyInput::kNone ? ButtonState::kReleased
                              : reader_->lircRepeatMode                ? ButtonState::kRepeating
                                                                       : ButtonState::kHeld;
    if (!timeline_.states.empty() && state != timeline_.states.back().state)
      timeline_.states.push_back({elapsed(), state});
  }

  // A call reads once, what has come until then, and looks at the first line of it alone.
  void takeLines(bool keyDown) {
    if (waiting_.empty()) return;
    if (keyDown) timeline_.keyDowns.push_back({elapsed(), waiting_.front().line});
    if (!waiting_.front().begun)
      timeline_.lines[waiting_.front().line].fate = keyDown ? Fate::kKeyDown : Fate::kSkipped;
    for (std::size_t left = components::input::kLircReadSize; left > 0 && !waiting_.empty();) {
      Waiting& first = waiting_.front();
      const std::size_t taken = std::min(left, first.bytes);
      left -= taken;
      first.bytes -= taken;
      first.begun = true;
      if (first.bytes == 0) waiting_.pop_front();
    }
  }

  bool hasEnded() const {
    if (machine_.hasScheduled() || !waiting_.empty()) return false;
    return reader_->lircKey == msg::KeyInput::kNone || elapsed() > timeline_.lines.back().sent + kPauseBetweenPresses;
  }

  microseconds elapsed() const { return machine_.now() - start_; }

  Setting setting_;
  microseconds work_;
  sim::Machine machine_;
  std::optional<LinuxInputReader> reader_;  // it reads the environment when it is made
  microseconds start_{0};
  std::deque<Waiting> waiting_;
  Timeline timeline_;
};

}  // namespace

Timeline runReader(const Remote& remote, const Setting& setting, const Circumstances& circumstances) {
  return Run(remote, setting, circumstances).play();
}

// ---- Findings -----------------------------------------------------------------------------------

namespace {

// What a person expects of a held button: repeats from a quarter to half a second on (the kernel's defaults are 250 ms
// for keyboards and 500 ms for remotes), some eight times a second (the kernel's 125 ms for remotes), evenly.
constexpr double kSoonestRepeatMs = 250;
constexpr double kLatestRepeatMs = 500;
constexpr double kSlowestPerSecond = 4;
constexpr double kFastestPerSecond = 12;
constexpr double kMostUneven = 1.75;  // the longest pause, in shortest ones; a line that is skipped makes it 2
constexpr double kLatestAfterMs = 100;

// Without zeroes at the end: "1.75", "250".
std::string plain(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", number);
  return text;
}

void widen(std::optional<Range>& range, double value) {
  if (!range) range = Range{value, value};
  range->least = std::min(range->least, value);
  range->most = std::max(range->most, value);
}

// Gathers what the runs of one setting give.
class Gatherer {
 public:
  explicit Gatherer(const Remote& remote) : remote_(remote) {}

  void add(const Timeline& timeline) {
    std::size_t next = 0;
    for (const Press& press : remote_.presses) {
      std::vector<microseconds> times;
      for (; next < timeline.keyDowns.size() && timeline.keyDowns[next].line < press.end; ++next) {
        times.push_back(timeline.keyDowns[next].time);
      }
      missed_ = missed_ || times.empty();
      if (!press.held) {
        widen(perTap_, static_cast<double>(times.size()));
      } else if (!times.empty()) {
        addHold(times, timeline.lines[press.end - 1].sent);
      }
    }
    skipped_ = std::max(skipped_, countFate(timeline, Fate::kSkipped));
    lost_ = std::max(lost_, countFate(timeline, Fate::kLost));
  }

  Finding finish(const Setting& setting) const {
    Finding finding = {setting, *perTap_, firstRepeat_, perSecond_, pause_, lastAfter_, skipped_, lost_, {}};
    finding.faults = faultsOf(finding);
    return finding;
  }

 private:
  static int countFate(const Timeline& timeline, Fate fate) {
    return static_cast<int>(std::count_if(timeline.lines.begin(), timeline.lines.end(),
                                          [fate](const TimedLine& line) { return line.fate == fate; }));
  }

  void addHold(const std::vector<microseconds>& times, microseconds lastLine) {
    widen(lastAfter_, toMs(times.back() - lastLine));
    unrepeated_ = unrepeated_ || times.size() < 2;
    if (times.size() < 2) return;
    widen(firstRepeat_, toMs(times[1] - times[0]));
    if (times.size() < 3) return;
    for (std::size_t i = 2; i < times.size(); ++i) widen(pause_, toMs(times[i] - times[i - 1]));
    widen(perSecond_, static_cast<double>(times.size() - 2) * 1000 / toMs(times.back() - times[1]));
  }

  std::vector<Fault> faultsOf(const Finding& finding) const {
    const auto& [first, rate, pause] = std::tie(finding.firstRepeatMs, finding.repeatsPerSecond, finding.pauseMs);
    const std::pair<Fault, bool> all[] = {
        {Fault::kGhosts, finding.keyDownsPerTap.most > 1},
        {Fault::kMisses, missed_},
        {Fault::kNoRepeats, unrepeated_},
        {Fault::kUneven, pause && pause->most >= kMostUneven * pause->least},
        {Fault::kHasty, first && first->least < kSoonestRepeatMs},
        {Fault::kSlowStart, first && first->most > kLatestRepeatMs},
        {Fault::kFast, rate && rate->most > kFastestPerSecond},
        {Fault::kSlow, rate && rate->least < kSlowestPerSecond},
        {Fault::kLate, finding.lastAfterMs && finding.lastAfterMs->most > kLatestAfterMs},
    };
    std::vector<Fault> faults;
    for (const auto& [fault, found] : all) {
      if (found) faults.push_back(fault);
    }
    return faults;
  }

  const Remote& remote_;
  std::optional<Range> perTap_;
  std::optional<Range> firstRepeat_;
  std::optional<Range> perSecond_;
  std::optional<Range> pause_;
  std::optional<Range> lastAfter_;
  bool missed_ = false;
  bool unrepeated_ = false;
  int skipped_ = 0;
  int lost_ = 0;
};

Finding findingOf(const Remote& remote, const Setting& setting, const std::vector<Circumstances>& all) {
  Gatherer gatherer(remote);
  for (const Circumstances& circumstances : all) gatherer.add(runReader(remote, setting, circumstances));
  return gatherer.finish(setting);
}

// One fault outweighs all that are less bad.
int weightOf(const Finding& finding) {
  int weight = 0;
  for (const Fault fault : finding.faults) weight += 1 << (static_cast<int>(Fault::kLate) - static_cast<int>(fault));
  return weight;
}

}  // namespace

const char* nameOf(Fault fault) {
  switch (fault) {
    case Fault::kGhosts: return "ghosts";
    case Fault::kMisses: return "misses";
    case Fault::kNoRepeats: return "no repeats";
    case Fault::kUneven: return "uneven";
    case Fault::kHasty: return "hasty";
    case Fault::kSlowStart: return "slow start";
    case Fault::kFast: return "fast";
    case Fault::kSlow: return "slow";
    case Fault::kLate: break;
  }
  return "late";
}

std::string meaningOf(Fault fault) {
  switch (fault) {
    case Fault::kGhosts: return "a tap gives more than one key-down: take a longer release timeout";
    case Fault::kMisses: return "a press gives no key-down: poll more often";
    case Fault::kNoRepeats: return "a held button does not repeat: take a shorter release timeout";
    case Fault::kUneven:
      return "pauses between repeats differ " + plain(kMostUneven) +
             "-fold: take another repeat timeout, or poll more often";
    case Fault::kHasty:
      return "the first repeat comes within " + plain(kSoonestRepeatMs) +
             " ms: a slow tap would be two; take a longer release timeout";
    case Fault::kSlowStart:
      return "the first repeat comes after more than " + plain(kLatestRepeatMs) + " ms: take a shorter release timeout";
    case Fault::kFast:
      return "more than " + plain(kFastestPerSecond) + " repeats a second: take a longer repeat timeout";
    case Fault::kSlow:
      return "fewer than " + plain(kSlowestPerSecond) + " repeats a second: take another repeat timeout";
    case Fault::kLate: break;
  }
  return "the last key-down comes more than " + plain(kLatestAfterMs) + " ms after the last line: poll more often";
}

std::string toText(const std::optional<Range>& range, int decimals) {
  if (!range) return "-";
  const auto number = [decimals](double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return std::string(text);
  };
  const std::string least = number(range->least);
  const std::string most = number(range->most);
  return least == most ? least : least + "-" + most;
}

std::string toText(const std::vector<Fault>& faults) {
  std::string text;
  for (const Fault fault : faults) text += (text.empty() ? "" : ", ") + std::string(nameOf(fault));
  return text;
}

std::string describe(const Finding& finding) {
  const std::string perTap = toText(finding.keyDownsPerTap, 0);
  const std::string tap = "A tap gives " + perTap + (perTap == "1" ? " key-down" : " key-downs");
  if (!finding.firstRepeatMs) return tap + "; a held button does not repeat.";
  const std::string rate = finding.repeatsPerSecond ? toText(finding.repeatsPerSecond, 1) + " times a second" : "once";
  return tap + "; a held button repeats after " + toText(finding.firstRepeatMs, 0) + " ms, " + rate + ".";
}

Circumstances worstCircumstances(const Remote& remote, const Setting& setting) {
  const std::vector<Circumstances> all = studiedCircumstances(setting);
  return *std::max_element(all.begin(), all.end(), [&](const Circumstances& a, const Circumstances& b) {
    return weightOf(findingOf(remote, setting, {a})) < weightOf(findingOf(remote, setting, {b}));
  });
}

// ---- The study ----------------------------------------------------------------------------------

namespace {

// Without repetitions, by poll timeout, then release timeout, then repeat timeout.
std::vector<Setting> settingsOf(const Grid& grid) {
  std::vector<Setting> settings;
  for (const int poll : grid.pollMs) {
    for (const int release : grid.releaseMs) {
      for (const int repeat : grid.repeatMs) settings.push_back({repeat, release, poll});
    }
  }
  return settings;
}

void sortSettings(std::vector<Setting>& settings) {
  std::sort(settings.begin(), settings.end(), [](const Setting& a, const Setting& b) {
    return std::tie(a.pollMs, a.releaseMs, a.repeatMs) < std::tie(b.pollMs, b.releaseMs, b.repeatMs);
  });
  settings.erase(std::unique(settings.begin(), settings.end()), settings.end());
}

using Candidates = std::vector<std::size_t>;

// Keeps those whose value is the least, or no more than `tolerance` above it.
template <typename Value>
void keepLeast(Candidates& candidates, const Value& valueOf, double tolerance = 0) {
  double least = valueOf(candidates.front());
  for (const std::size_t candidate : candidates) least = std::min<double>(least, valueOf(candidate));
  const auto isMore = [&](std::size_t candidate) { return valueOf(candidate) > least + tolerance; };
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(), isMore), candidates.end());
}

// Of the findings with these numbers, which are in order, the number of the best.
std::size_t chooseBest(const std::vector<Finding>& findings, std::size_t present, Candidates candidates,
                       microseconds period) {
  keepLeast(candidates, [&](std::size_t i) { return weightOf(findings[i]); });
  keepLeast(candidates, [&](std::size_t i) { return std::abs(findings[i].setting.pollMs - kPresentSetting.pollMs); });
  const auto firstRepeat = [&](std::size_t i) {
    return findings[i].firstRepeatMs ? findings[i].firstRepeatMs->most : 0;
  };
  keepLeast(candidates, firstRepeat, toMs(period) / 2);
  keepLeast(candidates, [&](std::size_t i) { return -findings[i].setting.releaseMs; });
  if (std::count(candidates.begin(), candidates.end(), present) != 0) return present;
  return candidates[(candidates.size() - 1) / 2];
}

}  // namespace

Study studyTiming(const Remote& remote, const Grid& grid) {
  const std::vector<Setting> wanted = settingsOf(grid);
  std::vector<Setting> settings = wanted;
  settings.push_back(kPresentSetting);
  sortSettings(settings);
  Study study = {};
  Candidates candidates;
  for (const Setting& setting : settings) {
    if (setting == kPresentSetting) study.present = study.findings.size();
    if (std::count(wanted.begin(), wanted.end(), setting) != 0) candidates.push_back(study.findings.size());
    study.findings.push_back(findingOf(remote, setting, studiedCircumstances(setting)));
  }
  study.recommended = chooseBest(study.findings, study.present, candidates, remote.period);
  return study;
}

}  // namespace quarlo::tools::tune
