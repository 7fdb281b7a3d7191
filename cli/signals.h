// Interrupting the tool: SIGINT and SIGTERM end a run cleanly. No temporary
// page is left behind, the user is told what was done, and the exit code is
// 128 + the signal (130, 143), as shells report it.
#ifndef SCRIVO_CLI_SIGNALS_H
#define SCRIVO_CLI_SIGNALS_H

#include <string>

namespace scrivo_cli {

// Ignores SIGPIPE, blocks SIGINT and SIGTERM in the calling thread (and so in every thread
// it starts afterwards) and starts the one thread that waits for them. Call
// first thing in main, before any other thread exists.
void InstallSignalHandling();

// A temporary file about to be created. Once the run is being interrupted
// this never returns (the process ends), so nothing is created after the
// temporaries were removed.
void RegisterTemporary(const std::string& path);
// The temporary was renamed or removed.
void ForgetTemporary(const std::string& path);

}  // namespace scrivo_cli

#endif
