#include "tools/report/page_data.h"

#include <linux/input.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "input/linux_input_reader_limits.h"
#include "tools/common/code_names.h"
#include "tools/common/lirc_line.h"
#include "tools/common/node_advice.h"
#include "tools/common/node_class.h"
#include "tools/common/output.h"
#include "tools/common/presses.h"
#include "tools/report/path.h"

namespace quarlo::tools::report {
namespace {

using recording::DeviceRecording;
using recording::Record;
using recording::RemoteLine;
using Json = nlohmann::ordered_json;

constexpr int kPageFormat = 1;

// ---- Which times are whole ----------------------------------------------------------------------

struct Stretch {
  microseconds from;
  microseconds to;
};

class WholeTimes {
 public:
  explicit WholeTimes(const PageParts& parts) {
    std::size_t records = 0;
    for (const Outcomes& outcomes : parts.happened.outcomes) records += outcomes.size();
    if (records <= kMostWholeRecords) {
      stretches_ = {{microseconds(0), parts.happened.length}};
      return;
    }
    std::vector<Stretch> all;
    for (const Finding& finding : parts.findings) {
      if (!finding.place.from) continue;
      for (const microseconds time : {*finding.place.from, finding.place.to}) {
        all.push_back({std::max(time - kWholeAroundFinding, microseconds(0)),
                       std::min<microseconds>(time + kWholeAroundFinding, parts.happened.length)});
      }
    }
    std::sort(all.begin(), all.end(), [](const Stretch& a, const Stretch& b) { return a.from < b.from; });
    for (const Stretch& stretch : all) add(stretch);
  }

  const std::vector<Stretch>& stretches() const { return stretches_; }

  bool has(microseconds time) const {
    const auto after = std::upper_bound(stretches_.begin(), stretches_.end(), time,
                                        [](microseconds wanted, const Stretch& one) { return wanted < one.from; });
    return after != stretches_.begin() && time <= (after - 1)->to;
  }

 private:
  void add(const Stretch& stretch) {
    if (stretches_.empty() || stretch.from > stretches_.back().to) {
      stretches_.push_back(stretch);
    } else {
      stretches_.back().to = std::max(stretches_.back().to, stretch.to);
    }
  }

  std::vector<Stretch> stretches_;
};

// ---- Texts --------------------------------------------------------------------------------------

const char* nameOfMask(const std::optional<Mask>& mask) {
  if (!mask) return "unknown";
  return *mask == Mask::kNothing ? "shown" : "hidden";
}

std::string textOfMask(const std::optional<Mask>& mask) {
  return mask ? remarkOn(*mask)
              : "It does not say what it hides: take it that it shows what was typed, passwords included.";
}

std::string hexadecimal(unsigned number) {
  char text[8];
  std::snprintf(text, sizeof text, "%04x", number);
  return text;
}

NodeFacts factsOf(const DeviceRecording& device) {
  NodeFacts facts;
  facts.name = device.name;
  facts.ids = {device.id.bustype, device.id.vendor, device.id.product, device.id.version};
  facts.properties = device.properties;
  facts.codes = device.codes;
  return facts;
}

Json aboutOf(const DeviceRecording& device) {
  const NodeFacts facts = factsOf(device);
  std::vector<std::string> types;
  for (const auto& [type, codes] : facts.codes) types.push_back(typeName(type));
  Json rows = Json::array();
  rows.push_back({"class", nameOf(classOf(facts))});
  rows.push_back({"bus", busName(facts.ids.bus)});
  rows.push_back({"vendor and product", hexadecimal(facts.ids.vendor) + ":" + hexadecimal(facts.ids.product)});
  rows.push_back({"version", hexadecimal(facts.ids.version)});
  rows.push_back({"can send", joined(types, ", ")});
  const std::vector<std::string> gives = deliveriesOf(facts);
  rows.push_back({"the reader gives of it", gives.empty() ? "nothing" : joined(gives, ", ")});
  return rows;
}

Json jsonOfLine(const std::string& text) {
  const std::optional<LircLine> line = parseLircLine(text);
  Json json = {{"line", printable(text)}};
  if (!line) return json;
  json["button"] = printable(std::string(line->button));
  json["repeat"] = std::stoul(std::string(line->repeat), nullptr, 16);
  json["remote"] = printable(std::string(line->remote));
  return json;
}

// ---- The page -----------------------------------------------------------------------------------

class Page {
 public:
  Page(const PageParts& parts, JsonWriter& writer)
      : parts_(parts), happened_(parts.happened), whole_(parts), out_(writer) {
    indexOf_.fill(-1);
    for (std::size_t i = 0; i < parts.sources.size(); ++i) {
      indexOf_[parts.sources[i].source] = static_cast<int>(i);
    }
  }

  void write() {
    out_.open('{');
    writeHead();
    writeSources();
    writeEvents();
    writeRecords();
    writeLines();
    writeStates();
    writeWhys();
    writeHeld();
    writePaths(happened_, indexOf_, out_);
    writeFindings();
    out_.close('}');
    out_.finish();
  }

 private:
  void field(const char* name, const Json& value) {
    out_.name(name);
    out_.value(value);
  }

  void writeHead() {
    field("format", kPageFormat);
    field("version", QUARLO_VERSION);
    field("session", printable(parts_.session));
    field("screen", {{"width", parts_.options.maxX + 1}, {"height", parts_.options.maxY + 1}});
    field("length", happened_.length.count());
    field("timeouts", {{"repeat", components::input::kDefaultRepeatTimeoutMs},
                       {"release", components::input::kDefaultReleaseTimeoutMs}});
    Json damages = Json::array();
    for (const recording::Damage& damage : parts_.recording.damages) {
      damages.push_back(printable(damage.problem + "; " + damage.consequence));
    }
    if (!happened_.isWhole) {
      damages.push_back(
          "the remote's lines come faster than the reader takes them, so that the LIRC daemon would close the "
          "connection; the rest was not played");
    }
    field("damages", damages);
    Json whole = Json::array();
    for (const Stretch& stretch : whole_.stretches()) whole.push_back({stretch.from.count(), stretch.to.count()});
    field("whole", whole);
  }

  // ---- Sources ----

  const DeviceRecording* deviceOf(InputLoop::Source source) const {
    const recording::Session& session = parts_.recording;
    const auto pointerTo = [](const std::optional<DeviceRecording>& device) { return device ? &*device : nullptr; };
    switch (source) {
      case InputLoop::kMouse: return pointerTo(session.mouse);
      case InputLoop::kKeyboard: return pointerTo(session.keyboard);
      case InputLoop::kRemote: return nullptr;
      default: return pointerTo(session.further[source - InputLoop::kFurther]);
    }
  }

  std::pair<microseconds, microseconds> firstAndLast(InputLoop::Source source) const {
    if (source == InputLoop::kRemote) {
      return {parts_.recording.remote->front().time, parts_.recording.remote->back().time};
    }
    const std::vector<Record>& records = deviceOf(source)->records;
    return {records.front().time, records.back().time};
  }

  void writeSources() {
    std::array<std::size_t, InputLoop::kSources> events = {};
    for (const Event& event : happened_.events) ++events[event.source];
    Json sources = Json::array();
    for (const SourceAbout& about : parts_.sources) {
      const DeviceRecording* const device = deviceOf(about.source);
      const auto [first, last] = firstAndLast(about.source);
      sources.push_back({{"source", sourceName(about.source)},
                         {"kind", device != nullptr ? "node" : "remote"},
                         {"file", printable(about.file)},
                         {"name", device != nullptr ? printable(device->name) : ""},
                         {"secrets", nameOfMask(about.mask)},
                         {"secretsText", textOfMask(about.mask)},
                         {"count", happened_.outcomes[about.source].size()},
                         {"events", events[about.source]},
                         {"first", first.count()},
                         {"last", last.count()},
                         {"nothing", nothingOf(about.source)},
                         {"about", device != nullptr ? aboutOf(*device) : Json::array()}});
    }
    field("sources", sources);
  }

  // How many of its records gave nothing, by the reason.
  Json nothingOf(InputLoop::Source source) const {
    std::map<Why, std::size_t> counts;
    const Outcomes& outcomes = happened_.outcomes[source];
    for (std::size_t number = 1; number <= outcomes.size(); ++number) {
      const Outcome outcome = outcomes[number];
      if (outcome.event == 0) ++counts[outcome.why];
    }
    Json json = Json::array();
    for (const auto& [why, count] : counts) json.push_back({indexOf(why), count});
    return json;
  }

  // ---- Events ----

  void writeEvents() {
    out_.name("shapes");
    out_.open('[');
    for (const Shape& shape : happened_.shapes) out_.value(shape.json);
    out_.close(']');

    std::vector<std::uint32_t> shown;  // places
    for (std::size_t i = 0; i < happened_.events.size(); ++i) {
      const Event& event = happened_.events[i];
      if (!happened_.shapeOf(event).isMove() || whole_.has(event.time)) shown.push_back(static_cast<std::uint32_t>(i));
    }
    const auto event = [&](std::size_t i) -> const Event& { return happened_.events[shown[i]]; };
    out_.name("events");
    out_.open('{');
    out_.deltas("number", shown.size(), [&](std::size_t i) { return shown[i] + 1; });
    out_.deltas("time", shown.size(), [&](std::size_t i) { return event(i).time.count(); });
    out_.column("source", shown.size(), [&](std::size_t i) { return indexOf_[event(i).source]; });
    out_.column("shape", shown.size(), [&](std::size_t i) { return event(i).shape; });
    out_.deltas("x", shown.size(), [&](std::size_t i) { return event(i).x; });
    out_.deltas("y", shown.size(), [&](std::size_t i) { return event(i).y; });
    out_.column("cause", shown.size(), [&](std::size_t i) { return event(i).cause; });
    out_.close('}');
  }

  // ---- Records ----

  void writeRecords() {
    for (const SourceAbout& about : parts_.sources) {
      if (deviceOf(about.source) != nullptr) chooseRecords(about.source);
    }
    out_.name("codes");
    out_.open('[');
    for (const auto& [type, code] : codes_) {
      out_.value({{"type", typeName(type)}, {"name", codeName(type, code)}, {"code", code}, {"typeCode", type}});
    }
    out_.close(']');
    out_.name("records");
    out_.open('[');
    for (const SourceAbout& about : parts_.sources) {
      if (deviceOf(about.source) != nullptr) {
        writeRecordsOf(about.source);
      } else {
        out_.value(nullptr);
      }
    }
    out_.close(']');
  }

  // Where moves are thinned, so are their records, and what there are many of and gives nothing.
  bool isThinned(const Record& record, const Outcome& outcome) const {
    const bool isOfMove = outcome.event != 0 && happened_.shapeOf(happened_.events[outcome.event - 1]).isMove();
    const bool isCommon = outcome.why == Why::kMark || outcome.why == Why::kPosition || outcome.why == Why::kScanCode;
    return (isOfMove || isCommon) && !whole_.has(record.time);
  }

  void chooseRecords(InputLoop::Source source) {
    const std::vector<Record>& records = deviceOf(source)->records;
    std::vector<std::uint32_t>& shown = shown_[source];
    for (std::size_t i = 0; i < records.size(); ++i) {
      const Record& record = records[i];
      if (isThinned(record, happened_.outcomes[source][i + 1])) continue;
      shown.push_back(static_cast<std::uint32_t>(i + 1));
      const auto [place, isNew] = codeIndex_.emplace(std::pair(record.type, record.code), codes_.size());
      if (isNew) codes_.push_back(place->first);
    }
  }

  void writeOutcomes(InputLoop::Source source, const std::vector<std::uint32_t>& numbers) {
    const Outcomes& outcomes = happened_.outcomes[source];
    std::int64_t before = 0;
    out_.column("event", numbers.size(), [&](std::size_t i) -> std::int64_t {
      const auto event = static_cast<std::int64_t>(outcomes[numbers[i]].event);
      if (event == 0) return 0;
      const std::int64_t delta = event - before;
      before = event;
      return 1 + delta;
    });
    out_.column("why", numbers.size(), [&](std::size_t i) {
      const Outcome outcome = outcomes[numbers[i]];
      return outcome.event != 0 ? -1 : indexOf(outcome.why);
    });
  }

  void writeRecordsOf(InputLoop::Source source) {
    const std::vector<Record>& records = deviceOf(source)->records;
    const std::vector<std::uint32_t> shown = std::move(shown_[source]);
    const auto record = [&](std::size_t i) -> const Record& { return records[shown[i] - 1]; };
    out_.open('{');
    out_.deltas("number", shown.size(), [&](std::size_t i) { return shown[i]; });
    out_.deltas("time", shown.size(), [&](std::size_t i) { return record(i).time.count(); });
    out_.column("code", shown.size(), [&](std::size_t i) { return codeIndex_.at({record(i).type, record(i).code}); });
    out_.column("value", shown.size(), [&](std::size_t i) { return record(i).value; });
    writeOutcomes(source, shown);
    out_.close('}');
  }

  // ---- The remote ----

  void writeLines() {
    if (!parts_.recording.remote) {
      field("texts", Json::array());
      return field("lines", nullptr);
    }
    const std::vector<RemoteLine>& lines = *parts_.recording.remote;
    std::map<recording::SharedText, std::size_t> places;
    std::vector<std::size_t> texts;
    out_.name("texts");
    out_.open('[');
    for (const RemoteLine& line : lines) {
      const auto [place, isNew] = places.emplace(line.text, places.size());
      if (isNew) out_.value(jsonOfLine(line.text));
      texts.push_back(place->second);
    }
    out_.close(']');

    std::vector<std::uint32_t> numbers(lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) numbers[i] = static_cast<std::uint32_t>(i + 1);
    out_.name("lines");
    out_.open('{');
    out_.deltas("number", lines.size(), [&](std::size_t i) { return numbers[i]; });
    out_.deltas("time", lines.size(), [&](std::size_t i) { return lines[i].time.count(); });
    out_.column("text", lines.size(), [&](std::size_t i) { return texts[i]; });
    writeOutcomes(InputLoop::kRemote, numbers);
    out_.close('}');
  }

  void writeStates() {
    if (!parts_.recording.remote) return field("states", nullptr);
    const std::vector<RemoteState>& states = happened_.states;
    out_.name("states");
    out_.open('{');
    out_.deltas("time", states.size(), [&](std::size_t i) { return states[i].time.count(); });
    out_.column("state", states.size(), [&](std::size_t i) { return static_cast<int>(states[i].key); });
    out_.column("line", states.size(), [&](std::size_t i) { return states[i].line; });
    out_.deltas("deadline", states.size(), [&](std::size_t i) { return states[i].deadline.count(); });
    out_.close('}');
  }

  static int indexOf(Why why) { return static_cast<int>(why) - 1; }

  void writeWhys() {
    Json whys = Json::array();
    for (const WhyName& name : kWhyNames) whys.push_back({{"id", name.id}, {"text", name.text}});
    field("whys", whys);
  }

  // ---- Bars ----

  struct Bar {
    InputLoop::Source source;
    microseconds from;
    microseconds to;
    std::size_t label;
    int kind;
  };

  static constexpr microseconds kStillDown{-1};
  enum BarKind { kKey, kButton, kRemotesKey };

  std::size_t label(const std::string& text) {
    const auto [place, isNew] = labelIndex_.emplace(text, labels_.size());
    if (isNew) labels_.push_back(text);
    return place->second;
  }

  void addBars(InputLoop::Source source, std::vector<Bar>& bars) {
    std::map<int, std::size_t> down;  // the place of its bar, by code
    for (const Record& record : deviceOf(source)->records) {
      if (record.type != EV_KEY) continue;
      const auto bar = down.find(record.code);
      if (record.value == 0 && bar != down.end()) {
        bars[bar->second].to = record.time;
        down.erase(bar);
      } else if (record.value != 0 && bar == down.end()) {
        const std::string name = codeName(EV_KEY, record.code);
        down.emplace(record.code, bars.size());
        bars.push_back({source, record.time, kStillDown, label(name), name.rfind("BTN_", 0) == 0 ? kButton : kKey});
      }
    }
  }

  // The remote's key is down from its key-down until it is forgotten, or another press begins.
  void addRemotesBars(std::vector<Bar>& bars) {
    bool isDown = false;
    for (const RemoteState& state : happened_.states) {
      const std::string& text = (*parts_.recording.remote)[std::max<std::size_t>(state.line, 1) - 1].text;
      const bool isPress = state.key == RemoteKey::kHeld;
      if (isDown && (isPress || state.key == RemoteKey::kNone)) bars.back().to = state.time;
      if (state.key == RemoteKey::kNone) isDown = false;
      if (!isPress) continue;
      const auto line = parseLircLine(text);
      bars.push_back({InputLoop::kRemote, state.time, kStillDown,
                      label(line ? printable(std::string(line->button)) : "?"), kRemotesKey});
      isDown = true;
    }
  }

  void writeHeld() {
    std::vector<Bar> bars;
    if (parts_.recording.remote) addRemotesBars(bars);
    for (const SourceAbout& about : parts_.sources) {
      if (deviceOf(about.source) != nullptr) addBars(about.source, bars);
    }
    std::stable_sort(bars.begin(), bars.end(), [](const Bar& a, const Bar& b) { return a.from < b.from; });
    out_.name("held");
    out_.open('{');
    field("labels", labels_);
    out_.column("source", bars.size(), [&](std::size_t i) { return indexOf_[bars[i].source]; });
    out_.column("from", bars.size(), [&](std::size_t i) { return bars[i].from.count(); });
    out_.column("to", bars.size(), [&](std::size_t i) { return bars[i].to.count(); });
    out_.column("label", bars.size(), [&](std::size_t i) { return bars[i].label; });
    out_.column("kind", bars.size(), [&](std::size_t i) { return bars[i].kind; });
    out_.close('}');
  }

  // ---- Findings ----

  Json jsonOf(const Finding& finding) const {
    Json json = {{"id", finding.id},
                 {"severity", nameOf(finding.severity)},
                 {"what", printable(finding.what)},
                 {"where", printable(finding.where)},
                 {"remedy", printable(finding.remedy)}};
    const Place& place = finding.place;
    if (place.from) {
      json["from"] = place.from->count();
      json["to"] = place.to.count();
    }
    if (place.source) json["source"] = indexOf_[*place.source];
    if (place.event != 0) json["event"] = place.event;
    if (place.record != 0) json["record"] = place.record;
    return json;
  }

  void writeFindings() {
    Json findings = Json::array();
    for (const Finding& finding : parts_.findings) findings.push_back(jsonOf(finding));
    field("findings", findings);
  }

  const PageParts& parts_;
  const Happened& happened_;
  const WholeTimes whole_;
  JsonWriter& out_;
  SourceIndex indexOf_ = {};
  std::array<std::vector<std::uint32_t>, InputLoop::kSources> shown_;  // the numbers of records
  std::map<std::pair<std::uint16_t, std::uint16_t>, std::size_t> codeIndex_;
  std::vector<std::pair<std::uint16_t, std::uint16_t>> codes_;
  std::map<std::string, std::size_t> labelIndex_;
  std::vector<std::string> labels_;
};

}  // namespace

void writePageData(const PageParts& parts, JsonWriter& writer) { Page(parts, writer).write(); }

}  // namespace quarlo::tools::report
