#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Events.h"
#include "Maps/QLM_MapManager.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_OverdrawBufferWorkhorse.h"
#include "Rendering/QLM_RenderManagers.h"
#include "Rendering/RenderingScene.h"

#include <gtest/gtest.h>

namespace {

/// Two squares that meet at x = 0 in a right angle: one faces +z, one faces +x.
QLM_Object* AddCorner(RenderingScene& scene) {
    return scene.AddObject({-1, 0, 0, 0, 0, 0, 0, 1, 0, -1, 1, 0, 0, 0, -1, 0, 1, -1},
                           {0, 0, 1, 0, 1, 1, 0, 1, 0, 0, 1, 1}, {{0, 1, 2, 3}, {1, 4, 5, 2}});
}

TEST(Culling, BackfaceMethodAsksThePolygonsAround) {
    RenderingScene scene;
    QLM_Object* object = AddCorner(scene);
    QLM_CullingManager& culling = *QLM_GetManagers().GetCullingManager();
    ASSERT_TRUE(culling.SetMethod(QLM_CullingMethod::Backface));
    const auto visible = [&] {
        std::vector<int> answers;
        for (int v = 0; v < 6; ++v) answers.push_back(static_cast<int>(culling.GetVertexVisibility(object, v)));
        return answers;
    };
    scene.SetFrontView();
    EXPECT_EQ(visible(), (std::vector<int>{1, 1, 1, 1, 0, 0}));
    EXPECT_TRUE(culling.IsVertexHidden(object, 4));
    scene.Manager().SetStandardView(&scene.View(), QLM_StandardView::Right);
    EXPECT_EQ(visible(), (std::vector<int>{0, 1, 1, 0, 1, 1}));
    scene.Manager().SetStandardView(&scene.View(), QLM_StandardView::Back);
    EXPECT_EQ(visible(), (std::vector<int>{0, 0, 0, 0, 0, 0}));

    // The current viewport decides.
    scene.Manager().SetCurrentViewport(1);
    EXPECT_EQ(visible(), (std::vector<int>{1, 1, 1, 1, 0, 0}));
    ASSERT_TRUE(culling.SetMethod(QLM_CullingMethod::None));
    EXPECT_EQ(visible(), std::vector<int>(6, 1));
}

TEST(Culling, WorkersMayAskAtOnce) {
    RenderingScene scene;
    QLM_Object* object = AddCorner(scene);
    QLM_CullingManager& culling = *QLM_GetManagers().GetCullingManager();
    culling.SetMethod(QLM_CullingMethod::Backface);
    std::atomic<int> hidden{0};
    QLM_ThreadCrunch(
        6000,
        [&](const ThreadCrunchRange& r) {
            for (int i = r.start; i < r.end; ++i) hidden += culling.IsVertexHidden(object, i % 6);
        },
        "test");
    EXPECT_EQ(hidden, 2000);
}

TEST(Culling, MethodsAndNames) {
    RenderingScene scene;
    QLM_CullingManager& culling = *QLM_GetManagers().GetCullingManager();
    EXPECT_EQ(culling.GetMethod(), QLM_CullingMethod::SmartCulling);
    for (QLM_CullingMethod method :
         {QLM_CullingMethod::PerVertex, QLM_CullingMethod::PerPixelHard, static_cast<QLM_CullingMethod>(7)})
        EXPECT_FALSE(culling.SetMethod(method));
    EXPECT_EQ(culling.GetMethod(), QLM_CullingMethod::SmartCulling);
    culling.RefreshEffectiveMethod();
    EXPECT_EQ(culling.GetEffectiveMethod(), QLM_CullingMethod::Backface);
    QLM_FreeEvents();
    QLM_InitializeEvents();
    EXPECT_TRUE(culling.SetMethod(QLM_CullingMethod::None));
    EXPECT_EQ(culling.GetEffectiveMethod(), QLM_CullingMethod::None);
    EXPECT_TRUE(QLM_IsEventPending(QLM_Event_RefreshToolPanel));

    EXPECT_STREQ(QLM_CullingMethodName(QLM_CullingMethod::PerPixel), "PerPixel");
    EXPECT_STREQ(QLM_CullingMethodName(static_cast<QLM_CullingMethod>(9)), "ERROR");
    bool known = true;
    EXPECT_EQ(QLM_CullingMethodFromName("Sideways", &known), QLM_CullingMethod::PerVertex);
    EXPECT_FALSE(known);
    EXPECT_EQ(QLM_CullingMethodFromName("Backface", &known), QLM_CullingMethod::Backface);
    EXPECT_TRUE(known);
}

TEST(Culling, FadesTowardsGrazingAngles) {
    QLM_FadeByAngleManager fade;
    const float view[3] = {0, 0, 1}, half[3] = {0.8660254f, 0, 0.5f}, behind[3] = {0.8660254f, 0, -0.5f};
    fade.Cutoff = 0.0f;
    fade.Falloff = 1.0f;
    EXPECT_EQ(fade.Fade(view, half, true), 1.0f);
    // d = 0.25: (0.25 - 0.05) / 0.95 / (1 - 0.512) = 0.43140
    fade.Cutoff = 0.05f;
    fade.Falloff = 0.8f;
    EXPECT_NEAR(fade.Fade(view, half, true), 0.431406f, 1e-5f);
    EXPECT_EQ(fade.Fade(view, behind, true), 0.0f);
    EXPECT_NEAR(fade.Fade(view, behind, false), 0.431406f, 1e-5f);
    EXPECT_EQ(fade.Fade(view, view, true), 1.0f);
    fade.Cutoff = 2.0f; // as 0.99
    EXPECT_EQ(fade.Fade(view, half, true), 0.0f);
}

std::vector<int> CoveredBox(QLM_MaterialMapSource* map) {
    const int width = static_cast<int>(map->Overdraw.GetWidth()), height = static_cast<int>(map->Overdraw.GetHeight());
    std::vector<int> box = {width, height, -1, -1, 0};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (map->Overdraw.GetPixels()[y * width + x] == 255)
                box = {std::min(box[0], x), std::min(box[1], y), std::max(box[2], x), std::max(box[3], y), box[4] + 1};
    return box;
}

TEST(Overdraw, MarksWhatPolygonsCover) {
    RenderingScene scene;
    QLM_Object* object = scene.AddObject({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0},
                                         {0.25f, 0.5f, 0.75f, 0.5f, 0.75f, 1, 0.25f, 1}, {{0, 1, 2, 3}});
    QLM_MaterialMapSource* map = scene.AddMap(object, 64, 32, 0, 0, 0);
    QLM_OverdrawBufferWorkhorse workhorse;
    QLM_OverdrawBufferWorkhorse::Request(map);
    EXPECT_FALSE(map->GetBool("FULLY_PROCESSED"));
    workhorse.ResolveRequests();
    EXPECT_TRUE(map->GetBool("FULLY_PROCESSED"));
    EXPECT_FALSE(map->GetBool("CALCULATE_OVERDRAW_REQUESTED"));
    EXPECT_EQ(CoveredBox(map), (std::vector<int>{16, 16, 47, 31, 32 * 16}));

    // Another object on the same map adds its polygons; nothing happens without a request.
    QLM_Object* second = scene.AddObject({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 0, 0.125f, 0, 0, 0.25f}, {{0, 1, 2}});
    QLM_Mesh* mesh = second->GetMesh();
    QLM_GetManagers().GetMapManager()->AssignMapToMaterialChannel(&mesh->GetMapList(), mesh->GetMaterials()[0]->Color,
                                                                  map);
    mesh->UpdateAllMapPolygonLists();
    map->SetBool("CALCULATE_OVERDRAW_REQUESTED", false);
    workhorse.ResolveRequests();
    EXPECT_EQ(CoveredBox(map)[0], 16);
    QLM_OverdrawBufferWorkhorse::Request(map);
    workhorse.ResolveRequests();
    // An 8 x 8 right triangle covers 36 pixel centres, its slant included.
    EXPECT_EQ(CoveredBox(map), (std::vector<int>{0, 0, 47, 31, 32 * 16 + 36}));

    // A corner outside of 0..1 makes all of it count as covered; so does a map with too many layers of polygons.
    mesh->TextureVertices[1][0] = 1.001f;
    QLM_OverdrawBufferWorkhorse::Request(map);
    workhorse.ResolveRequests();
    EXPECT_EQ(CoveredBox(map)[4], 64 * 32);
    mesh->TextureVertices[1][0] = 0.125f;
    map->SetBool("utility/cannotBePaintedDueToExcessiveUVOverlapping", true);
    QLM_OverdrawBufferWorkhorse::Request(map);
    workhorse.ResolveRequests();
    EXPECT_EQ(CoveredBox(map)[4], 64 * 32);
}

TEST(Hover, FindsTheLeavesUnderARectangle) {
    RenderingScene scene;
    // A strip of squares along x from -0.5 to 0.5, facing the viewer.
    std::vector<float> vertices, uvs;
    std::vector<std::vector<int>> polygons;
    constexpr int Count = 4000;
    for (int i = 0; i <= Count; ++i)
        for (int j = 0; j < 2; ++j) {
            vertices.insert(vertices.end(), {-0.5f + static_cast<float>(i) / Count, j * 0.1f, 0});
            uvs.insert(uvs.end(), {0, 0});
        }
    for (int i = 0; i < Count; ++i) polygons.push_back({2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1});
    QLM_Object* object = scene.AddObject(vertices, uvs, polygons);
    scene.SetFrontView();
    QLM_ViewportHoverManager& hover = *QLM_GetManagers().GetViewportHoverManager();
    const auto& leaves = object->GetMesh()->GetLeaves();
    ASSERT_GT(leaves.size(), 1u);
    const float rectangle[4] = {0.5f, -1, 0.6f, 1}; // world x 0.25..0.3
    std::vector<int> found;
    hover.CollectHoverLeaves(rectangle, object, &scene.View(), found);
    ASSERT_FALSE(found.empty());
    EXPECT_LT(found.size(), leaves.size());
    for (int leaf = 0; leaf < static_cast<int>(leaves.size()); ++leaf) {
        const bool meets = leaves[leaf]->BoundsMax[0] >= 0.25f && leaves[leaf]->BoundsMin[0] <= 0.3f;
        EXPECT_EQ(std::count(found.begin(), found.end(), leaf), meets ? 1 : 0) << leaf;
    }
    found.clear();
    const float above[4] = {-1, 0.5f, 1, 1};
    hover.CollectHoverLeaves(above, object, &scene.View(), found);
    EXPECT_TRUE(found.empty());
}

} // namespace
