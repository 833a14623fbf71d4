// Torture of InputLoop: what it waits for, reads and writes fails once, with each errno of its manual page, at each
// place of whole lives; sources go, signals come and clocks jump at each moment. Nothing may differ from the life
// without that but what is said here.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "tests/torture/faults.h"
#include "tests/torture/lives.h"
#include "tests/torture/living.h"
#include "tests/torture/model.h"
#include "tests/torture/torture.h"

namespace quarlo::test::torture {
namespace {

using namespace std::chrono_literals;

constexpr const char* kSourceNames[] = {"mouse", "keyboard", "remote"};

// What is called often may be called a little more often after a fault: a wait that returns at once.
constexpr int kMoreWaits = 3;

// What a life should be, and what the loop should log of it.
struct LoopCourse {
  explicit LoopCourse(const Life& life) : course(life) {}

  Course course;
  Lines log;
};

// ---- What a failure does ------------------------------------------------------------------------

class LoopFailure {
 public:
  LoopFailure(const Life& life, const Lived& lived, const Calls& calls, std::size_t index, const Fault& fault)
      : life_(life), lived_(lived), calls_(calls), index_(index), fault_(fault), result_(life) {}

  LoopCourse course() {
    switch (fault_.call) {
      case Call::kPoll: break;  // all sources are asked then
      case Call::kRead: failRead(); break;
      case Call::kRecv: failLook(); break;
      case Call::kPipe2: failPipe(); break;
      case Call::kWrite: loseLine(); break;
      case Call::kGettimeofday: failClock(); break;
      default: break;  // what failed to close is closed
    }
    return result_;
  }

 private:
  const TracedCall& call() const { return calls_[index_]; }

  // Nothing is lost by these: the next wait finds what is there.
  bool isTemporary() const { return !fault_.bytes && (fault_.error == EAGAIN || fault_.error == EINTR); }

  void failRead() {
    for (const Source source : {kMouse, kKeyboard}) {
      if (!isReadOfNode(call(), source)) continue;
      // A read of nothing, although there is something, is an end.
      if (!isTemporary()) lose(source, recordsBefore(index_, source));
      return;
    }
    if (isReadOf(call(), lived_.fds[kRemote])) {
      // The class takes a failure for silence, and the line is still there. What it got of a line is a line.
      if (fault_.bytes.value_or(0) > 0) result_.course.cutLine = CutLine{linesBefore(index_), *fault_.bytes};
    } else if (call().succeeded) {
      loseLine();  // which was in the pipe
    }
  }

  // A look at the socket says whether it is gone. That a line could not be taken after the look is not the end: it is
  // looked at again.
  void failLook() {
    const bool isLook = call().line.find("MSG_PEEK") != std::string::npos;
    if (isLook && !isTemporary() && fault_.bytes.value_or(0) == 0) lose(kRemote, linesBefore(index_));
  }

  // The class then reads all that is there, and looks at the first line of it.
  void failPipe() {
    log("LIRC lines");
    result_.course.swallowedLine = linesBefore(index_) + 1;
  }

  void loseLine() { result_.course.unseenLine = linesBefore(index_); }

  // The time is then zero, which matters to a click and to a line. A wait that is too long by it ends with the round.
  void failClock() {
    const TracedCall& before = calls_[index_ - 1];
    if (isReadOfNode(before, kMouse)) {
      result_.course.clickWithoutTime = lastPress();
    } else if (isReadOfLine(index_ - 1)) {
      result_.course.readLineWithoutTime = linesBefore(index_) - 1;
    } else if (before.call == Call::kGettimeofday && isReadOfLine(index_ - 2)) {
      result_.course.acceptedLineWithoutTime = linesBefore(index_) - 1;
    }
  }

  void log(const std::string& what) {
    result_.log.push_back("loop: ERROR Lost the " + what + ", errno = " + std::to_string(fault_.error));
  }

  void lose(Source source, std::size_t readable) {
    log(kSourceNames[source]);
    result_.course.readable[source] = readable;
  }

  // ---- What has been read before ----------------------------------------------------------------

  std::size_t recordsBefore(std::size_t index, Source source) const {
    std::size_t records = 0;
    for (std::size_t i = 0; i < index; ++i) {
      if (!isReadOfNode(calls_[i], source) || !calls_[i].succeeded) continue;
      const bool isOne = calls_[i].result == "1 record";
      records += isOne ? 1 : std::stoul(calls_[i].result) / sizeof(input_event);
    }
    return records;
  }

  bool isReadOfNode(const TracedCall& read, Source source) const {
    return lived_.fds[source] != -1 && isReadOf(read, lived_.fds[source]);
  }

  // Of the socket or of the pipe.
  bool isReadOfLine(std::size_t index) const {
    const TracedCall& read = calls_[index];
    return read.call == Call::kRead && read.succeeded && !isReadOfNode(read, kMouse) && !isReadOfNode(read, kKeyboard);
  }

  std::size_t linesBefore(std::size_t index) const {
    std::size_t lines = 0;
    for (std::size_t i = 0; i < index; ++i) lines += isReadOfLine(i) ? 1 : 0;
    return lines;
  }

  std::size_t lastPress() const {
    const std::vector<Record>& records = life_.records[kMouse];
    std::size_t index = recordsBefore(index_, kMouse);
    do --index;
    while (records[index].event.type != EV_KEY || records[index].event.value == 0);
    return index;
  }

  const Life& life_;
  const Lived& lived_;
  const Calls& calls_;
  std::size_t index_;
  const Fault& fault_;
  LoopCourse result_;
};

// ---- The tests ----------------------------------------------------------------------------------

class LoopTorture : public TortureTest {
 protected:
  // Lives the life, then lives it again with each fault of the calls that are made once it waits.
  void torture(const Life& life, FaultsOf faultsOf) {
    const LivedWithLoop unharmed = liveUnharmed(life);
    const Calls calls = callsOf(unharmed.trace);
    const auto start =
        std::find_if(calls.begin(), calls.end(), [](const auto& call) { return call.call == Call::kPoll; });
    for (auto index = static_cast<std::size_t>(start - calls.begin()); index < calls.size(); ++index) {
      for (const Fault& fault : faultsOf(calls[index])) {
        SCOPED_TRACE(describe(life.name, calls[index], fault));
        const LoopCourse course = LoopFailure(life, unharmed, calls, index, fault).course();
        expectLife(course, liveWithLoop(life, fault, std::nullopt), unharmed.waits);
        count(fault);
        if (HasFailure()) return;
      }
    }
  }

  // The same, for faults that no kernel makes, of which no more is asked than that they pass.
  void endure(const Life& life, FaultsOf faultsOf) {
    const LivedWithLoop unharmed = liveUnharmed(life);
    for (const TracedCall& call : callsOf(unharmed.trace)) {
      for (const Fault& fault : faultsOf(call)) {
        SCOPED_TRACE(describe(life.name, call, fault));
        const LivedWithLoop lived = liveWithLoop(life, fault, std::nullopt);
        EXPECT_LE(lived.waits, unharmed.waits + kMoreWaits);
        expectEachIsClosedOnce(callsOf(lived.trace));
        count(fault);
      }
    }
  }

  // Lives it with something that happens, at each moment at which nothing else does. The loop learns of a jump of the
  // clock when its wait is over, so nothing comes in between.
  void disturb(const Life& life, Incident incident) {
    const LivedWithLoop unharmed = liveUnharmed(life);
    for (incident.at = 50ms; incident.at < life.end && !HasFailure(); incident.at += 50ms) {
      if (hasInput(life, incident.at, incident.kind == Incident::kJump ? kRound : 0ms)) continue;
      SCOPED_TRACE(life.name + " at " + std::to_string(incident.at.count()) + " ms");
      expectLife(courseWith(life, incident), liveWithLoop(life, std::nullopt, incident), unharmed.waits);
    }
  }

 private:
  static LivedWithLoop liveUnharmed(const Life& life) {
    const LivedWithLoop lived = liveWithLoop(life, std::nullopt, std::nullopt);
    expectLife(LoopCourse(life), lived, lived.waits);
    return lived;
  }

  static void expectLife(const LoopCourse& course, const LivedWithLoop& lived, int waits) {
    const Expected should = expected(course.course);
    EXPECT_EQ(lived.log, comparable(should.log));
    EXPECT_EQ(lived.loopLog, course.log);
    EXPECT_EQ(lived.events, should.events);
    EXPECT_EQ(lived.end, should.end);
    EXPECT_LE(lived.waits, waits + kMoreWaits);
    expectEachIsClosedOnce(callsOf(lived.trace));
  }

  static bool hasInput(const Life& life, milliseconds at, milliseconds length) {
    const auto isThen = [=](const auto& input) { return input.at >= at && input.at <= at + length; };
    return std::any_of(life.lines.begin(), life.lines.end(), isThen) ||
           std::any_of(life.records.begin(), life.records.end(),
                       [&](const auto& records) { return std::any_of(records.begin(), records.end(), isThen); });
  }

  static LoopCourse courseWith(const Life& life, const Incident& incident) {
    LoopCourse result(life);
    const auto isBefore = [&](const auto& input) { return input.at < incident.at; };
    if (incident.kind == Incident::kLoss) {
      const bool isRemote = incident.source == kRemote;
      const auto before = isRemote ? std::count_if(life.lines.begin(), life.lines.end(), isBefore)
                                   : std::count_if(life.records[incident.source].begin(),
                                                   life.records[incident.source].end(), isBefore);
      result.course.readable[incident.source] = static_cast<std::size_t>(before);
      result.log = {"loop: ERROR Lost the " + std::string(kSourceNames[incident.source]) +
                    ", errno = " + std::to_string(isRemote ? 0 : ENODEV)};
    } else if (incident.kind == Incident::kJump) {
      const auto lines = std::count_if(life.lines.begin(), life.lines.end(), isBefore);
      result.course.jump = ClockJump{incident.at, static_cast<std::size_t>(lines)};
      Life& jumping = result.course.life;
      const auto jump = [&](auto& input) {
        if (!isBefore(input)) input.at += incident.jump;
      };
      std::for_each(jumping.lines.begin(), jumping.lines.end(), jump);
      for (std::vector<Record>& records : jumping.records) std::for_each(records.begin(), records.end(), jump);
      jumping.end += incident.jump;
    }
    return result;
  }
};

TEST_F(LoopTorture, EveryCallOfALoopFailsOnce) {
  for (const Life& life : {setUpByPath(), typing(), pointing(), remote(), linesInPairs(), allSources()}) {
    torture(life, eachError);
  }
  EXPECT_EQ(tried, everyErrorOf({Call::kPoll, Call::kRead, Call::kRecv, Call::kWrite, Call::kPipe2, Call::kGettimeofday,
                                 Call::kClose}));
}

TEST_F(LoopTorture, EveryReadOfALoopGivesNothingOnce) {
  for (const Life& life : {typing(), pointing(), remote(), allSources()}) torture(life, anEmptyRead);
}

TEST_F(LoopTorture, EveryReadOfALineGivesTooLittleOnce) { torture(remote(), partsOfALine); }

TEST_F(LoopTorture, EveryReadOfRecordsGivesAPartOfOneOnce) {
  for (const Life& life : {typing(), pointing(), allSources()}) endure(life, partsOfARecord);
}

TEST_F(LoopTorture, ASignalComesAtEachMoment) {
  for (const Life& life : {typing(), pointing(), remote(), linesInPairs(), allSources()}) {
    disturb(life, {Incident::kSignal, 0ms});
  }
}

TEST_F(LoopTorture, EachSourceGoesAtEachMoment) {
  disturb(typing(), {Incident::kLoss, 0ms, kKeyboard});
  disturb(pointing(), {Incident::kLoss, 0ms, kMouse});
  disturb(remote(), {Incident::kLoss, 0ms, kRemote});
  for (const Source source : {kMouse, kKeyboard, kRemote}) disturb(allSources(), {Incident::kLoss, 0ms, source});
}

TEST_F(LoopTorture, TheClockJumpsAtEachMoment) {
  for (const milliseconds jump : {milliseconds(1h), milliseconds(-1h)}) {
    for (const Life& life : {typing(), pointing(), remote(), linesInPairs(), allSources()}) {
      disturb(life, {Incident::kJump, 0ms, kMouse, jump});
    }
  }
}

}  // namespace
}  // namespace quarlo::test::torture
