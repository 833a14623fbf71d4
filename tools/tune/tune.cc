#include "tools/tune/tune.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "recording/session.h"
#include "tools/common/columns.h"
#include "tools/common/output.h"
#include "tools/tune/gnuplot.h"
#include "tools/tune/timing_plot.h"

namespace quarlo::tools::tune {
namespace {

using nlohmann::ordered_json;

// ---- Numbers ------------------------------------------------------------------------------------

std::string formatted(const char* format, double number) {
  char text[32];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

// With signs: "-8..+13", and "+0" for what is a little less than nothing.
std::string shownSigned(const std::optional<Range>& range) {
  if (!range) return "-";
  const std::string minimum = formatted("%+.0f", std::round(range->minimum) + 0.0);
  const std::string maximum = formatted("%+.0f", std::round(range->maximum) + 0.0);
  return minimum == maximum ? minimum : minimum + ".." + maximum;
}

// ---- Text ---------------------------------------------------------------------------------------

// "nec, a line every 108 ms"; what was recorded can have any name.
std::string describeLines(const std::string& name, const Remote& remote) {
  return name + (name.empty() ? "" : ", ") + "a line every " + formatted("%.0f", toMs(remote.period)) + " ms";
}

// "31 of 2004 taps".
std::string describePart(std::size_t part, std::size_t all, const char* what) {
  return (part == all ? "" : std::to_string(part) + " of ") + counted(static_cast<long>(all), what);
}

// "6 taps, and 1 held button".
std::string describePresses(const Remote& remote) {
  const auto holds = static_cast<std::size_t>(
      std::count_if(remote.presses.begin(), remote.presses.end(), [](const Press& press) { return press.held; }));
  return describePart(remote.presses.size() - holds, remote.taps, "tap") + ", and " +
         describePart(holds, remote.holds, "held button");
}

std::string describeRemote(const TuneOptions& options, const Remote& remote) {
  if (options.session.empty()) {
    return describeLines(options.protocol.name, remote) + "; a tap of " + counted(options.protocol.tapLines, "line") +
           ", and a button held for " + std::to_string(options.hold.count()) + " ms";
  }
  return describeLines(options.session, remote) + "; " + describePresses(remote) +
         (remote.leftOut == 0 ? "" : "; left out: " + counted(static_cast<long>(remote.leftOut), "line"));
}

std::string verdictOn(const Finding& finding) { return finding.faults.empty() ? "no fault" : toText(finding.faults); }

// Of the picture.
std::string titleOf(const TuneOptions& options, const Remote& remote, const Study& study) {
  const std::string name = options.session.empty() ? options.protocol.name : "a recorded remote";
  std::string title = describeLines(name, remote) + ": " + verdictOn(study.findings[study.byDefault]) + " now";
  if (study.byDefault != study.recommended) {
    title += ", " + verdictOn(study.findings[study.recommended]) + " as recommended";
  }
  return title;
}

void printHeading(const TuneOptions& options, const Remote& remote) {
  std::printf("Remote: %s.\n", printable(describeRemote(options, remote)).c_str());
  if (options.grid.loop == LoopKind::kPoll) {
    std::printf(
        "Each setting is run 24 times: the press comes at 8 moments between two polls, and the application's\n"
        "own work takes 0.1, 1 and 3 ms a round. Ranges are over all runs; times are in ms.\n\n"
        "   repeat release    poll downs    first   repeats  last down lines\n"
        "  timeout timeout timeout a tap   repeat  a second  after end skip lost  faults\n");
  } else {
    std::printf(
        "Each setting is run 3 times: the application's own work takes 0.1, 1 and 3 ms a round. Ranges are\n"
        "over all runs; times are in ms.\n\n"
        "   repeat release downs    first   repeats  last down lines\n"
        "  timeout timeout a tap   repeat  a second  after end skip  faults\n");
  }
}

// Only polls have a timeout, and lose lines.
void printRow(const Finding& finding, bool here, bool best) {
  const Setting& setting = finding.setting;
  const bool polls = setting.pollMs.has_value();
  std::printf("%c%c%7d %7d %s%5s %8s %9s %10s %4d%s  %s\n", here ? '>' : ' ', best ? '*' : ' ', setting.repeatMs,
              setting.releaseMs, polls ? rightAligned(std::to_string(*setting.pollMs) + " ", 8).c_str() : "",
              toText(finding.keyDownsPerTap, 0).c_str(), toText(finding.firstRepeatMs, 0).c_str(),
              toText(finding.repeatsPerSecond, 1).c_str(), shownSigned(finding.lastAfterMs).c_str(), finding.skipped,
              polls ? rightAligned(std::to_string(finding.lost), 5).c_str() : "",
              finding.faults.empty() ? "good" : toText(finding.faults).c_str());
}

void printTable(const Study& study) {
  PollTimeout poll = study.findings.front().setting.pollMs;
  for (std::size_t i = 0; i < study.findings.size(); ++i) {
    const Finding& finding = study.findings[i];
    if (std::exchange(poll, finding.setting.pollMs) != finding.setting.pollMs) std::printf("\n");
    printRow(finding, i == study.byDefault, i == study.recommended);
  }
}

void printLegend(const Study& study) {
  std::set<Fault> faults;
  for (const Finding& finding : study.findings) faults.insert(finding.faults.begin(), finding.faults.end());
  std::printf("\n> you are here, if you set nothing   * recommended\n");
  for (const Fault fault : faults) std::printf("%s: %s\n", nameOf(fault), meaningOf(fault, study.loop).c_str());
}

// ---- The recommendation -------------------------------------------------------------------------

std::string reasonOf(const Study& study) {
  const Finding& best = study.findings[study.recommended];
  if (!best.faults.empty()) {
    const bool defaultIsGood = study.findings[study.byDefault].faults.empty();
    return "None of the settings to try is without a fault; " +
           std::string(defaultIsGood ? "the default one is. Of the others, " : "") + "this one has the fewest (" +
           toText(best.faults) + "). " + describe(best);
  }
  const std::string now = verdictOn(study.findings[study.byDefault]);
  const std::string outcome = "Now: " + now + ". As recommended: no fault. " + describe(best) + " ";
  if (study.recommended == study.byDefault) return describe(best) + " No other setting is better: leave it as it is.";
  return outcome + "Of the settings without a fault that repeat this soon, it has the longest release timeout and " +
         "the middle repeat timeout: the farthest from trouble.";
}

// Breaks text into lines of at most 98 characters.
std::string wrapped(const std::string& text) {
  constexpr std::size_t kLineWidth = 98;
  std::string result;
  std::size_t start = 0;
  while (text.size() - start > kLineWidth) {
    const std::size_t end = text.rfind(' ', start + kLineWidth);
    result += text.substr(start, end - start) + "\n";
    start = end + 1;
  }
  return result + text.substr(start);
}

void printRecommendation(const Study& study) {
  const Setting& setting = study.findings[study.recommended].setting;
  std::printf("\n%s\n\n", wrapped(reasonOf(study)).c_str());
  std::printf("  export LIRC_REPEAT_TIMEOUT=%d\n", setting.repeatMs);
  std::printf("  export LIRC_RELEASE_TIMEOUT=%d\n", setting.releaseMs);
  if (setting.pollMs) {
    std::printf("  and the first readInput() of each round of the loop waits %d ms\n", *setting.pollMs);
  }
}

// ---- JSON ---------------------------------------------------------------------------------------

ordered_json toJson(const std::optional<Range>& range) {
  if (!range) return nullptr;
  const auto rounded = [](double number) { return std::round(number * 1000) / 1000; };
  return {{"minimum", rounded(range->minimum)}, {"maximum", rounded(range->maximum)}};
}

ordered_json toJson(const char* kind, const Finding& finding) {
  ordered_json json;
  json["kind"] = kind;
  json["repeatTimeoutMs"] = finding.setting.repeatMs;
  json["releaseTimeoutMs"] = finding.setting.releaseMs;
  if (finding.setting.pollMs) json["timeoutMs"] = *finding.setting.pollMs;
  json["keyDownsPerTap"] = toJson(finding.keyDownsPerTap);
  json["firstRepeatMs"] = toJson(finding.firstRepeatMs);
  json["repeatsPerSecond"] = toJson(finding.repeatsPerSecond);
  json["pauseMs"] = toJson(finding.pauseMs);
  json["lastAfterReleaseMs"] = toJson(finding.lastAfterMs);
  json["linesSkipped"] = finding.skipped;
  json["linesLost"] = finding.lost;
  json["faults"] = ordered_json::array();
  for (const Fault fault : finding.faults) json["faults"].push_back(nameOf(fault));
  return json;
}

void printJson(const Remote& remote, const Study& study) {
  for (std::size_t i = 0; i < study.findings.size(); ++i) {
    ordered_json json = toJson("setting", study.findings[i]);
    json["default"] = i == study.byDefault;
    std::printf("%s\n", json.dump().c_str());
  }
  ordered_json json = toJson("recommendation", study.findings[study.recommended]);
  json["presses"] = remote.taps + remote.holds;
  json["pressesStudied"] = remote.presses.size();
  json["reason"] = reasonOf(study);
  std::printf("%s\n", json.dump().c_str());
}

// ---- The subcommand -----------------------------------------------------------------------------

Remote remoteOf(const TuneOptions& options) {
  if (options.session.empty()) return imagineRemote(options.protocol, options.hold);
  recording::Session session = recording::readSession(options.session);
  if (!session.remote) throw recording::Error(options.session + ": no remote was recorded in this session");
  return recordedRemote(std::move(*session.remote), options.session);
}

void print(const TuneOptions& options, const Remote& remote, const Study& study) {
  if (options.json) return printJson(remote, study);
  printHeading(options, remote);
  printTable(study);
  printLegend(study);
  printRecommendation(study);
}

}  // namespace

int run(const TuneOptions& options) {
  setVerbosity(0);
  try {
    const Remote remote = remoteOf(options);
    if (!options.plot.empty()) checkPicturePath(options.plot);
    const Study study = studyTiming(remote, options.grid);
    print(options, remote, study);
    if (!options.plot.empty()) drawPicture(options.plot, plotScript(remote, study, titleOf(options, remote, study)));
    return kDone;
  } catch (const recording::Error& error) {
    return fail(error.what());
  } catch (const PictureError& error) {
    return fail(error.what());
  } catch (const std::bad_alloc&) {
    return fail(options.session + ": there is not enough memory for this session");
  }
}

}  // namespace quarlo::tools::tune
