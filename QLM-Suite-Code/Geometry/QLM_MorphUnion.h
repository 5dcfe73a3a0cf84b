#pragma once
// Morphs of the same name on several objects behind one slider.

#include "Engine/QLM_Union.h"
#include "Geometry/QLM_Morph.h"

class QLM_MorphUnion : public QLM_Union<QLM_Morph> {
  public:
    /// Block "morph": properties, strengths and "Current"; the members are tied again by name after a load.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    /// The member on a mesh; null without one.
    QLM_Morph* FindMember(uint32_t meshID);
    void CopyStrengthFrom(const QLM_Morph& morph);

    float Strength = 1.0f, MinStrength = 0.0f, MaxStrength = 1.0f; ///< 1 is 100 %
};

/// The tree of unions, key "morphs". Reading a "morph" of a name that is in the tree reads into that union.
class QLM_MorphUnionGroup : public QLM_UnionGroup<QLM_MorphUnion> {
  public:
    QLM_MorphUnionGroup();
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    bool CreateChildGroup(FILE* stream, const std::string& key, const std::string& value) override;
};
