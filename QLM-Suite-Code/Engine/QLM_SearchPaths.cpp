#include "Engine/QLM_SearchPaths.h"

#include "Core/OS/QLM_Files.h"

QLM_SearchPath::QLM_SearchPath(const std::string& path, bool recursive)
    : path(QLM_NormalizeFolder(path)), recursive(recursive) {
    SetName("QLM_SearchPath");
}

QLM_SearchPaths::~QLM_SearchPaths() { DeleteAll(); }

void QLM_SearchPaths::AddPath(const std::string& path, bool recursive) {
    const std::string folder = QLM_NormalizeFolder(path);
    if (folder.empty()) return;
    for (QLM_SearchPath* known : *this) {
        if (known->path != folder) continue;
        known->recursive = known->recursive || recursive;
        return;
    }
    Add(new QLM_SearchPath(folder, recursive));
}

void QLM_SearchPaths::DeleteAll() {
    for (QLM_SearchPath* path : *this) delete path;
    clear();
    cachedIndex = -1;
}
