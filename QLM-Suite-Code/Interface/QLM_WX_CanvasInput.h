#pragma once
// Translates the toolkit's mouse events on the canvas into the engine's pointer road.

#include "Engine/QLM_Engine.h"
#include "Interface/QLM_WX_InputState.h"

#include <wx/event.h>

#include <functional>

class wxWindow;

namespace QLM::GUI {

/// Belongs to one window and lives as long. Main thread.
class CanvasInput {
  public:
    /// `drawSoon` is called when the pointer changed what the canvas shows.
    CanvasInput(wxWindow& canvas, std::function<void()> drawSoon);
    void HandleWheel(const wxMouseEvent& event);
    /// Gives the pointer the shape that tells what the current tool does.
    void UpdateCursor();
    bool IsDragging() const { return heldButtons != 0; }

  private:
    void OnPress(QLM_Engine::Button button, wxMouseEvent& event);
    void OnRelease(QLM_Engine::Button button, wxMouseEvent& event);
    void OnMotion(wxMouseEvent& event);
    /// The releases of the held buttons will not come: they count as happening where the pointer was last.
    void OnCaptureLost();
    /// Physical pixels from the canvas's top left.
    wxRealPoint PlaceOf(const wxMouseEvent& event) const;

    wxWindow& canvas;
    std::function<void()> drawSoon;
    WheelAccumulator wheel;
    unsigned heldButtons = 0; ///< a bit a button
    wxRealPoint lastPlace;
    int shownCursor = -1;
};

} // namespace QLM::GUI
