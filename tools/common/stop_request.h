// Ctrl-C, SIGTERM, and a terminal that is closed (SIGHUP), as a request to stop.
#pragma once

namespace quarlo::tools {

// To call once, before the loop. The second Ctrl-C or SIGTERM ends the program as if the first had not been caught.
void catchStopRequests();

// The second Ctrl-C or SIGTERM calls this signal handler instead; SIG_DFL: none.
void onSecondStopRequest(void (*handler)(int));

// Whether a stop was requested.
bool stopRequested();

// A descriptor that is readable once a stop was requested, also before it is waited for; -1 if there is none. Never
// read it. REQUIRES: catchStopRequests() was called.
int stopDescriptor();

// Whether this signal is such a request, or belongs to one.
bool isStopRequest(int signal);

}  // namespace quarlo::tools
