#include "tests/torture/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "input/linux_input_reader_limits.h"

namespace quarlo::test::torture {

using namespace components::input;

namespace {

// Turns the course of a life without a failure into the one with it.
class Failure {
 public:
  Failure(const Calls& calls, const std::array<int, kSources>& fds, std::size_t index, const Fault& fault,
          Course& course)
      : calls_(calls), fds_(fds), index_(index), fault_(fault), course_(course) {}

  void apply() {
    switch (fault_.call) {
      case Call::kGetenv: return failGetenv();
      case Call::kOpen: return failOpen();
      case Call::kIoctl: return failIoctl();
      case Call::kSocket:
      case Call::kConnect: return failConnection();
      case Call::kGettimeofday: return failClock();
      case Call::kRead: return failRead();
      // The sources are read all the same.
      case Call::kSelect:
      // What failed to close is closed.
      case Call::kClose:
      // The reader makes no other calls.
      default: return;
    }
  }

 private:
  const std::string& line() const { return calls_[index_].line; }
  bool has(const std::string& part) const { return line().find(part) != std::string::npos; }

  // The default counts.
  void failGetenv() {
    if (has(kRepeatTimeoutVariable)) course_.repeatTimeout = kDefaultRepeatTimeoutMs;
    if (has(kReleaseTimeoutVariable) || fault_.times > 1) course_.releaseTimeout = kDefaultReleaseTimeoutMs;
  }

  // The source is missing, or the search goes on.
  void failOpen() {
    if (course_.life.search) {
      flaw(has("O_NONBLOCK") ? Flaw::kDoesNotOpenAgain : Flaw::kDoesNotOpen);
      if (fault_.times > 1) flawTheRest(Flaw::kDoesNotOpen);
      return;
    }
    if (has(kGivenPaths[kMouse])) course_.closed.insert(kMouse);
    if (has(kGivenPaths[kKeyboard]) || fault_.times > 1) course_.closed.insert(kKeyboard);
  }

  void failIoctl() {
    struct Question {
      const char* part;  // of its call
      Flaw flaw;
    };
    // In the order in which a search asks them.
    static constexpr Question kQuestions[] = {{"EVIOCGRAB, 1", Flaw::kIsHeld},
                                              {"EVIOCGNAME", Flaw::kHasNoName},
                                              {"EV_REL", Flaw::kHasNoAxes},
                                              {"EV_KEY", Flaw::kHasNoKeys}};
    // A node that cannot be grabbed is grabbed by nobody. A grab that cannot be released ends when its node is closed.
    if (has("EVIOCGRAB, 1") && fault_.error == EINVAL) return flaw(Flaw::kCannotBeHeld);
    bool failed = false;
    for (const Question& question : kQuestions) {
      failed = has(question.part) || (failed && fault_.times > 1);
      if (failed) flaw(question.flaw);
    }
    if (fault_.times > 1) flawTheRest(Flaw::kIsHeld);
  }

  void flaw(Flaw what) { course_.flaws.insert({currentSearch(), nodeOf(calls_, index_), what}); }

  // Also for the nodes that this search has still to look at, and for the next search.
  void flawTheRest(Flaw what) {
    for (const SearchedNode& node : searchedNodes()) {
      if (node.number < nodeOf(calls_, index_)) course_.flaws.insert({currentSearch(), node.number, what});
      if (currentSearch() == kMouse) course_.flaws.insert({kKeyboard, node.number, what});
    }
  }

  // The mouse is searched for first, and its search ends with the second open() of what was found.
  Source currentSearch() const {
    const auto here = calls_.begin() + static_cast<std::ptrdiff_t>(index_);
    const bool mouseFound = std::any_of(calls_.begin(), here, [](const TracedCall& call) {
      return call.call == Call::kOpen && call.line.find("O_NONBLOCK") != std::string::npos;
    });
    return mouseFound ? kKeyboard : kMouse;
  }

  void failConnection() {
    course_.closed.insert(kRemote);
    const auto first = static_cast<std::size_t>(fault_.count) - 1;
    for (int i = 0; i < fault_.times; ++i) course_.failedConnections.insert(first + static_cast<std::size_t>(i));
  }

  // The time is then zero, which matters to a click and to a line. The wait is not shortened, and the next round finds
  // what a quiet remote has to wait for.
  void failClock() {
    const TracedCall& before = calls_[index_ - 1];
    if (isReadOf(before, fds_[kMouse])) {
      course_.clickWithoutTime = readBefore(calls_, index_, fds_[kMouse]) - 1;
    } else if (isReadOf(before, fds_[kRemote]) && before.succeeded) {
      course_.readLineWithoutTime = lastLine();
    } else if (before.call == Call::kGettimeofday && calls_[index_ + 1].call != Call::kSelect) {
      course_.acceptedLineWithoutTime = lastLine();
    }
  }

  std::size_t lastLine() const { return readBefore(calls_, index_, fds_[kRemote]) - 1; }

  void failRead() {
    if (isReadOf(calls_[index_], fds_[kRemote])) return failRemoteRead();
    const Source source = isReadOf(calls_[index_], fds_[kMouse]) ? kMouse : kKeyboard;
    std::vector<Record>& records = course_.life.records[source];
    const std::size_t position = readBefore(calls_, index_, fds_[source]);
    const milliseconds at = position < records.size() ? records[position].at : course_.life.end;
    const Record extra = {at, fault_.bytes ? shortRecord(records, source, position) : endOfReport()};
    records.insert(records.begin() + static_cast<std::ptrdiff_t>(position), extra);
    if (fault_.bytes || fault_.error == EAGAIN) return;
    // The life may be over before the last of them.
    const auto left = std::count_if(calls_.begin() + static_cast<std::ptrdiff_t>(index_), calls_.end(),
                                    [](const TracedCall& call) { return call.call == Call::kRead; });
    const auto failing = static_cast<std::size_t>(std::min<std::ptrdiff_t>(fault_.times, left));
    course_.readErrors.assign(failing, kReadError + std::to_string(fault_.error));
  }

  // What failed is read again later, but the motion up to there is delivered, as at the end of a report.
  static input_event endOfReport() { return makeEvdevRecord(EV_SYN, SYN_REPORT, 0); }

  // A read that gives less than a record, as no kernel does, counts as a whole record: the bytes that are missing are
  // those of the record before, or zero at the start. The record then comes once more.
  input_event shortRecord(const std::vector<Record>& records, Source source, std::size_t position) const {
    input_event record = {};
    const bool goesOn = isReadOf(calls_[index_ - 1], fds_[source]) && calls_[index_ - 1].succeeded;
    if (goesOn) record = records[position - 1].event;
    if (calls_[index_].succeeded) std::memcpy(&record, &records[position].event, *fault_.bytes);
    return record;
  }

  // A read that fails, or ends the stream, is one that finds nothing, and the next one finds what is there.
  void failRemoteRead() {
    if (!fault_.bytes || *fault_.bytes == 0 || !calls_[index_].succeeded) return;
    course_.cutLine = CutLine{readBefore(calls_, index_, fds_[kRemote]), *fault_.bytes};
  }

  const Calls& calls_;
  const std::array<int, kSources>& fds_;
  std::size_t index_;
  const Fault& fault_;
  Course& course_;
};

}  // namespace

Course courseWith(const Fault& fault, const Life& life, const Calls& calls, const std::array<int, kSources>& fds,
                  std::size_t index) {
  Course course(life);
  Failure(calls, fds, index, fault, course).apply();
  return course;
}

}  // namespace quarlo::test::torture
