// The ways to wait for the component's sources, compared: what they take, and how soon and how much of its input the
// application sees. In a guest the time that is printed is an instruction count.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/clock.h"
#include "bench/contestant.h"
#include "bench/devices.h"
#include "bench/fail.h"
#include "bench/statistics.h"
#include "bench/tapped_read.h"
#include "bench/workloads.h"
#include "input/linux_input_reader_limits.h"

namespace quarlo::bench {
namespace {

constexpr double kMs = 1e6;  // in ns
constexpr double kSecond = 1e9;

struct Loop {
  const char* name;
  std::unique_ptr<Contestant> (*open)(const Paths& paths);
  int waitMs;  // of a round, at most; -1: until there is something to do
};

constexpr Loop kLoops[] = {{"reader", openReader, 10}, {"waking", openWaking, -1}, {"loop", openLoop, -1}};

void print(const char* measurement, const char* loop, const char* name, double figure) {
  std::printf("%s\t%s\t%s\t%.3f\n", measurement, loop, name, figure);
  std::fflush(stdout);  // what is buffered must not be printed by children, too
}

// ---- Processes that send ------------------------------------------------------------------------

// A child that does something until it comes to an end by itself, or is ended.
class Sender {
 public:
  template <typename Work>
  explicit Sender(Work work) : pid_(checked(fork(), "fork")) {
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    work();
    _exit(0);
  }
  ~Sender() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

 private:
  pid_t pid_;
};

void sleepUntil(double ns) {
  timespec until = {};
  until.tv_sec = static_cast<time_t>(ns / kSecond);
  until.tv_nsec = static_cast<long>(ns - static_cast<double>(until.tv_sec) * kSecond);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
  }
}

// ---- Applications -------------------------------------------------------------------------------

// Waits, and takes all that is there, or as long as `handle` returns true.
template <typename Handle>
void takeRound(Contestant& contestant, const Loop& loop, Handle handle) {
  InputEvent event;
  event.kind = InputEvent::kNoEvent;
  for (int timeoutMs = loop.waitMs; contestant.readInput(event, timeoutMs); timeoutMs = 0) {
    if (!handle(event)) return;
    event.kind = InputEvent::kNoEvent;
  }
}

// Types a key when the time has come, which ends a wait that nothing else ends.
std::unique_ptr<Sender> typeAt(Devices& devices, double ns) {
  return std::make_unique<Sender>([&devices, ns] {
    sleepUntil(ns);
    devices.send(tap(KEY_A));
  });
}

bool isPress(const InputEvent& event) {
  return event.kind == InputEvent::kMouseEvent && event.mouseData.action == InputEvent::MouseData::kButtonDown;
}

// ---- What they take -----------------------------------------------------------------------------

// How long the processor has not been idle, in ns since the machine was started. In a guest it is the only one.
double busyNs() {
  std::ifstream file("/proc/timer_list");
  std::string word;
  double now = -1;
  while (file >> word) {
    if (word == "at" && now < 0) file >> now;  // "now at 107349027002 nsecs"
    double idle = 0;
    if (word == ".idle_sleeptime" && file >> word >> idle) return now - idle;
  }
  fail("/proc/timer_list does not say how long the processor was idle: this is for a guest, and for root");
}

struct Process {
  double ns;  // that it ran, in the kernel too
  double sleeps;
};

Process thisProcess() {
  timespec time = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return {inNs(time), static_cast<double>(usage.ru_nvcsw)};
}

using Begin = std::function<std::unique_ptr<Sender>(Devices& devices)>;

// Prints what is taken per second while an application runs for a time. `loop` is null for no application; `begin`
// starts what sends, if anything does.
void printTaken(const char* measurement, const Loop* loop, double seconds, const Begin& begin) {
  Devices devices(Devices::Kind::kNodes);
  std::unique_ptr<Contestant> contestant;
  if (loop != nullptr) {
    contestant = loop->open(devices.paths());
    devices.accept();
  }
  const double asking = -busyNs() + busyNs();
  const double machineBefore = busyNs();
  const Process before = thisProcess();
  const double endNs = nowNs() + seconds * kSecond;
  const std::unique_ptr<Sender> sender = begin(devices);
  if (loop == nullptr) {
    sleepUntil(endNs);
  } else {
    const std::unique_ptr<Sender> end = typeAt(devices, endNs);
    while (nowNs() < endNs) takeRound(*contestant, *loop, [](const InputEvent&) { return true; });
  }
  const Process after = thisProcess();
  const double machine = busyNs() - machineBefore - asking;
  const char* name = loop == nullptr ? "nothing" : loop->name;
  print(measurement, name, "machine_ns", machine / seconds);
  print(measurement, name, "process_ns", (after.ns - before.ns) / seconds);
  print(measurement, name, "sleeps", (after.sleeps - before.sleeps) / seconds);
}

// ---- A mouse ------------------------------------------------------------------------------------

constexpr int kReportsPerClick = 100;

// One of its reports. The numbers start with 1.
Frame report(int number) {
  Frame frame;
  frame.source = Frame::Source::kMouse;
  frame.records = {record(EV_REL, REL_X, 1), record(EV_REL, REL_Y, number)};
  if (number % kReportsPerClick == kReportsPerClick / 2) frame.records.push_back(record(EV_KEY, BTN_LEFT, 1));
  if (number % kReportsPerClick == 0) frame.records.push_back(record(EV_KEY, BTN_LEFT, 0));
  frame.records.push_back(record(EV_SYN, SYN_REPORT, 0));
  return frame;
}

void sendReports(Devices& devices, int perSecond, double seconds) {
  const double start = nowNs();
  for (int i = 1; i <= perSecond * seconds; ++i) {
    sleepUntil(start + i * kSecond / perSecond);
    devices.send(report(i));
  }
}

// Prints what an application sees of one second of a mouse, while it draws for a time in each of its rounds.
void printSeen(const char* measurement, const Loop& loop, int perSecond, double drawMs) {
  constexpr double kBehindNs = 0.2 * kSecond;  // in which what is left can be taken
  Devices devices(Devices::Kind::kNodes);
  const std::unique_ptr<Contestant> contestant = loop.open(devices.paths());
  devices.accept();
  int clicks = 0;
  int x = 0;
  startTapping();
  const double endNs = nowNs() + kSecond + kBehindNs;
  const Sender mouse([&] { sendReports(devices, perSecond, 1); });
  const std::unique_ptr<Sender> end = typeAt(devices, endNs);
  while (nowNs() < endNs) {
    takeRound(*contestant, loop, [&](const InputEvent& event) {
      clicks += isPress(event) ? 1 : 0;
      if (event.kind == InputEvent::kMouseEvent) x = event.mouseData.x;
      return true;
    });
    sleepUntil(nowNs() + drawMs * kMs);
  }
  const Tapped tapped = stopTapping();
  print(measurement, loop.name, "steps", x);
  print(measurement, loop.name, "clicks", clicks);
  print(measurement, loop.name, "read", tapped.steps);
  print(measurement, loop.name, "dropped", tapped.dropped);
  print(measurement, loop.name, "unexplained", tapped.unexplained);
}

// ---- Lateness -----------------------------------------------------------------------------------

// Presses and releases a key at any time, and prints how much later the application has the event.
void printLateness(const Loop& loop) {
  constexpr std::size_t kChanges = 100;
  struct Sent {
    std::atomic<double> ns[kChanges];
  };
  void* const memory = mmap(nullptr, sizeof(Sent), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) failWithErrno("mmap");
  auto* const sent = new (memory) Sent();

  Devices devices(Devices::Kind::kFifos);
  const std::unique_ptr<Contestant> contestant = loop.open(devices.paths());
  devices.accept();
  const Sender typist([&] {
    std::minstd_rand random;
    std::uniform_real_distribution<double> pauseMs(10, 30);
    for (std::size_t i = 0; i < kChanges; ++i) {
      sleepUntil(nowNs() + pauseMs(random) * kMs);
      const Frame frame = change(KEY_A, i % 2 == 0 ? 1 : 0);
      sent->ns[i] = nowNs();
      devices.send(frame);
    }
  });
  std::vector<double> late;
  while (late.size() < kChanges) {
    takeRound(*contestant, loop, [&](const InputEvent&) {
      late.push_back((nowNs() - sent->ns[late.size()]) / kMs);
      return true;
    });
  }
  print("lateness", loop.name, "median", quantile(late, 0.5));
  print("lateness", loop.name, "p90", quantile(late, 0.9));
  munmap(memory, sizeof(Sent));
}

// ---- Floods -------------------------------------------------------------------------------------

void floodWithLines(Devices& devices) {
  Frame frame = line("UP", "");
  frame.line.insert(frame.line.size() - 1, components::input::kLircReadSize - frame.line.size(), 'r');
  for (;;) devices.send(frame);
}

// Into the FIFO, and waiting where it is full.
void floodWithMotion(const std::string& path) {
  std::vector<input_event> records;
  for (int i = 1; i < kReportsPerClick / 2; ++i) {
    for (const input_event& one : report(i).records) records.push_back(one);
  }
  const int fd = checked(open(path.c_str(), O_WRONLY | O_CLOEXEC), path);
  for (;;) checked(static_cast<int>(write(fd, records.data(), records.size() * sizeof records[0])), path);
}

// Prints how many frames an application draws in 5 s, which takes a little time for each event, and after each round
// draws for the display's next frame.
void printFrames(const char* measurement, const Loop& loop, bool hasMouse) {
  constexpr double kFrameNs = kSecond / 60;
  constexpr double kSeconds = 5;
  constexpr double kEventNs = 20000;
  Devices devices(Devices::Kind::kFifos);
  const std::unique_ptr<Contestant> contestant = loop.open(devices.paths());
  devices.accept();
  const Sender daemon([&] { floodWithLines(devices); });
  std::unique_ptr<Sender> mouse;
  if (hasMouse) mouse = std::make_unique<Sender>([&] { floodWithMotion(devices.paths().mouse); });
  const double startNs = nowNs();
  const double endNs = startNs + kSeconds * kSecond;
  int frames = 0;
  while (nowNs() < endNs) {
    // A round that has no end by itself ends with the time.
    takeRound(*contestant, loop, [endNs](const InputEvent&) {
      const double handledNs = nowNs() + kEventNs;
      while (nowNs() < handledNs) {
      }
      return handledNs < endNs;
    });
    ++frames;
    sleepUntil(startNs + (std::floor((nowNs() - startNs) / kFrameNs) + 1) * kFrameNs);
  }
  print(measurement, loop.name, "frames", frames);
}

// ---- Command line -------------------------------------------------------------------------------

int measureInGuest() {
  constexpr double kIdleSeconds = 300;
  constexpr double kTapSeconds = 2;
  constexpr int kTaps = 50;
  constexpr double kMouseSeconds = 5;
  const auto silence = [](Devices&) { return std::unique_ptr<Sender>(); };
  const auto remote = [](Devices& devices) {
    return std::make_unique<Sender>([&devices] {
      for (;;) {
        devices.send(line("UP", "myremote"));
        sleepUntil(nowNs() + kTapSeconds * kSecond);
      }
    });
  };
  const auto mouse = [](Devices& devices) {
    return std::make_unique<Sender>([&devices] { sendReports(devices, 1000, kMouseSeconds); });
  };
  printTaken("mouse", nullptr, kMouseSeconds, mouse);
  for (const Loop& loop : kLoops) {
    printTaken("idle", &loop, kIdleSeconds, silence);
    printTaken("mouse", &loop, kMouseSeconds, mouse);
    printTaken("remote", &loop, kTapSeconds * kTaps, remote);
  }
  for (const Loop& loop : kLoops) {
    printSeen("2000Hz", loop, 2000, 16);
    printSeen("4000Hz", loop, 4000, 4);
    printSeen("8000Hz", loop, 8000, 16);
  }
  return 0;
}

int measureOnHost() {
  for (const Loop& loop : kLoops) {
    printLateness(loop);
    printFrames("daemon", loop, false);
    printFrames("both", loop, true);
  }
  return 0;
}

int main(int count, char** arguments) {
  const std::string_view where = count == 2 ? arguments[1] : "";
  if (where == "guest") return measureInGuest();
  if (where == "host") return measureOnHost();
  std::fprintf(stderr,
               "usage: loop_bench guest\n"
               "         in a guest: what the loops take, and what they see of a fast mouse\n"
               "       loop_bench host\n"
               "         on FIFOs: how late a key is, and how many frames are drawn while sources flood\n");
  return 2;
}

}  // namespace
}  // namespace quarlo::bench

int main(int argc, char** argv) { return quarlo::bench::main(argc, argv); }
