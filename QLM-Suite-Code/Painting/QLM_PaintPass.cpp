#include "Painting/QLM_PaintPass.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_MathTables.h"
#include "Painting/QLM_TouchupBrush.h"
#include "Rasterizer/QLM_DepthBuffer.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_RenderManagers.h"
#include "Rendering/QLM_Viewport.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace {

constexpr const char* ExcessiveOverlapKey = "utility/cannotBePaintedDueToExcessiveUVOverlapping";
constexpr float WidestSmoothingAngle = 179.0f;
/// Rows and columns that a triangle can reach beyond its corners: the gutter's ring, and the rounding of pixel centres.
constexpr float Reach = 3.0f;
constexpr int BandCount = 64, LowestBand = 8;

/// Grows [low, high] by a value; not a number changes nothing.
void Extend(float value, float& low, float& high) {
    if (value < low) low = value;
    if (value > high) high = value;
}

/// Rows first..end (end not included) that [low, high] reaches in 0..size; empty for an empty range.
void ReachedRows(float low, float high, uint32_t size, int32_t& first, int32_t& end) {
    first = end = 0;
    if (!(low <= high)) return;
    const float limit = static_cast<float>(size);
    first = static_cast<int32_t>(std::clamp(std::floor(low) - Reach, 0.0f, limit));
    end = static_cast<int32_t>(std::clamp(std::ceil(high) + Reach, 0.0f, limit));
}

/// Leaves with texture coordinates beyond 0..1 show any part of a map, as pictures repeat there.
void TouchRepeatingLeaves() {
    for (QLM_Object* object : QLM_GetManagers().GetObjectManager()->GetObjects(true)) {
        if (!object->GetMesh()) continue;
        for (QLM_OctreeMeshContainer::Node* leaf : object->GetMesh()->GetLeaves())
            if (leaf->MinUV[0] < 0 || leaf->MinUV[1] < 0 || leaf->MaxUV[0] > 1 || leaf->MaxUV[1] > 1)
                QLM_OctreeMeshContainer::TouchNode(leaf);
    }
}

} // namespace

QLM_PaintPass::QLM_PaintPass(QLM_Object& objectIn, QLM_Viewport& viewportIn, const QLM_PaintBrush_Base& toolIn,
                             const QLM_PaintSettings& settingsIn, const float* strokeBoundsIn, QLM_ImageMap& overlayIn,
                             const TOverlay_Workhorse& workhorseIn, QLM_PaintBuffers& buffersIn)
    : object(objectIn), mesh(*objectIn.GetMesh()), viewport(viewportIn), tool(toolIn), settings(settingsIn),
      overlay(overlayIn), workhorse(workhorseIn), buffers(buffersIn),
      rasterize(QLM_GetPaintRasterizer(settingsIn.mode)), viewDirection(viewportIn.r4s.camera.viewDirection) {
    std::copy_n(strokeBoundsIn, 4, strokeBounds);
}

int QLM_PaintPass::Run() {
    QLM_TRACE(2);
    if (!rasterize) return 0;
    CollectCandidates();
    if (candidates.empty()) return 0;
    FillVertexWeights();
    const QLM_MapWriteScope write(QLM_GetManagers().GetMapManager()->GetBufferWorkhorse());
    for (const QLM_MaterialMapBinding* binding : mesh.GetMapList())
        if (binding->inUse && binding->live) PaintBinding(*binding);
    if (!refusedChannel.empty())
        QLM_OS::Get().PrintMessageNoRepeat("Cannot paint on the \"%s\" channel since the touch-up \"Type\" of this "
                                           "brush depends on the contents of the current viewport.",
                                           refusedChannel);
    return writtenPolygons;
}

// Polygons under the stroke.

bool QLM_PaintPass::IsInAffectedRange(int p) const {
    const QLM_Polygon& polygon = mesh.GetPolygon(p);
    float box[4] = {2e30f, 2e30f, -2e30f, -2e30f};
    for (int i = 0; i < polygon.count; ++i) {
        const float* point = screen->points.data() + static_cast<size_t>(polygon.corners[i].vertex) * 3;
        Extend(point[0], box[0], box[2]);
        Extend(point[1], box[1], box[3]);
    }
    return box[0] <= strokeBounds[2] && box[2] >= strokeBounds[0] && box[1] <= strokeBounds[3] &&
           box[3] >= strokeBounds[1];
}

void QLM_PaintPass::CollectCandidates() {
    screen = &viewport.GetScreenCache(&mesh);
    std::vector<int> leafIndices;
    QLM_GetManagers().GetViewportHoverManager()->CollectHoverLeaves(strokeBounds, &object, &viewport, leafIndices);
    const auto& leaves = mesh.GetLeaves();
    const auto& visible = mesh.GetVisiblePolygons();
    isCandidate.assign(static_cast<size_t>(mesh.GetPCount()), 0);
    for (const int leaf : leafIndices)
        for (int i = leaves[static_cast<size_t>(leaf)]->FirstPolygon; i < leaves[static_cast<size_t>(leaf)]->EndPolygon;
             ++i) {
            const int p = visible[i];
            if (mesh.GetPolygonVertexCount(p) < 3 || mesh.HasPolygonFlag(p, ePFlag_UVOverlapTest)) continue;
            if (!tool.IsPolygonPaintable(&object, p) || !IsInAffectedRange(p)) continue;
            isCandidate[static_cast<size_t>(p)] = 1;
            candidates.push_back(p);
        }
}

void QLM_PaintPass::FillVertexWeights() {
    vertexWeights.assign(static_cast<size_t>(mesh.GetVCount()), -1.0f);
    std::vector<int32_t> vertices;
    for (const int32_t p : candidates)
        for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i) {
            const int v = mesh.GetPolygonVertex(p, i);
            if (vertexWeights[static_cast<size_t>(v)] >= 0.0f) continue;
            vertexWeights[static_cast<size_t>(v)] = 0.0f;
            vertices.push_back(v);
        }
    QLM_VertexWeightManager* weights = QLM_GetManagers().GetVertexWeightManager();
    weights->UseForStroke(settings.fadeByAngle);
    const bool useSelection = weights->UsesSelection();

    QLM_CullingManager* culling = QLM_GetManagers().GetCullingManager();
    QLM_ThreadCrunch(
        static_cast<int64_t>(vertices.size()),
        [&](const ThreadCrunchRange& range) {
            for (int i = range.start; i < range.end; ++i) {
                const int v = vertices[static_cast<size_t>(i)];
                if (culling->IsVertexHidden(&object, v)) continue;
                float weight = useSelection ? mesh.GetVertexWeight(v) : 1.0f;
                if (settings.fadeByAngle)
                    weight *= settings.fade.Fade(viewDirection, mesh.VertexNormals[v], settings.excludeBackFaces);
                vertexWeights[static_cast<size_t>(v)] = weight;
            }
        },
        "FillVertexWeights");
}

// One map.

void QLM_PaintPass::PaintBinding(const QLM_MaterialMapBinding& binding) {
    QLM_MaterialMapSource* source = binding.GetSource();
    if (!source || source->GetBool(ExcessiveOverlapKey)) return;
    // The list first: a map that is merely bound gets neither a layer's member nor a snapshot.
    BuildList(binding);
    if (entries.empty() || !PrepareMap(*source)) return;
    MeasureEntries();
    BuildBands();
    PaintBands();
    MergeResults(*source);
}

bool QLM_PaintPass::PrepareMap(QLM_MaterialMapSource& source) {
    target = source.GetActiveLayerData(true);
    uint8_t* pixels = target && target->GetDepth() == 3 ? target->GetPixels() : nullptr;
    if (!pixels) return false;
    QLM_ImageMapBufferWorkhorse* snapshots = QLM_GetManagers().GetMapManager()->GetBufferWorkhorse();
    QLM_ImageMap* before = snapshots->GetSnapshotPixels(target, false);
    if (!before) return false;

    QLM_RasterizeOptions& options = passOptions;
    options = {};
    options.targetWidth = target->GetWidth();
    options.targetHeight = target->GetHeight();
    options.targetPixels = pixels;
    options.readPixels = before->GetPixels();
    if (target->HasMaskSameSize()) {
        if (QLM_ImageMap* maskBefore = snapshots->GetSnapshotPixels(&target->Mask, false)) {
            options.targetMask = target->GetMaskPixels();
            options.readMask = maskBefore->GetPixels();
        }
    }
    options.lockAlpha = settings.lockAlpha;
    options.strength = settings.color[3];
    for (int c = 0; c < 4; ++c) options.colorBytes[c] = QLM_FloatToByte(settings.color[c]);
    options.overlayPixels = overlay.GetPixels();
    options.overlayWidth = overlay.GetWidth();
    options.overlayHeight = overlay.GetHeight();
    // Without a plane nobody knows what is gutter.
    const bool hasOverdraw =
        source.Overdraw.GetWidth() == options.targetWidth && source.Overdraw.GetHeight() == options.targetHeight;
    options.overdrawPixels = hasOverdraw ? source.Overdraw.GetPixels() : nullptr;
    affectedUV[0] = affectedUV[1] = 1.0f;
    affectedUV[2] = affectedUV[3] = 0.0f;
    return true;
}

void QLM_PaintPass::BuildList(const QLM_MaterialMapBinding& binding) {
    entries.clear();
    // Whether a material's channels take this paint: -1 not asked yet.
    std::vector<int8_t> takesPaint(static_cast<size_t>(mesh.GetMaterialCount()) + 1, -1);
    uint32_t triangles = 0;
    for (const int32_t p : binding.polygons) {
        if (p < 0 || p >= mesh.GetPCount() || !isCandidate[static_cast<size_t>(p)]) continue;
        const int material = mesh.GetPolygonMaterial(p);
        int8_t& takes = takesPaint[std::min(static_cast<size_t>(material), takesPaint.size() - 1)];
        if (takes < 0) {
            const QLM_Material* used = mesh.GetMaterialOfPolygon(p);
            takes = used && QLM_MapManager::CanPaintPolygonInChannel(
                                mesh.GetMapList(), *used, binding.GetID(), settings.channels, settings.shownChannel,
                                tool.IsNeighbourType() ? &refusedChannel : nullptr);
        }
        if (!takes) continue;
        entries.push_back({p, triangles, 0, 0, false, false});
        triangles += static_cast<uint32_t>(mesh.GetPolygonVertexCount(p) - 2);
    }
}

void QLM_PaintPass::MeasureEntries() {
    QLM_ThreadCrunch(
        static_cast<int64_t>(entries.size()),
        [this](const ThreadCrunchRange& range) {
            for (int i = range.start; i < range.end; ++i) MeasureEntry(entries[static_cast<size_t>(i)]);
        },
        "MeasurePolygons");
    hasSeams = std::any_of(entries.begin(), entries.end(), [](const Entry& entry) { return entry.hasSeam; });
    if (!hasSeams) return;
    const size_t pixels = static_cast<size_t>(passOptions.targetWidth) * passOptions.targetHeight;
    QLM_DepthBuffer* closeness = QLM_GetEngine()->depthBufferA;
    closeness->SetSize(passOptions.targetWidth, passOptions.targetHeight, QLM_DepthBuffer::Byte);
    passOptions.gutterCloseness = closeness->GetDataUC();
    passOptions.gutterOwner = buffers.gutterOwner.Provide(pixels);
}

void QLM_PaintPass::MeasureEntry(Entry& entry) const {
    const QLM_Polygon& polygon = mesh.GetPolygon(entry.polygon);
    const bool mayExpand = passOptions.overdrawPixels && !mesh.HasPolygonFlag(entry.polygon, ePFlag_UVOverlap);
    float low = 2e30f, high = -2e30f;
    for (int i = 0; i < polygon.count; ++i) {
        const QLM_PolygonCorner& corner = polygon.corners[i];
        if (corner.textureVertex < 0 || corner.textureVertex >= mesh.GetVTCount()) return;
        Extend(mesh.TextureVertices[corner.textureVertex][1] * static_cast<float>(passOptions.targetHeight), low, high);
        entry.hasSeam = entry.hasSeam || (mayExpand && mesh.HasVertexFlag(corner.vertex, eVFlag_UVSeam));
    }
    // A seam's gutter reads the overlay beyond the polygon, and claims even where nothing is painted.
    if (!entry.hasSeam && !IsOverlayTouched(entry.polygon)) return;
    ReachedRows(low, high, passOptions.targetHeight, entry.firstRow, entry.endRow);
}

bool QLM_PaintPass::IsOverlayTouched(int p) const {
    const QLM_Polygon& polygon = mesh.GetPolygon(p);
    const float width = static_cast<float>(passOptions.overlayWidth),
                height = static_cast<float>(passOptions.overlayHeight);
    float x0 = 2e30f, y0 = 2e30f, x1 = -2e30f, y1 = -2e30f;
    for (int i = 0; i < polygon.count; ++i) {
        const float* point = screen->points.data() + static_cast<size_t>(polygon.corners[i].vertex) * 3;
        Extend((point[0] + 1.0f) * 0.5f * width, x0, x1);
        Extend((point[1] + 1.0f) * 0.5f * height, y0, y1);
    }
    // The tolerance at edges and the filter read a little beyond.
    const float marginX = 2.0f + 0.001f * (x1 - x0), marginY = 2.0f + 0.001f * (y1 - y0);
    x0 -= marginX, x1 += marginX, y0 -= marginY, y1 += marginY;
    return workhorse.IsTouched(x0, y0, x1, y1) ||
           (settings.mirrorX && workhorse.IsTouched(width - x1, y0, width - x0, y1)) ||
           (settings.mirrorY && workhorse.IsTouched(x0, height - y1, x1, height - y0)) ||
           (settings.mirrorX && settings.mirrorY &&
            workhorse.IsTouched(width - x1, height - y1, width - x0, height - y0));
}

void QLM_PaintPass::BuildBands() {
    int32_t first = INT32_MAX, end = 0;
    for (const Entry& entry : entries) {
        if (entry.firstRow >= entry.endRow) continue;
        first = std::min(first, entry.firstRow);
        end = std::max(end, entry.endRow);
    }
    bands.clear();
    if (first >= end) return;
    firstBandRow = first;
    bandHeight = std::max(LowestBand, (end - first + BandCount - 1) / BandCount);
    bands.resize(static_cast<size_t>((end - first + bandHeight - 1) / bandHeight));
    for (size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].firstRow >= entries[i].endRow) continue;
        const int32_t lastBand = (entries[i].endRow - 1 - first) / bandHeight;
        for (int32_t band = (entries[i].firstRow - first) / bandHeight; band <= lastBand; ++band)
            bands[static_cast<size_t>(band)].push_back(static_cast<int32_t>(i));
    }
}

void QLM_PaintPass::PaintBands() {
    std::atomic<size_t> nextBand{0};
    std::vector<std::vector<int32_t>> written(QLM_MaximumThreads);
    QLM_ThreadCrunchEachThread(
        [&](const ThreadCrunchRange& range) {
            Worker worker;
            worker.options = passOptions;
            for (size_t band = nextBand++; band < bands.size(); band = nextBand++) {
                QLM_RandomDelay();
                PaintBand(band, worker);
            }
            written[static_cast<size_t>(range.threadIndex)] = std::move(worker.written);
        },
        "PaintPolygons_Multithreaded");
    for (const std::vector<int32_t>& list : written)
        for (const int32_t entry : list) entries[static_cast<size_t>(entry)].written = true;
}

void QLM_PaintPass::PaintBand(size_t band, Worker& worker) const {
    QLM_RasterizeOptions& options = worker.options;
    options.clipBegin = firstBandRow + static_cast<int32_t>(band) * bandHeight;
    options.clipEnd = options.clipBegin + bandHeight;
    const auto claim = [this, &worker, band](auto body) {
        for (const int32_t index : bands[band]) {
            const Entry& entry = entries[static_cast<size_t>(index)];
            if (!entry.hasSeam) continue;
            LoadCorners(entry, worker);
            ForEachTriangle(entry, worker, [&](QLM_RasterizeOptions& triangle, bool) {
                if (triangle.expandSeams) body(triangle);
            });
        }
    };
    if (hasSeams) claim([](QLM_RasterizeOptions& triangle) { QLM_ClaimGutter(triangle); });
    for (const int32_t index : bands[band]) {
        const Entry& entry = entries[static_cast<size_t>(index)];
        LoadCorners(entry, worker);
        options.written = false;
        ForEachTriangle(entry, worker, [this](QLM_RasterizeOptions& triangle, bool hasStrength) {
            if (hasStrength) rasterize(triangle);
        });
        if (options.written) worker.written.push_back(index);
    }
    if (hasSeams) claim([this](const QLM_RasterizeOptions& triangle) { ClearClaims(triangle); });
}

float QLM_PaintPass::CornerWeight(int p, int i) const {
    float weight = vertexWeights[static_cast<size_t>(mesh.GetPolygonVertex(p, i))];
    if (settings.fadeByAngle && mesh.GetMaxSmoothingAngle() <= WidestSmoothingAngle)
        weight *= settings.fade.Fade(viewDirection, mesh.GetCornerNormal(p, i), settings.excludeBackFaces);
    if (settings.polygonSelection && mesh.HasSelection()) weight *= *mesh.PolygonWeights[p];
    return weight;
}

void QLM_PaintPass::LoadCorners(const Entry& entry, Worker& worker) const {
    const QLM_Polygon& polygon = mesh.GetPolygon(entry.polygon);
    const float width = static_cast<float>(passOptions.targetWidth),
                height = static_cast<float>(passOptions.targetHeight);
    worker.corners.resize(static_cast<size_t>(polygon.count));
    for (int i = 0; i < polygon.count; ++i) {
        const QLM_PolygonCorner& corner = polygon.corners[i];
        const float* uv = mesh.TextureVertices[corner.textureVertex];
        const float* point = screen->points.data() + static_cast<size_t>(corner.vertex) * 3;
        Corner& out = worker.corners[static_cast<size_t>(i)];
        out.vertex.x = uv[0] * width;
        out.vertex.y = uv[1] * height;
        out.vertex.overlayX = (point[0] + 1.0f) * 0.5f * static_cast<float>(passOptions.overlayWidth);
        out.vertex.overlayY = (point[1] + 1.0f) * 0.5f * static_cast<float>(passOptions.overlayHeight);
        out.vertex.strength = CornerWeight(entry.polygon, i);
        out.isSeam = entry.hasSeam && mesh.HasVertexFlag(corner.vertex, eVFlag_UVSeam);
    }
}

template <class Body> void QLM_PaintPass::ForEachTriangle(const Entry& entry, Worker& worker, Body body) const {
    QLM_RasterizeOptions& options = worker.options;
    const std::vector<Corner>& corners = worker.corners;
    for (size_t i = 2; i < corners.size(); ++i) {
        const Corner* const fan[3] = {&corners[0], &corners[i - 1], &corners[i]};
        for (int k = 0; k < 3; ++k) options.vertex[k] = fan[k]->vertex;
        options.expandSeams = fan[0]->isSeam || fan[1]->isSeam || fan[2]->isSeam;
        options.listIndex = entry.firstTriangle + static_cast<uint32_t>(i - 2);
        // A refused triangle paints nothing, but the gutter pixels that it owns stay its own.
        const bool hasStrength =
            (fan[0]->vertex.strength > 0 || fan[1]->vertex.strength > 0 || fan[2]->vertex.strength > 0) &&
            tool.AcceptTriangle(options);
        body(options, hasStrength);
    }
}

void QLM_PaintPass::ClearClaims(const QLM_RasterizeOptions& options) const {
    float x0 = 2e30f, x1 = -2e30f, y0 = 2e30f, y1 = -2e30f;
    for (const QLM_RasterizeVertex& vertex : options.vertex) {
        Extend(vertex.x, x0, x1);
        Extend(vertex.y, y0, y1);
    }
    int32_t firstColumn, endColumn, firstRow, endRow;
    ReachedRows(x0, x1, options.targetWidth, firstColumn, endColumn);
    ReachedRows(y0, y1, options.targetHeight, firstRow, endRow);
    firstRow = std::max(firstRow, options.clipBegin);
    endRow = std::min(endRow, options.clipEnd);
    if (firstColumn >= endColumn) return;
    for (int32_t y = firstRow; y < endRow; ++y) {
        const size_t offset = static_cast<size_t>(y) * options.targetWidth + static_cast<size_t>(firstColumn);
        std::fill_n(options.gutterOwner + offset, endColumn - firstColumn, 0u);
        std::fill_n(options.gutterCloseness + offset, endColumn - firstColumn, uint8_t{0});
    }
}

// What the workers did, back on the main thread.

void QLM_PaintPass::MergeResults(QLM_MaterialMapSource& source) {
    const float marginU = 2.0f / static_cast<float>(passOptions.targetWidth),
                marginV = 2.0f / static_cast<float>(passOptions.targetHeight);
    int written = 0;
    for (const Entry& entry : entries) {
        if (!entry.written) continue;
        ++written;
        float minUV[2], maxUV[2];
        mesh.GetPolygonUVBounds(entry.polygon, minUV, maxUV);
        const float range[4] = {std::clamp(minUV[0] - marginU, 0.0f, 1.0f), std::clamp(minUV[1] - marginV, 0.0f, 1.0f),
                                std::clamp(maxUV[0] + marginU, 0.0f, 1.0f), std::clamp(maxUV[1] + marginV, 0.0f, 1.0f)};
        source.MarkCellsDirty(range, range + 2);
        for (int axis = 0; axis < 2; ++axis) {
            affectedUV[axis] = std::min(affectedUV[axis], range[axis]);
            affectedUV[2 + axis] = std::max(affectedUV[2 + axis], range[2 + axis]);
        }
    }
    if (written == 0) return;
    writtenPolygons += written;
    for (int axis = 0; axis < 2; ++axis) {
        const float margin = 2.0f * (axis == 0 ? marginU : marginV);
        affectedUV[axis] = std::max(0.0f, affectedUV[axis] - margin);
        affectedUV[2 + axis] = std::min(1.0f, affectedUV[2 + axis] + margin);
    }
    RefreshSnapshot(*target);
    if (passOptions.targetMask) RefreshSnapshot(target->Mask);
    QLM_GetManagers().GetObjectManager()->OnPartialSurfaceChanged(affectedUV);
    TouchRepeatingLeaves();
}

void QLM_PaintPass::RefreshSnapshot(QLM_ImageMap& map) const {
    QLM_ImageMapBuffer* buffer = QLM_GetManagers().GetMapManager()->GetBufferWorkhorse()->GetBuffer(&map, false);
    if (!buffer) return;
    const float width = static_cast<float>(map.GetWidth()), height = static_cast<float>(map.GetHeight());
    const uint32_t x0 = static_cast<uint32_t>(affectedUV[0] * width),
                   y0 = static_cast<uint32_t>(affectedUV[1] * height);
    const uint32_t x1 = std::min(map.GetWidth(), static_cast<uint32_t>(std::ceil(affectedUV[2] * width)));
    const uint32_t y1 = std::min(map.GetHeight(), static_cast<uint32_t>(std::ceil(affectedUV[3] * height)));
    buffer->RefreshRect(x0, y0, x1 - x0, y1 - y0);
}
