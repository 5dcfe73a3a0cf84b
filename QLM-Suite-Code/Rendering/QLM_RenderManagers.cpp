#include "Rendering/QLM_RenderManagers.h"

#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Rendering/QLM_ScreenProjection.h"
#include "Rendering/QLM_Viewport.h"

void QLM_ViewportHoverManager::CollectHoverLeaves(const float* rectangle, QLM_Object* object, QLM_Viewport* viewport,
                                                  std::vector<int>& leaves) {
    QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    if (!mesh || !viewport) return;
    const QLM_ScreenProjection projection(*viewport, *mesh);
    const auto& all = mesh->GetLeaves();
    for (size_t leaf = 0; leaf < all.size(); ++leaf)
        if (projection.MeetsRectangle(all[leaf]->BoundsMin, all[leaf]->BoundsMax, rectangle))
            leaves.push_back(static_cast<int>(leaf));
}
