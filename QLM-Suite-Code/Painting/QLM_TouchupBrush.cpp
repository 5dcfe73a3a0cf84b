#include "Painting/QLM_TouchupBrush.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapLayer.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_MathTables.h"
#include "Math/QLM_Random.h"
#include "Rasterizer/QLM_DepthBuffer.h"
#include "Rasterizer/QLM_RasterizeOptions.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_OverdrawBufferWorkhorse.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_ToolManager.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr uint32_t StampingSeedUse = 0x5354414D;
constexpr int TexturedDisplayMode = 3;
constexpr int WidestOverlay = 8192;

/// The paint types that a list can offer, by the number of their mode.
constexpr struct {
    const char* label;
    int mode;
} paintTypes[] = {{"Normal", 0},
                  {"Colorize", 7},
                  {"Multiply", 8},
                  {"Overlay", 9},
                  {"Screen", 10},
                  {"RGB Up", 11},
                  {"Saturation Up", 12},
                  {"Hue Up", 13},
                  {"Saturation", 14},
                  {"Hue", 15},
                  {"RGB Down", 18},
                  {"Saturation Down", 19},
                  {"Hue Down", 20},
                  {"Lighten", 22},
                  {"Light Only", 23},
                  {"Lightness", 24},
                  {"Dodge", 25},
                  {"Contrast Up", 26},
                  {"Natural Contrast Up", 27},
                  {"Highlight", 28},
                  {"Darken", 32},
                  {"Dark Only", 33},
                  {"Burn", 34},
                  {"Contrast Down", 35},
                  {"Natural Contrast Down", 36},
                  {"Shade", 37}};

/// How far saturation modes spare pale pixels. The curve stands straight outside a stroke: nothing else may see it
/// bent.
constexpr float HueSpread = 0.1f;
bool UsesHueSpread(int mode) { return mode == 7 || mode == 12 || mode == 14; }

TOverlay_Workhorse& Workhorse() { return *dynamic_cast<TOverlay_Workhorse*>(QLM_GetEngine()->overlayWorkhorse); }

QLM_ImageMap& BrushOverlay() { return QLM_GetManagers().GetBrushShapeManager()->BrushOverlay; }

/// Keeps the depth of the picture that the stroke is drawn on.
void KeepDepth(QLM_Viewport& viewport) {
    QLM_DepthBuffer& from = viewport.r4s.DepthBuffer;
    QLM_DepthBuffer* to = QLM_GetEngine()->depthBufferB;
    if (!from.GetDataFloat()) return;
    to->SetSize(from.GetWidth(), from.GetHeight(), QLM_DepthBuffer::Float);
    std::copy_n(from.GetDataFloat(), static_cast<size_t>(from.GetWidth()) * from.GetHeight(), to->GetDataFloat());
}

} // namespace

QLM_BrushProperties& QLM_PaintBrush_Base::Properties() const {
    static QLM_BrushProperties properties{.Spacing = 0.1f};
    return properties;
}

QLM_TouchupBrush::QLM_TouchupBrush() {
    ToolFlags |=
        eTool_FadeByAngle | eTool_MirroredStrokes | eTool_Culling | eTool_NoMirrorEvents | eTool_ShiftLocksAxis;
}

void QLM_TouchupBrush::InitializeParameters() {
    QLM_PaintBrush_Base::InitializeParameters();
    BuildBrushParameters();
    auto* parameter = new QLM_Parameter(QLM_ParameterType::Float, "Stroke Smoothing",
                                        "Smooths the path of a stroke when it ends.", &smoothing);
    parameter->IsPercent = true;
    Parameters.push_back(parameter);
}

void QLM_TouchupBrush::OnDeactivate() {
    QLM_PaintBrush_Base::OnDeactivate();
    if (Painting) {
        // The release goes to another tool: the stroke ends without a trace.
        Workhorse().Stop(true);
        SetSaturationSpread(0.0f);
        Painting = false;
        QLM_GetManagers().GetToolManager()->AfterPaint();
    }
    buffers.gutterOwner.Free();
}

void QLM_TouchupBrush::GetOverlaySize(QLM_Viewport* viewport, int& width, int& height) const {
    const float scaled = static_cast<float>(std::min(1920, viewport->width)) * GetOverlayQuality();
    width = std::clamp(static_cast<int>(scaled) / 8 * 8, 8, WidestOverlay);
    height = std::max(1, static_cast<int>(static_cast<float>(width) / viewport->GetAspect()));
}

void QLM_TouchupBrush::GetColor(float* rgba) const {
    std::copy_n(QLM_GetEngine()->foregroundColor, 3, rgba);
    rgba[3] = GetStrength();
}

// Press.

bool QLM_TouchupBrush::MayPaint(QLM_Viewport* viewport) const {
    if (const QLM_MapLayer* layer = QLM_GetManagers().GetMapManager()->GetCurrentMapLayer()) {
        if (layer->IsHidden() || layer->IsLocked()) {
            QLM_OS::Get().PrintMessage("The image map layer '%s' is %s", layer->GetName(),
                                       layer->IsHidden() ? "hidden" : "locked");
            return false;
        }
    }
    if (viewport->DisplayMode != TexturedDisplayMode) {
        QLM_OS::Get().PrintMessage(
            "Please choose a texture channel (color, bump, etc.) from the \"Viewports - Display Mode...\" menu.");
        return false;
    }
    const QLM_ToolManager* manager = QLM_GetManagers().GetToolManager();
    if (std::none_of(std::begin(manager->paintChannels), std::end(manager->paintChannels),
                     [](bool on) { return on; })) {
        QLM_PostEvent(QLM_Event_RefreshToolSettings);
        QLM_OS::Get().PrintMessage("Please choose at least one \"Painting Channel\" (e.g. Current, Color, Bump, etc.)");
        return false;
    }
    return true;
}

void QLM_TouchupBrush::CopySettings(QLM_Viewport* viewport) {
    const QLM_ToolManager* manager = QLM_GetManagers().GetToolManager();
    settings = {};
    GetColor(settings.color);
    settings.mode = GetPaintMode();
    settings.mirrorX = manager->mirrorX;
    settings.mirrorY = manager->mirrorY;
    settings.lockAlpha = manager->lockAlpha;
    std::copy(std::begin(manager->paintChannels), std::end(manager->paintChannels), settings.channels);
    settings.shownChannel = viewport->MaterialChannelName;
    const QLM_FadeByAngleManager* fade = QLM_GetManagers().GetFadeByAngleManager();
    settings.fadeByAngle = (ToolFlags & eTool_FadeByAngle) && fade->Enabled;
    settings.fade = *fade;
    settings.excludeBackFaces =
        UsesCulling() && QLM_GetManagers().GetCullingManager()->GetEffectiveMethod() != QLM_CullingMethod::None;
    settings.polygonSelection = QLM_GetEngine()->selectionMode == 1;
}

void QLM_TouchupBrush::StartOverlay(QLM_Viewport* viewport) {
    const QLM_Engine* engine = QLM_GetEngine();
    const QLM_ToolManager* manager = QLM_GetManagers().GetToolManager();
    QLM_BrushShapeManager* shapes = QLM_GetManagers().GetBrushShapeManager();
    QLM_StrokeSettings stroke;
    stroke.varyStrength = engine->tabletPressureVariesStrength;
    stroke.varyDensity = engine->tabletPressureVariesDensity;
    stroke.varyHardness = engine->tabletPressureVariesHardness;
    stroke.varySize = engine->tabletPressureVariesPseudoSize;
    stroke.size = GetSize();
    stroke.hardness = GetHardness();
    stroke.strength = GetStrength();
    stroke.spacing = GetSpacing();
    stroke.density = GetDensity();
    stroke.autoPressure = manager->autoPressure;
    stroke.autoPressureMidpoint = std::clamp(manager->autoPressureMidpoint, 0.0f, 1.0f);
    stroke.smoothing = smoothing;
    QLM_StampingOverlaySize(stroke.size, viewport->width, viewport->height, stroke.overlayWidth, stroke.overlayHeight);
    stroke.aspect = static_cast<float>(stroke.overlayHeight) / static_cast<float>(stroke.overlayWidth);

    int width, height;
    GetOverlaySize(viewport, width, height);
    shapes->SetupOverlayAndBrushShape(viewport, this, width, height, stroke.overlayWidth);
    Workhorse().StartStroke(stroke, shapes->BrushTip, QLM_MakeSeed(StampingSeedUse));
}

bool QLM_TouchupBrush::Press(QLM_Viewport* viewport, int button, float x, float y) {
    Painting = false;
    QLM_CullingManager* culling = QLM_GetManagers().GetCullingManager();
    culling->RefreshEffectiveMethod();
    QLM_ToolManager* manager = QLM_GetManagers().GetToolManager();
    if (manager->brushAdjustmentMode != 0) return QLM_PaintBrush_Base::OnMouse(viewport, button, QLM_Tool::Press, x, y);
    if (!MayPaint(viewport) || !QLM_PaintBrush_Base::OnMouse(viewport, button, QLM_Tool::Press, x, y)) return false;

    // Depth, IDs and unlit pixels must be those of the view that the user sees.
    QLM_GetManagers().GetViewportManager()->FinishRenders();
    KeepDepth(*viewport);
    culling->PrepareCulling();
    manager->BeforePaint(this);
    CopySettings(viewport);
    SetSaturationSpread(UsesHueSpread(settings.mode) ? HueSpread : 0.0f);
    StartOverlay(viewport);

    MousePoints.clear();
    StrokeBounds[0] = StrokeBounds[1] = 2.0f;
    StrokeBounds[2] = StrokeBounds[3] = -2.0f;
    preview.viewport = -1;
    Painting = true;
    OnMotion(viewport, x, y); // a click alone stamps
    return true;
}

// Motion.

void QLM_TouchupBrush::UpdateBrushSize(QLM_Viewport* viewport) {
    BrushSizeX = GetSize();
    BrushSizeY = BrushSizeX * viewport->GetAspect(); // the same length in y units
}

void QLM_TouchupBrush::ExtendStrokeBounds() {
    StrokeBounds[0] = std::min(StrokeBounds[0], CurrentX);
    StrokeBounds[1] = std::min(StrokeBounds[1], CurrentY);
    StrokeBounds[2] = std::max(StrokeBounds[2], CurrentX);
    StrokeBounds[3] = std::max(StrokeBounds[3], CurrentY);
}

void QLM_TouchupBrush::ProcessOverlay() {
    QLM_MousePoint point;
    point.x = CurrentX;
    point.y = CurrentY;
    point.pressure = Pressure;
    point.index = static_cast<int>(MousePoints.size());
    MousePoints.push_back(point);
    Workhorse().AddPoint(point);
}

bool QLM_TouchupBrush::OnMotion(QLM_Viewport* viewport, float x, float y) {
    const bool moved = QLM_PaintBrush_Base::OnMotion(viewport, x, y);
    if (!Painting) return moved;
    UpdateBrushSize(viewport);
    ExtendStrokeBounds();
    ProcessOverlay();
    return moved;
}

bool QLM_TouchupBrush::BuildPreview(QLM_Viewport* viewport, QLM_PictureBox& box, std::vector<uint8_t>& rgba) {
    if (!Painting) return false;
    QLM_RenderState& render = viewport->r4s;
    const uint8_t *unlit = render.UnlitRenderedPixels.GetPixels(), *onModel = render.PolygonIDMask.GetPixels();
    if (!unlit || !onModel) return false;
    const int width = static_cast<int>(BrushOverlay().GetWidth()),
              height = static_cast<int>(BrushOverlay().GetHeight());
    QLM_ImageMap part;
    box = Workhorse().CopyChange(width, height, settings.mirrorX, settings.mirrorY, part);
    if (box.IsEmpty()) return false;
    QLM_BrushShapeManager::MirrorOverlay(part, settings.mirrorX, settings.mirrorY);

    const int viewWidth = static_cast<int>(render.PolygonIDMask.GetWidth()),
              viewHeight = static_cast<int>(render.PolygonIDMask.GetHeight());
    const QLM_PaintPixelFunction paint = QLM_GetPaintPixelFunction(settings.mode);
    if (!paint) return false;
    const int strength = QLM_FloatToByte(settings.color[3]);
    const QLM_BlendParameters parameters{strength, SaturationSpread()};
    uint8_t source[3];
    for (int c = 0; c < 3; ++c) source[c] = QLM_FloatToByte(settings.color[c]);
    const uint8_t* stamped = part.GetPixels();
    rgba.assign(part.GetByteCount() * 4, 0);
    uint8_t* to = rgba.data();
    for (int y = box.y0; y < box.y1; ++y) {
        const int viewY = std::min(viewHeight - 1, (2 * y + 1) * viewHeight / (2 * height));
        for (int x = box.x0; x < box.x1; ++x, to += 4) {
            const uint8_t alpha = T(strength * *stamped++);
            if (alpha == 0) continue;
            const int viewX = std::min(viewWidth - 1, (2 * x + 1) * viewWidth / (2 * width));
            const size_t from = static_cast<size_t>(viewY) * viewWidth + viewX;
            if (onModel[from] == 0) continue;
            paint(unlit + from * 3, 255, source, alpha, parameters, to);
            to[3] = 255;
        }
    }
    return true;
}

// Release.

bool QLM_TouchupBrush::OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) {
    if (action == QLM_Tool::Press) return Press(viewport, button, x, y);
    if (!Painting) return QLM_PaintBrush_Base::OnMouse(viewport, button, action, x, y);
    Release(viewport, button, x, y);
    return true;
}

void QLM_TouchupBrush::Release(QLM_Viewport* viewport, int button, float x, float y) {
    // The base forgets the lock, but the last point belongs to the locked line too.
    if (LockToY) x = StartX;
    if (LockToX) y = StartY;
    QLM_PaintBrush_Base::OnMouse(viewport, button, QLM_Tool::Release, x, y);
    FinalizePainting(viewport);
    SetSaturationSpread(0.0f);
    Painting = false;
    QLM_GetManagers().GetToolManager()->AfterPaint();
}

void QLM_TouchupBrush::GrowStrokeBounds() {
    // A turned square tip reaches further than its radius.
    const float reachX = BrushSizeX * GetPanelAspect(), reachY = BrushSizeY * GetPanelAspect();
    StrokeBounds[0] -= reachX;
    StrokeBounds[1] -= reachY;
    StrokeBounds[2] += reachX;
    StrokeBounds[3] += reachY;
    for (int axis = 0; axis < 2; ++axis) {
        if (!(axis == 0 ? settings.mirrorX : settings.mirrorY)) continue;
        const float farthest = std::max(std::fabs(StrokeBounds[axis]), std::fabs(StrokeBounds[2 + axis]));
        StrokeBounds[axis] = -farthest;
        StrokeBounds[2 + axis] = farthest;
    }
}

void QLM_TouchupBrush::FinalizePainting(QLM_Viewport* viewport) {
    QLM_TRACE(2);
    ProcessOverlay();
    TOverlay_Workhorse& workhorse = Workhorse();
    workhorse.FinishStroke();
    if (workhorse.GetPaintedPointCount() == 0) return;
    workhorse.CopyOverlay(BrushOverlay());
    workhorse.GetStrokeBounds(StrokeBounds);
    GrowStrokeBounds();
    QLM_BrushShapeManager::MirrorOverlay(BrushOverlay(), settings.mirrorX, settings.mirrorY);

    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    // A picture that is being drawn reads the maps that change now.
    viewports->AbortRender();
    if (auto* overdraw =
            dynamic_cast<QLM_OverdrawBufferWorkhorse*>(QLM_GetManagers().GetMapManager()->overdrawWorkhorse))
        overdraw->ResolveRequests();
    int painted = 0;
    for (QLM_Object* object : QLM_GetManagers().GetObjectManager()->GetObjects(true)) {
        if (object->IsHidden() || object->IsCompletelyLocked() || !object->GetMesh() ||
            object->GetMesh()->GetPCount() == 0)
            continue;
        painted += ApplyPaint(object, viewport);
    }
    if (painted > 0) QLM_GetEngine()->SetProjectChanged();
}

int QLM_TouchupBrush::ApplyPaint(QLM_Object* object, QLM_Viewport* viewport) {
    QLM_PaintPass pass(*object, *viewport, *this, settings, StrokeBounds, BrushOverlay(), Workhorse(), buffers);
    const int painted = pass.Run();
    std::copy_n(pass.GetAffectedUV(), 4, AffectedUV);
    return painted;
}

// QLM_ColorBrush.

int QLM_ColorBrush::GetPaintMode() const { return paintTypes[typeIndex].mode; }

void QLM_ColorBrush::InitializeParameters() {
    auto* type =
        new QLM_Parameter(QLM_ParameterType::Choice, "Type", "How the paint mixes with what is there.", &typeIndex);
    for (const auto& entry : paintTypes) {
        auto* choice = new QLM_Parameter(QLM_ParameterType::Radio, entry.label, "", &typeIndex);
        choice->ID = entry.mode;
        type->Children.push_back(choice);
    }
    Parameters.push_back(type);
    QLM_TouchupBrush::InitializeParameters();
}
