// The preview of a stroke on the screen: one blended picture over that of the viewport.

#include "Engine/QLM_Engine.h"
#include "Images/QLM_GL_Textures.h"
#include "Painting/QLM_TouchupBrush.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

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
    // Stamps that come later ask for a frame of their own.
    if (workhorse.HasWaitingPoints()) QLM_RequestRedraw();
    const uint64_t version = workhorse.GetOverlayVersion();
    if (preview.viewport == viewport->index && preview.version == version) return;
    std::vector<uint8_t> rgba;
    int width = 0, height = 0;
    preview.viewport = -1;
    if (!viewport->r4s.pictureValid || !BuildPreview(viewport, rgba, width, height)) return;

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
    if (isNew || width != preview.width || height != preview.height)
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    else glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    preview.width = width;
    preview.height = height;
    preview.viewport = viewport->index;
    preview.version = version;
    std::copy_n(viewport->r4s.camera.worldToClip, 16, preview.worldToClip);
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
    const float width = static_cast<float>(viewport->width), height = static_cast<float>(viewport->height);
    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, preview.texture);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glBegin(GL_QUADS);
    glTexCoord2f(0, 0);
    glVertex2f(0, 0);
    glTexCoord2f(1, 0);
    glVertex2f(width, 0);
    glTexCoord2f(1, 1);
    glVertex2f(width, height);
    glTexCoord2f(0, 1);
    glVertex2f(0, height);
    glEnd();
    glDisable(GL_BLEND);
    glDisable(GL_TEXTURE_2D);
}
