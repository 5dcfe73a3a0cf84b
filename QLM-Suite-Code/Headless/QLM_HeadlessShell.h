#pragma once
// The shell without windows: plays a script and writes pictures and reports.

#include <string>

/// Hands the OS layer its callbacks: messages go to standard error, a line each, questions to the script's answers.
void QLM_InstallHeadlessCallbacks();
/// Plays a script; the exit status of the program (0, or 1 when a statement failed). Main thread, engine running.
int QLM_RunHeadlessScript(const std::string& script, const std::string& outFolder);
