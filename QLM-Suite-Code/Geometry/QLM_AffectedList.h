#pragma once
// The vertices under the brush stamp in progress.

#include "Core/Objects/QLM_SimpleArray.h"

class QLM_Mesh;

/// One table for the process: a single stamp is in progress at any time. Its memory stays from stamp to stamp. Filled
/// on the main thread, only read while workers deform.
class QLM_AffectedList {
  public:
    struct AffectedPoint {
        int32_t Vertex;
        float Weight;
    };
    static constexpr int Marker = 5; ///< the mesh's vertex marker set that holds who is in the list

    static QLM_AffectedList& Get();

    /// Empties the list for a mesh: room for each of its vertices once, its markers cleared.
    void Reset(QLM_Mesh* mesh);
    /// Appends a vertex that isn't in the list yet; the room is not tested. A borrowed table raises
    /// "ExternalDataNotAllowed".
    void Add(int vertex, float weight);
    bool Contains(int vertex) const;
    int GetCount() const { return points.GetCount(); }
    int GetCapacity() const { return points.GetCapacity(); }
    const AffectedPoint& GetEntry(int i) const { return points[i]; }
    QLM_Mesh* GetMesh() const { return mesh; }
    /// Stands on a foreign table until the next Reset.
    void Borrow(AffectedPoint* table, int count) { points.SetExternal(table, count); }
    /// Lets go of a mesh that goes away or changes its counts.
    void ForgetMesh(const QLM_Mesh* meshIn);

  private:
    QLM_SimpleArray<AffectedPoint> points;
    QLM_Mesh* mesh = nullptr;
};
