// The preview of a stroke on the screen: one blended picture over that of the viewport.

#include "Engine/QLM_Engine.h"
#include "Images/QLM_GL_Textures.h"
#include "Painting/QLM_TouchupBrush.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_BrushShapeManager.h"

#include <GL/gl.h>

#include <algorithm>

QLM_TouchupBrush::~QLM_TouchupBrush() { QLM_GL_QueueTextureDeletion(preview.texture); }

void QLM_TouchupBrush::OnDraw(QLM_Viewport* viewport) {
    if (!QLM_GL_IsAvailable()) return;
    DrawPreview(viewport);
    QLM_PaintBrush_Base::OnDraw(viewport);
}

void QLM_TouchupBrush::RefreshPreview(QLM_Viewport* viewport) {
    auto& workhorse = *dynamic_cast<TOverlay_Workhorse*>(QLM_GetEngine()->overlayWorkhorse);
    if (!viewport->r4s.pictureValid) return;
    workhorse.DrainBriefly();
    // Stamps that come later ask for a frame of their own.
    if (workhorse.HasWaitingPoints()) QLM_RequestRedraw();
    if (preview.viewport != viewport->index) preview.box = {};
    QLM_PictureBox box;
    std::vector<uint8_t> rgba;
    if (!BuildPreview(viewport, box, rgba)) return;

    const bool isNew = preview.texture == 0;
    if (isNew) glGenTextures(1, &preview.texture);
    glBindTexture(GL_TEXTURE_2D, preview.texture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    if (isNew) {
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    if (preview.box.IsEmpty()) {
        // The texture still holds the stroke before.
        const auto& overlay = QLM_GetManagers().GetBrushShapeManager()->BrushOverlay;
        preview.width = static_cast<int>(overlay.GetWidth());
        preview.height = static_cast<int>(overlay.GetHeight());
        const std::vector<uint8_t> clear(static_cast<size_t>(preview.width) * preview.height * 4);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, preview.width, preview.height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     clear.data());
        preview.viewport = viewport->index;
        std::copy_n(viewport->r4s.camera.worldToClip, 16, preview.worldToClip);
    }
    glTexSubImage2D(GL_TEXTURE_2D, 0, box.x0, box.y0, box.GetWidth(), box.GetHeight(), GL_RGBA, GL_UNSIGNED_BYTE,
                    rgba.data());
    preview.box.Include(box);
}

void QLM_TouchupBrush::DrawPreview(QLM_Viewport* viewport) {
    if (Painting && viewport->index == QLM_GetManagers().GetViewportManager()->mouseViewport) RefreshPreview(viewport);
    if (preview.viewport != viewport->index) return;
    // Behind the release it stays until the picture holds the paint.
    const bool sameView =
        std::equal(preview.worldToClip, preview.worldToClip + 16, viewport->r4s.camera.worldToClip);
    if (!sameView || (!Painting && viewport->r4s.pictureValid)) {
        preview.viewport = -1;
        return;
    }
    // Only where the stroke was: a quad of the view's size costs a software renderer a frame's time.
    const float left = static_cast<float>(preview.box.x0) / static_cast<float>(preview.width),
                right = static_cast<float>(preview.box.x1) / static_cast<float>(preview.width),
                bottom = static_cast<float>(preview.box.y0) / static_cast<float>(preview.height),
                top = static_cast<float>(preview.box.y1) / static_cast<float>(preview.height);
    const float width = static_cast<float>(viewport->width), height = static_cast<float>(viewport->height);
    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, preview.texture);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glBegin(GL_QUADS);
    for (const auto& [u, v] :
         {std::pair(left, bottom), std::pair(right, bottom), std::pair(right, top), std::pair(left, top)}) {
        glTexCoord2f(u, v);
        glVertex2f(u * width, v * height);
    }
    glEnd();
    glDisable(GL_BLEND);
    glDisable(GL_TEXTURE_2D);
}
