#include "App/QLM_CompositionRoot.h"

#include "App/QLM_Recovery.h"
#include "Commands/QLM_Commands.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Engine/QLM_UndoManager.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_MorphManager.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_SelectionManager.h"
#include "Geometry/QLM_SubDManager.h"
#include "Geometry/QLM_SymmetryManager.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Images/QLM_ImageLoader.h"
#include "Interface/QLM_WX_Start.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_Material.h"
#include "Maps/QLM_MaterialManager.h"
#include "Math/QLM_MathTables.h"
#include "Math/QLM_Random.h"
#include "Painting/QLM_TouchupBrush.h"
#include "Painting/QLM_TouchupRenderManager.h"
#include "Rasterizer/QLM_DepthBuffer.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_OverdrawBufferWorkhorse.h"
#include "Rendering/QLM_RenderManagers.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_Navigators.h"
#include "Tools/QLM_ToolManager.h"
#include "Tools/QLM_ToolManagers.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

/// The tools, list by list, in the order of the panels.
void RegisterTools(QLM_ToolManager& tools) {
    tools.RegisterTool("Paint Tools", "ColorBrush", [] { return new QLM_ColorBrush; });
    const char* navigation = "Navigate and Transform Tools";
    tools.RegisterTool(navigation, "MoveView", [] { return new QLM_MoveView; });
    tools.RegisterTool(navigation, "ZoomView", [] { return new QLM_ZoomView; });
    tools.RegisterTool(navigation, "RotateView", [] { return new QLM_RotateView; });
}

/// The 24 managers in table order.
void CreateManagers(QLM_Managers& managers) {
    managers.Add(&QLM_Managers::fadeByAngle, new QLM_FadeByAngleManager);
    managers.Add(&QLM_Managers::culling, new QLM_CullingManager);
    managers.Add(&QLM_Managers::symmetry, new QLM_SymmetryManager);
    managers.Add(&QLM_Managers::viewport, new QLM_ViewportManager);
    managers.Add(&QLM_Managers::viewportHover, new QLM_ViewportHoverManager);
    managers.Add(&QLM_Managers::tool, new QLM_ToolManager);
    managers.Add(&QLM_Managers::render, new QLM_RenderManager);
    managers.Add(&QLM_Managers::hotkey, new QLM_HotkeyManager);
    managers.Add(&QLM_Managers::touchupRender, new QLM_TouchupRenderManager);
    managers.Add(&QLM_Managers::vertexWeight, new QLM_VertexWeightManager);
    managers.Add(&QLM_Managers::brushTile, new QLM_BrushTileManager);
    managers.Add(&QLM_Managers::brushShape, new QLM_BrushShapeManager);
    managers.Add(&QLM_Managers::object, new QLM_ObjectManager);
    managers.Add(&QLM_Managers::layer, new QLM_LayerManager);
    managers.Add(&QLM_Managers::map, new QLM_MapManager);
    managers.Add(&QLM_Managers::subD, new QLM_SubDManager);
    managers.Add(&QLM_Managers::preset, new QLM_PresetManager);
    managers.Add(&QLM_Managers::material, new QLM_MaterialManager);
    managers.Add(&QLM_Managers::undo, new QLM_UndoManager);
    managers.Add(&QLM_Managers::navigation, new QLM_NavigationManager);
    managers.Add(&QLM_Managers::utility, new QLM_UtilityManager);
    managers.Add(&QLM_Managers::morph, new QLM_MorphManager);
    managers.Add(&QLM_Managers::selection, new QLM_SelectionManager);
    managers.Add(&QLM_Managers::io, new QLM_IOManager);
    managers.map->overdrawWorkhorse = new QLM_OverdrawBufferWorkhorse;
    RegisterTools(*managers.tool);
}

void FillModuleHooks() {
    QLM_ModuleHooks& hooks = QLM_GetModuleHooks();
    hooks.sweepMaps = [] {
        if (QLM_Engine* engine = QLM_GetEngine(); engine && engine->managers && engine->managers->map) engine->managers->map->SweepMaps();
    };
    hooks.tabletSettings = [] {
        QLM_TabletSettings settings;
        if (const QLM_Engine* engine = QLM_GetEngine()) settings = {engine->tabletSensitivity, engine->tabletCutoff};
        return settings;
    };
    hooks.addTemporarySearchPath = [](const std::string& folder) {
        if (QLM_Engine* engine = QLM_GetEngine()) engine->temporarySearchPaths.AddPath(folder);
    };
}

QLM_EngineParts MakeEngineParts() {
    QLM_EngineParts parts;
    parts.createManagers = CreateManagers;
    parts.createEmptyMaterial = [] { return new QLM_Material; };
    parts.createDepthBuffer = [](bool byteType) { return new QLM_DepthBuffer(byteType ? QLM_DepthBuffer::Byte : QLM_DepthBuffer::Float); };
    parts.createOverlayWorkhorse = []() -> QLM_BaseClass* { return new TOverlay_Workhorse; };
    return parts;
}

} // namespace

bool QLM_TakeInstanceLock() {
    static int lockFile = -1;
    if (lockFile >= 0) return true;
    const char* folder = std::getenv("XDG_RUNTIME_DIR");
    const std::string path = folder && *folder ? std::string(folder) + "/Quillmere_RUNNING.lock"
                                               : "/tmp/Quillmere_RUNNING-" + std::to_string(getuid()) + ".lock";
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    // Where no lock can be made none is needed: nobody else can have it either.
    if (file < 0) return true;
    if (flock(file, LOCK_EX | LOCK_NB) != 0) {
        close(file);
        return false;
    }
    lockFile = file;
    return true;
}

void QLM_StartLogging(const QLM_StartOptions& options) {
    QLM_OS::SetMainThread();
    if (options.threads > 0) QLM_OS::SetNumberOfThreads(options.threads);
    QLM_SetScriptSeed(options.seed);
    if (options.seed) QLM_SeedRandom(options.seed);
    // What fails from here on is in the log.
    const std::string folder = options.logFolder.empty() ? QLM_OS::GetDocumentsDirectory() : options.logFolder;
    QLM_InitializeExceptionHandling(folder, options.installSignalHandlers);
    if (options.useUserSettings) QLM_LoadLoggingLevel(QLM_OS::GetConfigDirectory());
}

bool QLM_StartCoreModules(const QLM_StartOptions& options, std::string& error) {
    QLM_OS& os = QLM_OS::Get();
    if (!options.applicationDirectory.empty()) os.SetApplicationDirectory(options.applicationDirectory);
    if (os.Initialize()) return true;
    error = "Please execute this application from within it's proper folder.\n\n( hint, there should be several sub-folders, "
            "including one called 'Data'. Also if you copied this executable manually, be sure that you did not create a shortcut by accident )";
    QLM_EndLogging();
    return false;
}

bool QLM_StartModules(const QLM_StartOptions& options, std::string& error) {
    QLM_InitializeEvents();
    QLM_InitializeMathLookupTables();
    QLM_InitializeImageHandlers();
    QLM_GL_InitTextures();
    if (!QLM_LoadGraphicsFile(QLM_OS::Get().GetApplicationDirectory() + "Data/Graphics.dat", error)) {
        QLM_EndLogging();
        return false;
    }
    QLM_VirtualMemory_Initialize();
    if (options.singleInstance && !QLM_TakeInstanceLock()) {
        error = QLM_FormatText(QLM_GetString(614), "Quillmere");
        QLM_VirtualMemory_Shutdown();
        QLM_EndLogging();
        return false;
    }
    FillModuleHooks();
    QLM_CreateEngine("Quillmere", MakeEngineParts(), options.shell, options.useUserSettings);
    return true;
}

bool QLM_StartProgram(const QLM_StartOptions& options, std::string& error) {
    QLM_StartLogging(options);
    if (!QLM_StartCoreModules(options, error) || !QLM_StartModules(options, error)) return false;
    QLM_GetEngine()->SignalReadyToExecute();
    return true;
}

void QLM_StopProgram() {
    if (QLM_Engine* engine = QLM_GetEngine()) engine->ShutDown();
    QLM_GetModuleHooks() = {};
    QLM_ShutdownCrunchers();
    QLM_VirtualMemory_Shutdown();
    QLM_GL_FreeTextures();
    QLM_FreeMathLookupTables();
    QLM_EndLogging();
}

void QLM_ConnectWindow(QLM_StartOptions& start, QLM_WindowOptions& window) {
    window.startLogging = [&start] { QLM_StartLogging(start); };
    window.startCoreModules = [&start](std::string& error) { return QLM_StartCoreModules(start, error); };
    window.startModules = [&start](const QLM_ShellCallbacks& shell, std::string& error) {
        start.shell = shell;
        start.shell.beforeShutDown = QLM_StopStateDumpThread;
        return QLM_StartModules(start, error);
    };
    window.startStateDumpThread = QLM_StartStateDumpThread;
    window.requestStateDump = QLM_RequestStateDump;
    window.stopProgram = QLM_StopProgram;
}
