// Times as the reader keeps them.
#pragma once

#include <sys/time.h>

namespace quarlo::tools {

inline bool isSameTime(const timeval& a, const timeval& b) { return a.tv_sec == b.tv_sec && a.tv_usec == b.tv_usec; }

}  // namespace quarlo::tools
