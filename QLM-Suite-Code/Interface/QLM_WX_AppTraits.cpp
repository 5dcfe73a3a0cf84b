#include "Interface/QLM_WX_AppTraits.h"

#include "Core/Logging/QLM_Logger.h"
#include "Interface/QLM_WX_Text.h"

#include <cstdio>

namespace QLM::GUI {

bool QLM_WX_AppTraits::ShowAssertDialog(const wxString& message) {
    const std::string text = FromToolkit(message);
    QLM_LogText("Assertion of the toolkit: " + text);
    std::fprintf(stderr, "wx assertion: %s\n", text.c_str());
    return false; // later assertions are told as well
}

void LogTarget::DoLogRecord(wxLogLevel level, const wxString& message, const wxLogRecordInfo&) {
    const std::string text = FromToolkit(message);
    QLM_LogText("Toolkit: " + text);
    if (level <= wxLOG_Error) std::fprintf(stderr, "wx: %s\n", text.c_str());
}

} // namespace QLM::GUI
