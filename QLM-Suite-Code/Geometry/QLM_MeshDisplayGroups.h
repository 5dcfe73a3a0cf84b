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

  private:
    std::vector<uint8_t> bytes;
    int groupCount = 0, polygonCount = 0, rowBytes = 0;
};

class QLM_DisplayGroupFlagContainer : public QLM_MeshContainerMesh, public BigFlagArray {
  public:
    void OnSetPolygonCount(int oldCount, int newCount) override;
};
