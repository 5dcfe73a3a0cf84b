#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/String_Functions.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"

QLM_MeshGroupContainer::~QLM_MeshGroupContainer() {
    for (QLM_Group2* group : groups) delete group;
}

int QLM_MeshGroupContainer::AddGroup(QLM_Group2* group) {
    groups.Add(group);
    return groups.Count() - 1;
}

QLM_Group2* QLM_MeshGroupContainer::GetGroup(int index) const {
    return index < 0 || index >= groups.Count() ? nullptr : groups[index];
}

int QLM_MeshGroupContainer::FindGroupByName(const std::string& name) const {
    for (int i = 0; i < groups.Count(); ++i)
        if (name == groups[i]->GetName()) return i;
    return -1;
}

namespace {
/// True when `word` stands in `name` between blanks, tabs or the ends. Both in lower case.
bool ContainsWord(const std::string& name, const std::string& word) {
    const auto isBorder = [&](size_t i) { return i >= name.size() || name[i] == ' ' || name[i] == '\t'; };
    for (size_t at = name.find(word); at != std::string::npos; at = name.find(word, at + 1))
        if ((at == 0 || isBorder(at - 1)) && isBorder(at + word.size())) return true;
    return false;
}
} // namespace

void QLM_MeshGroupContainer::ResolveGroupVertexMaps() {
    QLM_TRACE(1);
    const int groupCount = groups.Count();

    // For each group find the groups that its polygons count for: itself and those named by a word of its name.
    std::vector<std::string> names;
    for (const QLM_Group2* group : groups) names.push_back(QLM_ToLower(group->GetName()));
    std::vector<std::vector<int32_t>> countsFor(groupCount);
    for (int a = 0; a < groupCount; ++a)
        for (int b = 0; b < groupCount; ++b)
            if (!names[b].empty() && (a == b || ContainsWord(names[a], names[b]))) countsFor[a].push_back(b);

    // Give each vertex to the groups of its polygons; walking the vertices keeps the lists ascending.
    std::vector<std::vector<int32_t>> lists[QLM_MaximumThreads];
    QLM_ThreadCrunch(mesh->GetVCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        std::vector<std::vector<int32_t>>& own = lists[range.threadIndex];
        own.resize(groupCount);
        std::vector<int32_t> lastVertex(groupCount, -1);
        for (int v = range.start; v < range.end; ++v) {
            const int32_t* row = mesh->VertexPolygons.GetRow(v);
            int last = -1;
            for (int k = 1; k <= row[0]; ++k) {
                const int group = mesh->GetPolygon(row[k]).group;
                if (group == last || group >= groupCount) continue;
                last = group;
                for (const int32_t target : countsFor[group]) {
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
            if (!share.empty()) count += share[g].size();
        std::vector<int32_t> joined;
        joined.reserve(count);
        for (const auto& share : lists)
            if (!share.empty()) joined.insert(joined.end(), share[g].begin(), share[g].end());
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
