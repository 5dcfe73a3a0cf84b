// The road from a shape picture to the tip.

#include "Rendering/QLM_Viewport.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_Tool.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

/// A brush with properties of its own.
class TestBrush : public QLM_Brush {
  public:
    QLM_BrushProperties& Properties() const override { return properties; }
    mutable QLM_BrushProperties properties;
};

class BrushShape : public testing::Test {
  protected:
    BrushShape() : viewport(0) {
        viewport.width = viewport.height = 512;
        SetShape(64, 64, 255);
    }
    void SetShape(uint32_t width, uint32_t height, uint8_t value) {
        manager.ShapeSource.SetDimensions(width, height, 1);
        std::fill_n(manager.ShapeSource.GetPixels(), static_cast<size_t>(width) * height, value);
        manager.InvalidateTip();
    }
    void Build(int stampingWidth) { manager.SetupOverlayAndBrushShape(&viewport, &brush, 512, 512, stampingWidth); }
    uint8_t TipAt(uint32_t x, uint32_t y) { return manager.BrushTip.GetPixels()[y * manager.BrushTip.GetWidth() + x]; }
    uint64_t CountTip(uint8_t value) {
        return static_cast<uint64_t>(std::count(manager.BrushTip.GetPixels(),
                                                manager.BrushTip.GetPixels() + manager.BrushTip.GetByteCount(), value));
    }
    QLM_BrushShapeManager manager;
    QLM_Viewport viewport;
    TestBrush brush;
};

TEST_F(BrushShape, TipSizesFollowOverlayAndSize) {
    const struct {
        float size;
        int stamping, tip;
    } cases[] = {{0.5f, 5056, 3590}, {0.75f, 3488, 3715}, {0.1f, 1000, 142}, {0.0f, 8192, 1}};
    for (const auto& c : cases) {
        brush.properties.Size = c.size;
        int width = 0, height = 0;
        manager.GetTipSize(&brush, c.stamping, width, height);
        EXPECT_EQ(width, c.tip);
        EXPECT_EQ(height, c.tip);
    }
    // A wide shape shrinks the tip's height; turned it stands upright.
    SetShape(64, 16, 255);
    brush.properties.Size = 0.1f;
    int width = 0, height = 0;
    manager.GetTipSize(&brush, 2000, width, height);
    EXPECT_EQ(width, 284);
    EXPECT_EQ(height, 71);
    brush.properties.Angle = 90.0f;
    manager.GetTipSize(&brush, 2000, width, height);
    EXPECT_EQ(width, 71);
    EXPECT_EQ(height, 284);
}

TEST_F(BrushShape, TheShapeFillsTheMiddleOfTheTip) {
    brush.properties.Size = 0.5f;
    Build(400); // tip 284, shape 200 wide in its middle
    ASSERT_EQ(manager.BrushTip.GetWidth(), 284u);
    EXPECT_EQ(TipAt(41, 142), 0);
    EXPECT_EQ(TipAt(42, 142), 255);
    EXPECT_EQ(TipAt(241, 142), 255);
    EXPECT_EQ(TipAt(242, 142), 0);
    EXPECT_EQ(CountTip(255), 40000u);
    EXPECT_EQ(CountTip(0), 284u * 284u - 40000u);
    EXPECT_EQ(manager.BrushOverlay.GetWidth(), 512u);
    EXPECT_EQ(manager.BrushOverlay.GetPixels()[512 * 512 - 1], 0);
    // Four sides of 182 pixels (512 x 0.5 x 1.42 = 364 by the viewport, 256 of shape), corners once.
    EXPECT_FALSE(manager.OutlinePoints.empty());
    for (const auto& [x, y] : manager.OutlinePoints) EXPECT_NEAR(std::max(std::abs(x), std::abs(y)), 128, 2);
    EXPECT_TRUE(manager.IsTipCurrent());
}

TEST_F(BrushShape, ConstantShapesStayConstantWhenTurned) {
    SetShape(50, 50, 128);
    brush.properties.Size = 0.5f;
    for (float angle : {0.0f, 30.0f, 45.0f, 117.3f}) {
        brush.properties.Angle = angle;
        Build(400);
        EXPECT_EQ(CountTip(128) + CountTip(0), manager.BrushTip.GetByteCount()) << angle;
        EXPECT_NEAR(static_cast<double>(CountTip(128)), 40000.0, 400.0) << angle; // the turned square fits
    }
}

TEST_F(BrushShape, AWholeTurnIsNone) {
    for (uint32_t i = 0; i < 64 * 64; ++i) manager.ShapeSource.GetPixels()[i] = static_cast<uint8_t>(i % 251);
    brush.properties.Size = 0.4f;
    Build(300);
    const std::vector<uint8_t> straight(manager.BrushTip.GetPixels(),
                                        manager.BrushTip.GetPixels() + manager.BrushTip.GetByteCount());
    brush.properties.Angle = 360.0f;
    Build(300);
    EXPECT_TRUE(std::equal(straight.begin(), straight.end(), manager.BrushTip.GetPixels()));
    brush.properties.Angle = 90.0f;
    Build(300);
    // Counter-clockwise: what was at the right is on top. The tip is 170 pixels wide.
    const auto before = [&](int x, int y) {
        return static_cast<int>(straight[static_cast<size_t>(y) * 170 + static_cast<size_t>(x)]);
    };
    EXPECT_NEAR(TipAt(100, 120), before(120, 69), 2);
    EXPECT_NEAR(TipAt(60, 90), before(90, 109), 2);
}

TEST_F(BrushShape, HardnessTurnsSlopesIntoSteps) {
    for (uint32_t i = 0; i < 64 * 64; ++i) manager.ShapeSource.GetPixels()[i] = static_cast<uint8_t>(i % 64 * 4);
    brush.properties.Size = 0.5f;
    brush.properties.Hardness = 1.0f;
    Build(400);
    EXPECT_EQ(TipAt(200, 142), 255);
    EXPECT_EQ(TipAt(50, 142), 255);   // 10 x 256
    brush.properties.Hardness = 0.5f; // k = truncate(255 / 64) = 3: four times as bright
    Build(400);
    EXPECT_NEAR(TipAt(142 - 50, 142), 4 * 62, 12); // a quarter of the way through 0..252 is 62
    EXPECT_EQ(TipAt(142, 142), 255);
}

TEST_F(BrushShape, AnEmptyShapeFallsBackToACircle) {
    SetShape(8, 8, 0);
    brush.properties.Size = 0.25f;
    Build(400);
    ASSERT_EQ(manager.OutlinePoints.size(), 360u);
    EXPECT_EQ(manager.OutlinePoints[0], std::make_pair(64, 0)); // 0.25 x half of 512
    EXPECT_EQ(manager.OutlinePoints[90], std::make_pair(0, 64));
}

TEST(BrushOverlayOperations, MirrorTakesTheLargerOfBoth) {
    QLM_ImageMap overlay;
    overlay.SetDimensions(5, 2, 1);
    const uint8_t start[] = {1, 2, 3, 4, 9, 0, 8, 0, 0, 7};
    std::copy(std::begin(start), std::end(start), overlay.GetPixels());
    QLM_BrushShapeManager::MirrorOverlay(overlay, true, false);
    const std::vector<uint8_t> mirroredX = {9, 4, 3, 4, 9, 7, 8, 0, 8, 7};
    EXPECT_EQ(std::vector<uint8_t>(overlay.GetPixels(), overlay.GetPixels() + 10), mirroredX);
    QLM_BrushShapeManager::MirrorOverlay(overlay, false, true);
    const std::vector<uint8_t> both = {9, 8, 3, 8, 9, 9, 8, 3, 8, 9};
    EXPECT_EQ(std::vector<uint8_t>(overlay.GetPixels(), overlay.GetPixels() + 10), both);
}

TEST(BrushOverlayOperations, DilateSpreadsASquare) {
    QLM_ImageMap overlay;
    overlay.SetDimensions(6, 5, 1);
    std::fill_n(overlay.GetPixels(), 30, uint8_t{0});
    overlay.GetPixels()[1 * 6 + 1] = 200;
    overlay.GetPixels()[4 * 6 + 5] = 50;
    QLM_BrushShapeManager::DilateOverlay(overlay, 1);
    const std::vector<uint8_t> expected = {200, 200, 200, 0, 0, 0, 200, 200, 200, 0, 0, 0, 200, 200, 200,
                                           0,   0,   0,   0, 0, 0, 0,   50,  50,  0, 0, 0, 0,   50,  50};
    EXPECT_EQ(std::vector<uint8_t>(overlay.GetPixels(), overlay.GetPixels() + 30), expected);
}

} // namespace
