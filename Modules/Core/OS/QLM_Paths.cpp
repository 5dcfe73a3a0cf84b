// Text of paths, and the search for a name without regard to case.

#include "Core/OS/QLM_Files.h"
#include "Core/OS/String_Functions.h"

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>
#include <unordered_map>

namespace {

struct DirectoryCache {
    int scopes = 0;
    std::unordered_map<std::string, std::vector<std::string>> lists;
};

DirectoryCache& Cache() {
    static thread_local DirectoryCache cache;
    return cache;
}

bool Exists(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

/// The first name in byte order that equals `name` but for case; empty when there is none.
std::string FindName(const std::string& folder, const std::string& name) {
    const auto search = [&](const std::vector<std::string>& names) {
        for (const std::string& candidate : names)
            if (QLM_CompareNoCase(candidate, name) == 0) return candidate;
        return std::string();
    };
    const std::string listed = folder.empty() ? "." : folder;
    DirectoryCache& cache = Cache();
    if (cache.scopes == 0) return search(QLM_ListFolder(listed));
    auto found = cache.lists.find(listed);
    if (found == cache.lists.end()) found = cache.lists.emplace(listed, QLM_ListFolder(listed)).first;
    return search(found->second);
}

/// Walks the path and takes each component in the case that it has on disk. From the first one that isn't there on,
/// the text is left as it is; `complete` tells that none was missing.
std::string ResolveComponents(const std::string& path, bool& complete) {
    std::string resolved;
    size_t at = 0;
    complete = true;
    while (at < path.size()) {
        if (path[at] == '/') {
            resolved += path[at++];
            continue;
        }
        const size_t end = std::min(path.find('/', at), path.size());
        const std::string component = path.substr(at, end - at);
        std::string name = component;
        if (!Exists(resolved + component)) name = FindName(resolved, component);
        if (name.empty()) {
            complete = false;
            return resolved + path.substr(at);
        }
        resolved += name;
        at = end;
    }
    return resolved;
}

} // namespace

QLM_DirectoryCacheScope::QLM_DirectoryCacheScope() { ++Cache().scopes; }

QLM_DirectoryCacheScope::~QLM_DirectoryCacheScope() {
    if (--Cache().scopes == 0) Cache().lists.clear();
}

std::string QLM_NativePath(std::string_view text) {
    std::string path(text);
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

std::string QLM_ResolveCase(std::string_view path) {
    std::string native = QLM_NativePath(path);
    if (native.empty() || Exists(native)) return native;
    bool complete = false;
    std::string resolved = ResolveComponents(native, complete);
    return complete ? resolved : native;
}

std::string QLM_ResolveFolderCase(std::string_view path) {
    const std::string native = QLM_NativePath(path);
    const std::string folder = QLM_FolderOf(native);
    bool complete = false;
    return ResolveComponents(folder, complete) + QLM_FileNameOf(native);
}

size_t QLM_FindLastSeparator(std::string_view path) { return path.find_last_of("/\\"); }

std::string QLM_FileNameOf(std::string_view path) {
    return std::string(path.substr(QLM_FindLastSeparator(path) + 1)); // npos + 1 is 0
}

std::string QLM_FolderOf(std::string_view path) { return std::string(path.substr(0, QLM_FindLastSeparator(path) + 1)); }

std::string QLM_StemOf(std::string_view path) {
    const std::string name = QLM_FileNameOf(path);
    return name.substr(0, name.rfind('.'));
}

std::string QLM_ExtensionOf(std::string_view path) {
    const std::string name = QLM_FileNameOf(path);
    const size_t dot = name.rfind('.');
    return dot == name.npos ? std::string() : name.substr(dot + 1);
}

std::string QLM_NormalizeFolder(std::string_view path) {
    if (path.empty()) return {};
    std::string folder = QLM_NativePath(path) + "/";
    folder.erase(std::unique(folder.begin(), folder.end(), [](char a, char b) { return a == '/' && b == '/'; }),
                 folder.end());
    return folder;
}

std::vector<std::string> QLM_ListFolder(std::string_view path) {
    std::vector<std::string> names;
    DIR* folder = opendir(QLM_NativePath(path).c_str());
    if (!folder) return names;
    while (const dirent* entry = readdir(folder))
        if (const std::string_view name = entry->d_name; name != "." && name != "..") names.emplace_back(name);
    closedir(folder);
    std::sort(names.begin(), names.end());
    return names;
}
