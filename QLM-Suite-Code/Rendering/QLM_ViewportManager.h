#pragma once
// The four viewports: layout, drawing, and the road of the pointer to the tools.

#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Manager.h"

#include <atomic>

class QLM_Object;
class QLM_Renderer4;
class QLM_Viewport;

/// What a pick hits.
struct QLM_PickResult {
    QLM_Object* object = nullptr;
    int polygon = -1;
    float point[3] = {}; ///< world
};

enum class QLM_FrameMode { Object = 0, Selection = 1, Project = 2 };
enum class QLM_StandardView { Front, Back, Left, Right, Top, Bottom };

/// Main thread.
class QLM_ViewportManager : public QLM_Manager {
  public:
    QLM_ViewportManager();
    ~QLM_ViewportManager() override;
    void OnIdle() override; ///< finishes a render that is done, starts one that is due
    void Clear() override;
    void AfterClear() override;

    /// Sizes the canvas in physical pixels and places the viewports; widths are rounded down to a multiple of 8.
    void SetCanvasSize(int width, int height);
    int GetCanvasWidth() const { return canvasWidth; }
    int GetCanvasHeight() const { return canvasHeight; }
    void ChangeViewportSetup(uint32_t layout);
    QLM_Viewport* GetViewport(int index) const { return viewports[index].Get(); }
    QLM_Viewport* GetCurrentViewport() const { return viewports[currentViewport].Get(); }
    void SetCurrentViewport(int index);
    QLM_Viewport* GetViewportAt(float x, float y) const; ///< canvas pixels; null outside all
    void ToggleMaximize(bool redraw);

    void OnAllViewportsChanged(); ///< marks all for a redraw and drops what they cached
    void OnBackgroundChanged();
    void RequestFullRedraw();     ///< the surface changed everywhere, the views did not
    void RequestPartialRedraw();  ///< only touched leaves
    void RefreshViewport(QLM_Viewport* viewport);
    void SetStandardView(QLM_Viewport* viewport, QLM_StandardView view);
    /// Frames; prints "No points have been selected." with nothing to frame. False then.
    bool Frame(QLM_Viewport* viewport, QLM_FrameMode mode);
    /// Turns by degrees: dx above 0 turns the front to the right, dy above 0 down.
    void Orbit(QLM_Viewport* viewport, float dxDegrees, float dyDegrees);
    /// Multiplies Zoom (an extent: below 1 comes nearer), limited to 2.
    void ApplyZoom(QLM_Viewport* viewport, float factor);
    /// Zooms around a normalised point by a wheel notch (above 0 comes nearer); not during a drag.
    void WheelZoom(QLM_Viewport* viewport, float notches, float x, float y);
    /// Keeps every viewport's half height when the global scale changes.
    void OnGlobalScaleChanged(float newScale);
    float GetPixelsPerUnit() const { return pixelsPerUnit; } ///< world units in half a viewport's height at Zoom 1
    /// The nearest polygon under a normalised point; false without a hit.
    bool Pick(QLM_Viewport* viewport, float x, float y, QLM_PickResult& out);
    void DropPickCache();

    /// Draws every shown viewport whose picture is stale (software, waits for the result).
    void DrawAllViewports();
    /// Starts the software render that a viewport needs on its own thread; the idle pass takes the result.
    void StartRenders();
    /// Waits for running renders, with all pictures valid afterwards.
    void FinishRenders();
    /// Ends a running render and waits for its end; what it drew stays due. To be called before meshes, materials, maps
    /// or the layout change. With a viewport only a render of that viewport is ended.
    void AbortRender(const QLM_Viewport* viewport = nullptr);
    bool AreRendersPending() const;
    /// Copies the finished picture of one viewport, or of the whole canvas for index -1, as RGB rows, bottom row first.
    void ReadPicture(int index, std::vector<uint8_t>& rgb, int& width, int& height);

    // The pointer's road, in canvas pixels (y down). Each turns the place into normalised coordinates for the tool.
    bool PointerPress(int button, float x, float y);
    void PointerMove(float x, float y);
    void PointerRelease(int button, float x, float y);
    void PointerLeave(); ///< the pointer left the canvas
    /// The viewport under the pointer, during a drag the one that holds it; null with the pointer elsewhere.
    QLM_Viewport* GetPointerViewport() const {
        return pointerViewport >= 0 ? viewports[pointerViewport].Get() : nullptr;
    }
    /// True while the mouse moves a view, and until the views have stood still for a moment. OpenGL draws meanwhile;
    /// the idle pass that finds it false again starts the software render.
    bool IsInteracting() const;
    /// Normalised coordinates of a canvas place in a viewport.
    static void Normalise(const QLM_Viewport& viewport, float x, float y, float& nx, float& ny);
    /// Called by a viewport whose view changed: culling, picks and the viewports that copy it follow.
    void OnViewportViewChanged(QLM_Viewport* viewport);

    bool viewportsMoved = false; ///< a view changed lately; see lastViewportChangeTimer
    int mouseViewport = -1;      ///< holds the mouse during a drag
    int displayMode = 0;         ///< special mode: 0 none, 1 hot selection, 2 brush tile, 3 quick render, 4 resolution
    uint32_t layout = 0;

  private:
    void PlaceViewports();
    void SetShown(int index, int x, int y, int width, int height);
    void FinishRunningRender();
    void MarkAllStale();
    bool NeedsRender(const QLM_Viewport& viewport) const;
    bool RefuseLocked(const QLM_Viewport* viewport) const;
    bool GetFrameBounds(QLM_FrameMode mode, float* minimum, float* maximum) const;
    void MoveHeldPointer(float x, float y);

    QLM_Owned<QLM_Viewport> viewports[4];
    int currentViewport = 0, activeViewport = 0, maximizedViewport = -1;
    int heldButton = -1;
    int pointerViewport = -1;
    float constrainedX = 0, constrainedY = 0; ///< the last motion point behind the tool's constraint
    int canvasWidth = 1280, canvasHeight = 720;
    float pixelsPerUnit = 1.0f;

    // The render that runs, if any.
    uint32_t renderThread = 0;
    QLM_Renderer4* renderer = nullptr;
    QLM_Viewport* renderedViewport = nullptr;
    std::atomic<bool> renderDone{false};

    // The last pick; objects are kept by ID, as they may go meanwhile.
    bool cachedPickValid = false, cachedPickHit = false;
    const QLM_Viewport* cachedPickViewport = nullptr;
    float cachedPickPlace[2] = {};
    uint32_t cachedPickObjectID = 0;
    QLM_PickResult cachedPick;
};
