#include "tools/tune/study.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <tuple>

namespace quarlo::tools::tune {

using namespace std::chrono_literals;

// ---- Findings -----------------------------------------------------------------------------------

namespace {

// What a person expects of a held button: repeats from a quarter to half a second on (the kernel's defaults are 250 ms
// for keyboards and 500 ms for remotes), some eight times a second (the kernel's 125 ms for remotes), evenly.
constexpr double kSoonestRepeatMs = 250;
constexpr double kLatestRepeatMs = 500;
constexpr double kLatestOfKernelMs = 550;  // its 500 ms are some more
constexpr double kSlowestPerSecond = 4;
constexpr double kFastestPerSecond = 12;
constexpr double kLatestAfterMs = 100;

// Without zeroes at the end: "1.75", "250".
std::string plain(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", number);
  return text;
}

void widen(std::optional<Range>& range, double value) {
  if (!range) range = Range{value, value};
  range->minimum = std::min(range->minimum, value);
  range->maximum = std::max(range->maximum, value);
}

// Gathers what the runs of one setting give.
class Gatherer {
 public:
  Gatherer(const Remote& remote, const Judgement& judgement) : remote_(remote), judgement_(judgement) {}

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
        noteLate(times.back(), press, timeline);
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

  // What the kernel repeats until the key-up is not the application's fault.
  void noteLate(microseconds keyDown, const Press& press, const Timeline& timeline) {
    const bool kernel = judgement_.decoder == Decoder::kKernel;
    const microseconds end = kernel ? press.up - remote_.lines.front().time : timeline.lines[press.end - 1].sent;
    late_ = late_ || toMs(keyDown - end) > kLatestAfterMs;
  }

  // For the kernel, a delay or a period of 0 means that.
  bool isOff(const Setting& setting) const {
    return judgement_.decoder == Decoder::kKernel && !NodeRepeat{setting.startMs, setting.repeatMs}.isOn();
  }

  std::vector<Fault> faultsOf(const Finding& finding) const {
    const auto& [first, rate, pause] = std::tie(finding.firstRepeatMs, finding.repeatsPerSecond, finding.pauseMs);
    const bool off = isOff(finding.setting);
    const std::pair<Fault, bool> all[] = {
        {Fault::kGhosts, finding.keyDownsPerTap.maximum > 1},
        {Fault::kMisses, missed_},
        {Fault::kOff, off},
        {Fault::kNoRepeats, unrepeated_ && !off},
        {Fault::kUneven, pause && pause->maximum >= kMaxUneven * pause->minimum},
        {Fault::kHasty, first && first->minimum < judgement_.soonestRepeatMs},
        {Fault::kSlowStart, first && first->maximum > judgement_.latestRepeatMs},
        {Fault::kFast, rate && rate->maximum > kFastestPerSecond},
        {Fault::kSlow, rate && rate->minimum < kSlowestPerSecond},
        {Fault::kLate, late_},
    };
    std::vector<Fault> faults;
    for (const auto& [fault, found] : all) {
      if (found) faults.push_back(fault);
    }
    return faults;
  }

  const Remote& remote_;
  const Judgement& judgement_;
  std::optional<Range> perTap_;
  std::optional<Range> firstRepeat_;
  std::optional<Range> perSecond_;
  std::optional<Range> pause_;
  std::optional<Range> lastAfter_;
  bool missed_ = false;
  bool unrepeated_ = false;
  bool late_ = false;
  int skipped_ = 0;
  int lost_ = 0;
};

Finding findingOf(const Remote& remote, const Judgement& judgement, const Setting& setting,
                  const std::vector<Circumstances>& all) {
  Gatherer gatherer(remote, judgement);
  for (const Circumstances& circumstances : all) gatherer.add(runReader(remote, setting, circumstances));
  return gatherer.finish(setting);
}

// One fault outweighs all that are less bad.
int weightOf(const Finding& finding) {
  int weight = 0;
  for (const Fault fault : finding.faults) weight += 1 << (static_cast<int>(Fault::kLate) - static_cast<int>(fault));
  return weight;
}

int keyDownsOf(const Timeline& timeline, const Press& press) {
  return static_cast<int>(
      std::count_if(timeline.keyDowns.begin(), timeline.keyDowns.end(),
                    [&](const KeyDown& keyDown) { return keyDown.line >= press.first && keyDown.line < press.end; }));
}

}  // namespace

const char* nameOf(Fault fault) {
  switch (fault) {
    case Fault::kGhosts: return "ghosts";
    case Fault::kMisses: return "misses";
    case Fault::kOff: return "off";
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

Judgement judgementOf(const Remote& remote, LoopKind loop) {
  if (remote.decoder == Decoder::kDaemon) return {remote.decoder, loop, kSoonestRepeatMs, kLatestRepeatMs};
  return {remote.decoder, loop, kSoonestRepeatMs + toMs(remote.keyUp), kLatestOfKernelMs};
}

const Terms& termsOf(Decoder decoder) {
  static constexpr Terms kDaemons = {"repeat timeout", "release timeout", "line", "last line"};
  static constexpr Terms kKernels = {"period", "delay", "frame", "key-up"};
  return decoder == Decoder::kDaemon ? kDaemons : kKernels;
}

std::string meaningOf(Fault fault, const Judgement& judgement) {
  const bool polls = judgement.loop == LoopKind::kPoll;
  const Terms& terms = termsOf(judgement.decoder);
  const std::string start = terms.start;
  const std::string repeat = terms.repeat;
  switch (fault) {
    case Fault::kGhosts: return "a tap gives more than one key-down: take a longer " + start;
    case Fault::kMisses: return "a press gives no key-down: " + (polls ? "poll more often" : "take a shorter " + start);
    case Fault::kOff: return "repeating is off: set a " + start + " and a " + repeat;
    case Fault::kNoRepeats: return "a held button does not repeat: take a shorter " + start;
    case Fault::kUneven:
      return "pauses between repeats differ " + plain(kMaxUneven) + "-fold: take another " + repeat +
             (polls ? ", or poll more often" : "");
    case Fault::kHasty:
      return "the first repeat comes within " + plain(std::round(judgement.soonestRepeatMs)) +
             " ms: a slow tap would be two; take a longer " + start;
    case Fault::kSlowStart:
      return "the first repeat comes after more than " + plain(judgement.latestRepeatMs) + " ms: take a shorter " +
             start;
    case Fault::kFast: return "more than " + plain(kFastestPerSecond) + " repeats a second: take a longer " + repeat;
    case Fault::kSlow: return "fewer than " + plain(kSlowestPerSecond) + " repeats a second: take another " + repeat;
    case Fault::kLate: break;
  }
  return "the last key-down comes more than " + plain(kLatestAfterMs) + " ms after the " + terms.end +
         (polls ? ": poll more often" : "");
}

std::string toText(const std::optional<Range>& range, int decimals) {
  if (!range) return "-";
  const auto number = [decimals](double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return std::string(text);
  };
  const std::string minimum = number(range->minimum);
  const std::string maximum = number(range->maximum);
  return minimum == maximum ? minimum : minimum + "-" + maximum;
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
  const std::vector<Circumstances> all = studiedCircumstances(remote.decoder, setting);
  const Judgement judgement = judgementOf(remote, setting.pollMs ? LoopKind::kPoll : LoopKind::kWait);
  const auto weight = [&](const Circumstances& circumstances) {
    return weightOf(findingOf(remote, judgement, setting, {circumstances}));
  };
  return *std::max_element(all.begin(), all.end(),
                           [&](const Circumstances& a, const Circumstances& b) { return weight(a) < weight(b); });
}

Press pressToShow(const Remote& remote, const Timeline& timeline, bool held) {
  const auto rank = [&](const Press& press) {
    if (press.held != held) return -1.0;
    return held ? toMs(timeline.lines[press.end - 1].sent - timeline.lines[press.first].sent)
                : keyDownsOf(timeline, press);
  };
  return *std::max_element(remote.presses.begin(), remote.presses.end(),
                           [&](const Press& a, const Press& b) { return rank(a) < rank(b); });
}

// ---- The study ----------------------------------------------------------------------------------

namespace {

// Without repetitions, by poll timeout, then by what starts the repeats, then by what sets their pace.
std::vector<Setting> settingsOf(const Grid& grid) {
  std::vector<PollTimeout> polls = {std::nullopt};
  if (grid.loop == LoopKind::kPoll) polls.assign(grid.pollMs.begin(), grid.pollMs.end());
  std::vector<Setting> settings;
  for (const PollTimeout poll : polls) {
    for (const int start : grid.startMs) {
      for (const int repeat : grid.repeatMs) settings.push_back({repeat, start, poll});
    }
  }
  return settings;
}

void sortSettings(std::vector<Setting>& settings) {
  std::sort(settings.begin(), settings.end(), [](const Setting& a, const Setting& b) {
    return std::tie(a.pollMs, a.startMs, a.repeatMs) < std::tie(b.pollMs, b.startMs, b.repeatMs);
  });
  settings.erase(std::unique(settings.begin(), settings.end()), settings.end());
}

using Candidates = std::vector<std::size_t>;

// Keeps those with the smallest value, and those that are at most `tolerance` above it.
template <typename Value>
void keepLeast(Candidates& candidates, const Value& valueOf, double tolerance = 0) {
  double minimum = valueOf(candidates.front());
  for (const std::size_t candidate : candidates) minimum = std::min<double>(minimum, valueOf(candidate));
  const auto isMore = [&](std::size_t candidate) { return valueOf(candidate) > minimum + tolerance; };
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(), isMore), candidates.end());
}

bool has(const Candidates& candidates, std::size_t number) {
  return std::count(candidates.begin(), candidates.end(), number) != 0;
}

// The index of the best of the candidates, which are indices in ascending order.
std::size_t chooseBest(const std::vector<Finding>& findings, std::size_t byDefault, Candidates candidates,
                       const Remote& remote) {
  const bool kernel = remote.decoder == Decoder::kKernel;
  keepLeast(candidates, [&](std::size_t i) { return weightOf(findings[i]); });
  keepLeast(candidates,
            [&](std::size_t i) { return std::abs(findings[i].setting.pollMs.value_or(0) - kRoundTimeoutMs); });
  if (kernel && has(candidates, byDefault)) return byDefault;
  const auto firstRepeat = [&](std::size_t i) {
    return findings[i].firstRepeatMs ? findings[i].firstRepeatMs->maximum : 0;
  };
  keepLeast(candidates, firstRepeat, toMs(remote.period) / (kernel ? 1 : 2));
  keepLeast(candidates, [&](std::size_t i) { return -findings[i].setting.startMs; });
  if (has(candidates, byDefault)) return byDefault;
  return candidates[(candidates.size() - 1) / 2];
}

}  // namespace

std::size_t Grid::size() const {
  return repeatMs.size() * startMs.size() * (loop == LoopKind::kPoll ? pollMs.size() : 1);
}

Study studyTiming(const Remote& remote, const Grid& grid) {
  const Setting byDefault = defaultSetting(remote, grid.loop);
  const std::vector<Setting> wanted = settingsOf(grid);
  std::vector<Setting> settings = wanted;
  settings.push_back(byDefault);
  sortSettings(settings);
  Study study = {};
  study.judgement = judgementOf(remote, grid.loop);
  Candidates candidates;
  for (const Setting& setting : settings) {
    const bool isDefault = setting == byDefault;
    if (isDefault) study.byDefault = study.findings.size();
    // A node can stay as it is; the reader's defaults are asked for if they are wanted.
    const bool canStay = isDefault && remote.decoder == Decoder::kKernel;
    if (canStay || std::count(wanted.begin(), wanted.end(), setting) != 0) candidates.push_back(study.findings.size());
    study.findings.push_back(
        findingOf(remote, study.judgement, setting, studiedCircumstances(remote.decoder, setting)));
  }
  study.recommended = chooseBest(study.findings, study.byDefault, candidates, remote);
  return study;
}

}  // namespace quarlo::tools::tune
