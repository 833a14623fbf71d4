#include "tests/torture/torture.h"

#include <cstdio>
#include <iterator>
#include <optional>
#include <sstream>

#include "tests/torture/failure.h"
#include "tests/torture/living.h"
#include "tests/torture/model.h"

namespace quarlo::test::torture {

void expectEachIsClosedOnce(const Calls& calls) {
  std::set<std::string> open;
  for (const TracedCall& call : calls) {
    if ((call.call == Call::kOpen || call.call == Call::kSocket) && call.succeeded) open.insert(call.result);
    if (call.call == Call::kPipe2 && call.succeeded) {
      std::istringstream ends(call.result.substr(call.result.find('[') + 1));
      int end;
      while (ends >> end) open.insert(std::to_string(end));
    }
    if (call.call != Call::kClose || call.firstArgument == "-1") continue;
    EXPECT_EQ(open.erase(call.firstArgument), 1U) << call.line;
  }
  EXPECT_EQ(open, std::set<std::string>());
}

namespace {

// Checks that the first wait, and each after a wait that failed, is for all sources, and every other wait for those
// that the wait before left; and that after each wait, whatever it gave, the sources are read, the keyboard first.
void expectTheRightWaits(const Lived& lived, const Calls& calls) {
  std::string all;
  int readFirst = -1;
  for (const int fd : {lived.fds[kRemote], lived.fds[kMouse], lived.fds[kKeyboard]}) {
    if (fd != -1) readFirst = fd;
  }
  for (const int fd : lived.fds) {
    if (fd != -1) all += (all.empty() ? "[" : " ") + std::to_string(fd);
  }
  all += "]";
  std::string watched = all;
  for (auto call = calls.begin(); call != calls.end(); ++call) {
    if (call->call != Call::kSelect) continue;
    EXPECT_NE(call->line.find(", " + watched + ","), std::string::npos) << call->line << " instead of " << watched;
    EXPECT_TRUE(isReadOf(*std::next(call), readFirst)) << std::next(call)->line << " after " << call->line;
    watched = call->result == "0" ? "[]" : call->result.substr(call->result.find(' ') + 1);
    if (!call->succeeded) watched = all;
  }
}

void expectOutcome(const Expected& should, const Lived& lived) {
  EXPECT_EQ(lived.opened, should.opened);
  EXPECT_EQ(lived.log, comparable(should.log));
  EXPECT_EQ(lived.events, should.events);
  EXPECT_EQ(lived.end, should.end);
  if (lived.trace.empty()) return;
  const Calls calls = callsOf(lived.trace);
  expectEachIsClosedOnce(calls);
  expectTheRightWaits(lived, calls);
}

}  // namespace

std::set<std::string> everyErrorOf(const std::vector<Call>& calls) {
  std::set<std::string> kinds;
  for (const Call call : calls) {
    for (const int error : errorsOf(call)) kinds.insert(kindOf({call, 1, error, {}}));
  }
  return kinds;
}

void TortureTest::TearDownTestSuite() {
  int total = 0;
  std::string each;
  for (const auto& [call, number] : allFaults_) {
    total += number;
    each += (each.empty() ? "" : ", ") + nameOf(call) + " " + std::to_string(number);
  }
  std::printf("%d faults: %s\n", total, each.c_str());
}

void TortureTest::TearDown() { RecordProperty("faults", faults_); }

void TortureTest::torture(const Life& life, FaultsOf faultsOf) {
  const Expected unharmed = expected(Course(life));
  const Lived lived = live(life, unharmed.paths, std::nullopt);
  expectOutcome(unharmed, lived);
  const Calls calls = callsOf(lived.trace);
  for (std::size_t index = 0; index < calls.size(); ++index) {
    for (const Fault& fault : faultsOf(calls[index])) {
      SCOPED_TRACE(describe(life.name, calls[index], fault));
      const Expected harmed = expected(courseWith(fault, life, calls, lived.fds, index));
      expectOutcome(harmed, live(life, harmed.paths, fault));
      count(fault);
      if (HasFailure()) return;  // the first one is enough to look into
    }
  }
}

void TortureTest::count(const Fault& fault) {
  ++allFaults_[fault.call];
  ++faults_;
  tried.insert(kindOf(fault));
}

}  // namespace quarlo::test::torture
