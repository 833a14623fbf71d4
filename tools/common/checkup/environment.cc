#include "tools/common/checkup/environment.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "input/linux_input_reader_limits.h"

namespace quarlo::tools::checkup {
namespace {

using components::input::kDefaultReleaseTimeoutMs;
using components::input::kDefaultRepeatTimeoutMs;
using components::input::kReleaseTimeoutVariable;
using components::input::kRepeatTimeoutVariable;

// Lines of a remote come some 45 ms apart or more, and a button that repeats is forgotten after twice the repeat
// timeout: below half of that, each line of a held button is a press of its own.
constexpr std::int64_t kShortestMs = 23;

// Nobody holds a button for so long: this is a number of microseconds.
constexpr std::int64_t kLongestMs = 10000;

std::optional<std::string> variable(const char* name) {
  const char* value = getenv(name);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

// One of the two.
struct Timeout {
  const char* name;
  const std::optional<std::string>& text;
  std::int32_t fallbackMs;
};

std::string ms(std::int64_t time) { return std::to_string(time) + " ms"; }

// As the reader takes it: what follows the number does not matter, and one that is not positive is the default.
std::int64_t numberIn(const std::string& text, std::string& rest) {
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  rest = end;
  return std::clamp<std::int64_t>(number, INT32_MIN, INT32_MAX);
}

std::int64_t inForce(const Timeout& timeout) {
  std::string rest;
  const std::int64_t number = timeout.text ? numberIn(*timeout.text, rest) : 0;
  return number > 0 ? number : timeout.fallbackMs;
}

void checkTimeout(const Timeout& timeout, Findings& findings) {
  if (!timeout.text) return;
  std::string rest;
  const std::int64_t number = numberIn(*timeout.text, rest);
  const std::string quoted = "\"" + *timeout.text + "\"";
  const std::string remedy = "Set it to a whole number of milliseconds above 0, such as " +
                             std::to_string(timeout.fallbackMs) + ", or unset it";
  if (number <= 0) {
    findings.push_back({Problem::kTimeoutIgnored,
                        quoted + " is not a number above 0: the default of " + ms(timeout.fallbackMs) + " is in force",
                        timeout.name, remedy});
  } else if (rest.find_first_not_of(" \t\n") != std::string::npos) {
    findings.push_back({Problem::kTimeoutMisread, quoted + " is taken for " + ms(number) + ": the rest is not read",
                        timeout.name, remedy});
  } else if (number < kShortestMs || number > kLongestMs) {
    findings.push_back({Problem::kTimeoutUnusable,
                        ms(number) + (number < kShortestMs ? " is shorter than any remote's pause between lines"
                                                           : " is longer than anybody holds a button"),
                        timeout.name, "Let `quarlo-input tune` find one; it is a number of milliseconds"});
  }
}

}  // namespace

EnvironmentFacts gatherEnvironment() { return {variable(kRepeatTimeoutVariable), variable(kReleaseTimeoutVariable)}; }

Findings checkEnvironment(const EnvironmentFacts& facts) {
  const Timeout repeat = {kRepeatTimeoutVariable, facts.repeatTimeout, kDefaultRepeatTimeoutMs};
  const Timeout release = {kReleaseTimeoutVariable, facts.releaseTimeout, kDefaultReleaseTimeoutMs};
  Findings findings;
  checkTimeout(repeat, findings);
  checkTimeout(release, findings);
  if (findings.empty() && inForce(release) <= inForce(repeat)) {
    findings.push_back({Problem::kTimeoutUnusable,
                        "The release timeout (" + ms(inForce(release)) + ") is not longer than the repeat timeout (" +
                            ms(inForce(repeat)) + "): a held button has no slower start, and repeats slowly",
                        std::string(release.name) + ", " + repeat.name,
                        "Let `quarlo-input tune` find both, or unset them"});
  }
  return findings;
}

}  // namespace quarlo::tools::checkup
