#pragma once
// Turns a grey shape picture into the tip at the right size, hardness and angle.

#include "Engine/QLM_Manager.h"
#include "Maps/QLM_ImageMap.h"

class QLM_Tool;
class QLM_Viewport;

/// Main thread, between strokes; BrushOverlay is read by paint workers once a stroke has filled it.
class QLM_BrushShapeManager : public QLM_Manager {
  public:
    void Initialize() override; ///< loads the shipped shape
    /// Loads a shape picture; false with `error`, the old one stays.
    bool LoadShape(const std::string& path, std::string& error);
    /// The shipped shape; a missing file ends the program with its message.
    void LoadDefaultShape();
    bool IsTipCurrent() const { return !tipStale; }
    void InvalidateTip() { tipStale = outlineStale = true; }
    /// Builds the tip for the stamping overlay's width, and sizes and clears BrushOverlay to `overlayWidth` x
    /// `overlayHeight`.
    void SetupOverlayAndBrushShape(QLM_Viewport* viewport, QLM_Tool* tool, int overlayWidth, int overlayHeight,
                                   int stampingWidth);
    /// Makes OutlinePoints those of the tool's tip in a viewport; leaves the tip and a stroke's overlay alone.
    void UpdateOutline(QLM_Viewport* viewport, QLM_Tool* tool);
    /// Sides of the tip for an overlay width: round(width x size x panel aspect), shrunk to the box of a turned shape
    /// that is not square. At least 1.
    void GetTipSize(QLM_Tool* tool, int overlayWidth, int& width, int& height) const;
    /// Each pixel and its mirror become the larger of both.
    static void MirrorOverlay(QLM_ImageMap& overlay, bool mirrorX, bool mirrorY);
    static void DilateOverlay(QLM_ImageMap& overlay, int radius);

    QLM_ImageMap ShapeSource, HardShape, ColorShapeSource, BrushOverlay, BrushTip, BrushTipColor, ColorizeOverlay,
        TipOutline, TipPreview;
    std::vector<std::pair<int32_t, int32_t>> OutlinePoints; ///< pixels of the viewport, from the tip's middle

  private:
    bool tipStale = true, outlineStale = true;
    float lastSize = -1, lastHardness = -1, lastAngle = -1;
    int lastStampingWidth = -1, lastViewportWidth = -1;
    float outlineSize = -1, outlineHardness = -1, outlineAngle = -1;
    int outlineViewportWidth = -1;
};
