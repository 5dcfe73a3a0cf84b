#include "Tools/QLM_ToolManager.h"

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_UndoManager.h"
#include "Rasterizer/QLM_DepthBuffer.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_BrushShapeManager.h"

namespace {

constexpr float DepthBufferIdleSeconds = 20.0f;
constexpr const char* channelNames[8] = {"",        "Color",    "Bump",  "Transparency", "Displacement",
                                         "Ambient", "Specular", "Glossy"};

QLM_Viewport* CurrentViewport() { return QLM_GetManagers().GetViewportManager()->GetCurrentViewport(); }

} // namespace

QLM_ToolManager::QLM_ToolManager() = default;

QLM_ToolManager::~QLM_ToolManager() {
    for (auto& entry : allTools) delete entry.second;
    for (QLM_ToolList* list : lists) delete list;
}

void QLM_ToolManager::RegisterTool(const std::string& list, const std::string& name,
                                   std::function<QLM_Tool*()> factory) {
    factories.push_back({list, name, std::move(factory)});
}

void QLM_ToolManager::Initialize() {
    for (const Factory& factory : factories) {
        QLM_ToolList* list = nullptr;
        for (QLM_ToolList* known : lists)
            if (factory.list == known->GetName()) list = known;
        if (!list) {
            list = new QLM_ToolList;
            list->SetNameText(factory.list);
            lists.push_back(list);
        }
        QLM_Tool* tool = factory.make ? factory.make() : nullptr;
        list->push_back(tool);
        if (!tool) continue;
        tool->SetNameText(factory.name);
        allTools.emplace_back(factory.name, tool);
    }
    if (!lists.empty() && !allTools.empty()) SetCurrentTool(lists.front(), allTools.front().second);
    idleTimer.Start();
}

void QLM_ToolManager::OnIdle() {
    if (currentTool && CurrentViewport()) currentTool->OnIdle(CurrentViewport());
    if ((currentTool && currentTool->IsPaintTool()) || idleTimer.GetElapsedSeconds() <= DepthBufferIdleSeconds) return;
    QLM_Engine* engine = QLM_GetEngine();
    for (QLM_DepthBuffer* buffer : {engine->depthBufferA, engine->depthBufferB})
        if (buffer) buffer->SetSize(0, 0);
    idleTimer.Start();
}

void QLM_ToolManager::AfterClear() {
    brushAdjustmentMode = 0;
    finishStrokeFlag = undoOptimiserPaused = false;
}

void QLM_ToolManager::SetCurrentTool(QLM_ToolList* list, QLM_Tool* tool) {
    if (!tool || !tool->IsEnabled()) return;
    if (list) {
        list->currentIndex = -1;
        for (QLM_Tool* entry : *list) {
            if (entry) ++list->currentIndex;
            if (entry == tool) break;
        }
    }
    if (tool != currentTool) {
        if (QLM_Tool* old = currentTool) {
            old->OnDeactivate();
            previousTool = old;
            if (!old->IsViewTool()) previousWorkingTool = old;
        }
        currentTool = tool;
        tool->OnActivate();
        tool->RebuildParameters();
    }
    if (tool->UsesBrushShape()) QLM_GetManagers().GetBrushShapeManager()->InvalidateTip();
    QLM_GetManagers().GetCullingManager()->RefreshEffectiveMethod();
    QLM_PostEvent(QLM_Event_RefreshToolSettings);
    QLM_PostEvent(QLM_Event_RefreshToolPanel);
}

bool QLM_ToolManager::SelectToolByIndex(QLM_ToolList* list, int index) {
    if (!list || index < 0) return false;
    for (QLM_Tool* tool : *list) {
        if (!tool || index-- > 0) continue;
        SetCurrentTool(list, tool);
        if (currentTool != tool) return false;
        QLM_OS::Get().PrintMessage("Using the \"%s\" tool.", tool->GetName());
        return true;
    }
    return false;
}

bool QLM_ToolManager::SelectToolByName(const std::string& name) {
    for (QLM_ToolList* list : lists) {
        int index = 0;
        for (QLM_Tool* tool : *list) {
            if (tool && GetToolName(tool) == name) return SelectToolByIndex(list, index);
            if (tool) ++index;
        }
    }
    return false;
}

void QLM_ToolManager::SelectPreviousTool() {
    // From a view tool the way back leads to the last tool that worked on something.
    QLM_Tool* tool =
        currentTool && currentTool->IsViewTool() && previousWorkingTool ? previousWorkingTool : previousTool;
    if (!tool) return;
    for (QLM_ToolList* list : lists) {
        if (list->IndexOf(tool) < 0) continue;
        SetCurrentTool(list, tool);
        return;
    }
}

QLM_Tool* QLM_ToolManager::FindTool(const std::string& name) const {
    for (const auto& entry : allTools)
        if (entry.first == name) return entry.second;
    return nullptr;
}

std::string QLM_ToolManager::GetToolName(const QLM_Tool* tool) const {
    for (const auto& entry : allTools)
        if (entry.second == tool) return entry.first;
    return {};
}

void QLM_ToolManager::BeforePaint(QLM_Tool*) {
    if (std::none_of(std::begin(paintChannels), std::end(paintChannels), [](bool on) { return on; }))
        paintChannels[0] = true;
    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    viewports->viewportsMoved = false;
    if (viewports->displayMode == 1 || viewports->displayMode == 2 || viewports->displayMode == 4)
        viewports->displayMode = 0;

    const std::string& shown = CurrentViewport()->MaterialChannelName;
    bool takesShown = paintChannels[0];
    for (int i = 1; i < 8; ++i) takesShown = takesShown || (paintChannels[i] && shown == channelNames[i]);
    if (!takesShown && !channelWarningShown) {
        channelWarningShown = true;
        QLM_OS::Get().PrintMessage(
            "The current viewport is set to display \"%s\" maps, but the paint will not be applied to them. "
            "Please see the \"Paint Channels\" panel in the tool window for more options.",
            shown);
    }
    paintInProgress = true;
    QLM_GetManagers().GetUndoManager()->OnPaintStrokeOpened();
}

void QLM_ToolManager::AfterPaint() {
    paintInProgress = false;
    QLM_GetManagers().GetUndoManager()->OnPaintStrokeClosed();
    idleTimer.Start();
    QLM_PostEvent(QLM_Event_RefreshSelection);
}

void QLM_ToolManager::SetBrushAdjustmentMode(int mode) {
    if (mode == brushAdjustmentMode) return;
    brushAdjustmentMode = mode;
    if (mode != 0) QLM_OS::Get().PrintMessage("Click an drag in the viewport to adjust the brush setting.");
    else QLM_PostEvent(QLM_Event_RefreshAllPanels);
}
