#include "Geometry/QLM_MeshConcavity.h"

#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_MeshNormals.h"
#include "Math/QLM_Matrix.h"

void QLM_MeshConcaveContainer::OnSetVertexCount(int, int) {
    ResetConcavity();
}

void QLM_MeshConcaveContainer::EnableConcavity() {
    if (enabled) return;
    values.Resize(mesh->GetVCount(), false, false);
    mesh->ClearAllVertexFlags(eVFlag_ConcaveValid);
    enabled = true;
}

void QLM_MeshConcaveContainer::ResetConcavity() {
    values.Free();
    enabled = false;
}

float QLM_MeshConcaveContainer::GetConcavity(int v) {
    if (!enabled) return 0.0f;
    if (mesh->HasVertexFlag(v, eVFlag_ConcaveValid)) return *values[v];
    const int32_t* row = mesh->VertexPolygons.GetRow(v);
    const float* position = mesh->ResolvedVertices[v];
    float sum = 0.0f;
    for (int k = 1; k <= row[0]; ++k) {
        const int corners = mesh->GetPolygonVertexCount(row[k]);
        float offset[3] = {};
        for (int i = 0; i < corners; ++i)
            for (int c = 0; c < 3; ++c) offset[c] += mesh->ResolvedVertices[mesh->GetPolygonVertex(row[k], i)][c];
        for (int c = 0; c < 3; ++c) offset[c] = offset[c] / static_cast<float>(corners) - position[c];
        QLM_ScaleToUnit(offset);
        sum += Dot(offset, mesh->VertexNormals[v]);
    }
    *values[v] = row[0] ? sum / static_cast<float>(row[0]) : 0.0f;
    mesh->SetVertexFlag(v, eVFlag_ConcaveValid);
    return *values[v];
}

void QLM_MeshConcaveContainer::InvalidateAround(int v) {
    mesh->ClearVertexFlag(v, eVFlag_ConcaveValid);
    for (int i = 0; i < mesh->GetVertexNeighborCount(v); ++i)
        mesh->ClearVertexFlag(mesh->GetVertexNeighbor(v, i), eVFlag_ConcaveValid);
}
