#include "Rendering/QLM_CullingManager.h"

#include "Engine/QLM_Events.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <cmath>

namespace {

constexpr const char* MethodNames[] = {"None",       "Backface", "SmartCulling", "PerVertex",
                                       "PerPolygon", "PerPixel", "PerPixelHard"};
constexpr int8_t Unknown = -1;

/// True when a polygon around the vertex faces the viewer.
bool IsVertexFacing(const QLM_Mesh& mesh, int vertex, const float* view) {
    for (int i = 0; i < mesh.GetVertexPolygonCount(vertex); ++i)
        if (Dot(mesh.PolygonNormals[mesh.GetVertexPolygon(vertex, i)], view) > 0.0f) return true;
    return false;
}

} // namespace

const char* QLM_CullingMethodName(QLM_CullingMethod method) {
    const uint32_t index = static_cast<uint32_t>(method);
    return index < std::size(MethodNames) ? MethodNames[index] : "ERROR";
}

QLM_CullingMethod QLM_CullingMethodFromName(const std::string& name, bool* known) {
    const auto found = std::find(std::begin(MethodNames), std::end(MethodNames), name);
    if (known) *known = found != std::end(MethodNames);
    return found == std::end(MethodNames) ? QLM_CullingMethod::PerVertex
                                          : static_cast<QLM_CullingMethod>(found - std::begin(MethodNames));
}

void QLM_CullingManager::Clear() { OnViewChanged(); }

bool QLM_CullingManager::SetMethod(QLM_CullingMethod methodIn) {
    if (methodIn > QLM_CullingMethod::SmartCulling) return false;
    method = methodIn;
    RefreshEffectiveMethod();
    return true;
}

void QLM_CullingManager::RefreshEffectiveMethod() {
    QLM_Managers* managers = QLM_ManagersOrNull();
    QLM_ToolManager* tools = managers ? managers->GetToolManager() : nullptr;
    QLM_Tool* tool = tools ? tools->GetCurrentTool() : nullptr;
    QLM_CullingMethod effective = tool ? tool->GetCullingMethod() : method;
    // Back faces are what there is of hidden surface removal: every finer method resolves to it.
    if (effective > QLM_CullingMethod::Backface) effective = QLM_CullingMethod::Backface;
    if (effective == effectiveMethod) return;
    effectiveMethod = effective;
    OnViewChanged();
    QLM_PostEvent(QLM_Event_RefreshToolPanel);
}

float QLM_CullingManager::GetVertexVisibility(QLM_Object* object, int vertex) {
    if (effectiveMethod != QLM_CullingMethod::Backface) return 1.0f;
    QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    QLM_Managers* managers = QLM_ManagersOrNull();
    const QLM_Viewport* viewport =
        managers && managers->GetViewportManager() ? managers->GetViewportManager()->GetCurrentViewport() : nullptr;
    if (!mesh || !viewport || vertex < 0 || vertex >= mesh->GetVCount()) return 1.0f;
    const float* r = viewport->GetRotationMatrix();
    const float view[3] = {r[2], r[6], r[10]};
    if (vertex >= mesh->VertexVisibility.GetCount()) return IsVertexFacing(*mesh, vertex, view) ? 1.0f : 0.0f;
    // Two workers may find the same answer at once; it is the same answer.
    std::atomic_ref<int8_t> cached(mesh->VertexVisibility[vertex]);
    int8_t visible = cached.load(std::memory_order_relaxed);
    if (visible == Unknown) {
        visible = IsVertexFacing(*mesh, vertex, view);
        cached.store(visible, std::memory_order_relaxed);
    }
    return visible;
}

void QLM_CullingManager::OnViewChanged() {
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (!objects) return;
    for (QLM_Object* object : objects->GetObjects(false))
        if (QLM_Mesh* mesh = object->GetMesh())
            std::fill(mesh->VertexVisibility.begin(), mesh->VertexVisibility.end(), Unknown);
}

float QLM_FadeByAngle::Fade(const float* view, const float* normal, bool excludeBackFaces) const {
    if (Cutoff < 1.1920929e-7f && Falloff > 0.9999999f) return 1.0f;
    const float c = std::clamp(Cutoff, 0.0f, 0.99f), f = std::clamp(Falloff, 0.0f, 0.9999f);
    float d = Dot(view, normal);
    d = excludeBackFaces && d <= 0.0f ? 0.0f : d * d;
    return std::clamp((d - c) / (1.0f - c) / (1.0f - f * f * f), 0.0f, 1.0f);
}
