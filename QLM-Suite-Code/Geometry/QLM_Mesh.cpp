#include "Geometry/QLM_Mesh.h"

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_CornerPools.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_PointBox.h"
#include "Math/QLM_Matrix.h"

QLM_Mesh::QLM_Mesh(QLM_Object* objectIn) {
    // The order of registration is the order of every notification.
    Register(static_cast<QLM_DisplayGroupFlagContainer*>(this), this);
    Register(static_cast<QLM_TransformMeshContainer*>(this), this);
    Register(static_cast<QLM_MeshLookupsContainer*>(this), this);
    Register(static_cast<QLM_OctreeMeshContainer*>(this), this);
    Register(static_cast<QLM_MeshFlagsContainer*>(this), this);
    Register(static_cast<QLM_MeshMaterialContainer*>(this), this);
    Register(static_cast<QLM_MeshGroupContainer*>(this), this);
    Register(static_cast<QLM_MeshSymmetryContainer*>(this), this);
    Register(static_cast<QLM_MeshDiscontinuousNormalsContainer*>(this), this);
    Register(static_cast<QLM_MeshHotSelectionContainer*>(this), this);
    Register(static_cast<QLM_MeshConcaveContainer*>(this), this);
    Register(static_cast<QLM_WeldMeshContainer*>(this), this);
    Register(static_cast<QLM_MeshMorphContainer*>(this), this);
    Register(static_cast<QLM_MeshCalculateNormalsContainer*>(this), this);
    Register(static_cast<QLM_MeshUtilitiesContainer*>(this), this);
    Mesh = this;
    object = objectIn;
}

QLM_Mesh::~QLM_Mesh() {
    if (QLM_Engine* engine = QLM_GetEngine(); engine && engine->managers)
        if (QLM_ObjectManager* manager = engine->managers->GetObjectManager(); QLM_IsItemUsable(manager))
            manager->ForgetMesh(this);
    QLM_CornerPools& pools = QLM_CornerPools::Get();
    for (QLM_Polygon& polygon : Polygons) pools.Free(polygon.corners, polygon.count);
    pools.ReleaseEmptyChunks();
}

void QLM_Mesh::SetPolygonVertex(int p, int i, int v) { Polygons[p].corners[i].vertex = v; }

void QLM_Mesh::SetPolygonTextureVertex(int p, int i, int vt) { Polygons[p].corners[i].textureVertex = vt; }

void QLM_Mesh::SetPolygonGroup(int p, int g) { Polygons[p].group = static_cast<uint16_t>(g); }

void QLM_Mesh::SetPolygonMaterial(int p, int m) { Polygons[p].material = static_cast<uint16_t>(m); }

void QLM_Mesh::SetPolygonCornerCount(int p, int n) {
    n = std::clamp(n, 0, QLM_MaximumCorners);
    ReplaceCorners(p, QLM_CornerPools::Get().Allocate(n), n);
}

void QLM_Mesh::ReplaceCorners(int p, QLM_PolygonCorner* corners, int n) {
    QLM_CornerPools::Get().Free(Polygons[p].corners, Polygons[p].count);
    Polygons[p].corners = corners;
    Polygons[p].count = static_cast<int16_t>(n);
}

QLM_PolygonCorner* QLM_Mesh::GetPolygonCorners(int p) { return Polygons[p].corners; }

void QLM_Mesh::SetSizes(int vcount, int vtcount, int pcount) {
    SetVCount(vcount);
    SetPCount(pcount);
    SetVTCount(vtcount);
    NotifyAfterSetSizes();
}

void QLM_Mesh::SetVCount(int n) {
    n = std::max(n, 0);
    const int old = GetVCount();
    QLM_MeshRoot::SetVCount(n);
    SavedVertexNormals.Resize(n, false, true);
    NotifyVertexCount(old, n);
}

void QLM_Mesh::SetVTCount(int n) {
    n = std::max(n, 0);
    const int old = GetVTCount();
    QLM_MeshRoot::SetVTCount(n);
    NotifyTextureVertexCount(old, n);
}

void QLM_Mesh::SetPCount(int n) {
    n = std::max(n, 0);
    const int old = GetPCount();
    QLM_MeshRoot::SetPCount(n);
    for (int p = n; p < old; ++p) QLM_CornerPools::Get().Free(Polygons[p].corners, Polygons[p].count);
    Polygons.resize(n);
    NotifyPolygonCount(old, n);
    SetDepth(4);
    InvalidateOctree();
}

void QLM_Mesh::CalculateBounds() {
    const QLM_PointBox box = QLM_CrunchBox(GetVCount(), "Bounds_ThreadFunc",
                                           [&](int v, QLM_PointBox& own) { own.Add(Vertices[v]); });
    box.CopyTo(BoundsMin, BoundsMax);
    box.CopyTo(ResolvedBoundsMin, ResolvedBoundsMax);
    double squared = 0.0;
    for (int k = 0; k < 3; ++k) {
        const double side = static_cast<double>(BoundsMax[k]) - BoundsMin[k];
        squared += side * side;
    }
    BoundsDiagonal = static_cast<float>(std::sqrt(squared));

    RecomputeWorldMatrix();
    QLM_PointBox moved;
    for (int corner = 0; corner < 8 && !box.IsEmpty(); ++corner) {
        float point[3];
        for (int k = 0; k < 3; ++k) point[k] = corner >> k & 1 ? BoundsMax[k] : BoundsMin[k];
        MatrixTransformPoint(GetWorldMatrix(), point, point);
        moved.Add(point);
    }
    moved.CopyTo(TransformedBoundsMin, TransformedBoundsMax);
}

void QLM_Mesh::GetPolygonUVBounds(int p, float* minUV, float* maxUV) const {
    const QLM_Polygon& polygon = Polygons[p];
    bool first = true;
    for (int axis = 0; axis < 2; ++axis) minUV[axis] = maxUV[axis] = 0.0f;
    for (int i = 0; i < polygon.count && GetVTCount() > 0; ++i, first = false) {
        const float* uv = TextureVertices[polygon.corners[i].textureVertex];
        for (int axis = 0; axis < 2; ++axis) {
            minUV[axis] = first ? uv[axis] : std::min(minUV[axis], uv[axis]);
            maxUV[axis] = first ? uv[axis] : std::max(maxUV[axis], uv[axis]);
        }
    }
}

void QLM_Mesh::GetTransformedVertex(int v, float* out) const {
    if (const QLM_Engine* engine = QLM_GetEngine()) MatrixTransformPoint(engine->sceneMatrix, ResolvedVertices[v], out);
    else std::copy_n(ResolvedVertices[v], 3, out);
}

QLM_Material* QLM_Mesh::GetMaterialOfPolygon(int p) const {
    if (QLM_Material* material = FindMaterial(Polygons[p].material)) return material;
    const QLM_Engine* engine = QLM_GetEngine();
    return engine ? engine->emptyMaterial : nullptr;
}
