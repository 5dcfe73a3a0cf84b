#pragma once
// The stamping thread: resamples the stroke's points and stamps the tip into a screen-space overlay.

#include "Core/Threads/QLM_Workhorse.h"
#include "Maps/QLM_ImageMap.h"
#include "Painting/QLM_StampCanvas.h"
#include "Tools/QLM_MousePoint.h"

/// One object for the process. The base lock guards the points, the overlay and the bounds.
class TOverlay_Workhorse : public QLM_Workhorse {
  public:
    TOverlay_Workhorse();
    ~TOverlay_Workhorse() override;
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
    /// Input points that are strong enough to paint; without one a stroke leaves no trace.
    int GetPaintedPointCount();
    /// Waits a moment for points that were handed over and not taken yet.
    void DrainBriefly();
    /// Gives the target the overlay's size and bytes.
    void CopyOverlay(QLM_ImageMap& target);
    /// What stamps changed since the last call, as a part of a picture of the overlay shrunk by nearest; with mirrors
    /// the box is grown to both sides. An empty box when nothing changed.
    QLM_PictureBox CopyChange(int pictureWidth, int pictureHeight, bool mirrorX, bool mirrorY, QLM_ImageMap& part);
    /// True if a stamp may have reached a box of overlay pixels. Any thread, after FinishStroke.
    bool IsTouched(float x0, float y0, float x1, float y1) const { return canvas.IsTouched(x0, y0, x1, y1); }
    int GetOverlayWidth() const { return settings.overlayWidth; }
    int GetOverlayHeight() const { return settings.overlayHeight; }
    bool HasWaitingPoints() const { return pointsDone < pointsGiven; } ///< handed over and not taken yet; any thread

    static void ThreadFunc(QLM_Workhorse* self);

  private:
    void Run();
    bool TakePoint(QLM_MousePoint& point, bool& ended);
    void Resample(const QLM_MousePoint& point);
    void AddStamp(const QLM_MousePoint& stamp);
    void ApplyAutoPressure();
    void SmoothStamps();
    void StampNow(const QLM_MousePoint& stamp);

    QLM_StrokeSettings settings;

    // Under the base lock while the thread runs.
    QLM_StampCanvas canvas;
    std::vector<QLM_MousePoint> inputPoints;
    size_t takenPoints = 0;
    bool inputEnded = false;
    float bounds[4] = {2, 2, -2, -2};
    int stampCount = 0, paintedPointCount = 0;

    // The thread's own.
    std::vector<QLM_MousePoint> stampPoints; ///< held back when stamping waits for the end of the input
    QLM_MousePoint lastPoint, lastStamp;
    bool hasPoint = false, stampsLate = false;
    float stampDistance = 0;

    QLM_Signal pointDone;
    std::atomic<uint64_t> pointsGiven{0}, pointsDone{0};
};

/// Size of the stamping overlay for a brush size and a viewport: round((1 - q) x 8192 + q x 1920) cut to 8, height by
/// the viewport.
void QLM_StampingOverlaySize(float brushSize, int viewportWidth, int viewportHeight, int& width, int& height);
/// Minimal distance of two stamps in normalised x units.
float QLM_StampDistance(float size, float spacing);
