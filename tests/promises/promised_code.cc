// Code of an application that is to compile with each later version: what interface.txt does not hold, which is
// constants that are texts, and default arguments.
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

#include "input/input_loop.h"
#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"

namespace quarlo::components::input {

static_assert(std::string_view(kRepeatTimeoutVariable) == "LIRC_REPEAT_TIMEOUT");
static_assert(std::string_view(kReleaseTimeoutVariable) == "LIRC_RELEASE_TIMEOUT");

static_assert(std::size(kLircSocketPaths) == 4);
static_assert(std::string_view(kLircSocketPaths[0]) == "/var/run/lirc/lircd");
static_assert(std::string_view(kLircSocketPaths[1]) == "/var/lircd");
static_assert(std::string_view(kLircSocketPaths[2]) == "/dev/lircd");
static_assert(std::string_view(kLircSocketPaths[3]) == "/dev/lirc/lircd");

static_assert(std::size(kLircButtonPrefixes) == 2);
static_assert(kLircButtonPrefixes[0] == "KEY_NUMERIC_");
static_assert(kLircButtonPrefixes[1] == "KEY_");

using WithoutOwnDescriptor = decltype(std::declval<InputLoop&>().wait(0));

}  // namespace quarlo::components::input

namespace quarlo::sim {

using WithoutName =
    std::tuple<decltype(Device::keyboard()), decltype(Device::mouse()), decltype(Device::touchscreen())>;
using WithoutPath = decltype(std::declval<Machine&>().addLircDaemon());
using OfRead = decltype(std::declval<Machine&>().truncateRead(1, 0));
using OfFirstLine = decltype(std::declval<LircDaemon&>().send("KEY_OK"));

}  // namespace quarlo::sim
