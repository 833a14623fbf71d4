// InputLoop: the remote's lines.

#include <algorithm>

#include "tests/unit/loop_test.h"

namespace quarlo::test {
namespace {

using LoopRemote = LoopTest;

const std::string kUp = keyDown(38);
const std::string kDown = keyDown(40);

std::string line(const std::string& button, int repeat = 0) {
  return "0000000000f40bf0 0" + std::to_string(repeat) + " " + button + " myremote\n";
}

TEST_F(LoopRemote, ReadsALineThatCameAloneAsTheReaderDoes) {
  daemon.send("KEY_UP");
  machine.takeTrace();
  EXPECT_EQ(takeNow(loop), Lines{kUp});
  EXPECT_EQ(machine.count(Call::kPipe2), 0);
  EXPECT_EQ(loop.source(), InputLoop::kRemote);
}

TEST_F(LoopRemote, CountsEachOfSeveralLinesThatCameTogether) {
  daemon.sendText(line("KEY_UP") + line("KEY_DOWN") + line("KEY_UP"));
  EXPECT_EQ(takeNow(loop), (Lines{kUp, kDown, kUp}));
}

TEST_F(LoopRemote, CountsTheLinesAfterOneThatGivesNothing) {
  daemon.sendText("BEGIN\nSIGHUP\nEND\n" + line("KEY_FOO") + line("KEY_UP") + line("KEY_UP", 1) + line("KEY_DOWN"));
  EXPECT_EQ(takeNow(loop), (Lines{kUp, kDown}));
}

TEST_F(LoopRemote, PutsALineTogetherThatCameInParts) {
  const std::string whole = line("KEY_UP");
  daemon.sendText(whole.substr(0, 20));
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(loop.timeoutMs(), -1);  // it does not spin on what there is
  daemon.sendText(whole.substr(20, 5));
  EXPECT_EQ(takeNow(loop), Lines{});
  daemon.sendText(whole.substr(25) + line("KEY_DOWN"));
  EXPECT_EQ(takeNow(loop), (Lines{kUp, kDown}));
}

TEST_F(LoopRemote, ShowsNoPartOfALine) {
  daemon.sendText(line("KEY_UP").substr(0, 20));
  loop.wait(0);
  InputEvent event;
  EXPECT_FALSE(loop.nextRecord(event));
}

TEST_F(LoopRemote, TakesALineOf127BytesWhole) {
  const std::string code(127 - line("KEY_UP").size(), '0');
  daemon.sendText(code + line("KEY_UP"));
  EXPECT_EQ(takeNow(loop), Lines{kUp});
  EXPECT_EQ(machine.count(Call::kPipe2), 0);
}

TEST_F(LoopRemote, TakesWhatFollowsALineOf127Bytes) {
  const std::string code(127 - line("KEY_UP").size(), '0');
  daemon.sendText(code + line("KEY_UP") + line("KEY_DOWN"));
  EXPECT_EQ(takeNow(loop), (Lines{kUp, kDown}));
}

TEST_F(LoopRemote, CutsALongerLineAndDropsItsRest) {
  const std::string code(128 - line("KEY_UP").size(), '0');
  daemon.sendText(code + line("KEY_UP") + line("KEY_DOWN"));
  EXPECT_EQ(takeNow(loop), (Lines{kUp, kDown}));
  // Not even the end of the long line reaches the reader.
  const Lines log = takeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), "VERBOSE2 LIRC string: \n"), 0);
}

TEST_F(LoopRemote, TakesNoButtonFromTheRestOfALineThatIsTooLong) {
  daemon.sendText(std::string(300, 'x') + " 00 KEY_UP myremote\n" + line("KEY_DOWN"));
  EXPECT_EQ(takeNow(loop), Lines{kDown});
}

TEST_F(LoopRemote, LosesTheLinesOfOneReadWhereThereIsNoPipe) {
  machine.fail(Call::kPipe2, 1, EMFILE);
  daemon.sendText(line("KEY_UP") + line("KEY_DOWN"));
  EXPECT_EQ(takeNow(loop), Lines{kUp});
  EXPECT_EQ(takeLog().front(), "loop: ERROR Lost the LIRC lines, errno = 24");
}

TEST_F(LoopRemote, LosesOneLineWhereThePipeFails) {
  machine.fail(Call::kWrite, 2, EIO);
  daemon.sendText(line("KEY_UP") + line("KEY_DOWN") + line("KEY_LEFT"));
  EXPECT_EQ(takeNow(loop), (Lines{kUp, keyDown(37)}));
}

TEST_F(LoopRemote, DoesNotTakeALineThatThePipeRefusedForSilence) {
  daemon.send("KEY_UP");
  takeNow(loop);
  machine.advance(300ms);
  machine.fail(Call::kWrite, 1, EIO);
  daemon.sendText(line("KEY_UP", 1) + line("KEY_FOO"));
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_FALSE(reader.lircRepeatMode);
}

TEST_F(LoopRemote, DoesNotMixALineThatTheReaderDidNotReadWithTheNext) {
  machine.fail(Call::kRead, 1, EINTR);
  daemon.sendText(line("KEY_UP") + line("KEY_DOWN"));
  EXPECT_EQ(takeNow(loop), Lines{kDown});
}

TEST_F(LoopRemote, ClosesItsPipe) {
  {
    InputLoop other(reader);
    daemon.sendText(line("KEY_UP") + line("KEY_DOWN"));
    takeNow(other);
    EXPECT_EQ(machine.openDescriptors(), 5);
  }
  EXPECT_EQ(machine.openDescriptors(), 3);
}

// ---- Timing -------------------------------------------------------------------------------------

TEST_F(LoopRemote, RepeatsAHeldButtonAsTheTimeoutsSay) {
  const auto start = machine.now();
  for (int i = 0; i < 8; ++i) {
    machine.after(i * 108ms, [&, i] { daemon.send("KEY_UP", static_cast<unsigned>(i)); });
  }
  Lines downs;
  while (machine.hasScheduled() || reader.lircKey != 0) {
    loop.wait(-1);
    for (const std::string& event : takeAll(loop)) {
      downs.push_back(event + " " + std::to_string((machine.now() - start) / 1ms));
    }
  }
  EXPECT_EQ(downs, (Lines{kUp + " 0", kUp + " 324", kUp + " 432", kUp + " 540", kUp + " 648", kUp + " 756"}));
}

TEST_F(LoopRemote, TakesALineThatCameSinceTheWaitBeforeItCallsTheRemoteSilent) {
  daemon.send("KEY_UP");
  takeNow(loop);
  machine.advance(300ms);
  loop.setAllReady();
  loop.setReady(kLircFd, 0);
  daemon.send("KEY_UP", 1);
  loop.wait(0);
  EXPECT_EQ(takeAll(loop), Lines{kUp});
  EXPECT_FALSE(reader.lircRepeatMode);
}

TEST_F(LoopRemote, DoesNotCallTheRemoteSilentInARoundWhoseLineGaveNothing) {
  daemon.send("KEY_UP");
  takeNow(loop);
  machine.advance(300ms);
  daemon.send("KEY_FOO");
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_FALSE(reader.lircRepeatMode);
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_TRUE(reader.lircRepeatMode);
}

}  // namespace
}  // namespace quarlo::test
