#include "tools/tune/study_page.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <vector>

#include "tools/common/html_page.h"
#include "tools/tune/study_json.h"

namespace quarlo::tools::tune {

using nlohmann::ordered_json;
using namespace std::string_view_literals;

namespace {

constexpr HtmlPage kPage = {
#include "tune_page.inc"
};

// ---- Sliders ------------------------------------------------------------------------------------

// In ascending order.
void add(std::vector<int>& values, int value) {
  values.insert(std::lower_bound(values.begin(), values.end(), value), value);
  values.erase(std::unique(values.begin(), values.end()), values.end());
}

// With what is halfway between two of them, to a whole number, unless they are close.
std::vector<int> withMiddles(const std::vector<int>& values) {
  constexpr int kCloseMs = 20;
  std::vector<int> all = values;
  for (std::size_t i = 1; i < values.size(); ++i) {
    const int step = values[i] - values[i - 1];
    if (step >= kCloseMs) add(all, values[i - 1] + step / 2);
  }
  return all;
}

// ---- What is shown of a setting -----------------------------------------------------------------

// To a tenth of a millisecond.
double shownMs(microseconds time) { return std::round(toMs(time) * 10) / 10; }

// A press of a run: its lines and what became of them, its key-downs, and what the reader took the button for, in ms
// since its first line.
ordered_json pressJson(const Remote& remote, const Timeline& timeline, bool held) {
  const Press press = pressToShow(remote, timeline, held);
  const microseconds start = timeline.lines[press.first].sent;
  ordered_json json = {
      {"lines", ordered_json::array()}, {"keyDowns", ordered_json::array()}, {"states", ordered_json::array()}};
  for (std::size_t i = press.first; i < press.end; ++i) {
    json["lines"].push_back({shownMs(timeline.lines[i].sent - start), static_cast<int>(timeline.lines[i].fate)});
  }
  for (const KeyDown& keyDown : timeline.keyDowns) {
    if (keyDown.line >= press.first && keyDown.line < press.end)
      json["keyDowns"].push_back(shownMs(keyDown.time - start));
  }
  // Some second after a press, another can come.
  const microseconds end = timeline.lines[press.end - 1].sent + kPauseBetweenPresses;
  for (const StateChange& change : timeline.states) {
    if (change.time < start || change.time > end) continue;
    json["states"].push_back({shownMs(change.time - start), static_cast<int>(change.state)});
  }
  return json;
}

ordered_json settingJson(const Remote& remote, const Finding& finding) {
  ordered_json json = findingJson(finding, remote.decoder);
  const Timeline timeline = runReader(remote, finding.setting, worstCircumstances(remote, finding.setting));
  json["summary"] = describe(finding);
  json["tap"] = pressJson(remote, timeline, false);
  json["hold"] = pressJson(remote, timeline, true);
  return json;
}

bool isTried(const Study& study, const Setting& setting) {
  return std::any_of(study.findings.begin(), study.findings.end(),
                     [&](const Finding& finding) { return finding.setting == setting; });
}

// Those of all settings, the worst first.
ordered_json faultsJson(const Study& between) {
  std::set<Fault> faults;
  for (const Finding& finding : between.findings) faults.insert(finding.faults.begin(), finding.faults.end());
  ordered_json json = ordered_json::array();
  for (const Fault fault : faults) {
    json.push_back({{"name", nameOf(fault)}, {"meaning", meaningOf(fault, between.judgement)}});
  }
  return json;
}

}  // namespace

Grid gridOfSliders(const Grid& grid, const Study& study) {
  constexpr std::size_t kMostSettings = 150;
  const Setting& now = study.findings[study.byDefault].setting;
  Grid sliders = grid;
  add(sliders.repeatMs, now.repeatMs);
  add(sliders.startMs, now.startMs);
  if (now.pollMs) add(sliders.pollMs, *now.pollMs);
  while (true) {
    const Grid finer = {sliders.loop, withMiddles(sliders.repeatMs), withMiddles(sliders.startMs), sliders.pollMs};
    if (finer.size() > kMostSettings || finer.size() == sliders.size()) return sliders;
    sliders = finer;
  }
}

void writeStudyPage(const std::string& path, const Remote& remote, const Study& study, const Study& between,
                    const PageTexts& texts) {
  const Terms& terms = termsOf(remote.decoder);
  ordered_json json = {{"remote", texts.remote},
                       {"runs", texts.runs},
                       {"reason", texts.reason},
                       {"whatToSet", texts.whatToSet},
                       {"decoder", remote.decoder == Decoder::kKernel ? "kernel" : "daemon"},
                       {"terms", {{"repeat", terms.repeat}, {"start", terms.start}, {"line", terms.line}}},
                       {"faults", faultsJson(between)},
                       {"settings", ordered_json::array()}};
  for (const Finding& finding : between.findings) {
    ordered_json setting = settingJson(remote, finding);
    setting["tried"] = isTried(study, finding.setting);
    setting["now"] = finding.setting == study.findings[study.byDefault].setting;
    setting["recommended"] = finding.setting == study.findings[study.recommended].setting;
    json["settings"].push_back(std::move(setting));
  }
  HtmlFile file(path, kPage);
  file.add(json.dump());
  file.finish();
}

}  // namespace quarlo::tools::tune
