#include "Engine/QLM_Engine.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "Core/Threads/QLM_Workhorse.h"
#include "Engine/QLM_Events.h"
#include "Maps/QLM_MapManager.h"
#include "Painting/QLM_OverlayWorkhorse.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <algorithm>
#include <cmath>

namespace {

void StoreModifiers(QLM_KeyModifiers modifiers) {
    QLM_OS& os = QLM_OS::Get();
    os.shiftDown = modifiers.shift;
    os.controlDown = modifiers.control;
    os.altDown = modifiers.alt;
}

QLM_Tool* CurrentTool(const QLM_Managers& managers) {
    const QLM_ToolManager* const tools = managers.GetToolManager();
    return tools ? tools->GetCurrentTool() : nullptr;
}

bool IsMouseHeld(const QLM_Managers& managers) {
    const QLM_ViewportManager* const viewports = managers.GetViewportManager();
    return viewports && viewports->mouseViewport >= 0;
}

/// The workhorse whose result the next statement or frame relies on; standing threads are not awaited.
QLM_Workhorse* AwaitedWorkhorse(const QLM_Managers& managers) {
    const QLM_MapManager* const maps = managers.GetMapManager();
    return maps ? maps->overdrawWorkhorse : nullptr;
}

/// Lets the optimiser of the undo history run on once no paint tool is in use.
void AfterToolPass(const QLM_Managers& managers) {
    QLM_ToolManager* const tools = managers.GetToolManager();
    const QLM_Tool* const tool = CurrentTool(managers);
    if (tools && tool && !tool->IsPaintTool()) tools->undoOptimiserPaused = false;
}

void PostWheelEvent(int32_t type) {
    auto* event = new QLMEvent(type);
    event->ints[0] = 1; // from the wheel
    QLM_PostEvent(event);
}

} // namespace

// --- Pointer, wheel, keys -------------------------------------------------------------------------------------------

bool QLM_Engine::PointerPress(Button button, float x, float y, QLM_KeyModifiers modifiers) {
    StoreModifiers(modifiers);
    ++QLM_OS::Get().mouseButtonsDown;
    if (!CanAct()) return false;
    QLM_TabletButtonDown();
    QLM_ViewportManager* const viewports = managers->GetViewportManager();
    return viewports && viewports->PointerPress(static_cast<int>(button), x, y);
}

void QLM_Engine::PointerMove(float x, float y) {
    if (!CanAct()) return;
    if (QLM_ViewportManager* viewports = managers->GetViewportManager()) viewports->PointerMove(x, y);
    if (QLM_OS::Get().mouseButtonsDown == 0 && !QLM_OS::Get().IsPumping()) OnIdleOrPassive();
}

void QLM_Engine::PointerRelease(Button button, float x, float y) {
    std::atomic<int>& down = QLM_OS::Get().mouseButtonsDown;
    down = std::max(0, down - 1);
    // A stroke ends even while a box is open: its release comes only once.
    if (!isReady) return;
    if (QLM_ViewportManager* viewports = managers->GetViewportManager())
        viewports->PointerRelease(static_cast<int>(button), x, y);
}

void QLM_Engine::Wheel(float notches, float x, float y) {
    if (!CanAct()) return;
    QLM_ViewportManager* const viewports = managers->GetViewportManager();
    QLM_Viewport* const viewport = viewports ? viewports->GetViewportAt(x, y) : nullptr;
    if (!viewport) return;

    // The first flag that is set decides; a turn of nothing counts as one notch down.
    const struct {
        bool set;
        int32_t up, down;
    } choices[] = {
        {wheelFlags.varyStrength, QLM_Event_StrengthUp, QLM_Event_StrengthDown},
        {wheelFlags.varySize, QLM_Event_SizeUp, QLM_Event_SizeDown},
        {wheelFlags.varyDensity, QLM_Event_DensityUp, QLM_Event_DensityDown},
        {wheelFlags.varyHardness, QLM_Event_HardnessUp, QLM_Event_HardnessDown},
    };
    for (const auto& choice : choices) {
        if (!choice.set) continue;
        const float count = std::clamp(std::round(std::fabs(notches)), 1.0f, 100.0f);
        for (int i = 0; i < static_cast<int>(count); ++i) PostWheelEvent(notches > 0 ? choice.up : choice.down);
        return;
    }
    if (!wheelFlags.navZoom || notches == 0.0f) return;
    float nx = 0, ny = 0;
    QLM_ViewportManager::Normalise(*viewport, x, y, nx, ny);
    viewports->WheelZoom(viewport, notches, nx, ny);
}

bool QLM_Engine::Key(int code, QLM_KeyModifiers modifiers) {
    StoreModifiers(modifiers);
    // During a drag keys are off.
    if (!CanAct() || IsMouseHeld(*managers)) return false;
    QLM_Tool* const tool = CurrentTool(*managers);
    return tool && tool->OnKey(code);
}

// --- Idle and drawing -----------------------------------------------------------------------------------------------

bool QLM_Engine::IdlePass() {
    QLM_TakeUpFailure();
    if (const auto& takeUpRequests = QLM_GetModuleHooks().takeUpRequests) takeUpRequests();
    if (!CanAct() || QLM_OS::Get().IsPumping() || QLM_OS::Get().mouseButtonsDown > 0) return false;
    QLM_Heartbeat(__FILE__, __LINE__, 2);
    if (!IsMouseHeld(*managers)) OnIdleOrPassive();
    AfterToolPass(*managers);
    QLM_ProcessEvents();
    return true;
}

void QLM_Engine::DrawFrame() {
    ++redrawCounter;
    if (QLM_ViewportManager* viewports = managers->GetViewportManager()) viewports->DrawAllViewports();
}

bool QLM_Engine::IsWorkPending(std::string& what) {
    const QLM_ViewportManager* const viewports = managers->GetViewportManager();
    const QLM_Tool* const tool = CurrentTool(*managers);
    const QLM_Workhorse* const workhorse = AwaitedWorkhorse(*managers);
    what.clear();
    if (QLM_AreEventsPending()) what = QLM_PendingEventText();
    else if (viewports && viewports->AreRendersPending()) what = "a render";
    else if (tool && tool->HasPendingWork()) what = std::string("the tool ") + tool->GetName();
    else if (const QLM_MapManager* maps = managers->GetMapManager(); maps && maps->AreSnapshotsPending())
        what = "the snapshots of maps";
    else if (workhorse && workhorse->IsWorking()) what = std::string("the workhorse ") + workhorse->GetName();
    return !what.empty();
}

void QLM_Engine::WaitForBackgroundWork() {
    // During a stroke only the stamping thread is waited for, until it has taken all points.
    if (QLM_OS::Get().mouseButtonsDown > 0) {
        auto* const overlay = dynamic_cast<TOverlay_Workhorse*>(overlayWorkhorse);
        if (overlay && overlay->IsThreadRunning()) overlay->Drain();
        return;
    }
    QLM_ViewportManager* const viewports = managers->GetViewportManager();
    if (viewports && viewports->AreRendersPending()) viewports->FinishRenders();
    if (QLM_Workhorse* workhorse = AwaitedWorkhorse(*managers)) workhorse->FinishWorkIfNecessary();
    if (QLM_MapManager* maps = managers->GetMapManager()) maps->GetBufferWorkhorse()->FinishWorkIfNecessary();
}
