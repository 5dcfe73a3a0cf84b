#include "Interface/QLM_WX_MainWindow.h"

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Interface/QLM_WX_App.h"
#include "Interface/QLM_WX_GLCanvas.h"
#include "Interface/QLM_WX_Text.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <wx/display.h>
#include <wx/dnd.h>
#include <wx/evtloop.h>
#include <wx/menu.h>
#include <wx/stattext.h>
#include <wx/stopwatch.h>

#include <algorithm>
#include <cmath>

namespace QLM::GUI {

namespace {

constexpr int FirstCanvasWidth = 1280, FirstCanvasHeight = 720;
constexpr int RestMilliseconds = 50, PendingMilliseconds = 5;
constexpr int ExactSizePatience = 3000, ExactSizeStep = 20;
constexpr int Margin = 6;
constexpr int MostBusyDots = 5;

wxString OneLine(const std::string& text) {
    std::string line = text;
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return ToToolkit(line);
}

wxStaticText* MakeLine(wxWindow* parent) {
    return new wxStaticText(parent, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize,
                            wxST_ELLIPSIZE_END | wxST_NO_AUTORESIZE);
}

void SetLine(wxStaticText* line, const std::string& text) {
    // SetLabelText: an "&" of a file's name is no mnemonic.
    if (const wxString label = OneLine(text); line->GetLabelText() != label) line->SetLabelText(label);
}

/// Files that fall on the window are imported once the drop is over: questions must not stand inside of it.
class ViewportDropTarget : public wxFileDropTarget {
  public:
    explicit ViewportDropTarget(App& appIn) : app(appIn) {}
    bool OnDropFiles(wxCoord, wxCoord, const wxArrayString& names) override {
        std::vector<std::string> paths;
        for (const wxString& name : names) paths.push_back(PathFromToolkit(name));
        App& target = app;
        target.CallAfter([&target, paths] { target.ImportFiles(paths); });
        return true;
    }

  private:
    App& app;
};

} // namespace

// --- Message area ---------------------------------------------------------------------------------------------------

BottomPanel::BottomPanel(wxWindow* parent)
    : wxPanel(parent), hint(MakeLine(this)), message(MakeLine(this)), status(MakeLine(this)) {
    Bind(wxEVT_SIZE, [this](wxSizeEvent&) { Arrange(); });
}

void BottomPanel::ShowHint(const std::string& text) { SetLine(hint, text); }
void BottomPanel::ShowMessage(const std::string& text) { SetLine(message, text); }
void BottomPanel::ShowStatus(const std::string& text) { SetLine(status, text); }

int BottomPanel::GetNeededHeight() const { return 2 * GetCharHeight() + 3 * Margin; }

void BottomPanel::Arrange() {
    const int width = std::max(0, GetClientSize().x - 2 * Margin), height = GetCharHeight(), left = width * 2 / 3;
    const int second = 2 * Margin + height;
    hint->SetSize(Margin, Margin, width, height);
    message->SetSize(Margin, second, std::max(0, left - Margin), height);
    status->SetSize(Margin + left, second, width - left, height);
}

// --- The window -----------------------------------------------------------------------------------------------------

MainWindow::MainWindow(App& appIn)
    : wxFrame(nullptr, wxID_ANY, wxString::Format("%s - v%d.%d.%d.%d", "Quillmere", 8, 0, 0, 0)), app(appIn),
      timer(this) {
    new HiddenFocusWidget(this);
    if (GLCanvas::IsSupported()) canvas = new GLCanvas(this);
    else canvas = new PictureCanvas(this);
    bottomPanel = new BottomPanel(this);
    for (wxWindow* window : {&canvas->GetWindow(), static_cast<wxWindow*>(bottomPanel)})
        window->SetDropTarget(new ViewportDropTarget(app));
    BuildMenus();

    const wxSize room = wxGetClientDisplayRect().GetSize();
    const double scale = GetContentScaleFactor();
    SetMinClientSize(wxSize(320, 240));
    SetClientSize(
        std::min(static_cast<int>(FirstCanvasWidth / scale), room.x),
        std::min(static_cast<int>(FirstCanvasHeight / scale) + bottomPanel->GetNeededHeight(), room.y * 9 / 10));

    Bind(wxEVT_SIZE, [this](wxSizeEvent&) { LayoutPanels(); });
    Bind(wxEVT_IDLE, &MainWindow::OnIdle, this);
    Bind(wxEVT_CLOSE_WINDOW, &MainWindow::OnClose, this);
    Bind(wxEVT_TIMER, [this](wxTimerEvent&) { OnTimer(); });
    timer.StartOnce(RestMilliseconds);
}

void MainWindow::LayoutPanels() {
    const double scale = GetContentScaleFactor();
    const wxSize client = GetClientSize();
    wxSize size = exactCanvas;
    if (size.x == 0) {
        const double height = std::max(0, client.y - bottomPanel->GetNeededHeight()) * scale;
        // The software renderer works in groups of 8 pixels and bands of 16 rows.
        size = wxSize(static_cast<int>(client.x * scale) / 8 * 8, static_cast<int>(height) / 16 * 16);
    }
    const int width = static_cast<int>(std::lround(size.x / scale)),
              height = static_cast<int>(std::lround(size.y / scale));
    canvas->GetWindow().SetSize(0, 0, std::max(1, width), std::max(1, height));
    bottomPanel->SetSize(0, height, client.x, std::max(1, client.y - height));
    canvas->UpdateCanvasSize();
}

bool MainWindow::SetExactCanvasSize(int width, int height) {
    const double scale = GetContentScaleFactor();
    const wxSize wanted(static_cast<int>(std::lround(width / scale)), static_cast<int>(std::lround(height / scale)));
    if (std::lround(wanted.x * scale) != width || std::lround(wanted.y * scale) != height) return false;
    exactCanvas = wxSize(width, height);
    const wxSize client(wanted.x, wanted.y + bottomPanel->GetNeededHeight());
    SetMinClientSize(wxSize(1, 1));
    SetClientSize(client);
    // The window manager has the last word: let its answer come in.
    wxEventLoopBase* const loop = wxEventLoopBase::GetActive();
    for (const wxStopWatch patience; GetClientSize() != client || canvas->GetWindow().GetClientSize() != wanted;) {
        if (!loop || patience.Time() > ExactSizePatience) return false;
        loop->DispatchTimeout(ExactSizeStep);
        LayoutPanels();
    }
    QLM_GetManagers().GetViewportManager()->SetCanvasSize(width, height);
    return true;
}

void MainWindow::ApplyTheme() {
    const ColorTheme& theme = app.GetTheme();
    ApplyPanelColors(this, theme);
    ApplyPanelColors(bottomPanel, theme);
    for (wxWindow* line : bottomPanel->GetChildren()) ApplyPanelColors(line, theme);
    Refresh();
}

void MainWindow::UpdateWindowTitle() {
    const QLM_Engine* engine = QLM_GetEngine();
    if (!engine) return;
    titleIsBusy = QLM_OS::Get().IsBusy();
    busyDots = titleIsBusy ? busyDots % MostBusyDots + 1 : 0;
    const std::string project; // there is no project file yet
    SetTitle(ToToolkit(engine->name + "-" + project + std::string(static_cast<size_t>(busyDots), '.')));
}

void MainWindow::ShowFirstHint() {
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    const bool empty = !objects || objects->GetObjectCount() == 0;
    QLM_OS::Get().PrintHintText(
        empty ? "Import an object from the File menu, or drop a file on this window; then drag on it to paint."
              : "Drag on the model to paint. Wheel zooms; the Tools menu has tools that turn, move and zoom the view.");
}

void MainWindow::RefreshControls() {
    canvas->GetInput().UpdateCursor();
    if (titleIsBusy && !QLM_OS::Get().IsBusy()) UpdateWindowTitle();
    QLM_ToolManager* tools = QLM_GetManagers().GetToolManager();
    wxMenuBar* bar = GetMenuBar();
    if (!tools || !bar) return;
    for (const auto& [id, name] : toolOfMenuItem)
        if (tools->FindTool(name) == tools->GetCurrentTool() && !bar->IsChecked(id)) bar->Check(id, true);
}

// --- Passes ---------------------------------------------------------------------------------------------------------

void MainWindow::OnIdle(wxIdleEvent& event) {
    QLM_Engine* const engine = QLM_GetEngine();
    QLM_OS& os = QLM_OS::Get();
    if (!engine || !engine->isReady || !app.IsReady() || app.IsScripted() || os.IsPumping()) return;
    if (os.mouseButtonsDown == 0 && !app.IsModal()) app.DestroyStagedWindows();
    if (!engine->IdlePass()) return;
    RefreshControls();
    // The toolkit sends one idle event and then none until something happens.
    if (QLM_AreEventsPending() || QLM_AreDeferredItemsPending() || app.HasStagedWindows()) event.RequestMore();
}

void MainWindow::OnTimer() {
    const QLM_Engine* engine = QLM_GetEngine();
    const bool running = engine && engine->isReady && !app.IsScripted();
    // A stroke's preview grows behind the last motion.
    if (running && canvas->GetInput().IsDragging()) canvas->GetWindow().Refresh(false);
    wxWakeUpIdle();
    const bool pending =
        running && !canvas->GetInput().IsDragging() && engine->managers->GetViewportManager()->AreRendersPending();
    timer.StartOnce(pending ? PendingMilliseconds : RestMilliseconds);
}

void MainWindow::OnClose(wxCloseEvent& event) {
    event.Veto();
    QLM_Engine* engine = QLM_GetEngine();
    if (engine && engine->isReady && !app.IsScripted() && !app.IsModal()) engine->ExitRequested();
}

} // namespace QLM::GUI
