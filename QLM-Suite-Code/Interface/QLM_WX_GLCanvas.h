#pragma once
// The window that the viewports are drawn in.

#include "Core/OS/QLM_Clock.h"
#include "Interface/QLM_WX_BaseWindow.h"
#include "Interface/QLM_WX_CanvasInput.h"
#include "Interface/QLM_WX_Tablet.h"

#include <wx/glcanvas.h>

#include <memory>

class wxDC;

namespace QLM::GUI {

/// What both kinds of canvas share: input, size, paint events. Main thread.
class Canvas : public BaseWindowCommon {
  public:
    /// `windowIn` is the canvas's own window, made already.
    explicit Canvas(wxWindow& windowIn);
    wxWindow& GetWindow() { return window; }
    CanvasInput& GetInput() { return input; }
    bool IsDrawing() const { return drawing; }
    /// Hands the viewports the present size; not under a script, which sets it itself.
    void UpdateCanvasSize();
    /// Draws at once.
    virtual void DrawNow() = 0;
    /// Draws at once too, but not more often than a display shows: then with the toolkit's next frame, which may come
    /// a frame's time later.
    void DrawSoon();
    /// Realizes the window, which needn't be shown, makes its context current and logs the driver.
    virtual void TestOpenGL() {}
    virtual bool IsContextCurrent() const { return false; }
    /// Listens to pens from now on; the window must be realized.
    void OpenTablet();

  protected:
    virtual void Paint(wxDC& dc) = 0;
    wxWindow& window;
    bool drawing = false;

  private:
    CanvasInput input;
    WindowTablet tablet;
    QLM_Stopwatch sinceDrawn;
};

/// Draws by OpenGL. Only where IsSupported() says so.
class GLCanvas : public wxGLCanvas, public Canvas {
  public:
    /// False on a display without GLX.
    static bool IsSupported();
    explicit GLCanvas(wxWindow* parent);

    void TestOpenGL() override;
    bool IsContextCurrent() const override { return contextCurrent; }
    void DrawNow() override;

  private:
    void Paint(wxDC&) override { DrawNow(); }
    bool MakeCurrent();
    void Realize();

    std::unique_ptr<wxGLContext> context;
    bool contextCurrent = false, realized = false, tested = false;
};

/// Shows the finished software pictures alone, on displays without OpenGL.
class PictureCanvas : public wxWindow, public Canvas {
  public:
    explicit PictureCanvas(wxWindow* parent);
    void DrawNow() override;

  private:
    void Paint(wxDC& dc) override;
};

} // namespace QLM::GUI
