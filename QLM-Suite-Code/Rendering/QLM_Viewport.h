#pragma once
// One of the four views of the scene.

#include "Core/Objects/QLM_BaseClass.h"
#include "Rendering/QLM_RenderState.h"

class QLM_Mesh;
class QLM_ViewportManager;

/// Owned by the viewport manager; always exists, whatever the layout shows. Main thread.
class QLM_Viewport : public virtual QLM_BaseClass {
  public:
    explicit QLM_Viewport(int index);
    ~QLM_Viewport() override;
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    const float* GetRotationMatrix() const { return RotationMatrix; }
    void SetRotationMatrix(const float* m);
    const float* GetLookAt() const { return LookAt; }
    void SetLookAt(const float* p);
    float GetZoom() const { return Zoom; }
    void SetZoom(float zoom);
    bool IsLocked() const { return ViewLocked; }
    bool IsShown() const { return shown; }
    void SetPlacement(int x, int y, int width, int height);
    void ResetView();
    /// H: world length of half the viewport's height.
    float GetHalfHeight() const;
    /// Width / height, 1 without a size.
    float GetAspect() const { return height > 0 ? static_cast<float>(width) / height : 1.0f; }
    /// Refreshes the camera of `r4s` from view, placement and scene; aborts nothing.
    void UpdateCamera();
    /// Marks the picture as stale: aborts and joins a running render first. To be called after a change of the public
    /// fields of the view; the setters do it themselves.
    void OnViewChanged();
    /// The shape changed: screen positions are computed anew at the next use.
    void DropScreenCaches();
    /// Copies rotation, look-at and zoom of another viewport.
    void CopyViewFrom(const QLM_Viewport& other);
    /// Normalised screen position (-1..1, y up) and clip z of a world point.
    void Project(const float* world, float* out) const;
    /// World point of a normalised position on the plane through the look-at.
    void Unproject(float x, float y, float* world) const;
    /// A move in normalised coordinates as a world vector (x scaled by the aspect).
    void ViewToWorldVector(float dx, float dy, float* world) const;
    /// Screen positions of a mesh's vertices for the present view, filled when stale.
    const QLM_ScreenCache& GetScreenCache(QLM_Mesh* mesh);

    QLM_ViewportManager* owner = nullptr; ///< gives the scale and hears of changes; null for a viewport on its own
    int index = 0;
    int x = 0, y = 0, width = 0, height = 0; ///< on the canvas, physical pixels, y from the top
    bool shown = false;

    float RotationMatrix[16], DefaultRotationMatrix[16];
    float LookAt[3] = {};
    float Zoom = 1.0f;
    bool Current = false, ViewLocked = false, AutoView = false, Maximized = false;
    int32_t CopyViewportIndex = -1;
    int32_t DisplayMode = 3; ///< 1 layer colours, 2 material colours, 3 textured, 4 grey, 5 concave
    std::string MaterialChannelName = "Color";
    bool UseViewportDefault = true, Textured = true, Stippled = false, WireFrame = false, WireFrameOverlay = false;
    bool VertexOverlay = false, Hidden = false, Smooth = true, Filter = true, UseLighting = true;
    uint32_t stepNumber = 0;
    QLM_RenderState r4s;
};
