#pragma once
// The named commands, run alike from controls, hotkeys and scripts.

#include "Engine/QLM_Manager.h"

#include <functional>
#include <map>

struct QLM_Command {
    std::function<void(int value)> run; ///< empty while nothing stands behind the name
    int controls = 0;
};

/// The table of commands by name. Main thread.
class QLM_CommandTable {
  public:
    static QLM_CommandTable& Get();
    bool HasCommand(const std::string& name) const { return commands.count(name) != 0; }
    /// Runs a command; false for an unknown name or one that does not act, with a reason.
    bool RunCommand(const std::string& name, int value, std::string& error);
    const std::map<std::string, QLM_Command>& GetCommands() const { return commands; }

  private:
    QLM_CommandTable();
    std::map<std::string, QLM_Command> commands;
};

class QLM_HotkeyManager : public QLM_Manager {};
