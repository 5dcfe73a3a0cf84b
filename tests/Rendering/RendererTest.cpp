#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Math/QLM_Random.h"
#include "Rendering/QLM_Renderer4.h"
#include "Rendering/RenderingScene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using Ints = std::vector<int>;

float DepthAt(const RenderingScene& scene, int x, int y) {
    return scene.View().r4s.DepthBuffer.GetDataFloat()[y * scene.View().width + x];
}

TEST(Renderer, DrawsAQuad) {
    RenderingScene scene;
    QLM_Object* object = scene.AddQuad();
    QLM_MaterialMapSource* map = scene.AddMap(object, 64, 64, 200, 100, 50);
    map->GetPixels()[0] = 7; // the map's bottom left texel
    const float colors[6] = {1, 1, 1, 0.5f, 0.5f, 0.5f};
    std::copy(colors, colors + 6, QLM_GetEngine()->displayColors);
    scene.SetFrontView();
    scene.View().SetZoom(scene.View().GetZoom() * 2); // the quad covers the pixels 128..383
    scene.Manager().DrawAllViewports();
    ASSERT_TRUE(scene.View().r4s.pictureValid);

    // Seen head on, the light is 1 and the colour stays.
    EXPECT_EQ(scene.Pixel(256, 256), (Ints{200, 100, 50, 255}));
    EXPECT_EQ(scene.Pixel(383, 383), (Ints{200, 100, 50, 255}));
    EXPECT_EQ(scene.Pixel(128, 128)[0], 7);
    EXPECT_EQ(scene.Pixel(127, 256)[3], 0);
    EXPECT_EQ(scene.Pixel(384, 256)[3], 0);
    QLM_RenderState& state = scene.View().r4s;
    const size_t middle = 256 * 512 + 256, outside = 10 * 512 + 10;
    EXPECT_EQ(state.PolygonIDMask.GetPixels()[middle], 1);
    EXPECT_EQ(state.PolygonIDMask.GetPixels()[outside], 0);
    EXPECT_EQ(state.UnlitRenderedPixels.GetPixels()[middle * 3 + 1], 100);
    EXPECT_EQ(state.DepthOwner[middle], 1u);
    EXPECT_EQ(DepthAt(scene, 256, 256), 0.5f);
    EXPECT_EQ(DepthAt(scene, 10, 10), 0.0f);

    // Off the model stands the checker: 160 x Zoom cells over 512 pixels, from the middle outwards.
    const double cell = 512.0 / (160.0 * scene.View().GetZoom());
    for (int x = 0; x < 100; ++x) {
        const bool odd = (static_cast<int>(std::floor((x + 0.5 - 256) / cell)) & 1) !=
                         (static_cast<int>(std::floor((20.5 - 256) / cell)) & 1);
        ASSERT_EQ(scene.Pixel(x, 20), (odd ? Ints{127, 127, 127, 0} : Ints{255, 255, 255, 0})) << x;
        ASSERT_EQ(state.UnlitRenderedPixels.GetPixels()[(20 * 512 + x) * 3], odd ? 127 : 255);
    }
}

TEST(Renderer, LightsByTheAngle) {
    RenderingScene scene;
    QLM_Object* object = scene.AddQuad();
    scene.AddMap(object, 8, 8, 255, 100, 0);
    scene.SetFrontView();
    scene.Manager().Orbit(&scene.View(), 60, 0); // |N . V| = 0.5, light 0.7: 178 of 255
    scene.Manager().DrawAllViewports();
    // 100 x 178 / 255 = 69.8; half selected it is 0.5 x 0.75 + 0.2: 146, and 100 x 146 / 255 = 57.3.
    for (const auto& [weight, color] : {std::pair(1.0f, Ints{178, 69, 0, 255}), {0.5f, {146, 57, 0, 255}}}) {
        for (int v = 0; v < 4; ++v) object->GetMesh()->SetVertexWeight(v, weight);
        for (bool smooth : {true, false}) {
            scene.View().Smooth = smooth;
            scene.Manager().RefreshViewport(&scene.View());
            scene.Manager().DrawAllViewports();
            EXPECT_EQ(scene.Pixel(256, 256), color);
        }
    }
    EXPECT_EQ(scene.View().r4s.UnlitRenderedPixels.GetPixels()[(256 * 512 + 256) * 3 + 1], 100);
    scene.View().UseLighting = false;
    scene.Manager().RefreshViewport(&scene.View());
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.Pixel(256, 256), (Ints{255, 100, 0, 255}));
}

TEST(Renderer, ShowsColoursAndMasks) {
    RenderingScene scene;
    QLM_Object* object = scene.AddQuad();
    const float color[3] = {1.0f, 0.5f, 0.0f};
    std::copy(color, color + 3, object->GetMesh()->GetMaterials()[0]->Color->Color);
    scene.SetFrontView();
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.Pixel(256, 256), (Ints{255, 127, 0, 255}));

    QLM_MaterialMapSource* map = scene.AddMap(object, 4, 4, 10, 20, 30);
    map->Mask.SetDimensions(4, 4, 1);
    std::fill_n(map->Mask.GetPixels(), 16, uint8_t{90});
    scene.Manager().RequestFullRedraw();
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.Pixel(256, 256), (Ints{10, 20, 30, 90}));
}

TEST(Renderer, HidesBackFacesAndWhatIsBehind) {
    RenderingScene scene;
    QLM_Object* near = scene.AddQuad(0.1f);
    QLM_Object* far = scene.AddQuad(0.0f);
    scene.AddMap(near, 2, 2, 255, 0, 0);
    scene.AddMap(far, 2, 2, 0, 255, 0);
    scene.SetFrontView();
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.Pixel(256, 256), (Ints{255, 0, 0, 255}));
    scene.Manager().SetStandardView(&scene.View(), QLM_StandardView::Back);
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.Pixel(256, 256)[3], 0);
    far->RenderDoubleSided = true;
    scene.Manager().RequestFullRedraw();
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.Pixel(256, 256), (Ints{0, 255, 0, 255}));
    far->SetHidden(true);
    scene.Manager().OnAllViewportsChanged();
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.Pixel(256, 256)[3], 0);
}

TEST(Renderer, EqualDepthGoesToTheEarlier) {
    RenderingScene scene;
    QLM_Object* first = scene.AddQuad();
    QLM_Object* second = scene.AddQuad();
    scene.AddMap(first, 2, 2, 255, 0, 0);
    scene.AddMap(second, 2, 2, 0, 255, 0);
    scene.SetFrontView();
    scene.Manager().DrawAllViewports();
    for (int y = 0; y < 512; y += 73)
        for (int x = 0; x < 512; x += 73) EXPECT_EQ(scene.Pixel(x, y), (Ints{255, 0, 0, 255}));
}

/// Crossing triangles of all sizes, with an octree of many leaves.
QLM_Object* AddTangle(RenderingScene& scene, int count) {
    QLM_RandomGenerator random(5);
    const auto unit = [&] { return static_cast<float>(random.Next(1 << 20)) / (1 << 20); };
    std::vector<float> vertices, uvs;
    std::vector<std::vector<int>> polygons;
    for (int p = 0; p < count; ++p) {
        const float size = p % 50 == 0 ? 0.8f : 0.05f, centre[3] = {unit() - 0.5f, unit() - 0.5f, unit() - 0.5f};
        std::vector<int> corners;
        for (int i = 0; i < 3 + p % 3; ++i) {
            corners.push_back(static_cast<int>(vertices.size() / 3));
            for (float c : centre) vertices.push_back(c + size * (unit() - 0.5f));
            uvs.push_back(unit());
            uvs.push_back(unit());
        }
        polygons.push_back(corners);
    }
    return scene.AddObject(vertices, uvs, polygons);
}

void Colourize(QLM_MaterialMapSource* map, uint32_t seed) {
    QLM_RandomGenerator random(seed);
    uint8_t* pixels = map->GetPixels();
    for (uint64_t i = 0; i < map->GetByteCount(); ++i) pixels[i] = static_cast<uint8_t>(random.Next(256));
}

TEST(Renderer, AnyNumberOfThreadsDrawsTheSame) {
    std::vector<uint64_t> hashes;
    const int usual = QLM_OS::GetNumberOfThreads();
    for (int threads : {1, 2, 7, 2}) {
        QLM_ShutdownCrunchers();
        QLM_OS::SetNumberOfThreads(threads);
        RenderingScene scene(640, 411);
        QLM_Object* object = AddTangle(scene, 9000);
        Colourize(scene.AddMap(object, 128, 64, 0, 0, 0), 3);
        scene.SetFrontView();
        scene.Manager().Orbit(&scene.View(), 12, 34);
        scene.Manager().DrawAllViewports();
        ASSERT_TRUE(scene.View().r4s.pictureValid);
        hashes.push_back(scene.PictureHash());
    }
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(usual);
    EXPECT_EQ(hashes, std::vector<uint64_t>(4, hashes[0]));
}

TEST(Renderer, PartialRenderEqualsAFullOne) {
    RenderingScene scene;
    QLM_Object* object = AddTangle(scene, 3000);
    QLM_MaterialMapSource* map = scene.AddMap(object, 128, 128, 0, 0, 0);
    Colourize(map, 3);
    scene.SetFrontView();
    scene.Manager().DrawAllViewports();
    const uint64_t before = scene.PictureHash();

    Colourize(map, 4);
    const float everything[4] = {0, 0, 1, 1};
    QLM_GetManagers().GetObjectManager()->OnPartialSurfaceChanged(everything);
    scene.Manager().DrawAllViewports();
    EXPECT_TRUE(scene.View().r4s.PartialUpdate);
    const uint64_t partial = scene.PictureHash();
    EXPECT_NE(partial, before);
    EXPECT_FALSE(scene.Manager().AreRendersPending());
    for (const auto* leaf : object->GetMesh()->GetLeaves()) EXPECT_FALSE(leaf->Flags & eNode_Touched);
    scene.Manager().RequestFullRedraw();
    scene.Manager().DrawAllViewports();
    EXPECT_FALSE(scene.View().r4s.PartialUpdate);
    EXPECT_EQ(scene.PictureHash(), partial);
}

TEST(Renderer, OnlyTouchedLeavesAreDrawnAgain) {
    RenderingScene scene;
    QLM_Object* object = AddTangle(scene, 3000);
    QLM_MaterialMapSource* map = scene.AddMap(object, 16, 16, 9, 9, 9);
    scene.SetFrontView();
    scene.Manager().DrawAllViewports();
    const uint64_t before = scene.PictureHash();
    Colourize(map, 8);
    scene.Manager().RequestPartialRedraw();
    scene.Manager().DrawAllViewports();
    EXPECT_EQ(scene.PictureHash(), before);
}

TEST(ViewportManager, AViewChangeEndsARunningRender) {
    RenderingScene scene(1024, 768);
    QLM_Object* object = AddTangle(scene, 20000);
    Colourize(scene.AddMap(object, 256, 256, 0, 0, 0), 3);
    scene.SetFrontView();
    for (int i = 0; i < 20; ++i) {
        scene.Manager().StartRenders();
        EXPECT_TRUE(scene.Manager().AreRendersPending());
        scene.Manager().Orbit(&scene.View(), 5, 0);
        EXPECT_FALSE(scene.View().r4s.pictureValid);
        scene.Manager().OnIdle();
    }
    scene.Manager().FinishRenders();
    EXPECT_FALSE(scene.Manager().AreRendersPending());
    const uint64_t interrupted = scene.PictureHash();
    scene.Manager().OnAllViewportsChanged();
    scene.Manager().FinishRenders();
    EXPECT_EQ(scene.PictureHash(), interrupted);
}

TEST(Renderer, OddShapesAndSizesAreHarmless) {
    RenderingScene scene(8, 1);
    const float nan = std::nanf("");
    scene.AddObject({0, 0, 0, 1e30f, 0, 0, 0, 1e30f, 0, nan, 0, 0, 0, 0, 0}, {0, 0, nan, 0, 1e30f, 5, -7, 0, 0, 0},
                    {{0, 1, 2}, {0, 3, 2}, {0, 4, 0}, {0, 0, 0, 0}, {0, 1}});
    scene.SetFrontView();
    scene.Manager().DrawAllViewports();
    scene.Manager().SetCanvasSize(7, 5); // no whole eight columns
    scene.Manager().DrawAllViewports();
    std::vector<uint8_t> rgb;
    int width, height;
    scene.Manager().ReadPicture(-1, rgb, width, height);
    EXPECT_EQ(rgb, std::vector<uint8_t>(7 * 5 * 3, 128));
    scene.Manager().SetCanvasSize(16, 3);
    scene.Manager().DrawAllViewports();
    EXPECT_TRUE(scene.View().r4s.pictureValid);
}

TEST(ViewportManager, ComposesTheCanvas) {
    RenderingScene scene(516, 64);
    scene.Manager().ChangeViewportSetup(1); // 0..255 and 256..511, the last four columns free
    QLM_Object* object = scene.AddQuad();
    scene.AddMap(object, 2, 2, 1, 2, 3);
    for (int v : {0, 1}) {
        scene.SetFrontView(v);
        scene.View(v).SetZoom(scene.View(v).GetZoom() * 0.1f); // the quad fills the view
    }
    std::vector<uint8_t> rgb;
    int width, height;
    scene.Manager().ReadPicture(-1, rgb, width, height);
    ASSERT_EQ(width, 516);
    ASSERT_EQ(height, 64);
    const auto at = [&](int x, int y) {
        return Ints{rgb[(y * 516 + x) * 3], rgb[(y * 516 + x) * 3 + 1], rgb[(y * 516 + x) * 3 + 2]};
    };
    EXPECT_EQ(at(100, 30), (Ints{1, 2, 3}));
    EXPECT_EQ(at(400, 30), (Ints{1, 2, 3}));
    EXPECT_EQ(at(513, 30), (Ints{128, 128, 128}));
    for (int left : {0, 256}) {
        EXPECT_EQ(at(left, 30), (Ints{51, 51, 51}));
        EXPECT_EQ(at(left + 100, 63), (Ints{51, 51, 51}));
        EXPECT_EQ(at(left + 255, 30), (Ints{204, 204, 204}));
        EXPECT_EQ(at(left + 100, 0), (Ints{204, 204, 204}));
    }
    scene.Manager().ReadPicture(1, rgb, width, height);
    EXPECT_EQ(width, 256);
    EXPECT_EQ(rgb[0], 1);
}

} // namespace
