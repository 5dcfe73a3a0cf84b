#pragma once
#include "Engine/QLM_Manager.h"
#include "Maps/QLM_ImageMap.h"

/// Holds the picture that a stroke was begun on.
class QLM_TouchupRenderManager : public QLM_Manager {
  public:
    void Clear() override { RenderedPixels.SetDimensions(0, 0, 0); }
    bool DependsOnShape() const override { return true; }
    QLM_ImageMap RenderedPixels;
};
