// Torture. A reader lives whole lives on a simulated machine, and in each of them something fails: every call that the
// life makes, one after the other, with every errno that its manual page names. Nothing may differ from the life
// without a failure but what is written down for that failure (failure.cc), and nothing may be left open.
#include "tests/torture/torture.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <cstddef>
#include <set>
#include <string>

namespace quarlo::test::torture {
namespace {

using Kinds = std::set<std::string>;

// ---- Lives with each source ---------------------------------------------------------------------

TEST_F(TortureTest, EveryCallOfALifeThatFindsNothingFailsOnce) {
  torture(withoutSources(), eachError);
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kSocket, Call::kConnect, Call::kClose}));
}

TEST_F(TortureTest, EveryCallOfSettingUpByPathFailsOnce) {
  torture(setUpByPath(), eachError);
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kSocket, Call::kConnect, Call::kClose, Call::kSelect,
                                 Call::kRead, Call::kGettimeofday}));
}

TEST_F(TortureTest, EveryCallOfSettingUpByAutodetectionFailsOnce) {
  torture(setUpBySearch(), eachError);
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kIoctl, Call::kSocket, Call::kConnect, Call::kClose,
                                 Call::kSelect, Call::kRead, Call::kGettimeofday}));
}

TEST_F(TortureTest, EveryCallOfTypingFailsOnce) {
  torture(typing(), eachError);
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kSocket, Call::kConnect, Call::kClose, Call::kSelect,
                                 Call::kRead}));
}

TEST_F(TortureTest, EveryCallOfPointingFailsOnce) {
  torture(pointing(), eachError);
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kSocket, Call::kConnect, Call::kClose, Call::kSelect,
                                 Call::kRead, Call::kGettimeofday}));
}

TEST_F(TortureTest, EveryCallOfARemoteThatIsHeldAndReleasedFailsOnce) {
  torture(remote(), eachError);
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kSocket, Call::kConnect, Call::kClose, Call::kSelect,
                                 Call::kRead, Call::kGettimeofday}));
}

TEST_F(TortureTest, EveryCallOfAWaitForAllSourcesFailsOnce) {
  torture(allSources(), eachError);
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kSocket, Call::kConnect, Call::kClose, Call::kSelect,
                                 Call::kRead, Call::kGettimeofday}));
}

// ---- Failures that stay -------------------------------------------------------------------------

TEST_F(TortureTest, EveryCallOfSettingUpFailsForGood) {
  torture(setUpByPath(), anErrorForGood);
  torture(setUpBySearch(), anErrorForGood);
  EXPECT_EQ(tried,
            (Kinds{"getenv null", "open EACCES", "ioctl EBADF", "socket EACCES", "connect EACCES", "close EBADF"}));
}

TEST_F(TortureTest, EveryWaitAndEveryReadFailsTwiceInARow) {
  for (const Life& life : {typing(), pointing(), remote()}) torture(life, twoErrors);
  EXPECT_EQ(tried, (Kinds{"select EINTR", "read EIO"}));
}

// ---- Reads that give too little -----------------------------------------------------------------

std::string readOf(std::size_t bytes) { return "read " + std::to_string(bytes) + " bytes"; }

TEST_F(TortureTest, EveryReadGivesNothingOnce) {
  for (const Life& life : {typing(), pointing(), remote(), allSources()}) torture(life, anEmptyRead);
  EXPECT_EQ(tried, Kinds{readOf(0)});
}

TEST_F(TortureTest, EveryReadOfARecordGivesTooLittleOnce) {
  for (const Life& life : {typing(), pointing()}) torture(life, partsOfARecord);
  EXPECT_EQ(tried, (Kinds{readOf(1), readOf(offsetof(input_event, type)), readOf(offsetof(input_event, code)),
                          readOf(offsetof(input_event, value)), readOf(sizeof(input_event) - 1)}));
}

TEST_F(TortureTest, EveryReadOfALineGivesTooLittleOnce) {
  torture(remote(), partsOfALine);
  const std::string longest = "0000000000f40bf0 00 KEY_CHANNELUP myremote\n";
  Kinds parts;
  for (std::size_t bytes = 1; bytes < longest.size(); ++bytes) parts.insert(readOf(bytes));
  EXPECT_EQ(tried, parts);
}

}  // namespace
}  // namespace quarlo::test::torture
