#include "Geometry/QLM_SelectionManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Engine/QLM_UndoManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Rendering/QLM_ViewportManager.h"

#include <cmath>

namespace {
constexpr int selectAllText = 17, selectNoneText = 19, growText = 1174;
constexpr float epsilon = 1.1920929e-7f;
constexpr float hardVertexWeight = 0.299f, hardPolygonWeight = 0.0499f;
enum SelectionMode { VertexMode = 0, PolygonMode = 1 };

bool IsPolygonMode() { return QLM_GetEngine()->selectionMode == PolygonMode; }

/// Weights may change: ends the render that reads them and records what was there.
void BeginChange(const char* undoText) {
    if (QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager()) viewports->AbortRender();
    QLM_UndoManager* undo = QLM_GetManagers().GetUndoManager();
    if (!undo || !undoText) return;
    for (auto objects = QLM_GetManagers().GetObjectManager()->GetObjects(false); !objects.IsEmpty(); objects.Pop())
        if (objects->GetMesh()) undo->AddUndoNode(objects, QLM_UndoKind::Selection, undoText);
}

void EndChange() {
    if (QLM_VertexWeightManager* weights = QLM_GetManagers().GetVertexWeightManager()) weights->InvalidateAll();
    if (QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager()) viewports->OnAllViewportsChanged();
    QLM_PostEvent(QLM_Event_RefreshSelection);
}

std::vector<QLM_Mesh*> GetMeshes(bool visibleOnly) {
    std::vector<QLM_Mesh*> meshes;
    auto objects = QLM_GetManagers().GetObjectManager()->GetObjects(visibleOnly);
    for (; !objects.IsEmpty(); objects.Pop())
        if (QLM_Mesh* mesh = objects->GetMesh()) meshes.push_back(mesh);
    return meshes;
}

/// A whole operation: acts on each shown mesh and brings what follows up to date.
template <class Act> void Change(const char* undoText, Act act) {
    BeginChange(undoText);
    for (QLM_Mesh* mesh : GetMeshes(true)) {
        act(*mesh);
        mesh->Invalidate();
        mesh->RebuildSelectionArrays(true);
    }
    EndChange();
}

/// Calls act(slot of the thread, weight) for each usable vertex or polygon; the arrays must stand.
template <class Act> void ForUsableWeights(QLM_Mesh& mesh, bool polygons, Act act) {
    mesh.GetVisibleVertices(); // brings the hidden flags up to date
    QLM_VertexMap1D& weights = polygons ? mesh.PolygonWeights : mesh.VertexWeights;
    QLM_ThreadCrunch(weights.GetCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i) {
            const bool usable = polygons ? !mesh.HasPolygonFlag(i, ePFlag_Hidden | ePFlag_Locked)
                                         : !mesh.HasVertexFlag(i, eVFlag_Hidden | eVFlag_Locked);
            if (usable) act(range.threadIndex, *weights[i]);
        }
    }, "Selection_Weights_ThreadFunc");
}

float GreatestUsableWeight(QLM_Mesh& mesh, bool polygons) {
    float slots[QLM_MaximumThreads] = {};
    ForUsableWeights(mesh, polygons, [&](int slot, float w) { slots[slot] = std::max(slots[slot], w); });
    return *std::max_element(std::begin(slots), std::end(slots));
}

float HardenVertex(float w, bool partly) {
    const float hard = w >= hardVertexWeight ? 1.0f : 0.0f;
    return partly ? 0.9f * w + 0.1f * hard : hard;
}

float HardenPolygon(float w, bool partly) {
    if (!partly) return w >= hardPolygonWeight ? 1.0f : 0.0f;
    const float above = (w - hardPolygonWeight) / 0.9501f;
    return above > 0.0f ? std::pow(above, 0.8f) : 0.0f;
}
} // namespace

void QLM_SelectionManager::SelectAll() {
    QLM_TRACE(1);
    Change(QLM_GetString(selectAllText), [](QLM_Mesh& mesh) {
        mesh.AllocateWeights();
        ForUsableWeights(mesh, IsPolygonMode(), [](int, float& w) { w = 1.0f; });
    });
}

void QLM_SelectionManager::SelectNone() {
    BeginChange(QLM_GetString(selectNoneText));
    for (QLM_Mesh* mesh : GetMeshes(false)) mesh->ClearSelection();
    EndChange();
}

void QLM_SelectionManager::GrowSelection() {
    Change(QLM_GetString(growText), [](QLM_Mesh& mesh) { mesh.Grow(); });
}

void QLM_SelectionManager::ShrinkSelection() {
    Change("Shrink Selection", [](QLM_Mesh& mesh) { mesh.Shrink(); });
}

void QLM_SelectionManager::SoftenSelection() {
    using Mode = QLM_MeshHotSelectionContainer::SoftenMode;
    const QLM_OS& os = QLM_OS::Get();
    const Mode mode = os.shiftDown ? Mode::RaiseOnly : os.controlDown ? Mode::LowerOnly : Mode::Both;
    Change("Soften Selection", [mode](QLM_Mesh& mesh) { mesh.Soften(true, mode); });
}

void QLM_SelectionManager::HardenSelection() {
    QLM_TRACE(1);
    QLM_OS::Get().PrintMessage("Hardening the current selection. Hold ALT for partial hardening.");
    const bool partly = QLM_OS::Get().altDown, polygons = IsPolygonMode();
    Change("Harden", [=](QLM_Mesh& mesh) {
        ForUsableWeights(mesh, polygons, [=](int, float& w) {
            w = polygons ? HardenPolygon(w, partly) : HardenVertex(w, partly);
        });
    });
}

void QLM_SelectionManager::NormalizeSelection() {
    QLM_TRACE(1);
    QLM_OS::Get().PrintMessage("Normalizing the current selection.");
    const bool polygons = IsPolygonMode();
    float greatest = 0.0f;
    for (QLM_Mesh* mesh : GetMeshes(true)) greatest = std::max(greatest, GreatestUsableWeight(*mesh, polygons));
    Change("Normalize", [=](QLM_Mesh& mesh) {
        if (greatest >= epsilon) ForUsableWeights(mesh, polygons, [=](int, float& w) { w /= greatest; });
    });
}

void QLM_SelectionManager::InvertSelection() {
    QLM_TRACE(1);
    Change("Invert Selection", [](QLM_Mesh& mesh) {
        mesh.AllocateWeights();
        ForUsableWeights(mesh, IsPolygonMode(), [](int, float& w) { w = 1.0f - w; });
    });
}

void QLM_SelectionManager::InvertPolygonSelection() {
    QLM_TRACE(1);
    Change("Invert Polygon Selection", [](QLM_Mesh& mesh) {
        mesh.GetSelectedPolygonCount(); // the polygons may have to follow their vertices first
        mesh.AllocateWeights();
        ForUsableWeights(mesh, true, [](int, float& w) { w = 1.0f - w; });
        mesh.ConvertPolygonToVertex();
    });
}

void QLM_SelectionManager::SelectElements(QLM_Mesh* mesh, const std::vector<int32_t>& elements, float weight) {
    QLM_TRACE(1);
    BeginChange("Select");
    for (const int32_t i : elements)
        if (IsPolygonMode()) mesh->SetPolygonWeight(i, weight);
        else mesh->SetVertexWeight(mesh->GetWeldTarget(i), weight);
    mesh->RebuildSelectionArrays(true);
    EndChange();
}

void QLM_SelectionManager::SetSelectionMode(int mode) {
    QLM_Engine* engine = QLM_GetEngine();
    if (mode == engine->selectionMode) return;
    BeginChange(nullptr); // the weights stay what they were
    const std::vector<QLM_Mesh*> meshes = GetMeshes(false);
    for (QLM_Mesh* mesh : meshes) mesh->GetSelectedVertexCount(); // the array that is to lead must be current
    engine->selectionMode = mode;
    for (QLM_Mesh* mesh : meshes) mesh->RebuildSelectionArrays(true);
    EndChange();
}
