#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

std::string heard;

/// A tool that writes down what reaches it. A view tool, so that a press renders nothing.
class ProbeTool : public QLM_Tool {
  public:
    bool IsViewTool() const override { return true; }
    QLM_BrushProperties& Properties() const override { return properties; }
    void InitializeParameters() override {
        const std::pair<const char*, float*> sliders[] = {{"Size", &properties.Size},
                                                          {"Hardness", &properties.Hardness},
                                                          {"Strength", &properties.Strength},
                                                          {"Density", &properties.Density},
                                                          {"Angle", &properties.Angle}};
        for (const auto& [label, value] : sliders)
            Parameters.Add(new QLM_Parameter(QLM_ParameterType::Float, label, "", value));
        Parameters.back()->Maximum = 360.0f;
    }
    bool OnMouse(QLM_Viewport*, int button, int action, float x, float y) override {
        heard += QLM_FormatText("mouse %d %d %.2f %.2f;", button, action, x, y);
        return true;
    }
    bool OnKey(int code) override {
        heard += QLM_FormatText("key %d;", code);
        return code == 27;
    }
    mutable QLM_BrushProperties properties;
};

class InputTest : public ::testing::Test {
  protected:
    void SetUp() override {
        heard.clear();
        QLM_OS::Get().mouseButtonsDown = 0;
        QLM_InitializeEvents();
        QLM_EngineParts parts;
        parts.createManagers = [](QLM_Managers& managers) {
            managers.Add(&QLM_Managers::culling, new QLM_CullingManager);
            managers.Add(&QLM_Managers::viewport, new QLM_ViewportManager);
            managers.Add(&QLM_Managers::tool, new QLM_ToolManager);
            managers.tool->RegisterTool("Probes", "Probe", [] { return new ProbeTool; });
        };
        QLM_ShellCallbacks shell;
        shell.isModal = [this] { return modal; };
        QLM_CreateEngine("Quillmere", parts, shell, false);
        engine = QLM_GetEngine();
        engine->SignalReadyToExecute();
        viewports = QLM_GetManagers().GetViewportManager();
        viewports->SetCanvasSize(800, 600);
        view = viewports->GetViewport(0);
        tool = dynamic_cast<ProbeTool*>(QLM_GetManagers().GetToolManager()->GetCurrentTool());
        ASSERT_NE(tool, nullptr);
        QLM_ProcessEvents();
        QLM_ProcessEvents();
        QLM_OS::Get().recorded.clear();
    }
    void TearDown() override {
        QLM_OS::Get().mouseButtonsDown = 0;
        engine->ShutDown();
    }
    void Send(int32_t type, bool fromWheel = false, uint32_t target = 0) {
        QLMEvent event(target, type);
        event.ints[0] = fromWheel;
        QLM_DispatchEvent(event);
    }
    static std::string LastMessage() {
        const auto& all = QLM_OS::Get().recorded;
        return all.empty() ? "" : all.back().text;
    }

    bool modal = false;
    QLM_Engine* engine = nullptr;
    QLM_ViewportManager* viewports = nullptr;
    QLM_Viewport* view = nullptr;
    ProbeTool* tool = nullptr;
};

} // namespace

TEST_F(InputTest, PointerAndKeysReachTheToolUnlessABoxIsOpen) {
    QLM_KeyModifiers shift;
    shift.shift = true;
    EXPECT_TRUE(engine->PointerPress(QLM_Engine::Button::Left, 400, 300, shift));
    EXPECT_EQ(QLM_OS::Get().mouseButtonsDown, 1);
    EXPECT_TRUE(QLM_OS::Get().shiftDown);
    EXPECT_FALSE(engine->Key(27, {})); // keys are off during a drag
    EXPECT_FALSE(QLM_OS::Get().shiftDown);
    modal = true; // the release still ends the drag
    engine->PointerRelease(QLM_Engine::Button::Left, 600, 150);
    EXPECT_EQ(heard, "mouse 0 0 0.00 0.00;mouse 0 1 0.50 0.50;");

    heard.clear();
    EXPECT_FALSE(engine->PointerPress(QLM_Engine::Button::Right, 10, 10, {}));
    engine->PointerRelease(QLM_Engine::Button::Right, 10, 10);
    EXPECT_FALSE(engine->Key(27, {}));
    EXPECT_EQ(heard, "");
    modal = false;
    EXPECT_TRUE(engine->Key(27, {}));
    EXPECT_FALSE(engine->Key(13, {}));
    EXPECT_EQ(heard, "key 27;key 13;");
    EXPECT_EQ(QLM_OS::Get().mouseButtonsDown, 0);
}

TEST_F(InputTest, TheFirstWheelFlagDecides) {
    const float zoom = view->GetZoom();
    engine->wheelFlags = {true, true, true, true, true};
    const int32_t down[] = {QLM_Event_StrengthDown, QLM_Event_SizeDown, QLM_Event_DensityDown, QLM_Event_HardnessDown};
    bool* const flags[] = {&engine->wheelFlags.varyStrength, &engine->wheelFlags.varySize,
                           &engine->wheelFlags.varyDensity, &engine->wheelFlags.varyHardness};
    for (int i = 0; i < 4; ++i) {
        engine->Wheel(1, 400, 300);
        engine->Wheel(-2, 400, 300);
        EXPECT_EQ(QLM_PendingEventText(),
                  QLM_FormatText("event %d, event %d, event %d", down[i] - 1, down[i], down[i]));
        QLM_ProcessEvents();
        QLM_ProcessEvents();
        *flags[i] = false;
    }
    EXPECT_EQ(view->GetZoom(), zoom);
    engine->Wheel(1, 400, 300); // sensitivity 0.5: a notch is 2 x 0.5 + 1.05 x 0.5 = 1.525
    EXPECT_NEAR(view->GetZoom(), zoom / 1.525f, 1e-5f);
    engine->Wheel(-1, 400, 300);
    EXPECT_NEAR(view->GetZoom(), zoom, 1e-5f);
    engine->Wheel(0, 400, 300);
    engine->Wheel(1, 900, 300); // off the canvas
    engine->wheelFlags.navZoom = false;
    engine->Wheel(1, 400, 300);
    EXPECT_NEAR(view->GetZoom(), zoom, 1e-5f);
}

TEST_F(InputTest, NudgesUseTheStepsOfKeysAndWheel) {
    QLM_BrushProperties& brush = tool->properties;
    brush.Strength = 0.5f;
    Send(QLM_Event_StrengthUp, true); // 0.25 x 0.5 + 0.01 x 0.5 = 0.13
    EXPECT_NEAR(brush.Strength, 0.63f, 1e-6f);
    EXPECT_EQ(LastMessage(), "Strength = 63.0%");
    EXPECT_TRUE(QLM_IsEventPending(QLM_Event_RefreshToolPanel));
    Send(QLM_Event_StrengthDown);
    EXPECT_NEAR(brush.Strength, 0.58f, 1e-6f);
    brush.Hardness = 0.98f;
    Send(QLM_Event_HardnessUp);
    EXPECT_EQ(brush.Hardness, 1.0f);
    brush.Density = 0.02f;
    Send(QLM_Event_DensityDown);
    EXPECT_EQ(brush.Density, 0.0f);

    brush.Size = 0.5f; // 0.1 x 0.5 + 0.005 x 0.5
    Send(QLM_Event_SizeUp);
    EXPECT_NEAR(brush.Size, 0.5525f, 1e-6f);
    brush.Size = 0.1f; // t = 0.04, r = 0.7071068: t = 0.3211775, step 0.0355119
    Send(QLM_Event_SizeUp, true);
    EXPECT_NEAR(brush.Size, 0.1355119f, 1e-6f);

    brush.Angle = 350.0f; // a step is a twentieth of the circle
    Send(QLM_Event_AngleUp);
    EXPECT_NEAR(brush.Angle, 8.0f, 1e-4f);
    Send(QLM_Event_AngleDown);
    EXPECT_NEAR(brush.Angle, 350.0f, 1e-4f);
}

TEST_F(InputTest, ViewEventsActOnTheirTargetOrNotAtAll) {
    const auto rotation = [](QLM_Viewport* viewport) {
        return std::vector<float>(viewport->GetRotationMatrix(), viewport->GetRotationMatrix() + 16);
    };
    QLM_Viewport* const other = viewports->GetViewport(2);
    const std::vector<float> front = rotation(view);
    Send(QLM_Event_ViewRight, false, other->GetID());
    EXPECT_EQ(LastMessage(), "Setting the viewport to \"right\"");
    EXPECT_EQ(rotation(view), front);
    Send(QLM_Event_ViewLeft, true); // mirrored: the opposite of left, for the current viewport
    EXPECT_EQ(rotation(view), rotation(other));
    EXPECT_NE(rotation(view), front);
    Send(QLM_Event_ResetView);
    EXPECT_EQ(rotation(view), front);

    other->ViewLocked = true;
    Send(QLM_Event_ViewTop, false, other->GetID());
    EXPECT_EQ(LastMessage(), QLM_FormatText(QLM_GetString(1461), other->GetName()));
    EXPECT_NE(rotation(other), front);
    Send(QLM_Event_CopyMainView, false, other->GetID());
    EXPECT_NE(rotation(other), front);
    other->ViewLocked = false;
    Send(QLM_Event_CopyMainView, false, other->GetID());
    EXPECT_EQ(rotation(other), front);

    // Targets that are gone, or of another class.
    const size_t messages = QLM_OS::Get().recorded.size();
    auto* gone = new QLM_Viewport(1);
    const uint32_t id = gone->GetID();
    QLM_PostEvent(QLM_Event_ViewTop, id);
    delete gone;
    QLM_ProcessEvents();
    Send(QLM_Event_ViewTop, false, tool->GetID());
    EXPECT_EQ(QLM_OS::Get().recorded.size(), messages);
    EXPECT_EQ(rotation(view), front);
}

TEST_F(InputTest, MovedViewsAreTakenUpWhenTheyRest) {
    QLM_Clock::UseSteppedTime();
    viewports->viewportsMoved = true;
    engine->lastViewportChangeTimer.Start();
    QLM_Clock::Step(0.4);
    engine->OnIdleOrPassive();
    EXPECT_TRUE(viewports->viewportsMoved);
    EXPECT_FALSE(QLM_IsEventPending(QLM_Event_AllViewportsChanged));
    QLM_Clock::Step(0.2);
    engine->OnIdleOrPassive();
    EXPECT_FALSE(viewports->viewportsMoved);
    EXPECT_TRUE(QLM_IsEventPending(QLM_Event_AllViewportsChanged));
    QLM_Clock::UseRealTime();
    viewports->FinishRenders();
}
