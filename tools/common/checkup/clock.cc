#include "tools/common/checkup/clock.h"

#include <ctime>

namespace quarlo::tools::checkup {
namespace {

constexpr std::int64_t kStartOf2020 = 1577836800;
constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kYear = 365 * kDay;
constexpr std::int64_t kLastNarrowSecond = INT32_MAX;  // 2038-01-19 03:14:07

std::string dateOf(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts = {};
  char text[32] = "";
  if (gmtime_r(&time, &parts) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &parts);
  return text;
}

}  // namespace

ClockFacts gatherClock() { return {std::time(nullptr), sizeof(std::time_t) == sizeof(std::int32_t)}; }

Findings checkClock(const ClockFacts& facts) {
  const std::string now = "The clock says " + dateOf(facts.seconds);
  // A narrow clock goes on below 1970.
  if (facts.hasNarrowTime && (facts.seconds < 0 || facts.seconds > kLastNarrowSecond - kYear)) {
    return {
        {Problem::kClockEnds,
         now +
             ", and this program, as each with a 32-bit time_t, counts up to 2038-01-19 03:14 UTC: then clicks, and a "
             "button of the remote that is held, are measured wrongly",
         "clock", "Set the clock if it is wrong; otherwise build for 64-bit time (-D_TIME_BITS=64)"}};
  }
  if (facts.seconds >= kStartOf2020) return {};
  return {{Problem::kClockNotSet,
           now + ": it was never set. When the network sets it, a button of the remote that is held then is measured "
                 "wrongly: repeats are skipped, or it is not forgotten",
           "clock",
           "Set it before the application starts (timedatectl, a battery, After=time-sync.target in the unit)"}};
}

}  // namespace quarlo::tools::checkup
