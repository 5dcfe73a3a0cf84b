// What lies under a place of a viewport.

#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_Pick.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_ScreenProjection.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <limits>

namespace {

/// The line of sight through a normalised place, in the space of the resolved vertices; t is clip z. False for a view
/// that can't be inverted.
bool MakeRay(const float* modelToClip, float x, float y, QLM_Ray& ray) {
    float clipToModel[16], origin[3];
    if (!MatrixInvertAffine(modelToClip, clipToModel)) return false;
    const float place[3] = {x, y, 0.0f};
    MatrixTransformPoint(clipToModel, place, origin);
    for (int i = 0; i < 3; ++i) {
        ray.origin[i] = origin[i];
        ray.direction[i] = clipToModel[8 + i];
    }
    ray.start = -std::numeric_limits<double>::infinity(); // however far before the look-at
    return true;
}

} // namespace

void QLM_ViewportManager::DropPickCache() { cachedPickValid = false; }

bool QLM_ViewportManager::Pick(QLM_Viewport* viewport, float x, float y, QLM_PickResult& out) {
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (!viewport || !objects) return false;
    if (!cachedPickValid || cachedPickViewport != viewport || cachedPickPlace[0] != x || cachedPickPlace[1] != y) {
        QLM_RayHit hit;
        cachedPickHit = false;
        for (QLM_Object* object : objects->GetObjects(true)) {
            QLM_Mesh* mesh = object->GetMesh();
            QLM_Ray ray;
            if (!mesh || mesh->GetPCount() == 0) continue;
            if (!MakeRay(QLM_ScreenProjection(*viewport, *mesh).GetModelToClip(), x, y, ray)) continue;
            if (!QLM_PickPolygon(*mesh, ray, object->RenderDoubleSided, hit)) continue;
            cachedPickHit = true;
            cachedPickObjectID = object->GetID();
            cachedPick.polygon = hit.polygon;
        }
        const float place[3] = {x, y, static_cast<float>(hit.t)};
        if (cachedPickHit) MatrixTransformPoint(viewport->r4s.camera.clipToWorld, place, cachedPick.point);
        cachedPickValid = true;
        cachedPickViewport = viewport;
        cachedPickPlace[0] = x;
        cachedPickPlace[1] = y;
    }
    if (!cachedPickHit) return false;
    out = cachedPick;
    out.object = QLM_FindByID<QLM_Object>(cachedPickObjectID);
    return out.object != nullptr;
}

// Operations of the utility manager, whose room knows no viewport.

bool QLM_UtilityManager::GetClickedOnPoint(float* point, QLM_Viewport* viewport, float x, float y, bool snapToVertex,
                                           bool toWorld) {
    QLM_PickResult hit;
    if (!viewport || !viewport->owner || !viewport->owner->Pick(viewport, x, y, hit)) return false;
    QLM_Mesh* mesh = hit.object->GetMesh();
    std::copy_n(hit.point, 3, point);
    if (snapToVertex) {
        int vertex, edge;
        float a[2], b[2];
        GetClosestEdgeOrVertexFromViewport(mesh, viewport, hit.polygon, x, y, vertex, edge, a, b, true, false);
        if (vertex < 0) return false;
        std::copy_n(mesh->ResolvedVertices[vertex], 3, point);
    }
    if (toWorld) MatrixTransformPoint(mesh->GetInverseWorldMatrix(), point, point);
    return true;
}

void QLM_UtilityManager::GetClosestEdgeOrVertexFromViewport(QLM_Mesh* mesh, QLM_Viewport* viewport, int polygon,
                                                            float x, float y, int& vertexOut, int& edgeOut,
                                                            float* pointA, float* pointB, bool useVertex,
                                                            bool useEdge) {
    QLM_ClosestElement closest;
    if (mesh && viewport) {
        QLM_PixelView view;
        std::copy_n(QLM_ScreenProjection(*viewport, *mesh).GetModelToClip(), 16, view.modelToClip);
        view.width = static_cast<float>(viewport->width);
        view.height = static_cast<float>(viewport->height);
        closest = QLM_FindClosestVertexOrEdge(*mesh, polygon, view, x, y, useVertex, useEdge);
    }
    vertexOut = closest.vertex;
    edgeOut = closest.edge;
    std::copy_n(closest.pointA, 2, pointA);
    std::copy_n(closest.pointB, 2, pointB);
}
