#include "Geometry/QLM_MeshContainers.h"

#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_MeshNormals.h"
#include "Math/QLM_Matrix.h"

void QLM_MeshContainerOwner::Register(QLM_MeshContainerMesh* container, QLM_Mesh* mesh) {
    container->mesh = mesh;
    containers.push_back(container);
}

void QLM_MeshContainerOwner::NotifyAfterRawBuild() {
    for (QLM_MeshContainerMesh* container : containers) container->OnAfterRawBuild();
}

void QLM_MeshContainerOwner::NotifyAfterSetSizes() {
    for (QLM_MeshContainerMesh* container : containers) container->OnAfterSetSizes();
}

void QLM_MeshContainerOwner::NotifyVertexCount(int oldCount, int newCount) {
    for (QLM_MeshContainerMesh* container : containers) container->OnSetVertexCount(oldCount, newCount);
}

void QLM_MeshContainerOwner::NotifyTextureVertexCount(int oldCount, int newCount) {
    for (QLM_MeshContainerMesh* container : containers) container->OnSetTextureVertexCount(oldCount, newCount);
}

void QLM_MeshContainerOwner::NotifyPolygonCount(int oldCount, int newCount) {
    for (QLM_MeshContainerMesh* container : containers) container->OnSetPolygonCount(oldCount, newCount);
}

// Rows of display group bits.

bool BigFlagArray::GetFlag(int polygon, int group) const {
    return bytes[static_cast<size_t>(polygon) * rowBytes + group / 8] >> (group % 8) & 1;
}

void BigFlagArray::SetFlag(int polygon, int group, bool on) {
    uint8_t& byte = bytes[static_cast<size_t>(polygon) * rowBytes + group / 8];
    const uint8_t bit = static_cast<uint8_t>(1 << (group % 8));
    byte = static_cast<uint8_t>(on ? byte | bit : byte & ~bit);
}

void BigFlagArray::SetSizes(int newGroupCount, int newPolygonCount) {
    const int newRowBytes = (newGroupCount + 7) / 8;
    if (newRowBytes == rowBytes) bytes.resize(static_cast<size_t>(newPolygonCount) * rowBytes);
    else {
        std::vector<uint8_t> fresh(static_cast<size_t>(newPolygonCount) * newRowBytes);
        const int rows = std::min(polygonCount, newPolygonCount), width = std::min(rowBytes, newRowBytes);
        for (int p = 0; p < rows; ++p)
            std::copy_n(bytes.data() + static_cast<size_t>(p) * rowBytes, width,
                        fresh.data() + static_cast<size_t>(p) * newRowBytes);
        bytes = std::move(fresh);
        rowBytes = newRowBytes;
    }
    // Columns that were cut off must not come back with their old bits.
    if (newGroupCount < groupCount && newGroupCount % 8)
        for (int p = 0; p < newPolygonCount; ++p)
            bytes[static_cast<size_t>(p + 1) * rowBytes - 1] &= static_cast<uint8_t>((1 << (newGroupCount % 8)) - 1);
    groupCount = newGroupCount;
    polygonCount = newPolygonCount;
}

bool BigFlagArray::Merge(const BigFlagArray& other) {
    if (other.bytes.size() != bytes.size()) return false;
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] |= other.bytes[i];
    return true;
}

void QLM_DisplayGroupFlagContainer::OnSetPolygonCount(int, int newCount) { SetSizes(GetGroupCount(), newCount); }

// Transform.

QLM_TransformMeshContainer::QLM_TransformMeshContainer() {
    MatrixIdentity(Transform_RotationMatrix);
    MatrixIdentity(world);
    MatrixIdentity(inverseWorld);
}

void QLM_TransformMeshContainer::RecomputeWorldMatrix() {
    float toCentre[16], scale[16], fromCentre[16], a[16], b[16];
    MatrixIdentity(toCentre);
    MatrixIdentity(scale);
    MatrixIdentity(fromCentre);
    for (int k = 0; k < 3; ++k) {
        const float centre = 0.5f * mesh->BoundsMin[k] + 0.5f * mesh->BoundsMax[k];
        toCentre[12 + k] = -centre;
        scale[5 * k] = Transform_Scale[k];
        fromCentre[12 + k] = centre;
    }
    MatrixMultiply(toCentre, scale, a);
    MatrixMultiply(a, Transform_RotationMatrix, b);
    MatrixMultiply(b, fromCentre, world);
    for (int k = 0; k < 3; ++k) world[12 + k] += Transform_Pos[k];
    if (!MatrixInvertAffine(world, inverseWorld)) MatrixIdentity(inverseWorld);
}

bool QLM_TransformMeshContainer::IsIdentity() const {
    float identity[16];
    MatrixIdentity(identity);
    return std::equal(world, world + 16, identity);
}

// Flag words.

void QLM_MeshFlagsContainer::OnSetVertexCount(int, int newCount) { vertexFlags.Resize(newCount, true, true); }

void QLM_MeshFlagsContainer::OnSetTextureVertexCount(int, int newCount) {
    textureVertexFlags.Resize(newCount, true, true);
}

void QLM_MeshFlagsContainer::OnSetPolygonCount(int, int newCount) { polygonFlags.Resize(newCount, true, true); }

void QLM_MeshFlagsContainer::ClearAllPolygonFlags(uint32_t bits) {
    for (uint32_t& word : polygonFlags) word &= ~bits;
}

void QLM_MeshFlagsContainer::ClearAllVertexFlags(uint32_t bits) {
    for (uint32_t& word : vertexFlags) word &= ~bits;
}

// Hot selection: nothing is kept while nothing is selected.

void QLM_MeshHotSelectionContainer::OnSetVertexCount(int, int newCount) {
    if (HasSelection()) VertexWeights.Resize(newCount, true, true);
}

void QLM_MeshHotSelectionContainer::OnSetPolygonCount(int, int newCount) {
    if (PolygonWeights.GetCount()) PolygonWeights.Resize(newCount, true, true);
}

// Concavity.

void QLM_MeshConcaveContainer::OnSetVertexCount(int, int newCount) {
    if (values.GetCount()) values.Resize(newCount, true, true);
    enabled = false;
}

void QLM_MeshConcaveContainer::EnableConcavity() {
    if (enabled) return;
    values.Resize(mesh->GetVCount(), false, false);
    mesh->ClearAllVertexFlags(eVFlag_ConcaveValid);
    enabled = true;
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

// Welding.

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
