#include "Tools/QLM_Tool.h"

#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_ToolManager.h"

#include <cmath>

namespace {

/// Bit 4 of the tool that was left last.
uint32_t lastTellsViewports = 0;

float PenPressure() { return std::clamp(QLM_GetPressure(), 0.0f, 1.0f); }

QLM_ToolManager* Manager() { return QLM_GetManagers().GetToolManager(); }

} // namespace

QLM_Tool::QLM_Tool() { SetName("New Tool"); }

QLM_Tool::~QLM_Tool() { DeleteParameters(); }

void QLM_Tool::DeleteParameters() {
    for (QLM_Parameter* parameter : Parameters) delete parameter;
    Parameters.clear();
}

QLM_BrushProperties& QLM_Tool::Properties() const {
    static QLM_BrushProperties properties;
    return properties;
}

float QLM_Tool::GetEffectiveStrength() const {
    return QLM_GetEngine()->tabletPressureVariesStrength ? GetStrength() * Pressure : GetStrength();
}

float QLM_Tool::GetEffectiveSize() const {
    return std::max(0.01f, QLM_GetEngine()->tabletPressureVariesPseudoSize ? GetSize() * Pressure : GetSize());
}

float QLM_Tool::GetEffectiveHardness() const {
    return QLM_GetEngine()->tabletPressureVariesHardness ? GetHardness() * Pressure : GetHardness();
}

float QLM_Tool::GetEffectiveDensity() const {
    return QLM_GetEngine()->tabletPressureVariesDensity ? GetDensity() * Pressure : GetDensity();
}

bool QLM_Tool::IsPolygonPaintable(QLM_Object* object, int polygon) const {
    return !object->GetMesh()->HasPolygonFlag(polygon, ePFlag_Hidden | ePFlag_Locked);
}

QLM_CullingMethod QLM_Tool::GetCullingMethod() const {
    const QLM_CullingMethod method = QLM_GetManagers().GetCullingManager()->GetMethod();
    if (method != QLM_CullingMethod::SmartCulling) return method;
    return AllowsBackfaceCulling() ? QLM_CullingMethod::Backface : QLM_CullingMethod::None;
}

// Parameters.

void QLM_Tool::InitializeParameters() {}

void QLM_Tool::RebuildParameters() {
    DeleteParameters();
    InitializeParameters();
    for (QLM_Parameter* parameter : Parameters) {
        parameter->OwnerTool = this;
        std::string joined;
        for (QLM_Parameter* child : parameter->Children) {
            child->OwnerTool = this;
            joined += child->GetName();
        }
        if (!*parameter->GetName()) parameter->SetString("INTERNAL_PARAMETER_NAME", joined);
    }
}

void QLM_Tool::OnParameterChanged(QLM_Parameter* parameter) {
    // At least one direction stays on.
    bool* const directions[3] = {&Horizontal, &Vertical, &Depth};
    for (bool* direction : directions)
        if (parameter && parameter->Value == direction && !Horizontal && !Vertical && !Depth) *direction = true;
    QLM_PostEvent(QLM_Event_RefreshToolPanel);
}

QLM_Parameter* QLM_Tool::FindParameterByValue(const void* address) const {
    for (QLM_Parameter* parameter : Parameters) {
        if (parameter->Value == address) return parameter;
        for (QLM_Parameter* child : parameter->Children)
            if (child->Value == address) return child;
    }
    return nullptr;
}

QLM_Parameter* QLM_Tool::FindParameterByName(const std::string& name) const {
    for (QLM_Parameter* parameter : Parameters) {
        const std::string label =
            *parameter->GetName() ? parameter->GetName() : parameter->GetString("INTERNAL_PARAMETER_NAME");
        if (label == name) return parameter;
        if (name.compare(0, label.size() + 1, label + "/") != 0) continue;
        for (QLM_Parameter* child : parameter->Children)
            if (name.compare(label.size() + 1, std::string::npos, child->GetName()) == 0) return child;
    }
    return nullptr;
}

// The pointer.

void QLM_Tool::ConstrainPoint(float& x, float& y) {
    if (FindParameterByValue(&Depth) && Depth) {
        x = StartX;
    } else if (FindParameterByValue(&Horizontal) || FindParameterByValue(&Vertical)) {
        if (!Horizontal) x = StartX;
        if (!Vertical) y = StartY;
    }
    CurrentX = x;
    CurrentY = y;
}

bool QLM_Tool::OnMouse(QLM_Viewport*, int button, int action, float x, float y) {
    CurrentX = x;
    CurrentY = y;
    FirstMotion = SecondMotion = LockToX = LockToY = InMotion = false;
    MotionCount = 0;
    Button = action == Press ? button : -1;
    LastAction = action;
    Pressure = PenPressure();

    QLM_ToolManager* manager = Manager();
    if (action == Release) {
        if (manager->brushAdjustmentMode == 0) return true;
        manager->SetBrushAdjustmentMode(0);
        return false;
    }
    StartX = x;
    StartY = y;
    if (manager->brushAdjustmentMode != 0) {
        adjustmentPressed = true;
        UpdateBrushAdjustment();
        return false;
    }
    farthestDistance = 0;
    const QLM_OS& os = QLM_OS::Get();
    ButtonFlags[1] = os.altDown;
    ButtonFlags[2] = os.shiftDown;
    ButtonFlags[3] = os.controlDown;
    PressTime = QLM_GetEngine()->applicationTimer.GetElapsedSeconds();
    FineActive = AllowsFineMoves() && os.altDown;
    FineScale = FineActive ? 0.1f : 1.0f;
    return true;
}

void QLM_Tool::OnPassiveMotion(QLM_Viewport*, float x, float y) {
    CurrentX = x;
    CurrentY = y;
    InMotion = false;
}

void QLM_Tool::UpdateAxisLock(float x, float y) {
    if (LockToX || LockToY || MotionCount >= 3 || !QLM_OS::Get().shiftDown || !(ToolFlags & eTool_ShiftLocksAxis))
        return;
    const float dx = std::fabs(x - StartX), dy = std::fabs(y - StartY);
    // The motion that a press sends has no direction yet.
    if (dx == 0 && dy == 0) return;
    (dy > dx ? LockToY : LockToX) = true;
}

bool QLM_Tool::OnMotion(QLM_Viewport*, float x, float y) {
    Pressure = PenPressure();
    InMotion = true;
    SecondMotion = FirstMotion;
    FirstMotion = true;
    ++MotionCount;
    UpdateAxisLock(x, y);
    CurrentX = LockToY ? StartX : x;
    CurrentY = LockToX ? StartY : y;
    const float dx = CurrentX - StartX, dy = CurrentY - StartY;
    farthestDistance = std::max(farthestDistance, std::sqrt(dx * dx + dy * dy));
    const bool adjusting = Manager()->brushAdjustmentMode != 0;
    adjustmentPressed = false;
    UpdateBrushAdjustment();
    return !adjusting;
}

float* QLM_Tool::AdjustedProperty(const char*& label) const {
    QLM_BrushProperties& properties = Properties();
    switch (Manager()->brushAdjustmentMode) {
    case 1:
        label = QLM_GetString(110);
        return &properties.Size;
    case 2:
        label = "Strength";
        return &properties.Strength;
    case 3:
        label = QLM_GetString(134);
        return &properties.Hardness;
    case 4:
        label = "Angle";
        return &properties.Angle;
    case 5:
        label = "Density";
        return &properties.Density;
    default:
        return nullptr;
    }
}

void QLM_Tool::UpdateBrushAdjustment() {
    const char* label = "";
    float* property = AdjustedProperty(label);
    if (!property) return;
    const bool isAngle = property == &Properties().Angle;
    if (adjustmentPressed) {
        adjustmentBase = isAngle ? *property / 360.0f : *property;
        return;
    }
    const int steps = static_cast<int>((CurrentY - StartY + adjustmentBase) * 1000.0f);
    const float value = std::clamp(static_cast<float>(steps) * 0.001f, 0.0f, 1.0f);
    *property = isAngle ? value * 360.0f : value;
    QLM_OS::Get().PrintMessageNoRepeat("%s = %.1f", label, isAngle ? *property : value * 100.0f);
    QLM_GetManagers().GetBrushShapeManager()->InvalidateTip();
}

// Hooks that a tool without feedback leaves as they are.

void QLM_Tool::OnDraw(QLM_Viewport*) {}
void QLM_Tool::OnIdle(QLM_Viewport*) {}
bool QLM_Tool::OnKey(int) { return false; }

void QLM_Tool::OnActivate() {
    if (UsesCulling()) QLM_GetManagers().GetCullingManager()->RefreshEffectiveMethod();
    if ((ToolFlags & eTool_TellsViewports) != lastTellsViewports)
        QLM_GetManagers().GetViewportManager()->RequestFullRedraw();
}

void QLM_Tool::OnDeactivate() { lastTellsViewports = ToolFlags & eTool_TellsViewports; }

// QLM_Brush.

QLM_BrushProperties& QLM_Brush::Properties() const {
    static QLM_BrushProperties properties{.Spacing = 0.1f};
    return properties;
}

void QLM_Brush::BuildBrushParameters() {
    QLM_BrushProperties& properties = Properties();
    const struct {
        const char* label;
        const char* help;
        float* value;
        float maximum;
    } rows[] = {
        {QLM_GetString(110), "Radius of the brush as a part of half the view.", &properties.Size, 1.0f},
        {QLM_GetString(134), "How abruptly the brush ends at its edge.", &properties.Hardness, 1.0f},
        {"Angle", "Turn of the brush in degrees.", &properties.Angle, 360.0f},
        {"Strength", "How much of the paint a stroke leaves.", &properties.Strength, 1.0f},
        {"Spacing", "Distance of the stamps of a stroke as a part of the brush.", &properties.Spacing, 1.0f},
        {"Density", "Part of the brush that a stamp covers.", &properties.Density, 1.0f},
    };
    for (const auto& row : rows) {
        auto* parameter = new QLM_Parameter(QLM_ParameterType::Float, row.label, row.help, row.value);
        parameter->Maximum = row.maximum;
        parameter->IsPercent = row.maximum == 1.0f;
        Parameters.push_back(parameter);
    }
}
