#include "Geometry/QLM_MeshHotSelection.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"

#include <atomic>

namespace {
constexpr float epsilon = 1.1920929e-7f;
constexpr float selectedVertexWeight = 0.0001f, strongWeight = 0.0499f;
constexpr uint32_t vertexFlags = eVFlag_Selected | eVFlag_SelectedB | eVFlag_SelectedScratch;
constexpr uint32_t polygonFlags =
    ePFlag_Selected | ePFlag_SelectedB | ePFlag_CornerSelected | ePFlag_SelectedScratch;

float ClampWeight(float w) { return w > 0.0f ? std::min(w, 1.0f) : 0.0f; } // not a number is 0

template <class Act> void ForEach(int count, const char* name, Act act) {
    QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i) act(i);
    }, name);
}

/// The greatest of value(i), at least 0.
template <class Value> float GreatestOf(int count, const char* name, Value value) {
    float slots[QLM_MaximumThreads] = {};
    QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        float greatest = 0.0f;
        for (int i = range.start; i < range.end; ++i) greatest = std::max(greatest, value(i));
        slots[range.threadIndex] = greatest;
    }, name);
    return *std::max_element(std::begin(slots), std::end(slots));
}

/// Lists the numbers that pass the test, ascending.
template <class Test> void CollectInto(QLM_SimpleArray<int32_t>& list, int count, const char* name, Test test) {
    // Count each slot's share, then let it write behind those before it.
    int32_t ends[QLM_MaximumThreads + 1] = {};
    QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t found = 0;
        for (int i = range.start; i < range.end; ++i) found += test(i);
        ends[range.threadIndex + 1] = found;
    }, name);
    for (int slot = 0; slot < QLM_MaximumThreads; ++slot) ends[slot + 1] += ends[slot];
    list.SetCount(ends[QLM_MaximumThreads]);
    QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t* next = list.GetData() + ends[range.threadIndex];
        for (int i = range.start; i < range.end; ++i)
            if (test(i)) *next++ = i;
    }, name);
}

float Choose(QLM_MeshHotSelectionContainer::SoftenMode mode, float old, float fresh) {
    using Mode = QLM_MeshHotSelectionContainer::SoftenMode;
    if (mode == Mode::RaiseOnly) return std::max(old, fresh);
    return mode == Mode::LowerOnly ? std::min(old, fresh) : fresh;
}
/// Gives every usable element what `soften` makes of the weights as they are; with `preserveMax` scaled so that the
/// greatest weight stays as it was.
template <class Usable, class Soften>
void SoftenAll(QLM_VertexMap1D& weights, bool preserveMax, Usable usable, Soften soften) {
    const int count = static_cast<int>(weights.GetCount());
    QLM_VertexMap1D fresh;
    fresh.CopyFrom(weights);
    const float newMax = GreatestOf(count, "Selection_Soften_ThreadFunc", [&](int i) {
        if (!usable(i)) return 0.0f;
        *fresh[i] = soften(i);
        return *fresh[i];
    });
    const float oldMax = GreatestOf(count, "Selection_OldGreatest_ThreadFunc",
                                    [&](int i) { return usable(i) ? *weights[i] : 0.0f; });
    const float scale = preserveMax && newMax > epsilon ? oldMax / newMax : 1.0f;
    ForEach(count, "Selection_ScaleSoftened_ThreadFunc", [&](int i) {
        if (usable(i)) *weights[i] = ClampWeight(scale * *fresh[i]);
    });
}
} // namespace

// Sizes and single weights.

void QLM_MeshHotSelectionContainer::OnAfterRawBuild() { Invalidate(); }

void QLM_MeshHotSelectionContainer::OnSetVertexCount(int, int newCount) {
    if (HasSelection()) VertexWeights.Resize(newCount, true, true);
    Invalidate();
}

void QLM_MeshHotSelectionContainer::OnSetPolygonCount(int, int newCount) {
    if (PolygonWeights.GetCount() > 0) PolygonWeights.Resize(newCount, true, true);
    Invalidate();
}

void QLM_MeshHotSelectionContainer::AllocateWeights() {
    VertexWeights.Resize(mesh->GetVCount(), true, true);
    PolygonWeights.Resize(mesh->GetPCount(), true, true);
}

void QLM_MeshHotSelectionContainer::SetVertexWeight(int v, float w) {
    w = ClampWeight(w);
    if (!HasSelection() && w == 0.0f) return;
    if (!HasSelection()) AllocateWeights();
    *VertexWeights[v] = w;
    Invalidate();
}

void QLM_MeshHotSelectionContainer::SetPolygonWeight(int p, float w) {
    w = ClampWeight(w);
    if (PolygonWeights.GetCount() == 0 && w == 0.0f) return;
    if (PolygonWeights.GetCount() == 0) AllocateWeights();
    *PolygonWeights[p] = w;
    Invalidate();
}

void QLM_MeshHotSelectionContainer::SetVertexWeightWelded(int v, float w) {
    const int target = mesh->GetWeldTarget(v);
    SetVertexWeight(v, target == v ? w : GetVertexWeight(target));
}

int QLM_MeshHotSelectionContainer::GetSelectedVertexCount() {
    if (!ArraysValid) RebuildSelectionArrays(true);
    return SelectedVertices.GetCount();
}

int QLM_MeshHotSelectionContainer::GetSelectedPolygonCount() {
    if (!ArraysValid) RebuildSelectionArrays(true);
    return SelectedPolygons.GetCount();
}

bool QLM_MeshHotSelectionContainer::IsPolygonMode() {
    const QLM_Engine* engine = QLM_GetEngine();
    return engine && engine->selectionMode == 1;
}

bool QLM_MeshHotSelectionContainer::IsUsableVertex(int v) const {
    return !mesh->HasVertexFlag(v, eVFlag_Hidden | eVFlag_Locked);
}

bool QLM_MeshHotSelectionContainer::IsUsablePolygon(int p) const {
    return !mesh->HasPolygonFlag(p, ePFlag_Hidden | ePFlag_Locked);
}

// Rebuild.

void QLM_MeshHotSelectionContainer::RebuildSelectionArrays(bool symmetric) {
    if (!HasSelection()) return ClearSelection();
    QLM_TRACE(1);
    AllocateWeights();
    mesh->GetLeaves(); // brings the visible lists and the hidden flags up to date
    if (IsPolygonMode()) ConvertPolygonToVertex();
    else ConvertVertexToPolygon();

    RemoveUnusableWeights();
    const bool anyVertex = FlagVertices(symmetric), anyPolygon = FlagPolygons(symmetric);
    const bool anyWeight = anyVertex || anyPolygon;
    hasFlags = true;
    if (!anyWeight) return ClearSelection();
    CollectInto(SelectedVertices, mesh->GetVCount(), "Selection_ListVertices_ThreadFunc",
                [&](int v) { return mesh->HasVertexFlag(v, eVFlag_Selected); });
    CollectInto(SelectedPolygons, mesh->GetPCount(), "Selection_ListPolygons_ThreadFunc",
                [&](int p) { return mesh->HasPolygonFlag(p, ePFlag_Selected); });
    MarkSelectedLeaves();
    ArraysValid = true;
}

void QLM_MeshHotSelectionContainer::ClearSelection() {
    VertexWeights.Free();
    PolygonWeights.Free();
    SelectedVertices.Free();
    SelectedPolygons.Free();
    MaxWeight = 0.0f;
    ArraysValid = true;
    if (!hasFlags) return;
    mesh->ClearAllVertexFlags(vertexFlags);
    mesh->ClearAllPolygonFlags(polygonFlags);
    MarkSelectedLeaves();
    hasFlags = false;
}

void QLM_MeshHotSelectionContainer::RemoveUnusableWeights() {
    float* weights = VertexWeights.GetData();
    ForEach(mesh->GetVCount(), "Selection_UnusableVertices_ThreadFunc", [&](int v) {
        if (!IsUsableVertex(v)) weights[v] = 0.0f;
    });
    if (mesh->IsWelded())
        ForEach(mesh->GetVCount(), "Selection_WeldedVertices_ThreadFunc", [&](int v) {
            const int target = mesh->GetWeldTarget(v);
            // A target that stands for itself is written by nobody here.
            if (target != v && mesh->GetWeldTarget(target) == target) weights[v] = weights[target];
        });
    ForEach(mesh->GetPCount(), "Selection_UnusablePolygons_ThreadFunc", [&](int p) {
        if (!IsUsablePolygon(p)) *PolygonWeights[p] = 0.0f;
    });
}

bool QLM_MeshHotSelectionContainer::FlagVertices(bool symmetric) {
    const float* weights = VertexWeights.GetData();
    std::atomic<bool> anyWeight{false};
    MaxWeight = GreatestOf(mesh->GetVCount(), "Selection_Vertices_ThreadFunc", [&](int v) {
        uint32_t flags = mesh->GetVertexFlags(v) & ~vertexFlags;
        float w = 0.0f;
        // A vertex that is welded to another one stands in no list.
        if (IsUsableVertex(v) && mesh->GetWeldTarget(v) == v) {
            w = weights[symmetric ? mesh->SourceVertex(v) : v];
            if (weights[v] > 0.0f && !anyWeight.load(std::memory_order_relaxed)) anyWeight = true;
            if (w > strongWeight) flags |= eVFlag_SelectedScratch;
            if (w > selectedVertexWeight) flags |= eVFlag_Selected | eVFlag_SelectedB;
        }
        mesh->SetVertexFlags(v, flags);
        return w;
    });
    return anyWeight;
}

bool QLM_MeshHotSelectionContainer::FlagPolygons(bool symmetric) {
    const QLM_PolygonView view = mesh->GetPolygonView();
    const bool polygonMode = IsPolygonMode();
    return GreatestOf(mesh->GetPCount(), "Selection_Polygons_ThreadFunc", [&](int p) {
        uint32_t flags = mesh->GetPolygonFlags(p) & ~polygonFlags;
        const int count = flags & ePFlag_Hidden ? 0 : view.polygons[p].count;
        const float own = count > 0 ? *PolygonWeights[p] : 0.0f;
        if (polygonMode) {
            if (own > strongWeight) flags |= ePFlag_SelectedB | ePFlag_CornerSelected | ePFlag_SelectedScratch;
            if (own > epsilon) flags |= ePFlag_Selected;
        } else {
            float greatest = 0.0f;
            for (int c = 0; c < count; ++c) {
                const int v = view.GetVertex(p, c);
                greatest = std::max(greatest, *VertexWeights[symmetric ? mesh->SourceVertex(v) : v]);
            }
            if (greatest >= epsilon) flags |= ePFlag_CornerSelected | ePFlag_Selected | ePFlag_SelectedB;
            if (greatest > strongWeight) flags |= ePFlag_SelectedScratch;
        }
        mesh->SetPolygonFlags(p, flags);
        return own;
    }) > 0.0f;
}

void QLM_MeshHotSelectionContainer::MarkSelectedLeaves() {
    const auto& leaves = mesh->GetLeaves();
    const int32_t* vertices = mesh->GetVisibleVertices().GetData();
    const int32_t* polygons = mesh->GetVisiblePolygons().GetData();
    ForEach(static_cast<int>(leaves.size()), "Selection_Leaves_ThreadFunc", [&](int i) {
        QLM_OctreeMeshContainer::Node& leaf = *leaves[i];
        const bool selected =
            std::any_of(vertices + leaf.FirstVertex, vertices + leaf.EndVertex,
                        [&](int v) { return mesh->HasVertexFlag(v, eVFlag_Selected); }) ||
            std::any_of(polygons + leaf.FirstPolygon, polygons + leaf.EndPolygon,
                        [&](int p) { return mesh->HasPolygonFlag(p, ePFlag_SelectedB); });
        leaf.Flags = selected ? leaf.Flags | eNode_Selected : leaf.Flags & ~eNode_Selected;
    });
}

// From one array to the other.

void QLM_MeshHotSelectionContainer::ConvertVertexToPolygon() {
    AllocateWeights();
    mesh->GetVisibleVertices(); // brings the hidden flags up to date
    const QLM_PolygonView view = mesh->GetPolygonView();
    ForEach(mesh->GetPCount(), "Selection_VertexToPolygon_ThreadFunc", [&](int p) {
        float smallest = 2.0f;
        for (int c = 0; c < view.polygons[p].count; ++c) {
            const int v = view.GetVertex(p, c);
            if (IsUsableVertex(v)) smallest = std::min(smallest, *VertexWeights[v]);
        }
        *PolygonWeights[p] = smallest > 1.0f ? 0.0f : ClampWeight(smallest);
    });
    Invalidate();
}

void QLM_MeshHotSelectionContainer::ConvertPolygonToVertex() {
    AllocateWeights();
    mesh->GetVisibleVertices(); // brings the hidden flags up to date
    ForEach(mesh->GetVCount(), "Selection_PolygonToVertex_ThreadFunc", [&](int v) {
        float greatest = 0.0f;
        const int32_t* row = mesh->VertexPolygons.GetRow(v);
        for (int k = 1; k <= row[0] && !mesh->HasVertexFlag(v, eVFlag_Hidden); ++k)
            if (!mesh->IsPolygonHidden(row[k])) greatest = std::max(greatest, *PolygonWeights[row[k]]);
        *VertexWeights[v] = greatest;
    });
    Invalidate();
}

// Grow, shrink, soften. All write behind the whole pass.

template <class Pick> void QLM_MeshHotSelectionContainer::Spread(Pick pick) {
    QLM_TRACE(1);
    if (!HasSelection()) return;
    AllocateWeights();
    mesh->GetVisibleVertices(); // brings the hidden flags up to date
    if (!IsPolygonMode()) {
        QLM_VertexMap1D fresh;
        fresh.CopyFrom(VertexWeights);
        ForEach(mesh->GetVCount(), "Selection_SpreadVertices_ThreadFunc", [&](int v) {
            if (!IsUsableVertex(v)) return;
            const int32_t* row = mesh->VertexNeighbors.GetRow(v);
            for (int k = 1; k <= row[0]; ++k)
                if (IsUsableVertex(row[k])) *fresh[v] = pick(*fresh[v], *VertexWeights[row[k]]);
        });
        VertexWeights.CopyFrom(fresh);
    } else {
        QLM_VertexMap1D fresh;
        fresh.CopyFrom(PolygonWeights);
        const QLM_PolygonView view = mesh->GetPolygonView();
        ForEach(mesh->GetPCount(), "Selection_SpreadPolygons_ThreadFunc", [&](int p) {
            float best = *PolygonWeights[p];
            for (int c = 0; c < view.polygons[p].count; ++c) {
                const int32_t* row = mesh->VertexPolygons.GetRow(view.GetVertex(p, c));
                for (int k = 1; k <= row[0]; ++k) best = pick(best, *PolygonWeights[row[k]]);
            }
            *fresh[p] = ClampWeight(best);
        });
        PolygonWeights.CopyFrom(fresh);
    }
    Invalidate();
}

void QLM_MeshHotSelectionContainer::Grow() {
    Spread([](float a, float b) { return std::max(a, b); });
}

void QLM_MeshHotSelectionContainer::Shrink() {
    Spread([](float a, float b) { return std::min(a, b); });
}

void QLM_MeshHotSelectionContainer::Soften(bool preserveMax, SoftenMode mode, float strength) {
    QLM_TRACE(1);
    if (!HasSelection()) return;
    AllocateWeights();
    mesh->GetVisibleVertices(); // brings the hidden flags up to date
    if (IsPolygonMode()) SoftenPolygons(preserveMax, mode, strength);
    else SoftenVertices(preserveMax, mode);
    Invalidate();
}

void QLM_MeshHotSelectionContainer::SoftenVertices(bool preserveMax, SoftenMode mode) {
    const QLM_PolygonView view = mesh->GetPolygonView();
    const float* old = VertexWeights.GetData();
    const auto soften = [&](int v) {
        double sum = 0.0;
        int count = 0;
        const int32_t* row = mesh->VertexPolygons.GetRow(v);
        for (int k = 1; k <= row[0]; ++k) {
            bool metItself = false;
            for (int c = 0; c < view.polygons[row[k]].count; ++c) {
                const int u = view.GetVertex(row[k], c);
                if (u == v && !metItself) {
                    metItself = true;
                    continue;
                }
                if (!IsUsableVertex(u)) continue;
                sum += old[u];
                ++count;
            }
        }
        return count > 0 ? Choose(mode, old[v], static_cast<float>(sum / count)) : old[v];
    };
    SoftenAll(VertexWeights, preserveMax, [this](int i) { return IsUsableVertex(i); }, soften);
}

void QLM_MeshHotSelectionContainer::SoftenPolygons(bool preserveMax, SoftenMode mode, float strength) {
    const QLM_PolygonView view = mesh->GetPolygonView();
    const float* old = PolygonWeights.GetData();
    const auto soften = [&](int p) {
        double sum = 0.0;
        int count = 0;
        for (int c = 0; c < view.polygons[p].count; ++c) {
            const int32_t* row = mesh->VertexPolygons.GetRow(view.GetVertex(p, c));
            bool metItself = false;
            for (int k = 1; k <= row[0]; ++k) {
                if (row[k] == p && !metItself) {
                    metItself = true;
                    continue;
                }
                if (!IsUsablePolygon(row[k])) continue;
                sum += old[row[k]];
                ++count;
            }
        }
        if (count == 0) return old[p];
        const float blended = (static_cast<float>(sum / count) - old[p]) * strength + old[p];
        return ClampWeight(Choose(mode, old[p], blended));
    };
    SoftenAll(PolygonWeights, preserveMax, [this](int i) { return IsUsablePolygon(i); }, soften);
}
