// KwPlatformSignal: the requests to stop that come from outside (SIGINT and SIGTERM; Ctrl+C, Ctrl+Break and
// the closing of its window at a Windows console).
//
// While they are caught the first one only sets a flag that the main loop reads; the second
// ends the process at once as if nothing were caught, terminal modes put back.
// Thread-safety: any thread.
#pragma once

namespace KwPlatform {

// Starts or ends catching, and forgets a request. A signal that the host handles or ignores itself stays
// the host's. Calls do not nest: the last one counts.
void SignalCatchStop(bool on);

// Whether a request came since catching began; a plain read.
bool SignalStopRequested();

}  // namespace KwPlatform
