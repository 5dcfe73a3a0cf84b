#pragma once
// Finds the vertices that a weld joins. Private to this room.

#include <cstdint>
#include <vector>

class QLM_Mesh;

/// A vertex that may be joined.
struct QLM_WeldCandidate {
    float position[3];
    float key;    ///< sorted by it: distance from the corner of the mesh's box
    int32_t vertex;
    int32_t group; ///< vertices of equal groups are not joined; -1 joins with all
};

/// Candidates in sort order, in a hash grid whose cells are a few tolerances wide. Whoever asks walks in sort order;
/// what lies behind the walk or was removed leaves the cells as they are visited.
class QLM_WeldSearch {
  public:
    /// `tolerance` above 0; `candidates` sorted.
    QLM_WeldSearch(const std::vector<QLM_WeldCandidate>& candidates, float tolerance);
    /// Places of the later candidates nearer than the tolerance to the candidate at `place` and in another group,
    /// ascending. `place` never goes back. Valid until the next call.
    const std::vector<int32_t>& FindNear(int place);
    /// The candidate at `place` is found no more.
    void Remove(int place) { removed[place] = 1; }

  private:
    uint32_t FindBucket(const int64_t* cell) const;
    void ScanBucket(uint32_t bucket, int place);
    int64_t CellOf(double coordinate) const;

    const std::vector<QLM_WeldCandidate>& candidates;
    const float tolerance;
    const double cellSize;
    uint32_t bucketMask = 0;
    std::vector<int32_t> bucketStart, bucketEnd; ///< range of `places`
    std::vector<int32_t> bucketGroup;            ///< the one group of all that is left, unknown before the first visit
    std::vector<int32_t> places;
    std::vector<uint8_t> removed;
    std::vector<int32_t> found;
};

/// Joins candidates in sort order: map[v] of a joined vertex becomes its target. A vertex is left alone when one of its
/// polygons holds the target already. Needs the polygons of each vertex through `map`, in which targets stand for
/// themselves and which keeps that. Returns how many were joined.
int QLM_JoinWeldCandidates(const QLM_Mesh& mesh, const std::vector<QLM_WeldCandidate>& candidates, float tolerance,
                           int32_t* map);
