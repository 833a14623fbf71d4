// Torture of InputSources: each call of a life in which records are lost and sources go and come back fails once, with
// each errno of its manual page. Whatever that does to the events, all must be right again soon after.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "tests/torture/faults.h"
#include "tests/torture/torture.h"
#include "tests/unit/reader_test.h"

namespace quarlo::test::torture {
namespace {

using components::input::InputLoop;
using components::input::InputSources;

constexpr InputSources::Source kKeyboard = InputLoop::kKeyboard;
constexpr InputSources::Source kMouse = InputLoop::kMouse;
constexpr InputSources::Source kRemote = InputLoop::kRemote;
constexpr InputSources::Source kFurther = InputLoop::kFurther;
constexpr auto kGone = static_cast<InputSources::Source>(kFurther + 1);

constexpr const char* kPaths[] = {"/dev/input/event0", "/dev/input/event1", "/run/lircd", "/dev/input/event2",
                                  "/dev/input/event3"};
constexpr int kKeys[] = {KEY_A, KEY_B, KEY_LEFTSHIFT, KEY_LEFTCTRL, KEY_LEFTALT, BTN_LEFT, BTN_RIGHT};

constexpr auto kFrame = 20ms;
constexpr unsigned kEveryMs = 50;
constexpr int kRoundsToMend = 8;
constexpr int kMostWaits = 10;  // without a frame's time between them

Device deviceOfKeys() {
  Device device;
  device.codes[EV_KEY].insert(std::begin(kKeys), std::end(kKeys));
  device.codes[EV_LED] = {LED_NUML};
  return device;
}

// A life with all that attend(), open(), adopt() and grab() do.
class SourcesLife {
 public:
  explicit SourcesLife(const std::optional<Fault>& fault) {
    machine.setEnvironment("LIRC_REPEAT_TIMEOUT", "10");
    machine.setEnvironment("LIRC_RELEASE_TIMEOUT", "30");
    for (const InputSources::Source source : {kKeyboard, kMouse, kFurther, kGone}) plug(source);
    press(kKeyboard, KEY_LEFTSHIFT);
    if (fault) machine.fail(fault->call, fault->count, fault->error);
    reader_.emplace();
    reader_->init(kPaths[kMouse], kPaths[kKeyboard], kPaths[kRemote], 1280, 720);
    loop_.emplace(*reader_);
    sources_.emplace(*loop_);
    setUpCalls_ = callsOf(machine.takeTrace());
  }

  // Returns the calls that were made, but for those at the end, in which what went wrong must come right.
  Calls live() {
    start();
    grabWithAKeyDown();
    replugTheMouse();
    restartTheDaemon();
    replugTheFurtherNode();
    unplugForGood();
    sources_->grab(kKeyboard, false);
    pass(2);
    loseRecords();
    Calls calls = callsOf(machine.takeTrace());
    pass(kRoundsToMend);
    expectAllIsRight();
    return calls;
  }

  // How often each call was made before that.
  int countOfSetUp(Call call) const {
    return static_cast<int>(
        std::count_if(setUpCalls_.begin(), setUpCalls_.end(), [=](const auto& made) { return made.call == call; }));
  }

  void end(int mostLeft) {
    sources_.reset();
    loop_.reset();
    reader_.reset();
    further_.reset();
    gone_.reset();
    EXPECT_LE(machine.openDescriptors(), mostLeft);
  }

  sim::Machine machine;

 private:
  void start() {
    isAdopted_[kKeyboard] = sources_->adopt(kKeyboard);
    isAdopted_[kMouse] = sources_->adopt(kMouse);
    isAdopted_[kFurther] = isAdopted_[kGone] = true;
    EXPECT_TRUE(sources_->join(*further_));
    EXPECT_TRUE(sources_->join(*gone_));
    sources_->open(kFurther, kPaths[kFurther]);
    for (const auto source : {kKeyboard, kMouse, kRemote, kFurther, kGone}) {
      sources_->keepOpen(source, kPaths[source], kEveryMs);
    }
    pass(2);
  }

  // Of a key that comes up in what is lost, and of one that goes down.
  void loseRecords() {
    press(kKeyboard, KEY_LEFTCTRL);
    pass(2);
    release(kKeyboard, KEY_LEFTCTRL);
    press(kKeyboard, KEY_LEFTALT);
    for (int taps = 0; taps < 40; ++taps) {
      press(kKeyboard, KEY_B);
      release(kKeyboard, KEY_B);
    }
    pass(4);
  }

  void grabWithAKeyDown() {
    press(kKeyboard, KEY_A);
    pass(2);
    sources_->grab(kKeyboard, true);
    pass(1);
    release(kKeyboard, KEY_A);
    release(kKeyboard, KEY_LEFTSHIFT);
    pass(4);
  }

  void replugTheMouse() {
    press(kMouse, BTN_LEFT);
    pass(2);
    nodes_[kMouse]->unplug();
    pass(2);
    plug(kMouse);
    press(kMouse, BTN_RIGHT);
    pass(4);
  }

  void restartTheDaemon() {
    daemon_->send("KEY_UP");
    daemon_->send("KEY_UP", 1);
    pass(2);
    daemon_->stop();
    pass(2);
    daemon_ = &machine.addLircDaemon(kPaths[kRemote]);
    pass(4);
    daemon_->send("KEY_UP");
    pass(2);
  }

  void replugTheFurtherNode() {
    press(kFurther, KEY_A);
    pass(2);
    nodes_[kFurther]->unplug();
    plug(kFurther);
    press(kFurther, KEY_LEFTSHIFT);
    pass(4);
  }

  void unplugForGood() {
    press(kGone, KEY_LEFTCTRL);
    pass(2);
    nodes_[kGone]->unplug();
    down_[kGone].clear();
    pass(2);
  }

  // ---- Devices ----------------------------------------------------------------------------------

  void plug(InputSources::Source source) {
    nodes_[source] = &machine.addNode(kPaths[source], deviceOfKeys());
    down_[source].clear();
  }

  void report(InputSources::Source source, int code, int value) {
    nodes_[source]->report(EV_KEY, code, value);
    nodes_[source]->report(EV_SYN, SYN_REPORT, 0);
  }

  void press(InputSources::Source source, int code) {
    down_[source].insert(code);
    report(source, code, 1);
  }

  void release(InputSources::Source source, int code) {
    down_[source].erase(code);
    report(source, code, 0);
  }

  // ---- The application --------------------------------------------------------------------------

  void pass(int frames) {
    for (; frames > 0; --frames) {
      machine.advance(kFrame);
      int waits = 0;
      do round();
      while (loop_->timeoutMs() == 0 && ++waits < kMostWaits);
      EXPECT_LT(waits, kMostWaits);
    }
  }

  // What could not be adopted is adopted in the next round.
  void round() {
    sources_->attend(-1);
    for (auto& [source, isAdopted] : isAdopted_) {
      if ((sources_->opened() >> source & 1) != 0) isAdopted = false;
      if (!isAdopted) isAdopted = sources_->adopt(source);
    }
    loop_->wait(0);
    InputEvent event = untouched();
    while (loop_->next(event)) {
    }
  }

  void expectAllIsRight() {
    for (const auto& [source, node] : nodes_) {
      for (const int code : kKeys) {
        EXPECT_EQ(sources_->isDown(source, static_cast<unsigned>(code)), down_[source].count(code) != 0)
            << "source " << int{source} << ", code " << code;
      }
      EXPECT_FALSE(sources_->isGrabbed(source));
      EXPECT_FALSE(node->isGrabbed());
    }
    const auto shift = LinuxInputReader::getModifier(KEY_LEFTSHIFT);
    EXPECT_EQ(reader_->modifiers, shift | LinuxInputReader::getModifier(KEY_LEFTALT));
    EXPECT_EQ(reader_->lircKey, 0);
    pollfd fds[InputLoop::kMaxDescriptors];
    EXPECT_EQ(loop_->descriptors(fds), 4);

    // What comes is taken, and nothing else wakes it.
    daemon_->send("KEY_DOWN");
    report(kMouse, BTN_LEFT, 1);
    report(kKeyboard, KEY_A, 1);
    report(kFurther, KEY_B, 1);
    std::set<int> givers;
    sources_->attend(-1);
    loop_->wait(0);
    InputEvent event = untouched();
    while (loop_->next(event)) givers.insert(loop_->source());
    EXPECT_EQ(givers, (std::set<int>{kKeyboard, kMouse, kRemote, kFurther}));
    pass(4);
    sources_->keepOpen(kGone, nullptr, 0);
    const auto before = machine.now();
    EXPECT_TRUE(loop_->wait(sources_->attend(100)).timeout);
    EXPECT_EQ(machine.now() - before, 100ms);
  }

  std::map<InputSources::Source, sim::Node*> nodes_;
  std::map<InputSources::Source, std::set<int>> down_;
  std::map<InputSources::Source, bool> isAdopted_;
  sim::LircDaemon* daemon_ = &machine.addLircDaemon(kPaths[kRemote]);
  std::optional<LinuxInputReader> reader_;
  std::optional<InputSources::FurtherNode> further_{std::in_place};
  std::optional<InputSources::FurtherNode> gone_{std::in_place};
  std::optional<InputLoop> loop_;
  std::optional<InputSources> sources_;
  Calls setUpCalls_;
};

// A descriptor that a read calls bad is one that the application has closed, so nobody closes it.
int mostLeftBy(const Fault& fault) {
  return (fault.call == Call::kRead || fault.call == Call::kRecv) && fault.error == EBADF ? 1 : 0;
}

class SourcesTorture : public TortureTest {};

TEST_F(SourcesTorture, AllIsRightAfterAnyCallHasFailedOnce) {
  Calls calls;
  std::map<Call, int> before;  // how often each call is made in the set-up
  {
    SourcesLife unharmed(std::nullopt);
    calls = unharmed.live();
    for (const TracedCall& call : calls) before[call.call] = unharmed.countOfSetUp(call.call);
    unharmed.end(0);
    ASSERT_FALSE(HasFailure());
  }
  for (const TracedCall& call : calls) {
    for (Fault fault : eachError(call)) {
      SCOPED_TRACE(describe("sources", call, fault));
      fault.count += before[fault.call];
      SourcesLife life(fault);
      life.live();
      life.end(mostLeftBy(fault));
      count(fault);
      if (HasFailure()) return;
    }
  }
  EXPECT_EQ(tried,
            everyErrorOf({Call::kOpen, Call::kClose, Call::kFstat, Call::kRead, Call::kRecv, Call::kWrite, Call::kPipe2,
                          Call::kIoctl, Call::kPoll, Call::kSocket, Call::kConnect, Call::kGettimeofday}));
}

}  // namespace
}  // namespace quarlo::test::torture
