#include "Interface/QLM_WX_Start.h"

#include "Core/Logging/QLM_Logger.h"
#include "Interface/QLM_WX_App.h"

#include <wx/init.h>

#include <gdk/gdk.h>

#include <cstdlib>

bool QLM_CanOpenDisplay() {
    // Canvas, floating frames and pointer queries need X; a Wayland desktop gives it through its own server.
    setenv("GDK_BACKEND", "x11", 1);
    // The floor below GTK: the toolkit wants to be the first to start GTK itself, and keeps the locale as it is.
    const char* display = std::getenv("DISPLAY");
    return display && *display && gdk_display_open(nullptr);
}

int QLM_RunWindow(const char* programName, QLM_WindowOptions options) {
    wxApp::SetInstance(new QLM::GUI::App(std::move(options)));
    // The toolkit must not read the command line again.
    std::string name = programName;
    char* arguments[] = {name.data(), nullptr};
    int count = 1;
    try {
        return wxEntry(count, arguments) == 0 ? 0 : 1;
    } catch (const std::exception& exception) { QLM_ReportFailure(exception.what()); } catch (...) {
        QLM_ReportFailure("unknown exception");
    }
    return 1;
}
