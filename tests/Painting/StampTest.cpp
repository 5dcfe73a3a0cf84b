// Stamps, their curve and density, and the thread that resamples a stroke into them.

#include "Math/QLM_Random.h"
#include "Painting/QLM_OverlayWorkhorse.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

void MakeTip(QLM_ImageMap& tip, uint32_t width, uint32_t height, uint8_t value) {
    tip.SetDimensions(width, height, 1);
    std::fill_n(tip.GetPixels(), static_cast<size_t>(width) * height, value);
}

QLM_StrokeSettings MakeSettings(int width, int height) {
    QLM_StrokeSettings settings;
    settings.overlayWidth = width;
    settings.overlayHeight = height;
    settings.aspect = static_cast<float>(height) / static_cast<float>(width);
    return settings;
}

/// Places of pixels that are not 0, as (x, y).
std::vector<std::pair<int, int>> PaintedPixels(QLM_ImageMap& overlay) {
    std::vector<std::pair<int, int>> places;
    const int width = static_cast<int>(overlay.GetWidth());
    for (int i = 0; i < static_cast<int>(overlay.GetByteCount()); ++i)
        if (overlay.GetPixels()[i]) places.emplace_back(i % width, i / width);
    return places;
}

QLM_MousePoint Point(float x, float y, float pressure = 1.0f) {
    QLM_MousePoint point;
    point.x = x;
    point.y = y;
    point.pressure = pressure;
    return point;
}

/// Runs one stroke to its end and copies the overlay.
void RunStroke(TOverlay_Workhorse& workhorse, const QLM_StrokeSettings& settings, QLM_ImageMap& tip,
               const std::vector<QLM_MousePoint>& points, QLM_ImageMap& overlay, uint32_t seed = 1) {
    workhorse.StartStroke(settings, tip, seed);
    for (const QLM_MousePoint& point : points) workhorse.AddPoint(point);
    workhorse.FinishStroke();
    workhorse.CopyOverlay(overlay);
}

uint64_t HashOf(QLM_ImageMap& map) { return QLM_Hash(map.GetPixels(), map.GetByteCount()); }

TEST(StampSizes, FollowBrushSizeAndViewport) {
    const struct {
        float size;
        int viewWidth, viewHeight, width, height;
    } cases[] = {
        {0.5f, 512, 512, 5056, 5056}, {0.75f, 512, 512, 3488, 3488}, {1.0f, 512, 512, 1920, 1920},
        {0.0f, 512, 512, 8192, 8192}, {0.5f, 1280, 720, 5056, 2844}, // 5056 x 0.5625
    };
    for (const auto& c : cases) {
        int width = 0, height = 0;
        QLM_StampingOverlaySize(c.size, c.viewWidth, c.viewHeight, width, height);
        EXPECT_EQ(width, c.width);
        EXPECT_EQ(height, c.height);
    }
    EXPECT_FLOAT_EQ(QLM_StampDistance(0.5f, 0.2f), 0.2f);
    EXPECT_FLOAT_EQ(QLM_StampDistance(0.5f, 0.001f), 0.01f); // a spacing below 0.01 acts as 0.01
}

TEST(StampCurve, HardnessAndPressureShapeIt) {
    float curve[256];
    QLM_StrokeSettings settings;
    QLM_StampCanvas::BuildCurve(settings, 1.0f, curve);
    EXPECT_FLOAT_EQ(curve[0], 0.0f);
    EXPECT_FLOAT_EQ(curve[51], 0.2f); // without hardness the tip's own value
    EXPECT_FLOAT_EQ(curve[255], 1.0f);

    settings.hardness = 1.0f;
    QLM_StampCanvas::BuildCurve(settings, 1.0f, curve);
    EXPECT_EQ(curve[0], 0.0f);
    EXPECT_EQ(curve[1], 1.0f); // any value becomes full

    settings.hardness = 0.0f;
    settings.varyHardness = true;
    QLM_StampCanvas::BuildCurve(settings, 1.0f, curve);
    EXPECT_EQ(curve[1], 1.0f);

    settings.varyHardness = false;
    settings.varySize = true;
    QLM_StampCanvas::BuildCurve(settings, 0.5f, curve);
    EXPECT_EQ(curve[127], 0.0f);          // below 1 - p nothing is left
    EXPECT_NEAR(curve[204], 0.6f, 1e-6f); // (0.8 - 0.5) / 0.5
    EXPECT_FLOAT_EQ(curve[255], 1.0f);
    QLM_StampCanvas::BuildCurve(settings, 0.0f, curve);
    EXPECT_EQ(*std::max_element(curve, curve + 256), 0.0f);

    settings.varySize = false;
    settings.varyStrength = true;
    QLM_StampCanvas::BuildCurve(settings, 0.25f, curve);
    EXPECT_FLOAT_EQ(curve[255], 0.25f);

    settings.varyStrength = false;
    settings.density = 0.0f; // soft stamps: c^17
    QLM_StampCanvas::BuildCurve(settings, 1.0f, curve);
    EXPECT_FLOAT_EQ(curve[255], 1.0f);
    EXPECT_NEAR(curve[204], 0.0225180f, 1e-6f); // 0.8^17
    settings.density = 0.05f;                   // half way to the plain curve
    QLM_StampCanvas::BuildCurve(settings, 1.0f, curve);
    EXPECT_NEAR(curve[204], 0.4112590f, 1e-6f); // (0.0225180 + 0.8) / 2
}

TEST(StampDensity, ThresholdOfTheRandomBytes) {
    QLM_StrokeSettings settings;
    settings.spacing = 0.5f;
    EXPECT_EQ(QLM_StampCanvas::DensityThreshold(settings, 1.0f), 255); // density 1 stamps all pixels
    settings.density = 0.0f;
    EXPECT_EQ(QLM_StampCanvas::DensityThreshold(settings, 1.0f), 2);
    settings.density = 0.5f;
    EXPECT_EQ(QLM_StampCanvas::DensityThreshold(settings, 1.0f), 127);
    settings.varyDensity = true;
    EXPECT_EQ(QLM_StampCanvas::DensityThreshold(settings, 0.5f), 31); // 0.5 x 0.25 x 255 = 31.9
}

TEST(StampDensity, ThinsBySeedAndNeverRepeatsInAStroke) {
    QLM_ImageMap tip, first, again, other, twice;
    MakeTip(tip, 200, 200, 255);
    QLM_StrokeSettings settings = MakeSettings(200, 200);
    settings.density = settings.spacing = 0.5f;
    TOverlay_Workhorse workhorse;
    RunStroke(workhorse, settings, tip, {Point(0, 0)}, first, 7);
    RunStroke(workhorse, settings, tip, {Point(0, 0)}, again, 7);
    RunStroke(workhorse, settings, tip, {Point(0, 0)}, other, 8);
    EXPECT_EQ(HashOf(first), HashOf(again));
    EXPECT_NE(HashOf(first), HashOf(other));
    const double part = static_cast<double>(PaintedPixels(first).size()) / 40000.0;
    EXPECT_NEAR(part, 127.0 / 256.0, 0.02); // eight standard deviations

    // Two stamps with patterns of their own leave about a quarter unpainted, the same pattern twice a half.
    QLM_StampCanvas canvas;
    canvas.Begin(settings, tip, 7);
    canvas.Stamp(0, 0, 1.0f);
    canvas.Stamp(0, 0, 1.0f);
    canvas.CopyTo(twice);
    const double missed = 1.0 - 127.0 / 256.0;
    EXPECT_NEAR(static_cast<double>(PaintedPixels(twice).size()) / 40000.0, 1.0 - missed * missed, 0.02);
}

TEST(StampCanvas, StampsAddUpAndSaturate) {
    QLM_ImageMap tip, overlay;
    MakeTip(tip, 1, 1, 100);
    QLM_StampCanvas canvas;
    canvas.Begin(MakeSettings(64, 64), tip, 1);
    const int expected[] = {100, 200, 255, 255};
    for (int value : expected) {
        canvas.Stamp(0, 0, 1.0f);
        canvas.CopyTo(overlay);
        EXPECT_EQ(overlay.GetPixels()[32 * 64 + 32], value);
    }
    EXPECT_EQ(PaintedPixels(overlay).size(), 1u);
}

TEST(StampCanvas, CutsAtTheEdgeAndForgetsTheLastStroke) {
    QLM_ImageMap tip, overlay;
    MakeTip(tip, 10, 6, 255);
    QLM_StampCanvas canvas;
    canvas.Begin(MakeSettings(300, 200), tip, 1);
    canvas.Stamp(-1.0f, 1.0f, 1.0f); // columns -5..4, rows 197..202
    canvas.Stamp(5.0f, 5.0f, 1.0f);  // off the overlay
    canvas.CopyTo(overlay);
    const auto places = PaintedPixels(overlay);
    ASSERT_EQ(places.size(), 15u);
    EXPECT_EQ(places.front(), std::make_pair(0, 197));
    EXPECT_EQ(places.back(), std::make_pair(4, 199));
    EXPECT_TRUE(canvas.IsTouched(-3, 190, 2, 250));
    EXPECT_FALSE(canvas.IsTouched(-30, 190, -2, 250));
    EXPECT_FALSE(canvas.IsTouched(150, 0, 250, 50));

    // Another row length over the same memory.
    canvas.Begin(MakeSettings(210, 290), tip, 1);
    canvas.CopyTo(overlay);
    EXPECT_EQ(overlay.GetWidth(), 210u);
    EXPECT_TRUE(PaintedPixels(overlay).empty());
    canvas.Stamp(0, 0, 1.0f);
    canvas.CopyTo(overlay);
    EXPECT_EQ(PaintedPixels(overlay).size(), 60u);
}

TEST(StampCanvas, ShrinksByNearestForThePreview) {
    QLM_ImageMap tip, preview;
    MakeTip(tip, 100, 100, 255);
    QLM_StampCanvas canvas;
    canvas.Begin(MakeSettings(400, 400), tip, 1);
    canvas.Stamp(0, 0, 1.0f); // 150..249
    preview.SetDimensions(40, 40, 1);
    const QLM_PictureBox all{0, 0, 40, 40}, changed = canvas.TakeChange(40, 40);
    canvas.CopyPart(all, 40, 40, preview.GetPixels());
    EXPECT_LE(changed.x0, 15);
    EXPECT_GE(changed.x1, 25);
    EXPECT_LT(changed.GetWidth() * changed.GetHeight(), 170);
    const auto places = PaintedPixels(preview);
    ASSERT_EQ(places.size(), 100u);
    EXPECT_EQ(places.front(), std::make_pair(15, 15));
    EXPECT_EQ(places.back(), std::make_pair(24, 24));
}

TEST(OverlayWorkhorse, SpacesStampsByDistanceInXUnits) {
    QLM_ImageMap tip, overlay;
    MakeTip(tip, 1, 1, 255);
    QLM_StrokeSettings settings = MakeSettings(1000, 500);
    settings.size = 0.1f;
    settings.spacing = 0.5f; // a stamp every 0.1
    TOverlay_Workhorse workhorse;
    // 501 steps of 1 / 501: the 51st is the first beyond 0.1.
    RunStroke(workhorse, settings, tip, {Point(-0.5f, 0), Point(0.5f, 0)}, overlay);
    const std::vector<std::pair<int, int>> row = {{250, 250}, {300, 250}, {351, 250}, {402, 250}, {453, 250},
                                                  {504, 250}, {555, 250}, {606, 250}, {657, 250}, {708, 250}};
    EXPECT_EQ(PaintedPixels(overlay), row);
    // Upwards the same way on the screen is half as long, and so are the stamps.
    RunStroke(workhorse, settings, tip, {Point(0, -0.5f), Point(0, 0.5f)}, overlay);
    const std::vector<std::pair<int, int>> column = {{500, 125}, {500, 175}, {500, 226}, {500, 277}, {500, 328}};
    EXPECT_EQ(PaintedPixels(overlay), column);
    float bounds[4];
    workhorse.GetStrokeBounds(bounds);
    EXPECT_EQ(bounds[0], 0.0f);
    EXPECT_EQ(bounds[1], -0.5f);
    EXPECT_EQ(bounds[2], 0.0f);
    EXPECT_NEAR(bounds[3], 0.3127f, 1e-3f); // 204 of 251 steps
    // A light pen sets its stamps closer.
    settings.varySize = true;
    RunStroke(workhorse, settings, tip, {Point(-0.5f, 0, 0.5f), Point(0.5f, 0, 0.5f)}, overlay);
    EXPECT_EQ(workhorse.GetStampCount(), 20); // every 26th of 501 steps, and the first
}

TEST(OverlayWorkhorse, AClickIsOneStampAndWeakPointsDoNotCount) {
    QLM_ImageMap tip, overlay;
    MakeTip(tip, 3, 3, 255);
    QLM_StrokeSettings settings = MakeSettings(100, 100);
    TOverlay_Workhorse workhorse;
    RunStroke(workhorse, settings, tip, {Point(0.1f, 0.1f), Point(0.1f, 0.1f)}, overlay);
    EXPECT_EQ(workhorse.GetStampCount(), 1);
    EXPECT_EQ(workhorse.GetPaintedPointCount(), 2);
    RunStroke(workhorse, settings, tip, {}, overlay);
    float bounds[4];
    workhorse.GetStrokeBounds(bounds);
    EXPECT_EQ(std::vector<float>(bounds, bounds + 4), (std::vector<float>{2, 2, -2, -2}));

    const struct {
        float strength, pressure;
        bool vary;
        int painted;
    } cases[] = {{0.005f, 1.0f, false, 0},
                 {0.006f, 1.0f, false, 1},
                 {0.01f, 0.5f, true, 0},
                 {0.01f, 0.5f, false, 1},
                 {1.0f, 0.0f, true, 0}};
    for (const auto& c : cases) {
        settings.strength = c.strength;
        settings.varyStrength = c.vary;
        RunStroke(workhorse, settings, tip, {Point(0, 0, c.pressure)}, overlay);
        EXPECT_EQ(workhorse.GetPaintedPointCount(), c.painted) << c.strength << " " << c.pressure;
    }
}

TEST(OverlayWorkhorse, AutoPressureRisesToItsMidpointAndFalls) {
    QLM_ImageMap tip, overlay;
    MakeTip(tip, 1, 1, 255);
    QLM_StrokeSettings settings = MakeSettings(1000, 500);
    settings.size = 0.1f;
    settings.spacing = 0.5f;
    settings.varyStrength = settings.autoPressure = true;
    settings.autoPressureMidpoint = 0.5f;
    TOverlay_Workhorse workhorse;
    workhorse.StartStroke(settings, tip, 1);
    workhorse.AddPoint(Point(-0.5f, 0));
    workhorse.AddPoint(Point(0.5f, 0));
    workhorse.Drain();
    EXPECT_EQ(workhorse.GetStampCount(), 0); // such a stroke stamps at its end
    workhorse.FinishStroke();
    workhorse.CopyOverlay(overlay);
    const int columns[] = {250, 300, 351, 402, 453, 504, 555, 606, 657, 708};
    const int expected[] = {0, 51, 102, 153, 204, 255, 204, 153, 102, 51};
    for (int i = 0; i < 10; ++i) EXPECT_EQ(overlay.GetPixels()[250 * 1000 + columns[i]], expected[i]) << i;
}

TEST(OverlayWorkhorse, SmoothingRoundsCornersAndKeepsTheEnds) {
    QLM_ImageMap tip, plain, smooth;
    MakeTip(tip, 1, 1, 255);
    QLM_StrokeSettings settings = MakeSettings(200, 200);
    settings.size = 0.05f;
    settings.spacing = 0.1f;
    const std::vector<QLM_MousePoint> corner = {Point(-0.5f, -0.5f), Point(0.5f, -0.5f), Point(0.5f, 0.5f)};
    TOverlay_Workhorse workhorse;
    RunStroke(workhorse, settings, tip, corner, plain);
    settings.smoothing = 0.2f;
    RunStroke(workhorse, settings, tip, corner, smooth);
    const auto before = PaintedPixels(plain), after = PaintedPixels(smooth);
    EXPECT_EQ(before.front(), after.front());
    EXPECT_EQ(before.back(), after.back());
    const auto reach = [](const std::vector<std::pair<int, int>>& places) {
        int best = 0;
        for (const auto& [x, y] : places) best = std::max(best, x - y);
        return best;
    };
    EXPECT_GE(reach(before), 98);
    EXPECT_LE(reach(after), 95);
}

TEST(OverlayWorkhorse, PointsArriveWhileItStampsAndAStrokeMayBeDropped) {
    QLM_ImageMap tip, slow, fast, part;
    MakeTip(tip, 21, 21, 40);
    const QLM_StrokeSettings settings = MakeSettings(256, 256);
    std::vector<QLM_MousePoint> points;
    for (int i = 0; i < 50; ++i)
        points.push_back(Point(-0.9f + 0.036f * static_cast<float>(i), 0.5f - 0.02f * static_cast<float>(i)));
    TOverlay_Workhorse workhorse;
    std::vector<uint8_t> preview(64 * 48);
    workhorse.StartStroke(settings, tip, 1);
    for (const QLM_MousePoint& point : points) {
        workhorse.AddPoint(point);
        workhorse.Drain();
        EXPECT_GE(workhorse.GetStampCount(), 1);
        const QLM_PictureBox box = workhorse.CopyChange(64, 48, true, false, part);
        for (int y = box.y0; y < box.y1; ++y)
            std::copy_n(part.GetPixels() + (y - box.y0) * box.GetWidth(), box.GetWidth(), preview.data() + y * 64 + box.x0);
        EXPECT_TRUE(workhorse.CopyChange(64, 48, true, false, part).IsEmpty());
    }
    workhorse.FinishStroke();
    workhorse.CopyOverlay(slow);
    // The parts that changed add up to the whole, shrunk by nearest.
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            ASSERT_EQ(preview[y * 64 + x], slow.GetPixels()[(2 * y + 1) * 256 / 96 * 256 + (2 * x + 1) * 256 / 128]) << x << " " << y;
    EXPECT_FALSE(workhorse.IsWorking());

    workhorse.StartStroke(settings, tip, 1);
    for (const QLM_MousePoint& point : points) workhorse.AddPoint(point);
    RunStroke(workhorse, settings, tip, points, fast); // the start ends the stroke before
    EXPECT_EQ(HashOf(slow), HashOf(fast));
    workhorse.StartStroke(settings, tip, 1);
    workhorse.AddPoint(points[0]);
} // its end stops a stroke that nobody finished

} // namespace
