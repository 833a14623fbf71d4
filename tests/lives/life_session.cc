#include "tests/lives/life_session.h"

#include <linux/input.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sim/machine.h"

namespace quarlo::test::lives {
namespace {

using recording::DeviceRecording;
using recording::RemoteLine;

void add(std::optional<DeviceRecording>& node, const sim::Device& device, const recording::Record& record) {
  if (!node) node = DeviceRecording{device.name, device.codes, {}};
  node->records.push_back(record);
}

recording::Record recordOf(const Step& step, microseconds time) {
  return {time, static_cast<std::uint16_t>(step.type), static_cast<std::uint16_t>(step.code), step.value};
}

// Moves what `text` has of whole lines to `lines`.
void addLines(std::optional<std::vector<RemoteLine>>& lines, std::string& text, microseconds time) {
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
    if (!lines) lines.emplace();
    lines->push_back({time, text.substr(0, end)});
    text.erase(0, end + 1);
  }
}

}  // namespace

recording::Session sessionOf(const Life& life) {
  recording::Session session;
  microseconds time(0);
  std::string text;
  for (const Step& step : life.steps) {
    if (step.kind == Step::kPass) time += step.time;
    if (step.kind == Step::kRecord && step.node == kMouseNode) {
      add(session.mouse, sim::Device::mouse(), recordOf(step, time));
    }
    if (step.kind == Step::kRecord && step.node == kKeyboardNode) {
      add(session.keyboard, sim::Device::keyboard(), recordOf(step, time));
    }
    if (step.kind == Step::kText) addLines(session.remote, text += step.text, time);
  }
  return session;
}

}  // namespace quarlo::test::lives
