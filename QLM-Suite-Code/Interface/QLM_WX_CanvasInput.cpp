#include "Interface/QLM_WX_CanvasInput.h"

#include "Interface/QLM_WX_BaseWindow.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <wx/cursor.h>

namespace QLM::GUI {

namespace {

QLM_KeyModifiers ModifiersOf(const wxMouseEvent& event) {
    return {event.ShiftDown(), event.ControlDown(), event.AltDown()};
}

/// Neither before the start nor after the end of the engine.
QLM_Engine* ReadyEngine() {
    QLM_Engine* engine = QLM_GetEngine();
    return engine && engine->isReady ? engine : nullptr;
}

unsigned BitOf(QLM_Engine::Button button) { return 1u << static_cast<int>(button); }

} // namespace

CanvasInput::CanvasInput(wxWindow& canvasIn, std::function<void()> drawSoonIn)
    : canvas(canvasIn), drawSoon(std::move(drawSoonIn)) {
    using Button = QLM_Engine::Button;
    const auto bind = [this](Button button, const wxEventTypeTag<wxMouseEvent>& down,
                             const wxEventTypeTag<wxMouseEvent>& again, const wxEventTypeTag<wxMouseEvent>& up) {
        // The second press of a double click comes under its own name.
        for (const auto* type : {&down, &again})
            canvas.Bind(*type, [this, button](wxMouseEvent& event) { OnPress(button, event); });
        canvas.Bind(up, [this, button](wxMouseEvent& event) { OnRelease(button, event); });
    };
    bind(Button::Left, wxEVT_LEFT_DOWN, wxEVT_LEFT_DCLICK, wxEVT_LEFT_UP);
    bind(Button::Middle, wxEVT_MIDDLE_DOWN, wxEVT_MIDDLE_DCLICK, wxEVT_MIDDLE_UP);
    bind(Button::Right, wxEVT_RIGHT_DOWN, wxEVT_RIGHT_DCLICK, wxEVT_RIGHT_UP);
    canvas.Bind(wxEVT_MOTION, [this](wxMouseEvent& event) { OnMotion(event); });
    canvas.Bind(wxEVT_MOUSEWHEEL, [this](wxMouseEvent& event) { HandleWheel(event); });
    canvas.Bind(wxEVT_LEAVE_WINDOW, [this](wxMouseEvent&) {
        if (ReadyEngine()) QLM_GetManagers().GetViewportManager()->PointerLeave();
        canvas.Refresh(false);
    });
    canvas.Bind(wxEVT_MOUSE_CAPTURE_LOST, [this](wxMouseCaptureLostEvent&) { OnCaptureLost(); });
}

wxRealPoint CanvasInput::PlaceOf(const wxMouseEvent& event) const {
    const double scale = canvas.GetContentScaleFactor();
    return {event.GetX() * scale, event.GetY() * scale};
}

void CanvasInput::OnPress(QLM_Engine::Button button, wxMouseEvent& event) {
    QLM_Engine* engine = ReadyEngine();
    if (!engine || (heldButtons & BitOf(button))) return;
    SetFocusToHiddenWidget(wxGetTopLevelParent(&canvas));
    if (!canvas.HasCapture()) canvas.CaptureMouse();
    heldButtons |= BitOf(button);
    lastPlace = PlaceOf(event);
    engine->PointerPress(button, static_cast<float>(lastPlace.x), static_cast<float>(lastPlace.y), ModifiersOf(event));
    canvas.Refresh(false);
}

void CanvasInput::OnRelease(QLM_Engine::Button button, wxMouseEvent& event) {
    QLM_Engine* engine = ReadyEngine();
    if (!engine || !(heldButtons & BitOf(button))) return;
    heldButtons &= ~BitOf(button);
    if (heldButtons == 0 && canvas.HasCapture()) canvas.ReleaseMouse();
    lastPlace = PlaceOf(event);
    engine->PointerRelease(button, static_cast<float>(lastPlace.x), static_cast<float>(lastPlace.y));
    canvas.Refresh(false);
}

void CanvasInput::OnMotion(wxMouseEvent& event) {
    QLM_Engine* engine = ReadyEngine();
    if (!engine) return;
    lastPlace = PlaceOf(event);
    engine->PointerMove(static_cast<float>(lastPlace.x), static_cast<float>(lastPlace.y));
    drawSoon();
}

void CanvasInput::OnCaptureLost() {
    QLM_Engine* engine = ReadyEngine();
    const unsigned lost = heldButtons;
    heldButtons = 0;
    if (!engine) return;
    for (const auto button : {QLM_Engine::Button::Left, QLM_Engine::Button::Middle, QLM_Engine::Button::Right})
        if (lost & BitOf(button))
            engine->PointerRelease(button, static_cast<float>(lastPlace.x), static_cast<float>(lastPlace.y));
    canvas.Refresh(false);
}

void CanvasInput::HandleWheel(const wxMouseEvent& event) {
    QLM_Engine* engine = ReadyEngine();
    if (!engine || event.GetWheelAxis() != wxMOUSE_WHEEL_VERTICAL) return;
    const int notches = wheel.Add(event.GetWheelRotation(), event.GetWheelDelta());
    if (notches == 0) return;
    // The event may have been meant for another window, whose coordinates it bears.
    const wxPoint place = canvas.ScreenToClient(wxGetMousePosition());
    const double scale = canvas.GetContentScaleFactor();
    engine->Wheel(static_cast<float>(notches), static_cast<float>(place.x * scale),
                  static_cast<float>(place.y * scale));
    canvas.Refresh(false);
}

void CanvasInput::UpdateCursor() {
    const QLM_ToolManager* tools = QLM_GetManagers().GetToolManager();
    const QLM_Tool* tool = tools ? tools->GetCurrentTool() : nullptr;
    const int wanted = !tool ? wxCURSOR_ARROW : tool->IsViewTool() ? wxCURSOR_SIZING : wxCURSOR_CROSS;
    if (wanted == shownCursor) return;
    shownCursor = wanted;
    canvas.SetCursor(wxCursor(static_cast<wxStockCursor>(wanted)));
}

} // namespace QLM::GUI
