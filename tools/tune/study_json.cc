#include "tools/tune/study_json.h"

#include <cmath>

namespace quarlo::tools::tune {

using nlohmann::ordered_json;

namespace {

ordered_json toJson(const std::optional<Range>& range) {
  if (!range) return nullptr;
  const auto rounded = [](double number) { return std::round(number * 1000) / 1000; };
  return {{"minimum", rounded(range->minimum)}, {"maximum", rounded(range->maximum)}};
}

}  // namespace

ordered_json findingJson(const Finding& finding, Decoder decoder) {
  const bool kernel = decoder == Decoder::kKernel;
  ordered_json json;
  if (kernel) {
    json["delayMs"] = finding.setting.startMs;
    json["periodMs"] = finding.setting.repeatMs;
  } else {
    json["repeatTimeoutMs"] = finding.setting.repeatMs;
    json["releaseTimeoutMs"] = finding.setting.startMs;
  }
  if (finding.setting.pollMs) json["timeoutMs"] = *finding.setting.pollMs;
  json["keyDownsPerTap"] = toJson(finding.keyDownsPerTap);
  json["firstRepeatMs"] = toJson(finding.firstRepeatMs);
  json["repeatsPerSecond"] = toJson(finding.repeatsPerSecond);
  json["pauseMs"] = toJson(finding.pauseMs);
  json["lastAfterReleaseMs"] = toJson(finding.lastAfterMs);
  if (!kernel) {
    json["linesSkipped"] = finding.skipped;
    json["linesLost"] = finding.lost;
  }
  json["faults"] = ordered_json::array();
  for (const Fault fault : finding.faults) json["faults"].push_back(nameOf(fault));
  return json;
}

}  // namespace quarlo::tools::tune
