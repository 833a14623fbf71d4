// The sample sessions, played on devices and by the daemon, and recorded again. The recordings are left in /out: that
// is how those in sessions/ were made (sessions/README.md has the command).
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <optional>
#include <thread>

#include "recording/session.h"
#include "tests/scenario/uinput.h"
#include "tests/support/lircd.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

using recording::DeviceRecording;
using recording::microseconds;
using recording::Record;
using recording::Session;
using test::UinputDevice;
using Clock = std::chrono::steady_clock;

// What happens, by its time since the start.
using Happenings = std::multimap<microseconds, std::function<void()>>;

std::optional<UinputDevice> makeDevice(const std::optional<DeviceRecording>& recording) {
  if (!recording) return std::nullopt;
  return std::optional<UinputDevice>(std::in_place, test::Description{recording->name, recording->codes, recording->id,
                                                                      recording->properties, recording->axes});
}

// The kernel repeats keys by itself.
bool isAutoRepeat(const Record& record) {
  constexpr int kAutoRepeat = 2;
  return record.type == EV_KEY && record.value == kAutoRepeat;
}

void addRecords(const std::optional<DeviceRecording>& recording, std::optional<UinputDevice>& device,
                Happenings& happenings) {
  if (!recording) return;
  for (const Record& record : recording->records) {
    if (isAutoRepeat(record)) continue;
    happenings.emplace(record.time, [&] { device->report(record.type, record.code, record.value); });
  }
}

class SamplesTest : public testing::TestWithParam<const char*> {};

TEST_P(SamplesTest, PlayedAndRecordedItGivesTheSameEvents) {
  const std::string sample = std::string("sessions/") + GetParam();
  const std::string recorded = std::string("/out/") + GetParam();
  const Session session = recording::readSession(sample);
  auto mouse = makeDevice(session.mouse);
  auto keyboard = makeDevice(session.keyboard);
  const test::Folder folder;
  test::Lircd daemon(folder.path());
  ASSERT_TRUE(!session.remote || daemon.start());

  Happenings happenings;
  addRecords(session.mouse, mouse, happenings);
  addRecords(session.keyboard, keyboard, happenings);
  for (const auto& line : session.remote.value_or(std::vector<recording::RemoteLine>())) {
    happenings.emplace(line.time, [&daemon, line] { EXPECT_TRUE(daemon.simulateLine(line.text)); });
  }

  Program record({"record", "-o", recorded, "--show-keycodes", "--mouse", mouse ? mouse->path() : "none", "--keyboard",
                  keyboard ? keyboard->path() : "none", "--lirc", session.remote ? daemon.socketPath() : "none"});
  ASSERT_TRUE(record.waitFor("Ctrl-C ends."));
  const Clock::time_point start = Clock::now();
  for (const auto& [time, happening] : happenings) {
    std::this_thread::sleep_until(start + time);
    happening();
  }
  record.signal(SIGINT);
  ASSERT_EQ(record.finish().status, 0);
  EXPECT_EQ(withRepeatsMerged(eventsOf(run({"replay", recorded}).out)),
            withRepeatsMerged(eventsOf(run({"replay", sample}).out)));
}

INSTANTIATE_TEST_SUITE_P(Samples, SamplesTest, testing::Values("desk", "sofa", "living-room"));

}  // namespace
}  // namespace quarlo::tools
