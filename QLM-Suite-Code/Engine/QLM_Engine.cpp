#include "Engine/QLM_Engine.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_Workhorse.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Manager.h"
#include "Engine/QLM_Messages.h"
#include "Engine/QLM_TreeGroup.h"
#include "Engine/QLM_UndoManager.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_Material.h"
#include "Math/QLM_MathTables.h"
#include "Math/QLM_Random.h"
#include "Rasterizer/QLM_DepthBuffer.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

#include <algorithm>
#include <atomic>

namespace {

constexpr int MajorVersion = 8;
constexpr int ViewportCount = 4;
constexpr float ViewRestSeconds = 0.5f;
constexpr uint32_t ShortMemoryMB = 512;
constexpr int MaximumFolderDepth = 32;

std::atomic<QLM_Engine*> theEngine{nullptr};

/// Looks for a file name, case-blind, in a folder and all below; links that lead in circles end at the depth.
bool FindBelow(const std::string& folder, const std::string& fileName, int depth, std::string& out) {
    const std::string candidate = folder + fileName;
    if (QLM_FileExists(candidate)) {
        out = QLM_ResolveCase(candidate);
        return true;
    }
    if (depth == 0) return false;
    for (const std::string& entry : QLM_ListFolder(folder)) {
        const std::string child = folder + entry + "/";
        if (QLM_FolderExists(child) && FindBelow(child, fileName, depth - 1, out)) return true;
    }
    return false;
}

/// Whole name below the folder, then its last part alone.
bool FindInFolder(const std::string& folder, const std::string& name, std::string& out) {
    const std::string below = name.substr(std::min(name.find_first_not_of("/\\"), name.size()));
    for (const std::string& candidate : {folder + below, folder + QLM_FileNameOf(name)}) {
        if (!QLM_FileExists(candidate)) continue;
        out = QLM_ResolveCase(candidate);
        return true;
    }
    return false;
}

void StopRenders(QLM_ViewportManager* viewports) {
    for (int i = 0; viewports && i < ViewportCount; ++i) viewports->GetViewport(i)->OnViewChanged();
}

} // namespace

QLM_Engine* QLM_GetEngine() {
    QLM_Heartbeat(__FILE__, __LINE__, 3);
    return theEngine.load(std::memory_order_acquire);
}

QLM_Managers& QLM_GetManagers() {
    static QLM_Managers& none = *new QLM_Managers;
    QLM_Engine* const engine = theEngine.load(std::memory_order_acquire);
    return engine && engine->managers ? *engine->managers : none;
}

void QLM_CreateEngine(const char* name, const QLM_EngineParts& parts, const QLM_ShellCallbacks& shell,
                      bool useUserSettings) {
    if (theEngine.load()) QLM_RaiseError("Only one instance of QLM_Engine is allowed");
    auto* engine = new QLM_Engine;
    engine->shell = shell;
    engine->useUserSettings = useUserSettings;
    theEngine.store(engine, std::memory_order_release);
    engine->Initialize(name, parts);
}

// --- Life -----------------------------------------------------------------------------------------------------------

void QLM_Engine::SetDirectories(const char* product) {
    productName = product;
    name = product;
    SetNameText(product);
    configDirectory = QLM_OS::GetConfigDirectory();
    if (useUserSettings && !QLM_FolderExists(configDirectory)) QLM_CreateDirectory(configDirectory);
    // By the product's name, not by `name`, which changes later: the next start must find the file again.
    settingsPath = QLM_FormatText("%s%s_v%d.ini", configDirectory, productName, MajorVersion);
    splashScreenPath = QLM_FormatText("%s%s-SplashScreen-v%d.png", configDirectory, productName, MajorVersion);
    splashScreenInfoPath = QLM_FormatText("%s%s-SplashScreen-Info-v%d.ini", configDirectory, productName, MajorVersion);

    const std::string& application = QLM_OS::Get().GetApplicationDirectory();
    importPath = application + "Data/Objects/"; // the samples
    exportPath = QLM_OS::GetDocumentsDirectory();
    imagesPath = application + "Images/";
    projectsPath = application + "Projects/";
    ttPresetFiles = "/MyConversion/TT-%SOURCE%";
    ttOutputTextures = "/MyConversion/TT-%SOURCE%-%GROUP%-%CHANNEL%";
    defaultProjectPath = application + "Data/Default.quillmere";
}

void QLM_Engine::Initialize(const char* product, const QLM_EngineParts& parts) {
    QLM_TRACE(1);
    SetDirectories(product);
    statusText = QLM_GetString(227);

    if (parts.createOverlayWorkhorse) overlayWorkhorse = parts.createOverlayWorkhorse();
    if (parts.createEmptyMaterial) {
        emptyMaterial = parts.createEmptyMaterial();
        emptyMaterial->SetName("__QLM_EMPTY__");
    }
    if (parts.createDepthBuffer) {
        depthBufferA = parts.createDepthBuffer(true);
        depthBufferB = parts.createDepthBuffer(false);
    }

    LoadSettings();
    ++runCount;
    SaveSettings();

    managers = new QLM_Managers;
    if (parts.createManagers) parts.createManagers(*managers);
    managers->InitializeAll();
    name = QLM_GetString(1722);

    ClearAll();
}

QLM_Engine::~QLM_Engine() {
    QLM_AllWorkhorses::Get().StopAll();
    SaveSettings();
    if (managers) {
        StopRenders(managers->GetViewportManager());
        // Items report their end to managers, so they go while all managers stand.
        ClearScene();
        delete managers;
        managers = nullptr;
    }
    delete overlayWorkhorse;
    delete depthBufferA;
    delete depthBufferB;
    delete emptyMaterial;
    QLM_Engine* self = this;
    theEngine.compare_exchange_strong(self, nullptr);
}

void QLM_Engine::SignalReadyToExecute() {
    applicationTimer.Start();
    isReady = true;
    QLM_OS& os = QLM_OS::Get();
    os.PrintStatus("Running in 64 bit mode.");
    os.PrintStatus("Welcome to Quillmere-Pro");
    for (const std::string& message : startupMessages) os.PrintMessageText(message);
    startupMessages.clear();
    QLM_PostEvent(QLM_Event_RefreshViewportControls);
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
}

bool QLM_Engine::ExitRequested() {
    if (!QLM_OS::Get().AskYesNo(QLM_GetString(186))) return false;
    ShutDown();
    QLM_FreeMathLookupTables();
    QLM_VirtualMemory_Shutdown();
    QLM_GL_FreeTextures();
    QLM_EndLogging();
    QLM_Exit(0);
}

void QLM_Engine::ShutDown() {
    QLM_TRACE(1);
    // No thread may still read what the managers free.
    if (shell.beforeShutDown) shell.beforeShutDown();
    isReady = false;
    QLM_AllWorkhorses::Get().StopAll();
    if (managers) {
        StopRenders(managers->GetViewportManager());
        managers->ClearAll();
    }
    SaveSettings();
    if (managers) ClearScene();
    QLM_FreeEvents();
    delete this;
    // What the last items and managers still posted has no one to run it.
    QLM_FreeEvents();
}

// --- The project ----------------------------------------------------------------------------------------------------

void QLM_Engine::ClearScene() {
    if (QLM_UndoManager* undo = managers->GetUndoManager()) undo->ClearLists();
    if (QLM_ObjectManager* objects = managers->GetObjectManager()) objects->DeleteAllObjects();
    if (QLM_MapManager* maps = managers->GetMapManager()) maps->DeleteAllMaps();
}

void QLM_Engine::ClearAll() {
    QLM_TRACE(1);
    StopRenders(managers->GetViewportManager());
    managers->ClearAll();
    temporarySearchPaths.DeleteAll();
    lastViewportChangeTimer.Start();
    applicationTimer.Start();
    ClearScene();
    selectionMode = 0;
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
    ResetDisplaySettings();
    managers->AfterClearAll();
    QLM_VirtualMemory_Reset();
}

void QLM_Engine::ResetDisplaySettings() {
    const uint8_t flags[4] = {1, 1, 1, 0};
    std::copy(flags, flags + 4, viewportToggleFlags);
    if (QLM_FadeByAngleManager* fade = managers->GetFadeByAngleManager()) {
        fade->Enabled = false;
        fade->Falloff = 0.8f;
        fade->Cutoff = 0.05f;
    }
    std::copy(defaultDisplayColors, defaultDisplayColors + 6, displayColors);
    for (int i = 0; i < 16; ++i) sceneMatrix[i] = i % 5 == 0 ? 1.0f : 0.0f;
    QLM_ViewportManager* const viewports = managers->GetViewportManager();
    for (int i = 0; viewports && i < ViewportCount; ++i) {
        QLM_Viewport* const viewport = viewports->GetViewport(i);
        viewport->MaterialChannelName = "Color";
        viewport->DisplayMode = 3;
        viewport->ViewLocked = false;
        viewport->ResetView();
    }
}

bool QLM_Engine::FindFile(const std::string& fileName, uint32_t flags, std::string& out) {
    QLM_TRACE(2);
    if (fileName.empty()) return false;
    if (QLM_FileExists(fileName)) {
        out = QLM_ResolveCase(fileName);
        return true;
    }
    for (const QLM_SearchPaths* paths : {&searchPaths, &temporarySearchPaths})
        for (const QLM_SearchPath* path : *paths)
            if (FindInFolder(path->path, fileName, out)) return true;
    if (flags & FindRecursive) {
        const std::string last = QLM_FileNameOf(fileName);
        for (const QLM_SearchPaths* paths : {&searchPaths, &temporarySearchPaths})
            for (const QLM_SearchPath* path : *paths)
                if (path->recursive && FindBelow(path->path, last, MaximumFolderDepth, out)) return true;
    }
    if (!(flags & FindAskUser)) return false;
    const std::string answer = QLM_OS::Get().LocateFile(fileName);
    if (answer.empty() || !QLM_FileExists(answer)) return false;
    out = QLM_ResolveCase(answer);
    return true;
}

// --- Idle -----------------------------------------------------------------------------------------------------------

void QLM_Engine::OnIdleOrPassive() {
    QLM_ReleaseDeferredItems();
    if (QLM_IOManager* io = managers->GetIOManager()) io->transientFlag = false;
    if (QLM_OS::Get().IsBusy()) QLM_OS::Get().SetBusy(false);
    if (QLM_CullingManager* culling = managers->GetCullingManager()) culling->RefreshEffectiveMethod();

    QLM_ObjectManager* const objects = managers->GetObjectManager();
    QLM_ToolManager* const tools = managers->GetToolManager();
    if (tools && tools->finishStrokeFlag) {
        tools->finishStrokeFlag = false;
        if (objects) objects->OnFullSurfaceChanged();
    }
    QLM_ReseedRandomFromClock();
    if (QLM_MapManager* maps = managers->GetMapManager()) maps->ClearRecentlyUsed();

    QLM_ViewportManager* const viewports = managers->GetViewportManager();
    if (viewports && viewports->viewportsMoved && lastViewportChangeTimer.GetElapsedSeconds() > ViewRestSeconds) {
        viewports->viewportsMoved = false;
        QLM_PostEvent(QLM_Event_AllViewportsChanged);
    }
    statusText = QLM_GetString(227);
    if (objects) objects->GetCurrentObject(); // a stale ID falls back to the first object
    managers->IdleAll();

    // Page paint data out before the machine pages the program.
    if (QLM_OS::GetFreePhysicalMemoryMB() >= ShortMemoryMB) return;
    const uint64_t before = QLM_Clock::RealNanoseconds();
    QLM_VirtualMemory_FlushAll();
    const double seconds = static_cast<double>(QLM_Clock::RealNanoseconds() - before) * 1e-9;
    QLM_Log("Flushed the virtual memory in %.3f seconds", seconds);
}
