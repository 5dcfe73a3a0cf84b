#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Engine/QLM_UndoManager.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_MorphManager.h"
#include "Geometry/QLM_SelectionManager.h"
#include "Geometry/QLM_SubDManager.h"
#include "Geometry/QLM_SymmetryManager.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Geometry/QLM_VertexWeightManager.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string calls;

/// A manager that writes down what it is told.
template <class Base, char letter, bool shape> class Recorder : public Base {
  public:
    ~Recorder() override { calls += std::string("~") + letter; }
    void Initialize() override { Note('I'); }
    void OnIdle() override { Note('O'); }
    void Clear() override { Note('C'); }
    void AfterClear() override { Note('A'); }
    bool DependsOnShape() const override { return shape; }

  private:
    static void Note(char what) { calls += {what, letter}; }
};

class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char folderTemplate[] = "/tmp/qlm_engine_XXXXXX";
        folder = std::string(mkdtemp(folderTemplate)) + "/";
        setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
        settingsFile = folder + "Quillmere/Quillmere_v8.ini";
        oldApplication = QLM_OS::Get().GetApplicationDirectory();
        QLM_OS::Get().SetApplicationDirectory(folder + "app/");
        QLM_OS::Get().mouseButtonsDown = 0;
        QLM_OS::Get().recorded.clear();
        QLM_OS::Get().queuedAnswers.clear();
        calls.clear();
    }
    void TearDown() override {
        Stop();
        QLM_OS::Get().SetApplicationDirectory(oldApplication);
        unsetenv("XDG_CONFIG_HOME");
        fs::remove_all(folder);
    }

    QLM_Engine& Start(bool userSettings, QLM_ShellCallbacks shell = {}) {
        QLM_InitializeEvents();
        QLM_EngineParts parts;
        parts.createManagers = [](QLM_Managers& managers) {
            managers.Add(&QLM_Managers::symmetry, new Recorder<QLM_SymmetryManager, 's', true>);
            managers.Add(&QLM_Managers::subD, new Recorder<QLM_SubDManager, 'd', false>);
            managers.Add(&QLM_Managers::undo, new Recorder<QLM_UndoManager, 'u', true>);
        };
        QLM_CreateEngine("Quillmere", parts, shell, userSettings);
        return *QLM_GetEngine();
    }
    static void Stop() {
        if (QLM_Engine* engine = QLM_GetEngine()) engine->ShutDown();
    }
    void Write(const std::string& path, const std::string& text) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << text;
    }
    std::string Read(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    std::string folder, settingsFile, oldApplication;
};

} // namespace

TEST(Messages, AreASparseTable) {
    EXPECT_STREQ(QLM_GetString(1722), "Quillmere-Pro");
    EXPECT_STREQ(QLM_GetString(572), "Using the previous tool \"%s\".");
    EXPECT_STREQ(QLM_GetString(186),
                 "Are you sure that you want to exit the program?\n\n(all unsaved changes will be lost)");
    EXPECT_STREQ(QLM_GetString(0), "");
    EXPECT_STREQ(QLM_GetString(2014), "");
    EXPECT_STREQ(QLM_GetString(-1), "Error");
    EXPECT_STREQ(QLM_GetString(2015), "Error");
    // Texts that take arguments keep the directives that their users fill.
    EXPECT_NE(std::string(QLM_GetString(610)).find("%d"), std::string::npos);
    EXPECT_NE(std::string(QLM_GetString(614)).find("%s"), std::string::npos);
}

TEST_F(EngineTest, WalksItsManagersInTableOrder) {
    QLM_Engine& engine = Start(false);
    EXPECT_EQ(calls, "IsIdIuCsCdCuAsAdAu");
    EXPECT_EQ(engine.name, "Quillmere-Pro");
    EXPECT_EQ(engine.productName, "Quillmere");
    EXPECT_NE(QLM_GetManagers().GetSubDManager(), nullptr);
    EXPECT_EQ(QLM_GetManagers().GetIOManager(), nullptr);
    EXPECT_TRUE(QLM_IsEventPending(QLM_Event_RefreshAllPanels));
    calls.clear();
    QLM_GetManagers().ClearShapeDependents();
    engine.OnIdleOrPassive();
    EXPECT_EQ(calls, "CsCuOsOdOu");
    EXPECT_THROW(QLM_CreateEngine("Quillmere", {}, {}, false), QLM_Exception);
    EXPECT_EQ(QLM_GetEngine(), &engine);

    calls.clear();
    Stop();
    EXPECT_EQ(calls, "CsCdCu~s~d~u");
    EXPECT_EQ(QLM_GetEngine(), nullptr);
    EXPECT_FALSE(QLM_AreEventsPending());
    EXPECT_EQ(QLM_GetManagers().GetSubDManager(), nullptr);
}

TEST_F(EngineTest, ExitAsksAndADeclinedExitChangesNothing) {
    QLM_Engine& engine = Start(false);
    QLM_OS::Get().queuedAnswers = {"no"};
    calls.clear();
    EXPECT_FALSE(engine.ExitRequested());
    EXPECT_EQ(calls, "");
    ASSERT_FALSE(QLM_OS::Get().recorded.empty());
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, QLM_GetString(186));
}

TEST_F(EngineTest, IdlePassesRunOnlyWhenNothingStandsAgainstThem) {
    bool modal = false;
    std::vector<int> refreshed;
    QLM_ShellCallbacks shell;
    shell.isModal = [&] { return modal; };
    shell.refreshInterface = [&](int id) { refreshed.push_back(id); };
    QLM_Engine& engine = Start(false, shell);
    EXPECT_FALSE(engine.IdlePass());
    engine.startupMessages = {"something to say"};
    engine.SignalReadyToExecute();
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "something to say");
    EXPECT_TRUE(engine.startupMessages.empty());

    modal = true;
    EXPECT_FALSE(engine.IdlePass());
    modal = false;
    EXPECT_FALSE(engine.PointerPress(QLM_Engine::Button::Left, 1, 1, {}));
    calls.clear();
    EXPECT_FALSE(engine.IdlePass());
    EXPECT_EQ(calls, "");
    std::string what;
    EXPECT_TRUE(engine.IsWorkPending(what));
    engine.PointerRelease(QLM_Engine::Button::Left, 1, 1);
    engine.PointerRelease(QLM_Engine::Button::Left, 1, 1); // one too many counts for nothing
    EXPECT_EQ(QLM_OS::Get().mouseButtonsDown, 0);

    EXPECT_TRUE(engine.IdlePass());
    EXPECT_EQ(calls, "OsOdOu");
    EXPECT_FALSE(engine.IsWorkPending(what)) << what;
    // Two requests for all panels were made, by the clearing and by the start: one refresh answers both.
    EXPECT_EQ(refreshed, (std::vector<int>{QLM_Event_RefreshViewportControls, QLM_Event_RefreshAllPanels}));
    EXPECT_TRUE(engine.projectChanged);
}

TEST_F(EngineTest, UpdateEventsCoalesceAlsoWhenSent) {
    std::vector<int> refreshed;
    std::vector<std::pair<std::string, int>> commands;
    QLM_ShellCallbacks shell;
    shell.refreshInterface = [&](int id) { refreshed.push_back(id); };
    shell.runCommand = [&](const std::string& name, int value) { commands.emplace_back(name, value); };
    Start(false, shell);
    QLM_ProcessEvents();
    refreshed.clear();

    QLM_PostEvent(QLM_Event_RefreshToolPanel);
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow); // sends 3006, for which one is waiting
    QLM_PostEvent(QLM_Event_RefreshToolPanel);
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
    auto* command = new QLMEvent(QLM_Event_RunCommand);
    command->AddStringParameter("DoIt", 0);
    command->ints[0] = 7;
    QLM_PostEvent(command);
    QLM_ProcessEvents();
    EXPECT_EQ(refreshed, (std::vector<int>{QLM_Event_RefreshToolPanel, QLM_Event_RefreshAllPanels}));
    EXPECT_EQ(commands, (std::vector<std::pair<std::string, int>>{{"DoIt", 7}}));
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow);
    QLM_ProcessEvents();
    EXPECT_EQ(refreshed.back(), QLM_Event_RefreshAllPanels);
    // A map that is gone: no undo, no refresh, no message.
    const size_t messages = QLM_OS::Get().recorded.size();
    EXPECT_EQ(QLM_SendEvent(nullptr, 0, QLM_Event_AssignMap), 0);
    EXPECT_FALSE(QLM_AreEventsPending());
    EXPECT_EQ(QLM_OS::Get().recorded.size(), messages);
}

TEST_F(EngineTest, FirstStartHasDefaultsAndGivesAdviceOnce) {
    QLM_Engine& engine = Start(true);
    EXPECT_EQ(engine.startupMessages, std::vector<std::string>{QLM_GetString(413)});
    EXPECT_EQ(engine.runCount, 1);
    EXPECT_EQ(engine.importPath, folder + "app/Data/Objects/");
    EXPECT_EQ(engine.exportPath, QLM_OS::GetDocumentsDirectory());
    EXPECT_EQ(engine.defaultProjectPath, folder + "app/Data/Default.quillmere");
    EXPECT_EQ(engine.colorTheme, 3u);
    EXPECT_NEAR(engine.displayColors[5], 160.0 / 255.0, 1e-6);
    const std::string written = Read(settingsFile);
    EXPECT_EQ(written.rfind("ImportPath\t" + folder + "app/Data/Objects/\n", 0), 0u);
    EXPECT_NE(written.find("\nRunCount\t1\ndoPromptforHotkeyAssignment\t1\nshowHoverHints\t1\ncolorTheme\t3\n"),
              std::string::npos);
    EXPECT_NE(written.find("\nTabletCutoff\t0.010000\nHints\t1\nUndoLimit\t1024\nLoadDefaultProject\t1\n"),
              std::string::npos);
    Stop();
    QLM_Engine& second = Start(true);
    EXPECT_TRUE(second.startupMessages.empty());
    EXPECT_EQ(second.runCount, 2);
}

TEST_F(EngineTest, SettingsAreReadWithCare) {
    fs::create_directories(folder + "models/deep");
    fs::create_directories(folder + "more");
    Write(settingsFile, "importpath\t" + folder + "models\n"
                        "ExportPath\t" + folder + "gone\n"
                        "SearchPath\t" + folder + "models\n"
                        "SearchPath\t" + folder + "models/\n"
                        "RecursiveSearchPath\t" + folder + "more\n"
                        "RunCount\t41\ncolorTheme\t7\nHints\t0\nUndoLimit\t64\nTabletCutoff\tnan\n"
                        "MouseWheelSensitivity\t0.25\nContinuousZoom\tperhaps\nNoSuchKey\t1\n\n"
                        "ttPresetFiles\t/My Files/%SOURCE%\ncolorTheme\t-1\n");
    QLM_Engine& engine = Start(true);
    EXPECT_EQ(engine.importPath, folder + "models/");
    EXPECT_EQ(engine.exportPath, QLM_OS::GetDocumentsDirectory());
    ASSERT_EQ(engine.searchPaths.size(), 2u);
    EXPECT_EQ(engine.searchPaths[0]->path, folder + "models/");
    EXPECT_FALSE(engine.searchPaths[0]->recursive);
    EXPECT_TRUE(engine.searchPaths[1]->recursive);
    EXPECT_EQ(engine.runCount, 42);
    EXPECT_EQ(engine.colorTheme, 3u);
    EXPECT_FALSE(engine.showHints);
    EXPECT_EQ(engine.undoLimit, 64);
    EXPECT_EQ(engine.tabletCutoff, 0.01f);
    EXPECT_EQ(engine.mouseWheelSensitivity, 0.25f);
    EXPECT_FALSE(engine.continuousZoom);
    EXPECT_EQ(engine.ttPresetFiles, "/My Files/%SOURCE%");

    std::string error;
    EXPECT_TRUE(engine.SetOption("colortheme", "4", error));
    EXPECT_NE(Read(settingsFile).find("colorTheme\t4\n"), std::string::npos); // at once
    EXPECT_FALSE(engine.SetOption("colorTheme", "5", error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(engine.SetOption("NoSuchKey", "5", error));
    EXPECT_TRUE(error.empty());
    // What a reader would split is not written.
    engine.projectsPath = "/" + std::string(240, 'x');
    engine.SaveSettings();
    EXPECT_EQ(Read(settingsFile).find("ProjectsPath"), std::string::npos);
}

TEST_F(EngineTest, TheOldSettingsFileServesOnce) {
    Write(folder + "Velmora/Velmora_v1.ini", "RunCount\t9\nUnknown\tkey\nLoadDefaultProject\t0\n");
    QLM_Engine& engine = Start(true);
    EXPECT_EQ(engine.runCount, 10);
    EXPECT_FALSE(engine.loadDefaultProject);
    EXPECT_TRUE(engine.startupMessages.empty());
    EXPECT_TRUE(fs::exists(settingsFile));
}

TEST_F(EngineTest, AScriptTouchesNoFileOfTheUser) {
    Write(settingsFile, "RunCount\t5\nHints\t0\n");
    QLM_Engine& engine = Start(false);
    EXPECT_TRUE(engine.showHints);
    std::string error;
    EXPECT_TRUE(engine.SetOption("UndoLimit", "10", error));
    EXPECT_EQ(engine.undoLimit, 10);
    Stop();
    EXPECT_EQ(Read(settingsFile), "RunCount\t5\nHints\t0\n");
    fs::remove_all(folder + "Quillmere");
    Start(false);
    Stop();
    EXPECT_FALSE(fs::exists(folder + "Quillmere"));
}

TEST_F(EngineTest, FindsFilesBelowSearchPaths) {
    QLM_Engine& engine = Start(false);
    Write(folder + "a/Runtime/Skin.jpg", "1");
    Write(folder + "b/skin.JPG", "2");
    Write(folder + "c/x/y/Deep.png", "3");
    std::string found;
    EXPECT_FALSE(engine.FindFile("skin.jpg", 0, found));
    engine.searchPaths.AddPath(folder + "a");
    engine.temporarySearchPaths.AddPath(folder + "b//");
    engine.searchPaths.AddPath(folder + "c", true);
    engine.searchPaths.AddPath(folder + "c");
    EXPECT_EQ(engine.searchPaths.size(), 2u);
    EXPECT_TRUE(engine.searchPaths[1]->recursive);

    EXPECT_TRUE(engine.FindFile(folder + "a/runtime/skin.jpg", 0, found));
    EXPECT_EQ(found, folder + "a/Runtime/Skin.jpg");
    EXPECT_TRUE(engine.FindFile("\\Runtime\\skin.jpg", 0, found)); // whole name below a path
    EXPECT_EQ(found, folder + "a/Runtime/Skin.jpg");
    EXPECT_TRUE(engine.FindFile("C:\\elsewhere\\Skin.jpg", 0, found)); // last part alone, temporary paths too
    EXPECT_EQ(found, folder + "b/skin.JPG");
    EXPECT_FALSE(engine.FindFile("deep.png", 0, found));
    EXPECT_TRUE(engine.FindFile("deep.png", QLM_Engine::FindRecursive, found));
    EXPECT_EQ(found, folder + "c/x/y/Deep.png");
    EXPECT_FALSE(engine.FindFile("", QLM_Engine::FindRecursive, found));

    QLM_OS::Get().queuedAnswers = {"yes", folder + "c/x/y/Deep.png"};
    EXPECT_TRUE(engine.FindFile("missing.png", QLM_Engine::FindAskUser, found));
    EXPECT_EQ(found, folder + "c/x/y/Deep.png");
    QLM_OS::Get().queuedAnswers = {"no"};
    EXPECT_FALSE(engine.FindFile("missing.png", QLM_Engine::FindAskUser, found));
}
