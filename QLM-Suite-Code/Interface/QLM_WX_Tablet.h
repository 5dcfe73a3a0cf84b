#pragma once
// The pens of the display.

#include "Core/OS/QLM_Tablet.h"

class wxWindow;
typedef struct _GtkWidget GtkWidget;

namespace QLM::GUI {

/// Takes the pressure out of the pen's events on one window. Main thread.
class WindowTablet : public QLM_Tablet {
  public:
    explicit WindowTablet(wxWindow& windowIn) : window(windowIn) {}
    ~WindowTablet() override { Close(); }
    /// False while the window isn't realized.
    bool Open() override;
    void Close() override;

  private:
    wxWindow& window;
    GtkWidget* widget = nullptr; ///< kept alive while open
    unsigned long handler = 0;
};

} // namespace QLM::GUI
