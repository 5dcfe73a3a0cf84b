#include "Geometry/QLM_UtilityManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/String_Functions.h"
#include "Geometry/QLM_Mesh.h"

#include <algorithm>
#include <cctype>

namespace {
constexpr const char* copyEnding = " Copy";

/// The name without a trailing " (n)".
std::string WithoutNumber(const std::string& name) {
    const size_t open = name.rfind(" (");
    if (open == std::string::npos || name.back() != ')' || open + 3 >= name.size()) return name;
    const bool digits = std::all_of(name.begin() + static_cast<long>(open) + 2, name.end() - 1,
                                    [](unsigned char c) { return std::isdigit(c); });
    return digits ? name.substr(0, open) : name;
}
} // namespace

QLM_UtilityManager::QLM_UtilityManager() { SetBool("manager/noRename", true); }

std::string QLM_UtilityManager::GetUniqueName(const std::vector<std::string>& taken, const std::string& base,
                                              const std::string& suffix, const std::string& extension) {
    return QLM_MakeUniqueName(taken, suffix.empty() ? base : base + " " + suffix, extension);
}

std::string QLM_UtilityManager::GetCopyName(const std::vector<std::string>& taken, const std::string& name) {
    std::string base = WithoutNumber(name);
    if (!base.ends_with(copyEnding)) base += copyEnding;
    return GetUniqueName(taken, base);
}

void QLM_UtilityManager::EnforceMorphAndSelectionSizes(QLM_Mesh* mesh) {
    QLM_TRACE(2);
    mesh->EnforceMorphSizes();
    mesh->RebuildSelectionArrays(true);
}
