// The pointer's road from the canvas to the current tool.

#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

namespace {

QLM_ToolManager* ToolManager() {
    QLM_Managers* managers = QLM_ManagersOrNull();
    return managers ? managers->GetToolManager() : nullptr;
}

QLM_Tool* CurrentTool() {
    QLM_ToolManager* tools = ToolManager();
    return tools ? tools->GetCurrentTool() : nullptr;
}

/// Repeats a motion for the mirrored points; the tool's own point stays the pointer's.
void SendMirroredMotions(QLM_Tool& tool, QLM_Viewport* viewport, float x, float y) {
    const QLM_ToolManager* tools = ToolManager();
    if (!(tool.ToolFlags & eTool_MirroredStrokes) || (tool.ToolFlags & eTool_NoMirrorEvents)) return;
    const float currentX = tool.CurrentX, currentY = tool.CurrentY;
    if (tools->mirrorX) tool.OnMotion(viewport, -x, y);
    if (tools->mirrorY) tool.OnMotion(viewport, x, -y);
    if (tools->mirrorX && tools->mirrorY) tool.OnMotion(viewport, -x, -y);
    tool.CurrentX = currentX;
    tool.CurrentY = currentY;
}

} // namespace

void QLM_ViewportManager::Normalise(const QLM_Viewport& viewport, float x, float y, float& nx, float& ny) {
    nx = 2.0f * (x - static_cast<float>(viewport.x)) / static_cast<float>(std::max(1, viewport.width)) - 1.0f;
    ny = 1.0f - 2.0f * (y - static_cast<float>(viewport.y)) / static_cast<float>(std::max(1, viewport.height));
}

bool QLM_ViewportManager::PointerPress(int button, float x, float y) {
    QLM_Viewport* viewport = GetViewportAt(x, y);
    QLM_Tool* tool = CurrentTool();
    // While one button holds the pointer the others do nothing.
    if (!viewport || !tool || heldButton >= 0) return false;
    heldButton = button;
    mouseViewport = activeViewport = pointerViewport = viewport->index;
    SetCurrentViewport(viewport->index);
    if (QLM_CullingManager* culling = QLM_CullingManagerOrNull()) culling->RefreshEffectiveMethod();
    // A stroke reads depth, IDs and colours of the picture that the user sees.
    if (!tool->IsViewTool()) FinishRenders();
    float nx, ny;
    Normalise(*viewport, x, y, nx, ny);
    constrainedX = nx;
    constrainedY = ny;
    return tool->OnMouse(viewport, button, QLM_Tool::Press, nx, ny);
}

void QLM_ViewportManager::MoveHeldPointer(float x, float y) {
    QLM_Tool* tool = CurrentTool();
    if (!tool) return;
    // The viewport of the press keeps the pointer, also beyond its edges, unless the tool takes any.
    QLM_Viewport* viewport = viewports[mouseViewport].Get();
    if (tool->ToolFlags & eTool_AnyViewport)
        if (QLM_Viewport* below = GetViewportAt(x, y)) viewport = below;
    Normalise(*viewport, x, y, constrainedX, constrainedY);
    tool->ConstrainPoint(constrainedX, constrainedY);
    if (!(tool->ToolFlags & eTool_TakesMotion)) return;
    const float nx = constrainedX, ny = constrainedY;
    tool->OnMotion(viewport, nx, ny);
    SendMirroredMotions(*tool, viewport, nx, ny);
    QLM_RequestRedraw();
}

void QLM_ViewportManager::PointerMove(float x, float y) {
    if (heldButton >= 0) {
        MoveHeldPointer(x, y);
        return;
    }
    QLM_Viewport* viewport = GetViewportAt(x, y);
    QLM_Tool* tool = CurrentTool();
    if (!viewport) PointerLeave();
    if (!viewport || !tool) return;
    activeViewport = pointerViewport = viewport->index;
    Normalise(*viewport, x, y, constrainedX, constrainedY);
    tool->ConstrainPoint(constrainedX, constrainedY);
    tool->OnPassiveMotion(viewport, constrainedX, constrainedY);
    if (tool->UsesBrushShape()) QLM_RequestRedraw(); // its outline follows the pointer
}

void QLM_ViewportManager::PointerLeave() {
    if (pointerViewport < 0 || heldButton >= 0) return;
    pointerViewport = -1;
    QLM_RequestRedraw();
}

void QLM_ViewportManager::PointerRelease(int button, float x, float y) {
    if (heldButton < 0 || button != heldButton) return;
    QLM_Viewport* viewport = viewports[mouseViewport].Get();
    float nx, ny;
    Normalise(*viewport, x, y, nx, ny);
    heldButton = -1;
    if (QLM_Tool* tool = CurrentTool()) tool->OnMouse(viewport, button, QLM_Tool::Release, nx, ny);
    mouseViewport = -1;
    const QLM_Viewport* below = GetViewportAt(x, y);
    pointerViewport = below ? below->index : -1;
    QLM_RequestRedraw();
}
