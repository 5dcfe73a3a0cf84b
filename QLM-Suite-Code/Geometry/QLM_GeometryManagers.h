#pragma once
// Managers of geometry whose operations come with their features.

#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Manager.h"

class QLM_Mesh;

class QLM_SymmetryManager : public QLM_Manager {};
class QLM_SubDManager : public QLM_Manager {};
class QLM_MorphManager : public QLM_Manager {};
class QLM_SelectionManager : public QLM_Manager {};

/// Names, sizes and other small services of geometry.
class QLM_UtilityManager : public QLM_Manager {
  public:
    /// base, or "%s (%d)" with the number after the greatest in use. `extension` (without dot) stays at the end.
    static std::string GetUniqueName(const std::vector<std::string>& taken, const std::string& base, const std::string& extension = {}) {
        return QLM_MakeUniqueName(taken, base, extension);
    }
    void EnforceMorphAndSelectionSizes(QLM_Mesh*) {}
};

/// Per-vertex weight of a stroke: what culling, selection and fade by angle leave of it.
class QLM_VertexWeightManager : public QLM_Manager {
  public:
    bool DependsOnShape() const override { return true; }
    void Clear() override {}
    void ForgetMesh(QLM_Mesh*) {}
};
