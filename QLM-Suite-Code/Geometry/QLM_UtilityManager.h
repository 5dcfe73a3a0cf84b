#pragma once
// Names, sizes, clicks and other small services of geometry.

#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Manager.h"

class QLM_Mesh;

/// Main thread.
class QLM_UtilityManager : public QLM_Manager {
  public:
    /// base, or "%s (%d)" with the number after the greatest in use. `extension` (without dot) stays at the end.
    static std::string GetUniqueName(const std::vector<std::string>& taken, const std::string& base, const std::string& extension = {}) {
        return QLM_MakeUniqueName(taken, base, extension);
    }
    void EnforceMorphAndSelectionSizes(QLM_Mesh*) {}
};
