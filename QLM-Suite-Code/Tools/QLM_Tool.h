#pragma once
// What viewports drive: pointer in, feedback and settings out.

#include "Core/OS/QLM_Clock.h"
#include "Core/Objects/QLM_BaseClass.h"
#include "Tools/QLM_Parameter.h"

class QLM_Object;
class QLM_Viewport;
enum class QLM_CullingMethod : uint32_t;

/// Bits of ToolFlags, numbered from 0.
enum QLM_ToolFlag : uint32_t {
    eTool_FadeByAngle = 1u << 1,
    eTool_MirroredStrokes = 1u << 2,
    eTool_TellsViewports = 1u << 4,
    eTool_TakesMotion = 1u << 9,
    eTool_Culling = 1u << 10,
    eTool_AnyViewport = 1u << 11,
    eTool_NoMirrorEvents = 1u << 17,
    eTool_HasLock = 1u << 20,
    eTool_ShiftLocksAxis = 1u << 22,
    eTool_StateInAllViewports = 1u << 23
};

/// The brush properties that a family of tools shares; process-wide, main thread.
struct QLM_BrushProperties {
    float Size = 0.1f, Unused = 1.0f, Hardness = 0.0f, Angle = 0.0f, Strength = 1.0f, Spacing = 0.05f, Density = 1.0f;
};

/// Main thread. Coordinates are normalised: -1..1 on both axes, y up.
class QLM_Tool : public virtual QLM_BaseClass {
  public:
    enum Action { Press = 0, Release = 1 };

    QLM_Tool();
    ~QLM_Tool() override;

    /// In an adjustment mode: takes the property's value as the base right after a press, else sets it from the way.
    virtual void UpdateBrushAdjustment();
    virtual bool UsesBrushShape() const { return false; }
    virtual bool IsViewTool() const { return false; }
    virtual bool IsPaintTool() const { return false; }
    virtual void ConstrainPoint(float& x, float& y);
    virtual bool AllowsFineMoves() const { return false; }
    virtual bool AllowsPerPixelCulling() const { return true; }
    virtual bool AllowsPerVertexCulling() const { return true; }
    virtual bool AllowsBackfaceCulling() const { return true; }
    float ApplyFineScale(float value) const { return AllowsFineMoves() && FineActive ? value * FineScale : value; }
    virtual bool UsesCulling() const { return ToolFlags & eTool_Culling; }
    virtual QLM_CullingMethod GetCullingMethod() const;
    virtual void OnParameterChanged(QLM_Parameter* parameter);
    virtual void InitializeParameters();
    void RebuildParameters();
    virtual float GetPanelAspect() const { return 1.42f; }
    QLM_Parameter* FindParameterByValue(const void* address) const;
    /// By label, or "Group/Child".
    QLM_Parameter* FindParameterByName(const std::string& name) const;

    virtual bool OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y);
    virtual void OnPassiveMotion(QLM_Viewport* viewport, float x, float y);
    virtual bool OnMotion(QLM_Viewport* viewport, float x, float y);
    /// Feedback on top of a viewport's picture, for each shown viewport of a frame. With a context current OpenGL
    /// stands in pixels of the viewport, origin at its lower left and scissored to it, with lighting, depth test,
    /// textures and blending off and all arrays disabled; it is to be left so.
    virtual void OnDraw(QLM_Viewport* viewport);
    virtual void OnIdle(QLM_Viewport* viewport);
    virtual void OnStrokeFinished() {}
    virtual void OnStrokeCancelled() {}
    virtual bool OnKey(int code);
    virtual void OnActivate();
    virtual void OnDeactivate();
    /// What the tool still works on ("" for nothing); settling waits for it.
    virtual bool HasPendingWork() const { return false; }

    virtual QLM_BrushProperties& Properties() const;
    float GetSize() const { return Properties().Size; }
    float GetHardness() const { return Properties().Hardness; }
    float GetAngle() const { return Properties().Angle; }
    float GetStrength() const { return Properties().Strength; }
    float GetSpacing() const { return Properties().Spacing; }
    float GetDensity() const { return Properties().Density; }
    virtual float GetEffectiveStrength() const;
    virtual float GetEffectiveSize() const;
    virtual float GetEffectiveHardness() const;
    virtual float GetEffectiveDensity() const;
    virtual bool IsPolygonPaintable(QLM_Object* object, int polygon) const;

    float Pressure = 1.0f;
    bool Horizontal = true, Vertical = true, Depth = false;
    float FineScale = 1.0f;
    bool FineActive = false;
    uint8_t ButtonFlags[4] = {}; ///< mode, then Alt, Shift, Ctrl at the press
    bool FirstMotion = false, SecondMotion = false;
    int MotionCount = 0;
    bool LockToX = false, LockToY = false;
    uint32_t ToolFlags = 0xFF887229;
    int Button = -1, LastAction = Press;
    float PressTime = 0;
    bool InMotion = false;
    float StartX = 0, StartY = 0, LastX = 0, LastY = 0, CurrentX = 0, CurrentY = 0;
    float farthestDistance = 0;
    QLM_List<QLM_Parameter*> Parameters; ///< owned

  private:
    float* AdjustedProperty(const char*& label) const;
    void UpdateAxisLock(float x, float y);
    void DeleteParameters();
    bool adjustmentPressed = false; ///< the next update only takes the base
    float adjustmentBase = 0;
};

/// Base of everything that has a brush shape.
class QLM_Brush : public QLM_Tool {
  public:
    bool UsesBrushShape() const override { return true; }
    QLM_BrushProperties& Properties() const override;
    void OnDraw(QLM_Viewport* viewport) override; ///< the tip's outline, in the viewport under the pointer only

  protected:
    /// The outline of the tip with a soft halo around a normalised place.
    void DrawBrushShape(QLM_Viewport* viewport, float x, float y);
    /// Two short lines, white on black, that meet in a pixel of the viewport.
    static void DrawCrosshair(float pixelX, float pixelY);
    /// Appends Size, Hardness, Angle, Strength, Spacing and Density with the table's labels and limits.
    void BuildBrushParameters();
};

class QLM_ToolList : public QLM_List<QLM_Tool*>, public virtual QLM_BaseClass {
  public:
    int currentIndex = -1; ///< counts only tools, not separators (null entries)
};
