#include "Rendering/QLM_Renderer4.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_Material.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_MathTables.h"
#include "Math/QLM_Matrix.h"
#include "Rasterizer/QLM_RasterizeOptions.h"
#include "Rendering/QLM_Background.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_ScreenProjection.h"
#include "Rendering/QLM_Viewport.h"

#include <cmath>

namespace {

constexpr int BandRows = 16;
constexpr int ChunkPolygons = 2048;
constexpr float AreaEpsilon = 1.1920929e-7f;
constexpr float AmbientLight = 0.2f;

/// How the polygons of one material are filled.
struct Fill {
    QLM_MaterialMapSource* source = nullptr;
    const uint8_t* pixels = nullptr;
    const uint8_t* mask = nullptr;
    uint32_t width = 0, height = 0;
    uint8_t color[3] = {255, 255, 255};
    QLM_RasterizeFunction rasterize = nullptr;
};

/// One mesh as the workers see it.
struct MeshPass {
    const QLM_Mesh* mesh = nullptr;
    const QLM_Polygon* polygons = nullptr;
    const int32_t* visible = nullptr; ///< polygon indices, leaf after leaf
    const float* points = nullptr;    ///< screen cache
    const float* lights = nullptr;    ///< of the vertices; with flat shading their share of the selection
    const float* normals = nullptr;   ///< of the polygons
    const float* uvs = nullptr;
    uint32_t vertexCount = 0, uvCount = 0;
    bool backfaceCulled = true, smooth = true;
    std::vector<Fill> fills; ///< by material index; the last serves polygons without a material

    const Fill& FillOf(const QLM_Polygon& polygon) const {
        return polygon.material < fills.size() - 1 ? fills[polygon.material] : fills.back();
    }
    uint32_t VertexOf(const QLM_PolygonCorner& corner) const {
        return static_cast<uint32_t>(mesh->IsWelded() && corner.vertex >= 0 ? mesh->GetWeldTarget(corner.vertex)
                                                                            : corner.vertex);
    }
};

/// A run of visible polygons of one mesh, and which of them fall on which band, in their order.
struct Chunk {
    int mesh = 0;
    int first = 0, end = 0; ///< in the mesh's list of visible polygons
    uint32_t listBase = 0;  ///< list number of the mesh's first visible polygon
    std::vector<uint32_t> bandStart;
    std::vector<uint32_t> entries;
};

/// Rows of pixel centres that a shape reaches, within the tolerance of the rasterizer's edges; none when first > last.
struct PixelSpan {
    PixelSpan(float low, float high, int size) {
        const float slack = 0.001f * (high - low) + 0.01f;
        // Clamped to at least -1, where truncation of x + 1 is the floor.
        const float begin = std::clamp(low - slack - 0.5f, -1.0f, static_cast<float>(size)),
                    end = std::clamp(high + slack - 0.5f, -1.0f, static_cast<float>(size - 1));
        first = std::max(size - static_cast<int>(static_cast<float>(size) - begin), 0);
        last = static_cast<int>(end + 1.0f) - 1;
    }
    int first, last;
};

} // namespace

struct QLM_Renderer4::Pass {
    QLM_RenderState* state = nullptr;
    int width = 0, height = 0, bandCount = 0;
    float halfWidth = 0, halfHeight = 0;
    bool partial = false, useLighting = true;
    float view[3] = {};
    uint8_t* pixels = nullptr;
    uint8_t* unlit = nullptr;
    uint8_t* ids = nullptr;
    uint8_t* background = nullptr;
    float* depth = nullptr;
    uint32_t* owners = nullptr;
    QLM_BackgroundRows backgroundRows;
    std::vector<MeshPass> meshes;
    std::vector<Chunk> chunks;

    bool IsAborted() const { return state->AbortRender.load(std::memory_order_relaxed); }
    void SortIntoBands(Chunk& chunk) const;
    void DrawBand(int band) const;

  private:
    bool FindRows(const MeshPass& mesh, const QLM_Polygon& polygon, PixelSpan& rows) const;
    void ClearRows(int begin, int end) const;
    void DrawPolygon(const MeshPass& mesh, int32_t p, QLM_RasterizeOptions& options) const;
    void SetCorner(const MeshPass& mesh, const QLM_PolygonCorner& corner, const float* polygonNormal,
                   QLM_RasterizeVertex& out) const;
    void ToPixels(const float* point, float& x, float& y) const {
        x = (point[0] + 1.0f) * halfWidth;
        y = (point[1] + 1.0f) * halfHeight;
    }
};

namespace {

// --- Gathering, on the main thread ----------------------------------------------------------------------------------

Fill MakeFill(const QLM_Mesh& mesh, QLM_Material* material, const QLM_Viewport& viewport) {
    Fill fill;
    fill.rasterize = QLM_GetScreenRasterizer(QLM_ScreenRasterizer::NoMap);
    QLM_MaterialChannel* channel =
        material ? static_cast<QLM_MaterialChannel*>(material->FindChannel(viewport.MaterialChannelName)) : nullptr;
    if (!channel) return fill;
    for (int i = 0; i < 3; ++i) fill.color[i] = QLM_FloatToByte(channel->Color[i]);
    if (viewport.DisplayMode != 3 || !viewport.Textured) return fill;

    QLM_MaterialMapSource* source = QLM_GetChannelMap(mesh.GetMapList(), channel);
    if (!source || source->GetDepth() != 3) return fill;
    fill.pixels = source->GetResolvedPixels();
    if (!fill.pixels) return fill;
    fill.source = source;
    fill.width = source->GetWidth();
    fill.height = source->GetHeight();
    if (source->HasMaskSameSize()) fill.mask = source->GetResolvedMask();
    fill.rasterize = QLM_GetScreenRasterizer(viewport.Filter ? QLM_ScreenRasterizer::TextureLinear
                                                             : QLM_ScreenRasterizer::TextureClosest);
    return fill;
}

std::vector<Fill> MakeFills(const QLM_Mesh& mesh, const QLM_Viewport& viewport) {
    std::vector<Fill> fills;
    for (int i = 0; i < mesh.GetMaterialCount(); ++i) fills.push_back(MakeFill(mesh, mesh.GetMaterial(i), viewport));
    const QLM_Engine* engine = QLM_GetEngine();
    fills.push_back(MakeFill(mesh, engine ? engine->emptyMaterial : nullptr, viewport));
    return fills;
}

/// |N . V| with the selection's weight, then the ambient part.
float LightOf(const float* normal, const float* view, float weight) {
    const float l = std::min(std::fabs(Dot(normal, view)) * weight, 1.0f);
    return l == l ? std::min(l + AmbientLight, 1.0f) : 1.0f;
}

/// Projects the vertices where the cache is stale and lights them; a partial render takes the lights as they are.
QLM_ScreenCache& ProjectAndLight(QLM_Viewport& viewport, QLM_Mesh& mesh, bool sceneHasSelection, bool light) {
    QLM_ScreenCache& cache = QLM_PrepareScreenCache(viewport, mesh);
    const size_t count = static_cast<size_t>(mesh.GetVCount());
    if (mesh.VertexNormals.GetCount() != count) mesh.CalculateNormals(false);
    light = light || cache.lights.size() != count;
    if (cache.valid && !light) return cache;
    cache.lights.resize(count);
    const bool project = !cache.valid;
    const QLM_ScreenProjection projection(viewport, mesh);
    QLM_ThreadCrunch(
        mesh.GetVCount(),
        [&](const ThreadCrunchRange& r) {
            if (project) projection.Run(cache, r.start, r.end);
            if (!light) return;
            for (int v = r.start; v < r.end; ++v) {
                const float weight = sceneHasSelection ? mesh.GetVertexWeight(v) * 0.5f + 0.5f : 1.0f;
                cache.lights[v] = viewport.Smooth
                                      ? LightOf(mesh.VertexNormals[v], viewport.r4s.camera.viewDirection, weight)
                                      : weight;
            }
        },
        "QLM_Renderer4::ProjectAndLight");
    cache.valid = true;
    return cache;
}

/// Lists the polygons of the leaves that are on the screen (of the touched ones in a partial render), cut in chunks.
void CollectChunks(QLM_Mesh& mesh, int meshIndex, const QLM_ScreenProjection& projection, bool partial,
                   uint32_t listBase, std::vector<Chunk>& chunks) {
    const float screen[4] = {-1, -1, 1, 1};
    int begin = 0, end = 0;
    const auto flush = [&] {
        for (int first = begin; first < end; first += ChunkPolygons) {
            Chunk& chunk = chunks.emplace_back();
            chunk.mesh = meshIndex;
            chunk.first = first;
            chunk.end = std::min(first + ChunkPolygons, end);
            chunk.listBase = listBase;
        }
    };
    for (const QLM_OctreeMeshContainer::Node* leaf : mesh.GetLeaves()) {
        if (partial && !(leaf->Flags & eNode_Touched)) continue;
        if (!projection.MeetsRectangle(leaf->BoundsMin, leaf->BoundsMax, screen)) continue;
        if (leaf->FirstPolygon != end) {
            flush();
            begin = leaf->FirstPolygon;
        }
        end = leaf->EndPolygon;
    }
    flush();
}

} // namespace

QLM_Renderer4::~QLM_Renderer4() { delete pass; }

void QLM_Renderer4::Prepare() {
    QLM_TRACE(2);
    QLM_RenderState& state = viewport.r4s;
    delete pass;
    pass = new Pass;
    pass->state = &state;
    pass->width = viewport.width;
    pass->height = viewport.height;
    pass->halfWidth = 0.5f * static_cast<float>(viewport.width);
    pass->halfHeight = 0.5f * static_cast<float>(viewport.height);
    pass->bandCount = (viewport.height + BandRows - 1) / BandRows;
    pass->useLighting = viewport.UseLighting;
    state.AbortRender = false;
    SizeBuffers();

    pass->partial = state.PartialUpdate = state.needsPartialRender && !state.needsFullRender;
    if (!pass->partial) viewport.UpdateCamera();
    std::copy(state.camera.viewDirection, state.camera.viewDirection + 3, pass->view);
    pass->backgroundRows = QLM_BackgroundRows(viewport);
    GatherMeshes();
}

void QLM_Renderer4::SizeBuffers() {
    QLM_RenderState& state = viewport.r4s;
    const uint32_t width = static_cast<uint32_t>(viewport.width), height = static_cast<uint32_t>(viewport.height);
    const size_t count = static_cast<size_t>(width) * height;
    if (state.Pixels.GetWidth() != width || state.Pixels.GetHeight() != height || state.DepthOwner.size() != count) {
        state.DepthBuffer.SetSize(width, height, QLM_DepthBuffer::Float);
        state.Pixels.SetDimensions(width, height, 4);
        state.UnlitRenderedPixels.SetDimensions(width, height, 3);
        state.PolygonIDMask.SetDimensions(width, height, 1);
        state.Background.SetDimensions(width, height, 3);
        state.DepthOwner.assign(count, 0);
        state.needsFullRender = true;
    }
    pass->pixels = state.Pixels.GetPixels();
    pass->unlit = state.UnlitRenderedPixels.GetPixels();
    pass->ids = state.PolygonIDMask.GetPixels();
    pass->background = state.Background.GetPixels();
    pass->depth = state.DepthBuffer.GetDataFloat();
    pass->owners = state.DepthOwner.data();
}

void QLM_Renderer4::GatherMeshes() {
    QLM_ObjectManager* manager = QLM_ObjectManagerOrNull();
    if (!manager || pass->width <= 0 || pass->height <= 0) return;
    const auto objects = manager->GetObjects(true);
    const bool hasSelection = std::any_of(objects.begin(), objects.end(), [](QLM_Object* object) {
        return object->GetMesh() && object->GetMesh()->HasSelection();
    });
    uint32_t listBase = 0;
    for (QLM_Object* object : objects) {
        QLM_Mesh* mesh = object->GetMesh();
        if (!mesh || mesh->GetPCount() == 0) continue;
        const int meshIndex = static_cast<int>(pass->meshes.size());
        const QLM_ScreenCache& cache = ProjectAndLight(viewport, *mesh, hasSelection, !pass->partial);
        // The leaves first: the visible lists take their order from the tree.
        CollectChunks(*mesh, meshIndex, QLM_ScreenProjection(viewport, *mesh), pass->partial, listBase, pass->chunks);

        MeshPass& part = pass->meshes.emplace_back();
        part.mesh = mesh;
        part.polygons = mesh->GetPolygons();
        part.visible = mesh->GetVisiblePolygons().GetData();
        part.points = cache.points.data();
        part.lights = cache.lights.data();
        part.smooth = viewport.Smooth;
        part.normals = mesh->PolygonNormals.GetCount() == static_cast<uint32_t>(mesh->GetPCount())
                           ? mesh->PolygonNormals.GetData()
                           : nullptr;
        part.uvs = mesh->TextureVertices.GetData();
        part.vertexCount = static_cast<uint32_t>(mesh->GetVCount());
        part.uvCount = static_cast<uint32_t>(mesh->GetVTCount());
        part.backfaceCulled = !object->RenderDoubleSided;
        part.fills = MakeFills(*mesh, viewport);
        listBase += static_cast<uint32_t>(mesh->GetPCount());
    }
    // Meshes that are gone, or hidden, need no cache.
    std::erase_if(viewport.r4s.screenCaches, [&](const auto& entry) {
        return std::none_of(pass->meshes.begin(), pass->meshes.end(),
                            [&](const MeshPass& part) { return part.mesh->GetID() == entry.first; });
    });
}

void QLM_Renderer4::KeepMapsResident() {
    if (!pass) return;
    for (const MeshPass& mesh : pass->meshes)
        for (const Fill& fill : mesh.fills)
            if (fill.source) {
                fill.source->GetPixels();
                if (fill.mask) fill.source->GetMaskPixels();
            }
}

void QLM_Renderer4::Finish() {
    QLM_RenderState& state = viewport.r4s;
    if (!pass || state.AbortRender) return;
    state.pictureValid = true;
    ++state.pictureNumber;
    state.needsFullRender = state.needsPartialRender = false;
}

// --- Drawing, on any thread -----------------------------------------------------------------------------------------

void QLM_Renderer4::Render() {
    QLM_TRACE(2);
    if (!pass || pass->width <= 0 || pass->height <= 0) return;
    // Sort chunks of polygons into bands of rows, then draw band after band: a pixel has one writer, and it meets the
    // polygons in list order whatever the number of workers.
    std::atomic<size_t> nextChunk{0}, nextBand{0};
    QLM_ThreadCrunchEachThread(
        [&](const ThreadCrunchRange&) {
            for (size_t i; !pass->IsAborted() && (i = nextChunk.fetch_add(1)) < pass->chunks.size();)
                pass->SortIntoBands(pass->chunks[i]);
        },
        "QLM_Renderer4::SortIntoBands");
    QLM_ThreadCrunchEachThread(
        [&](const ThreadCrunchRange&) {
            for (size_t i; !pass->IsAborted() && (i = nextBand.fetch_add(1)) < static_cast<size_t>(pass->bandCount);)
                pass->DrawBand(static_cast<int>(i));
        },
        "QLM_Renderer4::DrawBand");
}

/// Rows of the picture that a polygon reaches; false when no pixel can come of it.
bool QLM_Renderer4::Pass::FindRows(const MeshPass& mesh, const QLM_Polygon& polygon, PixelSpan& rows) const {
    if (polygon.count < 3) return false;
    float x0 = 0, y0 = 0, px = 0, py = 0, minX = 0, maxX = 0, minY = 0, maxY = 0;
    bool facing = !mesh.backfaceCulled;
    for (int i = 0; i < polygon.count; ++i) {
        const uint32_t v = mesh.VertexOf(polygon.corners[i]);
        if (v >= mesh.vertexCount) return false;
        float x, y;
        ToPixels(mesh.points + static_cast<size_t>(v) * 3, x, y);
        if (!(std::fabs(x) < 1e8f && std::fabs(y) < 1e8f)) return false;
        if (i == 0) {
            x0 = minX = maxX = x;
            y0 = minY = maxY = y;
        } else {
            minX = std::min(minX, x);
            maxX = std::max(maxX, x);
            minY = std::min(minY, y);
            maxY = std::max(maxY, y);
            if (i > 1) facing = facing || 0.5f * ((px - x0) * (y - y0) - (x - x0) * (py - y0)) >= AreaEpsilon;
        }
        px = x;
        py = y;
    }
    if (!facing) return false;
    const PixelSpan columns(minX, maxX, width);
    rows = PixelSpan(minY, maxY, height);
    return columns.first <= columns.last && rows.first <= rows.last;
}

void QLM_Renderer4::Pass::SortIntoBands(Chunk& chunk) const {
    struct Reach {
        uint32_t entry;
        int32_t firstBand, lastBand;
    };
    static thread_local std::vector<Reach> reaches;
    reaches.clear();
    chunk.bandStart.assign(static_cast<size_t>(bandCount) + 1, 0);
    const MeshPass& mesh = meshes[chunk.mesh];
    for (int i = chunk.first; i < chunk.end; ++i) {
        PixelSpan rows(0, 0, 1);
        if (!FindRows(mesh, mesh.polygons[mesh.visible[i]], rows)) continue;
        const Reach reach{static_cast<uint32_t>(i), rows.first / BandRows, rows.last / BandRows};
        for (int band = reach.firstBand; band <= reach.lastBand; ++band) ++chunk.bandStart[band + 1];
        reaches.push_back(reach);
    }
    for (int band = 0; band < bandCount; ++band) chunk.bandStart[band + 1] += chunk.bandStart[band];
    chunk.entries.resize(chunk.bandStart[bandCount]);
    for (const Reach& reach : reaches)
        for (int band = reach.firstBand; band <= reach.lastBand; ++band)
            chunk.entries[chunk.bandStart[band]++] = reach.entry;
    // Filling moved each start to the next one's place: move them back.
    for (int band = bandCount; band > 0; --band) chunk.bandStart[band] = chunk.bandStart[band - 1];
    chunk.bandStart[0] = 0;
}

void QLM_Renderer4::Pass::ClearRows(int begin, int end) const {
    const size_t first = static_cast<size_t>(begin) * width, count = static_cast<size_t>(end - begin) * width;
    std::fill_n(depth + first, count, 0.0f);
    std::fill_n(owners + first, count, 0u);
    std::fill_n(ids + first, count, uint8_t{0});
    for (int y = begin; y < end; ++y) {
        const size_t row = static_cast<size_t>(y) * width;
        backgroundRows.CopyRow(y, background + row * 3, pixels + row * 4);
        std::copy_n(background + row * 3, static_cast<size_t>(width) * 3, unlit + row * 3);
    }
}

void QLM_Renderer4::Pass::DrawBand(int band) const {
    QLM_RasterizeOptions options;
    options.clipBegin = band * BandRows;
    options.clipEnd = std::min(options.clipBegin + BandRows, height);
    options.targetWidth = static_cast<uint32_t>(width);
    options.targetHeight = static_cast<uint32_t>(height);
    options.targetPixels = pixels;
    options.unlitPixels = unlit;
    options.idMask = ids;
    options.depthBuffer = depth;
    options.depthOwner = owners;
    if (!partial) ClearRows(options.clipBegin, options.clipEnd);
    for (const Chunk& chunk : chunks) {
        if (IsAborted()) return;
        const MeshPass& mesh = meshes[chunk.mesh];
        for (uint32_t i = chunk.bandStart[band]; i < chunk.bandStart[band + 1]; ++i) {
            options.listIndex = chunk.listBase + chunk.entries[i];
            DrawPolygon(mesh, mesh.visible[chunk.entries[i]], options);
        }
    }
}

void QLM_Renderer4::Pass::SetCorner(const MeshPass& mesh, const QLM_PolygonCorner& corner, const float* polygonNormal,
                                    QLM_RasterizeVertex& out) const {
    const uint32_t v = mesh.VertexOf(corner);
    const float* point = mesh.points + static_cast<size_t>(v) * 3;
    ToPixels(point, out.x, out.y);
    out.depth = (1.0f - point[2]) * 0.5f;
    if (!useLighting || (!mesh.smooth && !polygonNormal)) out.light = 1.0f;
    else out.light = mesh.smooth ? mesh.lights[v] : LightOf(polygonNormal, view, mesh.lights[v]);
    const uint32_t vt = static_cast<uint32_t>(corner.textureVertex);
    const bool hasUV = vt < mesh.uvCount;
    out.u = hasUV ? mesh.uvs[static_cast<size_t>(vt) * 2] : 0.0f;
    out.v = hasUV ? mesh.uvs[static_cast<size_t>(vt) * 2 + 1] : 0.0f;
}

void QLM_Renderer4::Pass::DrawPolygon(const MeshPass& mesh, int32_t p, QLM_RasterizeOptions& options) const {
    const QLM_Polygon& polygon = mesh.polygons[p];
    const Fill& fill = mesh.FillOf(polygon);
    options.sourcePixels = fill.pixels;
    options.sourceMask = fill.mask;
    options.sourceWidth = fill.width;
    options.sourceHeight = fill.height;
    std::copy(fill.color, fill.color + 3, options.colorBytes);
    options.idValue = static_cast<uint8_t>(1 + p % 255);

    const float* normal = mesh.normals ? mesh.normals + static_cast<size_t>(p) * 3 : nullptr;
    QLM_RasterizeVertex* v = options.vertex;
    SetCorner(mesh, polygon.corners[0], normal, v[0]);
    SetCorner(mesh, polygon.corners[1], normal, v[1]);
    for (int i = 2; i < polygon.count; ++i) {
        SetCorner(mesh, polygon.corners[i], normal, v[2]);
        const float area = 0.5f * ((v[1].x - v[0].x) * (v[2].y - v[0].y) - (v[2].x - v[0].x) * (v[1].y - v[0].y));
        if (!mesh.backfaceCulled || area >= AreaEpsilon) fill.rasterize(options);
        v[1] = v[2];
    }
}
