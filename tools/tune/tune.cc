#include "tools/tune/tune.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "recording/lines.h"
#include "recording/session.h"
#include "tools/common/columns.h"
#include "tools/common/damages.h"
#include "tools/common/html_page.h"
#include "tools/common/output.h"
#include "tools/tune/gnuplot.h"
#include "tools/tune/kernel_remote.h"
#include "tools/tune/study_json.h"
#include "tools/tune/study_page.h"
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

// "nec, a line every 108 ms"; what was recorded can have any name, and lines that are not known.
std::string describeLines(const std::string& name, const Remote& remote) {
  if (remote.period == std::chrono::microseconds(0)) return name;
  return name + (name.empty() ? "" : ", ") + "a " + termsOf(remote.decoder).line + " every " +
         formatted("%.0f", toMs(remote.period)) + " ms";
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

const char* whatIsLeftOut(const Remote& remote) { return remote.decoder == Decoder::kDaemon ? "line" : "press"; }

std::string describeRemote(const TuneOptions& options, const Remote& remote) {
  if (options.session.empty()) {
    return describeLines(options.protocol.name, remote) + "; a tap of " +
           counted(options.protocol.tapLines, termsOf(remote.decoder).line) + ", and a button held for " +
           std::to_string(options.hold.count()) + " ms";
  }
  return describeLines(options.session, remote) + "; " + describePresses(remote) +
         (remote.leftOut == 0 ? ""
                              : "; left out: " + counted(static_cast<long>(remote.leftOut), whatIsLeftOut(remote)));
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

// What the kernel adds to a press, and to each wait for a repeat.
std::string describeKernel(const Remote& remote) {
  std::string text;
  if (remote.keyUp != std::chrono::microseconds(0)) {
    text = "The kernel lets a button go " + formatted("%.0f", toMs(remote.keyUp)) + " ms after its last frame.\n";
  }
  return text + "The kernel's timers are on time, or as late as with 250 ticks a second.";
}

// How the runs of a setting differ.
std::string describeRuns(const TuneOptions& options, const Remote& remote) {
  if (options.grid.loop == LoopKind::kPoll) {
    return "Each setting is run 24 times: the press comes at 8 moments between two polls, and the application's\n"
           "own work takes 0.1, 1 and 3 ms a round. Ranges are over all runs; times are in ms.";
  }
  return "Each setting is run " + std::string(remote.decoder == Decoder::kKernel ? "6" : "3") +
         " times: the application's own work takes 0.1, 1 and 3 ms a round. Ranges are\n"
         "over all runs; times are in ms.";
}

void printHeading(const TuneOptions& options, const Remote& remote) {
  std::printf("Remote: %s.\n", printable(describeRemote(options, remote)).c_str());
  if (remote.decoder == Decoder::kKernel) std::printf("%s\n", describeKernel(remote).c_str());
  std::printf("%s\n\n", describeRuns(options, remote).c_str());
  const bool polls = options.grid.loop == LoopKind::kPoll;
  if (remote.decoder == Decoder::kKernel) {
    std::printf("                 %s downs    first   repeats  last down\n", polls ? "   poll" : "");
    std::printf("    delay  period%s a tap   repeat  a second  after end  faults\n", polls ? " timeout" : "");
  } else {
    std::printf("   repeat release %sdowns    first   repeats  last down lines\n", polls ? "   poll " : "");
    std::printf("  timeout timeout %sa tap   repeat  a second  after end skip%s  faults\n", polls ? "timeout " : "",
                polls ? " lost" : "");
  }
}

// What the reader made of the daemon's lines. Only polls lose some.
std::string describeFates(const Finding& finding) {
  return rightAligned(std::to_string(finding.skipped), 5) +
         (finding.setting.pollMs ? rightAligned(std::to_string(finding.lost), 5) : "");
}

void printRow(const Finding& finding, Decoder decoder, bool here, bool best) {
  const Setting& setting = finding.setting;
  const bool kernel = decoder == Decoder::kKernel;
  std::printf("%c%c%7d %7d %s%5s %8s %9s %10s%s  %s\n", here ? '>' : ' ', best ? '*' : ' ',
              kernel ? setting.startMs : setting.repeatMs, kernel ? setting.repeatMs : setting.startMs,
              setting.pollMs ? rightAligned(std::to_string(*setting.pollMs) + " ", 8).c_str() : "",
              toText(finding.keyDownsPerTap, 0).c_str(), toText(finding.firstRepeatMs, 0).c_str(),
              toText(finding.repeatsPerSecond, 1).c_str(), shownSigned(finding.lastAfterMs).c_str(),
              kernel ? "" : describeFates(finding).c_str(),
              finding.faults.empty() ? "good" : toText(finding.faults).c_str());
}

void printTable(const Study& study) {
  PollTimeout poll = study.findings.front().setting.pollMs;
  for (std::size_t i = 0; i < study.findings.size(); ++i) {
    const Finding& finding = study.findings[i];
    if (std::exchange(poll, finding.setting.pollMs) != finding.setting.pollMs) std::printf("\n");
    printRow(finding, study.judgement.decoder, i == study.byDefault, i == study.recommended);
  }
}

void printLegend(const Study& study) {
  std::set<Fault> faults;
  for (const Finding& finding : study.findings) faults.insert(finding.faults.begin(), finding.faults.end());
  std::printf("\n> you are here%s   * recommended\n",
              study.judgement.decoder == Decoder::kDaemon ? ", if you set nothing" : "");
  for (const Fault fault : faults) std::printf("%s: %s\n", nameOf(fault), meaningOf(fault, study.judgement).c_str());
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
  const Terms& terms = termsOf(study.judgement.decoder);
  return outcome + "Of the settings without a fault that repeat this soon, it has the longest " + terms.start +
         " and the middle " + terms.repeat + ": the farthest from trouble.";
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

std::string lircSetting(const Setting& setting) {
  return "  export LIRC_REPEAT_TIMEOUT=" + std::to_string(setting.repeatMs) +
         "\n  export LIRC_RELEASE_TIMEOUT=" + std::to_string(setting.startMs) + "\n";
}

// The rule is as that of Debian's package ir-keytable, which sets the key map.
std::string nodeSetting(const Setting& setting) {
  const std::string delay = std::to_string(setting.startMs);
  const std::string period = std::to_string(setting.repeatMs);
  const std::string options = " -D " + delay + " -P " + period;
  return "Now, for a receiver that `ir-keytable` lists as rc0:\n\n"
         "  ir-keytable -s rc0" +
         options +
         "\n\n"
         "For each receiver as it comes, in /etc/udev/rules.d/71-remote-repeat.rules:\n\n"
         "  ACTION==\"add\", SUBSYSTEM==\"input\", SUBSYSTEMS==\"rc\", KERNEL==\"event*\", \\\n"
         "    ENV{.rc_sysdev}=\"$id\", \\\n"
         "    RUN+=\"/usr/bin/ir-keytable -s $env{.rc_sysdev}" +
         options +
         "\"\n\n"
         "For any node, in a program that has it open as fd:\n\n"
         "  unsigned int repeat[2] = {" +
         delay + ", " + period +
         "};\n"
         "  ioctl(fd, EVIOCSREP, repeat);\n";
}

std::string whatToSet(const Study& study) {
  const Setting& setting = study.findings[study.recommended].setting;
  const std::string poll = setting.pollMs ? "  and the first readInput() of each round of the loop waits " +
                                                std::to_string(*setting.pollMs) + " ms\n"
                                          : "";
  if (study.judgement.decoder == Decoder::kDaemon) return lircSetting(setting) + poll;
  if (study.recommended != study.byDefault) return nodeSetting(setting) + poll;
  return "  delay " + std::to_string(setting.startMs) + " ms, period " + std::to_string(setting.repeatMs) + " ms\n" +
         poll;
}

void printRecommendation(const Study& study) {
  std::printf("\n%s\n\n%s", wrapped(reasonOf(study)).c_str(), whatToSet(study).c_str());
}

// ---- JSON ---------------------------------------------------------------------------------------

void printJson(const Remote& remote, const Study& study) {
  const Decoder decoder = study.judgement.decoder;
  for (std::size_t i = 0; i < study.findings.size(); ++i) {
    ordered_json json = {{"kind", "setting"}};
    json.update(findingJson(study.findings[i], decoder));
    json[decoder == Decoder::kKernel ? "current" : "default"] = i == study.byDefault;
    std::printf("%s\n", json.dump().c_str());
  }
  ordered_json json = {{"kind", "recommendation"}};
  json.update(findingJson(study.findings[study.recommended], decoder));
  json["presses"] = remote.taps + remote.holds;
  json["pressesStudied"] = remote.presses.size();
  json["reason"] = reasonOf(study);
  std::printf("%s\n", json.dump().c_str());
}

// ---- The subcommand -----------------------------------------------------------------------------

// The nodes of a session whose keys were pressed, by the names of their files.
std::map<std::string, const recording::DeviceRecording*> nodesWithKeys(const recording::Session& session) {
  std::map<std::string, const recording::DeviceRecording*> nodes;
  const auto add = [&](const std::string& name, const std::optional<recording::DeviceRecording>& node) {
    if (node && hasKeyPress(*node)) nodes[name] = &*node;
  };
  add(recording::kMouseFile, session.mouse);
  add(recording::kKeyboardFile, session.keyboard);
  for (std::size_t i = 0; i < session.further.size(); ++i) add(recording::furtherNodeFile(i), session.further[i]);
  return nodes;
}

Remote kernelRemoteOf(const TuneOptions& options, const recording::Session& session) {
  const auto nodes = nodesWithKeys(session);
  if (nodes.empty()) throw recording::Error(options.session + ": no key of a node was recorded in this session");
  if (nodes.size() > 1) {
    std::string names;
    for (const auto& [name, node] : nodes) names += (names.empty() ? "" : ", ") + name;
    throw recording::Error(options.session + ": keys of " + std::to_string(nodes.size()) +
                           " nodes were recorded in this session (" + names + "): give the file of one of them");
  }
  return recordedKernelRemote(*nodes.begin()->second, options.session, options.kernel);
}

// Empty if there is none, and a remote is imagined.
recording::Session readSession(const TuneOptions& options) {
  if (options.session.empty()) return {};
  return recording::readSession(options.session, recording::SingleNode::kAny);
}

Remote remoteOf(const TuneOptions& options, recording::Session session) {
  const bool kernel = options.kernel || options.nodeGridIsGiven;
  if (options.session.empty() && kernel) {
    return imagineKernelRemote(options.protocol, options.hold, options.kernel.value_or(kRemotesRepeat));
  }
  if (options.session.empty()) return imagineRemote(options.protocol, options.hold);
  if (session.remote && !kernel) return recordedRemote(std::move(*session.remote), options.session);
  if (options.gridIsGiven) {
    throw recording::Error(options.session +
                           ": no remote of the LIRC daemon was recorded in this session, and --repeat-timeout and "
                           "--release-timeout are for one: leave them out to study its keys");
  }
  return kernelRemoteOf(options, session);
}

Grid gridFor(const TuneOptions& options, const Remote& remote) {
  if (remote.decoder == Decoder::kDaemon) return options.grid;
  return {options.grid.loop, options.periodMs, options.delayMs, options.grid.pollMs};
}

void writePage(const TuneOptions& options, const Remote& remote, const Study& study) {
  const Study between = studyTiming(remote, gridOfSliders(gridFor(options, remote), study));
  writeStudyPage(
      options.html, remote, study, between,
      {printable(describeRemote(options, remote)), describeRuns(options, remote), reasonOf(study), whatToSet(study)});
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
    recording::Session session = readSession(options);
    const int status = sayDamages(session);
    const Remote remote = remoteOf(options, std::move(session));
    if (!options.plot.empty()) checkNewFile(options.plot, kPicture);
    if (!options.html.empty()) checkNewFile(options.html, kHtmlPage);
    const Study study = studyTiming(remote, gridFor(options, remote));
    print(options, remote, study);
    if (!options.plot.empty()) drawPicture(options.plot, plotScript(remote, study, titleOf(options, remote, study)));
    if (!options.html.empty()) writePage(options, remote, study);
    return status;
  } catch (const recording::Error& error) {
    return fail(error.what());
  } catch (const PictureError& error) {
    return fail(error.what());
  } catch (const NewFileError& error) {
    return fail(error.what());
  } catch (const std::bad_alloc&) {
    return fail(options.session + ": there is not enough memory for this session");
  }
}

}  // namespace quarlo::tools::tune
