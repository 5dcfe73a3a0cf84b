#pragma once
// Player of scripts: one statement a line, settled after each.

#include <cstdio>
#include <functional>
#include <string>

/// What the player needs of the shell that it runs in.
struct QLM_ScriptShell {
    /// Sizes the canvas; false when the shell can't get exactly that.
    std::function<bool(int width, int height)> setCanvasSize;
    /// One idle pass of the shell; false when it could not run.
    std::function<bool()> idlePass;
    std::function<void()> drawFrame;
};

struct QLM_ScriptState;

/// Plays one script against the engine. Main thread.
class QLM_ScriptPlayer {
  public:
    /// Relative paths that are written are taken from `outFolder`; reports go to `reportStream`.
    QLM_ScriptPlayer(QLM_ScriptShell shell, std::string outFolder, FILE* reportStream);
    ~QLM_ScriptPlayer();
    QLM_ScriptPlayer(const QLM_ScriptPlayer&) = delete;
    QLM_ScriptPlayer& operator=(const QLM_ScriptPlayer&) = delete;

    /// 0 at the end of the script; 1 when a statement failed, with "FILE:LINE: what was wrong" on standard error.
    int Play(const std::string& path);

  private:
    QLM_ScriptState* state;
};
