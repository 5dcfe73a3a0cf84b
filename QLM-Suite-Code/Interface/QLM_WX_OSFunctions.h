#pragma once
// What the OS layer has the shell do: messages, questions, file dialogs, the busy state.

#include <string>
#include <vector>

namespace QLM::GUI {

class App;

/// Hands the OS layer its callbacks. Under a script there are no boxes: questions go to the script's answers.
void QLM_SetupOSfunctions(App& app);
void ShowMessageBox(const std::string& caption, const std::string& text);
/// Files to open, any number; empty for cancel.
std::vector<std::string> AskFilesToImport(const std::string& folder);

} // namespace QLM::GUI
