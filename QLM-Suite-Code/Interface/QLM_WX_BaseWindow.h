#pragma once
// What all windows of the program share.

#include "Core/Objects/QLM_BaseClass.h"

#include <wx/textctrl.h>
#include <wx/window.h>

namespace QLM::GUI {

/// Mixin of the program's own windows and controls.
class BaseWindowCommon {
  public:
    virtual ~BaseWindowCommon() = default;
    /// The edit field in this control is committed by a press anywhere else, and leaves the space bar to hotkeys.
    virtual bool IsFloatSpin() const { return false; }
    virtual bool TakesHotkeys() const { return false; } ///< of a top level: keys in it may be hotkeys

    QLM_CustomPropertyContainer properties;
    bool textDrag = false; ///< a left press starts a drag of `dragText`
    std::string dragText;
    unsigned activationStamp = 0; ///< grows with each activation of any frame
};

/// The custom properties of a window; null for windows that aren't the program's own.
inline QLM_CustomPropertyContainer* PropertiesOf(wxWindow* window) {
    auto* common = dynamic_cast<BaseWindowCommon*>(window);
    return common ? &common->properties : nullptr;
}

/// Where the keyboard rests: keys reach the hotkey filter and no control is left holding them.
class HiddenFocusWidget : public wxTextCtrl, public BaseWindowCommon {
  public:
    /// One pixel, as the toolkit gives no focus to a widget without size or to a hidden one. Read only: a caret that
    /// blinks redraws the window, canvas and all.
    explicit HiddenFocusWidget(wxWindow* parent)
        : wxTextCtrl(parent, wxID_ANY, wxString(), wxPoint(0, 0), wxSize(1, 1), wxBORDER_NONE | wxTE_READONLY) {
        properties.SetBool("HIDDEN_FOCUS_WIDGET", true);
        // What is typed here must not pile up.
        Bind(wxEVT_CHAR, [](wxKeyEvent&) {});
    }
};

/// Moves the keyboard focus to the hidden widget of the window, which is made on first use.
void SetFocusToHiddenWidget(wxWindow* window);

/// Marks a window as being rebuilt and stops its redrawing.
void FreezeWindow(wxWindow* window);
/// Redraws again; does nothing for a window that isn't marked.
void ThawWindow(wxWindow* window);

} // namespace QLM::GUI
