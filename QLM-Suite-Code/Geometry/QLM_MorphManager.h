#pragma once
// Operations of the user on morphs, across all objects.

#include "Engine/QLM_Manager.h"
#include "Geometry/QLM_MorphUnion.h"

class QLM_Mesh;
class QLM_Object;

/// Owns the unions; the morphs belong to their meshes. "Highlighted" are the marked unions, those in marked folders,
/// and the current one when nothing is marked. Operations that change the shape end in OnShapeChanged. Main thread.
class QLM_MorphManager : public QLM_Manager {
  public:
    QLM_MorphManager();
    ~QLM_MorphManager() override;
    void Clear() override; ///< deletes all unions

    QLM_MorphUnionGroup* GetTree() { return tree.Get(); }
    QLM_MorphUnion* GetCurrentUnion() { return tree->GetCurrentItem(); }
    /// Makes a union current, and on each mesh its member, or none there; null for none at all.
    void SetCurrentUnion(QLM_MorphUnion* morphUnion);
    /// All unions in tree order, tied to the meshes' morphs first.
    std::vector<QLM_MorphUnion*> GetMorphUnionList();
    /// Ties each mesh's morphs to the union of their name, which is made where it is missing.
    void RebuildUnionList();
    /// The same; without a current union the one that a record or a mesh calls current becomes it, else the first.
    /// After imports and project loads.
    void FinishAfterLoad();
    /// The union's morph on a mesh; with `create` one of zeros is made where there is none.
    QLM_Morph* GetMorphForMesh(QLM_Mesh* mesh, QLM_MorphUnion* morphUnion, bool create);

    /// Asks for a name; a union of it (made unique), with a morph on every object, becomes current. Null on cancel.
    QLM_MorphUnion* CreateNewMorph();
    QLM_MorphUnion* CreateNewMorph(const std::string& name);
    /// Copies the highlighted morphs, at strength 0. How many.
    int DuplicateMorph();
    /// Asks for a name and makes a morph of the current shape at full strength; all others go to strength 0. Null on
    /// cancel.
    QLM_MorphUnion* SpawnMorph();
    QLM_MorphUnion* SpawnMorph(const std::string& name);
    /// Asks, then deletes the highlighted morphs and folders. How many unions went.
    int DeleteMorph();
    int DeleteHighlighted();
    /// Asks twice, then adds the highlighted morphs to the base vertices; with `clearDeltas` their deltas go to zero,
    /// else their strengths. How many morphs.
    int BakeMorphs();
    int BakeHighlighted(bool clearDeltas);
    /// Asks, then copies one side of the current morphs to the other on the selected objects (all when none is
    /// marked): `leftToRight` reads map A and so writes the left side. False on cancel.
    bool MakeCurrentMorphSymmetric(bool leftToRight);
    /// Sets a union's strength in percent, within its limits, on all members. Answers the strength (1 is 100 %).
    float SetUnionStrength(QLM_MorphUnion* morphUnion, float percent);
    /// Gives the object's morph of that name the difference of other positions (a triple a vertex) from the base.
    /// Made where it is missing, at full strength; not made current.
    QLM_MorphUnion* SetMorphFromPositions(QLM_Object* object, const std::string& name, const float* positions);

  private:
    std::vector<QLM_MorphUnion*> GetHighlighted();
    QLM_MorphUnion* CreateUnion(const std::string& name);
    std::vector<std::string> GetNames();
    std::string MakeUniqueName(const std::string& base);

    QLM_Owned<QLM_MorphUnionGroup> tree;
};
