#pragma once
// The window of the program: canvas, message area, File and Tools menus.

#include "Interface/QLM_WX_BaseWindow.h"

#include <wx/frame.h>
#include <wx/panel.h>
#include <wx/timer.h>

#include <map>
#include <string>
#include <vector>

class QLM_Tool;
class wxStaticText;

namespace QLM::GUI {

class App;
class Canvas;

/// The lines below the canvas: what to do, the last message, the status.
class BottomPanel : public wxPanel, public BaseWindowCommon {
  public:
    explicit BottomPanel(wxWindow* parent);
    void ShowHint(const std::string& text);
    void ShowMessage(const std::string& text);
    void ShowStatus(const std::string& text);
    int GetNeededHeight() const;
    void Arrange();

  private:
    wxStaticText *hint, *message, *status;
};

/// Main thread.
class MainWindow : public wxFrame, public BaseWindowCommon {
  public:
    explicit MainWindow(App& app);
    bool TakesHotkeys() const override { return true; }

    Canvas* GetCanvas() const { return canvas; }
    BottomPanel* GetBottomPanel() const { return bottomPanel; }
    /// Places canvas and message area. The canvas takes multiples of 8 x 16 physical pixels, the message area the rest.
    void LayoutPanels();
    /// Sizes the canvas to exactly that many physical pixels and waits for it; false when the display won't have it.
    bool SetExactCanvasSize(int width, int height);
    void ApplyTheme();
    /// Brings menu marks, pointer shape and title up to date.
    void RefreshControls();
    /// Composes the title; while the program is busy each call adds a dot to the row, which starts anew after five.
    void UpdateWindowTitle();
    /// Tells a newcomer what to do with what is there.
    void ShowFirstHint();

  private:
    void BuildMenus();
    void OnIdle(wxIdleEvent& event);
    void OnClose(wxCloseEvent& event);
    void OnTimer();
    void OnImport();
    void OnExportMap();
    void OnExportObject();
    void OnToolMenu(int id);
    void OnChooseColor();

    App& app;
    Canvas* canvas = nullptr;
    BottomPanel* bottomPanel = nullptr;
    wxTimer timer;
    std::map<int, std::string> toolOfMenuItem; ///< by the id that the toolkit gave
    wxSize exactCanvas;                        ///< physical; 0 x 0 unless a script set it
    int busyDots = 0;
    bool titleIsBusy = false;
};

} // namespace QLM::GUI
