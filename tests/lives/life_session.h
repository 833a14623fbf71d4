// A life as a session: what its sources send, without what becomes of them.
#pragma once

#include "recording/session.h"
#include "tests/lives/life.h"

namespace quarlo::test::lives {

// Lines without an end, what goes and what the clock does are left out.
recording::Session sessionOf(const Life& life);

}  // namespace quarlo::test::lives
