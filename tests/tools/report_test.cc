// What a session's page has in it: all that replay prints, where the pointer went, and what is wrong.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "sim/machine.h"
#include "tests/lives/life.h"
#include "tests/lives/life_session.h"
#include "tests/support/files.h"
#include "tools/report/findings.h"
#include "tools/report/happened.h"
#include "tools/report/page_data.h"

namespace quarlo::tools::report {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;
using recording::DeviceRecording;
using recording::Record;
using recording::RemoteLine;
using recording::Session;
using Numbers = std::vector<std::int64_t>;
using Texts = std::vector<std::string>;

// ---- A page and its data ------------------------------------------------------------------------

std::vector<SourceAbout> aboutOf(const Session& session) {
  std::vector<SourceAbout> sources;
  if (session.mouse) sources.push_back({InputLoop::kMouse, "mouse.evemu", std::nullopt});
  if (session.keyboard) sources.push_back({InputLoop::kKeyboard, "keyboard.evemu", Mask::kTyping});
  if (session.remote) sources.push_back({InputLoop::kRemote, "remote.lirc", Mask::kNothing});
  return sources;
}

struct Page {
  Happened happened;
  std::string text;
  Json data;
};

Page pageOf(const Session& session) {
  Page page;
  page.happened = play(session, {});
  const Findings findings = findAll(session, page.happened, {});
  JsonWriter writer([&](std::string_view json) { page.text += json; });
  const PlayOptions options;
  writePageData({"test", session, page.happened, findings, options, aboutOf(session)}, writer);
  page.data = Json::parse(page.text);
  return page;
}

Numbers sums(const Json& deltas) {
  Numbers numbers;
  std::int64_t sum = 0;
  for (const Json& delta : deltas) numbers.push_back(sum += delta.get<std::int64_t>());
  return numbers;
}

// What replay --json prints of the page's events: time (us), source, and all that it says.
std::vector<Json> eventsOf(const Json& data) {
  const Json& events = data["events"];
  const Numbers times = sums(events["time"]);
  const Numbers x = sums(events["x"]);
  const Numbers y = sums(events["y"]);
  std::vector<Json> all;
  for (std::size_t i = 0; i < times.size(); ++i) {
    Json event = data["shapes"][events["shape"][i].get<std::size_t>()];
    event.erase("text");
    if (event["kind"] != "key") {
      event["x"] = x[i];
      event["y"] = y[i];
    }
    event["time"] = times[i];
    event["source"] = data["sources"][events["source"][i].get<std::size_t>()]["source"];
    all.push_back(Json::parse(event.dump()));
  }
  return all;
}

// The same of a replay.
struct Replayed : Audience {
  bool take(microseconds time, const InputEvent& event, const Origin& origin,
            const InputLoop::Cause* /*cause*/) override {
    if (event.kind == InputEvent::kNoEvent) return true;
    Json json = toJson(event, origin);
    json["time"] = time.count();
    json["source"] = describeSource(origin);
    events.push_back(std::move(json));
    return true;
  }

  std::vector<Json> events;
};

// Without the number of clicks of a release: all readers of a process share it.
std::vector<std::map<std::string, Json>> comparable(const std::vector<Json>& events) {
  std::vector<std::map<std::string, Json>> all;
  for (Json event : events) {
    if (event["action"] == "up" && event["kind"] == "mouse") event.erase("clicks");
    all.push_back(event.get<std::map<std::string, Json>>());
  }
  return all;
}

void checkEvents(const Session& session) {
  Replayed replayed;
  playSession(session, {}, ReaderLoop::Empty::kUnknown, replayed);
  EXPECT_EQ(comparable(eventsOf(pageOf(session).data)), comparable(replayed.events));
}

TEST(ReportPage, OfTheSamplesHasTheEventsOfAReplayAndNoFinding) {
  for (const char* name : {"desk", "living-room", "sofa"}) {
    SCOPED_TRACE(name);
    const Session session = recording::readSession(std::string(QUARLO_SESSIONS) + "/" + name);
    checkEvents(session);
    EXPECT_EQ(pageOf(session).data["findings"], Json::array());
  }
}

TEST(ReportPage, OfRandomLivesHasTheEventsOfAReplay) {
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    for (const test::lives::Life& life : {test::lives::plainLife(seed), test::lives::oddLife(seed)}) {
      SCOPED_TRACE(test::lives::text(life));
      const Session session = sessionOf(life);
      if (session.mouse || session.keyboard || session.remote) checkEvents(session);
      if (testing::Test::HasFailure()) return;
    }
  }
}

// ---- Sessions to try ----------------------------------------------------------------------------

void addKey(std::vector<Record>& records, microseconds time, int code, int value) {
  records.push_back({time, EV_KEY, static_cast<std::uint16_t>(code), value});
  records.push_back({time, EV_SYN, SYN_REPORT, 0});
}

void addMove(std::vector<Record>& records, microseconds time, int dx, int dy) {
  records.push_back({time, EV_REL, REL_X, dx});
  records.push_back({time, EV_REL, REL_Y, dy});
  records.push_back({time, EV_SYN, SYN_REPORT, 0});
}

DeviceRecording deviceOf(const sim::Device& device, std::vector<Record> records) {
  return {device.name, device.codes, std::move(records)};
}

Session mouseOf(std::vector<Record> records) {
  Session session;
  session.mouse = deviceOf(sim::Device::mouse(), std::move(records));
  return session;
}

Session keyboardOf(std::vector<Record> records) {
  Session session;
  session.keyboard = deviceOf(sim::Device::keyboard(), std::move(records));
  return session;
}

Session remoteOf(std::vector<RemoteLine> lines) {
  Session session;
  session.remote = std::move(lines);
  return session;
}

// Lines of a press of a button, with this many microseconds from line to line.
void addPress(std::vector<RemoteLine>& lines, microseconds start, int count, microseconds period,
              const std::string& button = "KEY_OK") {
  for (int i = 0; i < count; ++i) {
    char repeat[8];
    std::snprintf(repeat, sizeof repeat, "%02x", static_cast<unsigned>(i));
    lines.push_back({start + i * period, "0 " + std::string(repeat) + " " + button + " tv"});
  }
}

// ---- Columns ------------------------------------------------------------------------------------

TEST(ReportPage, HasEachRecordWithTheEventThatCameOfIt) {
  std::vector<Record> records;
  addMove(records, 1s, 3, 4);
  records.push_back({2s, EV_MSC, MSC_SCAN, 9});
  addKey(records, 2s, BTN_LEFT, 1);
  addKey(records, 3s, BTN_LEFT, 0);
  const Json data = pageOf(mouseOf(records)).data;
  const Json& mouse = data["records"][0];
  EXPECT_EQ(sums(mouse["number"]), (Numbers{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(sums(mouse["time"]), (Numbers{1000000, 1000000, 1000000, 2000000, 2000000, 2000000, 3000000, 3000000}));
  EXPECT_EQ(mouse["value"], Json({3, 4, 0, 9, 1, 0, 0, 0}));
  EXPECT_EQ(mouse["event"], Json({2, 1, 0, 0, 2, 0, 2, 0}));
  Texts names;
  for (const Json& code : mouse["code"]) names.push_back(data["codes"][code.get<std::size_t>()]["name"]);
  EXPECT_EQ(names,
            (Texts{"REL_X", "REL_Y", "SYN_REPORT", "MSC_SCAN", "BTN_LEFT", "SYN_REPORT", "BTN_LEFT", "SYN_REPORT"}));
  Texts whys;
  for (const Json& why : mouse["why"]) {
    whys.push_back(why == -1 ? "" : data["whys"][why.get<std::size_t>()]["id"].get<std::string>());
  }
  EXPECT_EQ(whys, (Texts{"", "", "mark", "scan-code", "", "mark", "", "mark"}));
  EXPECT_EQ(data["events"]["cause"], Json({2, 5, 7}));
  EXPECT_EQ(data["whole"], Json::parse("[[0,3000000]]"));
  EXPECT_EQ(data["sources"][0]["nothing"], Json::parse("[[0,3],[2,1]]"));
  EXPECT_EQ(data["sources"][0]["secrets"], "unknown");
}

TEST(ReportPage, HasBarsOfWhatIsDown) {
  std::vector<Record> records;
  addKey(records, 1s, KEY_UP, 1);
  addKey(records, 2s, KEY_UP, 2);
  addKey(records, 3s, KEY_UP, 0);
  addKey(records, 4s, KEY_LEFTSHIFT, 1);
  Session session = keyboardOf(records);
  session.remote.emplace();
  addPress(*session.remote, 5s, 5, 110ms);
  const Json held = pageOf(session).data["held"];
  EXPECT_EQ(held["source"], Json({0, 0, 1}));
  EXPECT_EQ(held["from"], Json({1000000, 4000000, 5000000}));
  EXPECT_EQ(held["to"], Json({3000000, -1, 5640000}));
  EXPECT_EQ(held["kind"], Json({0, 0, 2}));
  Texts labels;
  for (const Json& label : held["label"]) labels.push_back(held["labels"][label.get<std::size_t>()]);
  EXPECT_EQ(labels, (Texts{"KEY_UP", "KEY_LEFTSHIFT", "KEY_OK"}));
}

TEST(ReportPage, HasWhatTheRemotesDaemonSentAndWhatTheKeyWas) {
  std::vector<RemoteLine> lines;
  addPress(lines, 1s, 2, 110ms);
  lines.push_back({2s, "BEGIN"});
  const Json data = pageOf(remoteOf(lines)).data;
  EXPECT_EQ(data["texts"][1], Json::parse(R"({"line":"0 01 KEY_OK tv","button":"KEY_OK","repeat":1,"remote":"tv"})"));
  EXPECT_EQ(data["texts"][2], Json::parse(R"({"line":"BEGIN"})"));
  EXPECT_EQ(data["lines"]["event"], Json({2, 0, 0}));
  EXPECT_EQ(data["states"]["state"], Json({1, 2, 0}));
  EXPECT_EQ(data["states"]["line"], Json({1, 2, 2}));
  EXPECT_EQ(sums(data["states"]["time"]), (Numbers{1000000, 1300000, 1400000}));
  EXPECT_EQ(data["records"], Json::parse("[null]"));
}

// ---- Where the pointer went ---------------------------------------------------------------------

std::string decoded(const std::string& base64) {
  const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  for (std::size_t i = 0; i < base64.size(); i += 4) {
    unsigned group = 0;
    for (std::size_t j = 0; j < 4; ++j) {
      group = group * 64 + (base64[i + j] == '=' ? 0 : static_cast<unsigned>(digits.find(base64[i + j])));
    }
    for (unsigned shift = 16; base64[i + 3 - shift / 8] != '='; shift -= 8) {
      bytes += static_cast<char>(group >> shift & 255U);
      if (shift == 0) break;
    }
  }
  return bytes;
}

struct Point {
  std::int64_t tick;
  std::int64_t x;
  std::int64_t y;
};

bool operator==(const Point& a, const Point& b) { return a.tick == b.tick && a.x == b.x && a.y == b.y; }

// As docs/report.md says it.
class Decoder {
 public:
  explicit Decoder(std::string bytes) : bytes_(std::move(bytes)) {}

  bool hasMore() const { return at_ < bytes_.size(); }

  void step(Point& point, std::int64_t usual) {
    point.tick += usual;
    int code = byte();
    for (; code >= 252; code = byte()) point.tick += code == 253 ? 1 : number();
    if (code < 225) {
      point.x += code % 15 - 7;
      point.y += code / 15 - 7;
    } else if (code < 251) {
      const int value = (code - 225) * 256 + byte();
      point.x += value % 81 - 40;
      point.y += value / 81 - 40;
    } else {
      point.x += number();
      point.y += number();
    }
  }

 private:
  int byte() { return static_cast<unsigned char>(bytes_.at(at_++)); }

  std::int64_t number() {
    std::uint64_t bits = 0;
    for (unsigned shift = 0;; shift += 7) {
      const auto next = static_cast<unsigned>(byte());
      bits |= std::uint64_t{next & 127U} << shift;
      if (next < 128) break;
    }
    return static_cast<std::int64_t>(bits >> 1U ^ (bits & 1U ? ~std::uint64_t{0} : 0));
  }

  std::string bytes_;
  std::size_t at_ = 0;
};

std::vector<Point> pointsOf(const Json& path) {
  const Json& chunks = path["chunks"];
  const Numbers times = sums(chunks["time"]);
  std::vector<Point> points;
  for (std::size_t i = 0; i < times.size(); ++i) {
    Point point = {times[i], chunks["x"][i], chunks["y"][i]};
    const std::size_t first = points.size();
    points.push_back(point);
    for (Decoder decoder(decoded(chunks["data"][i])); decoder.hasMore();) {
      decoder.step(point, path["usual"]);
      points.push_back(point);
    }
    EXPECT_EQ(chunks["moves"][i], points.size() - first);
  }
  return points;
}

// The last move of each millisecond.
std::vector<Point> expectedPoints(const Happened& happened) {
  std::vector<Point> points;
  for (const Event& event : happened.events) {
    if (!happened.shapeOf(event).isMove()) continue;
    const Point point = {event.time / 1ms, event.x, event.y};
    if (!points.empty() && points.back().tick == point.tick) points.pop_back();
    points.push_back(point);
  }
  return points;
}

Session wildMouse(int moves) {
  test::lives::Dice dice(7);
  std::vector<Record> records;
  microseconds time(0);
  for (int i = 0; i < moves; ++i) {
    const int wide = dice.pick({3, 7, 8, 40, 41, 500});
    addMove(records, time, dice.between(-wide, wide), dice.between(-wide, wide));
    time += dice.oneIn(500) ? microseconds(dice.below(3'000'000)) : microseconds(dice.pick({990, 1000, 1010, 2000}));
  }
  return mouseOf(records);
}

TEST(ReportPath, HasEachMoveToAMillisecond) {
  const Page page = pageOf(wildMouse(10'000));
  ASSERT_EQ(page.data["paths"].size(), 1U);
  const Json& path = page.data["paths"][0];
  EXPECT_EQ(path["usual"], 1);
  EXPECT_GT(path["chunks"]["moves"].size(), 2U);
  EXPECT_EQ(pointsOf(path), expectedPoints(page.happened));
}

TEST(ReportPath, LevelsHaveHowFarThePointerWentInEachStretch) {
  const Page page = pageOf(wildMouse(10'000));
  const Json& path = page.data["paths"][0];
  const std::vector<Point> points = pointsOf(path);
  ASSERT_GE(path["levels"].size(), 2U);
  std::int64_t ticks = 64;
  for (const Json& level : path["levels"]) {
    EXPECT_EQ(level["ticks"], ticks);
    const Numbers at = sums(level["at"]);
    const Numbers lastX = sums(level["x"]);
    const Numbers lastY = sums(level["y"]);
    std::size_t next = 0;
    for (std::size_t i = 0; i < at.size(); ++i) {
      const std::size_t first = next;
      Numbers x;
      Numbers y;
      for (; next < points.size() && points[next].tick / ticks == at[i]; ++next) {
        x.push_back(points[next].x);
        y.push_back(points[next].y);
      }
      ASSERT_EQ(level["moves"][i], next - first);
      EXPECT_EQ(lastX[i], x.back());
      EXPECT_EQ(lastY[i], y.back());
      EXPECT_EQ(lastX[i] - level["left"][i].get<std::int64_t>(), *std::min_element(x.begin(), x.end()));
      EXPECT_EQ(lastX[i] + level["right"][i].get<std::int64_t>(), *std::max_element(x.begin(), x.end()));
      EXPECT_EQ(lastY[i] - level["top"][i].get<std::int64_t>(), *std::min_element(y.begin(), y.end()));
      EXPECT_EQ(lastY[i] + level["bottom"][i].get<std::int64_t>(), *std::max_element(y.begin(), y.end()));
    }
    EXPECT_EQ(next, points.size());
    ticks *= 8;
  }
}

// ---- Long sessions ------------------------------------------------------------------------------

TEST(ReportPage, OfALongSessionThinsMovesButAroundFindings) {
  std::vector<Record> records;
  for (int i = 0; i < 40'000; ++i) addMove(records, i * 1ms, i % 2 == 0 ? 5 : -5, 0);
  const auto keyAt = records.begin() + 3 * 5000;
  records.insert(keyAt, {{keyAt->time, EV_KEY, BTN_LEFT, 1}, {keyAt->time, EV_KEY, BTN_LEFT, 0}});
  const auto sideAt = records.begin() + 3 * 20'000;
  records.insert(sideAt, {sideAt->time, EV_KEY, BTN_SIDE, 1});
  const Page page = pageOf(mouseOf(records));
  const Json& data = page.data;
  const std::int64_t side = records[60'000].time.count();
  const Numbers heldUntil = {page.happened.length.count() - 2'000'000, page.happened.length.count()};
  EXPECT_EQ(data["whole"], (Json{{side - 2'000'000, side + 2'000'000}, heldUntil}));

  const Numbers times = sums(data["events"]["time"]);
  std::size_t inside = 0;
  Texts outside;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const bool isWhole = std::llabs(times[i] - side) <= 2'000'000 || times[i] >= heldUntil[0];
    if (isWhole) ++inside;
    if (!isWhole) outside.push_back(data["shapes"][data["events"]["shape"][i].get<std::size_t>()]["text"]);
  }
  EXPECT_NEAR(static_cast<double>(inside), 6000, 5);
  EXPECT_EQ(outside, (Texts{"left down x1", "left up x1"}));
  EXPECT_EQ(pointsOf(data["paths"][0]), expectedPoints(page.happened));
  EXPECT_LT(data["records"][0]["number"].size(), 19'000U);
  EXPECT_EQ(data["sources"][0]["count"], records.size());
}

// ---- Hostile input ------------------------------------------------------------------------------

TEST(ReportPage, LetsNothingOutOfItsElement) {
  const std::string hostile = "</script><script>alert('1')</script>\"&amp;\xe2\x80\xae\xff\x00\x1b[2J<!--";
  std::vector<Record> records;
  addKey(records, 0s, KEY_UP, 1);
  Session session = keyboardOf(records);
  session.keyboard->name = hostile;
  session.remote = std::vector<RemoteLine>{{0s, hostile}, {0s, "0 00 " + hostile + " " + hostile}};
  session.damages.push_back({hostile, hostile});
  const Page page = pageOf(session);
  const auto isHarmless = [](char ch) { return ch >= ' ' && ch <= '~' && ch != '<' && ch != '>' && ch != '&'; };
  EXPECT_TRUE(std::all_of(page.text.begin(), page.text.end(), isHarmless));
  EXPECT_EQ(page.data["sources"][0]["name"], "</script><script>alert('1')</script>\"&amp;\\xe2\\x80\\xae\\xff");
}

// ---- Findings -----------------------------------------------------------------------------------

// Each kind has its row in the document.
void checkDocument(const std::string& id, const std::string& severity) {
  std::ostringstream document;
  document << std::ifstream(std::string(QUARLO_DOCUMENTS) + "/report.md").rdbuf();
  const std::string row = "\n| `" + id + "` | " + severity + " |";
  EXPECT_NE(document.str().find(row), std::string::npos) << row;
}

// Its words are known: a change of them is a change of the golden file.
void checkWords(const Json& finding) {
  static const std::string known = "\n" + test::contentOf(QUARLO_GOLDEN "/findings.txt");
  std::string words = "\n";
  for (const char* const part : {"id", "what", "remedy"}) words += finding[part].get<std::string>() + ". ";
  words.back() = '\n';
  EXPECT_NE(known.find(words), std::string::npos) << words;
}

Texts findingsOf(const Session& session) {
  Texts texts;
  const Json data = pageOf(session).data;
  for (const Json& finding : data["findings"]) {
    checkDocument(finding["id"], finding["severity"]);
    checkWords(finding);
  }
  for (const Json& finding : data["findings"]) {
    std::string text = finding["id"].get<std::string>() + " (" + finding["where"].get<std::string>() + ")";
    if (finding.contains("from")) {
      text += " " + std::to_string(finding["from"].get<std::int64_t>() / 1000) + "-" +
              std::to_string(finding["to"].get<std::int64_t>() / 1000);
    }
    if (finding.contains("event")) text += " event " + std::to_string(finding["event"].get<int>());
    if (finding.contains("record")) text += " record " + std::to_string(finding["record"].get<int>());
    texts.push_back(text);
  }
  return texts;
}

TEST(ReportFindings, ATapThatCountsTwice) {
  std::vector<RemoteLine> lines;
  addPress(lines, 1s, 2, 110ms);
  addPress(lines, 3s, 4, 110ms);
  EXPECT_EQ(findingsOf(remoteOf(lines)), (Texts{"ghost-press (remote, KEY_OK) 3000-3330 event 3 record 6"}));
  const Json finding = pageOf(remoteOf(lines)).data["findings"][0];
  EXPECT_EQ(finding["severity"], "warning");
  EXPECT_EQ(finding["what"],
            "A tap counts twice: its line 4 comes 330 ms after the one that was a key-down, when the release timeout "
            "has passed");
}

TEST(ReportFindings, AHeldButtonThatRepeatsUnevenly) {
  std::vector<RemoteLine> lines;
  addPress(lines, 0s, 30, 99ms);  // of 100 ms
  EXPECT_EQ(findingsOf(remoteOf(lines)), Texts());
  lines.clear();
  addPress(lines, 0s, 10, 110ms);
  lines.erase(lines.begin() + 6, lines.begin() + 8);
  EXPECT_EQ(findingsOf(remoteOf(lines)), (Texts{"uneven-repeats (remote, KEY_OK) 0-880 event 5 record 7"}));
}

TEST(ReportFindings, LinesThatWereReadLate) {
  std::vector<RemoteLine> lines;
  addPress(lines, 0s, 4, 110ms);
  for (int i = 4; i < 9; ++i) {
    addPress(lines, 0s, 1, 0s);
    lines.back() = {1s + i * 1ms, "0 0" + std::to_string(i) + " KEY_OK tv"};
  }
  const Texts findings = findingsOf(remoteOf(lines));
  EXPECT_EQ(std::count(findings.begin(), findings.end(), "stall (remote, KEY_OK) 330-1008 event 3 record 5"), 1)
      << testing::PrintToString(findings);
}

TEST(ReportFindings, TheSamePressFromTwoSources) {
  std::vector<Record> records;
  std::vector<RemoteLine> lines;
  for (int i = 0; i < 3; ++i) {
    addPress(lines, i * 1s, 1, 0s);
    addKey(records, i * 1s + 30ms, KEY_OK, 1);
    addKey(records, i * 1s + 130ms, KEY_OK, 0);
  }
  Session session = keyboardOf(records);
  session.remote = lines;
  EXPECT_EQ(findingsOf(session), (Texts{"press-twice (keyboard, remote) 30-2030 event 2 record 1"}));
  // Once is chance.
  session.remote->resize(1);
  EXPECT_EQ(findingsOf(session), Texts());
}

TEST(ReportFindings, WhatStaysDown) {
  std::vector<Record> records;
  addKey(records, 0s, KEY_LEFTSHIFT, 1);
  addKey(records, 1s, KEY_A, 1);
  addKey(records, 2s, KEY_A, 0);
  addKey(records, 2s, KEY_C, 1);  // with which someone ends the recording
  EXPECT_EQ(findingsOf(keyboardOf(records)), (Texts{"held-at-end (keyboard, KEY_LEFTSHIFT) 0-2000 event 1 record 1"}));
}

TEST(ReportFindings, WhatTheReaderDoesNotKnow) {
  std::vector<Record> records;
  for (const int value : {1, 0, 1, 0}) addKey(records, 1s, KEY_TV, value);
  Session session = keyboardOf(records);
  session.remote = std::vector<RemoteLine>{{0s, "0 00 KEY_TEA tv"}, {1s, "0 00 KEY_TEA tv"}, {2s, "0 00"}};
  EXPECT_EQ(findingsOf(session),
            (Texts{"cut-line (remote) 2000-2000 record 3", "unknown-buttons (remote, KEY_TEA) 0-1000 record 1",
                   "unknown-keys (keyboard, KEY_TV) 1000-1000 event 1 record 1"}));
}

TEST(ReportFindings, WhatGivesNothing) {
  std::vector<Record> records;
  for (const std::uint16_t axis : {std::uint16_t{ABS_X}, std::uint16_t{ABS_Y}})
    records.push_back({0s, EV_ABS, axis, 5});
  records.push_back({0s, EV_SYN, SYN_REPORT, 0});
  addKey(records, 1s, BTN_SIDE, 1);
  addKey(records, 1s, BTN_SIDE, 0);
  EXPECT_EQ(findingsOf(mouseOf(records)),
            (Texts{"positions (mouse) 0-0 record 1", "side-buttons (mouse) 1000-1000 record 4"}));
}

TEST(ReportFindings, RecordsThatWereLost) {
  std::vector<Record> records;
  records.push_back({5s, EV_SYN, SYN_DROPPED, 0});
  records.push_back({5s, EV_SYN, SYN_REPORT, 0});
  for (int i = 0; i < 100; ++i) records.push_back({9s, EV_SYN, SYN_REPORT, 0});
  EXPECT_EQ(findingsOf(keyboardOf(records)),
            (Texts{"records-lost (keyboard) 5000-5000 record 1", "records-lost (keyboard) 9000-9000 record 3"}));
}

TEST(ReportFindings, MovesBeyondTheScreen) {
  std::vector<Record> records;
  for (int i = 0; i < 100; ++i) addMove(records, i * 10ms, -5, -5);
  EXPECT_EQ(findingsOf(mouseOf(records)), (Texts{"beyond-screen (mouse) 0-990 event 1 record 2"}));
}

TEST(ReportFindings, WhatADeviceSaysOfItself) {
  std::vector<Record> records;
  addKey(records, 0s, KEY_UP, 1);
  addKey(records, 0s, KEY_UP, 0);
  Session session = keyboardOf(records);
  session.keyboard->codes[EV_KEY] = {KEY_UP, KEY_DOWN, KEY_LEFT, KEY_RIGHT};
  EXPECT_EQ(findingsOf(session), Texts());
  session.further[0] = deviceOf(sim::Device::keyboard(), records);
  const Json finding = pageOf(session).data["findings"][0];
  EXPECT_EQ(finding["id"], "no-letters");
  EXPECT_EQ(finding["what"], "It has no letter keys, and node 1 has");
  EXPECT_FALSE(finding.contains("from"));
}

TEST(ReportFindings, AreAtMostTwentyOfAKindAndTheLastSaysHowManyMore) {
  std::vector<RemoteLine> lines;
  for (int i = 0; i < 25; ++i) lines.push_back({i * 1s, "cut"});
  const Json findings = pageOf(remoteOf(lines)).data["findings"];
  ASSERT_EQ(findings.size(), 20U);
  EXPECT_EQ(findings[18]["what"], "A line is not whole, and gives nothing");
  EXPECT_EQ(findings[19]["what"], "A line is not whole, and gives nothing; and 5 more like this");
}

}  // namespace
}  // namespace quarlo::tools::report
