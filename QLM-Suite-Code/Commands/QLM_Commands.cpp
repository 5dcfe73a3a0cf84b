#include "Commands/QLM_Commands.h"

#include "Core/Logging/QLM_Logger.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_SelectionManager.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_MorphManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <utility>

namespace {

QLM_ViewportManager& Viewports() { return *QLM_GetManagers().GetViewportManager(); }
QLM_LayerManager& Layers() { return *QLM_GetManagers().GetLayerManager(); }
QLM_MorphManager& Morphs() { return *QLM_GetManagers().GetMorphManager(); }
QLM_ToolManager& Tools() { return *QLM_GetManagers().GetToolManager(); }

/// A named run of a check box toggles, and brings the control up to date.
void Toggle(bool& value) {
    value = !value;
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
}

void ForShown(const std::function<void(QLM_Viewport*)>& act) {
    for (int i = 0; i < 4; ++i)
        if (QLM_Viewport* viewport = Viewports().GetViewport(i); viewport->IsShown()) act(viewport);
}

/// Moves the look-at in the view plane, in units of half the viewport's height.
void MoveView(float dx, float dy) {
    QLM_Viewport* viewport = Viewports().GetCurrentViewport();
    float travel[3];
    viewport->ViewToWorldVector(dx / viewport->GetAspect(), dy, travel);
    const float* lookAt = viewport->GetLookAt();
    const float moved[3] = {lookAt[0] + travel[0], lookAt[1] + travel[1], lookAt[2] + travel[2]};
    viewport->SetLookAt(moved);
    Viewports().RefreshViewport(viewport);
}

void ToggleNavigationTool(const char* name) {
    QLM_Tool* tool = Tools().FindTool(name);
    if (tool == Tools().GetCurrentTool()) QLM_PostEvent(QLM_Event_PreviousTool);
    else Tools().SelectToolByName(name);
}

void CancelEverything(int) {
    Tools().SetBrushAdjustmentMode(0);
    Viewports().displayMode = 0;
    if (QLM_Tool* tool = Tools().GetCurrentTool()) tool->OnKey(27);
    QLM_InvalidateDisplayLists();
    for (auto maps = QLM_GetManagers().GetMapManager()->GetMaps(); !maps.IsEmpty(); maps.Pop())
        maps->OnWholeMapChanged();
}

} // namespace

QLM_CommandTable& QLM_CommandTable::Get() {
    static QLM_CommandTable table;
    return table;
}

QLM_CommandTable::QLM_CommandTable() {
    const auto add = [this](const char* name, std::function<void(int)> run) { commands[name].run = std::move(run); };
    add("CancelEverything", CancelEverything);

    // View directions, framing, layouts.
    const char* const views[] = {"Front", "Back", "Left", "Right", "Top", "Bottom"};
    for (int i = 0; i < 6; ++i)
        add((std::string("SetViewportTo") + views[i]).c_str(), [i](int) { QLM_PostEvent(QLM_Event_ViewFront + i); });
    const char* const frames[] = {"Object", "Selection", "Project"};
    for (int i = 0; i < 3; ++i) {
        const auto mode = static_cast<QLM_FrameMode>(i);
        add((std::string("FrameViewport_") + frames[i]).c_str(),
            [mode](int) { Viewports().Frame(Viewports().GetCurrentViewport(), mode); });
        add((std::string("FrameViewport_") + frames[i] + "_All").c_str(),
            [mode](int) { ForShown([mode](QLM_Viewport* viewport) { Viewports().Frame(viewport, mode); }); });
    }
    const char* const layouts[] = {"OneViewport",    "TwoViewportsTall", "TwoViewportsWide",
                                   "ThreeViewports", "FourViewports",    "FourViewportsB"};
    for (uint32_t i = 0; i < 6; ++i)
        add((std::string("ChangeViewportSetup_") + layouts[i]).c_str(),
            [i](int) { Viewports().ChangeViewportSetup(i); });
    add("ToggleMaximizeViewport", [](int) { QLM_PostEvent(QLM_Event_ToggleMaximize); });
    add("MoveViewport_Up", [](int) { MoveView(0, -0.25f); });
    add("MoveViewport_Down", [](int) { MoveView(0, 0.25f); });
    add("MoveViewport_Left", [](int) { MoveView(0.25f, 0); });
    add("MoveViewport_Right", [](int) { MoveView(-0.25f, 0); });
    add("ResetCurrentViewport",
        [](int) { QLM_PostEvent(QLM_Event_ResetView, Viewports().GetCurrentViewport()->GetID()); });
    add("ResetAllViewports",
        [](int) { ForShown([](QLM_Viewport* viewport) { QLM_PostEvent(QLM_Event_ResetView, viewport->GetID()); }); });
    add("RefreshAllViewports", [](int) { QLM_PostEvent(QLM_Event_FullRefresh); });
    const std::pair<const char*, bool QLM_Viewport::*> shading[] = {{"Smooth", &QLM_Viewport::Smooth},
                                                                    {"Filter", &QLM_Viewport::Filter},
                                                                    {"UseLighting", &QLM_Viewport::UseLighting}};
    for (const auto& [name, member] : shading)
        add((std::string("SetViewportShadingOption_") + name).c_str(), [member = member](int) {
            QLM_Viewport* viewport = Viewports().GetCurrentViewport();
            Toggle(viewport->*member);
            viewport->OnViewChanged();
        });

    // Tools and their settings.
    add("ToggleMoveView", [](int) { ToggleNavigationTool("MoveView"); });
    add("ToggleZoomView", [](int) { ToggleNavigationTool("ZoomView"); });
    add("ToggleRotateView", [](int) { ToggleNavigationTool("RotateView"); });
    add("SetCurrentToolToPrevious", [](int) { QLM_PostEvent(QLM_Event_PreviousTool); });
    add("EnterPressedForTool", [](int) {
        if (QLM_Tool* tool = Tools().GetCurrentTool()) tool->OnKey(13);
    });
    const char* const adjustments[] = {"None", "Size", "Strength", "Hardness", "Angle", "Density"};
    for (int i = 0; i < 6; ++i)
        add((std::string("SetBrushAdjustmentMode_") + adjustments[i]).c_str(),
            [i](int) { Tools().SetBrushAdjustmentMode(i); });
    for (uint32_t i = 0; i <= 2; ++i) {
        const auto method = static_cast<QLM_CullingMethod>(i);
        add((std::string("SetCullingMethod_") + QLM_CullingMethodName(method)).c_str(), [method](int) {
            QLM_GetManagers().GetCullingManager()->SetMethod(method);
            QLM_PostEvent(QLM_Event_RefreshToolPanel);
        });
    }
    add("SetMirrorX", [](int) { Toggle(Tools().mirrorX); });
    add("SetMirrorY", [](int) { Toggle(Tools().mirrorY); });
    add("SetLockAlphaMask", [](int) { Toggle(Tools().lockAlpha); });
    add("SetExtraSoftBrushStrokes", [](int) { Toggle(Tools().extraSoftBrushStrokes); });
    add("SetAutoPressure", [](int) { Toggle(Tools().autoPressure); });
    add("SetFadeByAngle", [](int) { Toggle(QLM_GetManagers().GetFadeByAngleManager()->Enabled); });
    const char* const channels[] = {"Current", "Color", "Bump", "Transparent", "Displacement", "Ambient", "Specular"};
    for (int i = 0; i < 7; ++i)
        add((std::string("SetPaintChannel") + channels[i]).c_str(), [i](int) { Toggle(Tools().paintChannels[i]); });
    add("SwapBrushColors", [](int) {
        std::swap(QLM_GetEngine()->foregroundColor, QLM_GetEngine()->backgroundColor);
        QLM_PostEvent(QLM_Event_RefreshToolPanel);
    });

    // Selection.
    using Selection = QLM_SelectionManager;
    const std::pair<const char*, void (Selection::*)()> selections[] = {
        {"SelectAll", &Selection::SelectAll},
        {"SelectNone", &Selection::SelectNone},
        {"GrowSelection", &Selection::GrowSelection},
        {"ShrinkSelection", &Selection::ShrinkSelection},
        {"SoftenSelection", &Selection::SoftenSelection},
        {"HardenSelection", &Selection::HardenSelection},
        {"NormalizeSelection", &Selection::NormalizeSelection},
        {"InvertSelection", &Selection::InvertSelection},
        {"InvertPolygonSelection", &Selection::InvertPolygonSelection}};
    for (const auto& [name, operation] : selections)
        add(name, [operation = operation](int) { (QLM_GetManagers().GetSelectionManager()->*operation)(); });
    const char* const modes[] = {"SetSelectionModeToVertex", "SetSelectionModeToPolygon"};
    for (int i = 0; i < 2; ++i)
        add(modes[i], [i](int) { QLM_GetManagers().GetSelectionManager()->SetSelectionMode(i); });

    // Display groups.
    add("HideSelection", [](int) { Layers().AssignSelectionToColumn(QLM_LayerManager::HiddenLayer); });
    add("ShowAll", [](int) { Layers().ClearColumn(QLM_LayerManager::HiddenLayer); });
    add("LockSelection", [](int) { Layers().AssignSelectionToColumn(QLM_LayerManager::LockedLayer); });
    add("UnlockAll", [](int) { Layers().ClearColumn(QLM_LayerManager::LockedLayer); });
    add("CreateNewDisplayGroup", [](int) { Layers().CreateDisplayGroup(); });
    add("DeleteDisplayGroups", [](int) { Layers().DeleteLayers(); });
    add("RigidEdgesChanged", [](int) {
        if (QLM_DisplayGroup* group = Layers().GetTree()->GetCurrentItem())
            group->SetRigidEdges(!group->HasRigidEdges());
    });
    add("AddSelectionToCurrentDisplayGroup",
        [](int) { Layers().AssignSelectionToGroup(Layers().GetTree()->GetCurrentItem(), true); });
    add("RemoveSelectionFromCurrentDisplayGroup",
        [](int) { Layers().AssignSelectionToGroup(Layers().GetTree()->GetCurrentItem(), false); });

    // Morphs.
    add("CreateNewMorph", [](int) { Morphs().CreateNewMorph(); });
    add("DuplicateMorph", [](int) { Morphs().DuplicateMorph(); });
    add("SpawnMorph", [](int) { Morphs().SpawnMorph(); });
    add("DeleteMorph", [](int) { Morphs().DeleteMorph(); });
    add("BakeMorphs", [](int) { Morphs().BakeMorphs(); });
    // The operation's flag chooses the map that is read; map B is the one by which the right side is written.
    add("MakeMorphSymmetricLeftToRight", [](int) { Morphs().MakeCurrentMorphSymmetric(false); });
    add("MakeMorphSymmetricRightToLeft", [](int) { Morphs().MakeCurrentMorphSymmetric(true); });

    // Materials.
    const std::pair<const char*, void (*)(QLM_MaterialManager&)> materials[] = {
        {"CreateNewMaterial", [](QLM_MaterialManager& manager) { manager.CreateNewMaterial(); }},
        {"AssignMaterialToSelection", [](QLM_MaterialManager& manager) { manager.AssignMaterialToPolygons(); }},
        {"DeleteMaterials", [](QLM_MaterialManager& manager) { manager.DeleteMaterials(); }},
        {"CopyMaterial", [](QLM_MaterialManager& manager) { manager.CopyMaterial(); }},
        {"PasteMaterial", [](QLM_MaterialManager& manager) { manager.PasteMaterial(); }}};
    for (const auto& [name, act] : materials)
        add(name, [act = act](int) { act(*QLM_GetManagers().GetMaterialManager()); });

    // Pen and wheel.
    add("SetTabletVarySize", [](int) { Toggle(QLM_GetEngine()->tabletPressureVariesPseudoSize); });
    add("SetTabletVaryHardness", [](int) { Toggle(QLM_GetEngine()->tabletPressureVariesHardness); });
    add("SetTabletVaryStrength", [](int) { Toggle(QLM_GetEngine()->tabletPressureVariesStrength); });
    add("SetTabletVaryDensity", [](int) { Toggle(QLM_GetEngine()->tabletPressureVariesDensity); });
    add("SetMouseWheelNavZoom", [](int) { Toggle(QLM_GetEngine()->wheelFlags.navZoom); });
    add("SetMouseWheelVarySize", [](int) { Toggle(QLM_GetEngine()->wheelFlags.varySize); });
    add("SetMouseWheelVaryHardness", [](int) { Toggle(QLM_GetEngine()->wheelFlags.varyHardness); });
    add("SetMouseWheelVaryStrength", [](int) { Toggle(QLM_GetEngine()->wheelFlags.varyStrength); });
    add("SetMouseWheelVaryDensity", [](int) { Toggle(QLM_GetEngine()->wheelFlags.varyDensity); });
}

bool QLM_CommandTable::RunCommand(const std::string& name, int value, std::string& error) {
    QLM_TRACE(2);
    const auto found = commands.find(name);
    if (found == commands.end() || !found->second.run) {
        error = "there is no command \"" + name + "\"";
        return false;
    }
    QLM_GetEngine()->commandRan = true;
    found->second.run(value);
    return true;
}
