#include "Geometry/QLM_MeshWeld.h"

#include "Geometry/QLM_Mesh.h"

void QLM_WeldMeshContainer::OnSetVertexCount(int oldCount, int newCount) {
    if (!welded) return;
    map.Resize(newCount, true, false);
    for (int v = 0; v < newCount; ++v)
        if (v >= oldCount || map[v] >= newCount) map[v] = v;
}

void QLM_WeldMeshContainer::SetWeldTarget(int v, int target) {
    const int count = mesh->GetVCount();
    if (v < 0 || v >= count || target < 0 || target >= count) return;
    if (!welded) {
        map.Resize(count, false, false);
        for (int i = 0; i < count; ++i) map[i] = i;
        welded = true;
    }
    map[v] = target;
}
