#include "Geometry/QLM_MeshMorphs.h"

#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_MorphSums.h"
#include "Geometry/QLM_PointBox.h"
#include "Geometry/QLM_PointTransform.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr float inUseThreshold = 1.1920929e-7f;
constexpr const char* defaultMorphName = "Default Morph";

/// What one vertex's resolved position is made of; null pointers stand for zeros.
struct ShapeTerms {
    const float* base;
    const float* others;
    const float* deltas;
    float strength;
};

/// Resolves a range of vertices and adds them to the box. The additions stay apart: (base + others) + strength x delta.
template <bool WithOthers, bool WithCurrent>
void ResolveRange(const ShapeTerms& terms, float* resolved, int64_t start, int64_t end, QLM_PointBox& box) {
    for (int64_t i = 3 * start; i < 3 * end; i += 3) {
        float point[3];
        for (int k = 0; k < 3; ++k) {
            point[k] = terms.base[i + k] + (WithOthers ? terms.others[i + k] : 0.0f);
            if (WithCurrent) point[k] += terms.strength * terms.deltas[i + k];
            resolved[i + k] = point[k];
        }
        box.Add(point);
    }
}

QLM_PointBox ResolveAll(const ShapeTerms& terms, float* resolved, int count) {
    const auto range = terms.others ? (terms.deltas ? ResolveRange<true, true> : ResolveRange<true, false>)
                                    : (terms.deltas ? ResolveRange<false, true> : ResolveRange<false, false>);
    QLM_PointBox boxes[QLM_MaximumThreads];
    QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& share) {
        QLM_TRACE(3);
        QLM_PointBox own;
        range(terms, resolved, share.start, share.end, own);
        boxes[share.threadIndex] = own;
    }, terms.deltas ? "ResolveMorphs_With_CMorph_ThreadFunc" : "ResolveMorphs_Without_CMorph_ThreadFunc");
    QLM_PointBox whole;
    for (const QLM_PointBox& box : boxes)
        if (!box.IsEmpty()) whole.Merge(box);
    return whole;
}
} // namespace

QLM_MeshMorphContainer::~QLM_MeshMorphContainer() {
    // The mesh around this container is going: its morphs needn't tell it that they go too.
    for (QLM_Morph* morph : ListMorphs()) morph->Listed = false;
}

void QLM_MeshMorphContainer::OnAfterSetSizes() {
    if (Tree) return;
    Tree.Reset(new QLM_MorphTreeGroup(mesh->GetID()));
    QLM_Morph* morph = CreateMorph();
    morph->SetNameText(defaultMorphName);
    morph->Automatic = true;
    SetCurrentMorph(morph);
}

void QLM_MeshMorphContainer::OnSetVertexCount(int, int newCount) {
    InvalidateOptimizedDeltas();
    AllDeformationsMinusCurrent.Free();
    SumRemainder.Free();
    if (CurrentDeltasWork.GetCount()) CurrentDeltasWork.Resize(newCount, true, true);
    EnforceMorphSizes();
}

void QLM_MeshMorphContainer::EnforceMorphSizes() {
    for (QLM_Morph* morph : ListMorphs()) {
        if (morph->VertexCount == mesh->GetVCount()) continue;
        morph->SetVertexCount(mesh->GetVCount());
        morph->Synced = false;
        if (IsMorphInUse(morph)) morph->Expand("EnforceMorphSizes");
    }
}

// --- The list -------------------------------------------------------------------------------------------------------

std::vector<QLM_Morph*> QLM_MeshMorphContainer::ListMorphs() {
    QLM_List<QLM_BaseClass*> items;
    if (Tree) Tree->GetAllItems(items);
    std::vector<QLM_Morph*> morphs;
    for (QLM_BaseClass* item : items)
        if (auto* morph = dynamic_cast<QLM_Morph*>(item)) morphs.push_back(morph);
    return morphs;
}

void QLM_MeshMorphContainer::GetMorphs(QLM_RootClassQueue<QLM_Morph*>& queue) {
    for (QLM_Morph* morph : ListMorphs()) queue.Push(morph);
}

QLM_Morph* QLM_MeshMorphContainer::CreateMorph(QLM_TreeGroup* parent) {
    auto* morph = new QLM_Morph(mesh->GetID(), mesh->GetVCount());
    morph->Listed = true;
    (parent ? parent : Tree.Get())->AddItem(morph);
    return morph;
}

void QLM_MeshMorphContainer::DeleteMorph(QLM_Morph* morph) { delete morph; }

void QLM_MeshMorphContainer::ForgetMorph(QLM_Morph* morph) {
    if (Tree) Tree->RemoveItem(morph);
    if (morph->GetID() == CurrentMorphId) CurrentMorphId = 0;
    else InvalidateOptimizedDeltas();
}

// --- The current morph ----------------------------------------------------------------------------------------------

QLM_Morph* QLM_MeshMorphContainer::GetCurrentMorph() {
    QLM_Morph* morph = CurrentMorphId ? QLM_FindByID<QLM_Morph>(CurrentMorphId) : nullptr;
    if (!morph) CurrentMorphId = 0;
    return morph;
}

float* QLM_MeshMorphContainer::GetCurrentDeltas() {
    QLM_Morph* morph = GetCurrentMorph();
    if (!morph) return nullptr;
    BeginUsingMorph(morph, "GetCurrentDeltas"); // and stays so, being current
    return morph->Deltas.GetData();
}

void QLM_MeshMorphContainer::SetCurrentMorph(QLM_Morph* morph) {
    QLM_Morph* former = GetCurrentMorph();
    if (morph == former || (morph && morph->MeshId != mesh->GetID())) return;
    SubtractMorphFromOptimizedDeltas(morph);
    if (former) former->SetCurrentFlag(false);
    CurrentMorphId = morph ? morph->GetID() : 0;
    if (morph) {
        morph->SetCurrentFlag(true);
        BeginUsingMorph(morph, "SetCurrentMorph");
    }
    AddMorphToOptimizedDeltas(former);
    ParkUnused();
}

void QLM_MeshMorphContainer::ParkUnused() {
    for (QLM_Morph* morph : ListMorphs()) {
        if (IsMorphInUse(morph)) morph->Expand("SetCurrentMorph");
        else morph->Park();
    }
}

bool QLM_MeshMorphContainer::IsMorphInUse(const QLM_Morph* morph) {
    if (!morph->IsCurrent()) return false;
    return morph->GetID() == CurrentMorphId || std::fabs(morph->Strength) > inUseThreshold;
}

bool QLM_MeshMorphContainer::BeginUsingMorph(QLM_Morph* morph, const char* caller) {
    bool complete = morph->Expand(caller);
    if (morph->VertexCount != mesh->GetVCount()) {
        morph->SetVertexCount(mesh->GetVCount());
        complete = morph->Expand(caller) && complete;
    }
    return complete;
}

void QLM_MeshMorphContainer::EndUsingMorph(QLM_Morph* morph) {
    if (!IsMorphInUse(morph)) morph->Park();
}

QLM_VertexMap3D& QLM_MeshMorphContainer::PrepareCurrentDeltasWork() {
    CurrentDeltasWork.Resize(mesh->GetVCount(), true, true);
    return CurrentDeltasWork;
}

// --- The sum of the others ------------------------------------------------------------------------------------------

/// Takes a morph at one strength out of the sum and puts it in at another, in one pass. The sum's remainder keeps what
/// a float can't hold, so that thousands of changes leave no trace.
void QLM_MeshMorphContainer::ChangeSum(QLM_Morph* morph, float removed, float added, const char* caller,
                                       const char* badLength) {
    const int count = mesh->GetVCount();
    const int sumCount = static_cast<int>(AllDeformationsMinusCurrent.GetCount());
    if (sumCount != 0 && sumCount != count) QLM_RaiseErrorText(badLength);
    // Nothing times anything is nothing.
    if (!morph->HasArray() || (removed == 0.0f && added == 0.0f) || count == 0) return;
    if (sumCount == 0) AllDeformationsMinusCurrent.Resize(count, false, true);
    SumRemainder.Resize(count, true, true);

    const QLM_MorphUse use(*this, morph, caller);
    const float* deltas = use.GetDeltas();
    float *sum = AllDeformationsMinusCurrent.GetData(), *remainder = SumRemainder.GetData();
    QLM_ThreadCrunch(count, [=](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        QLM_ChangeMorphSum(sum, remainder, deltas, removed, added, 3LL * range.start, 3LL * range.end);
    }, "ChangeAllDeformationsMinusCurrent_ThreadFunc");
}

void QLM_MeshMorphContainer::AddMorphToOptimizedDeltas(QLM_Morph* morph) {
    if (!OptimizedDeltasValid || !morph || morph->GetID() == CurrentMorphId) return;
    ChangeSum(morph, 0.0f, morph->Strength, "AddMorphToOptimizedDeltas",
              "AllDeformationsMinusCurrent().GetSize() != GetVCount() in AddMorphToOptimizedDeltas");
}

void QLM_MeshMorphContainer::SubtractMorphFromOptimizedDeltas(QLM_Morph* morph) {
    if (!OptimizedDeltasValid || !morph || morph->GetID() == CurrentMorphId) return;
    ChangeSum(morph, morph->Strength, 0.0f, "SubtractMorphFromOptimizedDeltas",
              "AllDeformationsMinusCurrent().GetSize() != GetVCount() in SubtractMorphFromOptimizedDeltas");
}

void QLM_MeshMorphContainer::UpdateMorphForOptimizedDeltas(QLM_Morph* morph, float oldStrength, float newStrength) {
    morph->Strength = newStrength;
    morph->Automatic = false;
    if (!OptimizedDeltasValid || morph->GetID() == CurrentMorphId || oldStrength == newStrength) return;
    ChangeSum(morph, oldStrength, newStrength, "UpdateMorphForOptimizedDeltas",
              "AllDeformationsMinusCurrent().GetSize() != mesh()->GetVCount() in UpdateMorphForOptimizedDeltas");
}

void QLM_MeshMorphContainer::RebuildOptimizedDeltas(const QLM_Morph* current) {
    std::vector<QLM_Morph*> others = ListMorphs();
    std::erase_if(others, [=](QLM_Morph* m) { return m == current || !m->HasArray() || m->Strength == 0.0f; });
    const int count = mesh->GetVCount();
    AllDeformationsMinusCurrent.Resize(others.empty() ? 0 : count, false, false);
    SumRemainder.Free();
    float* sum = AllDeformationsMinusCurrent.GetData();

    // A few morphs a pass: each is read once, the sum once a pass.
    for (size_t first = 0; first < others.size(); first += QLM_MorphTerms::most) {
        QLM_MorphTerms terms;
        const size_t end = std::min(first + QLM_MorphTerms::most, others.size());
        for (size_t m = first; m < end; ++m, ++terms.count) {
            BeginUsingMorph(others[m], "ResolveMorphs");
            terms.deltas[terms.count] = others[m]->Deltas.GetData();
            terms.strengths[terms.count] = others[m]->Strength;
        }
        QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& range) {
            QLM_TRACE(3);
            QLM_AddMorphTerms(sum, first == 0, terms, 3LL * range.start, 3LL * range.end);
        }, "ResolveMorphs_CalculateAllDeformationsMinusCurrent_ThreadFunc");
        for (size_t m = first; m < end; ++m) EndUsingMorph(others[m]);
    }
    OptimizedDeltasValid = true;
}

void QLM_MeshMorphContainer::SumDeformations(QLM_VertexMap3D& out) {
    QLM_Morph* current = GetCurrentMorph();
    if (!OptimizedDeltasValid) RebuildOptimizedDeltas(current);
    if (AllDeformationsMinusCurrent.GetCount()) out.CopyFrom(AllDeformationsMinusCurrent);
    else out.Resize(mesh->GetVCount(), false, true);
    if (!current) return;
    const QLM_MorphUse use(*this, current, "SumDeformations");
    for (int64_t i = 0; i < 3LL * mesh->GetVCount(); ++i)
        out.GetData()[i] += current->Strength * use.GetDeltas()[i];
}

// --- The shape ------------------------------------------------------------------------------------------------------

void QLM_MeshMorphContainer::ResolveMorphs(bool applyTransform) {
    QLM_TRACE(1);
    const int count = mesh->GetVCount();
    QLM_VertexMap3D& resolved = mesh->ResolvedVertices;
    resolved.Resize(count, false, false);

    // Bring what contributes to the shape into memory.
    QLM_Morph* current = GetCurrentMorph();
    if (!OptimizedDeltasValid) RebuildOptimizedDeltas(current);
    if (current) BeginUsingMorph(current, "ResolveMorphs"); // and stays so, being current
    const ShapeTerms terms{mesh->Vertices.GetData(), AllDeformationsMinusCurrent.GetData(),
                           current ? current->Deltas.GetData() : nullptr, current ? current->Strength : 0.0f};

    // Add it up; the box starts from the raw one and never shrinks below it.
    QLM_PointBox box = ResolveAll(terms, resolved.GetData(), count);
    box.Add(mesh->BoundsMin);
    box.Add(mesh->BoundsMax);
    box.CopyTo(mesh->ResolvedBoundsMin, mesh->ResolvedBoundsMax);

    // Move what is visible into world space.
    mesh->RecomputeWorldMatrix();
    if (!applyTransform || mesh->IsIdentity()) return;
    const QLM_SimpleArray<int32_t>& visible = mesh->GetVisibleVertices();
    if (visible.GetCount() == count) QLM_MultByMatrix(resolved.GetData(), count, mesh->GetWorldMatrix());
    else
        QLM_MultByMatrixIndexed(resolved.GetData(), visible.GetData(), visible.GetCount(), mesh->GetWorldMatrix());
}

// --- The record -----------------------------------------------------------------------------------------------------

void QLM_MeshMorphContainer::SaveMorphs(FILE* stream) {
    if (Tree) Tree->SaveToStream_Text(stream);
}

bool QLM_MeshMorphContainer::LoadMorphs(FILE* stream) {
    if (!Tree) Tree.Reset(new QLM_MorphTreeGroup(mesh->GetID()));
    // The record says itself which morph is current; what came with the mesh has no say beside it.
    QLM_Morph* former = GetCurrentMorph();
    const bool replaces = former && former->Automatic;
    if (replaces) former->SetCurrentFlag(false);
    const size_t countBefore = ListMorphs().size();
    const bool complete = Tree->LoadFromStream_Text(stream, 0);

    for (QLM_Morph* morph : ListMorphs())
        if (morph->Automatic && ListMorphs().size() > countBefore) DeleteMorph(morph);
        else if (morph->Automatic && replaces) morph->SetCurrentFlag(true);
    InvalidateOptimizedDeltas();
    // A mesh that has no vertices yet brings the lengths into step when it gets them.
    if (mesh->GetVCount() > 0) {
        EnforceMorphSizes();
        FinishMorphsAfterLoad();
    }
    return complete;
}

void QLM_MeshMorphContainer::FinishMorphsAfterLoad() {
    // A record's mark goes before the morph that was current.
    QLM_Morph *former = GetCurrentMorph(), *marked = nullptr;
    const std::vector<QLM_Morph*> morphs = ListMorphs();
    for (QLM_Morph* morph : morphs)
        if (morph->IsCurrent() && (!marked || marked == former)) marked = morph;
    for (QLM_Morph* morph : morphs) morph->SetCurrentFlag(morph == marked);
    InvalidateOptimizedDeltas();
    if (marked == former) ParkUnused();
    else SetCurrentMorph(marked);
}
