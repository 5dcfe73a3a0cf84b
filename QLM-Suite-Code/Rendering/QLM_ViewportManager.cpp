#include "Rendering/QLM_ViewportManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_Threads.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Renderer4.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_Viewport.h"
#include "Tools/QLM_ToolManager.h"

namespace {

constexpr int ViewportCount = 4;
constexpr uint32_t LayoutCount = 6;
constexpr float InteractionSeconds = 0.3f; ///< a view that stood still for so long is at rest
constexpr uint8_t CanvasGrey = 128, ViewportGreyStep = 31, FrameDark = 51, FrameLight = 204;

int ToEight(int width) { return width / 8 * 8; }

} // namespace

QLM_ViewportManager::QLM_ViewportManager() {
    for (int i = 0; i < ViewportCount; ++i) {
        viewports[i].Reset(new QLM_Viewport(i));
        viewports[i]->owner = this;
    }
    viewports[0]->Current = true;
    PlaceViewports();
}

QLM_ViewportManager::~QLM_ViewportManager() {
    AbortRender();
    // Other managers may be gone: viewports hear of nothing any more.
    for (auto& viewport : viewports) viewport->owner = nullptr;
}

void QLM_ViewportManager::OnIdle() {
    if (renderedViewport && !renderDone) {
        renderer->KeepMapsResident();
        return;
    }
    if (renderedViewport) FinishRunningRender();
    // A picture of a view on the move would be stale before it is done; where OpenGL draws meanwhile it can wait.
    if (!QLM_GL_IsAvailable() || !IsInteracting()) StartRenders();
}

bool QLM_ViewportManager::IsInteracting() const {
    const QLM_Engine* engine = QLM_GetEngine();
    if (!engine) return false;
    if (viewportsMoved && engine->lastViewportChangeTimer.GetElapsedSeconds() < InteractionSeconds) return true;
    const QLM_ToolManager* tools = engine->managers ? engine->managers->GetToolManager() : nullptr;
    const QLM_Tool* tool = tools ? tools->GetCurrentTool() : nullptr;
    return mouseViewport >= 0 && tool && tool->IsViewTool();
}

void QLM_ViewportManager::Clear() {
    AbortRender();
    DropPickCache();
    for (auto& viewport : viewports) {
        viewport->r4s.screenCaches.clear();
        viewport->r4s.lastPicture.pixels.clear();
        viewport->r4s.needsFullRender = true;
        viewport->r4s.pictureValid = false;
    }
}

void QLM_ViewportManager::AfterClear() {
    displayMode = 0;
    mouseViewport = heldButton = pointerViewport = -1;
    for (auto& viewport : viewports) {
        viewport->ViewLocked = viewport->AutoView = false;
        viewport->CopyViewportIndex = -1;
        viewport->ResetView();
    }
    SetCurrentViewport(0);
    ChangeViewportSetup(0);
}

// --- Layout ---------------------------------------------------------------------------------------------------------

void QLM_ViewportManager::SetCanvasSize(int width, int height) {
    canvasWidth = std::max(0, width);
    canvasHeight = std::max(0, height);
    PlaceViewports();
}

void QLM_ViewportManager::SetShown(int index, int x, int y, int width, int height) {
    viewports[index]->shown = true;
    viewports[index]->SetPlacement(x, y, width, height);
}

void QLM_ViewportManager::PlaceViewports() {
    AbortRender();
    for (auto& viewport : viewports) viewport->shown = false;
    const int full = ToEight(canvasWidth), half = canvasWidth / 16 * 8, height = canvasHeight, upper = height / 2,
              lower = height - upper;
    if (maximizedViewport >= 0) {
        SetShown(maximizedViewport, 0, 0, full, height);
        return;
    }
    switch (layout) {
    case 0:
        SetShown(0, 0, 0, full, height);
        break;
    case 1:
        SetShown(0, 0, 0, half, height);
        SetShown(1, half, 0, half, height);
        break;
    case 2:
        SetShown(0, 0, 0, full, upper);
        SetShown(1, 0, upper, full, lower);
        break;
    case 3:
        SetShown(0, half, 0, half, height);
        SetShown(1, 0, 0, half, upper);
        SetShown(2, 0, upper, half, lower);
        break;
    case 4:
        SetShown(3, 0, 0, half, upper);
        SetShown(2, half, 0, half, upper);
        SetShown(1, 0, upper, half, lower);
        SetShown(0, half, upper, half, lower);
        break;
    case 5: {
        const int column = std::min(ToEight(std::max(canvasWidth / 4, height / 3)), full), third = height / 3;
        SetShown(0, column, 0, ToEight(canvasWidth - column), height);
        for (int i = 1; i < ViewportCount; ++i) SetShown(i, 0, (i - 1) * third, column, third);
        break;
    }
    }
}

void QLM_ViewportManager::ChangeViewportSetup(uint32_t layoutIn) {
    if (layoutIn >= LayoutCount) return;
    maximizedViewport = -1;
    for (auto& viewport : viewports) viewport->Maximized = false;
    layout = layoutIn;
    PlaceViewports();
    OnAllViewportsChanged();
    if (layout != 5) return;

    if (!viewports[0]->IsLocked()) viewports[0]->SetRotationMatrix(viewports[0]->DefaultRotationMatrix);
    SetStandardView(viewports[1].Get(), QLM_StandardView::Front);
    SetStandardView(viewports[2].Get(), QLM_StandardView::Right);
    SetStandardView(viewports[3].Get(), QLM_StandardView::Top);
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (objects && objects->GetCurrentObject())
        for (auto& viewport : viewports) Frame(viewport.Get(), QLM_FrameMode::Object);
    QLM_PostEvent(QLM_Event_ResetView);
}

void QLM_ViewportManager::SetCurrentViewport(int index) {
    if (index < 0 || index >= ViewportCount || index == currentViewport) return;
    // The tint of the background tells the current viewport from the others.
    AbortRender();
    for (int i : {currentViewport, index}) {
        viewports[i]->Current = i == index;
        viewports[i]->r4s.needsFullRender = true;
        viewports[i]->r4s.pictureValid = false;
    }
    currentViewport = index;
    if (QLM_CullingManager* culling = QLM_CullingManagerOrNull()) culling->OnViewChanged();
    QLM_RequestRedraw();
}

QLM_Viewport* QLM_ViewportManager::GetViewportAt(float x, float y) const {
    for (const auto& viewport : viewports)
        if (viewport->shown && x >= viewport->x && y >= viewport->y && x < viewport->x + viewport->width &&
            y < viewport->y + viewport->height)
            return viewport.Get();
    return nullptr;
}

void QLM_ViewportManager::ToggleMaximize(bool redraw) {
    maximizedViewport = maximizedViewport >= 0 ? -1 : currentViewport;
    for (int i = 0; i < ViewportCount; ++i) viewports[i]->Maximized = i == maximizedViewport;
    PlaceViewports();
    if (redraw) OnAllViewportsChanged();
}

// --- What became stale ----------------------------------------------------------------------------------------------

void QLM_ViewportManager::MarkAllStale() {
    AbortRender();
    for (auto& viewport : viewports) {
        viewport->r4s.needsFullRender = true;
        viewport->r4s.pictureValid = false;
    }
    QLM_RequestRedraw();
}

void QLM_ViewportManager::OnAllViewportsChanged() {
    MarkAllStale();
    DropPickCache();
    for (auto& viewport : viewports) {
        viewport->DropScreenCaches();
        viewport->UpdateCamera();
    }
    if (QLM_CullingManager* culling = QLM_CullingManagerOrNull()) culling->OnViewChanged();
}

void QLM_ViewportManager::OnBackgroundChanged() { MarkAllStale(); }

void QLM_ViewportManager::RequestFullRedraw() { MarkAllStale(); }

void QLM_ViewportManager::RequestPartialRedraw() {
    AbortRender();
    for (auto& viewport : viewports) {
        // The marks of touched leaves last only until all shown viewports have drawn them.
        if (viewport->shown) viewport->r4s.needsPartialRender = true;
        else viewport->r4s.needsFullRender = true;
        viewport->r4s.pictureValid = false;
    }
    QLM_RequestRedraw();
}

void QLM_ViewportManager::RefreshViewport(QLM_Viewport* viewport) {
    if (!viewport) return;
    AbortRender(viewport);
    viewport->r4s.needsFullRender = true;
    viewport->r4s.pictureValid = false;
    QLM_RequestRedraw();
}

void QLM_ViewportManager::OnViewportViewChanged(QLM_Viewport* viewport) {
    DropPickCache();
    viewportsMoved = true;
    if (QLM_Engine* engine = QLM_GetEngine()) engine->lastViewportChangeTimer.Start();
    if (QLM_CullingManager* culling = QLM_CullingManagerOrNull()) culling->OnViewChanged();
    for (auto& follower : viewports) {
        if (follower.Get() == viewport || !follower->AutoView || follower->CopyViewportIndex != viewport->index)
            continue;
        const bool equal =
            std::equal(viewport->LookAt, viewport->LookAt + 3, follower->LookAt) && viewport->Zoom == follower->Zoom &&
            std::equal(viewport->RotationMatrix, viewport->RotationMatrix + 16, follower->RotationMatrix);
        if (!equal) follower->CopyViewFrom(*viewport);
    }
    QLM_RequestRedraw();
}

void QLM_ViewportManager::OnGlobalScaleChanged(float newScale) {
    if (!(newScale > 0) || newScale == pixelsPerUnit) return;
    const float ratio = pixelsPerUnit / newScale;
    pixelsPerUnit = newScale;
    for (auto& viewport : viewports) viewport->SetZoom(viewport->Zoom * ratio);
}

// --- Drawing --------------------------------------------------------------------------------------------------------

bool QLM_ViewportManager::NeedsRender(const QLM_Viewport& viewport) const {
    return viewport.shown && viewport.width > 0 && viewport.height > 0 &&
           (viewport.r4s.needsFullRender || viewport.r4s.needsPartialRender);
}

bool QLM_ViewportManager::AreRendersPending() const {
    return renderedViewport || std::any_of(std::begin(viewports), std::end(viewports),
                                           [&](const auto& viewport) { return NeedsRender(*viewport); });
}

void QLM_ViewportManager::StartRenders() {
    if (renderedViewport) return;
    for (auto& viewport : viewports) {
        if (!NeedsRender(*viewport)) continue;
        renderedViewport = viewport.Get();
        renderer = new QLM_Renderer4(*renderedViewport);
        renderer->Prepare();
        renderDone = false;
        QLM_StartThread(
            renderThread,
            [this, running = renderer] {
                QLM_TRACE(1);
                running->Render();
                renderDone = true;
            },
            QLM_ThreadPriority::Normal, "RenderAllObjects_ThreadFunc");
        return;
    }
}

void QLM_ViewportManager::FinishRunningRender() {
    QLM_JoinThread(renderThread);
    renderer->Finish();
    delete renderer;
    renderer = nullptr;
    QLM_Viewport* finished = renderedViewport;
    renderedViewport = nullptr;
    renderThread = 0;
    if (!finished->r4s.pictureValid) return;

    if (const QLM_Engine* engine = QLM_GetEngine()) finished->stepNumber = engine->redrawCounter;
    QLM_RequestRedraw();
    // Each shown viewport needs the marks of touched leaves once.
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (AreRendersPending() || !objects) return;
    for (QLM_Object* object : objects->GetObjects(false))
        if (QLM_Mesh* mesh = object->GetMesh()) mesh->ClearSurfaceChangedFlags();
}

void QLM_ViewportManager::AbortRender(const QLM_Viewport* viewport) {
    if (!renderedViewport || (viewport && viewport != renderedViewport)) return;
    renderedViewport->r4s.AbortRender = true;
    FinishRunningRender();
}

void QLM_ViewportManager::FinishRenders() {
    for (StartRenders(); renderedViewport; StartRenders()) FinishRunningRender();
}

void QLM_ViewportManager::DrawAllViewports() { FinishRenders(); }

void QLM_ViewportManager::ReadPicture(int index, std::vector<uint8_t>& rgb, int& width, int& height) {
    FinishRenders();
    const bool whole = index < 0 || index >= ViewportCount;
    width = whole ? canvasWidth : viewports[index]->width;
    height = whole ? canvasHeight : viewports[index]->height;
    rgb.assign(static_cast<size_t>(width) * height * 3, CanvasGrey);
    const auto pixel = [&](int x, int y) { return rgb.data() + (static_cast<size_t>(y) * width + x) * 3; };
    for (int i = 0; i < ViewportCount; ++i) {
        QLM_Viewport& viewport = *viewports[i];
        if (whole ? !viewport.shown : i != index) continue;
        // Canvas rows count from the top, those of pictures from the bottom.
        const int left = whole ? viewport.x : 0, bottom = whole ? canvasHeight - viewport.y - viewport.height : 0;
        const int w = viewport.width, h = viewport.height;
        if (w <= 0 || h <= 0) continue;
        const uint8_t* from = viewport.r4s.pictureValid ? viewport.r4s.Pixels.GetPixels() : nullptr;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < 3; ++c)
                    pixel(left + x, bottom + y)[c] = from ? from[(static_cast<size_t>(y) * w + x) * 4 + c]
                                                          : static_cast<uint8_t>(CanvasGrey + i * ViewportGreyStep);
        if (!whole) continue;
        for (int x = 0; x < w; ++x) std::fill_n(pixel(left + x, bottom + h - 1), 3, FrameDark);
        for (int y = 0; y < h; ++y) std::fill_n(pixel(left, bottom + y), 3, FrameDark);
        for (int x = 0; x < w; ++x) std::fill_n(pixel(left + x, bottom), 3, FrameLight);
        for (int y = 0; y < h; ++y) std::fill_n(pixel(left + w - 1, bottom + y), 3, FrameLight);
    }
}
