#pragma once
// Managers of views whose operations come with their features.

#include "Engine/QLM_Manager.h"

#include <functional>

class QLM_Mesh;
class QLM_Object;
class QLM_Viewport;

class QLM_RenderManager : public QLM_Manager {};

/// Answers which octree leaves lie under a screen rectangle.
class QLM_ViewportHoverManager : public QLM_Manager {
  public:
    bool DependsOnShape() const override { return true; }
    /// Appends the leaf indices whose boxes meet the normalised rectangle (min x, min y, max x, max y), in tree order.
    void CollectHoverLeaves(const float* rectangle, QLM_Object* object, QLM_Viewport* viewport,
                            std::vector<int>& leaves);
};

/// History of views, apart from the main undo list.
class QLM_NavigationManager : public QLM_Manager {
  public:
    void BeginNavigation(QLM_Viewport*) {}
};
