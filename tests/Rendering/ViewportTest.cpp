#include "Core/OS/QLM_OS.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Rendering/RenderingScene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

void ExpectNear(const float* actual, std::initializer_list<float> expected, float tolerance = 1e-6f) {
    int i = 0;
    for (float value : expected) EXPECT_NEAR(actual[i++], value, tolerance) << "component " << i - 1;
}

std::vector<int> Placement(const QLM_Viewport& v) { return {v.x, v.y, v.width, v.height, v.shown}; }

TEST(Viewport, ProjectsAndUnprojects) {
    RenderingScene scene(512, 512);
    scene.SetFrontView();
    float out[3], world[3];
    scene.View().Project(std::vector<float>{0.25f, -0.5f, 0.0f}.data(), out);
    ExpectNear(out, {0.5f, -1.0f, 0.0f});

    // With no object the depth range is 1.01 half heights, and nearer is less.
    scene.View().Project(std::vector<float>{0, 0, 0.25f}.data(), out);
    ExpectNear(out, {0, 0, -0.25f / 0.505f});

    // A quarter turn about y puts the viewer at +x; x is narrower by the aspect of 2.
    scene.Manager().SetCanvasSize(1024, 512);
    scene.Manager().SetStandardView(&scene.View(), QLM_StandardView::Right);
    const float lookAt[3] = {1, 2, 3};
    scene.View().SetLookAt(lookAt);
    scene.View().Project(std::vector<float>{1.101f, 2.25f, 2.5f}.data(), out);
    ExpectNear(out, {0.5f, 0.5f, -0.101f / 0.505f});
    scene.View().Unproject(0.5f, 0.5f, world);
    ExpectNear(world, {1.0f, 2.25f, 2.5f});
    scene.View().ViewToWorldVector(0.5f, -1.0f, world);
    ExpectNear(world, {0, -0.5f, -0.5f});

    // The inverse, for an oblique view.
    scene.Manager().Orbit(&scene.View(), 33, -21);
    const QLM_Camera& camera = scene.View().r4s.camera;
    float product[16] = {};
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            for (int k = 0; k < 4; ++k)
                product[row * 4 + column] += camera.worldToClip[row * 4 + k] * camera.clipToWorld[k * 4 + column];
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(product[i], i % 5 == 0 ? 1.0f : 0.0f, 2e-6f);
}

TEST(Viewport, DepthRangeHoldsTheScene) {
    RenderingScene scene;
    // Box 0..2, 0..0, 0..0: centre (1, 0, 0), radius 1; look-at at distance 5 of the centre.
    scene.AddObject({0, 0, 0, 2, 0, 0, 1, 0, 0}, {0, 0, 0, 0, 0, 0}, {{0, 1, 2}});
    const float lookAt[3] = {1, 3, 4};
    scene.View().SetLookAt(lookAt);
    EXPECT_NEAR(scene.View().r4s.camera.depthRange, 1.01f * 6.0f, 1e-5f);
    scene.View().SetZoom(10.0f / scene.Manager().GetPixelsPerUnit());
    EXPECT_NEAR(scene.View().r4s.camera.depthRange, 10.1f, 1e-5f);
}

TEST(Viewport, StandardViewsLookAlongTheirAxes) {
    RenderingScene scene;
    const struct {
        QLM_StandardView view;
        std::initializer_list<float> right, up, toViewer;
    } cases[] = {{QLM_StandardView::Front, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                 {QLM_StandardView::Back, {-1, 0, 0}, {0, 1, 0}, {0, 0, -1}},
                 {QLM_StandardView::Left, {0, 0, 1}, {0, 1, 0}, {-1, 0, 0}},
                 {QLM_StandardView::Right, {0, 0, -1}, {0, 1, 0}, {1, 0, 0}},
                 {QLM_StandardView::Top, {1, 0, 0}, {0, 0, -1}, {0, 1, 0}},
                 {QLM_StandardView::Bottom, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}}};
    for (const auto& c : cases) {
        scene.Manager().SetStandardView(&scene.View(), c.view);
        const float* r = scene.View().GetRotationMatrix();
        const float right[3] = {r[0], r[4], r[8]}, up[3] = {r[1], r[5], r[9]};
        ExpectNear(right, c.right);
        ExpectNear(up, c.up);
        ExpectNear(scene.View().r4s.camera.viewDirection, c.toViewer);
    }
}

TEST(ViewportManager, PlacesLayouts) {
    RenderingScene scene(800, 600);
    QLM_ViewportManager& manager = scene.Manager();
    EXPECT_EQ(Placement(scene.View(0)), (std::vector<int>{0, 0, 800, 600, 1}));
    manager.ChangeViewportSetup(5);
    EXPECT_EQ(Placement(scene.View(0)), (std::vector<int>{200, 0, 600, 600, 1}));
    EXPECT_EQ(Placement(scene.View(1)), (std::vector<int>{0, 0, 200, 200, 1}));
    EXPECT_EQ(Placement(scene.View(3)), (std::vector<int>{0, 400, 200, 200, 1}));
    EXPECT_FLOAT_EQ(scene.View(2).r4s.camera.viewDirection[0], 1.0f);
    EXPECT_FLOAT_EQ(scene.View(3).r4s.camera.viewDirection[1], 1.0f);

    // 1003 columns: 1000 in one, 62 x 8 = 496 in a half.
    manager.SetCanvasSize(1003, 601);
    manager.ChangeViewportSetup(4);
    EXPECT_EQ(Placement(scene.View(3)), (std::vector<int>{0, 0, 496, 300, 1}));
    EXPECT_EQ(Placement(scene.View(2)), (std::vector<int>{496, 0, 496, 300, 1}));
    EXPECT_EQ(Placement(scene.View(1)), (std::vector<int>{0, 300, 496, 301, 1}));
    EXPECT_EQ(Placement(scene.View(0)), (std::vector<int>{496, 300, 496, 301, 1}));
    EXPECT_EQ(manager.GetViewportAt(500, 10), &scene.View(2));
    EXPECT_EQ(manager.GetViewportAt(995, 10), nullptr);
    manager.ChangeViewportSetup(3);
    EXPECT_EQ(Placement(scene.View(0)), (std::vector<int>{496, 0, 496, 601, 1}));
    EXPECT_EQ(Placement(scene.View(2)), (std::vector<int>{0, 300, 496, 301, 1}));
    EXPECT_FALSE(scene.View(3).shown);

    // Maximized until a layout comes.
    manager.SetCurrentViewport(2);
    manager.ToggleMaximize(true);
    manager.DrawAllViewports();
    EXPECT_EQ(Placement(scene.View(2)), (std::vector<int>{0, 0, 1000, 601, 1}));
    EXPECT_FALSE(scene.View(0).shown);
    manager.ChangeViewportSetup(2);
    EXPECT_FALSE(scene.View(2).Maximized);
    EXPECT_EQ(Placement(scene.View(1)), (std::vector<int>{0, 300, 1000, 301, 1}));
    manager.ChangeViewportSetup(6);
    EXPECT_EQ(manager.layout, 2u);
}

TEST(ViewportManager, Frames) {
    RenderingScene scene(256, 512);
    QLM_ViewportManager& manager = scene.Manager();
    EXPECT_FALSE(manager.Frame(&scene.View(), QLM_FrameMode::Project));
    ASSERT_FALSE(QLM_OS::Get().recorded.empty());
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "No points have been selected.");

    // Box 2..4, 0..1, 0..2: middle (3, 0.5, 1), half diagonal 1.5; the view is half as wide as high.
    QLM_Object* object =
        scene.AddObject({2, 0, 0, 4, 0, 0, 4, 1, 2, 2, 1, 2}, {0, 0, 1, 0, 1, 1, 0, 1}, {{0, 1, 2, 3}});
    ASSERT_TRUE(manager.Frame(&scene.View(), QLM_FrameMode::Object));
    ExpectNear(scene.View().GetLookAt(), {3, 0.5f, 1});
    EXPECT_NEAR(scene.View().GetHalfHeight(), 3.0f, 1e-5f);
    EXPECT_TRUE(QLM_IsEventPending(QLM_Event_RefreshViewport));

    // One point frames as a radius of 1; a locked view keeps its zoom.
    object->GetMesh()->SetVertexFlag(2, eVFlag_Selected);
    scene.Manager().SetCanvasSize(512, 512);
    ASSERT_TRUE(manager.Frame(&scene.View(), QLM_FrameMode::Selection));
    ExpectNear(scene.View().GetLookAt(), {4, 1, 2});
    EXPECT_NEAR(scene.View().GetHalfHeight(), 1.0f, 1e-6f);
    scene.View().ViewLocked = true;
    ASSERT_TRUE(manager.Frame(&scene.View(), QLM_FrameMode::Project));
    EXPECT_NEAR(scene.View().GetHalfHeight(), 1.0f, 1e-6f);

    // A change of scale keeps what is seen.
    manager.OnGlobalScaleChanged(8.0f);
    EXPECT_FLOAT_EQ(manager.GetPixelsPerUnit(), 8.0f);
    EXPECT_NEAR(scene.View().GetHalfHeight(), 1.0f, 1e-6f);
}

TEST(ViewportManager, OrbitsTheFrontWithThePointer) {
    RenderingScene scene;
    scene.SetFrontView();
    float out[3];
    const float front[3] = {0, 0, 0.25f};
    scene.Manager().Orbit(&scene.View(), 30, 0); // sin 30 = 0.5
    scene.View().Project(front, out);
    EXPECT_NEAR(out[0], 0.25f, 1e-6f);
    EXPECT_NEAR(out[1], 0.0f, 1e-6f);
    scene.SetFrontView();
    scene.Manager().Orbit(&scene.View(), 0, 30);
    scene.View().Project(front, out);
    EXPECT_NEAR(out[0], 0.0f, 1e-6f);
    EXPECT_NEAR(out[1], -0.25f, 1e-6f);

    // Many turns leave a rotation; a locked view doesn't turn.
    for (int i = 0; i < 5000; ++i) scene.Manager().Orbit(&scene.View(), 7.3f, -3.1f);
    const float* r = scene.View().GetRotationMatrix();
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            EXPECT_NEAR(r[a] * r[b] + r[4 + a] * r[4 + b] + r[8 + a] * r[8 + b], a == b ? 1.0f : 0.0f, 1e-5f);
    const std::vector<float> before(r, r + 16);
    scene.View().ViewLocked = true;
    scene.Manager().Orbit(&scene.View(), 10, 10);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), scene.View().GetRotationMatrix()));
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "The viewport \"Main\" is locked.");
}

TEST(ViewportManager, ZoomsAroundThePointerWithinItsLimit) {
    RenderingScene scene(1024, 512);
    scene.SetFrontView();
    QLM_GetEngine()->mouseWheelSensitivity = 0.0f; // a notch is a factor of 2
    scene.Manager().WheelZoom(&scene.View(), 1, 0.5f, -0.5f);
    EXPECT_NEAR(scene.View().GetHalfHeight(), 0.25f, 1e-6f);
    float world[3];
    scene.View().Unproject(0.5f, -0.5f, world); // it was at (0.5 x 2 x 0.5, -0.25) before
    ExpectNear(world, {0.5f, -0.25f, 0});
    scene.Manager().WheelZoom(&scene.View(), 0, 0, 0);
    EXPECT_NEAR(scene.View().GetHalfHeight(), 0.25f, 1e-6f);

    scene.View().SetZoom(1.5f);
    scene.Manager().ApplyZoom(&scene.View(), 4.0f);
    EXPECT_FLOAT_EQ(scene.View().GetZoom(), 2.0f);
    scene.View().SetZoom(3.0f);
    scene.Manager().ApplyZoom(&scene.View(), 2.0f);
    EXPECT_FLOAT_EQ(scene.View().GetZoom(), 3.0f);
    scene.Manager().ApplyZoom(&scene.View(), 0.5f);
    EXPECT_FLOAT_EQ(scene.View().GetZoom(), 1.5f);
    for (float factor : {0.0f, -1.0f, std::nanf(""), INFINITY}) scene.Manager().ApplyZoom(&scene.View(), factor);
    EXPECT_FLOAT_EQ(scene.View().GetZoom(), 1.5f);
}

TEST(ViewportManager, FollowersCopyTheView) {
    RenderingScene scene;
    scene.View(1).AutoView = true;
    scene.View(1).CopyViewportIndex = 0;
    scene.View(0).AutoView = true; // a ring must not turn for ever
    scene.View(0).CopyViewportIndex = 1;
    scene.Manager().Orbit(&scene.View(0), 20, 10);
    EXPECT_TRUE(
        std::equal(scene.View(0).RotationMatrix, scene.View(0).RotationMatrix + 16, scene.View(1).RotationMatrix));
}

TEST(Viewport, RecordKeepsTheView) {
    RenderingScene scene;
    FILE* file = tmpfile();
    QLM_Viewport& from = scene.View(1);
    scene.Manager().Orbit(&from, 25, 40);
    const float lookAt[3] = {1.5f, -2, 0.25f};
    from.SetLookAt(lookAt);
    from.SetZoom(0.75f);
    from.ViewLocked = true;
    from.DisplayMode = 4;
    from.MaterialChannelName = "Bump";
    from.Filter = false;
    ASSERT_TRUE(from.SaveToStream_Text(file));
    rewind(file);
    char line[64];
    ASSERT_TRUE(fgets(line, sizeof line, file));
    EXPECT_STREQ(line, "viewport\t1\n");
    QLM_Viewport to(2);
    ASSERT_TRUE(to.LoadFromStream_Text(file, 0));
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(to.RotationMatrix[i], from.RotationMatrix[i], 1e-7f);
    ExpectNear(to.LookAt, {1.5f, -2, 0.25f});
    EXPECT_FLOAT_EQ(to.Zoom, 0.75f);
    EXPECT_TRUE(to.ViewLocked);
    EXPECT_EQ(to.DisplayMode, 4);
    EXPECT_EQ(to.MaterialChannelName, "Bump");
    EXPECT_FALSE(to.Filter);
    fclose(file);

    // Values that would spoil every picture are refused.
    for (const char* zoom : {"0", "-1", "nan"}) to.LoadFromStream_Text_ConsiderCommand(nullptr, "Zoom", zoom);
    EXPECT_FLOAT_EQ(to.Zoom, 0.75f);
    from.SetBool("excludeFromSaving", true);
    file = tmpfile();
    EXPECT_FALSE(from.SaveToStream_Text(file));
    EXPECT_EQ(ftell(file), 0);
    fclose(file);
}

TEST(ViewportManager, PicksTheNearestFrontFace) {
    RenderingScene scene(1024, 512);
    QLM_Object* far = scene.AddQuad(0.0f);
    QLM_Object* near = scene.AddObject({0, -0.5f, 0.2f, 0.5f, -0.5f, 0.2f, 0.5f, 0.5f, 0.2f, 0, 0.5f, 0.2f},
                                       {0, 0, 1, 0, 1, 1, 0, 1}, {{0, 1, 2}, {0, 2, 3}});
    scene.SetFrontView();
    QLM_PickResult hit;
    ASSERT_TRUE(scene.Manager().Pick(&scene.View(), 0.2f, 0.5f, hit)); // world (0.2, 0.25)
    EXPECT_EQ(hit.object, near);
    EXPECT_EQ(hit.polygon, 1);
    ExpectNear(hit.point, {0.2f, 0.25f, 0.2f});
    ASSERT_TRUE(scene.Manager().Pick(&scene.View(), -0.2f, 0.5f, hit));
    EXPECT_EQ(hit.object, far);
    EXPECT_FALSE(scene.Manager().Pick(&scene.View(), 0.8f, 0.5f, hit));

    // From behind there are back faces only, until an object is double-sided.
    scene.Manager().SetStandardView(&scene.View(), QLM_StandardView::Back);
    EXPECT_FALSE(scene.Manager().Pick(&scene.View(), 0.2f, 0.5f, hit));
    near->RenderDoubleSided = true;
    scene.Manager().DropPickCache();
    EXPECT_TRUE(scene.Manager().Pick(&scene.View(), -0.2f, 0.5f, hit));
    EXPECT_EQ(hit.object, near);
}

TEST(ViewportManager, ClickedPointsSnapAndFollowTheShape) {
    RenderingScene scene(512, 512);
    QLM_Object* quad = scene.AddQuad(0.0f);
    scene.SetFrontView(); // a pixel is 1/512, the quad fills the picture
    QLM_UtilityManager utility;
    float point[3];
    ASSERT_TRUE(utility.GetClickedOnPoint(point, &scene.View(), 0.5f, -0.25f, false, false));
    ExpectNear(point, {0.25f, -0.125f, 0.0f});
    EXPECT_FALSE(utility.GetClickedOnPoint(point, &scene.View(), 0.0f, 0.1f, true, false)); // far from any corner
    ASSERT_TRUE(utility.GetClickedOnPoint(point, &scene.View(), 0.9f, 0.95f, true, false));
    ExpectNear(point, {0.5f, 0.5f, 0.0f});

    // Moved to the right and nearer: the former hit is forgotten, and object space takes the move away again.
    QLM_Mesh* mesh = quad->GetMesh();
    mesh->Transform_Pos[0] = 0.25f;
    mesh->Transform_Pos[2] = 0.125f;
    QLM_GetManagers().GetObjectManager()->OnShapeChanged(quad, true, true, true);
    ASSERT_TRUE(utility.GetClickedOnPoint(point, &scene.View(), 0.5f, -0.25f, false, false));
    ExpectNear(point, {0.25f, -0.125f, 0.125f});
    ASSERT_TRUE(utility.GetClickedOnPoint(point, &scene.View(), 0.5f, -0.25f, false, true));
    ExpectNear(point, {0.0f, -0.125f, 0.0f});
    EXPECT_FALSE(utility.GetClickedOnPoint(point, &scene.View(), -0.9f, 0.0f, false, true));

    int vertex, edge;
    float a[2], b[2];
    mesh->SetVertexFlag(0, eVFlag_Locked);
    utility.GetClosestEdgeOrVertexFromViewport(mesh, &scene.View(), 0, -0.5f, -0.9f, vertex, edge, a, b, true, true);
    EXPECT_EQ(vertex, -1);
    EXPECT_EQ(edge, 2); // from corner 2 to 3, the only other one is farther
    EXPECT_FLOAT_EQ(a[0], 1.5f);
    EXPECT_FLOAT_EQ(b[0], -0.5f);
}

} // namespace
