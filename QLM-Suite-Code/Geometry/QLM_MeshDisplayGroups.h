#pragma once
// The bits that say which polygons stand in which display groups.

#include "Geometry/QLM_MeshContainer.h"

#include <cstdint>
#include <vector>

/// A row of bits a polygon, one column a display group; rows are whole bytes.
class BigFlagArray {
  public:
    bool GetFlag(int polygon, int group) const;
    void SetFlag(int polygon, int group, bool on);
    void SetSizes(int groupCount, int polygonCount); ///< keeps the overlapping part
    bool Merge(const BigFlagArray& other);           ///< OR; false when the sizes differ
    int GetGroupCount() const { return groupCount; }
    int GetPolygonCount() const { return polygonCount; }
    int GetRowBytes() const { return rowBytes; }
    const std::vector<uint8_t>& GetBytes() const { return bytes; }
    const uint8_t* GetRow(int polygon) const { return bytes.data() + static_cast<size_t>(polygon) * rowBytes; }
    void ClearColumn(int group);
    /// ORs `from` into `to`; does nothing for a column out of range.
    void AddColumn(int from, int to);

  private:
    std::vector<uint8_t> bytes;
    int groupCount = 0, polygonCount = 0, rowBytes = 0;
};

/// The mesh's rows. It always has a column for each display group, and new polygons stand in the background's.
class QLM_DisplayGroupFlagContainer : public QLM_MeshContainerMesh, public BigFlagArray {
  public:
    void OnAfterRawBuild() override; ///< the flags of polygons and vertices follow the groups anew
    void OnSetPolygonCount(int oldCount, int newCount) override;
};
