#pragma once
// Managers of tools whose operations come with their features.

#include "Engine/QLM_Manager.h"

class QLM_BrushTileManager : public QLM_Manager {
  public:
    float GetAspect() const { return 1.0f; }
};
class QLM_PresetManager : public QLM_Manager {};
