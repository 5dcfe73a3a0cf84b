#pragma once
// The one object that owns everything that is not a window.

#include "Core/OS/QLM_Clock.h"
#include "Core/Objects/QLM_BaseClass.h"
#include "Engine/QLM_Managers.h"
#include "Engine/QLM_SearchPaths.h"

#include <functional>
#include <string>

class QLM_DepthBuffer;
class QLM_Material;
class QLM_TopTreeGroup;
class QLM_Workhorse;

/// What a shell does for the engine. Missing entries are not called. All on the main thread.
struct QLM_ShellCallbacks {
    std::function<void(int eventID)> refreshInterface; ///< update and window events, already coalesced
    std::function<bool()> isModal;
    std::function<void()> requestRedraw;
    std::function<void(const std::string& name, int value)> runCommand; ///< event 5001
    std::function<void()> settingsChanged;
    std::function<void()> beforeShutDown; ///< ends the shell's own threads; the first step of the program's end
};

/// What the composition root makes for the engine.
struct QLM_EngineParts {
    std::function<void(QLM_Managers&)> createManagers;                    ///< the 24, in table order
    std::function<QLM_Material*()> createEmptyMaterial;
    std::function<QLM_DepthBuffer*(bool byteType)> createDepthBuffer;
    std::function<QLM_BaseClass*()> createOverlayWorkhorse;
};

struct QLM_KeyModifiers {
    bool shift = false, control = false, alt = false;
};

/// Settings of the wheel: the first that is set decides, in this order.
struct QLM_WheelFlags {
    bool varyStrength = false, varySize = false, varyDensity = false, varyHardness = false, navZoom = true;
};

/// Main thread, but for reads of plain settings by workers that copied them at the press.
class QLM_Engine : public virtual QLM_BaseClass {
  public:
    ~QLM_Engine() override;

    /// Start-up: settings, managers, defaults. Called once by QLM_CreateEngine.
    void Initialize(const char* productName, const QLM_EngineParts& parts);
    /// The idle step: deferred deletion, polls, managers, memory. Main thread, from IdlePass and passive motion.
    void OnIdleOrPassive();
    /// Asks and, on agreement, ends the process; false when the user declines.
    bool ExitRequested();
    /// The sequence of ExitRequested without question and process end; for shells without windows and tests.
    /// Deletes the engine; tables, stores and log are ended by who made them.
    void ShutDown();
    /// Writes the settings file; one message when it can't be written. Nothing without `useUserSettings`.
    void SaveSettings();
    /// Reads the settings file; what it doesn't name keeps its value. Nothing without `useUserSettings`.
    void LoadSettings();
    /// Sets one setting by its key in the settings file (case-blind), tells the shell and saves. False with `error`
    /// for a bad value, false with an empty `error` for an unknown key; nothing changes then.
    bool SetOption(const std::string& key, const std::string& value, std::string& error);
    /// Reads file name and address of the splash picture; both empty without the file.
    void LoadSplashScreenInfoFromFile();
    enum FindFlags : uint32_t { FindAskUser = 1, FindRecursive = 2 };
    /// The name as it stands, then below each search path (whole, then its last part), then the temporary ones;
    /// case-blind. On a miss FindRecursive walks the recursive search paths, then FindAskUser asks. False on a miss.
    bool FindFile(const std::string& name, uint32_t flags, std::string& out);
    /// Resets to an empty project.
    void ClearAll();
    void ResetDisplaySettings();
    void SetProjectChanged() { projectChanged = true; }
    /// Start-up is over: idle passes and input act from now on; prints what start-up had to say.
    void SignalReadyToExecute();

    // The shells' road. Coordinates are canvas pixels, physical, origin at the top left.
    enum class Button { Left = 0, Middle = 1, Right = 2 };
    /// True when the press was taken.
    bool PointerPress(Button button, float x, float y, QLM_KeyModifiers modifiers);
    void PointerMove(float x, float y);
    void PointerRelease(Button button, float x, float y);
    /// Notches above 0 turn away from the user.
    void Wheel(float notches, float x, float y);
    /// A key by its code (27 Escape, 13 Enter, else the character). True when somebody acted.
    bool Key(int code, QLM_KeyModifiers modifiers);
    /// One pass of the main window's idle handler. False when it did not run (not ready, modal, button down).
    bool IdlePass();
    /// Draws one frame of the canvas: counts the redraw, draws the viewports that need it and finishes them.
    void DrawFrame();
    /// True while an event, a redraw, a render or an awaited workhorse is outstanding; `what` names it.
    bool IsWorkPending(std::string& what);
    /// Waits, with the clock still, for unfinished renders and for workhorses whose result is awaited.
    void WaitForBackgroundWork();

    std::string name;
    std::string productName;
    std::string statusText;
    QLM_Managers* managers = nullptr;
    QLM_List<QLM_TopTreeGroup*> topTreeGroups;
    std::vector<std::string> startupMessages;
    float sceneMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    QLM_Material* emptyMaterial = nullptr;      ///< owned; "__QLM_EMPTY__"
    QLM_BaseClass* overlayWorkhorse = nullptr;  ///< owned
    uint8_t viewportToggleFlags[4] = {1, 1, 1, 0};
    bool tabletPressureVariesStrength = true, tabletPressureVariesDensity = false;
    bool tabletPressureVariesHardness = false, tabletPressureVariesPseudoSize = true;
    float tabletSensitivity = 0.5f, mouseWheelSensitivity = 0.5f, tabletCutoff = 0.01f;
    bool continuousZoom = false;
    QLM_DepthBuffer* depthBufferA = nullptr; ///< owned; bytes: the gutter field of a paint pass
    QLM_DepthBuffer* depthBufferB = nullptr; ///< owned; floats: the depth of the render that a stroke was drawn on
    bool isReady = false;
    QLM_SearchPaths searchPaths, temporarySearchPaths;
    int32_t undoLimit = 1024;
    bool showHints = true, loadDefaultProject = true;
    std::string configDirectory, settingsPath, defaultProjectPath;
    std::string importPath, exportPath, imagesPath, projectsPath;
    std::string ttSourcePath, ttContentFolder, ttPresetFiles, ttOutputTextures;
    int32_t runCount = 0;
    QLM_Stopwatch lastViewportChangeTimer, applicationTimer;
    std::string splashScreenPath, splashScreenInfoPath, splashScreenFileName, splashScreenMoreInfo;
    bool projectChanged = false;

    uint32_t redrawCounter = 0;        ///< one step of the undo history a frame
    bool commandRan = false;
    bool missingMorphFlag = false;
    int selectionMode = 0;             ///< 0 vertices, 1 polygons
    bool autoWrapUVs = false;
    QLM_WheelFlags wheelFlags;
    float foregroundColor[3] = {1.0f, 1.0f, 1.0f};
    float backgroundColor[3] = {0.0f, 0.0f, 0.0f};
    /// The two checker colours, RGB each: those in use and those of the theme, which each new project takes.
    float displayColors[6] = {180 / 255.0f, 180 / 255.0f, 190 / 255.0f, 140 / 255.0f, 140 / 255.0f, 160 / 255.0f};
    float defaultDisplayColors[6] = {180 / 255.0f, 180 / 255.0f, 190 / 255.0f,
                                     140 / 255.0f, 140 / 255.0f, 160 / 255.0f};
    bool useUserSettings = true;       ///< false under a script: reads and saves none of the user's settings

    // Settings that the shell owns and the ini keeps.
    bool doPromptforHotkeyAssignment = true, showHoverHints = true;
    uint32_t colorTheme = 3; ///< 0..4, "Dark"
    bool canToggleLeftPanel = true, canToggleRightPanel = true, canToggleTopPanel = true, canToggleBottomPanel = true;

    QLM_ShellCallbacks shell;

  private:
    void SetDirectories(const char* productName);
    /// Deletes what the managers own of the present project, in an order that leaves no reference behind.
    void ClearScene();
    bool IsModal() const { return shell.isModal && shell.isModal(); }
    /// What every entry of the shells' road tests first.
    bool CanAct() const { return isReady && !IsModal(); }
};

/// Makes the engine; a second one raises "Only one instance of QLM_Engine is allowed".
void QLM_CreateEngine(const char* name, const QLM_EngineParts& parts, const QLM_ShellCallbacks& shell,
                      bool useUserSettings);
/// The engine, null before and after its life. Any thread.
QLM_Engine* QLM_GetEngine();
