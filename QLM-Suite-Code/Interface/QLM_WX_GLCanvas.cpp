#include "Interface/QLM_WX_GLCanvas.h"

#include "Core/Logging/QLM_Logger.h"
#include "Interface/QLM_WX_App.h"
#include "Rendering/QLM_GLRenderer.h"
#include "Rendering/QLM_ViewportManager.h"

#include <wx/bitmap.h>
#include <wx/dcclient.h>
#include <wx/image.h>

#include <gtk/gtk.h>

#include <cmath>

namespace QLM::GUI {

namespace {

constexpr float ShortestFrame = 0.008f; ///< seconds between the end of a frame and one drawn out of turn

wxGLAttributes Attributes() {
    wxGLAttributes attributes;
    attributes.PlatformDefaults().RGBA().DoubleBuffer().Depth(24).EndList();
    return attributes;
}

} // namespace

Canvas::Canvas(wxWindow& windowIn) : window(windowIn), input(windowIn, [this] { DrawSoon(); }), tablet(windowIn) {
    window.Bind(wxEVT_PAINT, [this](wxPaintEvent&) {
        wxPaintDC dc(&window); // validates the window, whatever follows
        Paint(dc);
    });
    window.Bind(wxEVT_ERASE_BACKGROUND, [](wxEraseEvent&) {});
    window.Bind(wxEVT_SIZE, [this](wxSizeEvent& event) {
        UpdateCanvasSize();
        event.Skip();
    });
}

void Canvas::UpdateCanvasSize() {
    const QLM_Engine* engine = QLM_GetEngine();
    if (!engine || !engine->managers || TheApp()->IsScripted()) return;
    const wxSize size = window.GetClientSize();
    const double scale = window.GetContentScaleFactor();
    QLM_ViewportManager& viewports = *engine->managers->GetViewportManager();
    const int width = static_cast<int>(std::lround(size.x * scale)),
              height = static_cast<int>(std::lround(size.y * scale));
    if (width == viewports.GetCanvasWidth() && height == viewports.GetCanvasHeight()) return;
    viewports.SetCanvasSize(width, height);
    window.Refresh(false);
}

void Canvas::OpenTablet() {
    if (!tablet.Open()) QLM_Log("The canvas has no window to hear pens from");
}

void Canvas::DrawSoon() {
    if (sinceDrawn.IsStarted() && sinceDrawn.GetElapsedSeconds() < ShortestFrame) {
        window.Refresh(false);
        return;
    }
    DrawNow();
    sinceDrawn.Start();
}

// --- OpenGL ---------------------------------------------------------------------------------------------------------

bool GLCanvas::IsSupported() {
    // The toolkit takes the lack for a mistake of the caller.
    const wxAssertHandler_t asserting = wxSetAssertHandler(nullptr);
    const bool supported = wxGLCanvas::IsDisplaySupported(Attributes());
    wxSetAssertHandler(asserting);
    return supported;
}

GLCanvas::GLCanvas(wxWindow* parent)
    : wxGLCanvas(parent, Attributes(), wxID_ANY, wxDefaultPosition, wxSize(64, 64), wxFULL_REPAINT_ON_RESIZE),
      Canvas(static_cast<wxWindow&>(*this)) {
    wxGLContextAttrs attributes;
    attributes.CompatibilityProfile().EndList();
    context = std::make_unique<wxGLContext>(this, nullptr, &attributes);
    if (!context->IsOK()) context = std::make_unique<wxGLContext>(this); // the driver's own choice
    if (!context->IsOK()) context.reset();
}

void GLCanvas::Realize() {
    if (realized) return;
    realized = true;
    gtk_widget_realize(static_cast<GtkWidget*>(GetHandle()));
    // A stroke is made of every motion, not of the last one before each frame.
    if (GdkWindow* window = GTKGetDrawingWindow()) gdk_window_set_event_compression(window, FALSE);
}

bool GLCanvas::MakeCurrent() {
    if (!context || !realized) return false;
    contextCurrent = SetCurrent(*context);
    return contextCurrent;
}

void GLCanvas::TestOpenGL() {
    if (tested) return;
    Realize();
    if (!MakeCurrent()) {
        QLM_Log("There is no OpenGL context yet");
        return;
    }
    tested = true;
    QLM_GL_TestOpenGL();
}

void GLCanvas::DrawNow() {
    QLM_Engine* const engine = QLM_GetEngine();
    if (drawing || !engine || !engine->isReady) return;
    drawing = true;
    TestOpenGL();
    if (MakeCurrent()) {
        if (!TheApp()->IsScripted()) ++engine->redrawCounter;
        QLM_GL_DrawCanvas(!TheApp()->IsScripted() && QLM_GetManagers().GetViewportManager()->IsInteracting());
        SwapBuffers();
    }
    drawing = false;
}

// --- Pictures -------------------------------------------------------------------------------------------------------

PictureCanvas::PictureCanvas(wxWindow* parent)
    : wxWindow(parent, wxID_ANY, wxDefaultPosition, wxSize(64, 64), wxFULL_REPAINT_ON_RESIZE),
      Canvas(static_cast<wxWindow&>(*this)) {}

void PictureCanvas::DrawNow() {
    Refresh(false);
    Update();
}

void PictureCanvas::Paint(wxDC& dc) {
    QLM_Engine* const engine = QLM_GetEngine();
    if (drawing || !engine || !engine->isReady) return;
    drawing = true;
    if (!TheApp()->IsScripted()) ++engine->redrawCounter;
    std::vector<uint8_t> rgb;
    int width = 0, height = 0;
    engine->managers->GetViewportManager()->ReadPicture(-1, rgb, width, height);
    if (width > 0 && height > 0) {
        const wxImage image = wxImage(width, height, rgb.data(), true).Mirror(false); // rows come from the bottom
        dc.DrawBitmap(wxBitmap(image, -1, GetContentScaleFactor()), 0, 0);
    }
    drawing = false;
}

} // namespace QLM::GUI
