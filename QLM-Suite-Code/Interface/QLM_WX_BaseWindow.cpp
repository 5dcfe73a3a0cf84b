#include "Interface/QLM_WX_BaseWindow.h"

namespace QLM::GUI {

namespace {

constexpr const char* Frozen = "FROZEN";

} // namespace

void SetFocusToHiddenWidget(wxWindow* window) {
    if (!window) return;
    for (wxWindow* child : window->GetChildren())
        if (auto* hidden = dynamic_cast<HiddenFocusWidget*>(child)) {
            hidden->SetFocus();
            return;
        }
    (new HiddenFocusWidget(window))->SetFocus();
}

void FreezeWindow(wxWindow* window) {
    QLM_CustomPropertyContainer* properties = PropertiesOf(window);
    if (!properties || properties->HasProperty(Frozen)) return;
    properties->SetBool(Frozen, true);
    window->Freeze();
}

void ThawWindow(wxWindow* window) {
    QLM_CustomPropertyContainer* properties = PropertiesOf(window);
    if (!properties || !properties->HasProperty(Frozen)) return;
    properties->RemoveProperty(Frozen);
    window->Thaw();
    window->Refresh();
}

} // namespace QLM::GUI
