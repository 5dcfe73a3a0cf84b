#pragma once
// What culling, selection and fade by angle leave of a stroke at each vertex.

#include "Engine/QLM_Manager.h"
#include "Geometry/QLM_VertexMap.h"

#include <map>

class QLM_Mesh;
class QLM_Viewport;

/// A weight a vertex, found at its first use and kept until the mesh is invalidated, whatever the view does meanwhile.
/// Main thread.
class QLM_VertexWeightManager : public QLM_Manager {
  public:
    bool DependsOnShape() const override { return true; }
    void Clear() override { DeleteAll(); }

    virtual void DeleteAll();
    /// Makes the mesh the one in work, in the current viewport's view. Called before the weights of each mesh are read.
    virtual void PrepareMesh(QLM_Mesh* mesh);
    virtual void Invalidate(QLM_Mesh* mesh);
    virtual bool IsValid(QLM_Mesh* mesh);
    virtual void InvalidateAll();

    void ResetMesh(QLM_Mesh* mesh) { Invalidate(mesh); }
    void SetUseSelection(bool on) { UseSelection = on; }
    void SetUseFadeByAngle(bool on) { UseFadeByAngle = on; }
    bool UsesSelection() const { return UseSelection; }
    /// What a stroke that begins is scaled by: the tool's option of fading, and selections if any mesh has one.
    void UseForStroke(bool fadeByAngle);
    /// 0..1 of a vertex of the prepared mesh: 0 where it is culled, else selection times fade, as far as in use.
    float GetVertexWeight(QLM_Mesh* mesh, int v);
    void ForgetMesh(QLM_Mesh* mesh);

  private:
    QLM_VertexMap1D* FindMap(const QLM_Mesh* mesh) const;
    float ComputeWeight(const QLM_Mesh& mesh, int v) const;

    std::map<uint32_t, QLM_Owned<QLM_VertexMap1D>> maps; ///< by the ID of the object
    QLM_VertexMap1D* CurrentMap = nullptr;
    const QLM_Viewport* CurrentViewport = nullptr;
    const QLM_Mesh* currentMesh = nullptr;
    bool SymmetryActive = false, UseSelection = false, UseFadeByAngle = false;
};
