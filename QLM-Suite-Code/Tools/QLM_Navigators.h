#pragma once
// The three view tools.

#include "Tools/QLM_Tool.h"

/// Keeps rotation, look-at and place of the press.
class QLM_Navigator : public QLM_Tool {
  public:
    QLM_Navigator();
    bool IsViewTool() const override { return true; }
    bool OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) override;

  protected:
    float pressRotation[16], pressLookAt[3], pressZoom = 1.0f;
    bool active = false;
};
class QLM_MoveView : public QLM_Navigator {
  public:
    bool OnMotion(QLM_Viewport* viewport, float x, float y) override;
};
class QLM_RotateView : public QLM_Navigator {
  public:
    bool OnMotion(QLM_Viewport* viewport, float x, float y) override;
};
class QLM_ZoomView : public QLM_Navigator {
  public:
    bool OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) override;
    bool OnMotion(QLM_Viewport* viewport, float x, float y) override;
    void OnDraw(QLM_Viewport* viewport) override; ///< the rectangle that the drag spans
};
