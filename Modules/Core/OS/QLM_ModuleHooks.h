#pragma once
// The one struct through which the modules reach upward; the composition root fills it.

#include <functional>
#include <string>

struct QLM_TabletSettings {
    float sensitivity = 0.5f;
    float cutoff = 0.01f;
};

struct QLM_ModuleHooks {
    /// Swaps out maps that were not used lately; called on the main thread when memory is short.
    std::function<void()> sweepMaps;
    /// Sets free what can leave memory; called by the allocator on any thread. The paging layer fills it in.
    std::function<void()> releaseMemory;
    std::function<QLM_TabletSettings()> tabletSettings;
    /// Adds a folder to the temporary search paths.
    std::function<void(const std::string&)> addTemporarySearchPath;
    /// What other threads and signals want of the main thread; called first thing in every idle pass.
    std::function<void()> takeUpRequests;
};

QLM_ModuleHooks& QLM_GetModuleHooks();
