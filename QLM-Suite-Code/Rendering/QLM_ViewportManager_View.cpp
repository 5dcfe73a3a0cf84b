// Framing, turning and zooming.

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <cmath>
#include <limits>

namespace {

constexpr float SmallestRadius = 1e-10f;
constexpr float LargestZoom = 2.0f;
constexpr float RadiansPerDegree = 3.1415926535898f / 180.0f;

/// Direction to the viewer and the screen's up in world, by standard view; the third axis is their product.
constexpr float StandardAxes[6][2][3] = {{{0, 0, 1}, {0, 1, 0}}, {{0, 0, -1}, {0, 1, 0}}, {{-1, 0, 0}, {0, 1, 0}},
                                         {{1, 0, 0}, {0, 1, 0}}, {{0, 1, 0}, {0, 0, -1}}, {{0, -1, 0}, {0, 0, 1}}};

/// Fills the rotation's columns: right = up x view, up, view.
void SetAxes(const float* view, const float* up, float* rotation) {
    float right[3];
    Cross(up, view, right);
    MatrixIdentity(rotation);
    for (int i = 0; i < 3; ++i) {
        rotation[i * 4] = right[i];
        rotation[i * 4 + 1] = up[i];
        rotation[i * 4 + 2] = view[i];
    }
}

/// Takes the rounding of many turns out of a rotation.
void Orthonormalize(float* rotation) {
    float view[3] = {rotation[2], rotation[6], rotation[10]}, up[3] = {rotation[1], rotation[5], rotation[9]};
    Normalize(view);
    const float lean = Dot(up, view);
    for (int i = 0; i < 3; ++i) up[i] -= lean * view[i];
    Normalize(up);
    SetAxes(view, up, rotation);
}

bool ExtendByVertices(const QLM_Mesh& mesh, QLM_SimpleArray<int32_t>& vertices, float* minimum, float* maximum) {
    const bool resolved = mesh.ResolvedVertices.GetCount() == static_cast<uint32_t>(mesh.GetVCount());
    const QLM_VertexMap3D& positions = resolved ? mesh.ResolvedVertices : mesh.Vertices;
    bool found = false;
    for (int32_t v : vertices) {
        if (!mesh.HasVertexFlag(v, eVFlag_Selected)) continue;
        found = true;
        for (int i = 0; i < 3; ++i) {
            minimum[i] = std::min(minimum[i], positions[v][i]);
            maximum[i] = std::max(maximum[i], positions[v][i]);
        }
    }
    return found;
}

} // namespace

bool QLM_ViewportManager::RefuseLocked(const QLM_Viewport* viewport) const {
    if (!viewport->IsLocked()) return false;
    QLM_OS::Get().PrintMessage(QLM_GetString(1461), viewport->GetName());
    return true;
}

void QLM_ViewportManager::SetStandardView(QLM_Viewport* viewport, QLM_StandardView view) {
    if (!viewport || RefuseLocked(viewport)) return;
    float rotation[16];
    SetAxes(StandardAxes[static_cast<int>(view)][0], StandardAxes[static_cast<int>(view)][1], rotation);
    viewport->SetRotationMatrix(rotation);
}

bool QLM_ViewportManager::GetFrameBounds(QLM_FrameMode mode, float* minimum, float* maximum) const {
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (!objects) return false;
    if (mode == QLM_FrameMode::Project) return objects->GetSceneBounds(minimum, maximum);
    if (mode == QLM_FrameMode::Object) {
        QLM_Object* object = objects->GetCurrentObject();
        const QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
        if (!mesh || mesh->GetVCount() == 0) return false;
        std::copy(mesh->TransformedBoundsMin, mesh->TransformedBoundsMin + 3, minimum);
        std::copy(mesh->TransformedBoundsMax, mesh->TransformedBoundsMax + 3, maximum);
        return true;
    }
    std::fill(minimum, minimum + 3, std::numeric_limits<float>::max());
    std::fill(maximum, maximum + 3, std::numeric_limits<float>::lowest());
    bool found = false;
    for (QLM_Object* object : objects->GetObjects(true))
        if (QLM_Mesh* mesh = object->GetMesh())
            found = ExtendByVertices(*mesh, mesh->GetVisibleVertices(), minimum, maximum) || found;
    return found;
}

bool QLM_ViewportManager::Frame(QLM_Viewport* viewport, QLM_FrameMode mode) {
    float minimum[3], maximum[3];
    if (!viewport) return false;
    if (!GetFrameBounds(mode, minimum, maximum)) {
        QLM_OS::Get().PrintMessage("No points have been selected.");
        return false;
    }
    float centre[3], diagonal = 0;
    for (int i = 0; i < 3; ++i) {
        centre[i] = (minimum[i] + maximum[i]) * 0.5f;
        diagonal += (maximum[i] - minimum[i]) * (maximum[i] - minimum[i]);
    }
    float radius = 0.5f * std::sqrt(diagonal);
    if (radius < SmallestRadius) radius = 1.0f;
    std::copy(centre, centre + 3, viewport->LookAt);
    if (!viewport->IsLocked()) {
        const bool scaled = pixelsPerUnit > 1.1920929e-7f;
        viewport->Zoom = scaled ? radius / pixelsPerUnit / std::min(1.0f, viewport->GetAspect()) : 1.0f;
    }
    viewport->OnViewChanged();
    QLM_PostEvent(QLM_Event_RefreshViewport, viewport->GetID());
    return true;
}

void QLM_ViewportManager::Orbit(QLM_Viewport* viewport, float dxDegrees, float dyDegrees) {
    if (!viewport || RefuseLocked(viewport)) return;
    // Behind the present rotation: turns are about the screen's axes.
    float aboutY[16], aboutX[16], turned[16], rotation[16];
    MatrixRotation(aboutY, 1, dxDegrees * RadiansPerDegree);
    MatrixRotation(aboutX, 0, dyDegrees * RadiansPerDegree);
    MatrixMultiply(viewport->GetRotationMatrix(), aboutY, turned);
    MatrixMultiply(turned, aboutX, rotation);
    Orthonormalize(rotation);
    viewport->SetRotationMatrix(rotation);
}

void QLM_ViewportManager::ApplyZoom(QLM_Viewport* viewport, float factor) {
    if (!viewport || RefuseLocked(viewport) || !(factor > 0) || !std::isfinite(factor)) return;
    // A tall viewport may have been framed beyond the limit; it keeps that.
    const float limit = std::max(LargestZoom, viewport->Zoom);
    viewport->SetZoom(std::clamp(viewport->Zoom * factor, std::numeric_limits<float>::min(), limit));
}

void QLM_ViewportManager::WheelZoom(QLM_Viewport* viewport, float notches, float x, float y) {
    // During a drag the view is the tool's: a stroke lands where it was drawn.
    if (heldButton >= 0) return;
    if (!viewport || notches == 0 || !std::isfinite(notches) || RefuseLocked(viewport)) return;
    const QLM_Engine* engine = QLM_GetEngine();
    const float s = engine ? engine->mouseWheelSensitivity : 0.5f;
    const float step = 2.0f * (1.0f - s) + 1.05f * s;
    // The world point under the pointer stays under it.
    float before[3], after[3], lookAt[3];
    viewport->Unproject(x, y, before);
    ApplyZoom(viewport, std::pow(step, -notches));
    viewport->Unproject(x, y, after);
    for (int i = 0; i < 3; ++i) lookAt[i] = viewport->LookAt[i] + before[i] - after[i];
    viewport->SetLookAt(lookAt);
    QLM_OS::Get().PrintStatusText(QLM_GetString(983));
}
