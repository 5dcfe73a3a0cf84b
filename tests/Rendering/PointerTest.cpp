#include "Rendering/RenderingScene.h"
#include "Tools/QLM_ToolManager.h"

#include <gtest/gtest.h>

namespace {

/// Writes down what it is told.
class RecordingTool : public QLM_Tool {
  public:
    bool OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) override {
        Note(action == Press ? "press" : "release", viewport, x, y);
        pictureValidAtPress = pictureValidAtPress || (action == Press && viewport->r4s.pictureValid);
        return QLM_Tool::OnMouse(viewport, button, action, x, y);
    }
    bool OnMotion(QLM_Viewport* viewport, float x, float y) override {
        Note("motion", viewport, x, y);
        CurrentX = x;
        CurrentY = y;
        return true;
    }
    void OnPassiveMotion(QLM_Viewport* viewport, float x, float y) override { Note("pass", viewport, x, y); }
    void Note(const char* what, QLM_Viewport* viewport, float x, float y) {
        notes.push_back(QLM_FormatText("%s %d %.3f %.3f", what, viewport->index, x, y));
    }
    std::vector<std::string> notes;
    bool pictureValidAtPress = false;
};

using Notes = std::vector<std::string>;

TEST(Pointer, Normalises) {
    RenderingScene scene(800, 600);
    scene.Manager().ChangeViewportSetup(5); // viewport 0 from column 200, 600 x 600
    float x, y;
    QLM_ViewportManager::Normalise(scene.View(0), 200, 0, x, y);
    EXPECT_FLOAT_EQ(x, -1);
    EXPECT_FLOAT_EQ(y, 1);
    QLM_ViewportManager::Normalise(scene.View(0), 650, 450, x, y);
    EXPECT_FLOAT_EQ(x, 0.5f);
    EXPECT_FLOAT_EQ(y, -0.5f);
}

class PointerRoad : public testing::Test {
  protected:
    void SetUp() override {
        scene.Manager().ChangeViewportSetup(1); // 0..255 and 256..511
        tool = new RecordingTool;
        tools().RegisterTool("Paint Tools", "Recording", [this] { return tool; });
        tools().Initialize();
        ASSERT_EQ(tools().GetCurrentTool(), tool);
    }
    static QLM_ToolManager& tools() { return *QLM_GetManagers().GetToolManager(); }
    RenderingScene scene{512, 256};
    RecordingTool* tool = nullptr;
};

TEST_F(PointerRoad, TheViewportOfThePressKeepsThePointer) {
    tool->ToolFlags &= ~eTool_AnyViewport;
    scene.Manager().PointerMove(64, 64);
    scene.Manager().PointerPress(0, 128, 128);
    EXPECT_TRUE(tool->pictureValidAtPress);
    EXPECT_EQ(scene.Manager().mouseViewport, 0);
    EXPECT_FALSE(scene.Manager().PointerPress(2, 400, 128));
    const float zoom = scene.View().GetZoom();
    scene.Manager().WheelZoom(&scene.View(), 1, 0, 0); // would move the view away under a stroke
    EXPECT_EQ(scene.View().GetZoom(), zoom);
    scene.Manager().PointerMove(384, 64);
    scene.Manager().PointerRelease(2, 384, 64);
    scene.Manager().PointerRelease(0, 384, 128);
    EXPECT_EQ(tool->notes,
              (Notes{"pass 0 -0.500 0.500", "press 0 0.000 0.000", "motion 0 2.000 0.500", "release 0 2.000 0.000"}));
    EXPECT_EQ(scene.Manager().mouseViewport, -1);

    tool->notes.clear();
    tool->ToolFlags |= eTool_AnyViewport;
    scene.Manager().PointerPress(0, 128, 128);
    scene.Manager().PointerMove(384, 64);
    scene.Manager().PointerRelease(0, 384, 64);
    EXPECT_EQ(tool->notes[1], "motion 1 0.000 0.500");

    tool->notes.clear();
    tool->ToolFlags &= ~eTool_TakesMotion;
    scene.Manager().PointerPress(0, 384, 128);
    EXPECT_EQ(scene.Manager().GetCurrentViewport()->index, 1);
    scene.Manager().PointerMove(390, 64);
    scene.Manager().PointerRelease(0, 390, 64);
    EXPECT_EQ(tool->notes.size(), 2u);
    EXPECT_FALSE(scene.Manager().PointerPress(0, 600, 10));
}

TEST_F(PointerRoad, MirroredMotionsFollow) {
    tools().mirrorX = tools().mirrorY = true;
    const auto drag = [&](uint32_t set, uint32_t clear) {
        tool->notes.clear();
        tool->ToolFlags = (tool->ToolFlags | set) & ~clear;
        scene.Manager().PointerPress(0, 128, 128);
        scene.Manager().PointerMove(192, 96);
        scene.Manager().PointerRelease(0, 192, 96);
        Notes motions(tool->notes.begin() + 1, tool->notes.end() - 1);
        return motions;
    };
    EXPECT_EQ(
        drag(eTool_MirroredStrokes, eTool_NoMirrorEvents),
        (Notes{"motion 0 0.500 0.250", "motion 0 -0.500 0.250", "motion 0 0.500 -0.250", "motion 0 -0.500 -0.250"}));
    EXPECT_FLOAT_EQ(tool->CurrentX, 0.5f);
    EXPECT_EQ(drag(eTool_NoMirrorEvents, 0), (Notes{"motion 0 0.500 0.250"}));
    EXPECT_EQ(drag(0, eTool_MirroredStrokes | eTool_NoMirrorEvents), (Notes{"motion 0 0.500 0.250"}));
    tools().mirrorY = false;
    EXPECT_EQ(drag(eTool_MirroredStrokes, 0), (Notes{"motion 0 0.500 0.250", "motion 0 -0.500 0.250"}));
}

} // namespace
