// What the kernel makes of a node's delay and period, beside what `quarlo-input tune` says of them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tests/scenario/uinput.h"
#include "tests/tools/program.h"

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kHeld = 2s;
constexpr std::chrono::milliseconds kRead = 100ms;

struct Repeats {
  double firstMs;
  double perSecond;
};

double timeMs(const input_event& record) {
  return static_cast<double>(record.input_event_sec) * 1000 + static_cast<double>(record.input_event_usec) / 1000;
}

class RepeatTest : public testing::Test {
 protected:
  RepeatTest() : fd_(open(remote_.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~RepeatTest() override { close(fd_); }

  // When the node said that the key is down, for the first time and then again. Its queue is read before it is full.
  std::vector<double> keyDownsOfAHold() {
    std::vector<double> times;
    remote_.press(KEY_UP);
    for (auto held = 0ms; held < kHeld; held += kRead) {
      std::this_thread::sleep_for(kRead);
      readKeyDowns(times);
    }
    remote_.release(KEY_UP);
    readKeyDowns(times);
    return times;
  }

  void readKeyDowns(std::vector<double>& times) const {
    input_event record;
    while (read(fd_, &record, sizeof record) == static_cast<ssize_t>(sizeof record)) {
      if (record.type == EV_KEY && record.value != 0) times.push_back(timeMs(record));
    }
  }

  Repeats repeatsWith(unsigned delayMs, unsigned periodMs) {
    unsigned repeat[2] = {delayMs, periodMs};
    EXPECT_EQ(ioctl(fd_, EVIOCSREP, repeat), 0);
    const std::vector<double> times = keyDownsOfAHold();
    if (times.size() < 4) {
      ADD_FAILURE() << "only " << times.size() << " key-downs";
      return {};
    }
    return {times[1] - times[0], static_cast<double>(times.size() - 2) * 1000 / (times.back() - times[1])};
  }

  UinputDevice remote_{{"Remote", {{EV_KEY, {KEY_OK, KEY_UP}}, {EV_REP, {}}}}};
  int fd_;
};

// What the study says of this delay and period.
nlohmann::json studyOf(int delayMs, int periodMs) {
  const std::string both[] = {std::to_string(delayMs), std::to_string(periodMs)};
  const tools::Result result = tools::Program({"tune", "--json", "--kernel", both[0] + "," + both[1], "--repeat-delay",
                                               both[0], "--repeat-period", both[1]})
                                   .finish();
  EXPECT_EQ(result.status, 0) << result.err;
  return nlohmann::json::parse(result.out.substr(0, result.out.find('\n')));
}

// Records have the time of their reading into the kernel, which is some tenths of a millisecond off.
void expectWithin(double measured, const nlohmann::json& range, double tolerance) {
  EXPECT_GE(measured, double{range["minimum"]} - tolerance);
  EXPECT_LE(measured, double{range["maximum"]} + tolerance);
}

TEST_F(RepeatTest, AHeldKeyRepeatsAsTuneSays) {
  for (const auto& [delayMs, periodMs] : {std::pair(250, 33), {500, 125}, {400, 100}, {300, 75}}) {
    SCOPED_TRACE(std::to_string(delayMs) + "," + std::to_string(periodMs));
    const Repeats repeats = repeatsWith(static_cast<unsigned>(delayMs), static_cast<unsigned>(periodMs));
    const nlohmann::json study = studyOf(delayMs, periodMs);
    expectWithin(repeats.firstMs, study["firstRepeatMs"], 1);
    expectWithin(repeats.perSecond, study["repeatsPerSecond"], 0.1);
  }
}

TEST_F(RepeatTest, WithADelayOrAPeriodOfZeroNothingRepeats) {
  for (const auto& [delayMs, periodMs] : {std::pair(0U, 125U), {500U, 0U}}) {
    unsigned repeat[2] = {delayMs, periodMs};
    ASSERT_EQ(ioctl(fd_, EVIOCSREP, repeat), 0);
    EXPECT_EQ(keyDownsOfAHold().size(), 1U) << delayMs << "," << periodMs;
  }
}

TEST_F(RepeatTest, ATimerOf250TicksASecondIsLateByOneTick) {
  unsigned repeat[2] = {250, 33};
  ASSERT_EQ(ioctl(fd_, EVIOCSREP, repeat), 0);
  const std::vector<double> times = keyDownsOfAHold();
  ASSERT_GT(times.size(), 10U);
  for (std::size_t i = 2; i < times.size(); ++i) EXPECT_NEAR(times[i] - times[i - 1], 40, 1);
}

}  // namespace
}  // namespace quarlo::test
