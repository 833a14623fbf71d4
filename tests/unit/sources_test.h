// What tests of InputSources start from: the loop of LoopTest, its sources, and an application's rounds.
#pragma once

#include <vector>

#include "input/input_sources.h"
#include "tests/unit/loop_test.h"

namespace quarlo::test {

using components::input::InputSources;

constexpr InputLoop::Source kKeyboard = InputLoop::kKeyboard;
constexpr InputLoop::Source kMouse = InputLoop::kMouse;
constexpr InputLoop::Source kRemote = InputLoop::kRemote;

constexpr InputLoop::SourceSet bit(int source) { return InputLoop::SourceSet{1} << source; }

// Makes the kernel drop what is queued of a node, whatever the size of its queue.
inline void overflow(sim::Node& node) {
  for (int i = 0; i < 128; ++i) node.inject(EV_MSC, MSC_SCAN, i);
  node.inject(EV_SYN, SYN_REPORT, 0);
}

class SourcesTest : public LoopTest {
 protected:
  // A round of an application: what is due, a look at what is there, and what came.
  Lines round() {
    loop.wait(sources.attend(0));
    return takeAll(loop);
  }

  Lines rounds(int count) {
    Lines lines;
    for (int i = 0; i < count; ++i) {
      for (const std::string& line : round()) lines.push_back(line);
    }
    return lines;
  }

  // The calls of one attend().
  Lines attended() {
    machine.takeTrace();
    sources.attend(0);
    return machine.takeTrace();
  }

  InputSources sources{loop};
};

}  // namespace quarlo::test
