#include "Core/OS/QLM_ModuleHooks.h"

QLM_ModuleHooks& QLM_GetModuleHooks() {
    static QLM_ModuleHooks& hooks = *new QLM_ModuleHooks; // the allocator reads it to the very end
    return hooks;
}
