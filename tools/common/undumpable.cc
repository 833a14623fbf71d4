#include "tools/common/undumpable.h"

#include <sys/prctl.h>

namespace quarlo::tools {

Undumpable::Undumpable() : before_(prctl(PR_GET_DUMPABLE)) { prctl(PR_SET_DUMPABLE, 0); }

// A program that has ended is looked through for leaks by a tracer, in builds with sanitizers.
Undumpable::~Undumpable() { prctl(PR_SET_DUMPABLE, before_); }

}  // namespace quarlo::tools
