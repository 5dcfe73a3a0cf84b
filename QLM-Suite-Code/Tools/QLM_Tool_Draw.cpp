// What tools draw over a picture.

#include "Engine/QLM_Engine.h"
#include "Images/QLM_GL_Textures.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_BrushShapeManager.h"
#include "Tools/QLM_Navigators.h"
#include "Tools/QLM_Tool.h"

#include <GL/gl.h>

#include <cmath>

namespace {

constexpr float SmallestOutlineRadius = 4.0f; ///< in pixels; a smaller brush is marked by a crosshair too
constexpr float CrosshairReach = 10.0f;

/// One pass over the outline's points.
void DrawPoints(const std::vector<std::pair<int32_t, int32_t>>& points, float size, float grey, float alpha) {
    glPointSize(size);
    glColor4f(grey, grey, grey, alpha);
    glDrawArrays(GL_POINTS, 0, static_cast<GLsizei>(points.size()));
}

} // namespace

void QLM_Brush::OnDraw(QLM_Viewport* viewport) {
    if (!QLM_GL_IsAvailable() || viewport != QLM_GetManagers().GetViewportManager()->GetPointerViewport()) return;
    DrawBrushShape(viewport, CurrentX, CurrentY);
}

void QLM_Brush::DrawBrushShape(QLM_Viewport* viewport, float x, float y) {
    QLM_BrushShapeManager* shapes = QLM_GetManagers().GetBrushShapeManager();
    shapes->UpdateOutline(viewport, this);
    const auto& points = shapes->OutlinePoints;
    const float halfWidth = 0.5f * static_cast<float>(viewport->width),
                halfHeight = 0.5f * static_cast<float>(viewport->height);
    // Middles of pixels: a point must not fall on the edge between two.
    const float centreX = std::floor((x + 1.0f) * halfWidth) + 0.5f,
                centreY = std::floor((y + 1.0f) * halfHeight) + 0.5f;
    const float scale = Button >= 0 && GetSize() > 0 ? GetEffectiveSize() / GetSize() : 1.0f;

    glPushMatrix();
    glTranslatef(centreX, centreY, 0.0f);
    // The outline is that of the turned tip.
    glScalef(scale, scale, 1.0f);
    glEnableClientState(GL_VERTEX_ARRAY);
    static_assert(sizeof points[0] == 2 * sizeof(GLint));
    glVertexPointer(2, GL_INT, 0, points.data());
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    DrawPoints(points, 7.0f, 0.0f, 0.025f);
    DrawPoints(points, 4.0f, 0.0f, 0.03f);
    glDisable(GL_BLEND);
    DrawPoints(points, 1.0f, 1.0f, 1.0f);
    glDisableClientState(GL_VERTEX_ARRAY);
    glPopMatrix();

    if (GetEffectiveSize() * halfWidth < SmallestOutlineRadius) DrawCrosshair(centreX, centreY);
}

void QLM_Brush::DrawCrosshair(float pixelX, float pixelY) {
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    for (const auto& [lineWidth, grey] : {std::pair(3.0f, 0.0f), std::pair(1.0f, 1.0f)}) {
        glLineWidth(lineWidth);
        glColor4f(grey, grey, grey, 0.5f);
        glBegin(GL_LINES);
        glVertex2f(pixelX - CrosshairReach, pixelY);
        glVertex2f(pixelX + CrosshairReach, pixelY);
        glVertex2f(pixelX, pixelY - CrosshairReach);
        glVertex2f(pixelX, pixelY + CrosshairReach);
        glEnd();
    }
    glLineWidth(1.0f);
    glDisable(GL_BLEND);
}

void QLM_ZoomView::OnDraw(QLM_Viewport* viewport) {
    if (!QLM_GL_IsAvailable() || !active || QLM_GetEngine()->continuousZoom ||
        viewport->index != QLM_GetManagers().GetViewportManager()->mouseViewport)
        return;
    const auto toPixels = [](float v, int size) {
        return std::floor((v + 1.0f) * 0.5f * static_cast<float>(size)) + 0.5f;
    };
    const float x0 = toPixels(StartX, viewport->width), x1 = toPixels(CurrentX, viewport->width),
                y0 = toPixels(StartY, viewport->height), y1 = toPixels(CurrentY, viewport->height);
    for (const auto& [lineWidth, grey] : {std::pair(3.0f, 0.0f), std::pair(1.0f, 1.0f)}) {
        glLineWidth(lineWidth);
        glColor3f(grey, grey, grey);
        glBegin(GL_LINE_LOOP);
        glVertex2f(x0, y0);
        glVertex2f(x1, y0);
        glVertex2f(x1, y1);
        glVertex2f(x0, y1);
        glEnd();
    }
    glLineWidth(1.0f);
}
