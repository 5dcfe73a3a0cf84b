#include "Rendering/QLM_Viewport.h"

#include "Core/TextStream/QLM_TextStream.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_ScreenProjection.h"
#include "Rendering/QLM_ViewportManager.h"

#include <cmath>

namespace {

constexpr float SmallestHalfHeight = 1e-20f;

bool AreFinite(const float* values, int count) {
    return std::all_of(values, values + count, [](float value) { return std::isfinite(value); });
}

} // namespace

QLM_Viewport::QLM_Viewport(int indexIn) : index(indexIn) {
    if (index == 0) SetName("Main");
    else SetName("%s %d", "Aux", index);
    MatrixIdentity(RotationMatrix);
    MatrixIdentity(DefaultRotationMatrix);
    UpdateCamera();
}

QLM_Viewport::~QLM_Viewport() = default;

bool QLM_Viewport::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool("excludeFromSaving")) return false;
    TStartTextFileBlock block("viewport", std::to_string(index).c_str(), stream, writeBlock);
    QLM_WriteMatrix(stream, "RotationMatrix", RotationMatrix);
    QLM_WriteMatrix(stream, "DefaultRotationMatrix", DefaultRotationMatrix);
    QLM_WriteVector3(stream, "LookAt", LookAt);
    QLM_WriteFloat(stream, "Zoom", Zoom);
    QLM_WriteInt(stream, "Current", Current);
    QLM_WriteInt(stream, "ViewLocked", ViewLocked);
    QLM_WriteInt(stream, "AutoView", AutoView);
    QLM_WriteInt(stream, "CopyViewportIndex", CopyViewportIndex);
    QLM_WriteInt(stream, "Maximized", Maximized);
    QLM_WriteInt(stream, "DisplayMode", DisplayMode);
    QLM_WriteText(stream, "MaterialChannelName", MaterialChannelName);
    QLM_WriteInt(stream, "UseViewportDefault", UseViewportDefault);
    QLM_WriteInt(stream, "Textured", Textured);
    QLM_WriteInt(stream, "Stippled", Stippled);
    QLM_WriteInt(stream, "WireFrame", WireFrame);
    QLM_WriteInt(stream, "WireFrameOverlay", WireFrameOverlay);
    QLM_WriteInt(stream, "VertexOverlay", VertexOverlay);
    QLM_WriteInt(stream, "Hidden", Hidden);
    QLM_WriteInt(stream, "Smooth", Smooth);
    QLM_WriteInt(stream, "Filter", Filter);
    QLM_WriteInt(stream, "UseLighting", UseLighting);
    return true;
}

bool QLM_Viewport::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) {
    TextCommand command(key, value);
    float matrix[16], point[3] = {LookAt[0], LookAt[1], LookAt[2]}, zoom = Zoom;
    // Values that are no numbers would spoil every later picture: the former ones stay.
    for (auto [name, field] : {std::pair<const char*, float*>{"RotationMatrix", RotationMatrix},
                               std::pair<const char*, float*>{"DefaultRotationMatrix", DefaultRotationMatrix}}) {
        if (!command.Is(name)) continue;
        std::copy(field, field + 16, matrix);
        command.ReadMatrix(matrix);
        if (AreFinite(matrix, 16)) std::copy(matrix, matrix + 16, field);
    }
    if (command.Is("LookAt")) {
        command.ReadVector3(point);
        if (AreFinite(point, 3)) std::copy(point, point + 3, LookAt);
    }
    if (command.Is("Zoom")) {
        command.ReadFloat(zoom);
        if (std::isfinite(zoom) && zoom > 0) Zoom = zoom;
    }
    for (auto [name, field] : {std::pair<const char*, bool*>{"Current", &Current},
                               {"ViewLocked", &ViewLocked},
                               {"AutoView", &AutoView},
                               {"Maximized", &Maximized},
                               {"UseViewportDefault", &UseViewportDefault},
                               {"Textured", &Textured},
                               {"Stippled", &Stippled},
                               {"WireFrame", &WireFrame},
                               {"WireFrameOverlay", &WireFrameOverlay},
                               {"VertexOverlay", &VertexOverlay},
                               {"Hidden", &Hidden},
                               {"Smooth", &Smooth},
                               {"Filter", &Filter},
                               {"UseLighting", &UseLighting}})
        if (command.Is(name)) command.ReadBool(*field);
    if (command.Is("CopyViewportIndex")) command.ReadInt(CopyViewportIndex);
    if (command.Is("DisplayMode")) command.ReadInt(DisplayMode);
    if (command.Is("MaterialChannelName")) command.ReadString(MaterialChannelName);
    if (command.Handled()) {
        OnViewChanged();
        return true;
    }
    return QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value);
}

void QLM_Viewport::SetRotationMatrix(const float* m) {
    std::copy(m, m + 16, RotationMatrix);
    OnViewChanged();
}

void QLM_Viewport::SetLookAt(const float* p) {
    std::copy(p, p + 3, LookAt);
    OnViewChanged();
}

void QLM_Viewport::SetZoom(float zoom) {
    Zoom = zoom;
    OnViewChanged();
}

void QLM_Viewport::CopyViewFrom(const QLM_Viewport& other) {
    std::copy(other.RotationMatrix, other.RotationMatrix + 16, RotationMatrix);
    std::copy(other.LookAt, other.LookAt + 3, LookAt);
    Zoom = other.Zoom;
    OnViewChanged();
}

void QLM_Viewport::SetPlacement(int xIn, int yIn, int widthIn, int heightIn) {
    const bool resized = width != widthIn || height != heightIn;
    x = xIn;
    y = yIn;
    width = std::max(0, widthIn);
    height = std::max(0, heightIn);
    if (resized) OnViewChanged();
}

void QLM_Viewport::ResetView() {
    if (ViewLocked) return;
    std::copy(DefaultRotationMatrix, DefaultRotationMatrix + 16, RotationMatrix);
    std::fill(LookAt, LookAt + 3, 0.0f);
    Zoom = 1.0f;
    OnViewChanged();
    float minimum[3], maximum[3];
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (owner && objects && objects->GetSceneBounds(minimum, maximum)) owner->Frame(this, QLM_FrameMode::Project);
}

float QLM_Viewport::GetHalfHeight() const {
    return std::max(Zoom * (owner ? owner->GetPixelsPerUnit() : 1.0f), SmallestHalfHeight);
}

void QLM_Viewport::UpdateCamera() {
    const QLM_Camera former = r4s.camera;
    QLM_Camera& camera = r4s.camera;
    std::copy(LookAt, LookAt + 3, camera.lookAt);
    std::copy(RotationMatrix, RotationMatrix + 16, camera.rotation);
    camera.halfHeight = GetHalfHeight();
    camera.aspect = width > 0 ? GetAspect() : 1.0f;

    // The depth range holds the whole scene, wherever the view looks.
    float reach = camera.halfHeight, minimum[3], maximum[3];
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (objects && objects->GetSceneBounds(minimum, maximum)) {
        float distance = 0, diagonal = 0;
        for (int i = 0; i < 3; ++i) {
            const float offset = LookAt[i] - (minimum[i] + maximum[i]) * 0.5f, extent = maximum[i] - minimum[i];
            distance += offset * offset;
            diagonal += extent * extent;
        }
        reach = std::max(reach, std::sqrt(distance) + 0.5f * std::sqrt(diagonal));
    }
    camera.depthRange = 1.01f * reach;
    camera.Update();
    if (!std::equal(camera.worldToClip, camera.worldToClip + 16, former.worldToClip)) DropScreenCaches();
}

void QLM_Viewport::DropScreenCaches() {
    for (auto& [id, cache] : r4s.screenCaches) cache.valid = false;
}

void QLM_Viewport::OnViewChanged() {
    if (owner) owner->AbortRender(this);
    r4s.pictureValid = false;
    r4s.needsFullRender = true;
    UpdateCamera();
    if (owner) owner->OnViewportViewChanged(this);
}

void QLM_Viewport::Project(const float* world, float* out) const {
    MatrixTransformPoint(r4s.camera.worldToClip, world, out);
}

void QLM_Viewport::Unproject(float sx, float sy, float* world) const {
    const float place[3] = {sx, sy, 0.0f};
    MatrixTransformPoint(r4s.camera.clipToWorld, place, world);
}

void QLM_Viewport::ViewToWorldVector(float dx, float dy, float* world) const {
    const float* m = r4s.camera.clipToWorld;
    for (int i = 0; i < 3; ++i) world[i] = dx * m[i] + dy * m[4 + i];
}

const QLM_ScreenCache& QLM_Viewport::GetScreenCache(QLM_Mesh* mesh) {
    QLM_ScreenCache& cache = QLM_PrepareScreenCache(*this, *mesh);
    if (!cache.valid) {
        QLM_ThreadCrunch(
            mesh->GetVCount(),
            [&, projection = QLM_ScreenProjection(*this, *mesh)](const ThreadCrunchRange& r) {
                projection.Run(cache, r.start, r.end);
            },
            "QLM_Viewport::GetScreenCache");
        cache.valid = true;
    }
    return cache;
}
