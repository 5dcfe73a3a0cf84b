#include "Core/Objects/ThreadLocker.h"

#include <chrono>

bool ThreadLocker::TryLockFor(double seconds) { return mutex.try_lock_for(std::chrono::duration<double>(seconds)); }
