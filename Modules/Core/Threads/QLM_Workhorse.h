#pragma once
// A long-running background thread owned by an object.

#include "Core/Objects/QLM_BaseClass.h"
#include "Core/Threads/QLM_Threads.h"

#include <atomic>

/// The base lock guards data that the main thread also reads. Never call Pause, Stop(true) or PauseAll while holding
/// it. A subclass stops its thread in its own destructor.
class QLM_Workhorse : public ThreadLocker, public virtual QLM_BaseClass {
  public:
    QLM_Workhorse();
    ~QLM_Workhorse() override;

    /// Main thread, when FinishWorkIfNecessary has waited; the default clears `working` and answers !CheckPause().
    virtual bool OnWorkFinished();
    virtual bool CanBePaused() const = 0;

    /// Starts the thread with this workhorse as parameter; the function must call OnThreadExit last.
    void Start(void (*threadFunction)(QLM_Workhorse*), const char* name);
    /// Before a new start: clears pause flags, stops a running thread and waits.
    void BeforeStart();
    void Stop(bool wait);
    void WaitForThreadExit();
    void FinishWorkIfNecessary();
    /// Returns once the worker stands at a safe point, or has no thread.
    void Pause();
    void RequestPause();
    void Resume();
    /// Called last by every thread function.
    void OnThreadExit();
    /// Called by the worker at its safe points; blocks while paused; true tells the worker to return.
    bool CheckPause();

    bool IsThreadRunning() const { return threadRunning; }
    bool IsWorking() const { return working; }
    bool IsPaused() const { return paused; }

  protected:
    /// Blocks the worker until Wake or a stop or pause request; a standing thread with nothing to do waits here.
    void WaitForWork();
    void Wake();

    ThreadLocker lock; ///< state lock, distinct from the base
    std::atomic<uint32_t> threadID{0};
    std::atomic<bool> pauseRequested{false}, paused{false}, stopRequested{false}, threadRunning{false}, working{false};

  private:
    QLM_Signal stateChanged;
    std::atomic<uint32_t> wakeCount{0};
    uint32_t wakesSeen = 0;               ///< the worker's own
    std::atomic<uint32_t> threadToJoin{0}; ///< outlives `threadID`, which the worker itself clears
};

/// The weak set of all workhorses.
class QLM_AllWorkhorses : public QLM_BaseClassByIDMap {
  public:
    static QLM_AllWorkhorses& Get();
    void PauseAll();  ///< pauses those that can be paused, stops the others
    void ResumeAll();
    void StopAll();   ///< Stop(true) on each, before the managers go
};
