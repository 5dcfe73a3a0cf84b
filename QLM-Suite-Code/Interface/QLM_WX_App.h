#pragma once
// The toolkit's application object: owner of the windows, the theme, and the filter in front of every event.

#include "Engine/QLM_Engine.h"
#include "Interface/QLM_WX_ColorThemes.h"
#include "Interface/QLM_WX_InputState.h"
#include "Interface/QLM_WX_Start.h"

#include <wx/app.h>
#include <wx/modalhook.h>
#include <wx/weakref.h>

#include <map>
#include <memory>

class wxSingleInstanceChecker;

namespace QLM::GUI {

class MainWindow;

/// The held modifier keys as a mask: Shift 1, Control 2, Alt 4. Any thread.
int QLM_GetModifiers();

/// Counts the modal dialogs that are open; the toolkit leaves the windows behind them enabled.
class ModalCounter : public wxModalDialogHook {
  public:
    explicit ModalCounter(std::function<void()> onLastClosedIn) : onLastClosed(std::move(onLastClosedIn)) {}
    int GetCount() const { return count; }

  protected:
    int Enter(wxDialog*) override;
    void Exit(wxDialog*) override;

  private:
    int count = 0;
    std::function<void()> onLastClosed;
};

/// Main thread.
class App : public wxApp {
  public:
    explicit App(QLM_WindowOptions options);
    ~App() override;

    bool OnInit() override;
    int OnExit() override;
    int FilterEvent(wxEvent& event) override;
    bool OnExceptionInMainLoop() override;
    void OnUnhandledException() override;
    wxAppTraits* CreateTraits() override;

    /// Hides a window now and destroys it at the next idle time; scroll bars and staged windows are ignored.
    void StageForDeletion(wxWindow* window);
    /// Stages every child, unless the window has the property "NO_STAGE_CHILDREN_FOR_DELETION".
    void StageChildrenForDeletion(wxWindow* window);
    /// From the idle handler, when no control's handler is on the stack.
    void DestroyStagedWindows();
    bool HasStagedWindows() const { return !stagedForDeletion.empty(); }

    const ColorTheme& GetTheme() const { return colorThemes[activeColorTheme]; }
    const QLM_WindowOptions& GetOptions() const { return options; }
    MainWindow* GetMainWindow() const { return mainWindow; }
    bool IsReady() const { return isReady; }
    bool IsModal() const { return modalCounter.GetCount() > 0; }
    bool IsScripted() const { return !options.script.empty(); }
    void ClearKeyLatch() { keyLatch.Clear(); }
    /// Imports files one after another, as if they were dropped on the canvas.
    void ImportFiles(const std::vector<std::string>& paths);
    /// Gives back what other processes see of this one.
    void ReleaseToolkit();

  private:
    bool OnInitB();
    bool Fail(const std::string& text);
    void InitializeColorThemes() { colorThemes = MakeColorThemes(); }
    QLM_ShellCallbacks MakeShellCallbacks();
    bool SingleInstanceTest();
    void CreateAllWindows();
    void FinalizeMainWindow();
    void OnReadyToStartApplication();
    void SignalReadyToExecute();
    void PlayScript();

    int FilterEventB(wxEvent& event);
    bool FilterStateDump(wxEvent& event);
    bool FilterMouseWheel(wxEvent& event);
    void FilterHoverStatus(wxEvent& event, wxWindow* window);
    void FilterModifierKeys(wxEvent& event);
    void FilterClearingFocusFromButtonClick(wxEvent& event);
    void FilterTextDragAndDrop(wxEvent& event, wxWindow* window);
    void FilterActivateWindow(wxEvent& event, wxWindow* window);
    void FilterFloatSpinFocus(wxEvent& event, wxWindow* window);
    void FilterToolFocus(wxEvent& event, wxWindow* window);
    bool FilterHotkeys(wxEvent& event);
    bool HandleMajorInterfaceHotkeys(wxKeyEvent& event);

    QLM_WindowOptions options;
    std::unique_ptr<wxSingleInstanceChecker> singleInstanceChecker;
    MainWindow* mainWindow = nullptr; ///< the toolkit deletes it
    bool isReady = false;             ///< the filter does nothing before
    bool isInteractive = false;       ///< false while a text drag runs
    wxFrame* lastActivatedFrame = nullptr;
    unsigned activations = 0;
    /// A window that went with its parent meanwhile leaves an empty reference.
    std::map<wxWindow*, wxWeakRef<wxWindow>> stagedForDeletion;
    std::array<ColorTheme, ColorThemeCount> colorThemes;
    unsigned activeColorTheme = DefaultColorTheme;
    ModalCounter modalCounter;
    KeyLatch keyLatch, dumpLatch;
};

/// The application object; null before and after its life.
App* TheApp();

} // namespace QLM::GUI
