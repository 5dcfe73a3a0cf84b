#include "Interface/QLM_WX_OSFunctions.h"

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Interface/QLM_WX_App.h"
#include "Interface/QLM_WX_GLCanvas.h"
#include "Interface/QLM_WX_MainWindow.h"
#include "Interface/QLM_WX_Text.h"

#include <wx/evtloop.h>
#include <wx/filedlg.h>
#include <wx/msgdlg.h>
#include <wx/textdlg.h>
#include <wx/utils.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace QLM::GUI {

namespace {

wxWindow* ParentOfBoxes() {
    MainWindow* window = TheApp() ? TheApp()->GetMainWindow() : nullptr;
    return window && window->IsShown() ? window : nullptr;
}

void PrintLine(const std::string& text) {
    std::string line = text;
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    std::fprintf(stderr, "message: %s\n", line.c_str());
}

bool Ask(const std::string& caption, const std::string& text, long style, int agreement) {
    wxMessageDialog dialog(ParentOfBoxes(), ToToolkit(text), ToToolkit(caption), style | wxICON_QUESTION | wxCENTRE);
    return dialog.ShowModal() == agreement;
}

std::string AskFile(const std::string& description, const std::string& extension, const std::string& suggestion,
                    bool saving) {
    std::string upper = extension;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const std::string wildcard = extension.empty() ? "*" : "*." + QLM_ToLower(extension) + ";*." + upper;
    wxFileDialog dialog(ParentOfBoxes(), ToToolkit(description), ToToolkit(QLM_FolderOf(suggestion)),
                        ToToolkit(QLM_FileNameOf(suggestion)),
                        ToToolkit(upper + " (" + wildcard + ")|" + wildcard + "|All files|*"),
                        saving ? wxFD_SAVE | wxFD_OVERWRITE_PROMPT : wxFD_OPEN | wxFD_FILE_MUST_EXIST);
    if (dialog.ShowModal() != wxID_OK) return {};
    const std::string path = PathFromToolkit(dialog.GetPath());
    return saving && QLM_ExtensionOf(path).empty() && !extension.empty() ? path + "." + extension : path;
}

std::string AskLine(const std::string& question, const std::string& suggestion) {
    wxTextEntryDialog dialog(ParentOfBoxes(), ToToolkit(question), "Quillmere", ToToolkit(suggestion));
    return dialog.ShowModal() == wxID_OK ? FromToolkit(dialog.GetValue()) : std::string();
}

/// Lets the window redraw inside a long operation; input waits.
void PumpMessages(App& app) {
    wxEventLoopBase* const loop = wxEventLoopBase::GetActive();
    MainWindow* const window = app.GetMainWindow();
    if (!loop || loop->IsYielding() || (window && window->GetCanvas()->IsDrawing())) return;
    loop->YieldFor(wxEVT_CATEGORY_UI);
}

} // namespace

void ShowMessageBox(const std::string& caption, const std::string& text) {
    wxMessageDialog(ParentOfBoxes(), ToToolkit(text), ToToolkit(caption), wxOK | wxCENTRE).ShowModal();
}

std::vector<std::string> AskFilesToImport(const std::string& folder) {
    wxString patterns; // in both cases: file names tell them apart here
    for (const wxString extension : {"obj", "objz", "obz", "png", "jpg", "jpeg", "tif", "tiff", "bmp", "gif", "tga"})
        patterns += "*." + extension + ";*." + extension.Upper() + ";";
    patterns.RemoveLast();
    wxFileDialog dialog(ParentOfBoxes(), "Import", ToToolkit(folder), wxString(),
                        "Objects and pictures|" + patterns + "|All files|*",
                        wxFD_OPEN | wxFD_FILE_MUST_EXIST | wxFD_MULTIPLE);
    std::vector<std::string> paths;
    if (dialog.ShowModal() != wxID_OK) return paths;
    wxArrayString chosen;
    dialog.GetPaths(chosen);
    for (const wxString& path : chosen) paths.push_back(PathFromToolkit(path));
    return paths;
}

void QLM_SetupOSfunctions(App& app) {
    QLM_OSCallbacks callbacks;
    const bool verbose = app.GetOptions().verbose || app.IsScripted();
    const auto panel = [&app]() -> BottomPanel* {
        return app.GetMainWindow() ? app.GetMainWindow()->GetBottomPanel() : nullptr;
    };
    callbacks.printMessage = [panel, verbose](const std::string& text) {
        if (verbose) PrintLine(text);
        if (panel()) panel()->ShowMessage(text);
    };
    callbacks.printStatus = [panel](const std::string& text) {
        if (panel()) panel()->ShowStatus(text);
    };
    callbacks.printHint = [panel](const std::string& text) {
        if (panel()) panel()->ShowHint(text);
    };
    callbacks.showBusy = [&app] {
        if (app.GetMainWindow()) app.GetMainWindow()->UpdateWindowTitle();
    };
    callbacks.pumpMessages = [&app] { PumpMessages(app); };
    callbacks.exitToolkit = [&app] { app.ReleaseToolkit(); };
    callbacks.messageBox = [verbose, scripted = app.IsScripted()](const std::string& caption, const std::string& text) {
        if (verbose) PrintLine(text);
        if (!scripted) ShowMessageBox(caption, text);
    };
    if (!app.IsScripted()) {
        callbacks.askOkCancel = [](const std::string& caption, const std::string& text) {
            return Ask(caption, text, wxOK | wxCANCEL, wxID_OK);
        };
        callbacks.askYesNo = [](const std::string& caption, const std::string& text) {
            return Ask(caption, text, wxYES_NO, wxID_YES);
        };
        callbacks.fileDialog = AskFile;
        callbacks.askText = AskLine;
        callbacks.openAddress = [](const std::string& url) { wxLaunchDefaultBrowser(ToToolkit(url)); };
    }
    QLM_OS::Get().isRecording = app.IsScripted();
    QLM_OS::Get().SetCallbacks(std::move(callbacks));
}

} // namespace QLM::GUI
