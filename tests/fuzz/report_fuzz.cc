// The data of a session's page: whatever devices and daemons call themselves and send, they are one value of JSON that
// stays in its element, and have the events of a replay.
#include <linux/input.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "recording/session.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"
#include "tools/common/output.h"
#include "tools/report/findings.h"
#include "tools/report/happened.h"
#include "tools/report/page_data.h"

namespace quarlo::fuzz {
namespace {

using nlohmann::json;
using recording::DeviceRecording;
using recording::Record;
using recording::Session;
using std::chrono::microseconds;
using tools::InputEvent;
using tools::InputLoop;
using tools::Origin;

// ---- A session ----------------------------------------------------------------------------------

constexpr int kTypes[] = {EV_SYN, EV_SYN, EV_SYN, EV_KEY, EV_KEY, EV_REL, EV_REL, EV_ABS, EV_MSC, EV_LED};
constexpr int kCodes[] = {REL_X,    REL_Y,     REL_WHEEL, REL_HWHEEL, KEY_A,           KEY_LEFTSHIFT, KEY_TV,
                          BTN_LEFT, BTN_RIGHT, BTN_SIDE,  BTN_TOUCH,  BTN_TOOL_FINGER, SYN_REPORT,    SYN_DROPPED};
constexpr microseconds kSteps[] = {microseconds(0),       microseconds(0),      microseconds(900),
                                   microseconds(1000),    microseconds(60'000), microseconds(110'000),
                                   microseconds(350'000), std::chrono::hours(5)};

Record takeRecord(InputBytes& input, microseconds& time) {
  time += input.pick(kSteps);
  const int type = input.pick(kTypes);
  const int kind = input.takeBelow(8);
  const int code = kind == 0 ? input.take<std::uint16_t>() : input.pick(kCodes);
  const std::int32_t value = kind < 2 ? input.take<std::int32_t>() : input.take<std::int8_t>();
  return {time, static_cast<std::uint16_t>(type), static_cast<std::uint16_t>(code), value};
}

DeviceRecording takeDevice(InputBytes& input) {
  DeviceRecording device;
  device.name = input.takeText();
  for (int types = input.takeBelow(4); types > 0; --types) {
    const int type = input.pick(kTypes);
    device.codes[type].insert(input.takeBelow(8));
  }
  device.id.bustype = input.take<std::uint16_t>();
  microseconds time(0);
  for (int records = input.takeBelow(200) + 1; records > 0; --records)
    device.records.push_back(takeRecord(input, time));
  return device;
}

// A daemon sends no line with a newline in it.
std::string takeLine(InputBytes& input) {
  if (input.takeBool()) {
    const int repeat = input.takeBelow(3);
    const char* const button = input.pick({"KEY_OK", "KEY_1", "KEY_FOO", "</script>"});
    return "0 0" + std::to_string(repeat) + " " + button + " tv";
  }
  std::string text = input.takeText();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

Session takeSession(InputBytes& input) {
  Session session;
  const int sources = input.takeBelow(16);
  if ((sources & 1) != 0) session.mouse = takeDevice(input);
  if ((sources & 2) != 0) session.keyboard = takeDevice(input);
  if ((sources & 4) != 0) session.further[1] = takeDevice(input);
  if ((sources & 8) != 0 || sources == 0) {
    session.remote.emplace();
    microseconds time(0);
    for (int lines = input.takeBelow(60) + 1; lines > 0; --lines) {
      time += input.pick(kSteps);
      session.remote->push_back({time, takeLine(input)});
    }
  }
  return session;
}

// ---- Its page -----------------------------------------------------------------------------------

std::vector<tools::report::SourceAbout> aboutOf(const Session& session) {
  std::vector<tools::report::SourceAbout> sources;
  const auto add = [&](InputLoop::Source source) { sources.push_back({source, "file", std::nullopt}); };
  if (session.mouse) add(InputLoop::kMouse);
  if (session.keyboard) add(InputLoop::kKeyboard);
  if (session.remote) add(InputLoop::kRemote);
  if (session.further[1]) add(tools::furtherSource(1));
  return sources;
}

std::string dataOf(const Session& session) {
  const tools::PlayOptions options;
  const tools::report::Happened happened = tools::report::play(session, options);
  const tools::report::Findings findings = tools::report::findAll(session, happened, options);
  std::string text;
  tools::report::JsonWriter writer([&](std::string_view piece) { text += piece; });
  writePageData({"session", session, happened, findings, options, aboutOf(session)}, writer);
  return text;
}

// Times, sources and shapes of the events, of the page and of a replay. How often a button was clicked is known to all
// readers of a process.
struct Seen {
  std::int64_t time;
  std::string source;
  json event;
};

bool operator==(const Seen& a, const Seen& b) { return a.time == b.time && a.source == b.source && a.event == b.event; }

std::vector<Seen> eventsOf(const json& data) {
  std::vector<Seen> all;
  std::int64_t time = 0;
  std::int64_t x = 0;
  std::int64_t y = 0;
  const json& events = data["events"];
  for (std::size_t i = 0; i < events["time"].size(); ++i) {
    time += events["time"][i].get<std::int64_t>();
    x += events["x"][i].get<std::int64_t>();
    y += events["y"][i].get<std::int64_t>();
    json event = data["shapes"][events["shape"][i].get<std::size_t>()];
    event.erase("text");
    event.erase("clicks");
    if (event["kind"] != "key") event["position"] = {x, y};
    all.push_back({time, data["sources"][events["source"][i].get<std::size_t>()]["source"], event});
  }
  return all;
}

struct Replayed : tools::Audience {
  bool take(microseconds time, const InputEvent& event, const Origin& origin,
            const InputLoop::Cause* /*cause*/) override {
    if (event.kind == InputEvent::kNoEvent) return true;
    json shape = json::parse(tools::toJson(event, origin).dump());
    if (shape["kind"] != "key") shape["position"] = {shape["x"], shape["y"]};
    for (const char* name : {"x", "y", "clicks"}) shape.erase(name);
    events.push_back({time.count(), tools::describeSource(origin), std::move(shape)});
    return true;
  }

  std::vector<Seen> events;
};

bool isHarmless(char ch) { return ch >= ' ' && ch <= '~' && ch != '<' && ch != '>' && ch != '&'; }

void checkColumns(const json& columns) {
  const std::size_t length = columns["number"].size();
  for (const auto& [name, column] : columns.items()) require(column.size() == length, "columns are of one length");
}

void check(const Session& session) {
  const std::string text = dataOf(session);
  require(std::all_of(text.begin(), text.end(), isHarmless), "what is in an element stays in it");
  const json data = json::parse(text, nullptr, false);
  require(!data.is_discarded(), "it is JSON");
  Replayed replayed;
  playSession(session, {}, tools::ReaderLoop::Empty::kUnknown, replayed);
  require(eventsOf(data) == replayed.events, "the events are those of a replay");
  checkColumns(data["events"]);
  for (const json& records : data["records"]) {
    if (!records.is_null()) checkColumns(records);
  }
  if (session.remote) checkColumns(data["lines"]);
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quarlo::tools::setVerbosity(0);
  quarlo::tools::silenceReader();
  quarlo::fuzz::InputBytes input(data, size);
  quarlo::fuzz::check(quarlo::fuzz::takeSession(input));
  return 0;
}
