#include "Geometry/QLM_GeometryManagers.h"

#include "Core/OS/String_Functions.h"

namespace {
/// The number n of a text " (n)" of one to nine digits, else -1.
int ParseNumber(std::string_view text) {
    if (text.size() < 4 || text.size() > 12 || text.substr(0, 2) != " (" || text.back() != ')') return -1;
    int number = 0;
    for (const char c : text.substr(2, text.size() - 3)) {
        if (c < '0' || c > '9') return -1;
        number = number * 10 + (c - '0');
    }
    return number;
}
} // namespace

std::string QLM_UtilityManager::GetUniqueName(const std::vector<std::string>& taken, const std::string& base,
                                              const std::string& extension) {
    const std::string ending = extension.empty() ? std::string() : "." + extension;
    std::string stem = base;
    if (!ending.empty() && stem.size() > ending.size() && stem.ends_with(ending))
        stem.resize(stem.size() - ending.size());
    bool isTaken = false;
    int greatest = 0;
    for (const std::string& name : taken) {
        isTaken = isTaken || name == stem + ending;
        if (name.size() > stem.size() + ending.size() && name.starts_with(stem) && name.ends_with(ending)) {
            const std::string_view middle(name.data() + stem.size(), name.size() - stem.size() - ending.size());
            greatest = std::max(greatest, ParseNumber(middle));
        }
    }
    if (!isTaken) return stem + ending;
    return stem + QLM_FormatText(" (%d)", greatest + 1) + ending;
}
