#include "Rendering/QLM_OverdrawBufferWorkhorse.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rasterizer/QLM_RasterizeOptions.h"
#include "Rendering/QLM_SceneAccess.h"

namespace {

constexpr const char* RequestedKey = "CALCULATE_OVERDRAW_REQUESTED";
constexpr const char* DoneKey = "FULLY_PROCESSED";
constexpr const char* ExcessiveKey = "utility/cannotBePaintedDueToExcessiveUVOverlapping";
constexpr uint8_t Covered = 255;

struct BoundPolygons {
    const QLM_Mesh* mesh;
    const std::vector<int32_t>* polygons;
};

/// UV of a polygon's corner, null where it has none.
const float* CornerUV(const QLM_Mesh& mesh, const QLM_Polygon& polygon, int i) {
    const uint32_t vt = static_cast<uint32_t>(polygon.corners[i].textureVertex);
    return vt < static_cast<uint32_t>(mesh.GetVTCount()) ? mesh.TextureVertices[vt] : nullptr;
}

std::vector<BoundPolygons> FindBindings(const QLM_MaterialMapSource& source) {
    std::vector<BoundPolygons> bound;
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (!objects) return bound;
    for (QLM_Object* object : objects->GetObjects(false)) {
        const QLM_Mesh* mesh = object->GetMesh();
        if (!mesh) continue;
        for (const QLM_MaterialMapBinding* binding : mesh->GetMapList())
            if (binding->SourceID == source.GetID()) bound.push_back({mesh, &binding->polygons});
    }
    return bound;
}

/// Draws the fans of all polygons into the rows of one worker; false with a triangle that leaves 0..1.
bool DrawRows(const std::vector<BoundPolygons>& bound, QLM_RasterizeOptions options) {
    bool inside = true;
    const float width = static_cast<float>(options.targetWidth), height = static_cast<float>(options.targetHeight);
    for (const BoundPolygons& part : bound)
        for (int32_t p : *part.polygons) {
            if (p < 0 || p >= part.mesh->GetPCount()) continue;
            const QLM_Polygon& polygon = part.mesh->GetPolygon(p);
            int corners = 0;
            float top = 0, bottom = height;
            for (int i = 0; i < polygon.count; ++i) {
                const float* uv = CornerUV(*part.mesh, polygon, i);
                if (!uv) break;
                ++corners;
                if (polygon.count >= 3 && !(uv[0] >= 0.0f && uv[0] <= 1.0f && uv[1] >= 0.0f && uv[1] <= 1.0f))
                    inside = false;
                top = std::max(top, uv[1] * height);
                bottom = std::min(bottom, uv[1] * height);
            }
            if (corners < 3 || corners < polygon.count) continue;
            if (top + 1.0f < static_cast<float>(options.clipBegin) ||
                bottom - 1.0f > static_cast<float>(options.clipEnd))
                continue;
            for (int i = 2; i < polygon.count; ++i) {
                const int fan[3] = {0, i - 1, i};
                for (int k = 0; k < 3; ++k) {
                    const float* uv = CornerUV(*part.mesh, polygon, fan[k]);
                    options.vertex[k].x = uv[0] * width;
                    options.vertex[k].y = uv[1] * height;
                }
                QLM_RasterizeGreyReplace(options);
            }
        }
    return inside;
}

void RenderOverdraw(QLM_MaterialMapSource& source) {
    const uint32_t width = source.GetWidth(), height = source.GetHeight();
    QLM_OverdrawBuffer& overdraw = source.Overdraw;
    ThreadLockerScope guard(&overdraw.GetLock());
    if (width == 0 || height == 0) return;
    overdraw.SetDimensions(width, height, 1);
    if (source.GetBool(ExcessiveKey)) {
        overdraw.ClearToByte(Covered);
        return;
    }
    overdraw.ClearToByte(0);
    const std::vector<BoundPolygons> bound = FindBindings(source);
    QLM_RasterizeOptions options;
    options.targetWidth = width;
    options.targetHeight = height;
    options.targetPixels = overdraw.GetPixels();
    options.colorBytes[0] = Covered;
    std::atomic<bool> outside{false};
    QLM_ThreadCrunch(
        height,
        [&](const ThreadCrunchRange& r) {
            QLM_RasterizeOptions own = options;
            own.clipBegin = r.start;
            own.clipEnd = r.end;
            if (!DrawRows(bound, own)) outside = true;
        },
        "QLM_OverdrawBufferWorkhorse::RenderOverdraw");
    if (outside) overdraw.ClearToByte(Covered);
}

} // namespace

void QLM_OverdrawBufferWorkhorse::Request(QLM_MaterialMapSource* source) {
    if (!source) return;
    source->SetBool(RequestedKey, true, QLM_CustomPropertyContainer::Temporary);
    source->SetBool(DoneKey, false, QLM_CustomPropertyContainer::Temporary);
}

void QLM_OverdrawBufferWorkhorse::ResolveRequests() {
    QLM_TRACE(2);
    QLM_Managers* managers = QLM_ManagersOrNull();
    QLM_MapManager* maps = managers ? managers->GetMapManager() : nullptr;
    if (!maps) return;
    for (QLM_MaterialMapSource* source : maps->GetMaps()) {
        if (!source->GetBool(RequestedKey)) continue;
        source->SetBool(RequestedKey, false, QLM_CustomPropertyContainer::Temporary);
        RenderOverdraw(*source);
        source->SetBool(DoneKey, true, QLM_CustomPropertyContainer::Temporary);
    }
}
