#include "Core/OS/QLM_TempFileTracker.h"

QLM_TempFileTracker& QLM_TempFileTracker::Get() {
    static QLM_TempFileTracker& tracker = *new QLM_TempFileTracker;
    return tracker;
}

void QLM_TempFileTracker::Add(FILE* handle, const std::string& path) {
    ThreadLockerScope scope(this);
    nodes[handle] = {path};
}

std::string QLM_TempFileTracker::Take(FILE* handle) {
    ThreadLockerScope scope(this);
    auto node = nodes.extract(handle);
    return node ? node.mapped().path : std::string();
}
