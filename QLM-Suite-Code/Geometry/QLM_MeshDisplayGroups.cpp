#include "Geometry/QLM_MeshDisplayGroups.h"

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

void QLM_DisplayGroupFlagContainer::OnSetPolygonCount(int, int newCount) { SetSizes(GetGroupCount(), newCount); }
