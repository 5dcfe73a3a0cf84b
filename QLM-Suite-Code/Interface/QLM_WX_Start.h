#pragma once
// The door into the shell with windows; knows nothing of the toolkit, so that process entry need not either.

#include "Engine/QLM_Engine.h"

#include <functional>
#include <string>
#include <vector>

/// What the window shell is to show, and the steps of the start that only the composition root can do.
struct QLM_WindowOptions {
    std::vector<std::string> files; ///< imported one after another once the program runs
    std::string script, outFolder;  ///< a script plays in the window and ends the program; empty: a user's session
    bool verbose = false;           ///< messages also go to standard error

    std::function<void()> startLogging;
    std::function<bool(std::string& error)> startCoreModules;
    std::function<bool(const QLM_ShellCallbacks& shell, std::string& error)> startModules;
    std::function<void()> startStateDumpThread, requestStateDump;
    std::function<void()> startFailureRoad; ///< the offer to save and the end by a signal, from here on
    std::function<void()> stopProgram;
};

/// True when there is a display that the toolkit can open. Main thread, before QLM_RunWindow.
bool QLM_CanOpenDisplay();
/// Runs the window to the end of the process; the exit status where the start fails. Main thread, once.
int QLM_RunWindow(const char* programName, QLM_WindowOptions options);
