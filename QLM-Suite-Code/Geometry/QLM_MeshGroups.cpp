#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/String_Functions.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"

#include <unordered_map>

QLM_MeshGroupContainer::QLM_MeshGroupContainer() : tree(new QLM_Group2List) { tree->SetNameText("Groups"); }

int QLM_MeshGroupContainer::AddGroup(QLM_Group2* group) {
    tree->AddItem(group);
    groups.Add(group);
    return groups.Count() - 1;
}

QLM_RootClassQueue<QLM_Group2*> QLM_MeshGroupContainer::GetGroups() { return tree->GetItemQueue<QLM_Group2>(); }

QLM_Group2* QLM_MeshGroupContainer::GetGroup(int index) const {
    return index < 0 || index >= groups.Count() ? nullptr : groups[index];
}

int QLM_MeshGroupContainer::FindGroupByName(const std::string& name) const {
    for (int i = 0; i < groups.Count(); ++i)
        if (name == groups[i]->GetName()) return i;
    return -1;
}

namespace {
/// For each name the indices, ascending, of those names that stand in it between blanks, tabs or the ends. A name
/// stands in itself, an empty one in none. All in lower case.
std::vector<std::vector<int32_t>> FindNamesInNames(const std::vector<std::string>& names) {
    std::unordered_map<std::string_view, std::vector<int32_t>> indices;
    for (size_t i = 0; i < names.size(); ++i)
        if (!names[i].empty()) indices[names[i]].push_back(static_cast<int32_t>(i));

    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    std::vector<std::vector<int32_t>> found(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string_view name = names[i];
        for (size_t start = 0; start < name.size(); ++start) {
            if (start > 0 && !isBlank(name[start - 1])) continue;
            for (size_t end = start + 1; end <= name.size(); ++end) {
                if (end < name.size() && !isBlank(name[end])) continue;
                const auto match = indices.find(name.substr(start, end - start));
                if (match != indices.end())
                    found[i].insert(found[i].end(), match->second.begin(), match->second.end());
            }
        }
        std::sort(found[i].begin(), found[i].end());
        found[i].erase(std::unique(found[i].begin(), found[i].end()), found[i].end());
    }
    return found;
}
} // namespace

void QLM_MeshGroupContainer::ResolveGroupVertexMaps() {
    QLM_TRACE(1);
    const int groupCount = groups.Count();

    // For each name find the names that its polygons count for: itself and those that are a word of it. Groups of the
    // same name share all of this.
    std::vector<std::string> names;
    std::vector<int32_t> nameOf;
    std::unordered_map<std::string, int32_t> numbers;
    for (const QLM_Group2* group : groups) {
        const auto [entry, isNew] = numbers.emplace(QLM_ToLower(group->GetName()), static_cast<int32_t>(names.size()));
        if (isNew) names.push_back(entry->first);
        nameOf.push_back(entry->second);
    }
    const std::vector<std::vector<int32_t>> countsFor = FindNamesInNames(names);

    // Give each vertex to the names of its polygons' groups; walking the vertices keeps the lists ascending.
    std::vector<std::vector<int32_t>> lists[QLM_MaximumThreads];
    QLM_ThreadCrunch(mesh->GetVCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        std::vector<std::vector<int32_t>>& own = lists[range.threadIndex];
        own.resize(names.size());
        std::vector<int32_t> lastVertex(names.size(), -1);
        for (int v = range.start; v < range.end; ++v) {
            const int32_t* row = mesh->VertexPolygons.GetRow(v);
            int last = -1;
            for (int k = 1; k <= row[0]; ++k) {
                const int group = mesh->GetPolygon(row[k]).group;
                if (group == last || group >= groupCount) continue;
                last = group;
                for (const int32_t target : countsFor[nameOf[group]]) {
                    if (lastVertex[target] == v) continue;
                    lastVertex[target] = v;
                    own[target].push_back(v);
                }
            }
        }
    }, "Group_Vertices_ThreadFunc");

    // Join the shares, and mark what an earlier group has already.
    std::vector<bool> taken(mesh->GetVCount());
    for (int g = 0; g < groupCount; ++g) {
        QLM_Group2& group = *groups[g];
        size_t count = 0;
        for (const auto& share : lists)
            if (!share.empty()) count += share[nameOf[g]].size();
        std::vector<int32_t> joined;
        joined.reserve(count);
        for (const auto& share : lists)
            if (!share.empty()) joined.insert(joined.end(), share[nameOf[g]].begin(), share[nameOf[g]].end());
        group.Vertices = std::move(joined);
        group.SharedWithEarlier.assign(count, false);
        for (size_t i = 0; i < count; ++i) {
            const int v = group.Vertices[i];
            if (taken[v]) group.SharedWithEarlier[i] = true;
            else taken[v] = true;
        }
    }
    mesh->ClearAllVertexFlags(eVFlag_Scratch);
}
