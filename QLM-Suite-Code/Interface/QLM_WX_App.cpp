#include "Interface/QLM_WX_App.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Events.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Interface/QLM_WX_AppTraits.h"
#include "Interface/QLM_WX_BaseWindow.h"
#include "Interface/QLM_WX_GLCanvas.h"
#include "Interface/QLM_WX_MainWindow.h"
#include "Interface/QLM_WX_OSFunctions.h"
#include "Interface/QLM_WX_ScriptShell.h"

#include <wx/log.h>
#include <wx/scrolbar.h>
#include <wx/snglinst.h>
#include <wx/stdpaths.h>
#include <wx/utils.h>

namespace QLM::GUI {

App* TheApp() { return dynamic_cast<App*>(wxApp::GetInstance()); }

int ModalCounter::Enter(wxDialog*) {
    ++count;
    return wxID_NONE;
}

void ModalCounter::Exit(wxDialog*) {
    if (count > 0 && --count == 0) onLastClosed();
}

App::App(QLM_WindowOptions optionsIn)
    : options(std::move(optionsIn)), modalCounter([this] {
          // A file dialog swallows the release of the key that opened it.
          keyLatch.Clear();
      }) {}

App::~App() {
    // The toolkit deletes its application before the process ends; the OS layer speaks on standard error then.
    QLM_OS::Get().SetCallbacks({});
}

wxAppTraits* App::CreateTraits() { return new QLM_WX_AppTraits; }

// --- Start ----------------------------------------------------------------------------------------------------------

bool App::OnInit() {
    try {
        return OnInitB();
    } catch (const std::exception& exception) { QLM_ReportFailure(exception.what()); } catch (...) {
        QLM_ReportFailure("unknown exception");
    }
    return false;
}

bool App::Fail(const std::string& text) {
    if (IsScripted()) std::fprintf(stderr, "quillmere: %s\n", text.c_str());
    else QLM_OS::Get().MessageBoxText(text);
    return false;
}

bool App::OnInitB() {
    options.startLogging();
    QLM_SetupOSfunctions(*this);
    delete wxLog::SetActiveTarget(new LogTarget);
    wxStandardPaths::Get().SetFileLayout(wxStandardPaths::FileLayout_XDG);
    SetAppName("Quillmere");
    modalCounter.Register();
    InitializeColorThemes();
    std::string error;
    if (!options.startCoreModules(error)) return Fail(error);
    if (!IsScripted() && !SingleInstanceTest()) return false;
    if (!options.startModules(MakeShellCallbacks(), error)) return Fail(error);
    if (QLM_GetEngine()->colorTheme < ColorThemeCount) activeColorTheme = QLM_GetEngine()->colorTheme;
    CreateAllWindows();
    FinalizeMainWindow();
    OnReadyToStartApplication();
    if (IsScripted()) CallAfter([this] { PlayScript(); });
    else if (!options.files.empty()) CallAfter([this] { ImportFiles(options.files); });
    return true;
}

QLM_ShellCallbacks App::MakeShellCallbacks() {
    QLM_ShellCallbacks shell;
    shell.refreshInterface = [this](int) {
        if (mainWindow) mainWindow->RefreshControls();
    };
    shell.isModal = [this] { return IsModal(); };
    shell.requestRedraw = [this] {
        if (mainWindow) mainWindow->GetCanvas()->GetWindow().Refresh(false);
    };
    return shell;
}

bool App::SingleInstanceTest() {
    const wxLogNull quiet; // a lock that a killed process left is nobody's concern
    singleInstanceChecker = std::make_unique<wxSingleInstanceChecker>();
    singleInstanceChecker->Create(wxString::Format("%s-%s", "Quillmere", wxGetUserId()));
    if (!singleInstanceChecker->IsAnotherRunning()) return true;
    ShowMessageBox("Message...", "Only one instance of \"Quillmere\" can run at a time");
    return false;
}

void App::CreateAllWindows() {
    mainWindow = new MainWindow(*this);
    SetTopWindow(mainWindow);
}

void App::FinalizeMainWindow() {
    Canvas* canvas = mainWindow->GetCanvas();
    QLM_GL_SetContextTest([canvas] { return canvas->IsContextCurrent(); });
    if (!GLCanvas::IsSupported()) QLM_Log("This display has no OpenGL: the window shows software pictures alone");
    canvas->TestOpenGL();
    mainWindow->LayoutPanels();
}

void App::OnReadyToStartApplication() {
    if (!IsScripted()) options.startStateDumpThread();
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
    QLM_Engine& engine = *QLM_GetEngine();
    for (int i = 0; i < 6; ++i) {
        const wxColour& color = GetTheme()[static_cast<size_t>(6 + i / 3)];
        const int channel = i % 3 == 0 ? color.Red() : i % 3 == 1 ? color.Green() : color.Blue();
        engine.displayColors[i] = engine.defaultDisplayColors[i] = static_cast<float>(channel) / 255.0f;
    }
    isInteractive = true;
    SignalReadyToExecute();
}

void App::SignalReadyToExecute() {
    QLM_GetEngine()->SignalReadyToExecute();
    mainWindow->ShowFirstHint();
    QLM_PostEvent(QLM_Event_RefreshViewportControls);
    mainWindow->Show();
    mainWindow->GetCanvas()->OpenTablet();
    mainWindow->ApplyTheme();
    mainWindow->LayoutPanels();
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
    if (!IsScripted()) options.startFailureRoad();
    isReady = true;
    SetFocusToHiddenWidget(mainWindow);
}

void App::PlayScript() {
    const int status = QLM_PlayScriptInWindow(*mainWindow, options.script, options.outFolder);
    // Every refresh from now on would meet an engine that is being taken apart.
    isReady = false;
    options.stopProgram();
    QLM_Exit(status);
}

void App::ImportFiles(const std::vector<std::string>& paths) {
    QLM_Engine* engine = QLM_GetEngine();
    if (!engine || !engine->isReady) return;
    const wxBusyCursor cursor;
    QLM_OS& os = QLM_OS::Get();
    for (const std::string& path : paths) {
        os.SetBusy(true);
        engine->managers->GetIOManager()->ImportDroppedFile(path);
        os.SetBusy(false);
    }
    os.PrintStatusText({}); // what was going on is over
    mainWindow->ShowFirstHint();
    wxWakeUpIdle();
}

// --- End and failure ------------------------------------------------------------------------------------------------

void App::ReleaseToolkit() { singleInstanceChecker.reset(); }

int App::OnExit() {
    modalCounter.Unregister();
    ReleaseToolkit();
    return wxApp::OnExit();
}

bool App::OnExceptionInMainLoop() {
    try {
        throw;
    } catch (const std::exception& exception) { QLM_ReportFailure(exception.what()); } catch (...) {
        QLM_ReportFailure("unknown exception");
    }
    return false;
}

void App::OnUnhandledException() { OnExceptionInMainLoop(); }

// --- Staged deletion ------------------------------------------------------------------------------------------------

namespace {

void HideForDeletion(wxWindow* window) {
    ThawWindow(window);
    if (!window->IsShown()) return;
    auto* frame = dynamic_cast<wxFrame*>(window);
    auto* parent = frame ? dynamic_cast<wxFrame*>(frame->GetParent()) : nullptr;
    if (parent && !parent->IsIconized()) parent->SetFocus();
    window->Hide();
}

} // namespace

void App::StageForDeletion(wxWindow* window) {
    if (!window || dynamic_cast<wxScrollBar*>(window) || stagedForDeletion.count(window)) return;
    HideForDeletion(window);
    stagedForDeletion.emplace(window, window);
}

void App::StageChildrenForDeletion(wxWindow* window) {
    const QLM_CustomPropertyContainer* properties = PropertiesOf(window);
    if (properties && properties->HasProperty("NO_STAGE_CHILDREN_FOR_DELETION")) return;
    for (wxWindow* child : window->GetChildren()) StageForDeletion(child);
}

void App::DestroyStagedWindows() {
    auto staged = std::move(stagedForDeletion);
    stagedForDeletion.clear();
    for (auto& [address, window] : staged)
        if (window) window->Destroy();
}

} // namespace QLM::GUI
