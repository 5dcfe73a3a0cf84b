// Statements of the canvas, the views and the pictures.

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Events.h"
#include "Images/QLM_ImageLoader.h"
#include "Math/QLM_Random.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Script/QLM_ScriptState.h"

namespace {

QLM_ViewportManager& Viewports() { return *QLM_GetManagers().GetViewportManager(); }

/// Reads `count` numbers behind the statement's name.
bool Numbers(const QLM_ScriptWords& words, size_t count, double* out, std::string& error) {
    for (size_t i = 0; i < count; ++i)
        if (!QLM_ParseNumber(words[i + 1], out[i])) {
            error = "\"" + words[i + 1] + "\" is not a number";
            return false;
        }
    return true;
}

bool Canvas(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    long long width, height;
    if (!QLM_ParseInteger(words[1], 16, 16384, width) || !QLM_ParseInteger(words[2], 16, 16384, height)) {
        error = "a canvas is 16 to 16384 pixels wide and high";
        return false;
    }
    if (state.shell.setCanvasSize(static_cast<int>(width), static_cast<int>(height))) return true;
    error = "the canvas can't be made exactly " + words[1] + " x " + words[2];
    return false;
}

bool Seed(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    long long seed;
    if (!QLM_ParseInteger(words[1], 1, 0x3FFFFFFF, seed)) {
        error = "a seed is a whole number from 1 to 1073741823";
        return false;
    }
    QLM_SetScriptSeed(static_cast<uint32_t>(seed));
    QLM_SeedRandom(static_cast<uint32_t>(seed));
    return true;
}

bool Viewport(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    long long index;
    if (!QLM_ParseInteger(words[1], 0, 3, index)) {
        error = "a viewport is 0 to 3";
        return false;
    }
    Viewports().SetCurrentViewport(static_cast<int>(index));
    return true;
}

bool View(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    static const char* const names[] = {"front", "back", "left", "right", "top", "bottom"};
    for (int i = 0; i < 6; ++i)
        if (words[1] == names[i]) {
            QLM_PostEvent(QLM_Event_ViewFront + i);
            return true;
        }
    error = "a view is front, back, left, right, top or bottom, not \"" + words[1] + "\"";
    return false;
}

bool Orbit(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    double angle[2];
    if (!Numbers(words, 2, angle, error)) return false;
    Viewports().Orbit(Viewports().GetCurrentViewport(), static_cast<float>(angle[0]), static_cast<float>(angle[1]));
    return true;
}

bool Zoom(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    double factor;
    if (!Numbers(words, 1, &factor, error)) return false;
    if (factor < 0.001 || factor > 1000.0) {
        error = "a zoom factor is 0.001 to 1000";
        return false;
    }
    // Zoom is an extent: nearer is smaller.
    Viewports().ApplyZoom(Viewports().GetCurrentViewport(), static_cast<float>(1.0 / factor));
    return true;
}

bool Frame(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    QLM_FrameMode mode;
    if (words[1] == "object") mode = QLM_FrameMode::Object;
    else if (words[1] == "selection") mode = QLM_FrameMode::Selection;
    else if (words[1] == "project") mode = QLM_FrameMode::Project;
    else {
        error = "frame takes object, selection or project, not \"" + words[1] + "\"";
        return false;
    }
    if (Viewports().Frame(Viewports().GetCurrentViewport(), mode)) return true;
    error = QLM_OS::Get().recorded.empty() ? "there is nothing to frame" : QLM_OS::Get().recorded.back().text;
    return false;
}

bool Channel(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    static const char* const names[] = {"Color",    "Bump",   "Transparency", "Displacement",
                                        "Specular", "Glossy", "Ambient"};
    for (const char* name : names)
        if (words[1] == name) {
            QLM_Viewport* viewport = Viewports().GetCurrentViewport();
            viewport->MaterialChannelName = name;
            viewport->DisplayMode = 3;
            viewport->OnViewChanged();
            return true;
        }
    error =
        "a channel is Color, Bump, Transparency, Displacement, Specular, Glossy or Ambient, not \"" + words[1] + "\"";
    return false;
}

bool Cull(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    bool known = false;
    const QLM_CullingMethod method = QLM_CullingMethodFromName(words[1], &known);
    if (!known) {
        error = "unknown culling method \"" + words[1] + "\"";
        return false;
    }
    if (QLM_GetManagers().GetCullingManager()->SetMethod(method)) return true;
    error = "the culling method \"" + words[1] + "\" is not available";
    return false;
}

bool Screenshot(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    long long index = -1;
    if (words.size() > 2 && !QLM_ParseInteger(words[2], 0, 3, index)) {
        error = "a viewport is 0 to 3";
        return false;
    }
    if (index >= 0 && !Viewports().GetViewport(static_cast<int>(index))->IsShown()) {
        error = "viewport " + words[2] + " is not shown";
        return false;
    }
    Viewports().FinishRenders();
    std::vector<uint8_t> rgb;
    int width = 0, height = 0;
    Viewports().ReadPicture(static_cast<int>(index), rgb, width, height);
    const std::string path = state.WritePath(words[1]);
    QLM_CreateDirectory(QLM_FolderOf(path));
    return SaveMapToFile(path, rgb.data(), static_cast<uint32_t>(width), static_cast<uint32_t>(height), false, error);
}

bool Idle(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    long long passes = 1;
    if (words.size() > 1 && !QLM_ParseInteger(words[1], 1, 100000, passes)) {
        error = "idle takes 1 to 100000 passes";
        return false;
    }
    // Settling behind the statement makes the last one.
    for (long long i = 1; i < passes; ++i)
        if (!state.Settle(error)) return false;
    return true;
}

} // namespace

void QLM_AddViewStatements(QLM_ScriptTable& table) {
    table["canvas"] = {2, 2, Canvas};
    table["seed"] = {1, 1, Seed};
    table["viewport"] = {1, 1, Viewport};
    table["view"] = {1, 1, View};
    table["orbit"] = {2, 2, Orbit};
    table["zoom"] = {1, 1, Zoom};
    table["frame"] = {1, 1, Frame};
    table["channel"] = {1, 1, Channel};
    table["cull"] = {1, 1, Cull};
    table["screenshot"] = {1, 2, Screenshot};
    table["idle"] = {0, 1, Idle};
}
