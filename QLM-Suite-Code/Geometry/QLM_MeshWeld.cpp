#include "Geometry/QLM_MeshWeld.h"

#include "Core/Logging/QLM_Logger.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_WeldSearch.h"

#include <cmath>
#include <limits>

namespace {
constexpr float smallestWeight = 1.1920929e-7f;

/// Distance of a vertex from the low corner of the box: what candidates are sorted by.
float DistanceFromCorner(const QLM_Mesh& mesh, int v) {
    const float* p = mesh.Vertices[v];
    const float x = p[0] - mesh.BoundsMin[0], y = p[1] - mesh.BoundsMin[1], z = p[2] - mesh.BoundsMin[2];
    return std::sqrt(x * x + y * y + z * z);
}

/// Group of the last polygon that holds the vertex, -1 with none.
int GroupOf(const QLM_Mesh& mesh, int v) {
    const int count = mesh.GetVertexPolygonCount(v);
    return count ? mesh.GetPolygon(mesh.GetVertexPolygon(v, count - 1)).group : -1;
}
} // namespace

void QLM_WeldMeshContainer::OnSetVertexCount(int oldCount, int newCount) {
    if (!welded) return;
    map.Resize(newCount, true, false);
    for (int v = 0; v < newCount; ++v)
        if (v >= oldCount || map[v] >= newCount) map[v] = v;
}

void QLM_WeldMeshContainer::MakeOwnMap() {
    if (welded) return;
    const int count = mesh->GetVCount();
    map.Resize(count, false, false);
    for (int v = 0; v < count; ++v) map[v] = v;
    welded = true;
}

void QLM_WeldMeshContainer::DropMap() {
    map.Free();
    welded = false;
}

void QLM_WeldMeshContainer::Refresh() {
    mesh->AfterRawBuild();
    QLM_Engine* engine = QLM_GetEngine();
    QLM_ObjectManager* objects = engine && engine->managers ? engine->managers->GetObjectManager() : nullptr;
    if (objects && mesh->GetObject()) objects->OnShapeChanged(mesh->GetObject(), true, true, true);
}

void QLM_WeldMeshContainer::SetWeldTarget(int v, int target) {
    const int count = mesh->GetVCount();
    if (v < 0 || v >= count || target < 0 || target >= count) return;
    MakeOwnMap();
    map[v] = target;
}

void QLM_WeldMeshContainer::RestoreWeldMap(const int32_t* targets, int count) {
    const int vertexCount = mesh->GetVCount();
    MakeOwnMap();
    for (int v = 0; v < vertexCount; ++v)
        map[v] = v < count && targets[v] >= 0 && targets[v] < vertexCount ? targets[v] : v;
}

int QLM_WeldMeshContainer::JoinVertices(float threshold, bool openEdgesOnly, bool selectedOnly, bool acrossGroupsOnly) {
    // Take the map up where it stands; a stored one may hold chains.
    MakeOwnMap();
    const int count = mesh->GetVCount();
    for (int v = 0; v < count; ++v) {
        int target = map[v];
        for (int steps = 0; map[target] != target && steps < count; ++steps) {
            map[target] = map[map[target]];
            target = map[target];
        }
        map[v] = map[target] == target ? target : v;
    }
    mesh->BuildVertexPolygons();
    // Neither a huge box nor a huge part of it makes the tolerance infinite.
    constexpr float largest = std::numeric_limits<float>::max();
    float side = 0.0f;
    for (int k = 0; k < 3; ++k) side = std::max(side, std::min(mesh->BoundsMax[k] - mesh->BoundsMin[k], largest));
    const float tolerance = std::min(threshold * side, largest);
    if (!(tolerance > 0.0f)) return 0;

    // List what may be joined, from the box's corner outwards.
    std::vector<QLM_WeldCandidate> candidates;
    for (int v = 0; v < count; ++v) {
        if (map[v] != v) continue;
        if (openEdgesOnly && !mesh->HasVertexFlag(v, eVFlag_OpenEdge)) continue;
        if (selectedOnly && !(mesh->GetVertexWeight(v) >= smallestWeight)) continue;
        const float* p = mesh->Vertices[v];
        candidates.push_back({{p[0], p[1], p[2]}, DistanceFromCorner(*mesh, v), v,
                              acrossGroupsOnly ? GroupOf(*mesh, v) : -1});
    }
    std::sort(candidates.begin(), candidates.end(), [](const QLM_WeldCandidate& a, const QLM_WeldCandidate& b) {
        return a.key < b.key || (a.key == b.key && a.vertex < b.vertex);
    });
    return QLM_JoinWeldCandidates(*mesh, candidates, tolerance, map.GetData());
}

int QLM_WeldMeshContainer::Weld(float threshold, bool openEdgesOnly, bool selectedOnly, bool acrossGroupsOnly) {
    if (mesh->GetVCount() == 0) return 0;
    QLM_TRACE(1);
    const int joined = JoinVertices(threshold, openEdgesOnly, selectedOnly, acrossGroupsOnly);
    savedMap.Free();
    canReweld = false;
    mesh->AfterRawBuild();
    return joined;
}

int QLM_WeldMeshContainer::WeldPermanently(float threshold, bool selectedOnly) {
    if (mesh->GetVCount() == 0) return 0;
    QLM_TRACE(1);
    const int joined = JoinVertices(threshold, false, selectedOnly, false);
    BakeMapIntoPolygons();
    mesh->RemoveProperty("isFixedAsset");
    mesh->AfterRawBuild();
    return joined;
}

bool QLM_WeldMeshContainer::Unweld() {
    if (!welded) return false;
    savedMap.Resize(map.GetCount(), false, false);
    std::copy(map.begin(), map.end(), savedMap.begin());
    DropMap();
    Refresh();
    canReweld = true;
    return true;
}

bool QLM_WeldMeshContainer::Reweld() {
    if (!canReweld || savedMap.GetCount() != mesh->GetVCount()) return false;
    RestoreWeldMap(savedMap.GetData(), savedMap.GetCount());
    Refresh();
    savedMap.Free();
    canReweld = false;
    return true;
}

void QLM_WeldMeshContainer::BakeMapIntoPolygons() {
    if (!welded) return;
    const int count = mesh->GetVCount();
    for (int p = 0; p < mesh->GetPCount(); ++p) {
        const QLM_Polygon& polygon = mesh->GetPolygon(p);
        for (int i = 0; i < polygon.count; ++i) {
            const int v = polygon.corners[i].vertex;
            if (v >= 0 && v < count && map[v] >= 0 && map[v] < count) mesh->SetPolygonVertex(p, i, map[v]);
        }
    }
    DropMap();
}

void QLM_WeldMeshContainer::CopyFlagsToWelded() {
    if (!welded) return;
    // But the mark of a value that stands beside the vertex is not the target's to give.
    for (int v = 0; v < mesh->GetVCount(); ++v)
        if (map[v] != v) mesh->SetVertexFlags(v, mesh->GetVertexFlags(map[v]) & ~eVFlag_ConcaveValid);
}

void QLM_WeldMeshContainer::CopyValuesToWelded(QLM_VertexMap3D& values) {
    if (!welded) return;
    const int count = std::min(mesh->GetVCount(), static_cast<int>(values.GetCount()));
    for (int v = 0; v < count; ++v)
        if (map[v] != v && map[v] < count) std::copy_n(values[map[v]], 3, values[v]);
}

void QLM_WeldMeshContainer::SyncMorphs() {
    if (!welded) return;
    QLM_RootClassQueue<QLM_Morph*> morphs;
    mesh->GetMorphs(morphs);
    bool synced = false;
    for (; !morphs.IsEmpty(); morphs.Pop()) {
        QLM_Morph* morph = morphs;
        if (morph->Synced) continue;
        // One without an array is all zeros, so in step.
        if (morph->Deltas.IsParked() || morph->Deltas.GetData()) {
            QLM_MorphUse use(*mesh, morph, "SyncMorphs");
            CopyValuesToWelded(morph->Deltas);
            if (morph != mesh->GetCurrentMorph()) mesh->InvalidateOptimizedDeltas();
        }
        morph->Synced = synced = true;
    }
    if (!synced) return;
    CopyFlagsToWelded();
    for (int v = 0; v < mesh->GetVCount() && mesh->HasSelection(); ++v)
        if (map[v] != v) *mesh->VertexWeights[v] = *mesh->VertexWeights[map[v]];
}
