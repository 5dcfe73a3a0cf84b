#pragma once
// The managers as this room finds them: viewports exist before the other managers do, and after some of them.

#include "Engine/QLM_Engine.h"

/// The engine's managers, null before the engine exists.
inline QLM_Managers* QLM_ManagersOrNull() {
    QLM_Engine* engine = QLM_GetEngine();
    return engine ? engine->managers : nullptr;
}
/// The object manager, null while it doesn't exist.
inline QLM_ObjectManager* QLM_ObjectManagerOrNull() {
    QLM_Managers* managers = QLM_ManagersOrNull();
    return managers ? managers->GetObjectManager() : nullptr;
}
/// Asks the shell for a new frame of the canvas.
inline void QLM_RequestRedraw() {
    const QLM_Engine* engine = QLM_GetEngine();
    if (engine && engine->shell.requestRedraw) engine->shell.requestRedraw();
}
/// The culling manager, null while it doesn't exist.
inline QLM_CullingManager* QLM_CullingManagerOrNull() {
    QLM_Managers* managers = QLM_ManagersOrNull();
    return managers ? managers->GetCullingManager() : nullptr;
}
