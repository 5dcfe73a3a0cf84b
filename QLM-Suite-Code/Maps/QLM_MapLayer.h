#pragma once
// A layer of image maps.

#include "Maps/QLM_LayerDefinition.h"

/// One of the scene's layers; every map may hold a member for it.
class QLM_MapLayer : public QLM_LayerDefinition {
  public:
    int32_t BlendType = 0;
    bool IsBase = false; ///< carries the maps as they were before any layer was made
};
