#pragma once
// What happens when the program fails: an offer to save, and reports that a person can send.

#include <string>

/// The failure hook of a shell: offers once to save, writes changed maps and objects into a recovery folder below the
/// documents directory, says so, and ends the process. Runs on the main thread; on a worker only when the main thread
/// did not take the failure up in time, and then saves without asking. An offer that nobody answers for 30 seconds
/// counts as accepted: the save then runs beside the standing question. Never returns.
void QLM_TryToSaveAfterException(const std::string& text);
/// Starts the thread that waits for F9 or SIGUSR1 and dumps the state to "%sSendMeToQuillmere.txt". Main thread, while
/// the engine runs.
void QLM_StartStateDumpThread();
/// Ends the thread and puts the handlers of SIGUSR1 and SIGTERM back. Main thread, before the program stops.
void QLM_StopStateDumpThread();
/// Asks the dump thread for a dump. Any thread, signal-safe.
void QLM_RequestStateDump();
/// SIGTERM: no question; recovery files, end of log, exit with status 143. The next idle pass does it, or the state
/// dump thread when the main thread is busy for 5 seconds; so that thread must run.
void QLM_InstallTerminationHandler();
/// The same as SIGTERM asks for. Main thread or state dump thread. Never returns.
[[noreturn]] void QLM_SaveAndTerminate();
/// True from the first moment of a save on; there is never a second one. Any thread.
bool QLM_IsRecoveryUnderWay();
