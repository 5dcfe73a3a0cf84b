#include "Geometry/QLM_ObjectManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_PointBox.h"
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

/// Adds the transformed box of an object that has vertices.
void AddObjectBox(const QLM_Object& object, QLM_PointBox& box) {
    const QLM_Mesh* mesh = object.GetMesh();
    if (!mesh || mesh->GetVCount() == 0) return;
    box.Add(mesh->TransformedBoundsMin);
    box.Add(mesh->TransformedBoundsMax);
}
} // namespace

QLM_ObjectManager::QLM_ObjectManager() : tree(new QLM_TopTreeGroup) {
    tree->SetNameText("objects");
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
    currentObjectID = id;
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
