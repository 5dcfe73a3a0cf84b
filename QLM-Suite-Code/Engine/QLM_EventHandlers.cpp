#include "Engine/QLM_EventHandlers.h"

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Messages.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_SelectionManager.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_ToolManager.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int ViewportCount = 4;
constexpr float HotkeyStep = 0.05f;

// --- Group 1000 -----------------------------------------------------------------------------------------------------

/// The viewport that an event speaks of, or the current one for target 0; null when it is gone.
QLM_Viewport* TargetViewport(const QLMEvent& event, const QLM_ViewportManager& viewports) {
    return event.targetID ? QLM_FindByID<QLM_Viewport>(event.targetID) : viewports.GetCurrentViewport();
}

/// Prints that the view is locked and answers true, or answers false.
bool RefuseLocked(const QLM_Viewport& viewport) {
    if (!viewport.IsLocked()) return false;
    QLM_OS::Get().PrintMessage(QLM_GetString(1461), viewport.GetName());
    return true;
}

int SetStandardView(const QLMEvent& event, QLM_ViewportManager& viewports, QLM_Viewport& viewport) {
    if (RefuseLocked(viewport)) return 0;
    // Views stand in pairs of opposites; the mirrored variant is the other of the pair.
    const int view = (event.type - QLM_Event_ViewFront) ^ (event.ints[0] == 1 ? 1 : 0);
    QLM_OS::Get().PrintMessage("%s", QLM_GetString(991 + view));
    viewports.SetStandardView(&viewport, static_cast<QLM_StandardView>(view));
    return 1;
}

int CopyMainView(QLM_ViewportManager& viewports, QLM_Viewport& viewport) {
    const QLM_Viewport* const main = viewports.GetViewport(0);
    if (&viewport == main || RefuseLocked(viewport)) return 0;
    QLM_OS::Get().PrintMessage(QLM_GetString(1454), viewport.GetName());
    viewport.SetRotationMatrix(main->GetRotationMatrix());
    viewport.SetLookAt(main->GetLookAt());
    viewport.SetZoom(main->GetZoom());
    viewports.RefreshViewport(&viewport);
    return 1;
}

void RefitAfterImport(QLM_ViewportManager& viewports) {
    QLM_ObjectManager* const objects = QLM_GetManagers().GetObjectManager();
    float minimum[3], maximum[3];
    if (!objects || !objects->GetSceneBounds(minimum, maximum)) return;
    for (int i = 0; i < ViewportCount; ++i) viewports.Frame(viewports.GetViewport(i), QLM_FrameMode::Project);
}

/// Drops everything that was cached for display and draws anew.
void RefreshEverything(QLM_ViewportManager& viewports) {
    QLM_InvalidateDisplayLists();
    if (QLM_MapManager* maps = QLM_GetManagers().GetMapManager())
        for (auto queue = maps->GetMaps(); !queue.IsEmpty(); queue.Pop()) queue->OnWholeMapChanged();
    QLM_OS::Get().PrintMessage("Refreshing the display for all viewports");
    viewports.OnAllViewportsChanged();
    if (QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager()) {
        objects->OnFullSurfaceChanged();
        objects->OnShapeChanged(true, true, true);
    }
}

/// Events about one viewport; 0 when it is gone.
int HandleViewportEvent(const QLMEvent& event, QLM_ViewportManager& viewports) {
    QLM_Viewport* const viewport = TargetViewport(event, viewports);
    if (!viewport) return 0;
    switch (event.type) {
    case QLM_Event_CopyMainView: return CopyMainView(viewports, *viewport);
    case QLM_Event_MakeViewportCurrent: viewports.SetCurrentViewport(viewport->index); return 1;
    case QLM_Event_RefreshViewport: viewports.RefreshViewport(viewport); return 1;
    case QLM_Event_ResetView:
    case QLM_Event_ResetViewB:
        viewport->ResetView();
        viewports.RefreshViewport(viewport);
        return 1;
    default: return SetStandardView(event, viewports, *viewport);
    }
}

int UsePreviousTool() {
    QLM_ToolManager* const tools = QLM_GetManagers().GetToolManager();
    if (!tools) return 0;
    const QLM_Tool* const before = tools->GetCurrentTool();
    tools->SelectPreviousTool();
    const QLM_Tool* const tool = tools->GetCurrentTool();
    if (tool == before) return 0;
    QLM_OS::Get().PrintMessage(QLM_GetString(572), tool->GetName());
    return 1;
}

int ChangeSelection(bool all) {
    QLM_SelectionManager* const selection = QLM_GetManagers().GetSelectionManager();
    if (!selection) return 0;
    if (all) selection->SelectAll();
    else selection->SelectNone();
    return 1;
}

// --- Group 2000 -----------------------------------------------------------------------------------------------------

/// One notch or key press, in shares of 0..1.
float NudgeStep(bool fromWheel) {
    if (!fromWheel) return HotkeyStep;
    const float sensitivity = QLM_GetEngine()->mouseWheelSensitivity;
    return 0.25f * (1.0f - sensitivity) + 0.01f * sensitivity;
}

/// Small brushes change in small steps.
float SizeStep(float size, bool fromWheel) {
    float t = size < 0.25f ? 4.0f * size * size : size;
    if (fromWheel) {
        const float r = std::sqrt(QLM_GetEngine()->mouseWheelSensitivity);
        t = r * t + (1.0f - r);
    }
    return 0.1f * t + 0.005f * (1.0f - t);
}

/// Moves a property within the limits of the tool's parameter and tells the new value as `shown` times it.
int Nudge(QLM_Tool& tool, float& property, float change, float shown, const char* format) {
    QLM_Parameter* const parameter = tool.FindParameterByValue(&property);
    if (!parameter) return 0;
    property = std::clamp(property + change, parameter->Minimum, parameter->Maximum);
    QLM_OS::Get().PrintMessageNoRepeat(format, parameter->GetName(), property * shown);
    return 1;
}

int NudgeAngle(QLM_Tool& tool, float change) {
    float& angle = tool.Properties().Angle;
    if (!tool.FindParameterByValue(&angle)) return 0;
    angle = std::fmod(angle + change * 360.0f, 360.0f);
    if (angle < 0.0f) angle += 360.0f;
    return Nudge(tool, angle, 0.0f, 1.0f, "%s = %.1f");
}

// --- Group 4000 -----------------------------------------------------------------------------------------------------

int UnweldHighlightedObjects() {
    QLM_ObjectManager* const objects = QLM_GetManagers().GetObjectManager();
    if (!objects) return 0;
    std::vector<QLM_Object*> highlighted;
    for (auto queue = objects->GetObjects(false); !queue.IsEmpty(); queue.Pop())
        if (queue->IsMarked()) highlighted.push_back(queue);
    if (highlighted.empty()) QLM_OS::Get().PrintMessage(QLM_GetString(1540));
    else QLM_OS::Get().PrintMessage(QLM_GetString(610), QLM_UtilityManager::UnweldVertices(highlighted));
    return 1;
}

/// The selection joins what is hidden, or all of that is shown again.
int HideOrShow(bool hide) {
    QLM_LayerManager* const layers = QLM_GetManagers().GetLayerManager();
    if (!layers) return 0;
    if (hide) return layers->AssignSelectionToColumn(QLM_LayerManager::HiddenLayer);
    layers->ClearColumn(QLM_LayerManager::HiddenLayer);
    return 1;
}

} // namespace

int QLM_Events_UnorganizedCB(QLMEvent& event) {
    QLM_Managers& managers = QLM_GetManagers();
    QLM_ViewportManager* const viewports = managers.GetViewportManager();
    if (!viewports) return 0;
    switch (event.type) {
    case QLM_Event_PreviousTool: return UsePreviousTool();
    case QLM_Event_RefitAfterImport: RefitAfterImport(*viewports); return 1;
    case QLM_Event_ToggleMaximize:
        viewports->ToggleMaximize(true);
        QLM_SendEvent(nullptr, 0, QLM_Event_RefreshAllPanels);
        return 1;
    case QLM_Event_AllViewportsChanged: viewports->OnAllViewportsChanged(); return 1;
    case QLM_Event_ShapeChanged:
        if (QLM_ObjectManager* objects = managers.GetObjectManager()) objects->OnShapeChanged(true, true, true);
        return 1;
    case QLM_Event_SelectAll:
    case QLM_Event_SelectNone: return ChangeSelection(event.type == QLM_Event_SelectAll);
    case QLM_Event_Unweld: return UnweldHighlightedObjects();
    case QLM_Event_HidePass:
    case QLM_Event_ShowPass: return HideOrShow(event.type == QLM_Event_HidePass);
    case QLM_Event_SyncTool:
        if (QLM_ToolManager* tools = managers.GetToolManager(); tools && tools->GetCurrentTool())
            tools->GetCurrentTool()->RebuildParameters();
        return 1;
    case QLM_Event_RefreshAllViewports:
        for (int i = 0; i < ViewportCount; ++i) viewports->RefreshViewport(viewports->GetViewport(i));
        return 1;
    case QLM_Event_FullRefresh: RefreshEverything(*viewports); return 1;
    case QLM_Event_ViewFront: case QLM_Event_ViewBack: case QLM_Event_ViewLeft: case QLM_Event_ViewRight:
    case QLM_Event_ViewTop: case QLM_Event_ViewBottom: case QLM_Event_CopyMainView:
    case QLM_Event_MakeViewportCurrent: case QLM_Event_RefreshViewport: case QLM_Event_ResetView:
    case QLM_Event_ResetViewB: return HandleViewportEvent(event, *viewports);
    default: return 0; // notices, and operations whose feature stands elsewhere
    }
}

int QLM_Events_InterfaceVariablesCB(QLMEvent& event) {
    const QLM_Managers& managers = QLM_GetManagers();
    QLM_ToolManager* const tools = managers.GetToolManager();
    QLM_Tool* const tool = tools ? tools->GetCurrentTool() : nullptr;
    if (!tool) return 0;
    QLM_BrushProperties& brush = tool->Properties();
    const bool fromWheel = event.ints[0] == 1;
    // Odd identifiers raise, even ones lower.
    const float sign = event.type % 2 ? 1.0f : -1.0f;
    const float change = sign * NudgeStep(fromWheel);
    const char* const percent = "%s = %.1f%%";
    int done = 0;
    switch (event.type) {
    case QLM_Event_StrengthUp: case QLM_Event_StrengthDown:
        done = Nudge(*tool, brush.Strength, change, 100.0f, percent);
        break;
    case QLM_Event_SizeUp: case QLM_Event_SizeDown:
        done = Nudge(*tool, brush.Size, sign * SizeStep(brush.Size, fromWheel), 100.0f, percent);
        break;
    case QLM_Event_DensityUp: case QLM_Event_DensityDown:
        done = Nudge(*tool, brush.Density, change, 100.0f, percent);
        break;
    case QLM_Event_HardnessUp: case QLM_Event_HardnessDown:
        done = Nudge(*tool, brush.Hardness, change, 100.0f, percent);
        break;
    case QLM_Event_AngleUp: case QLM_Event_AngleDown: done = NudgeAngle(*tool, change); break;
    default: break;
    }
    if (!done) return 0;
    if (QLM_BrushShapeManager* shapes = managers.GetBrushShapeManager()) shapes->InvalidateTip();
    QLM_PostEvent(QLM_Event_RefreshToolPanel);
    return 1;
}

int QLM_Events_UpdateInterfaceCB(QLMEvent& event) {
    // Of a run of equal updates only the last one acts.
    QLM_Engine* const engine = QLM_GetEngine();
    if (!engine || QLM_IsEventPending(event.type)) return 0;
    engine->SetProjectChanged();
    if (event.type == QLM_Event_RefreshAllPanelsNow) return QLM_SendEvent(nullptr, 0, QLM_Event_RefreshAllPanels);
    if (engine->shell.refreshInterface) engine->shell.refreshInterface(event.type);
    return 1;
}

int QLM_Events_MapsCB(QLMEvent& event) {
    auto* const channel = QLM_FindByID<QLM_MaterialChannel>(event.ids[0]);
    auto* const map = QLM_FindByID<QLM_MaterialMapSource>(event.ids[1]);
    auto* const material = QLM_FindByID<QLM_Material>(event.ids[2]);
    const bool layerGone = event.ids[3] && !QLM_FindBaseClassByID(event.ids[3]);
    QLM_MaterialManager* const materials = QLM_GetManagers().GetMaterialManager();
    if (!channel || !map || !material || layerGone || !materials) return 0;
    MapGroupInfo group;
    group.channel = channel->GetName();
    group.materials.Add(material);
    materials->AssignMap(group, map);
    QLM_PostEvent(QLM_Event_RefreshInspector);
    return 1;
}

int QLM_Events_WXInterfaceCB(QLMEvent& event) {
    const QLM_Engine* const engine = QLM_GetEngine();
    if (!engine) return 0;
    const QLM_ShellCallbacks& shell = engine->shell;
    if (event.type == QLM_Event_RunCommand) {
        const char* const command = event.GetStringParameter(0);
        if (!command || !shell.runCommand) return 0;
        shell.runCommand(command, event.ints[0]);
        return 1;
    }
    if (event.type != QLM_Event_RefreshObjectListB || !shell.refreshInterface) return 0;
    shell.refreshInterface(event.type);
    return 1;
}
