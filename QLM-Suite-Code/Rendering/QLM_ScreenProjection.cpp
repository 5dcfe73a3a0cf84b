#include "Rendering/QLM_ScreenProjection.h"

#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_SceneAccess.h"

#include <cmath>

QLM_ScreenCache& QLM_PrepareScreenCache(QLM_Viewport& viewport, QLM_Mesh& mesh) {
    QLM_ScreenCache& cache = viewport.r4s.screenCaches[mesh.GetID()];
    const size_t count = static_cast<size_t>(mesh.GetVCount());
    if (cache.points.size() != count * 3) {
        cache.points.resize(count * 3);
        cache.valid = false;
    }
    cache.meshID = mesh.GetID();
    return cache;
}

QLM_ScreenProjection::QLM_ScreenProjection(const QLM_Viewport& viewport, const QLM_Mesh& mesh) {
    // Resolved vertices are in world space already: only the scene's matrix stands before the camera's.
    const float* worldToClip = viewport.r4s.camera.worldToClip;
    const QLM_Engine* engine = QLM_GetEngine();
    if (engine && !MatrixIsIdentity(engine->sceneMatrix, 0.0f))
        MatrixMultiply(engine->sceneMatrix, worldToClip, modelToClip);
    else std::copy(worldToClip, worldToClip + 16, modelToClip);
    const bool resolved = mesh.ResolvedVertices.GetCount() == static_cast<uint32_t>(mesh.GetVCount());
    positions = resolved ? mesh.ResolvedVertices.GetData() : mesh.Vertices.GetData();
}

void QLM_ScreenProjection::Run(QLM_ScreenCache& cache, int start, int end) const {
    const float* from = positions + static_cast<int64_t>(start) * 3;
    float* to = cache.points.data() + static_cast<int64_t>(start) * 3;
    for (int i = start; i < end; ++i, from += 3, to += 3) MatrixTransformPoint(modelToClip, from, to);
}

bool QLM_ScreenProjection::MeetsRectangle(const float* minimum, const float* maximum, const float* rectangle) const {
    for (int axis = 0; axis < 2; ++axis) {
        // The picture of a box is as wide as its extents, each turned to the screen's axis, added up.
        float centre = modelToClip[12 + axis], extent = 0;
        for (int i = 0; i < 3; ++i) {
            const float m = modelToClip[i * 4 + axis];
            centre += m * (minimum[i] + maximum[i]) * 0.5f;
            extent += std::fabs(m) * (maximum[i] - minimum[i]) * 0.5f;
        }
        extent += 1e-6f + 1e-5f * (extent + std::fabs(centre)); // rounding must not lose a box at the edge
        if (centre + extent < rectangle[axis] || centre - extent > rectangle[axis + 2]) return false;
    }
    return true;
}
