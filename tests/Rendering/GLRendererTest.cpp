// The OpenGL road of the canvas against the software picture, in a context without a screen.

#include "Core/OS/QLM_Clock.h"
#include "Rendering/QLM_GLRenderer.h"
#include "Rendering/QLM_MeshArrays.h"
#include "Rendering/RenderingScene.h"
#include "Support/OffscreenGL.h"

#include <GL/gl.h>

#include <cmath>
#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<uint8_t>;

class GLCanvas : public testing::Test {
  protected:
    void SetUp() override {
        if (!gl.GetError().empty()) GTEST_SKIP() << gl.GetError();
        QLM_Clock::UseSteppedTime();
    }
    void TearDown() override {
        EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
        QLM_Clock::UseRealTime();
    }

    /// A ball with UVs over the whole map, a material of its own for nothing but the front.
    QLM_Object* AddBall(float x, float z, float radius) {
        constexpr int columns = 48, rows = 24;
        std::vector<float> vertices, uvs;
        std::vector<std::vector<int>> quads;
        for (int r = 0; r <= rows; ++r)
            for (int c = 0; c <= columns; ++c) {
                const float around = 6.2831853f * c / columns, up = 3.1415927f * (r - 0.5f * rows) / rows;
                vertices.insert(vertices.end(),
                                {x + radius * std::cos(up) * std::sin(around), radius * std::sin(up),
                                 z + radius * std::cos(up) * std::cos(around)});
                uvs.insert(uvs.end(), {static_cast<float>(c) / columns, static_cast<float>(r) / rows});
            }
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < columns; ++c) {
                const int a = r * (columns + 1) + c;
                quads.push_back({a, a + 1, a + columns + 2, a + columns + 1});
            }
        return scene.AddObject(vertices, uvs, quads);
    }
    void MakeGradient(QLM_MaterialMapSource* map) {
        uint8_t* p = map->GetPixels();
        for (uint32_t y = 0; y < map->GetHeight(); ++y)
            for (uint32_t x = 0; x < map->GetWidth(); ++x, p += 3) {
                p[0] = 255;
                p[1] = static_cast<uint8_t>(20 + 100 * x / map->GetWidth());
                p[2] = static_cast<uint8_t>(20 + 60 * y / map->GetHeight());
            }
        map->OnWholeMapChanged();
    }
    Bytes Draw(bool interacting) {
        QLM_GL_DrawCanvas(interacting);
        return OffscreenGL::Read(scene.Manager().GetCanvasWidth(), scene.Manager().GetCanvasHeight());
    }
    std::vector<int> PixelOf(const Bytes& rgb, int x, int y) {
        const uint8_t* p = rgb.data() + (static_cast<size_t>(y) * scene.Manager().GetCanvasWidth() + x) * 3;
        return {p[0], p[1], p[2]};
    }

    OffscreenGL gl{519, 400};
    RenderingScene scene{512, 400};
};

/// Pixels inside the frame where `rgb` shows something and the mask says otherwise, farther than a pixel from its edge;
/// `difference` is the mean over what both show.
int CompareWithSoftware(const QLM_Viewport& viewport, const Bytes& rgb, double& difference) {
    QLM_RenderState& state = const_cast<QLM_RenderState&>(viewport.r4s);
    const uint8_t *mask = state.PolygonIDMask.GetPixels(), *background = state.Background.GetPixels(),
                  *picture = state.Pixels.GetPixels();
    const int width = viewport.width, height = viewport.height;
    int wrong = 0;
    double sum = 0, count = 0;
    for (int y = 1; y < height - 1; ++y)
        for (int x = 1; x < width - 1; ++x) {
            const size_t i = static_cast<size_t>(y) * width + x;
            const bool shown = !std::equal(background + i * 3, background + i * 3 + 3, rgb.data() + i * 3);
            bool edge = false;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) edge = edge || (mask[i + dy * width + dx] != 0) != (mask[i] != 0);
            if (shown != (mask[i] != 0) && !edge) ++wrong;
            if (!shown || mask[i] == 0) continue;
            for (int c = 0; c < 3; ++c) sum += std::abs(picture[i * 4 + c] - rgb[i * 3 + c]);
            count += 3;
        }
    difference = count > 0 ? sum / count : 255;
    return wrong;
}

TEST_F(GLCanvas, AtRestIsTheSoftwarePicture) {
    QLM_Object* ball = AddBall(0, 0, 0.4f);
    MakeGradient(scene.AddMap(ball, 64, 64, 0, 0, 0));
    for (const auto& [layout, width] : {std::pair(0u, 519), std::pair(4u, 403), std::pair(5u, 512)}) {
        scene.Manager().SetCanvasSize(width, 301);
        scene.Manager().ChangeViewportSetup(layout);
        for (int i = 0; i < 4; ++i) scene.SetFrontView(i);
        Bytes software;
        int w, h;
        scene.Manager().ReadPicture(-1, software, w, h);
        EXPECT_TRUE(Draw(false) == software) << layout;
        EXPECT_EQ(w, width);
    }
}

TEST_F(GLCanvas, PolygonsAgreeWithTheSoftwarePicture) {
    QLM_Object* ball = AddBall(-0.1f, 0, 0.3f);
    MakeGradient(scene.AddMap(ball, 256, 256, 0, 0, 0));
    MakeGradient(scene.AddMap(AddBall(0.2f, 0.15f, 0.2f), 128, 128, 0, 0, 0));
    QLM_Object* plain = scene.AddQuad(-0.6f); // no map: its material's colour
    const float color[3] = {0.9f, 0.1f, 0.1f};
    std::copy_n(color, 3, plain->GetMesh()->GetMaterials()[0]->Color->Color);
    scene.SetFrontView();
    for (const auto& [dx, dy] : {std::pair(0.0f, 0.0f), std::pair(40.0f, 25.0f), std::pair(200.0f, -10.0f)}) {
        for (bool smooth : {true, false}) {
            scene.View().Smooth = smooth;
            scene.Manager().Orbit(&scene.View(), dx, dy);
            scene.Manager().FinishRenders();
            double difference = 0;
            EXPECT_EQ(CompareWithSoftware(scene.View(), Draw(true), difference), 0) << dx << " " << smooth;
            EXPECT_LT(difference, 3.0) << dx << " " << smooth;
        }
    }
}

TEST_F(GLCanvas, BackFacesShowOnDoubleSidedObjectsOnly) {
    QLM_Object* quad = scene.AddQuad();
    scene.AddMap(quad, 8, 8, 250, 10, 10);
    scene.SetFrontView();
    EXPECT_EQ(PixelOf(Draw(true), 256, 200), (std::vector<int>{250, 10, 10}));
    scene.Manager().Orbit(&scene.View(), 180, 0);
    EXPECT_NE(PixelOf(Draw(true), 256, 200)[0], 250);
    quad->RenderDoubleSided = true;
    // From behind it is as bright as from the front.
    EXPECT_EQ(PixelOf(Draw(true), 256, 200), (std::vector<int>{250, 10, 10}));
}

TEST_F(GLCanvas, FollowsShapesAndMaps) {
    QLM_Object* quad = scene.AddQuad();
    QLM_MaterialMapSource* map = scene.AddMap(quad, 8, 8, 250, 10, 10);
    scene.SetFrontView();
    ASSERT_EQ(PixelOf(Draw(true), 256, 30)[1], 10);
    std::fill_n(map->GetPixels(), map->GetByteCount(), uint8_t{77});
    map->OnWholeMapChanged();
    EXPECT_EQ(PixelOf(Draw(true), 256, 30)[1], 77);
    // The lower edge moves up to the middle, 200 pixels from below.
    quad->GetMesh()->Vertices[0][1] = quad->GetMesh()->Vertices[1][1] = 0.0f;
    QLM_GetManagers().GetObjectManager()->OnShapeChanged(quad, true, true, true);
    const Bytes moved = Draw(true);
    EXPECT_NE(PixelOf(moved, 256, 190)[1], 77);
    EXPECT_EQ(PixelOf(moved, 256, 210)[1], 77);
}

TEST_F(GLCanvas, TheLastPictureStaysWhileTheNextIsMade) {
    QLM_MaterialMapSource* map = scene.AddMap(scene.AddQuad(), 8, 8, 250, 10, 10);
    scene.SetFrontView();
    scene.Manager().FinishRenders();
    const Bytes before = Draw(false);
    std::fill_n(map->GetPixels(), map->GetByteCount(), uint8_t{77});
    map->OnWholeMapChanged();
    scene.Manager().RequestFullRedraw();
    EXPECT_TRUE(Draw(false) == before);
    scene.Manager().FinishRenders();
    EXPECT_EQ(PixelOf(Draw(false), 256, 200)[1], 77);
    // Of another view there is no picture: polygons stand in.
    scene.Manager().ApplyZoom(&scene.View(), 2.0f);
    const Bytes zoomed = Draw(false);
    EXPECT_EQ(PixelOf(zoomed, 256, 200)[1], 77);
    EXPECT_NE(PixelOf(zoomed, 256, 90)[1], 77);
}

TEST_F(GLCanvas, ViewsOnTheMoveWaitForTheirPicture) {
    scene.AddQuad();
    scene.SetFrontView();
    scene.Manager().FinishRenders();
    QLM_Clock::Step(0.31);
    EXPECT_FALSE(scene.Manager().IsInteracting());
    scene.Manager().ApplyZoom(&scene.View(), 0.9f);
    EXPECT_TRUE(scene.Manager().IsInteracting());
    scene.Manager().OnIdle();
    scene.Manager().OnIdle();
    EXPECT_FALSE(scene.View().r4s.pictureValid);
    QLM_Clock::Step(0.31);
    EXPECT_FALSE(scene.Manager().IsInteracting());
    scene.Manager().OnIdle();
    // Pass by pass, as the render's thread gets on.
    while (scene.Manager().AreRendersPending()) scene.Manager().OnIdle();
    EXPECT_TRUE(scene.View().r4s.pictureValid);
}

TEST(MeshArrays, ShareVerticesAndSkipWhatCannotBeDrawn) {
    RenderingScene scene;
    // Two quads that share an edge and its texture vertices, a line, and a triangle with a place that is no number.
    QLM_Object* object = scene.AddObject({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 0, 0, 2, 1, 0, 3, 0, 0},
                                         {0, 0, 1, 0, 1, 1, 0, 1, 0, 0, 0, 1, 0, 0},
                                         {{0, 1, 2, 3}, {1, 4, 5, 2}, {0, 1}, {0, 1, 6}});
    object->GetMesh()->ResolvedVertices[6][1] = NAN;
    const QLM_MeshArrays smooth(*object->GetMesh(), true);
    EXPECT_EQ(smooth.vertices.size(), 6u);
    EXPECT_EQ(smooth.indices.size(), 12u);
    size_t inBatches = 0;
    for (const auto& batch : smooth.batches) {
        EXPECT_EQ(batch.material, 0);
        EXPECT_EQ(batch.first, inBatches);
        inBatches += batch.count;
    }
    EXPECT_EQ(inBatches, 12u);
    // Flat ones have a normal for each polygon.
    EXPECT_EQ(QLM_MeshArrays(*object->GetMesh(), false).vertices.size(), 8u);
}

} // namespace
