#pragma once
// A value behind its own lock.

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/Objects/ThreadLocker.h"

/// A locked value; reading it before the first Set raises "QLM_ThreadSafeVariable not initialized". Any thread.
template <class T> class QLM_ThreadSafeVariable : public ThreadLocker {
  public:
    T Get() {
        ThreadLockerScope scope(this);
        if (!initialised) QLM_RaiseError("QLM_ThreadSafeVariable not initialized");
        return value;
    }
    void Set(const T& v) {
        ThreadLockerScope scope(this);
        value = v;
        initialised = true;
    }
    bool IsInitialised() {
        ThreadLockerScope scope(this);
        return initialised;
    }

  private:
    T value{};
    bool initialised = false;
};
