#include "Rasterizer/QLM_RasterizeOptions.h"

#include "Math/QLM_MathTables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

class Rasterizer : public testing::Test {
  protected:
    static void SetUpTestSuite() { QLM_InitializeMathLookupTables(); }
    static void TearDownTestSuite() { QLM_FreeMathLookupTables(); }
};

/// A screen target with everything that a pass writes.
struct Screen {
    Screen(uint32_t w, uint32_t h)
        : width(w), height(h), pixels(w * h * 4), unlit(w * h * 3), ids(w * h), depth(w * h), owner(w * h) {}
    void Attach(QLM_RasterizeOptions& o) {
        o.targetWidth = width;
        o.targetHeight = height;
        o.targetPixels = pixels.data();
        o.unlitPixels = unlit.data();
        o.idMask = ids.data();
        o.depthBuffer = depth.data();
        o.depthOwner = owner.data();
    }
    bool operator==(const Screen& other) const {
        return pixels == other.pixels && unlit == other.unlit && ids == other.ids && depth == other.depth &&
               owner == other.owner;
    }
    uint32_t width, height;
    std::vector<uint8_t> pixels, unlit, ids;
    std::vector<float> depth;
    std::vector<uint32_t> owner;
};

void Place(QLM_RasterizeOptions& o, int i, float x, float y, float depth = 0.5f) {
    o.vertex[i] = {};
    o.vertex[i].x = x;
    o.vertex[i].y = y;
    o.vertex[i].depth = depth;
}

/// Random triangles, drawn in bands of the given height.
Screen DrawRandom(int bandHeight) {
    Screen screen(97, 61);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> place(-20.0f, 120.0f), unit(0.0f, 1.0f);
    std::vector<uint8_t> map(16 * 16 * 3);
    for (size_t i = 0; i < map.size(); ++i) map[i] = static_cast<uint8_t>(i * 37);
    std::vector<QLM_RasterizeOptions> triangles(200);
    for (uint32_t t = 0; t < triangles.size(); ++t) {
        QLM_RasterizeOptions& o = triangles[t];
        screen.Attach(o);
        o.sourcePixels = map.data();
        o.sourceWidth = o.sourceHeight = 16;
        o.listIndex = t;
        o.idValue = static_cast<uint8_t>(1 + t % 255);
        for (int i = 0; i < 3; ++i) {
            Place(o, i, place(random), place(random), unit(random) * 0.2f + 0.4f);
            o.vertex[i].u = unit(random);
            o.vertex[i].v = unit(random);
            o.vertex[i].light = unit(random);
        }
    }
    const auto draw = QLM_GetScreenRasterizer(QLM_ScreenRasterizer::TextureLinear);
    for (int band = 0; band < 61; band += bandHeight)
        for (QLM_RasterizeOptions o : triangles) {
            o.clipBegin = band;
            o.clipEnd = band + bandHeight;
            draw(o);
        }
    return screen;
}

TEST_F(Rasterizer, BandsChangeNothing) {
    const Screen whole = DrawRandom(61);
    EXPECT_GT(std::count_if(whole.depth.begin(), whole.depth.end(), [](float d) { return d > 0; }), 3000);
    EXPECT_TRUE(DrawRandom(1) == whole);
    EXPECT_TRUE(DrawRandom(13) == whole);
}

TEST_F(Rasterizer, ConstantsStayExactAndPixelCentresDecide) {
    Screen screen(64, 64);
    QLM_RasterizeOptions o;
    screen.Attach(o);
    const std::vector<uint8_t> white(8 * 8 * 3, 255);
    o.sourcePixels = white.data();
    o.sourceWidth = o.sourceHeight = 8;
    // A triangle of odd shape: light 1 and a white map give 255 in each pixel that is drawn.
    const float corners[3][2] = {{3.37f, 5.11f}, {60.71f, 20.93f}, {17.29f, 58.83f}};
    for (int i = 0; i < 3; ++i) {
        Place(o, i, corners[i][0], corners[i][1]);
        o.vertex[i].u = 0.13f + 0.29f * i;
        o.vertex[i].v = 0.91f - 0.31f * i;
    }
    QLM_GetScreenRasterizer(QLM_ScreenRasterizer::TextureLinear)(o);
    int drawn = 0;
    for (int p = 0; p < 64 * 64; ++p) {
        if (screen.depth[p] == 0) continue;
        ++drawn;
        ASSERT_EQ(screen.pixels[p * 4], 255) << p;
        ASSERT_EQ(screen.pixels[p * 4 + 3], 255) << p;
        ASSERT_FLOAT_EQ(screen.depth[p], 0.5f);
    }
    // Area by the cross product: ((57.34 x 53.72) - (13.92 x 15.82)) / 2 = 1430.
    EXPECT_NEAR(drawn, 1430, 60);

    // Pixel centres 2.5 to 5.5 lie inside 2.2 .. 5.9: columns and rows 2 to 5.
    Screen small(8, 8);
    QLM_RasterizeOptions square;
    small.Attach(square);
    const auto flat = QLM_GetScreenRasterizer(QLM_ScreenRasterizer::NoMap);
    for (int half = 0; half < 2; ++half) {
        Place(square, 0, 2.2f, 2.2f);
        Place(square, 1, half ? 5.9f : 5.9f, half ? 5.9f : 2.2f);
        Place(square, 2, half ? 2.2f : 5.9f, 5.9f);
        flat(square);
    }
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(small.depth[y * 8 + x] > 0, x >= 2 && x <= 5 && y >= 2 && y <= 5) << x << " " << y;
}

TEST_F(Rasterizer, NearerWinsAndEqualDepthGoesToTheEarlier) {
    Screen screen(8, 8);
    const auto flat = QLM_GetScreenRasterizer(QLM_ScreenRasterizer::NoMap);
    const auto draw = [&](uint32_t index, float depth, uint8_t red) {
        QLM_RasterizeOptions o;
        screen.Attach(o);
        o.listIndex = index;
        o.colorBytes[0] = red;
        Place(o, 0, -10, -10, depth);
        Place(o, 1, 30, -10, depth);
        Place(o, 2, -10, 30, depth);
        flat(o);
        return screen.pixels[0];
    };
    EXPECT_EQ(draw(5, 0.5f, 50), 50);
    EXPECT_EQ(draw(7, 0.5f, 70), 50);
    EXPECT_EQ(draw(3, 0.5f, 30), 30);
    EXPECT_EQ(draw(4, 0.25f, 40), 30);
    EXPECT_EQ(draw(9, 0.75f, 90), 90);

    // No area, not a number, far away: nothing is drawn and nothing breaks.
    for (const float bad : {1.0f, std::numeric_limits<float>::quiet_NaN(), 1e30f}) {
        QLM_RasterizeOptions o;
        screen.Attach(o);
        for (int i = 0; i < 3; ++i) Place(o, i, bad, static_cast<float>(i), 0.9f);
        flat(o);
        EXPECT_FALSE(o.written);
    }
}

/// A paint target of one colour with a full overlay.
struct Paint {
    explicit Paint(uint32_t sideIn)
        : side(sideIn), read(side * side * 3, 100), target(read), overlay(16, 255), overdraw(side * side),
          closeness(side * side), owner(side * side) {}
    QLM_RasterizeOptions Options() {
        QLM_RasterizeOptions o;
        o.targetWidth = o.targetHeight = side;
        o.readPixels = read.data();
        o.targetPixels = target.data();
        o.overlayPixels = overlay.data();
        o.overlayWidth = o.overlayHeight = 4;
        o.overdrawPixels = overdraw.data();
        o.gutterCloseness = closeness.data();
        o.gutterOwner = owner.data();
        o.expandSeams = true;
        for (auto& v : o.vertex) v.overlayX = v.overlayY = 2;
        return o;
    }
    uint32_t side;
    std::vector<uint8_t> read, target, overlay, overdraw, closeness;
    std::vector<uint32_t> owner;
};

TEST_F(Rasterizer, GutterIsARingOfTwoPixelsOnAlignedEdges) {
    Paint paint(16);
    QLM_RasterizeOptions halves[2] = {paint.Options(), paint.Options()};
    const float square[4][2] = {{4, 4}, {12, 4}, {12, 12}, {4, 12}};
    for (uint32_t h = 0; h < 2; ++h) {
        halves[h].listIndex = h;
        halves[h].colorBytes[0] = static_cast<uint8_t>(h ? 10 : 200);
        for (int i = 0; i < 3; ++i) {
            const int corner = i == 0 ? 0 : i + static_cast<int>(h);
            halves[h].vertex[i].x = square[corner][0];
            halves[h].vertex[i].y = square[corner][1];
        }
        QLM_RasterizeOptions cover = halves[h];
        cover.targetPixels = paint.overdraw.data();
        cover.colorBytes[0] = 255;
        QLM_RasterizeGreyReplace(cover);
    }
    EXPECT_EQ(std::count(paint.overdraw.begin(), paint.overdraw.end(), 255), 64);
    for (auto& half : halves) QLM_ClaimGutter(half);
    for (auto& half : halves) QLM_GetPaintRasterizer(0)(half);
    // Inside and ring: 2 .. 13 on both axes. Left and top belong to the second half (nearer), right and bottom to the
    // first.
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            const bool painted = x >= 2 && x <= 13 && y >= 2 && y <= 13;
            ASSERT_EQ(paint.target[(y * 16 + x) * 3] != 100, painted) << x << " " << y;
        }
    EXPECT_EQ(paint.target[(8 * 16 + 2) * 3], 10);
    EXPECT_EQ(paint.target[(8 * 16 + 13) * 3], 200);
    EXPECT_EQ(paint.target[(2 * 16 + 8) * 3], 200);
    EXPECT_EQ(paint.target[(13 * 16 + 8) * 3], 10);
    // Centres at 2.5 and 3.5 lie 1.5 and 0.5 from the edge: 255 - 190 and 255 - 63.
    EXPECT_EQ(paint.closeness[8 * 16 + 2], 65);
    EXPECT_EQ(paint.closeness[8 * 16 + 3], 192);
    // The corner is 1.5 x sqrt 2 = 2.12 away, beyond the scale.
    EXPECT_EQ(paint.closeness[2 * 16 + 2], 0);
}

TEST_F(Rasterizer, AlphaIsTruncatedOnceAndOutsideTheOverlayNothingIsPainted) {
    Paint paint(4);
    QLM_RasterizeOptions o = paint.Options();
    o.expandSeams = false;
    o.strength = 0.5f;
    const float corners[3][2] = {{-8, -8}, {24, -8}, {-8, 24}};
    for (int i = 0; i < 3; ++i) {
        o.vertex[i].x = corners[i][0];
        o.vertex[i].y = corners[i][1];
    }
    o.colorBytes[0] = 255;
    o.colorBytes[1] = 100;
    o.colorBytes[2] = 0;
    QLM_GetPaintRasterizer(0)(o);
    // a = truncate(127.5) = 127: 100 + T(155 x 127) = 100 + 77; unchanged; 100 - truncate(49.8) = 51.
    EXPECT_EQ(paint.target[0], 177);
    EXPECT_EQ(paint.target[1], 100);
    EXPECT_EQ(paint.target[2], 51);
    paint.target = paint.read;
    o.written = false;
    for (auto& v : o.vertex) v.overlayX = -0.01f;
    QLM_GetPaintRasterizer(0)(o);
    EXPECT_FALSE(o.written);
    EXPECT_EQ(paint.target, paint.read);
    EXPECT_EQ(QLM_GetPaintRasterizer(999), nullptr);
}

} // namespace
