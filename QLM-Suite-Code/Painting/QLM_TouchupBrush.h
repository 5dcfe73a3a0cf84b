#pragma once
// The road of one brush stroke: overlay on the screen first, then polygon by polygon into the maps.

#include "Painting/QLM_OverlayWorkhorse.h"
#include "Painting/QLM_PaintPass.h"
#include "Rasterizer/QLM_RasterizeOptions.h"
#include "Tools/QLM_Tool.h"

/// What all paint tools share.
class QLM_PaintBrush_Base : public QLM_Brush {
  public:
    bool IsPaintTool() const override { return true; }
    QLM_BrushProperties& Properties() const override;
    float GetEffectiveSize() const override { return GetSize(); }
    virtual int GetPaintMode() const { return 0; }
    /// True for a tool that works on what the viewport shows: it can't paint the channels that aren't displayed.
    virtual bool IsNeighbourType() const { return false; }
    /// False leaves a triangle unpainted; it keeps its gutter. Any thread.
    virtual bool AcceptTriangle(const QLM_RasterizeOptions&) const { return true; }
};

/// The pipeline. Nothing of a map changes before the release.
class QLM_TouchupBrush : public QLM_PaintBrush_Base {
  public:
    QLM_TouchupBrush();
    ~QLM_TouchupBrush() override;

    bool OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) override;
    bool OnMotion(QLM_Viewport* viewport, float x, float y) override;
    void OnDeactivate() override;
    void OnDraw(QLM_Viewport* viewport) override;
    void InitializeParameters() override;

    virtual float GetOverlayQuality() const { return 1.0f; }
    /// min(1920, viewport width) x quality cut to 8 (at most 8192), height by the viewport's aspect, truncated.
    virtual void GetOverlaySize(QLM_Viewport* viewport, int& width, int& height) const;
    virtual void GetColor(float* rgba) const;
    /// Ends the stroke's input, waits for its overlay and paints it into every map under it.
    virtual void FinalizePainting(QLM_Viewport* viewport);
    virtual int ApplyPaint(QLM_Object* object, QLM_Viewport* viewport); ///< number of polygons that left something
    /// What changed of the stroke's preview since the last call: a box of pixels of the overlay's size and their RGBA
    /// (CPU). False when nothing did or no stroke is being drawn.
    bool BuildPreview(QLM_Viewport* viewport, QLM_PictureBox& box, std::vector<uint8_t>& rgba);

    float BrushSizeX = 0, BrushSizeY = 0;
    float StrokeBounds[4] = {2, 2, -2, -2};
    bool Painting = false;
    float AffectedUV[4] = {1, 1, 0, 0};
    std::vector<QLM_MousePoint> MousePoints;

  private:
    bool Press(QLM_Viewport* viewport, int button, float x, float y);
    void Release(QLM_Viewport* viewport, int button, float x, float y);
    bool MayPaint(QLM_Viewport* viewport) const;
    void CopySettings(QLM_Viewport* viewport);
    void StartOverlay(QLM_Viewport* viewport);
    void UpdateBrushSize(QLM_Viewport* viewport);
    void ExtendStrokeBounds();
    void ProcessOverlay();
    void GrowStrokeBounds();
    void DrawPreview(QLM_Viewport* viewport);
    void RefreshPreview(QLM_Viewport* viewport);

    QLM_PaintSettings settings;
    QLM_PaintBuffers buffers;
    float smoothing = 0;

    /// The preview as OpenGL has it.
    struct Preview {
        uint32_t texture = 0;
        int width = 0, height = 0; ///< of the texture
        int viewport = -1;         ///< that shows it; -1 for none
        QLM_PictureBox box;        ///< of the texture, that the stroke reached so far
        float worldToClip[16] = {};
    } preview;
};

/// Plain colour.
class QLM_ColorBrush : public QLM_TouchupBrush {
  public:
    int GetPaintMode() const override;
    void InitializeParameters() override;

  private:
    int32_t typeIndex = 0;
};
