#include "Engine/QLM_Managers.h"

#include "Core/Logging/QLM_Logger.h"
#include "Engine/QLM_Manager.h"

QLM_Managers::~QLM_Managers() {
    for (size_t i = 0; i < list.size(); ++i) {
        delete list[i];
        clearSlot[i]();
    }
}

void QLM_Managers::AfterClearAll() {
    for (QLM_Manager* manager : list) manager->AfterClear();
}

void QLM_Managers::InitializeAll() {
    QLM_TRACE(1);
    for (QLM_Manager* manager : list) manager->Initialize();
}

void QLM_Managers::IdleAll() {
    for (QLM_Manager* manager : list) manager->OnIdle();
}

void QLM_Managers::ClearAll() {
    for (QLM_Manager* manager : list) manager->Clear();
}

void QLM_Managers::ClearShapeDependents() {
    for (QLM_Manager* manager : list)
        if (manager->DependsOnShape()) manager->Clear();
}
