// The menus of the main window and what they run. Labels carry no accelerator and no mnemonic: the toolkit would take
// the keys before the hotkey filter sees them.

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Interface/QLM_WX_App.h"
#include "Interface/QLM_WX_MainWindow.h"
#include "Interface/QLM_WX_OSFunctions.h"
#include "Interface/QLM_WX_Text.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Tools/QLM_ToolManager.h"

#include <wx/choicdlg.h>
#include <wx/colordlg.h>
#include <wx/menu.h>
#include <wx/utils.h>

#include <cmath>

namespace QLM::GUI {

namespace {

/// The index of the item that the user chooses; the only one without a question, -1 for cancel.
int ChooseOne(wxWindow* parent, const char* question, const std::vector<std::string>& names) {
    if (names.size() < 2) return static_cast<int>(names.size()) - 1;
    wxArrayString choices;
    for (const std::string& name : names) choices.Add(ToToolkit(name));
    return wxGetSingleChoiceIndex(question, "Quillmere", choices, parent);
}

} // namespace

void MainWindow::BuildMenus() {
    auto* file = new wxMenu;
    const auto add = [this, file](const char* label, void (MainWindow::*act)()) {
        const int id = file->Append(wxID_ANY, label)->GetId();
        Bind(
            wxEVT_MENU, [this, act](wxCommandEvent&) { (this->*act)(); }, id);
    };
    add("Import...", &MainWindow::OnImport);
    add("Export map...", &MainWindow::OnExportMap);
    add("Export object...", &MainWindow::OnExportObject);
    file->AppendSeparator();
    Bind(
        wxEVT_MENU, [this](wxCommandEvent&) { Close(); }, file->Append(wxID_ANY, "Exit")->GetId());

    auto* toolMenu = new wxMenu;
    for (const auto& [name, tool] : QLM_GetManagers().GetToolManager()->GetAllTools()) {
        const int id = toolMenu->AppendRadioItem(wxID_ANY, ToToolkit(tool->GetName()))->GetId();
        toolOfMenuItem[id] = name;
        Bind(
            wxEVT_MENU, [this](wxCommandEvent& event) { OnToolMenu(event.GetId()); }, id);
    }

    toolMenu->AppendSeparator();
    Bind(
        wxEVT_MENU, [this](wxCommandEvent&) { OnChooseColor(); }, toolMenu->Append(wxID_ANY, "Color...")->GetId());

    auto* bar = new wxMenuBar;
    bar->Append(file, "File");
    bar->Append(toolMenu, "Tools");
    SetMenuBar(bar);
}

void MainWindow::OnToolMenu(int id) {
    const auto found = toolOfMenuItem.find(id);
    if (found == toolOfMenuItem.end()) return;
    QLM_GetManagers().GetToolManager()->SelectToolByName(found->second);
    RefreshControls();
}

void MainWindow::OnChooseColor() {
    float* const color = QLM_GetEngine()->foregroundColor;
    const auto byte = [color](int i) { return static_cast<unsigned char>(std::lround(color[i] * 255.0f)); };
    const wxColour chosen = wxGetColourFromUser(this, wxColour(byte(0), byte(1), byte(2)), "Color of the brush");
    if (!chosen.IsOk()) return;
    const unsigned char bytes[3] = {chosen.Red(), chosen.Green(), chosen.Blue()};
    for (int i = 0; i < 3; ++i) color[i] = static_cast<float>(bytes[i]) / 255.0f;
}

void MainWindow::OnImport() {
    const std::vector<std::string> paths = AskFilesToImport(QLM_GetEngine()->importPath);
    if (!paths.empty()) app.ImportFiles(paths);
}

void MainWindow::OnExportMap() {
    QLM_MapManager* manager = QLM_GetManagers().GetMapManager();
    std::vector<std::string> names;
    std::vector<uint32_t> ids;
    for (QLM_MaterialMapSource* map : manager->GetMaps()) {
        names.push_back(map->GetName());
        ids.push_back(map->GetID());
    }
    QLM_OS& os = QLM_OS::Get();
    if (names.empty()) os.PrintMessageText("There is no map to export.");
    const int index = ChooseOne(this, "Which map?", names);
    if (index < 0) return;
    const std::string& name = names[static_cast<size_t>(index)];
    const std::string extension = QLM_ExtensionOf(name).empty() ? "png" : QLM_ExtensionOf(name);
    const std::string path = os.AskFile("Export map", extension, QLM_GetEngine()->exportPath + name, true);
    // Boxes let time pass: what was chosen may be gone.
    auto* map = QLM_FindByID<QLM_MaterialMapSource>(ids[static_cast<size_t>(index)]);
    if (path.empty() || !map) return;
    const wxBusyCursor cursor;
    std::string error;
    if (!manager->ExportImageMap(map, path, error)) {
        os.MessageBoxText(error);
        return;
    }
    QLM_GetEngine()->exportPath = QLM_FolderOf(path);
    os.PrintMessageText("Exported the map " + path);
}

void MainWindow::OnExportObject() { QLM_GetManagers().GetIOManager()->ExportObjects(); }

} // namespace QLM::GUI
