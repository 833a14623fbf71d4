// The component beside a bare loop of its system calls, and beside what one would use instead, on the same input.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/clock.h"
#include "bench/contestant.h"
#include "bench/devices.h"
#include "bench/fail.h"
#include "bench/statistics.h"
#include "bench/workloads.h"

namespace quarlo::bench {
namespace {

constexpr Entry kContestants[] = {
    {"bare", openBare, false, false},        {"reader", openReader, true, false}, {"loop", openLoop, true, false},
#ifdef QUARLO_BENCH_LIBEVDEV
    {"libevdev", openLibevdev, true, false}, {"lines", openLines, true, false},
#endif
#ifdef QUARLO_BENCH_LIBINPUT
    {"libinput", openLibinput, true, true},
#endif
    {"batch", openBatch, false, false},
};
constexpr std::size_t kFloor = 0;   // bare
constexpr std::size_t kReader = 1;  // whose events are those that the others must deliver

constexpr std::size_t kMostEvents = 64;  // that a frame can give
using Events = std::array<InputEvent, kMostEvents>;

// What is measured: all that a frame gives, in the loop that the component's header teaches.
extern "C" __attribute__((noinline)) std::size_t drainFrame(Contestant& contestant, Events& events, int timeoutMs) {
  std::size_t count = 0;
  for (;;) {
    InputEvent& event = events[count];
    event.kind = InputEvent::kNoEvent;
    if (!contestant.readInput(event, timeoutMs)) return count;
    if (++count == kMostEvents) fail("A frame does not come to its end");
    timeoutMs = 0;
  }
}

// ---- The same events ----------------------------------------------------------------------------

bool isMove(const InputEvent& event) {
  return event.kind == InputEvent::kMouseEvent && event.mouseData.action == InputEvent::MouseData::kMove;
}

bool isSame(const InputEvent& a, const InputEvent& b) {
  if (a.kind != b.kind || a.flags != b.flags) return false;
  if (a.kind == InputEvent::kKeyEvent) {
    return a.keyData.action == b.keyData.action && a.keyData.key == b.keyData.key && a.keyData.ch == b.keyData.ch &&
           a.keyData.modifiers == b.keyData.modifiers;
  }
  return a.mouseData.action == b.mouseData.action && a.mouseData.button == b.mouseData.button &&
         a.mouseData.x == b.mouseData.x && a.mouseData.y == b.mouseData.y && a.mouseData.clicks == b.mouseData.clicks;
}

// What a pass over the workload gives. Moves of a frame become one: how many there are is each one's own choice.
std::vector<InputEvent> eventsOf(Devices& devices, const Entry& entry, const Workload& workload) {
  const std::unique_ptr<Contestant> contestant = entry.open(devices.paths());
  devices.accept();
  std::vector<InputEvent> all;
  Events events;
  for (const Frame& frame : workload.frames) {
    devices.send(frame);
    const std::size_t count = drainFrame(*contestant, events, workload.timeoutMs);
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0 && isMove(events[i]) && isMove(events[i - 1])) all.pop_back();
      all.push_back(events[i]);
    }
  }
  return all;
}

void checkEvents(Devices& devices, const std::vector<const Entry*>& entries, const Workload& workload) {
  const std::vector<InputEvent> expected = eventsOf(devices, kContestants[kReader], workload);
  for (const Entry* entry : entries) {
    if (!entry->translates) continue;
    const std::vector<InputEvent> events = eventsOf(devices, *entry, workload);
    if (!std::equal(events.begin(), events.end(), expected.begin(), expected.end(), isSame)) {
      fail(std::string(entry->name) + " does not deliver the same events in the workload " + workload.name);
    }
  }
  std::printf("# %s: all deliver the same %zu events\n", workload.name, expected.size());
}

// ---- compare ------------------------------------------------------------------------------------

// The time that it takes to take the time.
double clockCost() {
  constexpr int kTimes = 200;
  std::vector<double> costs;
  for (int i = 0; i < kTimes; ++i) {
    const double start = nowNs();
    costs.push_back(nowNs() - start);
  }
  return trimmedMean(costs);
}

// Mean ns of a frame. The first pass is not counted.
double frameCost(Devices& devices, const Entry& entry, const Workload& workload) {
  constexpr std::size_t kFrames = 300;
  const std::unique_ptr<Contestant> contestant = entry.open(devices.paths());
  devices.accept();
  const std::size_t frames = workload.frames.size();
  const std::size_t passes = 1 + (kFrames + frames - 1) / frames;
  std::vector<double> costs;
  Events events;
  for (std::size_t i = 0; i < passes * frames; ++i) {
    devices.send(workload.frames[i % frames]);
    const double start = nowNs();
    drainFrame(*contestant, events, workload.timeoutMs);
    const double cost = nowNs() - start;
    if (i >= frames) costs.push_back(cost);
  }
  return trimmedMean(costs) - clockCost();
}

void compareOn(Devices& devices, const std::vector<const Entry*>& entries, const Workload& workload, int rounds) {
  checkEvents(devices, entries, workload);
  const double recordsPerFrame = static_cast<double>(workload.size()) / static_cast<double>(workload.frames.size());
  std::vector<std::vector<double>> costs(entries.size());
  std::vector<std::vector<double>> ratios(entries.size());
  for (int round = 0; round < rounds; ++round) {
    // Each is the first as often as any other.
    for (std::size_t i = 0; i < entries.size(); ++i) {
      const std::size_t which = (i + static_cast<std::size_t>(round)) % entries.size();
      costs[which].push_back(frameCost(devices, *entries[which], workload));
    }
    for (std::size_t i = 0; i < entries.size(); ++i) ratios[i].push_back(costs[i].back() / costs[kFloor].back());
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    std::printf("%s\t%s\t%.1f\t%.4f\t%.4f\t%.4f\n", workload.name, entries[i]->name,
                quantile(costs[i], 0.5) / recordsPerFrame, quantile(ratios[i], 0.5), quantile(ratios[i], 0.25),
                quantile(ratios[i], 0.75));
  }
}

int compare(Devices::Kind kind, int rounds) {
  std::vector<const Entry*> entries;
  for (const Entry& entry : kContestants) {
    if (entry.needsRealNodes && kind == Devices::Kind::kFifos) {
      std::printf("# skipped: %s, which takes no FIFO for a device\n", entry.name);
    } else {
      entries.push_back(&entry);
    }
  }
#ifndef QUARLO_BENCH_LIBEVDEV
  std::printf("# skipped: libevdev, which was not there when this was built\n");
#endif
#ifndef QUARLO_BENCH_LIBINPUT
  std::printf("# skipped: libinput, which was not there when this was built\n");
#endif
  Devices devices(kind);
  std::printf("# workload\tcontestant\tns per record\tratio to bare\tits lower\tand upper quartile, of %d rounds\n",
              rounds);
  for (const Workload& workload : workloads()) {
    if (workload.timeoutMs == 0) compareOn(devices, entries, workload, rounds);
  }
  return 0;
}

// ---- run ----------------------------------------------------------------------------------------

int run(const Entry& entry, const Workload& workload, int passes) {
  Devices devices(Devices::Kind::kFifos);
  const std::unique_ptr<Contestant> contestant = entry.open(devices.paths());
  devices.accept();
  Events events;
  for (int pass = 0; pass < passes; ++pass) {
    for (const Frame& frame : workload.frames) {
      devices.send(frame);
      drainFrame(*contestant, events, workload.timeoutMs);
    }
  }
  std::printf("%d\n", passes * workload.size());
  return 0;
}

// ---- start --------------------------------------------------------------------------------------

struct Start {
  double ns;         // from before the program is started until it has its first event
  double kilobytes;  // at its peak
};

// Presses a key as soon as the program has opened all sources. The program says when it came, and how much memory it
// had.
Start start(Devices& devices, const std::string& program) {
  int output[2];
  checked(pipe2(output, O_CLOEXEC), "pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  std::vector<std::string> words = {program, devices.paths().mouse, devices.paths().keyboard, devices.paths().remote};
  char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};

  const double begin = nowNs();
  pid_t child = -1;
  errno = posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ);
  if (errno != 0) failWithErrno(program);
  posix_spawn_file_actions_destroy(&actions);
  close(output[1]);
  devices.accept();
  devices.send(tap(KEY_A));

  char text[100] = {};
  checked(static_cast<int>(read(output[0], text, sizeof text - 1)), program);
  close(output[0]);
  waitpid(child, nullptr, 0);
  double end = 0;
  Start result = {};
  if (std::sscanf(text, "%lf %lf", &end, &result.kilobytes) != 2) fail(program + " has not got an event");
  result.ns = end - begin;
  return result;
}

int compareStarts(Devices::Kind kind, int rounds, char** programs) {
  std::printf("# program\tns to the first event\tkilobytes\n");
  for (; *programs != nullptr; ++programs) {
    std::vector<double> times;
    std::vector<double> sizes;
    for (int round = 0; round < rounds; ++round) {
      Devices devices(kind);
      const Start one = start(devices, *programs);
      times.push_back(one.ns);
      sizes.push_back(one.kilobytes);
    }
    const std::string_view path = *programs;
    std::printf("%s\t%.0f\t%.0f\n", path.substr(path.rfind('/') + 1).data(), quantile(times, 0.5),
                quantile(sizes, 0.5));
  }
  return 0;
}

// ---- Command line -------------------------------------------------------------------------------

int usage() {
  std::fprintf(stderr,
               "usage: input_bench compare fifos|nodes ROUNDS\n"
               "         all on all workloads: time for a record, and its ratio to the bare loop's\n"
               "       input_bench run CONTESTANT WORKLOAD PASSES\n"
               "         one on FIFOs, for a tool that counts; prints the number of records\n"
               "       input_bench start fifos|nodes ROUNDS PROGRAM...\n"
               "         the time from a program's start to its first event, and the memory that it takes\n");
  return 2;
}

template <typename Table>
auto find(const Table& table, std::string_view name) {
  return std::find_if(std::begin(table), std::end(table), [name](const auto& one) { return name == one.name; });
}

int main(int count, char** arguments) {
  if (count < 4) return usage();
  const std::string_view command = arguments[1];
  if (command == "run") {
    const auto* entry = find(kContestants, arguments[2]);
    const auto workload = find(workloads(), arguments[3]);
    if (count != 5 || entry == std::end(kContestants) || workload == workloads().end()) return usage();
    return run(*entry, *workload, std::atoi(arguments[4]));
  }
  const std::string_view kindName = arguments[2];
  const int rounds = std::atoi(arguments[3]);
  if ((kindName != "fifos" && kindName != "nodes") || rounds < 1) return usage();
  const Devices::Kind kind = kindName == "fifos" ? Devices::Kind::kFifos : Devices::Kind::kNodes;
  if (command == "compare" && count == 4) return compare(kind, rounds);
  if (command == "start" && count > 4) return compareStarts(kind, rounds, arguments + 4);
  return usage();
}

}  // namespace
}  // namespace quarlo::bench

int main(int argc, char** argv) { return quarlo::bench::main(argc, argv); }
