#pragma once
// The road of one brush stroke: overlay on the screen first, then polygon by polygon into the maps.

#include "Painting/QLM_OverlayWorkhorse.h"
#include "Rasterizer/QLM_RasterizeOptions.h"
#include "Tools/QLM_Tool.h"

class QLM_MaterialMapBinding;
class QLM_MaterialMapSource;
class QLM_Mesh;

/// What all paint tools share.
class QLM_PaintBrush_Base : public QLM_Brush {
  public:
    bool IsPaintTool() const override { return true; }
    QLM_BrushProperties& Properties() const override;
    float GetEffectiveSize() const override { return GetSize(); }
    virtual int GetPaintMode() const { return 0; }
    virtual bool NeedsOverlayImage() const { return false; }
    virtual bool UsesFullSizeOverlay() const { return false; }
    virtual bool AcceptTriangle(const QLM_RasterizeOptions&) const { return true; }
    QLM_CullingMethod GetCullingMethod() const override;
};

/// The pipeline. Nothing of a map changes before the release.
class QLM_TouchupBrush : public QLM_PaintBrush_Base {
  public:
    QLM_TouchupBrush();
    ~QLM_TouchupBrush() override;

    bool OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) override;
    bool OnMotion(QLM_Viewport* viewport, float x, float y) override;
    void OnDraw(QLM_Viewport* viewport) override;
    void OnIdle(QLM_Viewport* viewport) override;
    bool OnKey(int code) override;

    virtual float GetOverlayQuality() const { return 1.0f; }
    /// min(1920, viewport width) x quality cut to 8 (at most 8192), height by the viewport's aspect, truncated.
    virtual void GetOverlaySize(QLM_Viewport* viewport, int& width, int& height) const;
    virtual bool UsesWorkhorse() const { return true; }
    virtual bool StreamsOverlay() const { return true; }
    virtual void GetColor(float* rgba) const;
    virtual void FinalizePainting(QLM_Viewport* viewport);
    virtual int ApplyPaint(QLM_Object* object, QLM_Viewport* viewport); ///< number of map pixels' polygons written
    /// The preview of this moment as RGBA at the overlay's size (CPU), or nothing.
    bool BuildPreview(QLM_Viewport* viewport, std::vector<uint8_t>& rgba, int& width, int& height);

    float BrushSizeX = 0, BrushSizeY = 0;
    float StrokeBounds[4] = {2, 2, -2, -2};
    bool Painting = false;
    float AffectedUV[4] = {1, 1, 0, 0};
    int ApplyMode = 0;
    std::vector<QLM_MousePoint> MousePoints;
};

/// Plain colour.
class QLM_ColorBrush : public QLM_TouchupBrush {
  public:
    QLM_ColorBrush();
    void InitializeParameters() override;
};
