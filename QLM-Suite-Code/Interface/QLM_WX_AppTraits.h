#pragma once
// What the toolkit says by itself goes to the log, never into boxes of its own.

#include <wx/apptrait.h>
#include <wx/log.h>

namespace QLM::GUI {

/// Assertions of the toolkit: a line in the log and on standard error, and on it goes.
class QLM_WX_AppTraits : public wxGUIAppTraits {
  public:
    bool ShowAssertDialog(const wxString& message) override;
};

/// The toolkit's own messages.
class LogTarget : public wxLog {
  protected:
    void DoLogRecord(wxLogLevel level, const wxString& message, const wxLogRecordInfo& info) override;
};

} // namespace QLM::GUI
