#pragma once
// The one recursive lock of the program.

#include "Core/Objects/QLM_SafePtr.h"

#include <mutex>

/// A recursive lock; the operations nest on one thread.
class ThreadLocker : public virtual QLM_GarbageCollectionItem {
  public:
    ThreadLocker() = default;
    ThreadLocker(const ThreadLocker&) noexcept : QLM_GarbageCollectionItem(), mutex() {}
    ThreadLocker& operator=(const ThreadLocker&) noexcept { return *this; }

    void Lock() { mutex.lock(); }
    void Unlock() { mutex.unlock(); }
    bool TryLock() { return mutex.try_lock(); }
    /// Waits at most `seconds`; for the failure road, which must not hang. False when not taken.
    bool TryLockFor(double seconds);

  private:
    std::recursive_timed_mutex mutex;
};

/// Locks on construction, unlocks on destruction; a null locker locks nothing.
class ThreadLockerScope {
  public:
    explicit ThreadLockerScope(ThreadLocker* lockerIn) : locker(lockerIn) { if (lockerIn) locker->Lock(); }
    ~ThreadLockerScope() { if (ThreadLocker* l = locker) l->Unlock(); }
    ThreadLockerScope(const ThreadLockerScope&) = delete;
    ThreadLockerScope& operator=(const ThreadLockerScope&) = delete;

  private:
    QLM_SafePtr<ThreadLocker> locker;
};
