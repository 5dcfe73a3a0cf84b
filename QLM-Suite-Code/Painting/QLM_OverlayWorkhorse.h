#pragma once
// The stamping thread: resamples the stroke's points and stamps the tip into a screen-space overlay.

#include "Core/Threads/QLM_Workhorse.h"
#include "Maps/QLM_ImageMap.h"
#include "Math/QLM_Random.h"
#include "Tools/QLM_MousePoint.h"

class QLM_Tool;
class QLM_Viewport;

/// What the thread reads of tools and settings, copied at the press.
struct QLM_StrokeSettings {
    bool varyStrength = false, varyDensity = false, varyHardness = false, varySize = false;
    float size = 0.1f, hardness = 0, strength = 1, spacing = 0.1f, density = 1;
    float aspect = 1.0f;         ///< overlay height / width
    bool autoPressure = false;
    float autoPressureMidpoint = 0.05f, smoothing = 0.0f;
    int overlayWidth = 0, overlayHeight = 0;
};

/// One object for the process. The base lock guards the points, the overlay and the bounds.
class TOverlay_Workhorse : public QLM_Workhorse {
  public:
    bool CanBePaused() const override { return false; }

    /// Stops a former run, clears, takes settings and tip, and starts the thread. Main thread.
    void StartStroke(const QLM_StrokeSettings& settings, QLM_ImageMap& tip, uint32_t seed);
    /// Hands over one input point. Main thread.
    void AddPoint(const QLM_MousePoint& point);
    /// Ends the input and waits until all is stamped.
    void FinishStroke();
    /// Blocks until the thread has taken every point handed over so far.
    void Drain();
    /// Stroke bounds in normalised coordinates (min x, min y, max x, max y), 2 2 -2 -2 when nothing was stamped.
    void GetStrokeBounds(float* out);
    int GetStampCount();
    /// Copies the overlay: exact into its own size, else shrunk by nearest to the target's present size.
    void CopyOverlay(QLM_ImageMap& target, bool exact);
    int GetOverlayWidth() const { return settings.overlayWidth; }
    int GetOverlayHeight() const { return settings.overlayHeight; }
    uint64_t GetOverlayVersion(); ///< grows with every stamp

    static void ThreadFunc(QLM_Workhorse* self);

  private:
    struct State;
    State* state = nullptr;
    QLM_StrokeSettings settings;

  public:
    TOverlay_Workhorse();
    ~TOverlay_Workhorse() override;
};

/// Size of the stamping overlay for a brush size and a viewport: round((1 - q) x 8192 + q x 1920) cut to 8, height by the viewport.
void QLM_StampingOverlaySize(float brushSize, int viewportWidth, int viewportHeight, int& width, int& height);
/// Minimal distance of two stamps in normalised x units.
float QLM_StampDistance(float size, float spacing);
