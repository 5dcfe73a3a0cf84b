#include "Interface/QLM_WX_ScriptShell.h"

#include "Engine/QLM_Engine.h"
#include "Interface/QLM_WX_App.h"
#include "Interface/QLM_WX_GLCanvas.h"
#include "Interface/QLM_WX_MainWindow.h"
#include "Script/QLM_ScriptPlayer.h"

#include <wx/evtloop.h>

namespace QLM::GUI {

namespace {

constexpr int DefaultWidth = 1280, DefaultHeight = 720;

} // namespace

int QLM_PlayScriptInWindow(MainWindow& window, const std::string& script, const std::string& outFolder) {
    QLM_ScriptShell shell;
    shell.setCanvasSize = [&window](int width, int height) { return window.SetExactCanvasSize(width, height); };
    shell.idlePass = [&window] {
        TheApp()->DestroyStagedWindows();
        const bool ran = QLM_GetEngine()->IdlePass();
        window.RefreshControls();
        return ran;
    };
    shell.drawFrame = [&window] {
        QLM_GetEngine()->DrawFrame();
        window.GetCanvas()->DrawNow();
        if (wxEventLoopBase* loop = wxEventLoopBase::GetActive()) loop->YieldFor(wxEVT_CATEGORY_UI);
    };
    if (!window.SetExactCanvasSize(DefaultWidth, DefaultHeight)) {
        std::fprintf(stderr, "quillmere: the canvas can't be made exactly %d x %d here\n", DefaultWidth, DefaultHeight);
        return 1;
    }
    return QLM_ScriptPlayer(shell, outFolder, stdout).Play(script);
}

} // namespace QLM::GUI
