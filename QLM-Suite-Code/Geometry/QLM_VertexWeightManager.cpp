#include "Geometry/QLM_VertexWeightManager.h"

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_AffectedList.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_SymmetryManager.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

namespace {
constexpr const char* validKey = "VERTEX_WEIGHT_IS_VALID";
constexpr int knownMarker = 2;

uint32_t KeyOf(const QLM_Mesh* mesh) { return mesh->GetObject() ? mesh->GetObject()->GetID() : mesh->GetID(); }
} // namespace

void QLM_VertexWeightManager::DeleteAll() {
    maps.clear();
    CurrentMap = nullptr;
    currentMesh = nullptr;
}

void QLM_VertexWeightManager::PrepareMesh(QLM_Mesh* mesh) {
    const QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    const QLM_SymmetryManager* symmetry = QLM_GetManagers().GetSymmetryManager();
    CurrentViewport = viewports ? viewports->GetCurrentViewport() : nullptr;
    SymmetryActive = symmetry && symmetry->IsActive(mesh);
    currentMesh = mesh;
    if (!IsValid(mesh)) {
        QLM_Owned<QLM_VertexMap1D>& map = maps[KeyOf(mesh)];
        if (!map) map = QLM_Owned<QLM_VertexMap1D>(new QLM_VertexMap1D);
        map->Resize(mesh->GetVCount(), false, false);
        mesh->VertexMarkers[knownMarker].Reset(mesh->GetVCount());
        map->SetBool(validKey, true);
    }
    CurrentMap = FindMap(mesh);
}

QLM_VertexMap1D* QLM_VertexWeightManager::FindMap(const QLM_Mesh* mesh) const {
    const auto found = maps.find(KeyOf(mesh));
    return found == maps.end() ? nullptr : found->second.Get();
}

void QLM_VertexWeightManager::Invalidate(QLM_Mesh* mesh) {
    if (QLM_VertexMap1D* map = FindMap(mesh)) map->SetBool(validKey, false);
    if (mesh == currentMesh) currentMesh = nullptr;
}

bool QLM_VertexWeightManager::IsValid(QLM_Mesh* mesh) {
    QLM_VertexMap1D* map = FindMap(mesh);
    if (!map) return false;
    if (static_cast<int>(map->GetCount()) != mesh->GetVCount()) map->SetBool(validKey, false);
    return map->GetBool(validKey);
}

void QLM_VertexWeightManager::InvalidateAll() {
    for (auto& [id, map] : maps) map->SetBool(validKey, false);
    currentMesh = nullptr;
}

void QLM_VertexWeightManager::UseForStroke(bool fadeByAngle) {
    UseFadeByAngle = fadeByAngle;
    UseSelection = false;
    if (QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager())
        for (auto queue = objects->GetObjects(false); !queue.IsEmpty(); queue.Pop())
            if (QLM_Mesh* mesh = queue->GetMesh()) {
                mesh->GetSelectedVertexCount(); // workers only read: nothing may be left to rebuild
                UseSelection = UseSelection || mesh->HasSelection();
            }
}

float QLM_VertexWeightManager::GetVertexWeight(QLM_Mesh* mesh, int v) {
    if (mesh != currentMesh) PrepareMesh(mesh);
    float* weights = CurrentMap->GetData();
    if (mesh->VertexMarkers[knownMarker].Has(v)) return weights[v];
    const int source = mesh->SourceVertex(v);
    weights[source] = weights[v] = ComputeWeight(*mesh, source);
    mesh->VertexMarkers[knownMarker].Set(v);
    return weights[v];
}

float QLM_VertexWeightManager::ComputeWeight(const QLM_Mesh& mesh, int v) const {
    QLM_CullingManager* culling = QLM_GetManagers().GetCullingManager();
    if (culling && culling->IsVertexHidden(mesh.GetObject(), v)) return 0.0f;
    float weight = UseSelection ? mesh.GetVertexWeight(v) : 1.0f;
    const QLM_FadeByAngleManager* fade = QLM_GetManagers().GetFadeByAngleManager();
    if (!UseFadeByAngle || !fade || !CurrentViewport) return weight;
    const float* r = CurrentViewport->GetRotationMatrix();
    const float view[3] = {r[2], r[6], r[10]};
    const bool excludeBackFaces = culling && culling->GetEffectiveMethod() != QLM_CullingMethod::None;
    return weight * fade->Fade(view, mesh.VertexNormals[v], excludeBackFaces);
}

void QLM_VertexWeightManager::ForgetMesh(QLM_Mesh* mesh) {
    QLM_AffectedList::Get().ForgetMesh(mesh);
    if (mesh == currentMesh) {
        currentMesh = nullptr;
        CurrentMap = nullptr;
    }
    maps.erase(KeyOf(mesh));
}
