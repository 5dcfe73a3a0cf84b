#pragma once
// Polygons, corners and the flag bits of meshes.

#include <cstdint>

struct QLM_PolygonCorner {
    int32_t vertex = -1, textureVertex = -1, normal = -1;
};

struct QLM_Polygon {
    static constexpr uint16_t None = 65535;
    uint16_t material = None, group = None;
    int16_t count = 0;
    QLM_PolygonCorner* corners = nullptr; ///< from the pool of its count
};
static_assert(sizeof(QLM_Polygon) == 16);
constexpr int QLM_MaximumCorners = 1000;

/// What hot loops read instead of a virtual call a corner: the polygon array and, while welded, the weld map.
struct QLM_PolygonView {
    const QLM_Polygon* polygons = nullptr;
    const int32_t* weldMap = nullptr;

    int GetVertex(int p, int i) const {
        const int v = polygons[p].corners[i].vertex;
        return weldMap ? weldMap[v] : v;
    }
};

enum QLM_VertexFlag : uint32_t {
    eVFlag_Hidden = 1, eVFlag_Selected = 2, eVFlag_Locked = 4, eVFlag_RigidEdge = 8, eVFlag_OpenEdge = 16,
    eVFlag_SelectedB = 32, eVFlag_OnSymmetryPlane = 64, eVFlag_SelectedScratch = 128, eVFlag_UVSeam = 256,
    eVFlag_ConcaveValid = 512, eVFlag_Scratch = 1024
};
enum QLM_PolygonFlag : uint32_t {
    ePFlag_Hidden = 1, ePFlag_Selected = 2, ePFlag_Locked = 4, ePFlag_AffectedUV = 8, ePFlag_SelectedB = 16,
    ePFlag_CornerSelected = 32, ePFlag_SelectedScratch = 64, ePFlag_Scratch = 256, ePFlag_UVOverlapTest = 512,
    ePFlag_UVOverlap = 1024, ePFlag_UVOverlapB = 2048
};
