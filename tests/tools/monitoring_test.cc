// `monitor` on the simulated machine, whose nodes it reads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "sim/machine.h"
#include "tools/common/output.h"
#include "tools/monitor/monitor.h"

namespace quarlo::tools::monitor {
namespace {

using namespace std::chrono_literals;

constexpr char kKeyboard[] = "/dev/input/event3";

MonitorOptions keyboardAlone(LoopKind loop) {
  MonitorOptions options;
  options.mouse = options.lirc = kLeaveOut;
  options.keyboard = kKeyboard;
  if (loop == LoopKind::kPoll) options.pollTimeout = kRoundTimeoutMs;
  return options;
}

// In a process of its own, of which all output is the standard error. Ends with kDone if nothing else ends it.
[[noreturn]] void monitorInAnother(const MonitorOptions& options, sim::Machine& machine) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  machine.after(10s, [] { std::raise(SIGTERM); });
  std::exit(run(options));
}

// What a node had queued that is gone stays in sight, and cannot be read.
TEST(Monitoring, EndsWithANodeThatIsUnpluggedAlsoIfItHadSomethingToRead) {
  for (const LoopKind loop : {LoopKind::kWait, LoopKind::kPoll}) {
    for (const bool hadSomething : {false, true}) {
      sim::Machine machine;
      sim::Node& keyboard = machine.addNode(kKeyboard, sim::Device::keyboard());
      machine.after(100ms, [&] {
        if (hadSomething) keyboard.press(KEY_UP);
        keyboard.unplug();
      });
      EXPECT_EXIT(monitorInAnother(keyboardAlone(loop), machine), testing::ExitedWithCode(kFailed),
                  "the keyboard is gone: it was unplugged");
    }
  }
}

}  // namespace
}  // namespace quarlo::tools::monitor
