#pragma once
// What happens when the program fails: an offer to save, and reports that a person can send.

#include <string>

/// The failure hook of a shell: offers once to save, writes changed maps and objects into a recovery folder below the
/// documents directory, says so, and ends the process. Runs on the main thread; on a worker only when the main thread
/// did not take the failure up in time, and then saves without asking. Never returns.
void QLM_TryToSaveAfterException(const std::string& text);
/// Starts the thread that waits for F9 or SIGUSR1 and dumps the state to "%sSendMeToQuillmere.txt".
void QLM_StartStateDumpThread();
void QLM_StopStateDumpThread();
/// Asks the dump thread for a dump. Any thread, signal-safe.
void QLM_RequestStateDump();
/// SIGTERM: no question; recovery files, end of log, exit.
void QLM_InstallTerminationHandler();
