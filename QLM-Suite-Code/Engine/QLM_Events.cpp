#include "Engine/QLM_Events.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_EventHandlers.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>
#include <memory>

namespace {

constexpr int StringCount = 16;

using Queue = std::deque<std::unique_ptr<QLMEvent>>;

struct EventState {
    Queue mainQueue;
    Queue pendingQueue; ///< posted while the main queue runs; their turn is the next pass
    std::map<int32_t, QLM_EventFunction> handlers;
    bool processing = false;
};

EventState& State() {
    static EventState& state = *new EventState;
    return state;
}

QLM_EventFunction FindHandler(int32_t type) {
    const auto found = State().handlers.find(type);
    return found == State().handlers.end() ? nullptr : found->second;
}

char* CopyText(const char* text) {
    if (!text) return nullptr;
    const size_t size = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(QLM_Malloc(size, false));
    std::memcpy(copy, text, size);
    return copy;
}

/// Marks a pass; at its end, also by an exception, what was posted meanwhile moves up.
class ProcessingScope {
  public:
    ProcessingScope() { State().processing = true; }
    ~ProcessingScope() {
        EventState& state = State();
        state.processing = false;
        std::move(state.pendingQueue.begin(), state.pendingQueue.end(), std::back_inserter(state.mainQueue));
        state.pendingQueue.clear();
    }
};

} // namespace

// --- QLMEvent -------------------------------------------------------------------------------------------------------

QLMEvent::QLMEvent(int32_t type) : type(type) {}

QLMEvent::QLMEvent(uint32_t targetID, int32_t type) : type(type), targetID(targetID) {}

QLMEvent::QLMEvent(QLM_EventFunction callback, uint32_t targetID, int32_t type)
    : type(type), targetID(targetID), callback(callback) {}

QLMEvent::QLMEvent(const QLMEvent& other)
    : type(other.type), userValue(other.userValue), targetID(other.targetID),
      callback(other.callback ? other.callback : FindHandler(other.type)), paramCount(other.paramCount) {
    std::copy(std::begin(other.ints), std::end(other.ints), ints);
    std::copy(std::begin(other.floats), std::end(other.floats), floats);
    std::copy(std::begin(other.ids), std::end(other.ids), ids);
    std::transform(std::begin(other.strings), std::end(other.strings), strings, CopyText);
}

QLMEvent::~QLMEvent() {
    for (char* text : strings) QLM_Free(text);
}

void QLMEvent::AddStringParameter(const char* text, int i) {
    if (i < 0 || i >= StringCount) QLM_RaiseError("i is out of range in QLMEvent::AddStringParameter()");
    char* const copy = CopyText(text);
    QLM_Free(strings[i]);
    strings[i] = copy;
}

const char* QLMEvent::GetStringParameter(int i) const {
    if (i < 0 || i >= StringCount) QLM_RaiseError("i is out of range in QLMEvent::GetStringParameter(%d)", i);
    return strings[i];
}

// --- The queue ------------------------------------------------------------------------------------------------------

void QLM_RegisterEventHandler(int32_t first, int32_t last, QLM_EventFunction handler) {
    for (int32_t type = first; type <= last; ++type) State().handlers[type] = handler;
}

void QLM_InitializeEvents() {
    QLM_RegisterEventHandler(QLM_Event_ViewFront, QLM_Event_ResetViewB, QLM_Events_UnorganizedCB);
    QLM_RegisterEventHandler(3000, QLM_Event_ShowImport, QLM_Events_UpdateInterfaceCB);
    QLM_RegisterEventHandler(QLM_Event_AssignMap, QLM_Event_AssignMap, QLM_Events_MapsCB);
    QLM_RegisterEventHandler(QLM_Event_StrengthUp, QLM_Event_AngleDown, QLM_Events_InterfaceVariablesCB);
    QLM_RegisterEventHandler(QLM_Event_RunCommand, QLM_Event_RefreshObjectListB, QLM_Events_WXInterfaceCB);
}

void QLM_FreeEvents() {
    EventState& state = State();
    state.mainQueue.clear();
    state.pendingQueue.clear();
    state.handlers.clear();
}

void QLM_ProcessEvents() {
    EventState& state = State();
    if (QLM_OS::Get().mouseButtonsDown > 0 || state.processing || state.mainQueue.empty()) return;
    QLM_TRACE(2);
    QLM_OS::Get().SetBusy(true);
    {
        ProcessingScope scope;
        while (!state.mainQueue.empty()) {
            // The event is out of the queue while it runs: coalescing looks only at those behind it.
            const std::unique_ptr<QLMEvent> event = std::move(state.mainQueue.front());
            state.mainQueue.pop_front();
            QLM_DispatchEvent(*event);
        }
    }
    if (QLM_Engine* engine = QLM_GetEngine()) engine->SetProjectChanged();
    QLM_OS::Get().SetBusy(false);
}

void QLM_PostEvent(QLMEvent* event) {
    EventState& state = State();
    (state.processing ? state.pendingQueue : state.mainQueue).emplace_back(event);
}

void QLM_PostEvent(int32_t type) { QLM_PostEvent(new QLMEvent(type)); }

void QLM_PostEvent(int32_t type, uint32_t targetID) { QLM_PostEvent(new QLMEvent(targetID, type)); }

int QLM_DispatchEvent(QLMEvent& event) {
    const QLM_EventFunction function = event.callback ? event.callback : FindHandler(event.type);
    return function ? function(event) : 0;
}

int QLM_SendEvent(QLM_EventFunction callback, uint32_t targetID, int32_t type) {
    QLMEvent event(callback, targetID, type);
    return QLM_DispatchEvent(event);
}

bool QLM_IsEventPending(int32_t type) {
    const auto holds = [type](const Queue& queue) {
        return std::any_of(queue.begin(), queue.end(), [type](const auto& event) { return event->type == type; });
    };
    return holds(State().mainQueue) || holds(State().pendingQueue);
}

bool QLM_AreEventsPending() { return !State().mainQueue.empty() || !State().pendingQueue.empty(); }

std::string QLM_PendingEventText() {
    std::string text;
    for (const Queue* queue : {&State().mainQueue, &State().pendingQueue})
        for (const auto& event : *queue) text += (text.empty() ? "event " : ", event ") + std::to_string(event->type);
    return text;
}
