// What is said of a session that is played as far as it is whole.
#pragma once

#include "recording/session.h"

namespace quarlo::tools {

// Writes a line for each damage to standard error. Returns the exit status of a command that has done all else.
int sayDamages(const recording::Session& session);

}  // namespace quarlo::tools
