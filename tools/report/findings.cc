#include "tools/report/findings.h"

#include <linux/input.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "sim/machine.h"
#include "tools/common/code_names.h"
#include "tools/common/lirc_line.h"
#include "tools/common/output.h"
#include "tools/common/presses.h"
#include "tools/common/survey.h"

namespace quarlo::tools::report {
namespace {

using checkup::Severity;
using recording::Record;
using recording::RemoteLine;
using recording::Session;

// ---- All of them --------------------------------------------------------------------------------

class List {
 public:
  void add(Finding finding) {
    const std::size_t count = ++counts_[finding.id];
    if (count <= kMostOfAKind) findings_.push_back(std::move(finding));
  }

  Findings take() {
    std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
      return std::tuple(a.severity, std::string(a.id)) < std::tuple(b.severity, std::string(b.id));
    });
    for (std::size_t i = 0; i < findings_.size(); ++i) {
      Finding& finding = findings_[i];
      const bool isLast = i + 1 == findings_.size() || std::string(findings_[i + 1].id) != finding.id;
      const std::size_t more = counts_[finding.id] - kMostOfAKind;
      if (isLast && counts_[finding.id] > kMostOfAKind)
        finding.what += "; and " + std::to_string(more) + " more like this";
    }
    return std::move(findings_);
  }

 private:
  Findings findings_;
  std::map<std::string, std::size_t> counts_;
};

std::string inMs(microseconds time) { return std::to_string((time.count() + 500) / 1000) + " ms"; }

std::string times(std::size_t number) { return number == 2 ? "twice" : std::to_string(number) + " times"; }

Place at(microseconds time, InputLoop::Source source, std::size_t record, std::size_t event = 0) {
  return {time, time, source, event, record};
}

// ---- The remote's presses -----------------------------------------------------------------------

// Lines of one press of a button, by their numbers, and the events that came of them.
struct Press {
  std::size_t first;
  std::size_t last;
  std::vector<std::size_t> events;
};

class Remote {
 public:
  Remote(const Session& session, const Happened& happened)
      : lines_(*session.remote), happened_(happened), outcomes_(happened.outcomes[InputLoop::kRemote]) {}

  void check(List& list) {
    for (std::size_t number = 1; number <= lines_.size(); ++number) take(number, list);
    finishPress(list);
    for (const auto& [button, lines] : unknown_) addUnknown(button, lines, list);
  }

 private:
  const RemoteLine& lineAt(std::size_t number) const { return lines_[number - 1]; }
  microseconds timeOf(std::size_t number) const { return lineAt(number).time; }

  std::string whereIs(std::size_t number) const {
    const auto parsed = parseLircLine(lineAt(number).text.get());
    return parsed ? "remote, " + std::string(parsed->button) : "remote";
  }

  void take(std::size_t number, List& list) {
    const Outcome outcome = outcomes_[number];
    const std::string& text = lineAt(number).text.get();
    if (outcome.why == Why::kUnknownButton) {
      unknown_[std::string(findUnknown(text)->button)].push_back(number);
    } else if (outcome.why == Why::kCutLine) {
      addCut(number, list);
    } else if (outcome.event != 0 || outcome.why == Why::kEarly) {
      if (beginsPress(text)) {
        finishPress(list);
        press_ = {number, number, {}};
      }
      if (press_.first == 0) return;  // the rest of a press that had begun before
      press_.last = number;
      if (outcome.event != 0) press_.events.push_back(outcome.event);
    }
  }

  void finishPress(List& list) {
    const Press press = std::exchange(press_, {});
    if (press.first == 0) return;
    if (timeOf(press.last) - timeOf(press.first) >= kShortestHold) {
      checkRepeats(press, list);
    } else if (press.events.size() > 1) {
      addGhost(press, list);
    }
    checkStall(press, list);
  }

  microseconds timeOfEvent(std::size_t event) const { return happened_.events[event - 1].time; }
  std::size_t lineOfEvent(std::size_t event) const { return happened_.events[event - 1].cause; }

  void addGhost(const Press& press, List& list) const {
    const std::size_t ghost = press.events[1];
    const std::size_t line = lineOfEvent(ghost);
    list.add({"ghost-press",
              Severity::kWarning,
              "A tap counts " + times(press.events.size()) + ": its line " + std::to_string(line - press.first + 1) +
                  " comes " + inMs(timeOf(line) - timeOf(lineOfEvent(press.events[0]))) +
                  " after the one that was a key-down, when the release timeout has passed",
              whereIs(press.first),
              "Let LIRC_RELEASE_TIMEOUT be longer; quarlo-input tune says how long for this remote",
              {timeOf(press.first), timeOfEvent(press.events.back()), InputLoop::kRemote, ghost, line}});
  }

  void checkRepeats(const Press& press, List& list) const {
    microseconds shortest = microseconds::max();
    microseconds longest(0);
    std::size_t worst = 0;
    for (std::size_t i = 2; i < press.events.size(); ++i) {
      const microseconds pause = timeOfEvent(press.events[i]) - timeOfEvent(press.events[i - 1]);
      shortest = std::min(shortest, pause);
      if (pause <= longest) continue;
      longest = pause;
      worst = press.events[i];
    }
    if (worst == 0 || static_cast<double>(longest.count()) < kMaxUneven * static_cast<double>(shortest.count())) return;
    list.add({"uneven-repeats",
              Severity::kNotice,
              "A held button repeats unevenly: after " + inMs(shortest) + " and after " + inMs(longest),
              whereIs(press.first),
              "Take another LIRC_REPEAT_TIMEOUT; quarlo-input tune says which suits this remote",
              {timeOf(press.first), timeOfEvent(press.events.back()), InputLoop::kRemote, worst, lineOfEvent(worst)}});
  }

  // Where the lines of a press stay away, and then come together, they were not read in between.
  void checkStall(const Press& press, List& list) const {
    constexpr std::size_t kFewestLines = 4;
    constexpr int kLongPause = 3;  // periods
    constexpr int kShortPart = 4;  // of a period
    if (press.last - press.first + 1 < kFewestLines) return;
    std::vector<microseconds> pauses;
    for (std::size_t number = press.first; number < press.last; ++number) {
      pauses.push_back(timeOf(number + 1) - timeOf(number));
    }
    std::vector<microseconds> sorted = pauses;
    std::sort(sorted.begin(), sorted.end(), std::greater<>());
    const microseconds longest = sorted.front();
    const auto isShort = [&](microseconds pause) { return pause * kLongPause * kShortPart < longest; };
    const auto place = std::find(pauses.begin(), pauses.end(), longest);
    const auto before = static_cast<std::size_t>(place - pauses.begin());
    const auto end = std::find_if_not(place + 1, pauses.end(), isShort);
    const auto together = static_cast<std::size_t>(end - place);
    if (together < 3) return;
    const std::size_t number = press.first + before + 1;
    list.add(
        {"stall",
         Severity::kWarning,
         "Nothing was read for " + inMs(longest) + ", and then " + std::to_string(together) +
             " lines at once: what was to read them was busy",
         whereIs(number),
         "Look what kept the program busy; recorded again, it may be the recording alone",
         {timeOf(number - 1), timeOf(number + together - 1), InputLoop::kRemote, outcomes_[number].event, number}});
  }

  void addCut(std::size_t number, List& list) const {
    list.add({"cut-line", Severity::kWarning, "A line is not whole, and gives nothing", "remote",
              "Look what keeps the application busy: where lines come faster than they are read, some run together",
              at(timeOf(number), InputLoop::kRemote, number)});
  }

  void addUnknown(const std::string& button, const std::vector<std::size_t>& lines, List& list) const {
    list.add({"unknown-buttons",
              Severity::kWarning,
              "A button that the reader does not know: it gives nothing, in " +
                  counted(static_cast<std::int64_t>(lines.size()), "line"),
              "remote, " + button,
              "Give it a name in lircd.conf that the reader knows: quarlo-input keymap lists them",
              {timeOf(lines.front()), timeOf(lines.back()), InputLoop::kRemote, 0, lines.front()}});
  }

  const std::vector<RemoteLine>& lines_;
  const Happened& happened_;
  const Outcomes& outcomes_;
  Press press_ = {};
  std::map<std::string, std::vector<std::size_t>> unknown_;  // the numbers of lines, by the button
};

// ---- The nodes' records -------------------------------------------------------------------------

// Records of one kind that are found together.
struct Run {
  std::size_t count = 0;
  std::size_t first = 0;
  std::size_t last = 0;

  void add(std::size_t number) {
    if (count++ == 0) first = number;
    last = number;
  }
};

class Node {
 public:
  Node(const Session& session, const Happened& happened, InputLoop::Source source)
      : source_(source),
        records_(*recordsOf(session, source)),
        outcomes_(happened.outcomes[source]),
        end_(happened.length) {}

  void check(List& list) {
    for (std::size_t number = 1; number <= records_.size(); ++number) take(number, list);
    addLoss(list);
    addNothing(list);
    addHeld(list);
  }

 private:
  const Record& record(std::size_t number) const { return records_[number - 1]; }

  Place placeOf(const Run& run) const {
    return {record(run.first).time, record(run.last).time, source_, outcomes_[run.first].event, run.first};
  }

  void take(std::size_t number, List& list) {
    const Outcome outcome = outcomes_[number];
    if (record(number).type == EV_KEY) takeKey(number);
    if (outcome.why == Why::kPosition) positions_.add(number);
    if (outcome.why == Why::kSideButton && record(number).value == 1) sideButtons_.add(number);
    if (outcome.why != Why::kLost && outcome.why != Why::kLossMark) return;
    // What is lost at once is one loss.
    if (lost_.count != 0 && record(number).time - record(lost_.last).time > std::chrono::seconds(1)) addLoss(list);
    lost_.add(number);
  }

  void takeKey(std::size_t number) {
    const int code = record(number).code;
    if (record(number).value == 0) {
      down_.erase(code);
    } else {
      down_.emplace(code, number);
    }
  }

  void addLoss(List& list) {
    if (lost_.count == 0) return;
    list.add({"records-lost", Severity::kWarning,
              "Records were lost, for they were not read in time: what was pressed meanwhile can be missing",
              sourceName(source_), "Look what kept the program busy that was to read them", placeOf(lost_)});
    lost_ = {};
  }

  void addNothing(List& list) const {
    if (positions_.count != 0) {
      list.add({"positions", Severity::kNotice,
                counted(static_cast<std::int64_t>(positions_.count), "absolute position") +
                    " gave nothing: the reader takes steps alone, as of a mouse",
                sourceName(source_), "Use a mouse, or read this device in another way", placeOf(positions_)});
    }
    if (sideButtons_.count != 0) {
      list.add({"side-buttons", Severity::kNotice,
                counted(static_cast<std::int64_t>(sideButtons_.count), "press") +
                    (sideButtons_.count == 1 ? "" : "es") + " of side buttons gave nothing",
                sourceName(source_), "The reader gives the left, the right and the middle button",
                placeOf(sideButtons_)});
    }
  }

  // The Ctrl-C that ends a recording is down at its end, too, but not for long.
  void addHeld(List& list) const {
    constexpr std::chrono::seconds kLong(1);
    for (const auto& [code, number] : down_) {
      if (end_ - record(number).time < kLong) continue;
      list.add(
          {"held-at-end",
           Severity::kNotice,
           std::string(LinuxInputReader::getModifier(code) != 0 ? "The modifier" : "It") + " is still down at the end",
           sourceName(source_) + ", " + codeName(EV_KEY, code),
           "If nobody held it, look for a key that sticks or for a key-up that was lost",
           {record(number).time, end_, source_, outcomes_[number].event, number}});
    }
  }

  const InputLoop::Source source_;
  const std::vector<Record>& records_;
  const Outcomes& outcomes_;
  const microseconds end_;
  std::map<int, std::size_t> down_;  // the number of the record of the press, by code
  Run lost_;
  Run positions_;
  Run sideButtons_;
};

// ---- The events ---------------------------------------------------------------------------------

class Events {
 public:
  Events(const Session& session, const Happened& happened, const PlayOptions& options)
      : session_(session), happened_(happened), options_(options) {}

  void check(List& list) {
    for (std::size_t i = 0; i < happened_.events.size(); ++i) take(i + 1);
    for (const auto& [name, run] : unknown_) addUnknown(name, run, list);
    for (const auto& [sources, run] : twice_) addTwice(sources, run, list);
    for (const auto& [source, moves] : moves_) addEdge(source, moves, list);
  }

 private:
  using Source = InputLoop::Source;

  struct Moves {
    std::size_t all = 0;
    Run still;  // the numbers of events
  };

  const Event& eventAt(std::size_t number) const { return happened_.events[number - 1]; }

  void take(std::size_t number) {
    const Event& event = eventAt(number);
    const Shape& shape = happened_.shapeOf(event);
    if (shape.isMove()) {
      Moves& moves = moves_[event.source];
      ++moves.all;
      if (event.x == x_ && event.y == y_) moves.still.add(number);
    }
    x_ = event.x;
    y_ = event.y;
    if (!shape.isKeyDown()) return;
    if (shape.json.contains("linuxName")) {
      unknown_[{event.source, shape.json["linuxName"].get<std::string>()}].add(number);
    } else if (isPress(event)) {
      takePress(number, shape.event.keyData.key);
    }
  }

  // Not a repeat of the kernel's.
  bool isPress(const Event& event) const {
    if (event.cause == 0) return false;
    const std::vector<Record>* const records = recordsOf(session_, event.source);
    return records == nullptr || (*records)[event.cause - 1].value == 1;
  }

  // The same key from another source, so soon that it cannot be another press.
  void takePress(std::size_t number, LinuxInputReader::Key key) {
    constexpr std::chrono::milliseconds kTogether(100);
    const Event& event = eventAt(number);
    ++presses_[event.source];
    std::map<Source, std::size_t>& last = last_[key];
    for (const auto& [source, earlier] : last) {
      if (source == event.source || event.time - eventAt(earlier).time > kTogether) continue;
      twice_[std::minmax(source, event.source)].add(number);
    }
    last[event.source] = number;
  }

  void addUnknown(const std::pair<Source, std::string>& name, const Run& run, List& list) const {
    list.add({"unknown-keys", Severity::kNotice,
              "A key that the reader does not know: the application gets key 0, " + times(run.count),
              sourceName(name.first) + ", " + name.second,
              "quarlo-input keymap lists the keys that it knows; a keyboard's can be given other codes (udev's hwdb)",
              placeOf(run)});
  }

  void addTwice(const std::pair<Source, Source>& sources, const Run& run, List& list) {
    constexpr std::size_t kFewest = 2;
    constexpr std::size_t kPart = 2;  // at least this part of what the source sends that sends less
    const std::size_t presses = std::min(presses_[sources.first], presses_[sources.second]);
    if (run.count < kFewest || run.count * kPart < presses) return;
    list.add({"press-twice", Severity::kWarning,
              "Two sources send the same press: " + std::to_string(run.count) + " came from both",
              sourceName(sources.first) + ", " + sourceName(sources.second),
              "Leave one of the two out, or keep the kernel or the LIRC daemon from decoding the remote, too",
              placeOf(run)});
  }

  void addEdge(Source source, const Moves& moves, List& list) const {
    constexpr std::size_t kFewest = 100;
    if (moves.all < kFewest || moves.still.count * 2 < moves.all) return;
    list.add({"beyond-screen", Severity::kNotice,
              std::to_string(moves.still.count) + " of " + std::to_string(moves.all) +
                  " moves did nothing: the pointer was at the edge of a screen of " +
                  std::to_string(options_.maxX + 1) + "x" + std::to_string(options_.maxY + 1),
              sourceName(source), "Give the size of the screen (--size), or move the other way", placeOf(moves.still)});
  }

  Place placeOf(const Run& run) const {
    const Event& first = eventAt(run.first);
    return {first.time, eventAt(run.last).time, first.source, run.first, first.cause};
  }

  const Session& session_;
  const Happened& happened_;
  const PlayOptions& options_;
  std::map<std::pair<Source, std::string>, Run> unknown_;
  std::map<LinuxInputReader::Key, std::map<Source, std::size_t>> last_;
  std::map<Source, std::size_t> presses_;
  std::map<std::pair<Source, Source>, Run> twice_;
  std::map<Source, Moves> moves_;
  int x_ = 0;
  int y_ = 0;
};

// ---- What the devices say of themselves ---------------------------------------------------------

std::string pathOf(InputLoop::Source source) { return "/dev/input/event" + std::to_string(int{source}); }

// A path of the simulated machine is the name of a source.
std::string withNames(std::string text) {
  for (int i = InputLoop::kSources - 1; i >= 0; --i) {
    const auto source = static_cast<InputLoop::Source>(i);
    const std::string path = pathOf(source);
    for (std::size_t start = text.find(path); start != std::string::npos; start = text.find(path, start)) {
      text.replace(start, path.size(), sourceName(source));
    }
  }
  return text;
}

void addWarnings(InputLoop::Source source, const std::vector<NodeWarning>& warnings, List& list) {
  for (const NodeWarning& warning : warnings) {
    std::string what = withNames(warning.text);
    what[0] = 'I';
    Place place;
    place.source = source;
    const auto isIt = [&](const checkup::Kind& kind) { return warning.id == kind.id; };
    const auto kind = std::find_if(checkup::kinds().begin(), checkup::kinds().end(), isIt);
    if (kind == checkup::kinds().end()) continue;
    list.add({kind->id, kind->severity, what, sourceName(source), withNames(warning.remedy), place});
  }
}

// Asks the devices as autodetection and `doctor` do, on a machine that has nothing else.
void checkDevices(const Session& session, List& list) {
  sim::Machine machine;
  machine.setTracing(false);
  const auto plugIn = [&](InputLoop::Source source, const std::optional<recording::DeviceRecording>& device) {
    if (!device) return std::string();
    machine.addNode(pathOf(source), {device->name, device->codes, device->id, device->properties, device->axes});
    return pathOf(source);
  };
  const std::string mouse = plugIn(InputLoop::kMouse, session.mouse);
  const std::string keyboard = plugIn(InputLoop::kKeyboard, session.keyboard);
  for (std::size_t i = 0; i < session.further.size(); ++i) plugIn(furtherSource(i), session.further[i]);
  const TakenWarnings warnings = warningsOfTaken(mouse, keyboard, {"/dev", "/nowhere"});
  addWarnings(InputLoop::kMouse, warnings.mouse, list);
  addWarnings(InputLoop::kKeyboard, warnings.keyboard, list);
}

}  // namespace

Findings findAll(const Session& session, const Happened& happened, const PlayOptions& options) {
  List list;
  checkDevices(session, list);
  for (int i = 0; i < InputLoop::kSources; ++i) {
    const auto source = static_cast<InputLoop::Source>(i);
    if (recordsOf(session, source) != nullptr) Node(session, happened, source).check(list);
  }
  if (session.remote) Remote(session, happened).check(list);
  Events(session, happened, options).check(list);
  return list.take();
}

}  // namespace quarlo::tools::report
