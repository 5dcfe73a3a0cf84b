#include "Interface/QLM_WX_Tablet.h"

#include <wx/window.h>

#include <gtk/gtk.h>

#include <cmath>

namespace QLM::GUI {

namespace {

constexpr int FullPressure = 65535; ///< the toolkit gives 0..1

/// Runs before the toolkit makes its mouse event, so that the press already has its pressure.
gboolean OnEvent(GtkWidget*, GdkEvent* event, gpointer) {
    const GdkEventType type = gdk_event_get_event_type(event);
    if (type != GDK_MOTION_NOTIFY && type != GDK_BUTTON_PRESS) return FALSE;
    GdkDevice* const device = gdk_event_get_source_device(event);
    const GdkInputSource source = device ? gdk_device_get_source(device) : GDK_SOURCE_MOUSE;
    double pressure = 0;
    if ((source == GDK_SOURCE_PEN || source == GDK_SOURCE_ERASER) &&
        gdk_event_get_axis(event, GDK_AXIS_PRESSURE, &pressure))
        QLM_TabletPacket(static_cast<int>(std::lround(pressure * FullPressure)), 0, FullPressure);
    return FALSE;
}

} // namespace

bool WindowTablet::Open() {
    if (widget) return true;
    GdkWindow* const drawing = window.GTKGetDrawingWindow();
    if (!drawing) return false;
    void* owner = nullptr;
    gdk_window_get_user_data(drawing, &owner);
    if (!GTK_IS_WIDGET(owner)) return false;
    widget = GTK_WIDGET(g_object_ref(owner));
    handler = g_signal_connect(widget, "event", G_CALLBACK(OnEvent), nullptr);
    return true;
}

void WindowTablet::Close() {
    if (!widget) return;
    g_signal_handler_disconnect(widget, handler);
    g_object_unref(widget);
    widget = nullptr;
}

} // namespace QLM::GUI
