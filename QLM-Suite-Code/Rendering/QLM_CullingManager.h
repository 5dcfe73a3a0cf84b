#pragma once
// Which surface a brush may reach, and how it fades towards grazing angles.

#include "Engine/QLM_Manager.h"

class QLM_MaterialMapSource;
class QLM_Mesh;
class QLM_Object;

enum class QLM_CullingMethod : uint32_t {
    None = 0, Backface, SmartCulling, PerVertex, PerPolygon, PerPixel, PerPixelHard
};
/// Name in presets and scripts, "ERROR" for another value.
const char* QLM_CullingMethodName(QLM_CullingMethod method);
/// PerVertex for a name not in the table; `known` tells.
QLM_CullingMethod QLM_CullingMethodFromName(const std::string& name, bool* known = nullptr);

/// Main thread; GetVertexVisibility also from paint workers.
class QLM_CullingManager : public QLM_Manager {
  public:
    void Clear() override;
    bool DependsOnShape() const override { return true; }

    QLM_CullingMethod GetMethod() const { return method; }
    /// False, with nothing changed, for a method that does not exist yet.
    bool SetMethod(QLM_CullingMethod method);
    QLM_CullingMethod GetEffectiveMethod() const { return effectiveMethod; }
    float GetPrecision() const { return precision; }
    void SetPrecision(float value) { precision = value; }
    /// Asks the current tool; a change posts event 3005.
    void RefreshEffectiveMethod();
    void PrepareCulling() {}
    bool ArePerPixelStencilsStale() const { return true; }
    const uint8_t* GetStencil(QLM_MaterialMapSource*) const { return nullptr; }
    /// 0 or 1 in the current viewport's view.
    float GetVertexVisibility(QLM_Object* object, int vertex);
    bool IsVertexHidden(QLM_Object* object, int vertex) { return GetVertexVisibility(object, vertex) < 1.1920929e-7f; }
    void OnViewChanged();

  private:
    QLM_CullingMethod method = QLM_CullingMethod::SmartCulling, effectiveMethod = QLM_CullingMethod::SmartCulling;
    float precision = 0.5f;
};

/// How a brush fades towards grazing angles; a value that a stroke copies at its press.
struct QLM_FadeByAngle {
    /// Factor 0..1 for a view direction and a unit normal; `excludeBackFaces` from the tool. Any thread.
    float Fade(const float* view, const float* normal, bool excludeBackFaces) const;
    float Falloff = 0.8f, Cutoff = 0.05f;
};

class QLM_FadeByAngleManager : public QLM_Manager, public QLM_FadeByAngle {
  public:
    bool Enabled = false;
};
