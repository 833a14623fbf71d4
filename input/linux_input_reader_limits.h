// The figures of LinuxInputReader, for programs that check a path before init(), try timeouts, or explain which devices
// the reader found and why it skipped others. Each figure stands only here: the reader and everything else take it from
// here, and tests compare what documents say with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quarlo::components::input {

// ---- Finding devices ----------------------------------------------------------------------------

// If it is given no path for a device, init() searches /dev/input/event10 down to event0.
constexpr int kHighestScannedNode = 10;

// listLinuxInputReader() reports /dev/input/event0 to event9.
constexpr int kHighestListedNode = 9;

// ---- Reading ------------------------------------------------------------------------------------

// The longest timeout of readInput(), in ms: a longer one wraps when it becomes 32-bit microseconds.
constexpr std::int32_t kLongestTimeoutMs = INT32_MAX / 1000;

// How many records that are not keys or buttons one drain of a device reads.
constexpr int kRecordsPerDrain = 20;

// Two presses of a button that are less than this apart count as a double click, in ms.
constexpr std::int32_t kClickWindowMs = 400;

// ---- The remote ---------------------------------------------------------------------------------

// Where init() searches for the LIRC daemon's socket, in this order: first today's place, then those of older
// distributions.
constexpr const char* kLircSocketPaths[] = {"/var/run/lirc/lircd", "/var/lircd", "/dev/lircd", "/dev/lirc/lircd"};

// How many characters the path of the socket can have; a longer one aborts the process.
constexpr std::size_t kLongestLircPath = 107;

// How many bytes one read of the socket takes. Only the first line in them counts.
constexpr std::size_t kLircReadSize = 127;

// The prefixes that are removed from a button's name, each once and in this order. Case does not matter, in any locale.
constexpr std::string_view kLircButtonPrefixes[] = {"KEY_NUMERIC_", "KEY_"};

// The environment variables with the two timeouts, and the defaults in ms.
constexpr const char* kRepeatTimeoutVariable = "LIRC_REPEAT_TIMEOUT";
constexpr const char* kReleaseTimeoutVariable = "LIRC_RELEASE_TIMEOUT";
constexpr std::int32_t kDefaultRepeatTimeoutMs = 100;
constexpr std::int32_t kDefaultReleaseTimeoutMs = 300;

}  // namespace quarlo::components::input
