// The figures that documents and headers quote, held against the constants that the code uses.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "input/input_loop.h"
#include "input/linux_input_reader_limits.h"
#include "recording/session.h"
#include "tools/common/presses.h"
#include "tools/common/reader_options.h"
#include "tools/tune/kernel_remote.h"
#include "tools/tune/study.h"

namespace quarlo::test {
namespace {

using namespace components::input;

// The file's text with one blank in place of each line break, comment marks included.
std::string proseOf(const std::string& file) {
  std::ifstream stream(std::filesystem::path(QUARLO_ROOT) / file, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  return std::regex_replace(text, std::regex("\n *(// +)?"), " ");
}

// What a file says of a constant, as much of it as tells which figure is meant.
struct Quotation {
  std::string file;
  std::string text;
};

void expectQuoted(const std::string& home, const std::vector<Quotation>& quotations) {
  for (const Quotation& quotation : quotations) {
    EXPECT_NE(proseOf(quotation.file).find(quotation.text), std::string::npos)
        << quotation.file << " does not say:\n  " << quotation.text << "\nThe figure stands in " << home
        << ". Where that changed, change the text; where the text is reworded, change this test.";
  }
}

constexpr char kReaderHeader[] = "input/linux_input_reader.h";
constexpr char kLimits[] = "input/linux_input_reader_limits.h";

std::string node(int number) { return "event" + std::to_string(number); }

std::string ms(std::int64_t time) { return std::to_string(time) + " ms"; }

TEST(FactsTest, TheDefaultsOfTheRemotesTimeouts) {
  const std::string repeat = std::to_string(kDefaultRepeatTimeoutMs);
  const std::string release = std::to_string(kDefaultReleaseTimeoutMs);
  const std::string repeatName = kRepeatTimeoutVariable;
  const std::string releaseName = kReleaseTimeoutVariable;
  expectQuoted(kLimits, {{kReaderHeader, releaseName + " ms (default " + release + ")"},
                         {kReaderHeader, repeatName + " ms (default " + repeat + ")"},
                         {kReaderHeader, "// ms, " + repeatName + " or " + repeat},
                         {kReaderHeader, "// ms, " + releaseName + " or " + release},
                         {"docs/behaviour.md", "| `" + releaseName + "` | " + release + " ms |"},
                         {"docs/behaviour.md", "| `" + repeatName + "` | " + repeat + " ms |"},
                         {"docs/behaviour.md", "defaults for up to " + repeat + " ms after each tap, and between " +
                                                   release + " ms and the next line"},
                         {"docs/tuning.md", "the default is " + release + " ms"},
                         {"docs/tuning.md", "the default of " + repeat + " ms"}});
}

TEST(FactsTest, TheNodesThatAreSearchedAndListed) {
  const std::string searched = node(kHighestScannedNode);
  const std::string listed = node(kHighestListedNode);
  expectQuoted(kLimits, {{kLimits, "searches /dev/input/" + searched + " down to event0"},
                         {kLimits, "reports /dev/input/event0 to " + listed},
                         {kReaderHeader, "searched for among /dev/input/" + searched + " to event0"},
                         {kReaderHeader, "Reports /dev/input/event0 to " + listed},
                         {"README.md", "`/dev/input/event0` to `" + searched + "` only"},
                         {"docs/behaviour.md", "`/dev/input/" + searched + "` down to `event0`"},
                         {"docs/bring-up.md", "from " + searched + " down to event0"},
                         {"docs/bring-up.md", "above " + searched + ","},
                         {"docs/bring-up.md", "own listing (event0 to " + listed + ")"},
                         {"docs/testing.md", "up to " + searched + ","}});
}

TEST(FactsTest, TheSocketItsPathAndItsReads) {
  EXPECT_EQ(std::size(kLircSocketPaths), 4U) << "the reader's header says four";
  const std::string longest = std::to_string(kLongestLircPath);
  const std::string read = std::to_string(kLircReadSize);
  expectQuoted(kLimits, {{kReaderHeader, "lircSocket is null or has at most " + longest + " characters"},
                         {kReaderHeader, "path has at most " + longest + " characters"},
                         {"docs/behaviour.md",
                          longest + " characters is the longest. From " + std::to_string(kLongestLircPath + 1) + " on"},
                         {"docs/behaviour.md", "reads up to " + read + " bytes"},
                         {"docs/tuning.md", "takes " + read + " bytes"},
                         {"docs/bring-up.md", std::string("Found a LIRC device: ") + kLircSocketPaths[0]},
                         {"sim/machine.h", "path = \"" + std::string(kLircSocketPaths[0]) + "\""}});
}

TEST(FactsTest, ThePrefixesOfARemotesButtons) {
  const std::string first(kLircButtonPrefixes[0]);
  const std::string second(kLircButtonPrefixes[1]);
  expectQuoted(kLimits, {{"docs/keymap.md", "it loses `" + first + "` and then `" + second + "`"},
                         {"input/lirc_buttons.inc", "without " + first + " and " + second}});
}

TEST(FactsTest, TheLimitsOfADrainAWaitAndADoubleClick) {
  const std::string records = std::to_string(kRecordsPerDrain);
  expectQuoted(kLimits, {{kReaderHeader, "reads at most " + records + " records that are not keys"},
                         {kReaderHeader, "less than " + ms(kClickWindowMs) + " apart"},
                         {kReaderHeader, "The longest timeout is " + ms(kLongestTimeoutMs)},
                         {kReaderHeader, "with -2 to -" + std::to_string(kLongestTimeoutMs)},
                         {"docs/behaviour.md", "at most " + records + " records that are not keys"},
                         {"docs/behaviour.md", "less than " + ms(kClickWindowMs) + " apart"},
                         {"docs/behaviour.md", "The longest is " + ms(kLongestTimeoutMs)},
                         {"docs/behaviour.md", "From -2 to -" + std::to_string(kLongestTimeoutMs)}});
}

TEST(FactsTest, TheLoopsFirstWait) {
  const std::string wait = ms(tools::kRoundTimeoutMs);
  const std::string assigned = "int timeoutMs = " + std::to_string(tools::kRoundTimeoutMs) + ";";
  expectQuoted("tools/common/reader_options.h", {{kReaderHeader, assigned},
                                                 {"examples/polling_loop.cc", assigned},
                                                 {"docs/embedding.md", assigned},
                                                 {"docs/embedding.md", wait + " for the first call of a round"},
                                                 {"docs/embedding.md", "**" + wait + " and never -1.**"},
                                                 {"docs/behaviour.md", "a short timeout (" + wait + ")"},
                                                 {"docs/behaviour.md", "at most " + wait + " late"},
                                                 {"docs/tuning.md", "and waits for " + wait},
                                                 {"docs/tuning.md", "closest to " + wait}});
}

TEST(FactsTest, TheBoundOfARound) {
  const std::string events = std::to_string(InputLoop::kDefaultBoundEvents) + " events of each source in a round";
  expectQuoted("input/input_loop.h", {{"docs/embedding.md", events},
                                      {"docs/embedding.md", "and some " + ms(InputLoop::kDefaultBoundMs) + " ("}});
}

// As the table shows it, rounded to a tenth of a millisecond.
std::string periodOf(const tools::tune::Protocol& protocol) {
  char text[16];
  std::snprintf(text, sizeof text, "%.4g", static_cast<double>(protocol.period.count()) / 1000);
  return text;
}

TEST(FactsTest, WhatTuningSaysOfTheKernelsRepeats) {
  using namespace tools::tune;
  const auto both = [](const tools::NodeRepeat& repeat) {
    return std::to_string(repeat.delayMs) + " and " + ms(repeat.periodMs);
  };
  expectQuoted(
      "tools/tune/kernel_remote.h",
      {{"docs/tuning.md", "rc-core, sets " + both(kRemotesRepeat)},
       {"docs/tuning.md", "Other nodes have " + both(kKeyboardsRepeat)},
       {"docs/tuning.md", "studied for its first " + std::to_string(kMostOfAPress.count()) + " s"},
       {"docs/tuning.md", "down for more than " + std::to_string(kMostStudiedTime.count()) + " s altogether"}});
}

TEST(FactsTest, HowLongASessionCanBe) {
  const std::string days = std::to_string(recording::kLongestSession.count() / 24) + " days";
  expectQuoted("recording/session.h", {{"docs/bring-up.md", "a session can have " + days},
                                       {"sessions/README.md", "and " + days + " a session"}});
}

TEST(FactsTest, TheProtocolsAndTapsOfTuning) {
  std::vector<Quotation> quotations = {
      {"docs/tuning.md", "A tap is what comes in " + ms(tools::tune::kSlowTap.count())},
      {"docs/tuning.md", "a held button from " + ms(tools::kShortestHold.count()) + " on"},
      {"docs/tuning.md", "up to " + std::to_string(tools::tune::kMostStudiedLines) +
                             " lines, and of each press not more than its first " +
                             std::to_string(tools::tune::kMostLinesOfAPress)}};
  for (const tools::tune::Protocol& protocol : tools::tune::knownProtocols()) {
    quotations.push_back({"docs/tuning.md", "| `" + protocol.name + "` | " + periodOf(protocol) + " ms | " +
                                                std::to_string(protocol.tapLines) + " lines |"});
  }
  expectQuoted("tools/tune", quotations);
}

}  // namespace
}  // namespace quarlo::test
