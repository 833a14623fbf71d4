// What all scenarios start from: a world, an empty log, and short words for what a reader does.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/scenario/world.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {

using namespace std::chrono_literals;

// Where no node and no socket is: what a source that is left out is opened by.
constexpr char kNowhere[] = "/nowhere";

constexpr std::uint32_t kMaxX = 1280;
constexpr std::uint32_t kMaxY = 720;

class ScenarioTest : public testing::Test {
 protected:
  ScenarioTest() { resetLog(); }

  // Sets a reader up without a remote; null searches. Returns what it logged.
  Lines openNodes(LinuxInputReader& reader, const char* mousePath = nullptr, const char* keyboardPath = nullptr) {
    reader.init(mousePath, keyboardPath, kNowhere, kMaxX, kMaxY);
    Lines log = takeLog();
    EXPECT_EQ(log.back(), "ERROR Could not open LIRC socket /nowhere");
    log.pop_back();
    return log;
  }

  std::unique_ptr<World> world = makeWorld();
};

}  // namespace quarlo::test
