#pragma once
// The soft selection that the tools work on.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_VertexMap.h"

/// Soft selection of the tools: a weight of 0..1 for each vertex and polygon. The array of the engine's selection mode
/// leads, a rebuild derives the other one. Both are empty while nothing is selected. Changes on the main thread,
/// while nothing is drawn; workers only read.
class QLM_MeshHotSelectionContainer : public QLM_MeshContainerMesh {
  public:
    enum class SoftenMode { Both = 0, RaiseOnly = 1, LowerOnly = 2 };

    void OnAfterRawBuild() override;
    void OnSetVertexCount(int oldCount, int newCount) override;
    void OnSetPolygonCount(int oldCount, int newCount) override;

    // The counts rebuild what isn't current; entries are ascending.
    virtual int GetSelectedVertexCount();
    virtual int GetSelectedVertex(int i) const { return SelectedVertices[i]; }
    virtual int GetSelectedPolygonCount();
    virtual int GetSelectedPolygon(int i) const { return SelectedPolygons[i]; }

    bool HasSelection() const { return VertexWeights.GetCount() > 0; }
    float GetVertexWeight(int v) const { return HasSelection() ? *VertexWeights[v] : 0.0f; }
    float GetPolygonWeight(int p) const { return PolygonWeights.GetCount() > 0 ? *PolygonWeights[p] : 0.0f; }
    void SetVertexWeight(int v, float w);  ///< clamps to 0..1
    void SetPolygonWeight(int p, float w); ///< clamps to 0..1
    /// The same, but a vertex that is welded to another one takes over the weight of that one.
    void SetVertexWeightWelded(int v, float w);
    /// Gives both arrays the size of the mesh; for a caller that writes them itself and then calls Invalidate.
    void AllocateWeights();
    /// What follows from the weights isn't current any more.
    void Invalidate() { ArraysValid = false; }

    /// Derives the other array, the lists, the flags of vertices, polygons and leaves, and MaxWeight. Hidden and locked
    /// elements lose their weight for good; with `symmetric` a vertex counts with the weight of its source. Gives the
    /// arrays back when nothing has a weight.
    void RebuildSelectionArrays(bool symmetric);
    void ClearSelection();
    void ConvertVertexToPolygon(); ///< a polygon gets the smallest weight of its usable corners
    void ConvertPolygonToVertex(); ///< a vertex gets the greatest weight of its visible polygons
    void Grow();                   ///< each element takes the greatest weight around it
    void Shrink();                 ///< each element takes the smallest weight around it
    /// Each element takes the mean of the weights around it; with `preserveMax` the greatest weight stays what it was.
    /// Polygons take `strength` (0..1) of the way.
    void Soften(bool preserveMax, SoftenMode mode, float strength = 1.0f);
    /// Sets eNode_Selected on the leaves that hold something selected, clears it on the others.
    void MarkSelectedLeaves();

    QLM_VertexMap1D VertexWeights, PolygonWeights;
    float MaxWeight = 0.0f; ///< of the visible vertices, by the last rebuild

  private:
    static bool IsPolygonMode();
    bool IsUsableVertex(int v) const;
    bool IsUsablePolygon(int p) const;
    void RemoveUnusableWeights();
    /// Both rewrite the flags of all elements and tell whether a usable one has a weight.
    bool FlagVertices(bool symmetric);
    bool FlagPolygons(bool symmetric);
    template <class Pick> void Spread(Pick pick);
    void SoftenVertices(bool preserveMax, SoftenMode mode);
    void SoftenPolygons(bool preserveMax, SoftenMode mode, float strength);

    bool ArraysValid = true;
    bool hasFlags = false; ///< some element or leaf bears a flag of the last rebuild
    QLM_SimpleArray<int32_t> SelectedVertices, SelectedPolygons;
};
