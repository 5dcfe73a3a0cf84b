#include "Tools/QLM_Navigators.h"

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Rendering/QLM_RenderManagers.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <cmath>

namespace {

constexpr float DegreesPerPixel = 0.2f;
constexpr float RectanglePixels = 9.0f, RectangleSeconds = 0.3f;

QLM_ViewportManager& Viewports() { return *QLM_GetManagers().GetViewportManager(); }

} // namespace

QLM_Navigator::QLM_Navigator() {
    std::fill(std::begin(pressRotation), std::end(pressRotation), 0.0f);
    std::fill(std::begin(pressLookAt), std::end(pressLookAt), 0.0f);
}

bool QLM_Navigator::OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) {
    // The last stretch of a drag may come with the release alone.
    if (action == Release && active && (x != CurrentX || y != CurrentY)) OnMotion(viewport, x, y);
    const bool taken = QLM_Tool::OnMouse(viewport, button, action, x, y);
    if (action == Release) {
        if (active) QLM_PostEvent(QLM_Event_RefreshAllViewports);
        active = false;
        return taken;
    }
    if (!taken) return false;
    if (viewport->IsLocked()) {
        QLM_PostEvent(QLM_Event_ViewChangedNotice);
        QLM_OS::Get().PrintMessage(QLM_GetString(1461), viewport->GetName());
        return false;
    }
    QLM_GetManagers().GetNavigationManager()->BeginNavigation(viewport);
    std::copy_n(viewport->GetRotationMatrix(), 16, pressRotation);
    std::copy_n(viewport->GetLookAt(), 3, pressLookAt);
    pressZoom = viewport->GetZoom();
    active = true;
    return true;
}

bool QLM_MoveView::OnMotion(QLM_Viewport* viewport, float x, float y) {
    if (!QLM_Navigator::OnMotion(viewport, x, y) || !active) return false;
    float travel[3];
    viewport->ViewToWorldVector(CurrentX - StartX, CurrentY - StartY, travel);
    // The grabbed point stays under the pointer.
    const float lookAt[3] = {pressLookAt[0] - travel[0], pressLookAt[1] - travel[1], pressLookAt[2] - travel[2]};
    viewport->SetLookAt(lookAt);
    Viewports().RefreshViewport(viewport);
    return true;
}

bool QLM_RotateView::OnMotion(QLM_Viewport* viewport, float x, float y) {
    if (!QLM_Navigator::OnMotion(viewport, x, y) || !active) return false;
    const float right = (CurrentX - StartX) * 0.5f * static_cast<float>(viewport->width);
    const float down = (StartY - CurrentY) * 0.5f * static_cast<float>(viewport->height);
    viewport->SetRotationMatrix(pressRotation);
    Viewports().Orbit(viewport, right * DegreesPerPixel, down * DegreesPerPixel);
    Viewports().RefreshViewport(viewport);
    return true;
}

bool QLM_ZoomView::OnMotion(QLM_Viewport* viewport, float x, float y) {
    if (!QLM_Navigator::OnMotion(viewport, x, y) || !active) return false;
    if (!QLM_GetEngine()->continuousZoom) return true;
    const float travel = ApplyFineScale(CurrentY - StartY);
    viewport->SetZoom(pressZoom);
    Viewports().ApplyZoom(viewport, std::clamp(std::exp(-travel), 0.1f, 10.0f));
    Viewports().RefreshViewport(viewport);
    return true;
}

bool QLM_ZoomView::OnMouse(QLM_Viewport* viewport, int button, int action, float x, float y) {
    const bool wasActive = active;
    const bool taken = QLM_Navigator::OnMouse(viewport, button, action, x, y);
    if (action == Press || !wasActive || QLM_GetEngine()->continuousZoom) return taken;

    const float halfWidth = std::fabs(x - StartX) * 0.5f, halfHeight = std::fabs(y - StartY) * 0.5f;
    const float seconds = QLM_GetEngine()->applicationTimer.GetElapsedSeconds() - PressTime;
    const bool isRectangle = halfWidth * static_cast<float>(viewport->width) >= RectanglePixels &&
                             halfHeight * static_cast<float>(viewport->height) >= RectanglePixels &&
                             seconds > RectangleSeconds;
    float factor = ButtonFlags[1] ? 2.0f : 0.5f, centreX = x, centreY = y;
    if (isRectangle) {
        factor = std::max(halfWidth, halfHeight);
        centreX = (x + StartX) * 0.5f;
        centreY = (y + StartY) * 0.5f;
    }
    float world[3];
    viewport->Unproject(centreX, centreY, world);
    viewport->SetLookAt(world);
    Viewports().ApplyZoom(viewport, factor);
    Viewports().RefreshViewport(viewport);
    return taken;
}
