#include "Core/Threads/QLM_Workhorse.h"

#include "Core/Logging/QLM_Logger.h"

QLM_Workhorse::QLM_Workhorse() { QLM_AllWorkhorses::Get().AddMember(GetID()); }

QLM_Workhorse::~QLM_Workhorse() {
    QLM_AllWorkhorses::Get().RemoveMember(GetID());
    // The owner's class has stopped the thread before; this only collects its handle.
    Stop(true);
}

bool QLM_Workhorse::OnWorkFinished() {
    working = false;
    return !CheckPause();
}

void QLM_Workhorse::Start(void (*threadFunction)(QLM_Workhorse*), const char* name) {
    // The handle of a run that ended by itself.
    QLM_JoinThread(threadToJoin.exchange(0));
    // OnThreadExit takes the state lock too, so a short run can't clear the ID before it is set.
    ThreadLockerScope scope(&lock);
    stopRequested = false;
    threadRunning = true;
    working = true;
    wakesSeen = wakeCount;
    uint32_t started = 0;
    try {
        QLM_StartThread(started, [this, threadFunction] { threadFunction(this); }, QLM_ThreadPriority::Normal, name);
    } catch (...) {
        threadRunning = false;
        working = false;
        throw;
    }
    threadToJoin = started;
    threadID = started;
}

void QLM_Workhorse::BeforeStart() {
    if (pauseRequested || paused) Resume();
    if (threadRunning) Stop(true);
    // One that ended by itself may still be on its way out.
    else WaitForThreadExit();
}

void QLM_Workhorse::Stop(bool wait) {
    stopRequested = true;
    working = false;
    stateChanged.Notify();
    if (wait) WaitForThreadExit();
}

void QLM_Workhorse::WaitForThreadExit() {
    const uint32_t thread = threadToJoin;
    // The worker itself can't wait for its own end.
    if (thread == 0 || thread == QLM_CurrentThreadID()) return;
    QLM_JoinThread(thread);
    uint32_t joined = thread;
    threadToJoin.compare_exchange_strong(joined, 0);
}

void QLM_Workhorse::FinishWorkIfNecessary() {
    if (!working) return;
    WaitForThreadExit();
    OnWorkFinished();
    working = false;
}

void QLM_Workhorse::Pause() {
    RequestPause();
    stateChanged.WaitUntil([&] { return !working || paused || !threadRunning; });
}

void QLM_Workhorse::RequestPause() {
    pauseRequested = true;
    stateChanged.Notify();
}

void QLM_Workhorse::Resume() {
    pauseRequested = false;
    paused = false;
    stateChanged.Notify();
}

void QLM_Workhorse::OnThreadExit() {
    ThreadLockerScope scope(&lock);
    threadRunning = false;
    if (stopRequested) working = false;
    threadID = 0;
    stateChanged.Notify();
}

bool QLM_Workhorse::CheckPause() {
    QLM_RandomDelay();
    if (pauseRequested) {
        // Paused before the request is taken: whenever a Resume comes in between, it ends one of the two.
        paused = true;
        if (pauseRequested.exchange(false)) {
            stateChanged.Notify();
            stateChanged.WaitUntil([&] { return !paused || !working; });
        }
        paused = false;
    }
    return stopRequested;
}

void QLM_Workhorse::WaitForWork() {
    stateChanged.WaitUntil([&] { return wakeCount != wakesSeen || stopRequested || pauseRequested; });
    wakesSeen = wakeCount;
}

void QLM_Workhorse::Wake() {
    ++wakeCount;
    stateChanged.Notify();
}

QLM_AllWorkhorses& QLM_AllWorkhorses::Get() {
    static QLM_AllWorkhorses* const all = new QLM_AllWorkhorses;
    return *all;
}

void QLM_AllWorkhorses::PauseAll() {
    for (const uint32_t id : GetMembers()) {
        QLM_Workhorse* const workhorse = QLM_FindByID<QLM_Workhorse>(id);
        if (!workhorse) continue;
        if (workhorse->CanBePaused()) workhorse->Pause();
        else workhorse->Stop(true);
    }
}

void QLM_AllWorkhorses::ResumeAll() {
    for (const uint32_t id : GetMembers()) {
        QLM_Workhorse* const workhorse = QLM_FindByID<QLM_Workhorse>(id);
        if (workhorse && workhorse->CanBePaused() && workhorse->IsWorking()) workhorse->Resume();
    }
}

void QLM_AllWorkhorses::StopAll() {
    for (const uint32_t id : GetMembers()) {
        if (QLM_Workhorse* const workhorse = QLM_FindByID<QLM_Workhorse>(id)) workhorse->Stop(true);
    }
}
