#pragma once
// What the user loads and sees: a named asset that holds one mesh.

#include "Core/Objects/QLM_BaseClass.h"

class QLM_Mesh;

/// Owned by the object manager's tree; deleting it tells the managers and deletes the mesh. Main thread.
class QLM_Object : public virtual QLM_UserAsset {
  public:
    QLM_Object();
    ~QLM_Object() override;

    QLM_Mesh* GetMesh() const { return mesh; }
    void SetMesh(QLM_Mesh* meshIn); ///< takes ownership, deletes the former
    const std::string& GetFilePath() const { return FileName; }
    /// Resolves the shape and rebuilds the transformed box from the visible vertices.
    void ResolveMorphsAndBounds(bool applyTransform);
    bool IsHidden() const { return hidden; }
    void SetHidden(bool on) { hidden = on; }
    bool IsCompletelyLocked() const { return GetBool("COMPLETELY_LOCKED"); }

    bool RenderDoubleSided = false, SymmetryEnabled = false;
    std::string FileName, OBJFileName;

  private:
    QLM_Mesh* mesh = nullptr;
    bool hidden = false;
};

/// A polygon group; a polygon belongs to exactly one.
class QLM_Group2 : public virtual QLM_UserAsset {
  public:
    std::vector<int32_t> Vertices;
    std::vector<bool> SharedWithEarlier;
};
