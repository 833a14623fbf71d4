// `monitor` as it runs, in virtual time, while the daemon and the mouse send more than it can show: each key that is
// typed meanwhile shows soon, and neither its memory nor its descriptors grow.
#include <gtest/gtest.h>
#include <linux/input.h>
#include <malloc.h>
#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <vector>

#include "sim/machine.h"
#include "tools/monitor/monitor.h"

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;

constexpr microseconds kFlood = 1min * QUARLO_FLOOD_MINUTES;
constexpr microseconds kSoon = 50ms;
constexpr std::size_t kSlack = 1024;  // bytes: queues are not always equally long

constexpr char kMouse[] = "/dev/input/event0";
constexpr char kKeyboard[] = "/dev/input/event1";
constexpr char kSocket[] = "/run/lircd";

// What a process has, by the accounts of libc and of the kernel.
struct Possessions {
  static Possessions now() {
    const auto heap = mallinfo2();
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return {heap.uordblks + heap.hblkhd, std::distance(begin(descriptors), end(descriptors))};
  }

  std::size_t bytes;  // of the heap that are in use
  std::ptrdiff_t descriptors;
};

// A stream in the place of another one, which gives each line to a member of `Reader`.
template <typename Reader, void (Reader::*read)(std::string_view line)>
class Lines {
 public:
  Lines(std::FILE*& stream, Reader& reader) : stream_(stream), before_(stream) {
    cookie_io_functions_t functions = {};
    functions.write = [](void* cookie, const char* bytes, std::size_t size) {
      (static_cast<Reader*>(cookie)->*read)({bytes, size});
      return static_cast<ssize_t>(size);
    };
    stream = fopencookie(&reader, "w", functions);
    std::setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
  }

  ~Lines() {
    std::fclose(stream_);
    stream_ = before_;
  }

  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

 private:
  std::FILE*& stream_;
  std::FILE* before_;
};

class FloodTest : public testing::Test {
 protected:
  FloodTest() {
    machine_.setTracing(false);
    machine_.setCallTime(150us);
    had_.reserve(kFlood / 1min);  // what grows later is not the test's
  }

  // Returns the exit status.
  int monitorTheFlood() {
    type();
    sendLines();
    click();
    look();
    machine_.after(kFlood, [] { std::raise(SIGTERM); });
    monitor::MonitorOptions options;
    options.mouse = kMouse;
    options.keyboard = kKeyboard;
    options.lirc = kSocket;
    const Lines<FloodTest, &FloodTest::readOutput> output(stdout, *this);
    const Lines<FloodTest, &FloodTest::readComplaint> complaints(stderr, *this);
    return monitor::run(options);
  }

  int typed_ = 0;  // keys, down and up
  int shown_ = 0;
  microseconds longest_{0};  // from a key to its line
  long lines_ = 0;           // of the remote
  int losses_ = 0;           // of the mouse's records
  std::vector<Possessions> had_;

 private:
  static constexpr int kUnreadLines = 40;         // the daemon drops a client that has some 280
  static constexpr unsigned kLinesOfAPress = 16;  // only the first is sure to be an event, so each press shows
  static constexpr microseconds kPrinting = 250us;

  void type() {
    if (machine_.now() - start_ > kFlood - kSoon) return;  // the end comes before it shows
    keyboard_.report(EV_KEY, KEY_LEFT, ++typed_ % 2);
    keyboard_.report(EV_SYN, SYN_REPORT, 0);
    typedAt_ = machine_.now();
    machine_.after(173ms, [this] { type(); });
  }

  // There is always a line to read.
  void sendLines() {
    for (; unread_ < kUnreadLines; unread_ += kLinesOfAPress) {
      for (unsigned repeat = 0; repeat < kLinesOfAPress; ++repeat) daemon_.send("KEY_UP", repeat);
      lines_ += kLinesOfAPress;
    }
    machine_.after(2ms, [this] { sendLines(); });
  }

  // For a minute of each ten, faster than lines are printed.
  void click() {
    mouse_.inject(EV_KEY, BTN_LEFT, ++clicks_ % 2);
    mouse_.inject(EV_SYN, SYN_REPORT, 0);
    const bool rests = (machine_.now() - start_) / 1min % 10 != 0;
    machine_.after(rests ? 9min : 200us, [this] { click(); });
  }

  void look() {
    machine_.after(1min, [this] {
      had_.push_back(Possessions::now());
      look();
    });
  }

  void readOutput(std::string_view line) {
    const auto isOf = [&](std::string_view source) { return line.find(source) != std::string_view::npos; };
    machine_.advance(kPrinting);
    if (isOf("  remote  ")) unread_ -= kLinesOfAPress;
    if (!isOf("  keyboard  ")) return;
    ++shown_;
    longest_ = std::max(longest_, machine_.now() - typedAt_);
  }

  void readComplaint(std::string_view line) {
    if (line.find("records of the mouse were lost") != std::string_view::npos) ++losses_;
  }

  sim::Machine machine_;
  sim::Node& mouse_ = machine_.addNode(kMouse, sim::Device::mouse());
  sim::Node& keyboard_ = machine_.addNode(kKeyboard, sim::Device::keyboard());
  sim::LircDaemon& daemon_ = machine_.addLircDaemon(kSocket);
  const microseconds start_ = machine_.now();
  microseconds typedAt_{0};
  unsigned unread_ = 0;
  int clicks_ = 0;
};

TEST_F(FloodTest, KeysShowSoonAndNothingGrows) {
  EXPECT_EQ(monitorTheFlood(), 0);
  EXPECT_GT(typed_, kFlood / 174ms);
  EXPECT_EQ(shown_, typed_);
  EXPECT_LE(longest_.count(), kSoon.count());
  EXPECT_GT(lines_, kFlood / 2ms);
  EXPECT_GT(losses_, kFlood / 1min * 50);
  ASSERT_GE(had_.size(), kFlood / 1min - 1);
  for (std::size_t minute = 2; minute < had_.size(); ++minute) {
    ASSERT_LE(had_[minute].bytes, had_[1].bytes + kSlack) << "in minute " << minute;
    ASSERT_EQ(had_[minute].descriptors, had_[1].descriptors) << "in minute " << minute;
  }
  std::printf("%ld lines of the remote, %d losses of the mouse's records; a key shows after %.1f ms at the latest\n",
              lines_, losses_, static_cast<double>(longest_.count()) / 1000);
}

}  // namespace
}  // namespace quarlo::tools
