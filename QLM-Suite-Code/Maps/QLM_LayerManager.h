#pragma once
#include "Engine/QLM_Manager.h"

class QLM_MapLayer;

/// The layers and display groups of the scene. Main thread.
class QLM_LayerManager : public QLM_Manager {
  public:
    /// The layer that takes paint; null while there are no layers.
    QLM_MapLayer* GetCurrentMapLayer() const { return nullptr; }
};
