#pragma once
// What the user loads and sees: a named asset that holds one mesh.

#include "Engine/QLM_TreeGroup.h"

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

    /// Block "object" with the mesh, or "objectReference" for geometry that stays in a file of its own. False for an
    /// object that is left out.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    /// A mesh that was read is ready for use, also one whose record failed halfway.
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    bool RenderDoubleSided = false, SymmetryEnabled = false;
    std::string FileName, OBJFileName;

  private:
    void SaveReference(FILE* stream, bool writeBlock);
    bool PrepareReference();
    void LoadMesh(FILE* stream);

    QLM_Mesh* mesh = nullptr;
    bool hidden = false;
};

/// A polygon group; a polygon belongs to exactly one.
class QLM_Group2 : public virtual QLM_UserAsset {
  public:
    /// A name as groups bear it: cleaned, but with its colons. What follows one tells the parts of figures apart and is
    /// left out where groups are written to files of other programs.
    static std::string CleanName(const std::string& text) { return QLM_CleanName(text, "\\/%"); }
    void SetNameText(const std::string& text) override { KeepName(CleanName(text)); }
    /// Block "polygroup"; which polygons stand in it is told by theirs.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;

    std::vector<int32_t> Vertices;
    std::vector<bool> SharedWithEarlier;
};

/// The folders of objects; reads "object" and "objectReference".
class QLM_ObjectTreeGroup : public QLM_TopTreeGroup {
  public:
    bool CreateChildGroup(FILE* stream, const std::string& key, const std::string& value) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
};
