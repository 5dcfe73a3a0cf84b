// What every event passes before a window sees it.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Interface/QLM_WX_App.h"
#include "Interface/QLM_WX_BaseWindow.h"
#include "Interface/QLM_WX_GLCanvas.h"
#include "Interface/QLM_WX_MainWindow.h"
#include "Interface/QLM_WX_Text.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <wx/button.h>
#include <wx/dnd.h>
#include <wx/tooltip.h>

namespace QLM::GUI {

namespace {

constexpr int GoOn = -1, Consumed = 1;

bool IsModifierKey(int code) { return code == WXK_SHIFT || code == WXK_ALT || code == WXK_CONTROL || code == WXK_MENU; }

/// The engine's code of a key: 27 Escape, 13 Enter, else the character.
int EngineKeyCode(int code) { return code == WXK_NUMPAD_ENTER ? WXK_RETURN : code; }

bool IsKeyPress(const wxEvent& event) {
    return event.GetEventType() == wxEVT_KEY_DOWN || event.GetEventType() == wxEVT_CHAR_HOOK;
}

} // namespace

int QLM_GetModifiers() {
    const QLM_OS& os = QLM_OS::Get();
    return (os.shiftDown ? 1 : 0) | (os.controlDown ? 2 : 0) | (os.altDown ? 4 : 0);
}

int App::FilterEvent(wxEvent& event) {
    try {
        return FilterEventB(event);
    } catch (const std::exception& exception) { QLM_ReportFailure(exception.what()); } catch (...) {
        QLM_ReportFailure("unknown exception");
    }
    return GoOn;
}

int App::FilterEventB(wxEvent& event) {
    // A playing script has mouse and keyboard to itself.
    if (IsScripted()) return event.GetEventCategory() == wxEVT_CATEGORY_USER_INPUT ? Consumed : GoOn;
    if (FilterStateDump(event)) return Consumed;
    auto* const window = dynamic_cast<wxWindow*>(event.GetEventObject());
    if (!window || !wxGetTopLevelParent(window)) return GoOn;
    // The frame loses the keyboard while it is not ready, too: a latched key never goes up then.
    if (event.GetEventType() == wxEVT_ACTIVATE) keyLatch.Clear();
    if (event.GetEventType() == wxEVT_KILL_FOCUS && window->IsTopLevel()) keyLatch.Clear();
    if (!isReady || !mainWindow || !IsActive() || IsModal()) return GoOn;

    if (FilterMouseWheel(event)) return Consumed;
    FilterHoverStatus(event, window);
    FilterModifierKeys(event);
    FilterClearingFocusFromButtonClick(event);
    FilterTextDragAndDrop(event, window);
    FilterActivateWindow(event, window);
    FilterFloatSpinFocus(event, window);
    FilterToolFocus(event, window);
    return FilterHotkeys(event) ? Consumed : GoOn;
}

bool App::FilterStateDump(wxEvent& event) {
    auto* const key = dynamic_cast<wxKeyEvent*>(&event);
    if (!key || key->GetKeyCode() != WXK_F9) return false;
    if (event.GetEventType() == wxEVT_KEY_UP) dumpLatch.Clear();
    else if (IsKeyPress(event) && dumpLatch.Take(WXK_F9)) options.requestStateDump();
    return true;
}

bool App::FilterMouseWheel(wxEvent& event) {
    QLM_TRACE(3);
    auto* const mouse = dynamic_cast<wxMouseEvent*>(&event);
    if (!mouse || event.GetEventType() != wxEVT_MOUSEWHEEL || mouse->GetWheelRotation() == 0) return false;
    wxPoint place;
    Canvas* const canvas = mainWindow->GetCanvas();
    if (wxFindWindowAtPointer(place) != &canvas->GetWindow()) return false;
    canvas->GetInput().HandleWheel(*mouse);
    return true;
}

void App::FilterHoverStatus(wxEvent& event, wxWindow* window) {
    QLM_TRACE(3);
    if (event.GetEventType() != wxEVT_ENTER_WINDOW) return;
    if (const wxString tip = window->GetToolTipText(); !tip.empty()) QLM_OS::Get().PrintStatusText(FromToolkit(tip));
}

void App::FilterModifierKeys(wxEvent& event) {
    QLM_TRACE(3);
    const wxKeyboardState* state = dynamic_cast<wxKeyEvent*>(&event);
    if (!state) state = dynamic_cast<wxMouseEvent*>(&event);
    if (!state) return;
    QLM_OS& os = QLM_OS::Get();
    os.shiftDown = state->ShiftDown();
    os.controlDown = state->ControlDown();
    os.altDown = state->AltDown();
}

void App::FilterClearingFocusFromButtonClick(wxEvent& event) {
    QLM_TRACE(3);
    auto* const button = dynamic_cast<wxButton*>(event.GetEventObject());
    if (button && event.GetEventType() == wxEVT_BUTTON) SetFocusToHiddenWidget(wxGetTopLevelParent(button));
}

void App::FilterTextDragAndDrop(wxEvent& event, wxWindow* window) {
    QLM_TRACE(3);
    if (event.GetEventType() != wxEVT_LEFT_DOWN) return;
    const auto* common = dynamic_cast<BaseWindowCommon*>(window);
    if (!common || !common->textDrag) return;
    wxTextDataObject text(ToToolkit(common->dragText));
    wxDropSource source(text, window);
    isInteractive = false;
    source.DoDragDrop();
    isInteractive = true;
}

void App::FilterActivateWindow(wxEvent& event, wxWindow* window) {
    QLM_TRACE(3);
    auto* const activation = dynamic_cast<wxActivateEvent*>(&event);
    if (!activation || event.GetEventType() != wxEVT_ACTIVATE || !activation->GetActive()) return;
    auto* const frame = dynamic_cast<wxFrame*>(wxGetTopLevelParent(window));
    if (!frame) return;
    lastActivatedFrame = frame;
    if (auto* common = dynamic_cast<BaseWindowCommon*>(frame)) common->activationStamp = ++activations;
}

void App::FilterFloatSpinFocus(wxEvent& event, wxWindow* window) {
    QLM_TRACE(3);
    if (event.GetEventType() != wxEVT_LEFT_DOWN) return;
    wxWindow* const focus = wxWindow::FindFocus();
    if (!focus || focus == window || !dynamic_cast<wxTextCtrl*>(focus)) return;
    const auto* control = dynamic_cast<BaseWindowCommon*>(focus->GetParent());
    if (control && control->IsFloatSpin()) SetFocusToHiddenWidget(wxGetTopLevelParent(focus));
}

void App::FilterToolFocus(wxEvent& event, wxWindow* window) {
    QLM_TRACE(3);
    if (event.GetEventType() != wxEVT_LEFT_DOWN || window != &mainWindow->GetCanvas()->GetWindow()) return;
    QLM_GetManagers().GetToolManager()->canvasHasToolFocus = true;
}

bool App::FilterHotkeys(wxEvent& event) {
    QLM_TRACE(3);
    auto* const key = dynamic_cast<wxKeyEvent*>(&event);
    return key && HandleMajorInterfaceHotkeys(*key);
}

bool App::HandleMajorInterfaceHotkeys(wxKeyEvent& event) {
    const int code = event.GetKeyCode();
    if (IsModifierKey(code)) return false;
    if (event.GetEventType() == wxEVT_KEY_UP) {
        keyLatch.Clear();
        return false;
    }
    // Auto-repeat stops here, and so does the second of the two events that one press makes.
    if (!IsKeyPress(event) || !keyLatch.Take(code)) return false;

    wxWindow* const focus = wxWindow::FindFocus();
    if (dynamic_cast<wxTextCtrl*>(focus) && !dynamic_cast<HiddenFocusWidget*>(focus)) {
        const auto* control = dynamic_cast<BaseWindowCommon*>(focus->GetParent());
        if (code != WXK_SPACE || !control || !control->IsFloatSpin()) return false;
    }
    if (QLM_GetManagers().GetViewportManager()->mouseViewport >= 0) return false;
    const auto* top = focus ? dynamic_cast<BaseWindowCommon*>(wxGetTopLevelParent(focus)) : nullptr;
    if (!top || !top->TakesHotkeys()) return false;
    const int modifiers = QLM_GetModifiers();
    return QLM_GetEngine()->Key(EngineKeyCode(code),
                                {(modifiers & 1) != 0, (modifiers & 2) != 0, (modifiers & 4) != 0});
}

} // namespace QLM::GUI
