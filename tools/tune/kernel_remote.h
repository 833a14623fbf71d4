// What a remote sends that the kernel decodes: imagined from its protocol, or recorded from its node.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "recording/session.h"
#include "tools/common/node_facts.h"
#include "tools/tune/remote_lines.h"

namespace quarlo::tools::tune {

// What the kernel sets for remotes (rc_setup_rx_device() of drivers/media/rc/rc-main.c) and for other nodes
// (input_register_device() of drivers/input/input.c).
constexpr NodeRepeat kRemotesRepeat{500, 125};
constexpr NodeRepeat kKeyboardsRepeat{250, 33};

// Of a recording in which buttons are down for longer altogether, some presses stand for all; and of each press, not
// more than its beginning is studied: it goes on as it began.
constexpr std::chrono::seconds kMostStudiedTime{60};
constexpr std::chrono::seconds kMostOfAPress{5};

// A remote of that protocol: one tap, and one button that is held.
// REQUIRES: the tap is shorter than kShortestHold, and `hold` is not.
Remote imagineKernelRemote(const Protocol& protocol, microseconds hold, const NodeRepeat& now);

// Whether a key was pressed that is one for the reader.
bool hasKeyPress(const recording::DeviceRecording& node);

// What was recorded of a node. `now` is how it repeats; without it, what the recording shows, or else kRemotesRepeat.
// Pauses between presses are cut to a second. Throws recording::Error, with the name of what was recorded, if there is
// nothing to study in it.
Remote recordedKernelRemote(const recording::DeviceRecording& node, const std::string& name,
                            const std::optional<NodeRepeat>& now);

}  // namespace quarlo::tools::tune
