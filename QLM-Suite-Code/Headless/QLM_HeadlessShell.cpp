#include "Headless/QLM_HeadlessShell.h"

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Script/QLM_ScriptPlayer.h"

#include <algorithm>
#include <cstdio>

namespace {

/// One line on standard error, whatever line feeds the text holds.
void PrintLine(const std::string& text) {
    std::string line = text;
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::replace(line.begin(), line.end(), '\r', ' ');
    std::fprintf(stderr, "message: %s\n", line.c_str());
}

} // namespace

void QLM_InstallHeadlessCallbacks() {
    QLM_OSCallbacks callbacks;
    callbacks.printMessage = PrintLine;
    callbacks.messageBox = [](const std::string&, const std::string& text) { PrintLine(text); };
    QLM_OS::Get().SetCallbacks(std::move(callbacks));
}

int QLM_RunHeadlessScript(const std::string& script, const std::string& outFolder) {
    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    QLM_ScriptShell shell;
    shell.setCanvasSize = [viewports](int width, int height) {
        viewports->SetCanvasSize(width, height);
        return true;
    };
    shell.idlePass = [] { return QLM_GetEngine()->IdlePass(); };
    shell.drawFrame = [] { QLM_GetEngine()->DrawFrame(); };
    viewports->SetCanvasSize(1280, 720);
    return QLM_ScriptPlayer(shell, outFolder, stdout).Play(script);
}
