#include "Geometry/QLM_GroupFlags.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"

namespace {

/// A set of columns, to be compared with the rows of one mesh.
class ColumnSet {
  public:
    explicit ColumnSet(const BigFlagArray& rows) : columns(rows.GetGroupCount()) {}
    void Add(int column) {
        if (column < 0 || column >= columns) return;
        for (auto& [index, bits] : bytes)
            if (index == column / 8) {
                bits |= static_cast<uint8_t>(1 << (column % 8));
                return;
            }
        bytes.push_back({column / 8, static_cast<uint8_t>(1 << (column % 8))});
    }
    bool Meets(const uint8_t* row) const {
        for (const auto& [index, bits] : bytes)
            if (row[index] & bits) return true;
        return false;
    }
    bool IsEmpty() const { return bytes.empty(); }

  private:
    int columns;
    std::vector<std::pair<int, uint8_t>> bytes; ///< the bytes of a row that hold any column, each once
};

/// What the groups say about one state.
struct GroupStates {
    GroupStates(const BigFlagArray& rows, const std::vector<QLM_DisplayGroup*>& groups,
                QLM_LayerDefinition::State state)
        : different(rows), rigid(rows) {
        const bool locking = state == QLM_LayerDefinition::Locked;
        const int stranger = locking ? QLM_LayerManager::HiddenLayer : QLM_LayerManager::LockedLayer;
        for (const QLM_DisplayGroup* group : groups)
            if (group->Column == QLM_LayerManager::Background) background = group->state == state;
        for (const QLM_DisplayGroup* group : groups) {
            if (group->Column == QLM_LayerManager::Background || group->Column == stranger) continue;
            if ((group->state == state) == background) continue;
            different.Add(group->Column);
            if (group->HasRigidEdges()) rigid.Add(group->Column);
        }
    }
    bool IsSet(const uint8_t* row) const { return background != different.Meets(row); }

    bool background = false;
    ColumnSet different; ///< groups that differ from the background
    ColumnSet rigid;     ///< those of them with rigid edges
};

/// Sets or clears a flag of each polygon as the groups say. Returns how many have it now; `changed` tells how many
/// had to change.
int64_t CrunchPolygons(QLM_Mesh& mesh, const GroupStates& states, uint32_t flag, int64_t& changed) {
    struct alignas(64) Counts { int64_t set = 0, changed = 0; };
    Counts counts[QLM_MaximumThreads];
    QLM_ThreadCrunch(mesh.GetPCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        Counts own;
        for (int p = range.start; p < range.end; ++p) {
            const bool set = states.IsSet(mesh.GetRow(p));
            own.set += set;
            if (set == mesh.HasPolygonFlag(p, flag)) continue;
            ++own.changed;
            if (set) mesh.SetPolygonFlag(p, flag);
            else mesh.ClearPolygonFlag(p, flag);
        }
        counts[range.threadIndex] = own;
    }, "Group_Polygons_ThreadFunc");
    int64_t set = 0;
    changed = 0;
    for (const Counts& part : counts) {
        set += part.set;
        changed += part.changed;
    }
    return set;
}

/// Locked and rigid flags of a vertex from its polygons, whose own flags are current.
void UpdateLockedVertex(QLM_Mesh& mesh, const GroupStates& states, int v) {
    const int32_t* row = mesh.VertexPolygons.GetRow(v);
    bool anyLocked = false, allLocked = true, allHidden = true, rigid = false;
    for (int k = 1; k <= row[0]; ++k) {
        const uint32_t flags = mesh.GetPolygonFlags(row[k]);
        anyLocked = anyLocked || flags & ePFlag_Locked;
        allLocked = allLocked && flags & ePFlag_Locked;
        allHidden = allHidden && flags & ePFlag_Hidden;
        rigid = rigid || states.rigid.Meets(mesh.GetRow(row[k]));
    }
    rigid = rigid && anyLocked;
    const bool touched = states.background || anyLocked;
    uint32_t flags = mesh.GetVertexFlags(v) & ~(eVFlag_Locked | eVFlag_RigidEdge);
    if (rigid) flags |= eVFlag_RigidEdge;
    if (rigid || (touched && allLocked)) flags |= eVFlag_Locked;
    if (touched && !rigid && !allHidden) flags &= ~eVFlag_Hidden;
    mesh.SetVertexFlags(v, flags);
}

/// A vertex that stands for another one has no polygons of its own and shares what became of the other.
void CopyToWelded(QLM_Mesh& mesh) {
    constexpr uint32_t ours = eVFlag_Hidden | eVFlag_Locked | eVFlag_RigidEdge;
    for (int v = 0; mesh.IsWelded() && v < mesh.GetVCount(); ++v)
        mesh.SetVertexFlags(v, (mesh.GetVertexFlags(v) & ~ours) | (mesh.GetVertexFlags(mesh.GetWeldTarget(v)) & ours));
}

} // namespace

void QLM_UpdateLockedFlags(QLM_Mesh& mesh, const std::vector<QLM_DisplayGroup*>& groups) {
    QLM_TRACE(2);
    const GroupStates states(mesh, groups, QLM_LayerDefinition::Locked);
    int64_t changed = 0;
    const int64_t locked = CrunchPolygons(mesh, states, ePFlag_Locked, changed);
    if (locked == 0 && !states.background) mesh.ClearAllVertexFlags(eVFlag_Locked | eVFlag_RigidEdge);
    else
        QLM_ThreadCrunch(mesh.GetVCount(), [&](const ThreadCrunchRange& range) {
            QLM_TRACE(3);
            for (int v = range.start; v < range.end; ++v) UpdateLockedVertex(mesh, states, v);
        }, "Locked_Vertices_ThreadFunc");
    CopyToWelded(mesh);
    if (QLM_Object* object = mesh.GetObject()) {
        if (locked == mesh.GetPCount()) object->SetBool("COMPLETELY_LOCKED", true);
        else object->RemoveProperty("COMPLETELY_LOCKED");
    }
}

bool QLM_UpdateHiddenFlags(QLM_Mesh& mesh, const std::vector<QLM_DisplayGroup*>& groups) {
    QLM_TRACE(2);
    const GroupStates states(mesh, groups, QLM_LayerDefinition::Hidden);
    int64_t changed = 0;
    CrunchPolygons(mesh, states, ePFlag_Hidden, changed);
    if (changed == 0) return false;
    mesh.InvalidateVisibleLists();
    mesh.BuildVisiblePolygons(false);
    CopyToWelded(mesh);
    return true;
}
