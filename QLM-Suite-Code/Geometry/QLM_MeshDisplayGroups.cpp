#include "Geometry/QLM_MeshDisplayGroups.h"

#include "Engine/QLM_Managers.h"
#include "Geometry/QLM_GroupFlags.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_Mesh.h"

#include <algorithm>

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

void BigFlagArray::ClearColumn(int group) {
    if (group < 0 || group >= groupCount) return;
    const uint8_t kept = static_cast<uint8_t>(~(1 << (group % 8)));
    for (size_t at = group / 8; at < bytes.size(); at += rowBytes) bytes[at] &= kept;
}

void BigFlagArray::AddColumn(int from, int to) {
    if (from < 0 || from >= groupCount || to < 0 || to >= groupCount) return;
    for (int p = 0; p < polygonCount; ++p)
        if (GetFlag(p, from)) SetFlag(p, to, true);
}

namespace {
/// The layer manager; null without an engine and at shutdown.
QLM_LayerManager* FindLayers() {
    QLM_LayerManager* layers = QLM_GetManagers().GetLayerManager();
    return QLM_IsItemUsable(layers) ? layers : nullptr;
}
} // namespace

void QLM_DisplayGroupFlagContainer::OnSetPolygonCount(int oldCount, int newCount) {
    QLM_LayerManager* layers = FindLayers();
    const int columns = layers ? layers->GetColumnCount() : static_cast<int>(QLM_LayerManager::FirstUserColumn);
    SetSizes(std::max(GetGroupCount(), columns), newCount);
    for (int p = oldCount; p < newCount; ++p) SetFlag(p, QLM_LayerManager::Background, true);
}

void QLM_DisplayGroupFlagContainer::OnAfterRawBuild() {
    QLM_LayerManager* layers = FindLayers();
    if (!layers) return;
    const std::vector<QLM_DisplayGroup*> groups = layers->GetGroups();
    QLM_UpdateHiddenFlags(*mesh, groups);
    QLM_UpdateLockedFlags(*mesh, groups);
}
