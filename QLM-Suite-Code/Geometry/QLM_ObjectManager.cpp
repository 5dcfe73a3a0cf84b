#include "Geometry/QLM_ObjectManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_GroupFlags.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_PointBox.h"
#include "Geometry/QLM_SymmetryManager.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_ViewportManager.h"

namespace {
constexpr int quickRenderMode = 3;

/// A manager of the engine; null without an engine and for managers that are already gone, as at shutdown.
template <class Manager> Manager* FindManager(Manager* QLM_Managers::*slot) {
    QLM_Engine* engine = QLM_GetEngine();
    Manager* manager = engine && engine->managers ? engine->managers->*slot : nullptr;
    return QLM_IsItemUsable(manager) ? manager : nullptr;
}

QLM_ViewportManager* FindViewports() { return FindManager(&QLM_Managers::viewport); }

/// The selection and what a stroke makes of it leave out what is hidden or locked. Rebuilt at once: the next render
/// reads the weights on its own thread.
void RebuildSelection(QLM_Mesh& mesh) {
    mesh.RebuildSelectionArrays(true);
    if (QLM_VertexWeightManager* weights = FindManager(&QLM_Managers::vertexWeight)) weights->Invalidate(&mesh);
}

/// Adds the transformed box of an object that has vertices.
void AddObjectBox(const QLM_Object& object, QLM_PointBox& box) {
    const QLM_Mesh* mesh = object.GetMesh();
    if (!mesh || mesh->GetVCount() == 0) return;
    box.Add(mesh->TransformedBoundsMin);
    box.Add(mesh->TransformedBoundsMax);
}
} // namespace

QLM_ObjectManager::QLM_ObjectManager() : tree(new QLM_ObjectTreeGroup) {
    tree->SetNameText("objects");
    tree->topLabel = "objects";
    tree->SetBool("manager/noRename", true);
}

QLM_ObjectManager::~QLM_ObjectManager() { DeleteAllObjects(); }

void QLM_ObjectManager::AfterClear() {
    DeleteAllObjects();
    globalScale = 1.0f;
}

void QLM_ObjectManager::AddObject(QLM_Object* object) { tree->AddItem(object); }

void QLM_ObjectManager::DeleteObject(QLM_Object* object) {
    ForgetObject(object);
    delete object;
}

void QLM_ObjectManager::DeleteAllObjects() {
    for (auto queue = GetObjects(false); !queue.IsEmpty(); queue.Pop()) DeleteObject(queue);
    currentObjectID = 0;
}

QLM_Object* QLM_ObjectManager::GetCurrentObject() {
    if (currentObjectID)
        if (auto* object = dynamic_cast<QLM_Object*>(tree->FindByID(currentObjectID, false, true))) return object;
    auto objects = GetObjects(false);
    return objects.IsEmpty() ? nullptr : static_cast<QLM_Object*>(objects);
}

void QLM_ObjectManager::SetCurrentObject(QLM_Object* object) {
    const uint32_t id = object ? object->GetID() : 0;
    if (id == currentObjectID) return;
    const QLM_Object* former = GetCurrentObject();
    const bool showedSymmetry = former && former->SymmetryEnabled;
    currentObjectID = id;
    if (object && object->SymmetryEnabled != showedSymmetry) OnShapeChanged(object, true, false, false);
    if (QLM_SymmetryManager* symmetry = FindManager(&QLM_Managers::symmetry))
        symmetry->Refresh(object ? object->GetMesh() : nullptr, false);
    if (QLM_GetEngine()) QLM_PostEvent(QLM_Event_RefreshAllPanels);
}

int QLM_ObjectManager::GetObjectCount() { return static_cast<int>(GetObjects(false).size()); }

QLM_RootClassQueue<QLM_Object*> QLM_ObjectManager::GetObjects(bool visibleOnly) {
    QLM_RootClassQueue<QLM_Object*> objects;
    for (auto all = tree->GetItemQueue<QLM_Object>(); !all.IsEmpty(); all.Pop())
        if (!visibleOnly || !all->IsHidden()) objects.Push(all);
    return objects;
}

QLM_Object* QLM_ObjectManager::FindObject(const std::string& name, int occurrence) {
    for (auto objects = GetObjects(false); !objects.IsEmpty(); objects.Pop())
        if (name == objects->GetName() && --occurrence == 0) return objects;
    return nullptr;
}

void QLM_ObjectManager::OnFullSurfaceChanged() {
    if (QLM_ViewportManager* viewports = FindViewports()) {
        viewports->RequestFullRedraw();
        viewports->DropPickCache();
    }
}

void QLM_ObjectManager::OnPartialSurfaceChanged(const float* range) {
    for (auto objects = GetObjects(false); !objects.IsEmpty(); objects.Pop())
        if (QLM_Mesh* mesh = objects->GetMesh()) mesh->TouchUVRange(range);
    if (QLM_ViewportManager* viewports = FindViewports()) {
        viewports->RequestPartialRedraw();
        viewports->DropPickCache();
    }
}

void QLM_ObjectManager::OnShapeChanged(QLM_Object* object, bool redraw, bool resolve, bool normals) {
    QLM_TRACE(1);
    QLM_ViewportManager* viewports = FindViewports();
    if (viewports) viewports->DropPickCache();
    QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    if (resolve && object) object->ResolveMorphsAndBounds(true);
    if (resolve && viewports && viewports->displayMode == quickRenderMode) viewports->displayMode = 0;
    if (mesh) {
        mesh->ResetConcavity();
        if (normals) mesh->CalculateNormals(true);
        mesh->OctreeBoundsChanged();
    }
    if (redraw && viewports) viewports->OnAllViewportsChanged();
}

void QLM_ObjectManager::OnShapeChanged(bool redraw, bool resolve, bool normals) {
    for (auto objects = GetObjects(false); !objects.IsEmpty(); objects.Pop())
        OnShapeChanged(objects, redraw, resolve, normals);
}

bool QLM_ObjectManager::MayWalkFlags() {
    flagsDue = QLM_OS::Get().mouseButtonsDown > 0;
    if (flagsDue) return false;
    if (QLM_ViewportManager* viewports = FindViewports()) viewports->AbortRender(); // it reads the flags as well
    return true;
}

void QLM_ObjectManager::UpdateLockedFlags() {
    QLM_TRACE(1);
    QLM_LayerManager* layers = FindManager(&QLM_Managers::layer);
    if (!layers || !MayWalkFlags()) return;
    const std::vector<QLM_DisplayGroup*> groups = layers->GetGroups();
    for (auto objects = GetObjects(false); !objects.IsEmpty(); objects.Pop()) {
        QLM_Mesh* mesh = objects->GetMesh();
        if (!mesh) continue;
        QLM_UpdateLockedFlags(*mesh, groups);
        RebuildSelection(*mesh);
    }
    if (QLM_ViewportManager* viewports = FindViewports()) viewports->OnAllViewportsChanged();
}

void QLM_ObjectManager::UpdateHiddenFlags() {
    QLM_TRACE(1);
    QLM_LayerManager* layers = FindManager(&QLM_Managers::layer);
    if (!layers || !MayWalkFlags()) return;
    const std::vector<QLM_DisplayGroup*> groups = layers->GetGroups();
    for (auto objects = GetObjects(false); !objects.IsEmpty(); objects.Pop()) {
        QLM_Mesh* mesh = objects->GetMesh();
        if (!mesh || !QLM_UpdateHiddenFlags(*mesh, groups)) continue;
        RebuildSelection(*mesh);
        // What was hidden missed the changes of the shape; its box and normals are those of the visible part.
        OnShapeChanged(objects, true, true, true);
    }
}

void QLM_ObjectManager::OnIdle() {
    if (!flagsDue || QLM_OS::Get().mouseButtonsDown > 0) return;
    UpdateHiddenFlags();
    UpdateLockedFlags();
}

void QLM_ObjectManager::ForgetMesh(QLM_Mesh* mesh) {
    if (QLM_VertexWeightManager* weights = FindManager(&QLM_Managers::vertexWeight)) weights->ForgetMesh(mesh);
    if (QLM_ViewportManager* viewports = FindViewports()) viewports->DropPickCache();
}

void QLM_ObjectManager::ForgetObject(QLM_Object* object) {
    tree->RemoveItem(object);
    if (currentObjectID == object->GetID()) currentObjectID = 0;
}

void QLM_ObjectManager::UpdateGlobalScale() {
    QLM_PointBox box;
    for (auto objects = GetObjects(false); !objects.IsEmpty(); objects.Pop()) AddObjectBox(*objects.front(), box);
    float minimum[3], maximum[3];
    box.CopyTo(minimum, maximum);
    const float side[3] = {maximum[0] - minimum[0], maximum[1] - minimum[1], maximum[2] - minimum[2]};
    float scale = 0.5f * std::sqrt(Dot(side, side));
    if (!(scale >= 1e-10f)) scale = 1.0f;
    if (scale == globalScale) return;
    globalScale = scale;
    if (QLM_ViewportManager* viewports = FindViewports()) viewports->OnGlobalScaleChanged(scale);
}

bool QLM_ObjectManager::GetSceneBounds(float* minimum, float* maximum) {
    QLM_PointBox box;
    for (auto objects = GetObjects(true); !objects.IsEmpty(); objects.Pop()) AddObjectBox(*objects.front(), box);
    box.CopyTo(minimum, maximum);
    return !box.IsEmpty();
}
