#pragma once
// Makes the whole program from its rooms: modules, engine, managers, tools; and takes it apart again.

#include "Engine/QLM_Engine.h"

#include <string>

struct QLM_StartOptions {
    std::string logFolder;       ///< where the log goes; empty: the documents directory
    std::string applicationDirectory; ///< empty: found from the executable's real path
    bool useUserSettings = true; ///< false under a script
    bool installSignalHandlers = true;
    int threads = 0;             ///< 0: one for each processor
    uint32_t seed = 0;           ///< 0: chance from the clock
    QLM_ShellCallbacks shell;
};

/// Starts logger, OS layer, modules and engine in their binding order. False with one message when the program can't
/// run from here. Main thread, once (again after QLM_StopProgram).
bool QLM_StartProgram(const QLM_StartOptions& options, std::string& error);
/// Stops workhorses, engine and modules and ends the log. Main thread.
void QLM_StopProgram();
