// Whole strokes, from the pointer to the pixels of the map. Expected pixels are worked out by hand.

#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_MathTables.h"
#include "Math/QLM_Random.h"
#include "Painting/QLM_TouchupBrush.h"
#include "Rasterizer/QLM_DepthBuffer.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Support/TestScene.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_ToolManager.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

namespace {

using Color = std::vector<int>;
const Color paper = {200, 100, 50};

class Stroke : public testing::Test {
  protected:
    Stroke() : tools(*QLM_GetManagers().GetToolManager()), shapes(*QLM_GetManagers().GetBrushShapeManager()) {
        QLM_SetPressure(1.0f);
        tools.SelectToolByName("ColorBrush");
        brush = dynamic_cast<QLM_TouchupBrush*>(tools.GetCurrentTool());
        brush->Properties() = {.Size = 0.5f, .Hardness = 1.0f, .Strength = 1.0f, .Spacing = 0.1f, .Density = 1.0f};
        tools.mirrorX = tools.mirrorY = tools.lockAlpha = tools.autoPressure = false;
        std::fill(std::begin(tools.paintChannels), std::end(tools.paintChannels), false);
        tools.paintChannels[0] = true;
        shapes.ShapeSource.SetDimensions(64, 64, 1);
        std::fill_n(shapes.ShapeSource.GetPixels(), 64 * 64, uint8_t{255});
        shapes.InvalidateTip();
        QLM_GetManagers().GetCullingManager()->SetMethod(QLM_CullingMethod::None);
        float* foreground = QLM_GetEngine()->foregroundColor;
        foreground[0] = 1.0f;
        foreground[1] = foreground[2] = 0.0f;
    }
    ~Stroke() override { brush->Properties() = QLM_BrushProperties{.Spacing = 0.1f}; }

    /// The quad from -0.5 to 0.5 over the whole of a map of 256 x 256, filling the view.
    void MakeQuad() {
        object = scene.AddObject("Quad", {-0.5f, -0.5f, 0, 0.5f, -0.5f, 0, 0.5f, 0.5f, 0, -0.5f, 0.5f, 0},
                                 {0, 0, 1, 0, 1, 1, 0, 1}, {{{0, 0}, {1, 1}, {2, 2}, {3, 3}}});
        map = scene.AddMap(object, 256, 256, 200, 100, 50);
        scene.SetView(0.5f);
    }
    /// The same square as two quads that share no vertex; the right one faces away when it is turned.
    void MakePair(bool turned) {
        TestPolygon right = {{4, 4}, {5, 5}, {6, 6}, {7, 7}};
        if (turned) std::reverse(right.begin(), right.end());
        object = scene.AddObject("Pair", {-0.5f, -0.5f, 0, 0,    -0.5f, 0, 0,    0.5f, 0, -0.5f, 0.5f, 0,
                                          0,     -0.5f, 0, 0.5f, -0.5f, 0, 0.5f, 0.5f, 0, 0,     0.5f, 0},
                                 {0, 0, 0.5f, 0, 0.5f, 1, 0, 1, 0.5f, 0, 1, 0, 1, 1, 0.5f, 1},
                                 {{{0, 0}, {1, 1}, {2, 2}, {3, 3}}, right});
        map = scene.AddMap(object, 256, 256, 200, 100, 50);
        scene.SetView(0.5f);
    }
    TOverlay_Workhorse& Workhorse() { return *dynamic_cast<TOverlay_Workhorse*>(QLM_GetEngine()->overlayWorkhorse); }
    std::vector<int> Changed() { return TestScene::ChangedBox(map, 200, 100, 50); }
    Color At(int x, int y) { return TestScene::PixelAt(map, x, y); }
    uint64_t MapHash() { return QLM_Hash(map->GetPixels(), map->GetByteCount()); }

    TestScene scene;
    QLM_ToolManager& tools;
    QLM_BrushShapeManager& shapes;
    QLM_TouchupBrush* brush = nullptr;
    QLM_Object* object = nullptr;
    QLM_MaterialMapSource* map = nullptr;
};

TEST_F(Stroke, AClickPaintsASquareAtTheRelease) {
    MakeQuad();
    QLM_Engine* engine = QLM_GetEngine();
    ASSERT_TRUE(engine->PointerPress(QLM_Engine::Button::Left, 256, 256, {}));
    EXPECT_EQ(shapes.BrushOverlay.GetWidth(), 512u);
    EXPECT_EQ(shapes.BrushOverlay.GetHeight(), 512u);
    EXPECT_EQ(Workhorse().GetOverlayWidth(), 5056);
    EXPECT_EQ(Workhorse().GetOverlayHeight(), 5056);
    EXPECT_EQ(shapes.BrushTip.GetWidth(), 3590u);
    EXPECT_EQ(shapes.BrushTip.GetHeight(), 3590u);
    EXPECT_TRUE(tools.paintInProgress);
    scene.Settle();
    EXPECT_EQ(Workhorse().GetStampCount(), 1);
    EXPECT_EQ(Changed()[4], 0); // nothing changes before the release
    engine->PointerRelease(QLM_Engine::Button::Left, 256, 256);
    scene.Settle();
    EXPECT_EQ(Workhorse().GetStampCount(), 1);
    EXPECT_FALSE(tools.paintInProgress);
    EXPECT_EQ(Changed(), (std::vector<int>{64, 64, 191, 191, 128 * 128}));
    for (int y : {64, 100, 191})
        for (int x : {64, 130, 191}) EXPECT_EQ(At(x, y), (Color{255, 0, 0}));
    EXPECT_EQ(At(63, 128), paper);
    EXPECT_EQ(At(192, 128), paper);
    EXPECT_EQ(engine->depthBufferB->GetWidth(), 512u); // depth of the picture that was drawn on
    EXPECT_GT(engine->depthBufferB->GetDataFloat()[256 * 512 + 256], 0.0f);
}

TEST_F(Stroke, HalfStrengthMixesFromTheStateBefore) {
    MakeQuad();
    brush->Properties().Size = 0.25f;
    brush->Properties().Strength = 0.5f;
    scene.Click(256, 256);
    EXPECT_EQ(Changed(), (std::vector<int>{96, 96, 159, 159, 64 * 64}));
    EXPECT_EQ(At(96, 96), (Color{227, 51, 26}));
    EXPECT_EQ(At(158, 109), (Color{227, 51, 26}));
    scene.Click(256, 256);
    EXPECT_EQ(At(96, 96), (Color{240, 26, 14}));
    EXPECT_EQ(At(128, 128), (Color{240, 26, 14}));
    EXPECT_EQ(Changed()[4], 64 * 64);
}

TEST_F(Stroke, SizeSetsOverlayTipAndSquare) {
    MakeQuad();
    brush->Properties().Size = 0.75f;
    scene.Click(256, 256);
    EXPECT_EQ(Workhorse().GetOverlayWidth(), 3488);
    EXPECT_EQ(shapes.BrushTip.GetWidth(), 3715u);
    EXPECT_EQ(Changed(), (std::vector<int>{32, 32, 223, 223, 192 * 192}));
    // A click on the corner is cut by the map.
    brush->Properties().Size = 0.5f;
    QLM_GetEngine()->foregroundColor[2] = 1.0f;
    scene.Click(0, 511.75f);
    EXPECT_EQ(At(0, 0), (Color{255, 0, 255}));
    EXPECT_EQ(At(63, 63), (Color{255, 0, 255}));
    EXPECT_EQ(At(64, 64), (Color{255, 0, 0}));
    EXPECT_EQ(At(64, 63), (Color{255, 0, 0}));
}

TEST_F(Stroke, TooWeakAStrokeLeavesNothing) {
    MakeQuad();
    brush->Properties().Size = 0.125f;
    brush->Properties().Strength = 0.005f;
    scene.Click(256, 256);
    EXPECT_EQ(Changed()[4], 0);
    EXPECT_FALSE(tools.paintInProgress);
}

TEST_F(Stroke, SeamsArePaintedIntoTheGutter) {
    // Two quads share the edge x = 0; their islands stand apart.
    object = scene.AddObject("Seam",
                             {-0.5f, -0.5f, 0, 0, -0.5f, 0, 0, 0.5f, 0, -0.5f, 0.5f, 0, 0.5f, -0.5f, 0, 0.5f, 0.5f, 0},
                             {0.125f, 0.25f, 0.375f, 0.25f, 0.375f, 0.75f, 0.125f, 0.75f, 0.625f, 0.25f, 0.875f, 0.25f,
                              0.875f, 0.75f, 0.625f, 0.75f},
                             {{{0, 0}, {1, 1}, {2, 2}, {3, 3}}, {{1, 4}, {4, 5}, {5, 6}, {2, 7}}});
    map = scene.AddMap(object, 256, 256, 200, 100, 50);
    scene.SetView(1.0f);
    brush->Properties().Size = 1.0f;
    for (int click = 0; click < 2; ++click) { // the second finds a clean gutter field
        scene.Click(256, 256);
        EXPECT_EQ(Changed(), (std::vector<int>{30, 62, 225, 193, 2 * 68 * 132}));
        EXPECT_EQ(At(97, 100), (Color{255, 0, 0}));
        EXPECT_EQ(At(98, 100), paper);
        EXPECT_EQ(At(157, 100), paper);
        EXPECT_EQ(At(158, 100), (Color{255, 0, 0}));
    }
}

TEST_F(Stroke, MirrorAndChannelsFollowTheSwitchesOfThePress) {
    MakeQuad();
    brush->Properties().Size = 0.125f; // 16 pixels of the map on each side
    tools.mirrorX = true;
    QLM_Engine* engine = QLM_GetEngine();
    engine->PointerPress(QLM_Engine::Button::Left, 128, 384, {}); // map place (64, 64)
    // What changes during the stroke doesn't show.
    tools.mirrorX = false;
    engine->foregroundColor[1] = 1.0f;
    tools.paintChannels[0] = false;
    engine->PointerRelease(QLM_Engine::Button::Left, 128, 384);
    scene.Settle();
    EXPECT_EQ(Changed(), (std::vector<int>{48, 48, 207, 79, 2 * 32 * 32}));
    EXPECT_EQ(At(50, 60), (Color{255, 0, 0}));
    EXPECT_EQ(At(200, 60), (Color{255, 0, 0}));
    EXPECT_EQ(At(128, 60), paper);

    // Bump alone takes paint: the map of Color stays.
    const uint64_t before = MapHash();
    tools.paintChannels[2] = true;
    QLM_MapManager& maps = *QLM_GetManagers().GetMapManager();
    maps.CreateMapLayer("Paint");
    scene.Click(256, 256);
    EXPECT_EQ(MapHash(), before);
    EXPECT_FALSE(map->HasLayerData()) << "it is merely bound";
    maps.GetLayerTree()->DeleteAllItems();
    // No channel, or no texture to be seen: refused with a message, and no state left behind.
    tools.paintChannels[2] = false;
    EXPECT_FALSE(engine->PointerPress(QLM_Engine::Button::Left, 256, 256, {}));
    EXPECT_FALSE(brush->Painting);
    engine->PointerMove(300, 300);
    engine->PointerRelease(QLM_Engine::Button::Left, 256, 256);
    scene.Settle();
    tools.paintChannels[0] = true;
    scene.GetViewport()->DisplayMode = 4;
    EXPECT_FALSE(engine->PointerPress(QLM_Engine::Button::Left, 256, 256, {}));
    EXPECT_EQ(QLM_OS::Get().recorded.back().text,
              "Please choose a texture channel (color, bump, etc.) from the \"Viewports - Display Mode...\" menu.");
    engine->PointerRelease(QLM_Engine::Button::Left, 256, 256);
    scene.Settle();
    scene.GetViewport()->DisplayMode = 3;
    EXPECT_EQ(MapHash(), before);
    // A change of tool drops the stroke.
    EXPECT_TRUE(engine->PointerPress(QLM_Engine::Button::Left, 256, 256, {}));
    tools.SelectToolByName("MoveView");
    EXPECT_FALSE(Workhorse().IsWorking());
    engine->PointerRelease(QLM_Engine::Button::Left, 256, 256);
    tools.SelectToolByName("ColorBrush");
    scene.Settle();
    EXPECT_EQ(MapHash(), before);
    EXPECT_FALSE(tools.paintInProgress);
}

TEST_F(Stroke, AWeldTakesPaintOnBothSides) {
    MakePair(false);
    ASSERT_EQ(QLM_UtilityManager::WeldVertices({object}, 0.001f, false, false, false), 1);
    brush->Properties().Size = 0.25f;
    QLM_GetManagers().GetCullingManager()->SetMethod(QLM_CullingMethod::SmartCulling);
    scene.Click(256, 256);
    EXPECT_EQ(Changed(), (std::vector<int>{96, 96, 159, 159, 64 * 64}));
    EXPECT_EQ(At(140, 100), (Color{255, 0, 0}));
}

TEST_F(Stroke, HiddenAndTurnedAwayPolygonsStayUnpainted) {
    MakePair(true);
    brush->Properties().Size = 0.25f;
    QLM_GetManagers().GetCullingManager()->SetMethod(QLM_CullingMethod::SmartCulling);
    scene.Click(256, 256);
    EXPECT_EQ(Changed(), (std::vector<int>{96, 96, 127, 159, 32 * 64}));
    QLM_GetManagers().GetCullingManager()->SetMethod(QLM_CullingMethod::None);
    object->GetMesh()->SetPolygonFlag(0, ePFlag_Locked);
    QLM_GetEngine()->foregroundColor[2] = 1.0f;
    scene.Click(256, 256);
    EXPECT_EQ(At(100, 100), (Color{255, 0, 0}));
    EXPECT_EQ(At(150, 100), (Color{255, 0, 255}));
}

TEST_F(Stroke, AMaskRisesWithThePaintUnlessLocked) {
    MakeQuad();
    map->Mask.SetDimensions(256, 256, 1);
    map->Mask.ClearToByte(0);
    brush->Properties().Size = 0.25f;
    brush->Properties().Strength = 0.5f;
    tools.lockAlpha = true;
    scene.Click(256, 256);
    // A transparent pixel takes the colour at once.
    EXPECT_EQ(map->GetPixels()[(100 * 256 + 100) * 3], 255);
    EXPECT_EQ(map->Mask.GetPixels()[100 * 256 + 100], 0);
    tools.lockAlpha = false;
    scene.Click(256, 256);
    EXPECT_EQ(map->Mask.GetPixels()[100 * 256 + 100], 127);
    scene.Click(256, 256);
    EXPECT_EQ(map->Mask.GetPixels()[100 * 256 + 100], 127 + 63); // 128 x 127 / 255 = 63.7
    EXPECT_EQ(map->Mask.GetPixels()[100 * 256 + 63], 0);
}

TEST_F(Stroke, ThePreviewShowsTheResultOnTheModel) {
    MakeQuad();
    scene.SetView(1.0f); // the quad fills the middle half of the view
    brush->Properties().Size = 0.25f;
    brush->Properties().Strength = 0.5f;
    std::vector<uint8_t> rgba;
    QLM_PictureBox box;
    EXPECT_FALSE(brush->BuildPreview(scene.GetViewport(), box, rgba));
    QLM_GetEngine()->PointerPress(QLM_Engine::Button::Left, 128, 256, {});
    scene.Settle();
    ASSERT_TRUE(brush->BuildPreview(scene.GetViewport(), box, rgba));
    ASSERT_EQ(rgba.size(), 4u * static_cast<size_t>(box.GetWidth()) * static_cast<size_t>(box.GetHeight()));
    EXPECT_LT(box.x1, 512);
    const auto at = [&](int x, int y) {
        if (x < box.x0 || y < box.y0 || x >= box.x1 || y >= box.y1) return std::vector<int>(4);
        const auto pixel = rgba.begin() + ((y - box.y0) * box.GetWidth() + x - box.x0) * 4;
        return std::vector<int>(pixel, pixel + 4);
    };
    EXPECT_EQ(at(180, 256), (std::vector<int>{227, 51, 26, 255})); // on the model, under the brush
    EXPECT_EQ(at(100, 256), (std::vector<int>{0, 0, 0, 0}));       // off the model
    EXPECT_EQ(at(300, 256), (std::vector<int>{0, 0, 0, 0}));       // beyond the brush
    EXPECT_EQ(Changed()[4], 0);
    QLM_GetEngine()->PointerRelease(QLM_Engine::Button::Left, 128, 256);
    scene.Settle();
}

TEST_F(Stroke, AnotherToolEndsItWithoutATrace) {
    MakeQuad();
    std::string error;
    ASSERT_TRUE(brush->FindParameterByName("Type")->SetValueFromText("Colorize", error)) << error;
    const std::vector<uint8_t> straight(SaturationSpread(), SaturationSpread() + 256);
    QLM_GetEngine()->PointerPress(QLM_Engine::Button::Left, 256, 256, {});
    EXPECT_FALSE(std::equal(straight.begin(), straight.end(), SaturationSpread()));
    tools.SelectToolByName("MoveView");
    EXPECT_TRUE(std::equal(straight.begin(), straight.end(), SaturationSpread()));
    QLM_GetEngine()->PointerRelease(QLM_Engine::Button::Left, 256, 256);
    scene.Settle();
    EXPECT_EQ(Changed()[4], 0);
    EXPECT_FALSE(tools.paintInProgress);
    tools.SelectToolByName("ColorBrush");
    brush->FindParameterByName("Type")->SetValueFromText("Normal", error);
}

TEST_F(Stroke, AxisLockHoldsToTheLastPoint) {
    MakeQuad();
    brush->Properties().Size = 0.0625f; // 8 pixels of the map on each side
    QLM_Engine* engine = QLM_GetEngine();
    QLM_KeyModifiers shift;
    shift.shift = true;
    engine->PointerPress(QLM_Engine::Button::Left, 128, 256, shift);
    engine->PointerMove(200, 250);
    engine->PointerMove(300, 100);
    engine->PointerRelease(QLM_Engine::Button::Left, 384, 40);
    scene.Settle();
    QLM_OS::Get().shiftDown = false;
    const std::vector<int> box = Changed();
    EXPECT_EQ(box[1], 120);
    EXPECT_EQ(box[3], 135);
    EXPECT_EQ(box[0], 56);
    EXPECT_NEAR(box[2], 198, 1.5); // the last stamp lies within a spacing of the end
}

/// A wavy sheet of n x n quads whose left and right halves lie over one another in UV, the right one turned.
void AddOverlappingSheet(TestScene& scene, int n, QLM_Object*& object, QLM_MaterialMapSource*& map, uint32_t side) {
    std::vector<float> vertices, uvs;
    for (int y = 0; y <= n; ++y)
        for (int x = 0; x <= n; ++x) {
            const float u = static_cast<float>(x) / static_cast<float>(n),
                        v = static_cast<float>(y) / static_cast<float>(n);
            vertices.insert(vertices.end(), {u - 0.5f, v - 0.5f, 0.1f * std::sin(9.0f * u) * std::cos(7.0f * v)});
        }
    const int half = n / 2;
    for (int island = 0; island < 2; ++island)
        for (int y = 0; y <= n; ++y)
            for (int x = 0; x <= half; ++x) {
                const float u = static_cast<float>(x) / static_cast<float>(half),
                            v = static_cast<float>(y) / static_cast<float>(n);
                if (island == 0) uvs.insert(uvs.end(), {0.1f + 0.7f * u + 0.03f * v, 0.1f + 0.7f * v});
                else uvs.insert(uvs.end(), {0.2f + 0.7f * v, 0.15f + 0.7f * u - 0.02f * v});
            }
    std::vector<TestPolygon> polygons;
    const int islandSize = (n + 1) * (half + 1);
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const int island = x < half ? 0 : 1, column = x - island * half;
            const auto corner = [&](int dx, int dy) {
                return std::make_pair((y + dy) * (n + 1) + x + dx,
                                      island * islandSize + (y + dy) * (half + 1) + column + dx);
            };
            polygons.push_back({corner(0, 0), corner(1, 0), corner(1, 1), corner(0, 1)});
        }
    object = scene.AddObject("Sheet", vertices, uvs, polygons);
    map = scene.AddMap(object, side, side, 200, 100, 50);
    scene.SetView(0.6f);
}

TEST_F(Stroke, AnyNumberOfThreadsPaintsTheSameBytes) {
    const int threadsBefore = QLM_OS::GetNumberOfThreads();
    std::vector<uint64_t> maps, pictures;
    for (const int threads : {1, 2, 7, 2}) {
        QLM_ShutdownCrunchers();
        QLM_OS::SetNumberOfThreads(threads);
        TestScene fresh;
        AddOverlappingSheet(fresh, 40, object, map, 500);
        shapes.ShapeSource.SetDimensions(64, 64, 1);
        for (int i = 0; i < 64 * 64; ++i)
            shapes.ShapeSource.GetPixels()[i] =
                static_cast<uint8_t>(255 - std::max(std::abs(i % 64 - 32), std::abs(i / 64 - 32)) * 7);
        shapes.InvalidateTip();
        brush->Properties() = {
            .Size = 0.08f, .Hardness = 0.4f, .Angle = 25.0f, .Strength = 0.6f, .Spacing = 0.9f, .Density = 0.7f};
        fresh.Stroke({{60, 80}, {250, 300}, {450, 120}, {300, 480}});
        tools.mirrorY = true;
        QLM_GetEngine()->foregroundColor[1] = 0.7f;
        fresh.Stroke({{100, 400}, {256, 250}, {480, 200}});
        tools.mirrorY = false;
        QLM_GetEngine()->foregroundColor[1] = 0.0f;
        EXPECT_GT(Changed()[4], 5000);
        maps.push_back(MapHash());
        std::vector<uint8_t> rgb;
        int width = 0, height = 0;
        QLM_GetManagers().GetViewportManager()->ReadPicture(0, rgb, width, height);
        pictures.push_back(QLM_Hash(rgb.data(), rgb.size()));
    }
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(threadsBefore);
    EXPECT_EQ(maps, std::vector<uint64_t>(4, maps[0]));
    EXPECT_EQ(pictures, std::vector<uint64_t>(4, pictures[0]));
}

TEST_F(Stroke, ThePartialRedrawEqualsAFullOne) {
    AddOverlappingSheet(scene, 20, object, map, 128);
    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    const auto picture = [&] {
        std::vector<uint8_t> rgb;
        int width = 0, height = 0;
        viewports->ReadPicture(0, rgb, width, height);
        return rgb;
    };
    const std::vector<uint8_t> before = picture();
    brush->Properties().Size = 0.1f;
    scene.Stroke({{150, 150}, {200, 220}});
    const std::vector<uint8_t> partial = picture();
    viewports->RequestFullRedraw();
    scene.Settle();
    EXPECT_NE(partial, before);
    EXPECT_TRUE(partial == picture());
}

} // namespace
