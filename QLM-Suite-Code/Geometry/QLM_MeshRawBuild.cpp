// What a mesh derives from the arrays that a builder filled.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Messages.h"
#include "Geometry/QLM_CornerPools.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"

namespace {
constexpr int defaultName = 1122;
constexpr float epsilon = 1.1920929e-7f;
constexpr uint32_t temporaryProperties = 4 | 8;

/// The fraction of |x| with x's sign; whole numbers but 0 become 1.
float WrapCoordinate(float x) {
    const float magnitude = std::fabs(x);
    float fraction = magnitude - std::floor(magnitude);
    if (fraction < epsilon && x != 0.0f) fraction = 1.0f;
    return std::copysign(fraction, x);
}

/// Makes every number that isn't finite 0.
void ReplaceBadNumbers(float* values, int64_t count) {
    QLM_ThreadCrunch((count + 2) / 3, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        const int64_t end = std::min<int64_t>(3 * static_cast<int64_t>(range.end), count);
        for (int64_t i = 3 * static_cast<int64_t>(range.start); i < end; ++i)
            if (!std::isfinite(values[i])) values[i] = 0.0f;
    }, "Repair_Numbers_ThreadFunc");
}
} // namespace

void QLM_Mesh::AfterRawBuild() {
    QLM_TRACE(1);
    // Clean what was filled in.
    RemovePropertiesWithFlag(temporaryProperties);
    InvalidateOctree();
    if (ShallWrapUVs()) WrapUVs();
    EnsureGroupAndMaterial();
    ReplaceBadNumbers(Vertices.GetData(), 3LL * GetVCount());
    ReplaceBadNumbers(TextureVertices.GetData(), 2LL * GetVTCount());
    RepairCorners();

    // Derive the lookups.
    QLM_MeshRoot::AfterRawBuild();
    BuildVertexPolygons();
    BuildVertexNeighbors();
    CalculateOpenEdges();

    // Normals of everything, kept once without regard to the smoothing angle. The angle only adds to them, so the
    // visible ones needn't be computed a second time.
    InvalidateVisibleLists();
    CalculatePolygonNormals(false);
    CalculateVertexNormals(false);
    SaveVertexNormals();
    RebuildNormalIndices();
    UpdateNormals(true);

    CalculateBounds();
    NotifyAfterRawBuild();
    QLM_CornerPools::Get().ReleaseEmptyChunks();
    TellManagersOfNewShape();
    ResolveGroupVertexMaps();
    BuildOctree();
    UpdateAllMapPolygonLists();
}

bool QLM_Mesh::ShallWrapUVs() {
    const float* uvs = TextureVertices.GetData();
    const bool outside =
        std::any_of(uvs, uvs + 2LL * GetVTCount(), [](float x) { return x < -epsilon || x > 1.0000001f; });
    if (!outside) return false;
    const QLM_Engine* engine = QLM_GetEngine();
    if ((engine && engine->autoWrapUVs) || GetBool("autoWrapUVs")) return true;
    QLM_Object* owner = GetObject();
    if (!owner) return false;
    if (!owner->GetBool("import/wasPromptedForWrappingUVs")) {
        const bool wrap = QLM_OS::Get().AskYesNo("The UV coordinates in this object are out of the {0..1} range.\n\n"
                                                 "Would you like to have the values wrapped back into range?\n\n");
        owner->SetBool("import/wasPromptedForWrappingUVs", true, Saved);
        owner->SetBool("import/doWrapUVs", wrap, Saved);
    }
    return owner->GetBool("import/doWrapUVs");
}

void QLM_Mesh::WrapUVs() {
    float* uvs = TextureVertices.GetData();
    for (int64_t i = 0; i < 2LL * GetVTCount(); ++i) uvs[i] = WrapCoordinate(uvs[i]);
}

void QLM_Mesh::EnsureGroupAndMaterial() {
    if (GetGroupCount() == 0) {
        auto* group = new QLM_Group2;
        group->SetNameText(QLM_GetString(defaultName));
        AddGroup(group);
        for (QLM_Polygon& polygon : Polygons) polygon.group = 0;
    }
    if (GetMaterialCount() == 0) {
        auto* material = new QLM_Material;
        material->SetNameText(QLM_GetString(defaultName));
        AddMaterial(material);
        for (QLM_Polygon& polygon : Polygons) polygon.material = 0;
    }
}

void QLM_Mesh::RepairCorners() {
    const int vertexCount = GetVCount(), textureCount = GetVTCount();
    const auto isBadVertex = [&](const QLM_PolygonCorner& corner) {
        return corner.vertex < 0 || corner.vertex >= vertexCount;
    };

    // Mend texture vertices in place, and note which polygons lose corners.
    std::vector<int32_t> losing[QLM_MaximumThreads];
    QLM_ThreadCrunch(GetPCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int p = range.start; p < range.end; ++p) {
            bool loses = false;
            for (int i = 0; i < Polygons[p].count; ++i) {
                QLM_PolygonCorner& corner = Polygons[p].corners[i];
                loses = loses || isBadVertex(corner);
                if (corner.textureVertex < 0 || corner.textureVertex >= textureCount)
                    corner.textureVertex = textureCount > 0 ? 0 : -1;
            }
            if (loses) losing[range.threadIndex].push_back(p);
        }
    }, "Repair_Corners_ThreadFunc");

    // Move the good corners into a block of their number.
    for (const std::vector<int32_t>& part : losing)
        for (const int32_t p : part) {
            QLM_PolygonCorner* corners = Polygons[p].corners;
            QLM_PolygonCorner* end = std::remove_if(corners, corners + Polygons[p].count, isBadVertex);
            const int kept = static_cast<int>(end - corners);
            QLM_PolygonCorner* fresh = QLM_CornerPools::Get().Allocate(kept);
            std::copy(corners, end, fresh);
            ReplaceCorners(p, fresh, kept);
        }
}

void QLM_Mesh::TellManagersOfNewShape() {
    QLM_Engine* engine = QLM_GetEngine();
    if (!engine || !engine->managers) return;
    engine->managers->ClearShapeDependents();
    if (QLM_VertexWeightManager* manager = engine->managers->GetVertexWeightManager()) manager->ForgetMesh(this);
    if (QLM_UtilityManager* manager = engine->managers->GetUtilityManager())
        manager->EnforceMorphAndSelectionSizes(this);
}
