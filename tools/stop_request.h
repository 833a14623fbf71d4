// Ctrl-C and SIGTERM as a request to stop.
#pragma once

namespace quarlo::tools {

// To call once, before the loop. The second request ends the program as if the first had not been caught.
void catchStopRequests();

// Whether a stop was requested.
bool stopRequested();

}  // namespace quarlo::tools
