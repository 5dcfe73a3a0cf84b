#pragma once
// Parser and player of scripts: one statement a line, settled after each.

#include "Core/OS/QLM_Clock.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

/// Words of a line, split at blanks, "..." keeping blanks with \" and \\ as escapes; '#' begins a comment.
/// False with a reason for an open quote or a bad escape.
bool QLM_SplitScriptLine(const std::string& line, std::vector<std::string>& words, std::string& error);

/// What the player needs of the shell that it runs in.
struct QLM_ScriptShell {
    /// Sizes the canvas; false when the window can't get exactly that.
    std::function<bool(int width, int height)> setCanvasSize;
    /// One idle pass of the shell; false when it could not run.
    std::function<bool()> idlePass;
    std::function<void()> drawFrame;
};

/// Plays one script against the engine. Main thread.
class QLM_ScriptPlayer {
  public:
    QLM_ScriptPlayer(QLM_ScriptShell shell, std::string outFolder, FILE* reportStream);
    ~QLM_ScriptPlayer();
    /// 0 at the end of the script; 1 when a statement failed, with "FILE:LINE: what was wrong" on standard error.
    int Play(const std::string& path);

  private:
    struct State;
    State* state;
};
