// Tools in a whole program: switching, brush adjustment, axis lock, the wheel and the three views.

#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Support/TestScene.h"
#include "Tools/QLM_ToolManager.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

class DirectedTool : public QLM_Tool {
  public:
    void InitializeParameters() override {
        auto* group = new QLM_Parameter(QLM_ParameterType::BoolGroup, "", "", nullptr);
        const struct {
            const char* label;
            bool* value;
        } rows[] = {{"Horiz", &Horizontal}, {"Vert", &Vertical}};
        for (const auto& row : rows)
            group->Children.push_back(new QLM_Parameter(QLM_ParameterType::Bool, row.label, "", row.value));
        Parameters.push_back(group);
    }
};

class Tools : public testing::Test {
  protected:
    Tools() : manager(*QLM_GetManagers().GetToolManager()) {
        QLM_OS::Get().shiftDown = QLM_OS::Get().altDown = false;
        QLM_SetPressure(1.0f);
        manager.SelectToolByName("ColorBrush");
        manager.GetCurrentTool()->Properties() = QLM_BrushProperties{};
    }
    ~Tools() override {
        QLM_OS::Get().shiftDown = QLM_OS::Get().altDown = false;
        manager.SelectToolByName("ColorBrush");
    }
    TestScene scene;
    QLM_ToolManager& manager;
};

TEST_F(Tools, SelectingTellsTheUserAndKeepsTheWayBack) {
    QLM_Tool* const brush = manager.GetCurrentTool();
    ASSERT_TRUE(manager.SelectToolByName("ZoomView"));
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "Using the \"ZoomView\" tool.");
    EXPECT_EQ(manager.GetToolName(manager.GetCurrentTool()), "ZoomView");
    EXPECT_TRUE(manager.SelectToolByName("MoveView"));
    EXPECT_FALSE(manager.SelectToolByName("NoSuchTool"));
    EXPECT_EQ(manager.GetToolName(manager.GetCurrentTool()), "MoveView");
    manager.SelectPreviousTool(); // from a view tool back to the work
    EXPECT_EQ(manager.GetCurrentTool(), brush);
    manager.SelectPreviousTool();
    EXPECT_EQ(manager.GetToolName(manager.GetCurrentTool()), "MoveView");
    // A disabled tool refuses without a word.
    brush->Disable();
    EXPECT_FALSE(manager.SelectToolByName("ColorBrush"));
    EXPECT_EQ(manager.GetToolName(manager.GetCurrentTool()), "MoveView");
    brush->Enable();
}

TEST_F(Tools, ListsCountToolsAndSkipSeparators) {
    QLM_ToolManager own;
    own.RegisterTool("List", "A", [] { return new QLM_Brush; });
    own.RegisterTool("List", "", nullptr);
    own.RegisterTool("List", "B", [] { return new QLM_Brush; });
    own.Initialize();
    QLM_ToolList* list = own.GetLists()[0];
    ASSERT_EQ(list->Count(), 3);
    EXPECT_EQ(own.GetAllTools().size(), 2u);
    EXPECT_EQ(own.GetCurrentTool(), own.FindTool("A"));
    EXPECT_TRUE(own.SelectToolByIndex(list, 1));
    EXPECT_EQ(own.GetCurrentTool(), own.FindTool("B"));
    EXPECT_EQ(list->currentIndex, 1);
    EXPECT_FALSE(own.SelectToolByIndex(list, 2));
    EXPECT_FALSE(own.SelectToolByIndex(list, -1));
}

TEST_F(Tools, PaintBrushesShareTheirPropertiesAndParameters) {
    QLM_Tool* brush = manager.GetCurrentTool();
    std::string error;
    QLM_Parameter* size = brush->FindParameterByName("Size");
    ASSERT_TRUE(size);
    EXPECT_EQ(size, brush->FindParameterByValue(&brush->Properties().Size));
    EXPECT_TRUE(size->SetValueFromText("0.4", error));
    EXPECT_FLOAT_EQ(brush->GetSize(), 0.4f);
    EXPECT_FLOAT_EQ(brush->GetEffectiveSize(), 0.4f); // a paint brush works the pressure into its stamps
    EXPECT_EQ(brush->FindParameterByName("Angle")->Maximum, 360.0f);
    EXPECT_TRUE(brush->FindParameterByName("Stroke Smoothing"));
    EXPECT_FALSE(brush->FindParameterByName("Nothing"));
    QLM_Brush other;
    EXPECT_NE(other.GetSize(), 0.4f);
    EXPECT_FLOAT_EQ(other.GetSpacing(), 0.1f);
    EXPECT_FLOAT_EQ(QLM_Tool().GetSpacing(), 0.05f);
}

TEST_F(Tools, EffectiveValuesFollowThePen) {
    QLM_Engine* engine = QLM_GetEngine();
    const bool before[4] = {engine->tabletPressureVariesStrength, engine->tabletPressureVariesDensity,
                            engine->tabletPressureVariesHardness, engine->tabletPressureVariesPseudoSize};
    QLM_Brush brush;
    brush.Properties() = {.Size = 0.5f, .Hardness = 0.8f, .Strength = 0.6f, .Density = 0.4f};
    brush.Pressure = 0.5f;
    engine->tabletPressureVariesStrength = engine->tabletPressureVariesDensity = engine->tabletPressureVariesHardness =
        engine->tabletPressureVariesPseudoSize = true;
    EXPECT_FLOAT_EQ(brush.GetEffectiveStrength(), 0.3f);
    EXPECT_FLOAT_EQ(brush.GetEffectiveSize(), 0.25f);
    EXPECT_FLOAT_EQ(brush.GetEffectiveHardness(), 0.4f);
    EXPECT_FLOAT_EQ(brush.GetEffectiveDensity(), 0.2f);
    brush.Pressure = 0.0f;
    EXPECT_FLOAT_EQ(brush.GetEffectiveSize(), 0.01f);
    engine->tabletPressureVariesStrength = before[0];
    engine->tabletPressureVariesDensity = before[1];
    engine->tabletPressureVariesHardness = before[2];
    engine->tabletPressureVariesPseudoSize = before[3];
    EXPECT_FLOAT_EQ(brush.GetEffectiveStrength(), before[0] ? 0.0f : 0.6f);
    brush.Properties() = QLM_BrushProperties{.Spacing = 0.1f};
}

TEST_F(Tools, OneDirectionStaysOnAndPinsThePoint) {
    DirectedTool tool;
    tool.RebuildParameters();
    EXPECT_EQ(tool.Parameters[0]->GetString("INTERNAL_PARAMETER_NAME"), "HorizVert");
    ASSERT_TRUE(tool.FindParameterByName("HorizVert/Vert"));
    tool.OnMouse(scene.GetViewport(), 0, QLM_Tool::Press, 0.1f, 0.2f);
    std::string error;
    EXPECT_TRUE(tool.FindParameterByName("HorizVert/Horiz")->SetValueFromText("off", error));
    float x = 0.5f, y = 0.6f;
    tool.ConstrainPoint(x, y);
    EXPECT_EQ(x, 0.1f);
    EXPECT_EQ(y, 0.6f);
    EXPECT_TRUE(tool.FindParameterByName("HorizVert/Vert")->SetValueFromText("off", error));
    EXPECT_TRUE(tool.Vertical);
    EXPECT_FALSE(tool.Horizontal);
}

TEST_F(Tools, AdjustmentModeTakesTheDragForAProperty) {
    QLM_Tool* brush = manager.GetCurrentTool();
    brush->Properties().Size = 0.25f;
    manager.SetBrushAdjustmentMode(1);
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "Click an drag in the viewport to adjust the brush setting.");
    EXPECT_FALSE(brush->OnMouse(scene.GetViewport(), 0, QLM_Tool::Press, 0.0f, -0.5f));
    EXPECT_EQ(brush->GetSize(), 0.25f);
    EXPECT_FALSE(brush->OnMotion(scene.GetViewport(), 0.0f, 0.0f)); // 0.25 + 0.5
    EXPECT_NEAR(brush->GetSize(), 0.75f, 1e-6f);
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "Size = 75.0");
    brush->OnMotion(scene.GetViewport(), 0.0f, -0.9f); // below 0
    EXPECT_EQ(brush->GetSize(), 0.0f);
    brush->OnMotion(scene.GetViewport(), 0.0f, -0.4995f); // 0.2505: thousandths are cut
    EXPECT_NEAR(brush->GetSize(), 0.25f, 1e-6f);
    EXPECT_FALSE(brush->OnMouse(scene.GetViewport(), 0, QLM_Tool::Release, 0.0f, -0.4995f));
    EXPECT_EQ(manager.brushAdjustmentMode, 0);

    brush->Properties().Angle = 90.0f;
    manager.SetBrushAdjustmentMode(4);
    brush->OnMouse(scene.GetViewport(), 0, QLM_Tool::Press, 0.0f, 0.0f);
    brush->OnMotion(scene.GetViewport(), 0.0f, 0.25f);
    EXPECT_NEAR(brush->GetAngle(), 180.0f, 1e-3f);
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "Angle = 180.0");
    brush->OnMouse(scene.GetViewport(), 0, QLM_Tool::Release, 0.0f, 0.25f);
    QLM_ProcessEvents();
}

TEST_F(Tools, ShiftLocksAnAxisOnceAndOnlyEarly) {
    QLM_Brush brush;
    brush.ToolFlags |= eTool_ShiftLocksAxis;
    const auto press = [&](bool shift) {
        QLM_OS::Get().shiftDown = shift;
        brush.OnMouse(scene.GetViewport(), 0, QLM_Tool::Press, 0.1f, 0.1f);
        brush.OnMotion(scene.GetViewport(), 0.1f, 0.1f); // as a stroke's press does
    };
    press(true);
    EXPECT_FALSE(brush.LockToX || brush.LockToY);
    brush.OnMotion(scene.GetViewport(), 0.4f, 0.2f);
    EXPECT_TRUE(brush.LockToX);
    EXPECT_EQ(brush.CurrentY, 0.1f);
    brush.OnMotion(scene.GetViewport(), 0.5f, 0.9f); // no second thought
    EXPECT_FALSE(brush.LockToY);
    EXPECT_EQ(brush.CurrentX, 0.5f);
    EXPECT_EQ(brush.CurrentY, 0.1f);

    press(true);
    brush.OnMotion(scene.GetViewport(), 0.2f, -0.4f);
    EXPECT_TRUE(brush.LockToY);
    EXPECT_EQ(brush.CurrentX, 0.1f);

    press(false);
    brush.OnMotion(scene.GetViewport(), 0.2f, 0.1f);
    QLM_OS::Get().shiftDown = true;
    brush.OnMotion(scene.GetViewport(), 0.5f, 0.2f);
    EXPECT_FALSE(brush.LockToX || brush.LockToY);
    EXPECT_EQ(brush.MotionCount, 3);
}

TEST_F(Tools, TheWheelNudgesThePropertyThatItsFlagsName) {
    QLM_Engine* engine = QLM_GetEngine();
    const QLM_WheelFlags before = engine->wheelFlags;
    const float sensitivity = engine->mouseWheelSensitivity;
    engine->mouseWheelSensitivity = 1.0f; // a step of 0.01
    QLM_BrushProperties& properties = manager.GetCurrentTool()->Properties();
    properties.Strength = properties.Density = properties.Hardness = 0.5f;
    engine->wheelFlags = {};
    engine->wheelFlags.navZoom = false;
    engine->Wheel(1.0f, 256, 256);
    scene.Settle();
    EXPECT_EQ(properties.Strength, 0.5f); // no flag, no effect
    engine->wheelFlags.varyDensity = engine->wheelFlags.varyHardness = true;
    engine->Wheel(1.0f, 256, 256);
    scene.Settle();
    EXPECT_FLOAT_EQ(properties.Density, 0.51f);
    EXPECT_EQ(properties.Hardness, 0.5f);
    engine->wheelFlags.varyStrength = true;
    engine->Wheel(-1.0f, 256, 256);
    scene.Settle();
    EXPECT_FLOAT_EQ(properties.Strength, 0.49f);
    properties.Strength = 0.995f;
    engine->Wheel(1.0f, 256, 256);
    scene.Settle();
    EXPECT_EQ(properties.Strength, 1.0f);
    engine->wheelFlags = before;
    engine->mouseWheelSensitivity = sensitivity;
}

TEST_F(Tools, MoveKeepsTheGrabbedPointUnderThePointer) {
    scene.SetView(2.0f);
    ASSERT_TRUE(manager.SelectToolByName("MoveView"));
    QLM_Viewport* viewport = scene.GetViewport();
    float grabbed[3], after[3];
    viewport->Unproject(0.25f, 0.5f, grabbed);
    QLM_Tool* tool = manager.GetCurrentTool();
    ASSERT_TRUE(tool->OnMouse(viewport, 0, QLM_Tool::Press, 0.25f, 0.5f));
    tool->OnMotion(viewport, -0.25f, 0.125f);
    viewport->Unproject(-0.25f, 0.125f, after);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(after[i], grabbed[i], 1e-5f);
    EXPECT_NEAR(viewport->GetLookAt()[0], 1.0f, 1e-5f); // half of 2 world units to the left
    EXPECT_NEAR(viewport->GetLookAt()[1], 0.75f, 1e-5f);
    tool->OnMouse(viewport, 0, QLM_Tool::Release, -0.25f, 0.125f);

    viewport->ViewLocked = true;
    EXPECT_FALSE(tool->OnMouse(viewport, 0, QLM_Tool::Press, 0, 0));
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "The viewport \"Main\" is locked.");
    tool->OnMotion(viewport, 0.5f, 0.5f);
    EXPECT_NEAR(viewport->GetLookAt()[0], 1.0f, 1e-5f);
    viewport->ViewLocked = false;
}

TEST_F(Tools, RotateTurnsTheFrontWithThePointer) {
    scene.SetView(1.0f);
    ASSERT_TRUE(manager.SelectToolByName("RotateView"));
    QLM_Viewport* viewport = scene.GetViewport();
    QLM_Tool* tool = manager.GetCurrentTool();
    tool->OnMouse(viewport, 0, QLM_Tool::Press, -0.5f, 0);
    tool->OnMotion(viewport, 0.1f, 0.3f);
    // 450 pixels to the right are 90 degrees: what was in front goes to the right.
    tool->OnMotion(viewport, -0.5f + 450.0f / 256.0f, 0);
    const float front[3] = {0, 0, 1};
    float screen[3];
    viewport->Project(front, screen);
    EXPECT_NEAR(screen[0], 1.0f, 1e-5f);
    EXPECT_NEAR(screen[1], 0.0f, 1e-5f);
    tool->OnMouse(viewport, 0, QLM_Tool::Release, 0, 0);
}

TEST_F(Tools, ZoomTakesAClickOrARectangle) {
    scene.SetView(1.0f);
    ASSERT_TRUE(manager.SelectToolByName("ZoomView"));
    QLM_Viewport* viewport = scene.GetViewport();
    QLM_Tool* tool = manager.GetCurrentTool();
    const float zoom = viewport->GetZoom();
    tool->OnMouse(viewport, 0, QLM_Tool::Press, 0.5f, 0.25f);
    tool->OnMouse(viewport, 0, QLM_Tool::Release, 0.5f, 0.25f);
    EXPECT_NEAR(viewport->GetZoom(), zoom * 0.5f, 1e-6f);
    EXPECT_NEAR(viewport->GetLookAt()[0], 0.5f, 1e-6f);
    EXPECT_NEAR(viewport->GetLookAt()[1], 0.25f, 1e-6f);
    QLM_OS::Get().altDown = true;
    tool->OnMouse(viewport, 0, QLM_Tool::Press, 0, 0);
    tool->OnMouse(viewport, 0, QLM_Tool::Release, 0, 0);
    EXPECT_NEAR(viewport->GetZoom(), zoom, 1e-6f);
    QLM_OS::Get().altDown = false;

    scene.SetView(1.0f);
    const auto drag = [&](float pixels, double seconds) {
        tool->OnMouse(viewport, 0, QLM_Tool::Press, 0, 0);
        QLM_Clock::Step(seconds);
        tool->OnMouse(viewport, 0, QLM_Tool::Release, pixels / 256.0f, pixels / 256.0f);
    };
    drag(8, 1.0); // 8 pixels are a click
    EXPECT_NEAR(viewport->GetZoom(), zoom * 0.5f, 1e-6f);
    scene.SetView(1.0f);
    drag(128, 0.2); // so is a quick one
    EXPECT_NEAR(viewport->GetZoom(), zoom * 0.5f, 1e-6f);
    scene.SetView(1.0f);
    drag(128, 1.0); // half extents 0.25 about (0.25, 0.25)
    EXPECT_NEAR(viewport->GetZoom(), zoom * 0.25f, 1e-6f);
    EXPECT_NEAR(viewport->GetLookAt()[0], 0.25f, 1e-6f);

    scene.SetView(1.0f);
    QLM_GetEngine()->continuousZoom = true;
    tool->OnMouse(viewport, 0, QLM_Tool::Press, 0, 0);
    tool->OnMotion(viewport, 0, 0.5f);
    EXPECT_NEAR(viewport->GetZoom(), zoom * std::exp(-0.5f), 1e-5f);
    tool->OnMotion(viewport, 0, 9.0f);
    EXPECT_NEAR(viewport->GetZoom(), zoom * 0.1f, 1e-6f);
    tool->OnMouse(viewport, 0, QLM_Tool::Release, 0, 9.0f);
    EXPECT_NEAR(viewport->GetZoom(), zoom * 0.1f, 1e-6f);
    QLM_GetEngine()->continuousZoom = false;
}

} // namespace
