// For libstdc++'s headers, which were made for glibc: what they ask of it.
#pragma once

#include <features.h>

#define __GLIBC_PREREQ(major, minor) 0
#define __locale_t locale_t
