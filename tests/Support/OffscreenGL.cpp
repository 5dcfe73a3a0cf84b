#include "Support/OffscreenGL.h"

#include "Images/QLM_GL_Textures.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>

namespace {

/// The one context; textures of maps outlive the buffers that it draws into.
struct Context {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLConfig config = nullptr;
    EGLContext context = EGL_NO_CONTEXT;
    std::string error;

    Context() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        error = "the driver is not instrumented: its threads and caches would be reported";
        return;
#endif
        display = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr)) {
            error = "EGL has no surfaceless display";
            return;
        }
        const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                 EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_DEPTH_SIZE, 24, EGL_NONE};
        EGLint count = 0;
        if (!eglBindAPI(EGL_OPENGL_API) || !eglChooseConfig(display, wanted, &config, 1, &count) || count == 0)
            error = "EGL has no fitting configuration";
        else context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
        if (error.empty() && context == EGL_NO_CONTEXT) error = "EGL makes no context";
    }
};

const Context& GetContext() {
    static const Context context;
    return context;
}

} // namespace

OffscreenGL::OffscreenGL(int width, int height) : error(GetContext().error) {
    if (!error.empty()) return;
    const Context& gl = GetContext();
    const EGLint size[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
    surface = eglCreatePbufferSurface(gl.display, gl.config, size);
    if (surface == EGL_NO_SURFACE || !eglMakeCurrent(gl.display, surface, surface, gl.context))
        error = "EGL makes no buffer";
    else QLM_GL_SetContextTest([] { return eglGetCurrentContext() != EGL_NO_CONTEXT; });
}

OffscreenGL::~OffscreenGL() {
    QLM_GL_SetContextTest({});
    const Context& gl = GetContext();
    if (!gl.error.empty()) return;
    eglMakeCurrent(gl.display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (surface != EGL_NO_SURFACE) eglDestroySurface(gl.display, surface);
}

std::vector<uint8_t> OffscreenGL::Read(int width, int height) {
    std::vector<uint8_t> rgb(static_cast<size_t>(width) * height * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    return rgb;
}
