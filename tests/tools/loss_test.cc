// What is recorded of a node that loses records and then goes, beside what an application gets of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "recording/session.h"
#include "sim/machine.h"
#include "tools/common/reader_loop.h"
#include "tools/record/node.h"
#include "tools/replay/replay.h"

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;
using recording::Record;
using Events = std::vector<std::string>;

constexpr char kPath[] = "/dev/input/event20";

// A simulated keyboard that is a further node, an application that reads it, and a recorder.
class Live {
 public:
  Live() { loop_.join(kPath); }
  ~Live() { close(fd_); }
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;

  sim::Node& node() { return node_; }

  // Has both take what came.
  void take() {
    constexpr int kRounds = 2;  // the second one has what the first one made known
    for (int i = 0; i < kRounds; ++i) {
      loop_.wait(0);
      InputEvent event = {};
      while (loop_.next(event)) events_.push_back(describeWithSource(event, loop_.origin()));
    }
    input_event records[64];
    const ssize_t size = read(fd_, records, sizeof records);
    const auto elapsed = machine_.now() - start_;
    if (size == -1) return add(held_.release(elapsed));
    std::for_each(records, records + static_cast<std::size_t>(size) / sizeof(input_event), [&](const input_event& it) {
      held_.follow(it);
      add({record::toRecord(it, start_)});
    });
    add(held_.mend(fd_, elapsed));
    machine_.advance(10ms);
  }

  const Events& events() const { return events_; }

  recording::Session session() const {
    const sim::Device device = sim::Device::keyboard();
    recording::Session session;
    session.further[0] = {device.name, device.codes, records_};
    return session;
  }

 private:
  void add(const std::vector<Record>& records) { records_.insert(records_.end(), records.begin(), records.end()); }

  sim::Machine machine_;
  sim::Node& node_ = machine_.addNode(kPath, sim::Device::keyboard());
  LinuxInputReader reader_;
  ReaderLoop loop_{reader_, std::nullopt, ReaderLoop::Empty::kUnknown};
  int fd_ = open(kPath, O_RDONLY | O_NONBLOCK);
  std::chrono::microseconds start_ = machine_.now();
  record::HeldKeys held_;
  Events events_;
  std::vector<Record> records_;
};

// What a replay prints, without the times, the legend and the summary.
Events replayed(const recording::Session& session) {
  testing::internal::CaptureStdout();
  EXPECT_TRUE(replay::play(session, {}));
  std::istringstream lines(testing::internal::GetCapturedStdout());
  Events events;
  constexpr std::size_t kTimeColumns = 9;
  for (std::string line; std::getline(lines, line);) events.push_back(line.substr(kTimeColumns));
  events.pop_back();
  events.erase(events.begin());
  return events;
}

TEST(Loss, OfRecordsAndThenOfTheNodeGivesTheSameEventsInAReplay) {
  std::optional<Live> live(std::in_place);
  live->node().press(KEY_LEFTSHIFT);
  live->take();
  live->node().release(KEY_LEFTSHIFT);
  live->node().press(KEY_B);
  for (int i = 0; i < 40; ++i) {
    live->node().press(KEY_UP);
    live->node().release(KEY_UP);
  }
  live->take();
  live->node().press(KEY_LEFTCTRL);
  live->take();
  live->node().unplug();
  live->take();
  const Events events = live->events();
  const recording::Session session = live->session();
  live.reset();

  EXPECT_EQ(std::count(events.begin(), events.end(), "node 1    key up      Shift"), 1);
  EXPECT_EQ(std::count(events.begin(), events.end(), "node 1    key down    B               'b'"), 1);
  EXPECT_EQ(events.back(), "node 1    key up      B               'b'");
  EXPECT_EQ(replayed(session), events);
}

}  // namespace
}  // namespace quarlo::tools
