// The command `doctor`.
#pragma once

#include <string>

#include "tools/common/sources.h"

namespace quarlo::tools::doctor {

// The sources are those that the application is to read from; the path of the socket may be too long here.
struct DoctorOptions : SourcePaths {
  bool json = false;
  std::string root;  // where the files of the system are looked for: "" but in tests
};

// Returns the exit status: kFailed if something was found.
int run(const DoctorOptions& options);

}  // namespace quarlo::tools::doctor
