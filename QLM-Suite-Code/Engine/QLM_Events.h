#pragma once
// The event queue. Main thread only; workers hand results over and the main thread posts.

#include <cstdint>
#include <string>

class QLMEvent;
using QLM_EventFunction = int (*)(QLMEvent&);

/// Identifiers of events, named by what they do.
enum QLM_EventID : int32_t {
    QLM_Event_ViewFront = 1001, QLM_Event_ViewBack, QLM_Event_ViewLeft, QLM_Event_ViewRight, QLM_Event_ViewTop,
    QLM_Event_ViewBottom, QLM_Event_CopyMainView, QLM_Event_ViewChangedNotice, QLM_Event_PreviousTool,
    QLM_Event_RefitAfterImport, QLM_Event_MakeViewportCurrent, QLM_Event_ToggleMaximize, QLM_Event_AllViewportsChanged,
    QLM_Event_RefreshViewport, QLM_Event_SelectAll, QLM_Event_SelectNone, QLM_Event_ShapeChanged,
    QLM_Event_SyncTool = 1021, QLM_Event_HidePass, QLM_Event_ShowPass, QLM_Event_Unweld, QLM_Event_ResetView,
    QLM_Event_RefreshAllViewports, QLM_Event_FullRefresh, QLM_Event_ResetViewB,
    QLM_Event_StrengthUp = 2001, QLM_Event_StrengthDown, QLM_Event_SizeUp, QLM_Event_SizeDown, QLM_Event_DensityUp,
    QLM_Event_DensityDown, QLM_Event_HardnessUp, QLM_Event_HardnessDown, QLM_Event_AngleUp, QLM_Event_AngleDown,
    QLM_Event_RefreshToolSettings = 3001, QLM_Event_RefreshMorphPages, QLM_Event_RefreshLayerPage,
    QLM_Event_RefreshObjectList, QLM_Event_RefreshToolPanel, QLM_Event_RefreshAllPanels, QLM_Event_RefreshInspector,
    QLM_Event_RefreshAllPanelsB, QLM_Event_RefreshLayerPages, QLM_Event_RefreshAllPanelsNow,
    QLM_Event_RefreshViewportControls, QLM_Event_RefreshExport, QLM_Event_RefreshImport, QLM_Event_RefreshSelection,
    QLM_Event_ShowInspector, QLM_Event_ShowImport,
    QLM_Event_AssignMap = 4001,
    QLM_Event_RunCommand = 5001, QLM_Event_TransferFinished, QLM_Event_RefreshObjectListB
};

/// One event; owns its strings. Objects are named by ID and resolved when the event runs.
class QLMEvent {
  public:
    explicit QLMEvent(int32_t type);
    QLMEvent(uint32_t targetID, int32_t type);
    QLMEvent(QLM_EventFunction callback, uint32_t targetID, int32_t type);
    /// Fills `callback` with the registered handler when the source has none.
    QLMEvent(const QLMEvent& other);
    QLMEvent& operator=(const QLMEvent&) = delete;
    ~QLMEvent();

    /// Raises for i outside 0..15.
    void AddStringParameter(const char* text, int i);
    const char* GetStringParameter(int i) const;
    int32_t GetType() const { return type; }
    int32_t GetUserValue() const { return userValue; }
    void SetUserValue(int32_t value) { userValue = value; }

    int32_t type = -1;
    int32_t userValue = -1;
    char* strings[16] = {};
    uint32_t targetID = 0;
    QLM_EventFunction callback = nullptr;
    int32_t ints[16] = {};
    float floats[16] = {};
    uint32_t ids[16] = {};
    int32_t paramCount = 0;
};

/// Registers the engine's own handlers.
void QLM_InitializeEvents();
/// Runs what stands in the queue, unless a mouse button is down; what is posted meanwhile waits for the next pass.
/// Once an idle pass; a call from inside a handler does nothing.
void QLM_ProcessEvents();
/// Drops what waits, and all handlers.
void QLM_FreeEvents();

void QLM_PostEvent(int32_t type);
void QLM_PostEvent(QLMEvent* event); ///< takes ownership
void QLM_PostEvent(int32_t type, uint32_t targetID);
/// Runs at once: the callback, else the registered handler. Its result, 0 without either.
int QLM_SendEvent(QLM_EventFunction callback, uint32_t targetID, int32_t type);
/// Runs an existing event at once, in the same way.
int QLM_DispatchEvent(QLMEvent& event);
/// An event of that type waits in either queue.
bool QLM_IsEventPending(int32_t type);
/// Any event in either queue.
bool QLM_AreEventsPending();
/// The waiting events by number, for a report of what is pending.
std::string QLM_PendingEventText();
void QLM_RegisterEventHandler(int32_t first, int32_t last, QLM_EventFunction handler); ///< both ends included
