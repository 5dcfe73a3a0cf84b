#pragma once
// Makes the whole program from its rooms: modules, engine, managers, tools; and takes it apart again.

#include "Engine/QLM_Engine.h"

#include <string>

struct QLM_WindowOptions;

struct QLM_StartOptions {
    std::string logFolder;       ///< where the log goes; empty: the documents directory
    std::string applicationDirectory; ///< empty: found from the executable's real path
    bool useUserSettings = true; ///< false under a script
    bool installSignalHandlers = true;
    bool singleInstance = false; ///< refuses to start the modules while another instance of the user runs
    int threads = 0;             ///< 0: one for each processor
    uint32_t seed = 0;           ///< 0: chance from the clock
    QLM_ShellCallbacks shell;
};

/// The steps of QLM_StartProgram for a shell that has things to do between them; in this order, main thread, once.
/// Seeds, thread count and the log come first.
void QLM_StartLogging(const QLM_StartOptions& options);
/// The OS layer finds the installation; false with the message to show. The log is ended then.
bool QLM_StartCoreModules(const QLM_StartOptions& options, std::string& error);
/// Modules and the engine, which isn't ready to execute yet; false with the message to show. The log is ended then.
bool QLM_StartModules(const QLM_StartOptions& options, std::string& error);
/// Gives the window's start these steps, the state dump thread and the end. `start` outlives the window.
void QLM_ConnectWindow(QLM_StartOptions& start, QLM_WindowOptions& window);
/// Takes the lock that tells other instances of this user that one runs, and keeps it to the end of the process. False
/// when another one has it. It lies in $XDG_RUNTIME_DIR, else in /tmp.
bool QLM_TakeInstanceLock();

/// Starts logger, OS layer, modules and engine in their binding order. False with one message when the program can't
/// run from here. Main thread, once (again after QLM_StopProgram).
bool QLM_StartProgram(const QLM_StartOptions& options, std::string& error);
/// Stops workhorses, engine and modules and ends the log. Main thread.
void QLM_StopProgram();
