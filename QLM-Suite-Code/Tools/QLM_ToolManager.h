#pragma once
// All tools, their lists and the current one.

#include "Engine/QLM_Manager.h"
#include "Tools/QLM_Tool.h"

#include <functional>

/// Main thread.
class QLM_ToolManager : public QLM_Manager {
  public:
    QLM_ToolManager();
    ~QLM_ToolManager() override;
    void Initialize() override; ///< makes all tools through the factories and selects the first
    void OnIdle() override;
    void AfterClear() override;

    /// Registers what makes one tool of a list, in list order; for the composition root, before Initialize. A null
    /// factory is a separator. `name` is the class name without prefix.
    void RegisterTool(const std::string& list, const std::string& name, std::function<QLM_Tool*()> factory);

    QLM_Tool* GetCurrentTool() const { return currentTool; }
    void SetCurrentTool(QLM_ToolList* list, QLM_Tool* tool);
    bool SelectToolByIndex(QLM_ToolList* list, int index);
    bool SelectToolByName(const std::string& name); ///< false for an unknown name
    void SelectPreviousTool();
    QLM_Tool* FindTool(const std::string& name) const;
    const QLM_List<QLM_ToolList*>& GetLists() const { return lists; }
    /// Class names without prefix, in list order.
    const std::vector<std::pair<std::string, QLM_Tool*>>& GetAllTools() const { return allTools; }
    std::string GetToolName(const QLM_Tool* tool) const;

    void BeforePaint(QLM_Tool* tool);
    void AfterPaint();
    void SetBrushAdjustmentMode(int mode);

    bool finishStrokeFlag = false;
    bool undoOptimiserPaused = false;
    bool paintInProgress = false;
    bool canvasHasToolFocus = false; ///< the last press was on the canvas, not in a panel
    int brushAdjustmentMode = 0;
    /// Channels that take paint: current, Color, Bump, Transparency, Displacement, Ambient, Specular, Glossy.
    bool paintChannels[8] = {true, false, false, false, false, false, false, false};
    bool extraSoftBrushStrokes = false, mirrorX = false, mirrorY = false, lockAlpha = false;
    bool autoPressure = false;
    float autoPressureMidpoint = 0.05f;

  private:
    struct Factory {
        std::string list, name;
        std::function<QLM_Tool*()> make;
    };
    std::vector<Factory> factories;
    QLM_List<QLM_ToolList*> lists;
    std::vector<std::pair<std::string, QLM_Tool*>> allTools;
    QLM_Tool* currentTool = nullptr;
    QLM_Tool* previousTool = nullptr;
    QLM_Tool* previousWorkingTool = nullptr;
    QLM_Stopwatch idleTimer;
    bool channelWarningShown = false;
};
