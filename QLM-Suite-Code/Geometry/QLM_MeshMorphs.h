#pragma once
// A mesh's morphs and the shape that they resolve to.

#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_Morph.h"

#include <vector>

/// Keeps one morph current and expanded, all others parked, and the sum of the others ready, so that a stroke touches
/// two arrays however many morphs there are. Main thread; ResolveMorphs fans out.
class QLM_MeshMorphContainer : public QLM_MeshContainerMesh {
  public:
    ~QLM_MeshMorphContainer() override;
    /// The first time: the tree with one "Default Morph", which becomes current.
    void OnAfterSetSizes() override;
    void OnSetVertexCount(int oldCount, int newCount) override;

    /// Fills ResolvedVertices (base, plus the sum of the others in tree order, plus the current one, each delta times
    /// strength) and the resolved box, which never is smaller than the raw one; with `applyTransform` then moves what
    /// is visible by the world matrix.
    void ResolveMorphs(bool applyTransform);

    /// The current morph; null, and the ID cleared, when it is gone.
    QLM_Morph* GetCurrentMorph();
    uint32_t GetCurrentMorphId() const { return CurrentMorphId; }
    /// The current morph's triples, expanded; null without a current morph. Who writes calls MarkChanged.
    float* GetCurrentDeltas();
    /// Makes a morph of this mesh current, or none; parks the former and all that is not in use. The shape is the
    /// same afterwards, so nothing needs a resolve.
    void SetCurrentMorph(QLM_Morph* morph);
    /// A morph of zeros in a folder of this mesh's tree (null: the root). It is not made current.
    QLM_Morph* CreateMorph(QLM_TreeGroup* parent = nullptr);
    /// Takes a morph of this mesh out of its tree and deletes it.
    void DeleteMorph(QLM_Morph* morph);

    /// Without effect unless the optimized deltas are valid and the morph isn't the current one.
    void AddMorphToOptimizedDeltas(QLM_Morph* morph);
    void SubtractMorphFromOptimizedDeltas(QLM_Morph* morph);
    /// Sets a morph's strength to `newStrength` and carries the difference into the optimized deltas in one pass over
    /// that morph; of the current morph only the strength changes. Follow with OnShapeChanged.
    void UpdateMorphForOptimizedDeltas(QLM_Morph* morph, float oldStrength, float newStrength);
    /// To be called when deltas of a morph that isn't current changed; MarkChanged does it.
    void InvalidateOptimizedDeltas() { OptimizedDeltasValid = false; }
    bool AreOptimizedDeltasValid() const { return OptimizedDeltasValid; }

    bool IsMorphInUse(const QLM_Morph* morph);
    /// Expands a morph and gives it the mesh's vertex count. Every call needs its EndUsingMorph, also when it answers
    /// false (the deltas were lost, which was reported, and are zeros now).
    bool BeginUsingMorph(QLM_Morph* morph, const char* caller = "BeginUsingMorph");
    /// Parks the morph unless it is in use.
    void EndUsingMorph(QLM_Morph* morph);

    /// All morphs in tree order.
    void GetMorphs(QLM_RootClassQueue<QLM_Morph*>& queue);
    QLM_Morph* FindMorph(const std::string& name) { return Tree ? Tree->FindMorph(name) : nullptr; }
    QLM_MorphTreeGroup* GetMorphTree() { return Tree.Get(); } ///< null before SetSizes

    /// A triple a vertex: the sum of strength x delta of all morphs, as it stands in the resolved shape.
    void SumDeformations(QLM_VertexMap3D& out);

    /// Brings every morph to the mesh's vertex count, as after a change of the counts.
    void EnforceMorphSizes();
    /// Writes the tree's block "morphs".
    void SaveMorphs(FILE* stream);
    /// Reads the block "morphs" whose key line was just read. The automatic "Default Morph" goes when the block
    /// brings morphs but none of that name; lengths are brought to the vertex count; all but the current one are
    /// parked. False when a record failed; what was read before it stays.
    bool LoadMorphs(FILE* stream);
    /// Makes current what the record says and drops the sums; after a project load and an import.
    void FinishMorphsAfterLoad();
    /// Forgets a morph that is being deleted; for the morph itself.
    void ForgetMorph(QLM_Morph* morph);

    QLM_VertexMap3D CurrentDeltasWork; ///< empty until PrepareCurrentDeltasWork; then a triple a vertex
    /// The working array of tools and weld pass in the mesh's length; what is new in it is zero.
    QLM_VertexMap3D& PrepareCurrentDeltasWork();
    const QLM_VertexMap3D& GetAllDeformationsMinusCurrent() const { return AllDeformationsMinusCurrent; }

  private:
    void RebuildOptimizedDeltas(const QLM_Morph* current);
    void ChangeSum(QLM_Morph* morph, float removed, float added, const char* caller, const char* badLength);
    void ParkUnused();
    std::vector<QLM_Morph*> ListMorphs();

    uint32_t CurrentMorphId = 0;
    bool OptimizedDeltasValid = false;
    QLM_VertexMap3D AllDeformationsMinusCurrent; ///< empty while no other morph contributes
    QLM_VertexMap3D SumRemainder; ///< what rounding has kept back of changes since the sum was made; empty before one
    QLM_Owned<QLM_MorphTreeGroup> Tree;
};

/// A morph in use for as long as this lives.
class QLM_MorphUse {
  public:
    QLM_MorphUse(QLM_MeshMorphContainer& containerIn, QLM_Morph* morphIn, const char* caller)
        : container(containerIn), morph(morphIn), succeeded(containerIn.BeginUsingMorph(morphIn, caller)) {}
    ~QLM_MorphUse() { container.EndUsingMorph(morph); }
    QLM_MorphUse(const QLM_MorphUse&) = delete;
    QLM_MorphUse& operator=(const QLM_MorphUse&) = delete;
    bool Succeeded() const { return succeeded; }
    float* GetDeltas() const { return morph->Deltas.GetData(); }

  private:
    QLM_MeshMorphContainer& container;
    QLM_Morph* morph;
    bool succeeded;
};
