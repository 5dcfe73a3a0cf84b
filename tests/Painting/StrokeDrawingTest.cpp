// What paint brushes draw over the picture, in a context without a screen.

#include "Core/OS/QLM_Tablet.h"
#include "Engine/QLM_Engine.h"
#include "Painting/QLM_TouchupBrush.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_GLRenderer.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Support/OffscreenGL.h"
#include "Support/TestScene.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_ToolManager.h"

#include <GL/gl.h>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<uint8_t>;
using Color = std::vector<int>;

constexpr int side = 512;
const Color white = {255, 255, 255}, red = {255, 0, 0};

class StrokeDrawing : public testing::Test {
  protected:
    StrokeDrawing() : scene(side, side), viewports(*QLM_GetManagers().GetViewportManager()) {
        QLM_SetPressure(1.0f);
        QLM_ToolManager& tools = *QLM_GetManagers().GetToolManager();
        tools.SelectToolByName("ColorBrush");
        brush = dynamic_cast<QLM_TouchupBrush*>(tools.GetCurrentTool());
        brush->Properties() = {.Size = 0.125f, .Hardness = 1.0f, .Strength = 1.0f, .Spacing = 0.1f, .Density = 1.0f};
        tools.mirrorX = tools.mirrorY = false;
        QLM_BrushShapeManager& shapes = *QLM_GetManagers().GetBrushShapeManager();
        shapes.ShapeSource.SetDimensions(64, 64, 1);
        std::fill_n(shapes.ShapeSource.GetPixels(), 64 * 64, uint8_t{255});
        shapes.InvalidateTip();
        QLM_GetManagers().GetCullingManager()->SetMethod(QLM_CullingMethod::None);
        std::copy_n(std::begin({1.0f, 0.0f, 0.0f}), 3, QLM_GetEngine()->foregroundColor);
        QLM_Object* quad = scene.AddObject("Quad", {-0.5f, -0.5f, 0, 0.5f, -0.5f, 0, 0.5f, 0.5f, 0, -0.5f, 0.5f, 0},
                                           {0, 0, 1, 0, 1, 1, 0, 1}, {{{0, 0}, {1, 1}, {2, 2}, {3, 3}}});
        map = scene.AddMap(quad, 256, 256, 20, 90, 40);
        scene.SetView(1.0f); // the quad from pixel 128 to 384
    }
    ~StrokeDrawing() override {
        viewports.PointerLeave();
        brush->Properties() = QLM_BrushProperties{.Spacing = 0.1f};
    }
    void SetUp() override {
        if (!gl.GetError().empty()) GTEST_SKIP() << gl.GetError();
    }
    void TearDown() override { EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR)); }

    Bytes Draw() {
        QLM_GL_DrawCanvas(false);
        return OffscreenGL::Read(side, side);
    }
    /// y counts from the top, as the pointer does.
    static Color At(const Bytes& rgb, int x, int y) {
        const uint8_t* p = rgb.data() + (static_cast<size_t>(side - 1 - y) * side + x) * 3;
        return {p[0], p[1], p[2]};
    }
    /// First and last white pixel of a part of a row; -1 for none.
    static std::pair<int, int> FindWhite(const Bytes& rgb, int y, int begin, int end) {
        std::pair<int, int> found(-1, -1);
        for (int x = begin; x < end; ++x)
            if (At(rgb, x, y) == white) found = {found.first < 0 ? x : found.first, x};
        return found;
    }

    OffscreenGL gl{side, side};
    TestScene scene;
    QLM_ViewportManager& viewports;
    QLM_TouchupBrush* brush = nullptr;
    QLM_MaterialMapSource* map = nullptr;
};

TEST_F(StrokeDrawing, TheOutlineFollowsThePointer) {
    const Bytes bare = Draw();
    // The square shape reaches 0.125 x 256 = 32 pixels to each side.
    for (int x : {256, 300}) {
        QLM_GetEngine()->PointerMove(static_cast<float>(x), 250);
        const auto found = FindWhite(Draw(), 250, 1, side - 1);
        EXPECT_NEAR(found.first, x - 32, 2);
        EXPECT_NEAR(found.second, x + 32, 2);
    }
    // The halo darkens what lies beside the line, and nothing far off.
    const Bytes hovered = Draw();
    EXPECT_LT(At(hovered, 300, 250 - 32 - 3)[1], At(bare, 300, 250 - 32 - 3)[1]);
    EXPECT_EQ(At(hovered, 300, 250), At(bare, 300, 250));
    EXPECT_EQ(At(hovered, 200, 250), At(bare, 200, 250));
    // A larger brush at once, without a stroke between.
    brush->Properties().Size = 0.25f;
    EXPECT_NEAR(FindWhite(Draw(), 250, 1, side - 1).first, 300 - 64, 2);
    viewports.PointerLeave();
    EXPECT_TRUE(Draw() == bare);
}

TEST_F(StrokeDrawing, TheOutlineStandsInTheViewportUnderThePointer) {
    viewports.ChangeViewportSetup(1);
    scene.Settle();
    QLM_GetEngine()->PointerMove(384, 250); // the right one, 256 pixels wide: 16 to each side
    const Bytes drawn = Draw();
    EXPECT_EQ(FindWhite(drawn, 250, 1, 255), std::make_pair(-1, -1));
    EXPECT_NEAR(FindWhite(drawn, 250, 257, 511).first, 384 - 16, 2);
    viewports.ChangeViewportSetup(0);
}

TEST_F(StrokeDrawing, ATinyBrushIsMarkedByACrosshair) {
    const Bytes bare = Draw();
    brush->Properties().Size = 0.002f;
    QLM_GetEngine()->PointerMove(256, 250);
    const Bytes drawn = Draw();
    EXPECT_NE(At(drawn, 262, 250), At(bare, 262, 250));
    EXPECT_NE(At(drawn, 256, 244), At(bare, 256, 244));
    EXPECT_EQ(At(drawn, 262, 244), At(bare, 262, 244));
}

TEST_F(StrokeDrawing, ThePreviewShowsThePaintUntilThePictureHasIt) {
    QLM_Engine* engine = QLM_GetEngine();
    const Bytes bare = Draw();
    engine->PointerPress(QLM_Engine::Button::Left, 100, 256, {});
    engine->PointerMove(180, 256);
    engine->WaitForBackgroundWork();
    Bytes drawn = Draw();
    EXPECT_EQ(At(drawn, 165, 256), red);
    EXPECT_EQ(At(drawn, 110, 256), At(bare, 110, 256)); // off the quad
    EXPECT_EQ(At(drawn, 280, 256), At(bare, 280, 256)); // not yet
    EXPECT_EQ(At(drawn, 150, 320), At(bare, 150, 320)); // beyond the brush
    // What is stamped later is in a later frame.
    engine->PointerMove(300, 256);
    engine->WaitForBackgroundWork();
    EXPECT_EQ(At(Draw(), 280, 256), red);
    engine->PointerRelease(QLM_Engine::Button::Left, 300, 256);
    EXPECT_EQ(At(Draw(), 150, 256), red); // the picture is not drawn yet
    scene.Settle();
    viewports.PointerLeave();
    Bytes software;
    int width, height;
    viewports.ReadPicture(-1, software, width, height);
    EXPECT_TRUE(Draw() == software);
    EXPECT_EQ(TestScene::PixelAt(map, 128, 128), red);
}

} // namespace
