#pragma once
// Plays a script in the window.

#include <string>

namespace QLM::GUI {

class MainWindow;

/// The exit status of the program: 0, or 1 when a statement failed. Main thread, inside the main loop.
int QLM_PlayScriptInWindow(MainWindow& window, const std::string& script, const std::string& outFolder);

} // namespace QLM::GUI
